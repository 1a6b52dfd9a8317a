#include "prefs/preferences.h"

#include <algorithm>
#include <optional>
#include <string>
#include <type_traits>

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

enum Section { kMainSection, kCalendarSection, kContactsSection, kEmailSection, kTasksSection };

const std::u16string& sectionPath(Section section) {
  static const std::u16string paths[] = {kMainKey, kMainKey + kCalendarKey, kMainKey + kContactsKey,
                                         kMainKey + kEmailKey, kMainKey + kTasksKey};
  return paths[section];
}

// Every stored value in the order it is kept: its key, its name (none for a
// folder list) and how to reach it in a PreferenceValues.
template <class Visit>
void forEachStored(Visit&& visit) {
  visit(
      kMainSection, u"captureInterval", [](auto& v) -> auto& { return v.captureInterval; });
  visit(
      kMainSection, u"autoCaptureInterval", [](auto& v) -> auto& { return v.captureMode; });
  visit(
      kCalendarSection, u"captureDaysBefore",
      [](auto& v) -> auto& { return v.calendar.captureDaysBefore; });
  visit(
      kCalendarSection, u"captureDaysAfter",
      [](auto& v) -> auto& { return v.calendar.captureDaysAfter; });
  visit(
      kCalendarSection, u"captureBody", [](auto& v) -> auto& { return v.calendar.captureBody; });
  visit(
      kCalendarSection, u"captureOrganizer",
      [](auto& v) -> auto& { return v.calendar.captureOrganizer; });
  visit(
      kCalendarSection, u"captureRequiredAttendees",
      [](auto& v) -> auto& { return v.calendar.captureRequiredAttendees; });
  visit(
      kCalendarSection, u"captureOptionalAttendees",
      [](auto& v) -> auto& { return v.calendar.captureOptionalAttendees; });
  visit(
      kCalendarSection, u"captureBusyStatus",
      [](auto& v) -> auto& { return v.calendar.captureBusyStatus; });
  visit(
      kCalendarSection, u"capturePriority",
      [](auto& v) -> auto& { return v.calendar.capturePriority; });
  visit(
      kCalendarSection, nullptr, [](auto& v) -> auto& { return v.calendar.folders; });
  visit(
      kContactsSection, u"captureCellularNumber",
      [](auto& v) -> auto& { return v.contacts.captureCellularNumber; });
  visit(
      kContactsSection, u"capturePagerNumber",
      [](auto& v) -> auto& { return v.contacts.capturePagerNumber; });
  visit(
      kContactsSection, u"captureHomeNumber",
      [](auto& v) -> auto& { return v.contacts.captureHomeNumber; });
  visit(
      kContactsSection, u"captureCompanyName",
      [](auto& v) -> auto& { return v.contacts.captureCompanyName; });
  visit(
      kContactsSection, u"captureBusinessFax",
      [](auto& v) -> auto& { return v.contacts.captureBusinessFax; });
  visit(
      kContactsSection, u"captureBusinessAddress",
      [](auto& v) -> auto& { return v.contacts.captureBusinessAddress; });
  visit(
      kContactsSection, u"captureHomeAddress",
      [](auto& v) -> auto& { return v.contacts.captureHomeAddress; });
  visit(
      kContactsSection, u"captureHomeFax",
      [](auto& v) -> auto& { return v.contacts.captureHomeFax; });
  visit(
      kContactsSection, u"captureNotes", [](auto& v) -> auto& { return v.contacts.captureNotes; });
  visit(
      kContactsSection, u"captureTitle", [](auto& v) -> auto& { return v.contacts.captureTitle; });
  visit(
      kContactsSection, nullptr, [](auto& v) -> auto& { return v.contacts.folders; });
  visit(
      kEmailSection, u"captureEmailCount",
      [](auto& v) -> auto& { return v.email.captureEmailCount; });
  visit(
      kEmailSection, u"captureImportance",
      [](auto& v) -> auto& { return v.email.captureImportance; });
  visit(
      kEmailSection, u"captureFlagStatus",
      [](auto& v) -> auto& { return v.email.captureFlagStatus; });
  visit(
      kEmailSection, u"captureSensitivity",
      [](auto& v) -> auto& { return v.email.captureSensitivity; });
  visit(
      kEmailSection, u"captureFlagRequest",
      [](auto& v) -> auto& { return v.email.captureFlagRequest; });
  visit(
      kEmailSection, u"captureAttachments",
      [](auto& v) -> auto& { return v.email.captureAttachments; });
  visit(
      kEmailSection, nullptr, [](auto& v) -> auto& { return v.email.folders; });
  visit(
      kTasksSection, u"maxTaskCapture", [](auto& v) -> auto& { return v.tasks.maxTaskCapture; });
  visit(
      kTasksSection, u"captureStatus", [](auto& v) -> auto& { return v.tasks.captureStatus; });
  visit(
      kTasksSection, u"capturePriority", [](auto& v) -> auto& { return v.tasks.capturePriority; });
  visit(
      kTasksSection, u"captureBody", [](auto& v) -> auto& { return v.tasks.captureBody; });
  visit(
      kTasksSection, nullptr, [](auto& v) -> auto& { return v.tasks.folders; });
}

