#include "app/capture_command.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>

#include "addin/outlook_app.h"
#include "app/all_folders.h"
#include "app/capture_fingerprints.h"
#include "app/data_folder.h"
#include "app/data_folder_lock.h"
#include "app/data_index_reader.h"
#include "app/exit_codes.h"
#include "app/folder_catalog.h"
#include "app/run_report.h"
#include "app/settings_follower.h"
#include "app/store_session.h"
#include "capture/data_capture.h"
#include "core/debug_logger.h"
#include "core/utils.h"
#include "data/calendar_entry.h"
#include "data/data_file.h"
#include "platform/env.h"
#include "prefs/preferences.h"
#include "store/profile_reload.h"

namespace PIM {

namespace {

const char kCaptureUsage[] =
    "usage: ferrant capture [--store FILE] [--data-dir DIR] [--force] [--no-wait] [--full]\n"
    "                       [--all-folders] [--as-of YYYY-MM-DD]\n"
    "\n"
    "Captures the chosen folders once, as the toolbar's capture button does: each\n"
    "folder that changed since the last capture into the data folder gets a new\n"
    "data file, stale files are deleted and DataDirectory.xml is written again.\n"
    "A folder whose items, settings and file are as the last capture left them\n"
    "keeps its file (what was captured is remembered in .ferrant.fingerprints).\n"
    "Ctrl-C cancels: the folders not yet read keep the files the previous index\n"
    "names, and the run still cleans up and writes the index.\n"
    "A data folder is written by one ferrant at a time; a second one waits.\n"
    "\n"
    "  --store FILE     the store file to read (default: the bundled sample mailbox)\n"
    "  --data-dir DIR   where the files go (default: the data folder, see 'ferrant paths')\n"
    "{options}"
    "  --full           read and write every folder, changed or not\n"
    "  --all-folders    this run only, instead of the chosen folders: every calendar,\n"
    "                   contacts, e-mail and tasks folder of the default store's top of\n"
    "                   information store, that folder included (not search folders)\n"
    "  --as-of YYYY-MM-DD  count the calendar's days before and after from this day\n"
    "                   instead of today, as for an old archive (this run only)\n"
    "\n"
    "The settings saved with 'ferrant prefs' are never changed by these options.\n"
    "\n"
    "Exit status: 0 done; 1 some of it failed (a folder not read, a file not written,\n"
    "errors in the log), one line each on stderr; 2 usage, or a folder that is not\n"
    "a data folder; 3 store or data folder unusable, or busy with --no-wait;\n"
    "130 cancelled.\n";

const char kWatchUsage[] =
    "usage: ferrant watch [--store FILE] [--data-dir DIR] [--force] [--no-wait] [--now]\n"
    "                     [--capture-on-exit] [--poll SECONDS]\n"
    "\n"
    "Runs the capture controller as the add-in does in Outlook: captures on the\n"
    "timer of the capture mode and interval ('ferrant prefs'), and follows the store\n"
    "file as it is edited, so that a capture rewrites only the folders that changed.\n"
    "Settings changed meanwhile ('ferrant prefs set') take effect at once. Each\n"
    "capture holds the data folder for itself, so a 'ferrant capture' may run\n"
    "between two of them. Ctrl-C or a termination request stops the timer and waits\n"
    "for a capture in progress.\n"
    "\n"
    "  --store FILE     the store file to follow (default: the bundled sample mailbox)\n"
    "  --data-dir DIR   where the files go (default: the data folder, see 'ferrant paths')\n"
    "{options}"
    "                   (a capture that finds it busy later is left out)\n"
    "  --now            capture once at the start too, as the capture button would\n"
    "  --capture-on-exit  on stopping, capture a store change the timer has not yet\n"
    "                   captured\n"
    "  --poll SECONDS   how often the store and settings files are looked at\n"
    "                   (1 to 3600, default 2)\n"
    "\n"
    "Exit status: 0 stopped; 1 some capture failed (one line each on stderr); 2 usage,\n"
    "or a folder that is not a data folder; 3 store or data folder unusable, or busy\n"
    "with --no-wait.\n";

// Both commands write the data folder the same way.
const char kDataFolderOptions[] =
    "  --force          write into a folder that holds other files and no\n"
    "                   DataDirectory.xml; a capture deletes every .xml file there\n"
    "                   that it did not write itself\n"
    "  --no-wait        when another ferrant is writing the data folder, exit (3)\n"
    "                   instead of waiting for it\n";

void showUsage(const char* usage, const Console& console) {
  std::string text = usage;
  const std::string marker = "{options}";
  text.replace(text.find(marker), marker.size(), kDataFolderOptions);
  console.out << text;
}

bool isHelp(const char* arg) { return !std::strcmp(arg, "--help") || !std::strcmp(arg, "-h"); }

bool stopRequested(const Console& console) { return console.interrupted && console.interrupted(); }

// How a command may use its data folder.
struct DataFolderOptions {
  bool force = false;   // even one holding files of its own
  bool noWait = false;  // exit when another ferrant is using it
};

// Takes the options both commands know; false when `arg` is none of them.
bool takeDataFolderOption(const char* arg, DataFolderOptions& options) {
  if (!std::strcmp(arg, "--force")) return options.force = true;
  if (!std::strcmp(arg, "--no-wait")) return options.noWait = true;
  return false;
}

// The data folder the runs will write, made if needed, or why not (the
// exit status, with the message written).
int checkDataFolder(const char* command, const DataFolderOptions& options, const Console& console,
                    std::u16string& folder) {
  folder = getDataFolder();
  if (folder.empty()) {
    console.err << "ferrant " << command
                << ": the data folder cannot be made (see the log: ferrant paths)\n";
    return kExitStore;
  }
  const std::string shown = toUtf8(folder);
  switch (inspectDataFolder(folder)) {
    case DataFolderState::NotAFolder:
      console.err << "ferrant " << command << ": the data folder " << shown
                  << " is not a folder that can be read\n";
      return kExitStore;
    case DataFolderState::Foreign:
      if (options.force) break;
      console.err << "ferrant " << command << ": " << shown
                  << " holds other files and no DataDirectory.xml. A capture deletes every .xml "
                     "file in its data folder that it did not write, so it writes only into an "
                     "empty folder or an earlier data folder. Choose another folder with "
                     "--data-dir, or give --force to use this one.\n";
      return kExitUsage;
    case DataFolderState::Usable:
      break;
  }
  return kExitOk;
}

// Takes the data folder's lock, waiting for another ferrant to let it go
// unless told not to; the exit status, with the message written, when the
// lock cannot be had or the folder not written.
int lockDataFolder(const char* command, const DataFolderOptions& options, const Console& console,
                   const std::u16string& folder, DataFolderLock& lock) {
  bool toldWaiting = false;
  for (;;) {
    std::string error;
    switch (lock.tryAcquire(error)) {
      case DataFolderLock::Result::Acquired:
        if (canWriteInto(folder)) return kExitOk;
        lock.release();
        error = "no file can be made there";
        [[fallthrough]];
      case DataFolderLock::Result::Failed:
        console.err << "ferrant " << command << ": cannot write into the data folder "
                    << toUtf8(folder) << " (" << error << ")\n";
        return kExitStore;
      case DataFolderLock::Result::Busy:
        break;
    }
    if (options.noWait) {
      console.err << "ferrant " << command << ": another ferrant is writing into " << toUtf8(folder)
                  << " (--no-wait: not waiting for it)\n";
      return kExitStore;
    }
    if (!toldWaiting) {
      console.err << "ferrant " << command << ": another ferrant is writing into " << toUtf8(folder)
                  << "; waiting for it to finish...\n"
                  << std::flush;
      toldWaiting = true;
    }
    if (stopRequested(console)) return kExitInterrupted;
    std::this_thread::sleep_for(console.poll);
  }
}

// Gives the controller's folders the files the folder's index names, so
// that a folder this run does not read keeps its file and its index line.
// An index that cannot be read is left out with a warning.
void adoptPreviousIndex(const char* command, const std::u16string& folder, DataCapture& capture,
                        const Console& console) {
  std::vector<DataDirectoryEntry> entries;
  std::string error;
  if (!readDataDirectory(folder, entries, error)) {
    console.err << "ferrant " << command << ": ignoring "
                << toUtf8(folder + kPathSeparator + kDataDirectoryName) << " (" << error
                << "); folders not captured now lose their files\n";
    return;
  }
  capture.adoptPreviousFiles(entries);
}

// Whether the run did all it set out to do; a cancel is not a failure.
bool runFailed(const DataCapture::RunSummary& summary) {
  return summary.run == 0 || !summary.indexWritten || summary.filesFailed != 0 ||
         summary.errorsLogged != 0 || !summary.failures.empty() ||
         (summary.foldersFailed != 0 && !summary.cancelled);
}

// One line on the error stream for each thing the run could not do.
void reportFailures(const char* command, const DataCapture::RunSummary& summary,
                    const Console& console) {
  if (summary.run == 0) {
    console.err << "ferrant " << command << ": the capture did not start (see the log)\n";
  }
  for (const std::string& failure : summary.failures)
    console.err << "ferrant " << command << ": " << failure << "\n";
  console.err << std::flush;
}

// Starts the action window on this thread, which then serves the
// controller's timers.
MessageLoop* startActionWindow(const char* command, const Console& console) {
  PimActionWindow& window = OutlookApp::instance()->actionWindow();
  if (!window.start()) {
    console.err << "ferrant " << command << ": the system refused the action window\n";
    return nullptr;
  }
  return window.loop();
}

std::string joined(const std::vector<std::string>& parts, const char* separator) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : separator) + part;
  return text;
}

