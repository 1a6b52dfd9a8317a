#include "capture/data_capture.h"

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "addin/outlook_app.h"
#include "core/debug_logger.h"
#include "core/utils.h"
#include "data/calendar_entry.h"
#include "data/contact.h"
#include "data/data_file.h"
#include "data/email.h"
#include "data/task.h"
#include "mapi/com_error.h"
#include "platform/env.h"
#include "prefs/preferences.h"

namespace PIM {

namespace {

DataCapture* g_instance = nullptr;

constexpr uint32_t kMsPerMinute = 60000;

// Takes the lock only if nobody holds it; leaves it when it goes.
class TryEntryGuard {
 public:
  explicit TryEntryGuard(CriticalSection& section)
      : section_(section.tryEnter() ? &section : nullptr) {}
  ~TryEntryGuard() {
    if (section_) section_->leave();
  }
  TryEntryGuard(const TryEntryGuard&) = delete;
  TryEntryGuard& operator=(const TryEntryGuard&) = delete;
  bool owns() const { return section_ != nullptr; }

 private:
  CriticalSection* section_;
};

char16_t asciiLower(char16_t c) {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

// Whether `name` ends in `suffix` (lower case), ignoring the letter case as
// the Windows file system does.
bool endsWithIgnoringCase(const std::u16string& name, std::u16string_view suffix) {
  if (name.size() < suffix.size()) return false;
  const size_t start = name.size() - suffix.size();
  for (size_t i = 0; i < suffix.size(); ++i)
    if (asciiLower(name[start + i]) != suffix[i]) return false;
  return true;
}

// "*.xml" as the Windows file system matches it.
bool isXmlFileName(const std::u16string& name) { return endsWithIgnoringCase(name, u".xml"); }

// The ".xml" files of the data folder that a run may delete: read-only
// files and folders are never touched.
std::vector<std::u16string> deletableDataFiles(const std::u16string& dataFolder) {
  std::vector<FolderEntry> entries;
  env()->listFolder(dataFolder, entries);
  std::vector<std::u16string> names;
  for (const FolderEntry& entry : entries) {
    if ((entry.attributes & (kFileAttributeReadOnly | kFileAttributeDirectory)) != 0) continue;
    if (isXmlFileName(entry.name)) names.push_back(entry.name);
  }
  return names;
}

// The records are dropped as soon as the folder is written; only their
// number is kept for the run's summary. A folder that could not be read
// keeps its previous file.
template <class Record>
HRESULT captureInto(MonitoredFolder& folder, const std::u16string& dataFolder,
                    const CancelFlag& cancelRequested, size_t& recordCount, FolderWrite& write) {
  std::vector<Record> records;
  const HRESULT hr = folder.captureFolder(dataFolder, records, cancelRequested, &write);
  recordCount = records.size();
  return hr;
}

using CaptureStep = HRESULT (*)(MonitoredFolder&, const std::u16string&, const CancelFlag&, size_t&,
                                FolderWrite&);

// Each folder type: its record type and its number in the index.
struct FolderKind {
  uint32_t folderType;
  int32_t indexType;
  CaptureStep capture;
  const char* name;  // for the run's report
};
constexpr FolderKind kFolderKinds[] = {
    {kFolderCalendar, DataDirectoryEntry::Calendar, &captureInto<CalendarEntry>, "calendar"},
    {kFolderContacts, DataDirectoryEntry::Contacts, &captureInto<Contact>, "contacts"},
    {kFolderEmail, DataDirectoryEntry::Email, &captureInto<Email>, "e-mail"},
    {kFolderTasks, DataDirectoryEntry::Tasks, &captureInto<Task>, "tasks"},
};

const FolderKind* folderKind(uint32_t folderType) {
  for (const FolderKind& kind : kFolderKinds)
    if (kind.folderType == folderType) return &kind;
  return nullptr;
}

void countFolder(DataCapture::RunSummary& summary, const FolderKind& kind,
                 const MonitoredFolder& folder, HRESULT hr, size_t records,
                 const FolderWrite& write) {
  if (hr == S_FALSE) {
    ++summary.foldersUnchanged;
    return;
  }
  if (FAILED(hr)) {
    ++summary.foldersFailed;
    // A cancelled read is the user's doing, not a failure.
    if (hr != E_ABORT) {
      summary.failures.push_back(std::string("could not read the ") + kind.name + " folder " +
                                 toUtf8(folder.getFolder().folderId.toWstring()) + " (" +
                                 hrText(hr) + ")");
    }
    return;
  }
  ++summary.foldersRead;
  summary.records[kind.folderType] += static_cast<uint32_t>(records);
  if (write.failed) {
    ++summary.filesFailed;
    summary.failures.push_back(
        write.path.empty() ? std::string("could not make a file for the ") + kind.name +
                                 " folder " + toUtf8(folder.getFolder().folderId.toWstring())
                           : "could not write " + toUtf8(write.path));
  } else if (records != 0) {
    ++summary.filesWritten;
  }
}

// Whether both files exist and hold the same bytes.
bool sameFileBytes(const std::u16string& a, const std::u16string& b) {
  std::ifstream first(std::filesystem::path(a), std::ios::binary);
  std::ifstream second(std::filesystem::path(b), std::ios::binary);
  if (!first || !second) return false;
  const std::string x((std::istreambuf_iterator<char>(first)), std::istreambuf_iterator<char>());
  const std::string y((std::istreambuf_iterator<char>(second)), std::istreambuf_iterator<char>());
  return !first.bad() && !second.bad() && x == y;
}

// Names that are a bare file name in the data folder, and not the index's.
bool isDataFileName(const std::u16string& name) {
  if (!isXmlFileName(name) || name.find_first_of(u"/\\:") != std::u16string::npos) return false;
  return !(name.size() == std::char_traits<char16_t>::length(kDataDirectoryName) &&
           endsWithIgnoringCase(name, u"datadirectory.xml"));
}

}  // namespace

// The worker thread of one run. Whether the run is in progress is the
// thread's own state: `done` is set as its very last act.
class DataCapture::CaptureThread {
 public:
  explicit CaptureThread(DataCapture* capture)
      : thread_([this, capture] {
          {
            const std::unique_ptr<ThreadCrashScope> crashScope = env()->prepareThreadForCrashes();
            env()->lowerThreadPriority();
            _captureThread(capture);
          }
          finish();
        }) {}
  // Waits for the thread to end.
  ~CaptureThread() {
    if (thread_.joinable()) thread_.join();
  }
  CaptureThread(const CaptureThread&) = delete;
  CaptureThread& operator=(const CaptureThread&) = delete;