// The key of one section at a time, each closed before the next is opened.
class SectionKeys {
 public:
  RegistryKey& open(Section section) {
    if (!key_ || section != section_) {
      key_.reset();
      key_.emplace(currentUser(), sectionPath(section));
      section_ = section;
    }
    return *key_;
  }

 private:
  std::optional<RegistryKey> key_;
  Section section_ = kMainSection;
};

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

OutlookFolder defaultFolderOf(Section section) {
  switch (section) {
    case kCalendarSection:
      return defaultFolder(OutlookUtils::getMAPIDefaultCalendarFolderEntryId);
    case kContactsSection:
      return defaultFolder(OutlookUtils::getMAPIDefaultContactsFolderEntryId);
    case kTasksSection:
      return defaultFolder(OutlookUtils::getMAPIDefaultTasksFolderEntryId);
    default:
      return {};  // mail folders have none: a first start captures no mail
  }
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
  const CalendarSettings defaults;
  RegistryKey key(currentUser(), sectionPath(kCalendarSection));
  calendar.captureDaysBefore = key.readDword(u"captureDaysBefore", defaults.captureDaysBefore);
  calendar.captureDaysAfter = key.readDword(u"captureDaysAfter", defaults.captureDaysAfter);
}

void Preferences::readValues(PreferenceValues& values) {
  PIM_ENTRY("PIM::Preferences::readValues");
  // Missing values keep the defaults `values` starts with, whatever was held
  // in memory before.
  values = PreferenceValues();
  SectionKeys keys;
  forEachStored([&](Section section, const char16_t* name, auto reach) {
    RegistryKey& key = keys.open(section);
    auto& value = reach(values);
    using Value = std::decay_t<decltype(value)>;
    if constexpr (std::is_same_v<Value, Setting<bool>>) {
      value = key.readBool(name, value);
    } else if constexpr (std::is_same_v<Value, Setting<uint32_t>>) {
      value = key.readDword(name, value);
    } else {
      loadFolders(key, value, defaultFolderOf(section));
    }
  });
  if (values.captureMode >= 3) {
    PIM_LOG_ERR("Assertion failed");
    values.captureMode = CaptureAutomatic;
  }
}

bool Preferences::writeValues(const PreferenceValues& values, const PreferenceValues* before) {
  PIM_ENTRY("PIM::Preferences::writeValues");
  bool written = true;
  SectionKeys keys;
  forEachStored([&](Section section, const char16_t* name, auto reach) {
    const auto& value = reach(values);
    using Value = std::decay_t<decltype(value)>;
    if constexpr (std::is_same_v<Value, std::vector<OutlookFolder>>) {
      if (before && reach(*before) == value) return;
      written &= saveFolders(keys.open(section), value);
    } else {
      if (before && reach(*before).get() == value.get()) return;
      if constexpr (std::is_same_v<Value, Setting<bool>>) {
        written &= keys.open(section).writeBool(name, value);
      } else {
        written &= keys.open(section).writeDword(name, value);
      }
    }
  });
  return written;
}

void Preferences::load() {
  PIM_ENTRY("PIM::Preferences::load");
  read();
  save();
}

void Preferences::read() {
  PIM_ENTRY("PIM::Preferences::read");
  PreferenceValues values;
  readValues(values);
  static_cast<PreferenceValues&>(*this) = values;
}

void Preferences::save() {
  PIM_ENTRY("PIM::Preferences::save");
  writeValues(*this, nullptr);
  notifyListeners();
}

bool Preferences::change(const std::function<bool(PreferenceValues&)>& edit, std::string& why) {
  PIM_ENTRY("PIM::Preferences::change");
  PreferenceValues values;
  bool edited = false;
  const long result = env()->keyStore().changeTogether(
      [&] {
        readValues(values);
        const PreferenceValues before = values;
        edited = edit(values);
        if (!edited) return kKeyOk;
        return writeValues(values, &before) ? kKeyOk : kKeyWriteFault;
      },
      why);
  if (result != kKeyOk) {
    if (why.empty())
      why = "the settings could not be written (error " + std::to_string(result) + ")";
    return false;
  }
  static_cast<PreferenceValues&>(*this) = values;
  if (edited) notifyListeners();
  return true;
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

bool Preferences::saveFolders(RegistryKey& key, const std::vector<OutlookFolder>& folders) {
  PIM_ENTRY("PIM::Preferences::saveFolders");
  bool written = key.writeDword(kFolderCount, static_cast<uint32_t>(folders.size()));
  for (size_t i = 0; i < folders.size(); ++i)
    written &= key.writeBinary(folderValueName(static_cast<uint32_t>(i)), toKeyData(folders[i]));
  return written;
}

}  // namespace PIM