std::string clockTime() {
  const SystemTime now = env()->localTimeNow();
  char text[32];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u", unsigned(now.hour), unsigned(now.minute),
                unsigned(now.second));
  return text;
}

std::string modeText(const Preferences& prefs) {
  switch (prefs.captureMode.get()) {
    case CaptureAutomatic:
      return "capturing every " + std::to_string(std::max<uint32_t>(prefs.captureInterval, 1)) +
             " minutes";
    case CaptureAtStartup:
      return "capturing once, two minutes from now";
    default:
      return "capturing only on demand (captureMode manual)";
  }
}

// "YYYY-MM-DD", a day that exists, years 1601 to 9999.
bool parseDay(const std::string& text, SystemTime& day) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return false;
  for (size_t i : {0, 1, 2, 3, 5, 6, 8, 9})
    if (text[i] < '0' || text[i] > '9') return false;
  const int year = std::stoi(text.substr(0, 4));
  const int month = std::stoi(text.substr(5, 2));
  const int dayOfMonth = std::stoi(text.substr(8, 2));
  if (year < 1601 || month < 1 || month > 12 || dayOfMonth < 1) return false;
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  if (dayOfMonth > kDays[month - 1] + (month == 2 && leap ? 1 : 0)) return false;
  day = SystemTime();
  day.year = static_cast<uint16_t>(year);
  day.month = static_cast<uint16_t>(month);
  day.day = static_cast<uint16_t>(dayOfMonth);
  return true;
}

