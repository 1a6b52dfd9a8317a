#include "prefs/preferences.h"

#include <algorithm>
#include <string>

#include "addin/outlook_app.h"
#include "core/debug_logger.h"
#include "core/registry_key.h"
#include "mapi/outlook_utils.h"
#include "platform/env.h"

namespace PIM {

namespace {

const std::u16string kMainKey = u"Software\\Corvel\\CVTK";
const char16_t kCalendarKey[] = u"\\Calendar";
const char16_t kContactsKey[] = u"\\Contacts";
const char16_t kEmailKey[] = u"\\Email";
const char16_t kTasksKey[] = u"\\Tasks";
const char16_t kFolderCount[] = u"captureFolderCount";
const char16_t kFolderValue[] = u"captureFolders";
// Defined with the others, never read or written.
[[maybe_unused]] const char16_t kEnableEmailCapture[] = u"enableEmailCapture";
constexpr uint32_t kNoCount = 0xFFFFFFFF;
// A damaged count must not make a start-up read billions of values; nobody
// chooses this many folders of one kind.
constexpr uint32_t kMostFolders = 1024;

KeyHandle currentUser() { return env()->keyStore().currentUserRoot(); }

std::u16string folderValueName(uint32_t index) {
  const std::string digits = std::to_string(index);
  return kFolderValue + std::u16string(digits.begin(), digits.end());
}

void readBool(const RegistryKey& key, const char16_t* name, Setting<bool>& setting) {
  setting = key.readBool(name, setting);
}
void readDword(const RegistryKey& key, const char16_t* name, Setting<uint32_t>& setting) {
  setting = key.readDword(name, setting);
}

// The default store's folder whose identifier `find` gives, with the store's
// identifier; empty when the store cannot be opened.
template <class Find>
OutlookFolder defaultFolder(Find find) {
  PIM_ENTRY("PIM::Preferences::defaultFolder");
  IMAPISession* session = OutlookApp::instance()->getMapiSession();
  if (!session) return {};
  OutlookFolder folder;
  folder.storeId = OutlookUtils::getDefaultMsgStoreId(session);
  ComPtr<IMsgStore> store;
  if (FAILED(OutlookUtils::getMsgStore(session, folder.storeId, store))) return {};
  folder.folderId = find(store.get());
  return folder;
}

void putLength(std::vector<uint8_t>& out, size_t length) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<uint8_t>(length >> shift));
}

// The 32-bit little-endian length at `offset`, if four bytes are there.
bool getLength(const std::vector<uint8_t>& bytes, size_t offset, size_t& length) {
  if (bytes.size() < offset || bytes.size() - offset < 4) return false;
  length = 0;
  for (int i = 3; i >= 0; --i) length = length << 8 | bytes[offset + i];
  return true;
}

}  // namespace

Preferences& Preferences::instance() {
  static Preferences preferences;
  return preferences;
}

void Preferences::loadCalendarWindow() {
  PIM_ENTRY("PIM::Preferences::loadCalendarWindow");
  RegistryKey key(currentUser(), kMainKey + kCalendarKey);
  readDword(key, u"captureDaysBefore", calendar.captureDaysBefore);
  readDword(key, u"captureDaysAfter", calendar.captureDaysAfter);
}