  bool finished() const {
    std::lock_guard<std::mutex> guard(lock_);
    return done_;
  }
  bool waitFinished(std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> guard(lock_);
    return ended_.wait_for(guard, timeout, [this] { return done_; });
  }

 private:
  void finish() {
    {
      std::lock_guard<std::mutex> guard(lock_);
      done_ = true;
    }
    ended_.notify_all();
  }

  mutable std::mutex lock_;  // guards done_
  mutable std::condition_variable ended_;
  bool done_ = false;
  // Last: the thread starts once everything above exists.
  std::thread thread_;
};

DataCapture* DataCapture::instance() {
  if (!g_instance) g_instance = new DataCapture();
  return g_instance;
}

void DataCapture::freeInstance() {
  // The controller stays the instance while it goes: whatever its end shows
  // (the progress display cancelling the run) must reach it, not make a
  // second one. A nested call during that wait has nothing more to do.
  DataCapture* capture = g_instance;
  if (!capture || capture->ending_) return;
  delete capture;
  g_instance = nullptr;
}

DataCapture::DataCapture() {
  PIM_ENTRY("PIM::DataCapture::DataCapture");
  Preferences::instance().addListener(this);
  updateCaptureFolders();
}

DataCapture::~DataCapture() {
  PIM_ENTRY("PIM::DataCapture::~DataCapture");
  ending_ = true;
  // No tick may reach a controller that is going, not even while the
  // progress display below runs its message loop.
  killTimers();
  if (isCapturing() && progressDisplay_) progressDisplay_(true);
  captureThread_.reset();
  // A cancel during that wait asks for a folder update after the run.
  killTimers();
  Preferences::instance().removeListener(this);
  for (FolderRef& folder : folders_) folder.reset();
  folders_.clear();
}

void DataCapture::killTimers() {
  if (autoTimerId_ != 0) actionWindow().killTimer(std::exchange(autoTimerId_, 0));
  if (folderRetryTimerId_ != 0) actionWindow().killTimer(std::exchange(folderRetryTimerId_, 0));
}

PimActionWindow& DataCapture::actionWindow() { return OutlookApp::instance()->actionWindow(); }

void DataCapture::enableCapturing(bool enable) {
  PIM_ENTRY("PIM::DataCapture::enableCapturing");
  capturingEnabled_ = enable;
  updateAutoCapture();
}

void DataCapture::killAutoTimer() {
  PIM_ENTRY("PIM::DataCapture::killAutoTimer");
  PIM_LOG_MSG("Cancelling automatic capturing.");
  actionWindow().killTimer(autoTimerId_);
  autoTimerId_ = 0;
}

void DataCapture::updateAutoCapture() {
  PIM_ENTRY("PIM::DataCapture::updateAutoCapture");
  const Preferences& preferences = Preferences::instance();
  const uint32_t mode = preferences.captureMode;
  const uint32_t preferenceInterval = preferences.captureInterval;
  const bool timed = mode == CaptureAtStartup || mode == CaptureAutomatic;
  const bool startupMode = mode == CaptureAtStartup;

  // In start-up mode a changed interval leaves the pending start-up timer
  // alone.
  if (autoTimerId_ != 0 && preferenceInterval != currentInterval_ &&
      !(currentMode_ == CaptureAtStartup && startupMode)) {
    killAutoTimer();
  }
  if (autoTimerId_ != 0) {
    if (!timed || !capturingEnabled_) {
      killAutoTimer();
      currentMode_ = mode;
      return;
    }
  } else if (capturingEnabled_ && timed) {
    uint32_t interval = kStartupDelayMinutes;
    if (!startupMode) {
      interval = preferenceInterval;
      if (interval < 1) {
        PIM_LOG_ERR("Auto capture interval time must be >= 1 minute.");
        interval = 1;
      }
    }
    if (!(startupMode && captureStarted_)) {
      PIM_LOG_MSG("Starting automatic capturing.");
      autoTimerId_ = actionWindow().createTimer(interval * kMsPerMinute, this);
    }
    currentInterval_ = interval;
  }
  currentMode_ = mode;
}

void DataCapture::onTimer(uint32_t timerId) {
  PIM_ENTRY("PIM::DataCapture::onTimer");
  if (timerId == 0 || ending_) return;
  if (timerId == autoTimerId_) {
    // In start-up mode the first tick captures and the next ends the timer.
    if (currentMode_ == CaptureAtStartup && captureStarted_) {
      PIM_LOG_MSG("Cancelling automatic capturing - startup capture has already happened.");
      actionWindow().killTimer(autoTimerId_);
      autoTimerId_ = 0;
      return;
    }
    if (!capturingEnabled_) {
      PIM_LOG_ERR("Still receiving capture now events when the timer has been stoped.");
    }
    captureNow();
  } else if (timerId == folderRetryTimerId_) {
    actionWindow().killTimer(folderRetryTimerId_);
    folderRetryTimerId_ = 0;
    updateCaptureFolders();
  }
}

void DataCapture::onPreferencesChanged() {
  PIM_ENTRY("PIM::DataCapture::onPreferencesChanged");
  updateAutoCapture();
  updateCaptureFolders();
}

void DataCapture::captureNow() {
  PIM_ENTRY("PIM::DataCapture::captureNow");
  // A request during a run is dropped, and so is one while the controller
  // goes.
  if (isCapturing() || ending_) return;
  if (runStartCheck_ && !runStartCheck_()) return;
  captureThread_.reset();
  totalFolders_ = 0;
  foldersDone_ = 0;
  startTicks_ = 0;
  cancelRequested_ = false;
  try {
    captureThread_ = std::make_unique<CaptureThread>(this);
    captureStarted_ = true;
  } catch (const std::system_error& e) {
    PIM_LOG_ERR("Could not start the capture thread: " << e.what());
  }
}

bool DataCapture::isCapturing() const { return captureThread_ && !captureThread_->finished(); }

bool DataCapture::waitForCapture(std::chrono::milliseconds timeout) const {
  PIM_ENTRY("PIM::DataCapture::waitForCapture");
  return !captureThread_ || captureThread_->waitFinished(timeout);
}

void DataCapture::cancelCapture() {
  PIM_ENTRY("PIM::DataCapture::cancelCapture");
  if (!isCapturing()) return;
  cancelRequested_ = true;
  // Only arranges an update after the run.
  updateCaptureFolders();
}

void DataCapture::showCaptureProgress() {
  PIM_ENTRY("PIM::DataCapture::showCaptureProgress");
  if (progressDisplay_) progressDisplay_(false);
}

DataCapture::Progress DataCapture::progress() const {
  Progress progress;
  progress.capturing = isCapturing();
  progress.cancelRequested = cancelRequested_;
  progress.totalFolders = totalFolders_;
  progress.foldersDone = foldersDone_;
  progress.startTicks = startTicks_;
  return progress;
}

size_t DataCapture::getFolderCount() const { return folders_.size(); }

void DataCapture::adoptPreviousFiles(const std::vector<DataDirectoryEntry>& entries) {
  PIM_ENTRY("PIM::DataCapture::adoptPreviousFiles");
  if (isCapturing()) return;
  TryEntryGuard guard(folderListLock_);
  const std::u16string dataFolder = getDataFolder();
  if (!guard.owns() || dataFolder.empty()) return;
  std::vector<std::u16string> taken;
  for (FolderRef& folder : folders_) {
    const FolderKind* kind = folderKind(folder->getFolderType());
    if (!kind) continue;
    bool named = false;
    for (const DataDirectoryEntry& entry : entries) {
      // The index keeps only the folder's own entry id.
      if (entry.type != kind->indexType || entry.folder.folderId != folder->getFolder().folderId)
        continue;
      // A name from the file is trusted only as a file of this folder that
      // exists and that no other folder claims.
      if (!isDataFileName(entry.name) ||
          std::find(taken.begin(), taken.end(), entry.name) != taken.end() ||
          !env()->pathStatus(dataFolder + kPathSeparator + entry.name))
        continue;
      folder->setFileName(entry.name);
      taken.push_back(entry.name);
      named = true;
      break;
    }
    // Whoever wrote that index dropped this folder's file (or never had
    // one): the name held from before may be gone, so the folder is read
    // again rather than listed under it.
    if (!named && !folder->getFileName().empty()) {
      folder->setFileName(u"");
      folder->setIsModified();
    }
  }
}

void DataCapture::keepUnchangedFolders(
    const std::function<bool(const MonitoredFolder&)>& unchanged) {
  PIM_ENTRY("PIM::DataCapture::keepUnchangedFolders");
  if (isCapturing()) return;
  TryEntryGuard guard(folderListLock_);
  if (!guard.owns()) return;
  for (FolderRef& folder : folders_)
    if (folder->isTracking() && unchanged(*folder)) folder->clearModified();
}

void DataCapture::updateCaptureFolders() {
  PIM_ENTRY("PIM::DataCapture::updateCaptureFolders");
  bool rebuilt = false;
  if (!isCapturing()) {
    TryEntryGuard guard(folderListLock_);
    if (guard.owns()) {
      rebuilt = true;
      std::vector<FolderRef> old = std::move(folders_);
      std::vector<FolderRef> fresh;
      const Preferences& preferences = Preferences::instance();
      // Runs capture, and the index lists, the kinds in this order.
      const std::pair<const std::vector<OutlookFolder>*, uint32_t> kinds[] = {
          {&preferences.contacts.folders, kFolderContacts},
          {&preferences.tasks.folders, kFolderTasks},
          {&preferences.calendar.folders, kFolderCalendar},
          {&preferences.email.folders, kFolderEmail}};
      for (const auto& [identities, type] : kinds) {
        for (const OutlookFolder& identity : *identities) {
          auto kept = std::find_if(old.begin(), old.end(), [&](const FolderRef& folder) {
            return folder && folder->getFolder() == identity;
          });
          if (kept != old.end()) {
            fresh.push_back(std::move(*kept));
            continue;
          }
          try {
            fresh.push_back(MonitoredFolder::open(identity, type));
          } catch (const std::exception& e) {
            PIM_LOG_ERR("Failed to get monitor folder: " << e.what());
          } catch (...) {
            PIM_LOG_ERR("Failed to get monitor folder: Unknown error.");
          }
        }
      }
      for (FolderRef& folder : old) folder.reset();
      folders_ = std::move(fresh);
      // The next run reads every folder in full.
      for (FolderRef& folder : folders_) folder->setIsModified();
    }
  }
  if (rebuilt) {
    if (capturePending_ && !cancelRequested_) captureNow();
    capturePending_ = false;
    return;
  }
  // A run is in progress or holds the list: try again shortly, and capture
  // then. A controller that is going has no later.
  if (ending_) return;
  if (folderRetryTimerId_ == 0) {
    folderRetryTimerId_ = actionWindow().createTimer(kFolderRetryMs, this);
  }
  capturePending_ = true;
}

unsigned DataCapture::_captureThread(DataCapture* capture) {
  PIM_ENTRY("PIM::DataCapture::_captureThread");
  PIM_ASSERT(capture);
  if (capture) capture->captureThread();
  return 0;
}

void DataCapture::captureThread() {
  PIM_ENTRY("PIM::DataCapture::captureThread");
  try {
    captureFunc();
  } catch (const std::exception& e) {
    PIM_LOG_ERR("Data capture failed: " << e.what());
  }
}

void DataCapture::captureFunc() {
  PIM_ENTRY("PIM::DataCapture::captureFunc");
  const uint32_t errorsBefore = errorLinesOnThisThread();
  PIM_LOG_MSG("Beginning data capture process.");
  const std::u16string dataFolder = getDataFolder();
  const std::u16string indexPath = dataFolder + kPathSeparator + kDataDirectoryName;
  const std::u16string newIndexPath = dataFolder + kPathSeparator + kDataDirectoryNewName;
  // The list cannot change while a run is in progress.
  totalFolders_ = static_cast<uint32_t>(folders_.size());
  foldersDone_ = 0;
  startTicks_ = env()->tickCount();
  RunSummary summary;
  summary.run = ++runsStarted_;
  keepSummary(summary);  // a run that throws leaves an empty one
  // Without a data folder the files would land in the root folder
  // (getDataFolder has logged why).
  if (dataFolder.empty()) {
    summary.failures.push_back("there is no data folder");
    summary.errorsLogged = errorLinesOnThisThread() - errorsBefore;
    return keepSummary(summary);
  }

  std::vector<std::u16string> leftovers = deletableDataFiles(dataFolder);
  std::vector<DataDirectoryEntry> directory;
  {
    // Nobody changes the folder list while the folders are read.
    EntryGuard guard(&folderListLock_);
    for (FolderRef& folder : folders_) {
      DataDirectoryEntry entry;
      RunSummary::Folder outcome;
      if (const FolderKind* kind = folderKind(folder->getFolderType())) {
        size_t records = 0;
        FolderWrite write;
        const HRESULT hr = kind->capture(*folder, dataFolder, cancelRequested_, records, write);
        countFolder(summary, *kind, *folder, hr, records, write);
        entry.type = kind->indexType;
        outcome.result = hr;
        outcome.fileFailed = write.failed;
      } else {
        PIM_LOG_ERR("Unsupported data type.");
        ++summary.foldersFailed;
      }
      entry.name = folder->getFileName();
      entry.folder = folder->getFolder();
      outcome.folder = entry.folder;
      outcome.indexType = entry.type;
      outcome.fileName = entry.name;
      summary.folders.push_back(std::move(outcome));
      // A folder without a file stays out of the index.
      if (!entry.name.empty()) directory.push_back(std::move(entry));
      ++foldersDone_;
    }
    // The files the folders still use survive the clean-up; the name must
    // match exactly, letter case included.
    for (const FolderRef& folder : folders_) {
      const auto used = std::find(leftovers.begin(), leftovers.end(), folder->getFileName());
      if (used != leftovers.end()) leftovers.erase(used);
    }
  }

  // The new index is made whole beside the old one and takes its place in
  // one rename before anything is deleted: a run killed at any point leaves
  // an index whose files all exist, at worst beside stale files that the
  // next run deletes.
  PIM_LOG_MSG("Writing data directory.");
  const bool newIndexWritten = writeToFile(newIndexPath, directory);
  if (newIndexWritten && keepIdenticalIndex_ && sameFileBytes(newIndexPath, indexPath)) {
    summary.indexWritten = env()->removeFile(newIndexPath);
  } else if (newIndexWritten) {
    summary.indexWritten = env()->replaceFile(newIndexPath, indexPath);
    if (!summary.indexWritten) {
      // A reader holding the index open on Windows stops the rename.
      PIM_LOG_ERR("Could not replace the data directory: " << toUtf8(indexPath));
      summary.indexWritten = writeToFile(indexPath, directory);
      env()->removeFile(newIndexPath);
    }
  } else {
    env()->removeFile(newIndexPath);
  }
  if (summary.indexWritten) {
    // Replaced files, files of folders no longer monitored and any other
    // unprotected ".xml" file.
    for (const std::u16string& name : leftovers) {
      if (name == kDataDirectoryName) continue;
      if (env()->removeFile(dataFolder + kPathSeparator + name)) ++summary.filesDeleted;
    }
  }
  // Otherwise the disk is full or the folder unwritable: the old index and
  // every file it names stay as they were, and the next run cleans up.
  if (!summary.indexWritten) summary.failures.push_back("could not write " + toUtf8(indexPath));
  PIM_LOG_MSG("Completed data capture process.");
  summary.errorsLogged = errorLinesOnThisThread() - errorsBefore;
  keepSummary(summary);
}

void DataCapture::keepSummary(RunSummary summary) {
  summary.cancelled = cancelRequested_;
  summary.elapsedMs = env()->tickCount() - startTicks_;
  std::lock_guard<std::mutex> guard(summaryLock_);
  lastRun_ = summary;
}

DataCapture::RunSummary DataCapture::lastRunSummary() const {
  std::lock_guard<std::mutex> guard(summaryLock_);
  return lastRun_;
}

}  // namespace PIM