// The calendar counts from the day given for this run only.
class WindowDayScope {
 public:
  explicit WindowDayScope(const std::optional<SystemTime>& day) {
    CalendarEntry::setWindowDay(day ? &*day : nullptr);
  }
  ~WindowDayScope() { CalendarEntry::setWindowDay(nullptr); }
  WindowDayScope(const WindowDayScope&) = delete;
  WindowDayScope& operator=(const WindowDayScope&) = delete;
};

int32_t indexTypeOf(uint32_t folderType) {
  switch (folderType) {
    case kFolderCalendar:
      return DataDirectoryEntry::Calendar;
    case kFolderContacts:
      return DataDirectoryEntry::Contacts;
    case kFolderEmail:
      return DataDirectoryEntry::Email;
    default:
      return DataDirectoryEntry::Tasks;
  }
}

std::string fingerprintKey(int32_t indexType, const OutlookFolder& folder) {
  return std::to_string(indexType) + " " + toUtf8(folder.folderId.toWstring());
}

// Remembers each folder's fingerprint as it is now, and says which folders
// the last capture left as they are, so that the run keeps their files.
class UnchangedFolders {
 public:
  UnchangedFolders(std::u16string dataFolder, const SystemTime& day)
      : dataFolder_(std::move(dataFolder)), day_(day) {}