void Preferences::load() {
  PIM_ENTRY("PIM::Preferences::load");
  {
    RegistryKey key(currentUser(), kMainKey);
    readDword(key, u"captureInterval", captureInterval);
    readDword(key, u"autoCaptureInterval", captureMode);
    if (captureMode >= 3) {
      PIM_LOG_ERR("Assertion failed");
      captureMode = CaptureAutomatic;
    }
  }
  {
    RegistryKey key(currentUser(), kMainKey + kCalendarKey);
    readDword(key, u"captureDaysBefore", calendar.captureDaysBefore);
    readDword(key, u"captureDaysAfter", calendar.captureDaysAfter);
    readBool(key, u"captureBody", calendar.captureBody);
    readBool(key, u"captureOrganizer", calendar.captureOrganizer);
    readBool(key, u"captureRequiredAttendees", calendar.captureRequiredAttendees);
    readBool(key, u"captureOptionalAttendees", calendar.captureOptionalAttendees);
    readBool(key, u"captureBusyStatus", calendar.captureBusyStatus);
    readBool(key, u"capturePriority", calendar.capturePriority);
    loadFolders(key, calendar.folders,
                defaultFolder(OutlookUtils::getMAPIDefaultCalendarFolderEntryId));
  }
  {
    RegistryKey key(currentUser(), kMainKey + kContactsKey);
    readBool(key, u"captureCellularNumber", contacts.captureCellularNumber);
    readBool(key, u"capturePagerNumber", contacts.capturePagerNumber);
    readBool(key, u"captureHomeNumber", contacts.captureHomeNumber);
    readBool(key, u"captureCompanyName", contacts.captureCompanyName);
    readBool(key, u"captureBusinessFax", contacts.captureBusinessFax);
    readBool(key, u"captureBusinessAddress", contacts.captureBusinessAddress);
    readBool(key, u"captureHomeAddress", contacts.captureHomeAddress);
    readBool(key, u"captureHomeFax", contacts.captureHomeFax);
    readBool(key, u"captureNotes", contacts.captureNotes);
    readBool(key, u"captureTitle", contacts.captureTitle);
    loadFolders(key, contacts.folders,
                defaultFolder(OutlookUtils::getMAPIDefaultContactsFolderEntryId));
  }
  {
    RegistryKey key(currentUser(), kMainKey + kEmailKey);
    readDword(key, u"captureEmailCount", email.captureEmailCount);
    readBool(key, u"captureImportance", email.captureImportance);
    readBool(key, u"captureFlagStatus", email.captureFlagStatus);
    readBool(key, u"captureSensitivity", email.captureSensitivity);
    readBool(key, u"captureFlagRequest", email.captureFlagRequest);
    readBool(key, u"captureAttachments", email.captureAttachments);
    // Mail folders have no default: a first start captures no mail.
    loadFolders(key, email.folders, OutlookFolder());
  }
  {
    RegistryKey key(currentUser(), kMainKey + kTasksKey);
    readDword(key, u"maxTaskCapture", tasks.maxTaskCapture);
    readBool(key, u"captureStatus", tasks.captureStatus);
    readBool(key, u"capturePriority", tasks.capturePriority);
    readBool(key, u"captureBody", tasks.captureBody);
    loadFolders(key, tasks.folders, defaultFolder(OutlookUtils::getMAPIDefaultTasksFolderEntryId));
  }
  save();
}

void Preferences::save() {
  PIM_ENTRY("PIM::Preferences::save");
  {
    RegistryKey key(currentUser(), kMainKey);
    key.writeDword(u"captureInterval", captureInterval);
    key.writeDword(u"autoCaptureInterval", captureMode);
  }
  {
    RegistryKey key(currentUser(), kMainKey + kCalendarKey);
    key.writeDword(u"captureDaysBefore", calendar.captureDaysBefore);
    key.writeDword(u"captureDaysAfter", calendar.captureDaysAfter);
    key.writeBool(u"captureBody", calendar.captureBody);
    key.writeBool(u"captureOrganizer", calendar.captureOrganizer);
    key.writeBool(u"captureRequiredAttendees", calendar.captureRequiredAttendees);
    key.writeBool(u"captureOptionalAttendees", calendar.captureOptionalAttendees);
    key.writeBool(u"captureBusyStatus", calendar.captureBusyStatus);
    key.writeBool(u"capturePriority", calendar.capturePriority);
    saveFolders(key, calendar.folders);
  }
  {
    RegistryKey key(currentUser(), kMainKey + kContactsKey);
    key.writeBool(u"captureCellularNumber", contacts.captureCellularNumber);
    key.writeBool(u"capturePagerNumber", contacts.capturePagerNumber);
    key.writeBool(u"captureHomeNumber", contacts.captureHomeNumber);
    key.writeBool(u"captureCompanyName", contacts.captureCompanyName);
    key.writeBool(u"captureBusinessFax", contacts.captureBusinessFax);
    key.writeBool(u"captureBusinessAddress", contacts.captureBusinessAddress);
    key.writeBool(u"captureHomeAddress", contacts.captureHomeAddress);
    key.writeBool(u"captureHomeFax", contacts.captureHomeFax);
    key.writeBool(u"captureNotes", contacts.captureNotes);
    key.writeBool(u"captureTitle", contacts.captureTitle);
    saveFolders(key, contacts.folders);
  }
  {
    RegistryKey key(currentUser(), kMainKey + kEmailKey);
    key.writeDword(u"captureEmailCount", email.captureEmailCount);
    key.writeBool(u"captureImportance", email.captureImportance);
    key.writeBool(u"captureFlagStatus", email.captureFlagStatus);
    key.writeBool(u"captureSensitivity", email.captureSensitivity);
    key.writeBool(u"captureFlagRequest", email.captureFlagRequest);
    key.writeBool(u"captureAttachments", email.captureAttachments);
    saveFolders(key, email.folders);
  }
  {
    RegistryKey key(currentUser(), kMainKey + kTasksKey);
    key.writeDword(u"maxTaskCapture", tasks.maxTaskCapture);
    key.writeBool(u"captureStatus", tasks.captureStatus);
    key.writeBool(u"capturePriority", tasks.capturePriority);
    key.writeBool(u"captureBody", tasks.captureBody);
    saveFolders(key, tasks.folders);
  }
  notifyListeners();
}

