#include "app/prefs_command.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <iomanip>
#include <ostream>
#include <string>
#include <vector>

#include "app/exit_codes.h"
#include "app/folder_catalog.h"
#include "app/store_session.h"
#include "core/resource_loader.h"
#include "core/utils.h"
#include "prefs/folder_kind.h"
#include "prefs/preferences.h"

namespace PIM {

namespace {

const char kPrefsUsage[] =
    "usage: ferrant prefs [--store FILE]                       show every setting\n"
    "       ferrant prefs set NAME VALUE                       change one setting\n"
    "       ferrant prefs folders KIND list|clear              the folders captured\n"
    "       ferrant prefs folders KIND add|remove PATH...      (KIND: calendar, contacts,\n"
    "                                                           email or tasks)\n"
    "\n"
    "NAME is a setting as 'ferrant prefs' shows it (captureMode, captureInterval,\n"
    "calendar.captureBody, ...). Numbers outside the range the preferences sheet\n"
    "allows are corrected to the nearer bound. Switches take on or off; the mode\n"
    "takes manual, startup or automatic. PATH is a folder as 'folders KIND list'\n"
    "and 'ferrant prefs' show it, store name first: \"Mailbox - Ana/Calendar\".\n";

enum class Kind { Number, Switch, Mode };

// One setting as the command line names it. Numbers the capture page edits
// carry its range and the language key of its error text.
struct SettingInfo {
  const char* name;
  Kind kind;
  Setting<uint32_t>* number;
  Setting<bool>* flag;
  uint32_t low, high;
  const char16_t* errorKey;
};

std::vector<SettingInfo> settingsOf(PreferenceValues& p) {
  auto number = [](const char* name, Setting<uint32_t>& s, uint32_t low, uint32_t high,
                   const char16_t* key) {
    return SettingInfo{name, Kind::Number, &s, nullptr, low, high, key};
  };
  auto flag = [](const char* name, Setting<bool>& s) {
    return SettingInfo{name, Kind::Switch, nullptr, &s, 0, 1, nullptr};
  };
  return {
      {"captureMode", Kind::Mode, &p.captureMode, nullptr, 0, 2, nullptr},
      number("captureInterval", p.captureInterval, 1, 120, u"ERROR_BAD_CAPTURE_INTERVAL"),
      number("calendar.captureDaysBefore", p.calendar.captureDaysBefore, 0, 180,
             u"ERROR_BAD_CAPTURE_DAYS_BEFORE"),
      number("calendar.captureDaysAfter", p.calendar.captureDaysAfter, 0, 180,
             u"ERROR_BAD_CAPTURE_DAYS_AFTER"),
      flag("calendar.captureBody", p.calendar.captureBody),
      flag("calendar.captureOrganizer", p.calendar.captureOrganizer),
      flag("calendar.captureRequiredAttendees", p.calendar.captureRequiredAttendees),
      flag("calendar.captureOptionalAttendees", p.calendar.captureOptionalAttendees),
      flag("calendar.captureBusyStatus", p.calendar.captureBusyStatus),
      flag("calendar.capturePriority", p.calendar.capturePriority),
      flag("contacts.captureCellularNumber", p.contacts.captureCellularNumber),
      flag("contacts.capturePagerNumber", p.contacts.capturePagerNumber),
      flag("contacts.captureHomeNumber", p.contacts.captureHomeNumber),
      flag("contacts.captureCompanyName", p.contacts.captureCompanyName),
      flag("contacts.captureBusinessFax", p.contacts.captureBusinessFax),
      flag("contacts.captureBusinessAddress", p.contacts.captureBusinessAddress),
      flag("contacts.captureHomeAddress", p.contacts.captureHomeAddress),
      flag("contacts.captureHomeFax", p.contacts.captureHomeFax),
      flag("contacts.captureNotes", p.contacts.captureNotes),
      flag("contacts.captureTitle", p.contacts.captureTitle),
      number("email.captureEmailCount", p.email.captureEmailCount, 1, 1000,
             u"ERROR_BAD_EMAIL_CAPTURE"),
      flag("email.captureImportance", p.email.captureImportance),
      flag("email.captureFlagStatus", p.email.captureFlagStatus),
      flag("email.captureSensitivity", p.email.captureSensitivity),
      flag("email.captureFlagRequest", p.email.captureFlagRequest),
      flag("email.captureAttachments", p.email.captureAttachments),
      number("tasks.maxTaskCapture", p.tasks.maxTaskCapture, 1, 50, u"ERROR_BAD_TASK_CAPTURE"),
      flag("tasks.captureStatus", p.tasks.captureStatus),
      flag("tasks.capturePriority", p.tasks.capturePriority),
      flag("tasks.captureBody", p.tasks.captureBody),
  };
}

const char* const kModeNames[] = {"manual", "startup", "automatic"};

std::string valueText(const SettingInfo& s) {
  switch (s.kind) {
    case Kind::Number:
      return std::to_string(s.number->get());
    case Kind::Switch:
      return s.flag->get() ? "on" : "off";
    case Kind::Mode:
      return kModeNames[std::min<uint32_t>(s.number->get(), 2)];
  }
  return {};
}

const FolderNodeType kKinds[] = {kNodeCalendar, kNodeContacts, kNodeEmail, kNodeTasks};

std::vector<OutlookFolder>& folderList(PreferenceValues& p, FolderNodeType kind) {
  switch (kind) {
    case kNodeCalendar:
      return p.calendar.folders;
    case kNodeContacts:
      return p.contacts.folders;
    case kNodeEmail:
      return p.email.folders;
    default:
      return p.tasks.folders;
  }
}

bool kindNamed(const std::string& name, FolderNodeType& kind) {
  for (FolderNodeType k : kKinds) {
    if (name == folderNodeTypeName(k)) {
      kind = k;
      return true;
    }
  }
  return false;
}

std::string text(const char16_t* key) {
  return toUtf8(ResourceLoader::instance()->getStringValue(key, key));
}

void show(PreferenceValues& prefs, const FolderCatalog& catalog, std::ostream& out) {
  for (const SettingInfo& s : settingsOf(prefs))
    out << std::left << std::setw(36) << s.name << valueText(s) << "\n";
  for (FolderNodeType kind : kKinds) {
    const std::vector<OutlookFolder>& list = folderList(prefs, kind);
    out << folderNodeTypeName(kind) << " folders:" << (list.empty() ? " none" : "") << "\n";
    for (const OutlookFolder& folder : list) {
      out << "  " << toUtf8(catalog.describe(folder));
      // Chosen before folders were checked for their kind.
      const FolderCatalog::Folder* known = catalog.byIdentity(folder);
      if (known && known->type != kind) out << "  (for " << folderNodeTypeName(known->type) << ")";
      out << "\n";
    }
  }
}

// Sets one setting from its text; false with a message for a bad value.
bool set(const SettingInfo& s, const std::string& value, std::ostream& out, std::ostream& err) {
  if (s.kind == Kind::Switch) {
    if (value == "on" || value == "true" || value == "1") {
      *s.flag = true;
    } else if (value == "off" || value == "false" || value == "0") {
      *s.flag = false;
    } else {
      err << "ferrant prefs: " << s.name << " takes on or off, not '" << value << "'\n";
      return false;
    }
    return true;
  }
  if (s.kind == Kind::Mode) {
    for (uint32_t mode = 0; mode < 3; ++mode) {
      if (value == kModeNames[mode] || value == std::to_string(mode)) {
        *s.number = mode;
        return true;
      }
    }
    err << "ferrant prefs: captureMode takes manual, startup or automatic, not '" << value << "'\n";
    return false;
  }
  // Read as a signed number, as the sheet reads its edits, then clamped.
  long long number = 0;
  size_t used = 0;
  try {
    number = std::stoll(value, &used);
  } catch (const std::exception&) {
    used = 0;
  }
  if (used == 0 || used != value.size()) {
    err << "ferrant prefs: " << s.name << " takes a number, not '" << value << "'\n";
    return false;
  }
  if (number < s.low || number > s.high) {
    std::u16string message = ResourceLoader::instance()->getStringValue(s.errorKey, s.errorKey);
    message = strReplace(message, u"%1", fromUtf8(std::to_string(s.low)));
    message = strReplace(message, u"%2", fromUtf8(std::to_string(s.high)));
    number = number < s.low ? s.low : s.high;
    out << text(u"ERROR_BAD_CAPTURE_PREFERENCES") << "\n" << toUtf8(message) << "\n";
  }
  *s.number = static_cast<uint32_t>(number);
  return true;
}

int saveFailed(const std::string& why, std::ostream& err) {
  err << "ferrant prefs: the settings were not saved: " << why << "\n";
  return kExitStore;
}

// Whether `folder` may be added to the list of `kind` in `values`: of that
// kind, and chosen nowhere yet.
bool mayAdd(PreferenceValues& values, FolderNodeType kind, const FolderCatalog::Folder& folder,
            std::ostream& err) {
  const std::string path = toUtf8(folder.path);
  if (folder.type == kNodeOther) {
    err << "ferrant prefs: '" << path
        << "' holds no calendar, contacts, e-mail or task items and cannot be captured\n";
    return false;
  }
  if (folder.type != kind) {
    const char* its = folderNodeTypeName(folder.type);
    err << "ferrant prefs: '" << path << "' is for " << its << ", not for "
        << folderNodeTypeName(kind) << ": choose it with 'ferrant prefs folders " << its
        << " add'\n";
    return false;
  }
  for (FolderNodeType other : kKinds) {
    const std::vector<OutlookFolder>& list = folderList(values, other);
    if (std::find(list.begin(), list.end(), folder.identity) == list.end()) continue;
    err << "ferrant prefs: '" << path << "' is chosen already";
    if (other != kind) err << " for " << folderNodeTypeName(other);
    err << "\n";
    return false;
  }
  return true;
}

int changeFolders(Preferences& prefs, const FolderCatalog& catalog, int argc, char** argv,
                  std::ostream& out, std::ostream& err) {
  if (argc < 2) {
    err << kPrefsUsage;
    return kExitUsage;
  }
  FolderNodeType kind;
  const std::string action = argv[1];
  if (!kindNamed(argv[0], kind)) {
    err << "ferrant prefs: unknown folder kind '" << argv[0]
        << "' (calendar, contacts, email or tasks)\n";
    return kExitUsage;
  }
  if (action == "list" && argc == 2) {
    prefs.read();
    const std::vector<OutlookFolder>& list = folderList(prefs, kind);
    for (const FolderCatalog::Folder& folder : catalog.folders()) {
      if (folder.type != kind) continue;
      const bool chosen = std::find(list.begin(), list.end(), folder.identity) != list.end();
      out << (chosen ? "* " : "  ") << toUtf8(folder.path) << "\n";
    }
    return kExitOk;
  }
  const bool add = action == "add";
  if (!(action == "clear" && argc == 2) && !((add || action == "remove") && argc > 2)) {
    err << kPrefsUsage;
    return kExitUsage;
  }
  std::vector<const FolderCatalog::Folder*> named;
  for (int i = 2; i < argc; ++i) {
    const FolderCatalog::Folder* folder = catalog.byPath(fromUtf8(argv[i]));
    if (!folder) {
      err << "ferrant prefs: no folder '" << argv[i] << "' (see 'ferrant prefs folders " << argv[0]
          << " list')\n";
      return kExitUsage;
    }
    named.push_back(folder);
  }
  int result = kExitOk;
  std::string why;
  const bool saved = prefs.change(
      [&](PreferenceValues& values) {
        std::vector<OutlookFolder>& list = folderList(values, kind);
        if (action == "clear") list.clear();
        for (const FolderCatalog::Folder* folder : named) {
          auto at = std::find(list.begin(), list.end(), folder->identity);
          if (!add) {
            if (at != list.end()) list.erase(at);
          } else if (mayAdd(values, kind, *folder, err)) {
            list.push_back(folder->identity);
          } else {
            result = kExitUsage;
            return false;
          }
        }
        return true;
      },
      why);
  return saved ? result : saveFailed(why, err);
}

}  // namespace

int runPrefs(int argc, char** argv, StoreSession& session, std::ostream& out, std::ostream& err) {
  if (argc >= 1 && (!std::strcmp(argv[0], "--help") || !std::strcmp(argv[0], "-h"))) {
    out << kPrefsUsage;
    return kExitOk;
  }
  Preferences& prefs = Preferences::instance();
  const FolderCatalog catalog(session.session());
  if (argc == 0) {
    // Only reads: a show running beside a change must not undo it.
    prefs.read();
    show(prefs, catalog, out);
    return kExitOk;
  }
  const std::string command = argv[0];
  if (command == "folders") return changeFolders(prefs, catalog, argc - 1, argv + 1, out, err);
  if (command != "set" || argc != 3) {
    err << kPrefsUsage;
    return kExitUsage;
  }
  PreferenceValues names;
  for (const SettingInfo& s : settingsOf(names)) {
    if (argv[1] != std::string(s.name)) continue;
    int result = kExitOk;
    std::string why;
    const bool saved = prefs.change(
        [&](PreferenceValues& values) {
          for (const SettingInfo& setting : settingsOf(values)) {
            if (setting.name != s.name) continue;
            if (set(setting, argv[2], out, err)) return true;
            result = kExitUsage;
          }
          return false;
        },
        why);
    return saved ? result : saveFailed(why, err);
  }
  err << "ferrant prefs: unknown setting '" << argv[1] << "' (see 'ferrant prefs')\n";
  return kExitUsage;
}

}  // namespace PIM