  // The last run's fingerprints; a file that cannot be trusted is named
  // and left out.
  void readPrevious(const Console& console) {
    std::string error;
    if (!readFingerprints(dataFolder_, previous_, error)) {
      console.err << "ferrant capture: ignoring "
                  << toUtf8(dataFolder_ + kPathSeparator + kFingerprintFileName) << " (" << error
                  << "); every folder is read again\n";
    }
  }

  bool unchanged(const MonitoredFolder& folder) {
    const int32_t type = indexTypeOf(folder.getFolderType());
    const std::optional<uint64_t> hash =
        folderFingerprint(folder.getMapiFolder(), folder.getFolderType(), day_);
    if (!hash) return false;
    current_[fingerprintKey(type, folder.getFolder())] = *hash;
    const std::string id = toUtf8(folder.getFolder().folderId.toWstring());
    for (const FolderFingerprint& old : previous_.folders) {
      if (old.type != type || old.folderId != id) continue;
      if (old.hash != *hash || old.fileName != folder.getFileName()) return false;
      if (old.fileName.empty()) return true;
      // A file deleted or edited since is written again.
      uint64_t size = 0;
      int64_t time = 0;
      return fileStamp(dataFolder_ + kPathSeparator + old.fileName, size, time) &&
             size == old.fileSize && time == old.fileTime;
    }
    return false;
  }

  // The fingerprints of the folders whose files are now as the run left
  // them, and `run` when every folder is among them; written only when the
  // index was.
  bool write(const DataCapture::RunSummary& summary, std::optional<uint64_t> run) const {
    Fingerprints fingerprints;
    std::vector<FolderFingerprint>& folders = fingerprints.folders;
    for (const DataCapture::RunSummary::Folder& folder : summary.folders) {
      if (FAILED(folder.result) || folder.fileFailed) continue;
      const auto hash = current_.find(fingerprintKey(folder.indexType, folder.folder));
      if (hash == current_.end()) continue;
      FolderFingerprint entry;
      entry.type = folder.indexType;
      entry.folderId = toUtf8(folder.folder.folderId.toWstring());
      entry.hash = hash->second;
      entry.fileName = folder.fileName;
      if (!entry.fileName.empty() &&
          !fileStamp(dataFolder_ + kPathSeparator + entry.fileName, entry.fileSize, entry.fileTime))
        continue;
      folders.push_back(std::move(entry));
    }
    if (folders.size() == summary.folders.size() && !summary.cancelled) fingerprints.run = run;
    return writeFingerprints(dataFolder_, fingerprints);
  }

 private:
  const std::u16string dataFolder_;
  const SystemTime day_;
  Fingerprints previous_;
  std::map<std::string, uint64_t> current_;
};

// "Inbox (e-mail): CVTK1a.XML" for each folder the run wrote a file for.
std::vector<std::string> writtenFolders(const DataCapture::RunSummary& summary,
                                        const std::vector<StoreFolder>& known) {
  std::vector<std::string> lines;
  std::optional<FolderCatalog> catalog;
  for (const DataCapture::RunSummary::Folder& folder : summary.folders) {
    if (folder.result != S_OK || folder.fileName.empty()) continue;
    std::u16string path;
    for (const StoreFolder& candidate : known)
      if (candidate.identity == folder.folder) path = candidate.path;
    if (path.empty()) {
      if (!catalog) catalog.emplace(OutlookApp::instance()->getMapiSession());
      path = catalog->describe(folder.folder);
    }
    const char* kind = folder.indexType == DataDirectoryEntry::Calendar   ? "calendar"
                       : folder.indexType == DataDirectoryEntry::Contacts ? "contacts"
                       : folder.indexType == DataDirectoryEntry::Email    ? "e-mail"
                                                                          : "tasks";
    lines.push_back(toUtf8(path) + " (" + kind + "): " + toUtf8(folder.fileName));
  }
  return lines;
}