void Preferences::addListener(IPreferencesListener* listener) {
  PIM_ENTRY("PIM::Preferences::addListener");
  if (std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end()) {
    PIM_LOG_ERR("Assertion failed");
    return;
  }
  listeners_.push_back(listener);
}

void Preferences::removeListener(IPreferencesListener* listener) {
  PIM_ENTRY("PIM::Preferences::removeListener");
  auto found = std::find(listeners_.begin(), listeners_.end(), listener);
  if (found == listeners_.end()) {
    PIM_LOG_ERR("Assertion failed");
    return;
  }
  listeners_.erase(found);
}

void Preferences::notifyListeners() {
  PIM_ENTRY("PIM::Preferences::notifyListeners");
  // A listener may add or remove listeners while it is told.
  const std::vector<IPreferencesListener*> listeners = listeners_;
  for (IPreferencesListener* listener : listeners) listener->onPreferencesChanged();
}

std::vector<uint8_t> Preferences::toKeyData(const OutlookFolder& folder) {
  std::vector<uint8_t> bytes;
  bytes.reserve(8 + folder.folderId.size() + folder.storeId.size());
  putLength(bytes, folder.folderId.size());
  bytes.insert(bytes.end(), folder.folderId.getVector().begin(), folder.folderId.getVector().end());
  putLength(bytes, folder.storeId.size());
  bytes.insert(bytes.end(), folder.storeId.getVector().begin(), folder.storeId.getVector().end());
  return bytes;
}

bool Preferences::fromKeyData(const std::vector<uint8_t>& bytes, OutlookFolder& folder) {
  PIM_ENTRY("PIM::Preferences::fromKeyData");
  size_t folderLength = 0;
  size_t storeLength = 0;
  if (!getLength(bytes, 0, folderLength) || bytes.size() - 4 < folderLength ||
      !getLength(bytes, 4 + folderLength, storeLength) ||
      bytes.size() - 8 - folderLength < storeLength) {
    PIM_LOG_ERR("Invalid key data stored in registry.");
    return false;
  }
  const auto folderStart = bytes.begin() + 4;
  const auto storeStart = folderStart + static_cast<std::ptrdiff_t>(folderLength) + 4;
  folder.folderId = EntryId(std::vector<uint8_t>(folderStart, folderStart + folderLength));
  folder.storeId = EntryId(std::vector<uint8_t>(storeStart, storeStart + storeLength));
  return true;
}

void Preferences::loadFolders(const RegistryKey& key, std::vector<OutlookFolder>& folders,
                              const OutlookFolder& defaultFolder) {
  PIM_ENTRY("PIM::Preferences::loadFolders");
  folders.clear();
  const uint32_t count = key.readDword(kFolderCount, kNoCount);
  if (count == kNoCount) {
    if (defaultFolder.folderId.isValid() && defaultFolder.storeId.isValid())
      folders.push_back(defaultFolder);
    return;
  }
  for (uint32_t i = 0; i < std::min(count, kMostFolders); ++i) {
    std::vector<uint8_t> bytes;
    OutlookFolder folder;
    if (!key.readBinary(folderValueName(i), bytes) || !fromKeyData(bytes, folder)) continue;
    if (std::find(folders.begin(), folders.end(), folder) == folders.end())
      folders.push_back(folder);
  }
}

void Preferences::saveFolders(RegistryKey& key, const std::vector<OutlookFolder>& folders) {
  PIM_ENTRY("PIM::Preferences::saveFolders");
  key.writeDword(kFolderCount, static_cast<uint32_t>(folders.size()));
  for (size_t i = 0; i < folders.size(); ++i)
    key.writeBinary(folderValueName(static_cast<uint32_t>(i)), toKeyData(folders[i]));
}

}  // namespace PIM