// What a whole capture depends on besides the store's content: the store
// file as it was before it was loaded, the settings file, the options and
// what the calendar's window and every file's text depend on. None where
// the settings are not a file that every change replaces (the registry).
std::optional<uint64_t> storeRunKey(const std::u16string& storePath, uint64_t storeSize,
                                    int64_t storeTime, bool allFolders, const SystemTime& day) {
  const SettingsFollower settings;
  if (settings.path().empty()) return std::nullopt;
  uint64_t settingsSize = 0;
  int64_t settingsTime = 0;
  const bool settingsExist = fileStamp(fromUtf8(settings.path()), settingsSize, settingsTime);
  std::string text =
      toUtf8(storePath) + "\n" + std::to_string(storeSize) + " " + std::to_string(storeTime) +
      "\n" + settings.path() + "\n" +
      (settingsExist ? std::to_string(settingsSize) + " " + std::to_string(settingsTime)
                     : std::string("none")) +
      "\n" + (allFolders ? "all folders" : "chosen folders") + "\n";
  // The settings' values are the settings file's: not read here, where the
  // store that their default folders come from is not loaded.
  return mixFingerprint(environmentFingerprint(day), text);
}

// The options of a capture run.
struct CaptureOptions {
  DataFolderOptions dataFolder;
  bool full = false;
  bool allFolders = false;
  std::optional<SystemTime> asOf;
};

}  // namespace

namespace {

// -1 when the run is to go on with `options`; otherwise the exit status,
// with what was asked for (help) or what was wrong written to `console`.
int parseCaptureOptions(int argc, char** argv, const Console& console, CaptureOptions& options) {
  for (int i = 0; i < argc; ++i) {
    const std::string arg = argv[i];
    if (isHelp(argv[i])) {
      showUsage(kCaptureUsage, console);
      return kExitOk;
    }
    if (takeDataFolderOption(argv[i], options.dataFolder)) continue;
    if (arg == "--full") {
      options.full = true;
    } else if (arg == "--all-folders") {
      options.allFolders = true;
    } else if (arg == "--as-of" || arg.rfind("--as-of=", 0) == 0) {
      if (arg == "--as-of" && i + 1 >= argc) {
        console.err << "ferrant capture: --as-of needs a day (YYYY-MM-DD)\n";
        return kExitUsage;
      }
      const std::string value = arg == "--as-of" ? std::string(argv[++i]) : arg.substr(8);
      SystemTime day;
      if (!parseDay(value, day)) {
        console.err << "ferrant capture: --as-of takes a day as YYYY-MM-DD (1601-01-01 to "
                       "9999-12-31), not '"
                    << value << "'\n";
        return kExitUsage;
      }
      options.asOf = day;
    } else {
      console.err << "ferrant capture: unexpected argument '" << argv[i]
                  << "' (see ferrant capture --help)\n";
      return kExitUsage;
    }
  }
  return -1;
}

// The day the calendar's window is counted from in a run with `options`.
SystemTime windowDayFor(const CaptureOptions& options) {
  const WindowDayScope scope(options.asOf);
  return CalendarEntry::windowDay();
}

// The summary of a run that found every folder as the last one left it.
void reportNothingChanged(size_t folders, const std::u16string& dataFolder,
                          const Console& console) {
  console.out << "Folders: 0 folders captured, " << folders << " unchanged\n"
              << "Items:   0 appointments, 0 contacts, 0 e-mails, 0 tasks\n"
              << "Files:   0 files written, 0 deleted, 0.0 s\n"
              << "Index:   " << toUtf8(dataFolder + kPathSeparator + kDataDirectoryName) << "\n"
              << std::flush;
}

}  // namespace

int captureIfStoreChanged(int argc, char** argv, const std::u16string& storePath,
                          const Console& console) {
  PIM_ENTRY("ferrant::captureIfStoreChanged");
  std::ostringstream ignored;
  const Console quiet{ignored, ignored, false, console.interrupted, console.poll};
  CaptureOptions options;
  if (parseCaptureOptions(argc, argv, quiet, options) != -1 || options.full) return -1;
  const std::u16string dataFolder = getDataFolder();
  if (dataFolder.empty() || inspectDataFolder(dataFolder) != DataFolderState::Usable) return -1;
  Fingerprints previous;
  std::string error;
  if (!readFingerprints(dataFolder, previous, error) || !previous.run) return -1;
  uint64_t size = 0;
  int64_t time = 0;
  if (!fileStamp(storePath, size, time)) return -1;
  // Whoever writes the folder meanwhile is waited for, and looked at after.
  DataFolderLock lock(dataFolder);
  if (const int status = lockDataFolder("capture", options.dataFolder, console, dataFolder, lock))
    return status;
  if (!readFingerprints(dataFolder, previous, error) || !previous.run ||
      storeRunKey(storePath, size, time, options.allFolders, windowDayFor(options)) != previous.run)
    return -1;
  // Every file as the run left it, the index naming just those, and no
  // other file that a run would delete.
  std::vector<DataDirectoryEntry> entries;
  if (!readDataDirectory(dataFolder, entries, error) ||
      !fileExists(dataFolder + kPathSeparator + kDataDirectoryName))
    return -1;
  std::vector<std::u16string> files;
  for (const FolderFingerprint& folder : previous.folders) {
    if (folder.fileName.empty()) continue;
    uint64_t fileSize = 0;
    int64_t fileTime = 0;
    if (!fileStamp(dataFolder + kPathSeparator + folder.fileName, fileSize, fileTime) ||
        fileSize != folder.fileSize || fileTime != folder.fileTime)
      return -1;
    files.push_back(folder.fileName);
  }
  if (entries.size() != files.size()) return -1;
  for (size_t i = 0; i < entries.size(); ++i)
    if (entries[i].name != files[i]) return -1;
  std::vector<FolderEntry> present;
  if (!env()->listFolder(dataFolder, present)) return -1;
  for (const FolderEntry& entry : present) {
    if ((entry.attributes & (kFileAttributeReadOnly | kFileAttributeDirectory)) != 0) continue;
    if (entry.name.size() < 4 || entry.name == kDataDirectoryName) continue;
    std::u16string suffix = entry.name.substr(entry.name.size() - 4);
    for (char16_t& c : suffix)
      if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
    if (suffix == u".xml" && std::find(files.begin(), files.end(), entry.name) == files.end())
      return -1;
  }
  reportNothingChanged(previous.folders.size(), dataFolder, console);
  return kExitOk;
}

int runCapture(int argc, char** argv, StoreSession& session, const Console& console) {
  PIM_ENTRY("ferrant::runCapture");
  CaptureOptions captureOptions;
  if (const int status = parseCaptureOptions(argc, argv, console, captureOptions); status != -1)
    return status;
  const DataFolderOptions& options = captureOptions.dataFolder;
  const bool full = captureOptions.full;
  const bool allFolders = captureOptions.allFolders;
  const std::optional<SystemTime>& asOf = captureOptions.asOf;
  Preferences& prefs = Preferences::instance();
  prefs.read();  // a prefs set running meanwhile must not be undone
  std::vector<StoreFolder> storeFolders;
  if (allFolders) {
    // Only the copy in memory: the saved lists stay as they are.
    std::string error;
    if (!listStoreFolders(OutlookApp::instance()->getMapiSession(), storeFolders, error)) {
      console.err << "ferrant capture: --all-folders: " << error << "\n";
      return kExitStore;
    }
    prefs.calendar.folders.clear();
    prefs.contacts.folders.clear();
    prefs.email.folders.clear();
    prefs.tasks.folders.clear();
    for (const StoreFolder& folder : storeFolders) {
      std::vector<OutlookFolder>& list = folder.type == kNodeCalendar   ? prefs.calendar.folders
                                         : folder.type == kNodeContacts ? prefs.contacts.folders
                                         : folder.type == kNodeEmail    ? prefs.email.folders
                                                                        : prefs.tasks.folders;
      list.push_back(folder.identity);
    }
  }
  const WindowDayScope windowDay(asOf);
  std::u16string dataFolder;
  if (const int status = checkDataFolder("capture", options, console, dataFolder)) return status;
  DataFolderLock lock(dataFolder);
  if (const int status = lockDataFolder("capture", options, console, dataFolder, lock))
    return status;
  MessageLoop* loop = startActionWindow("capture", console);
  if (!loop) return kExitStore;

  DataCapture* capture = DataCapture::instance();
  capture->updateCaptureFolders();
  capture->setKeepIdenticalIndex(true);
  adoptPreviousIndex("capture", dataFolder, *capture, console);
  UnchangedFolders unchanged(dataFolder, CalendarEntry::windowDay());
  if (!full) unchanged.readPrevious(console);
  // Until this run has written its files, the old fingerprints name files
  // that may be gone: a run that ends early leaves none.
  removeFingerprints(dataFolder);
  capture->keepUnchangedFolders(
      [&](const MonitoredFolder& folder) { return unchanged.unchanged(folder) && !full; });
  capture->captureNow();
  ProgressLine line(console.out);
  bool cancelled = false;
  while (!capture->waitForCapture(console.poll)) {
    if (!cancelled && stopRequested(console)) {
      capture->cancelCapture();
      cancelled = true;
    }
    if (console.progressLine) line.draw(capture->progress(), env()->tickCount());
    loop->processPending();
  }
  line.clear();
  const DataCapture::RunSummary summary = capture->lastRunSummary();
  DataCapture::freeInstance();
  std::optional<uint64_t> runKey;
  uint64_t storeSize = 0;
  int64_t storeTime = 0;
  if (session.stampBeforeLoad(storeSize, storeTime))
    runKey =
        storeRunKey(session.path(), storeSize, storeTime, allFolders, windowDayFor(captureOptions));
  if (summary.indexWritten && !unchanged.write(summary, runKey)) {
    console.err << "ferrant capture: could not write "
                << toUtf8(dataFolder + kPathSeparator + kFingerprintFileName)
                << "; the next capture reads every folder\n";
  }

  const std::vector<std::string> parts = describeRun(summary);
  const std::string index = toUtf8(dataFolder + kPathSeparator + kDataDirectoryName);
  console.out << "Folders: " << parts[0] << "\n"
              << "Items:   " << parts[1] << "\n"
              << "Files:   " << parts[2] << "\n"
              << "Index:   "
              << (summary.indexWritten ? index
                  : fileExists(dataFolder + kPathSeparator + kDataDirectoryName)
                      ? "not written, " + index + " kept as it was"
                      : std::string("not written"))
              << "\n";
  const std::vector<std::string> written = writtenFolders(summary, storeFolders);
  for (size_t i = 0; i < written.size(); ++i)
    console.out << (i == 0 ? "Written: " : "         ") << written[i] << "\n";
  if (summary.errorsLogged != 0)
    console.out << "Errors:  " << describeLoggedErrors(summary) << "\n";
  console.out << std::flush;
  reportFailures("capture", summary, console);
  if (summary.cancelled) return kExitInterrupted;
  return runFailed(summary) ? kExitRejected : kExitOk;
}

int runWatch(int argc, char** argv, StoreSession& session, const Console& console) {
  PIM_ENTRY("ferrant::runWatch");
  DataFolderOptions options;
  bool captureAtStart = false;
  bool captureOnExit = false;
  uint32_t pollSeconds = 2;
  for (int i = 0; i < argc; ++i) {
    if (isHelp(argv[i])) {
      showUsage(kWatchUsage, console);
      return kExitOk;
    }
    if (takeDataFolderOption(argv[i], options)) continue;
    if (!std::strcmp(argv[i], "--now")) {
      captureAtStart = true;
    } else if (!std::strcmp(argv[i], "--capture-on-exit")) {
      captureOnExit = true;
    } else if (!std::strcmp(argv[i], "--poll") && i + 1 < argc) {
      char* end = nullptr;
      const long seconds = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || seconds < 1 || seconds > 3600) {
        console.err << "ferrant watch: --poll takes 1 to 3600 seconds, not '" << argv[i] << "'\n";
        return kExitUsage;
      }
      pollSeconds = static_cast<uint32_t>(seconds);
    } else {
      console.err << "ferrant watch: unexpected argument '" << argv[i]
                  << "' (see ferrant watch --help)\n";
      return kExitUsage;
    }
  }
  Preferences& prefs = Preferences::instance();
  prefs.read();  // writes nothing, so a prefs set meanwhile stands
  SettingsFollower settings;
  std::u16string dataFolder;
  if (const int status = checkDataFolder("watch", options, console, dataFolder)) return status;
  // Each run takes the lock for itself; this first look only finds out
  // early whether the folder can be written and is free.
  DataFolderLock lock(dataFolder);
  if (const int status = lockDataFolder("watch", options, console, dataFolder, lock)) return status;
  lock.release();
  MessageLoop* loop = startActionWindow("watch", console);
  if (!loop) return kExitStore;

  store::FixtureWatcher watcher(session.profile(), session.path(), session.loader());
  DataCapture* capture = DataCapture::instance();
  // A store change that no run has started on yet.
  bool changeWaiting = false;
  bool someRunFailed = false;
  // Every run, whatever starts it, holds the data folder's lock, and takes
  // over what another process may have written there since the last one.
  capture->setRunStartCheck([&] {
    if (!lock.held()) {
      const int status = lockDataFolder("watch", options, console, dataFolder, lock);
      if (status != kExitOk) {
        if (status == kExitStore) someRunFailed = true;
        return false;
      }
    }
    adoptPreviousIndex("watch", dataFolder, *capture, console);
    // This run replaces files without remembering what they hold.
    removeFingerprints(dataFolder);
    changeWaiting = false;
    return true;
  });
  console.out << "Watching " << toUtf8(session.path()) << ", " << modeText(prefs) << ", into "
              << toUtf8(dataFolder) << ". Ctrl-C stops.\n"
              << std::flush;
  capture->enableCapturing(true);
  if (captureAtStart) capture->captureNow();

  uint32_t reported = 0;  // the last run told about
  const auto reportRun = [&](const char* when) {
    const DataCapture::RunSummary summary = capture->lastRunSummary();
    if (summary.run == reported || capture->isCapturing()) return;
    reported = summary.run;
    std::string line = clockTime() + " " + when + joined(describeRun(summary), "; ");
    if (!summary.indexWritten) line += "; index not written";
    if (summary.errorsLogged != 0) line += "; " + describeLoggedErrors(summary);
    console.out << line << "\n" << std::flush;
    reportFailures("watch", summary, console);
    if (runFailed(summary)) someRunFailed = true;
  };
  // The lock goes as soon as the run has ended, so that a capture can run
  // before the next one.
  const auto runOver = [&] { return lock.held() && !capture->isCapturing(); };
  const auto endRun = [&](const char* when) {
    if (!runOver()) return;
    reportRun(when);
    lock.release();
  };
  const uint32_t pollMs = pollSeconds * 1000;
  uint32_t lastLook = env()->tickCount();
  while (!stopRequested(console)) {
    loop->runUntil([&] { return stopRequested(console) || runOver(); }, console.poll);
    endRun("");
    if (env()->tickCount() - lastLook < pollMs) continue;
    lastLook = env()->tickCount();
    if (settings.changed()) {
      // As the preferences sheet's OK would: the controller follows.
      prefs.read();
      prefs.notifyListeners();
      console.out << clockTime() << " settings changed: " << modeText(prefs) << "\n" << std::flush;
    }
    const store::ReloadResult result = watcher.check();
    switch (result.status) {
      case store::ReloadResult::Status::Applied: {
        std::string folders;
        for (const store::ChangedFolder& folder : result.folders)
          folders += (folders.empty() ? "" : ", ") + toUtf8(folder.path);
        console.out << clockTime() << " store changed: " << folders << "\n" << std::flush;
        changeWaiting = true;
        break;
      }
      case store::ReloadResult::Status::RestartNeeded:
        console.err << "ferrant watch: " << result.error
                    << "; the running store keeps its old content until ferrant watch is "
                       "started again\n";
        break;
      case store::ReloadResult::Status::LoadFailed:
        console.err << "ferrant watch: the store file does not load: " << result.error << "\n";
        break;
      default:
        break;
    }
  }

  // As Outlook shuts down: the timer stops, a run in progress is waited for.
  capture->enableCapturing(false);
  if (capture->isCapturing()) {
    console.out << "Stopping: waiting for the capture in progress to finish...\n" << std::flush;
  }
  capture->waitForCapture(std::chrono::hours(24));
  endRun("");
  if (changeWaiting && captureOnExit) {
    console.out << "Stopping: capturing the store change the timer has not yet captured...\n"
                << std::flush;
    capture->captureNow();
    capture->waitForCapture(std::chrono::hours(24));
    endRun("on exit: ");
  }
  DataCapture::freeInstance();
  if (changeWaiting) {
    console.out << "Stopped; the last store change was not captured (--capture-on-exit "
                   "captures it on the way out).\n";
  } else {
    console.out << "Stopped.\n";
  }
  return someRunFailed ? kExitRejected : kExitOk;
}

}  // namespace PIM
