#include "capture/data_capture.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
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

// "*.xml" as the Windows file system matches it: the letter case of the
// extension does not count.
bool isXmlFileName(const std::u16string& name) {
  static constexpr char16_t kExtension[] = u".xml";
  constexpr size_t kLength = 4;
  if (name.size() < kLength) return false;
  for (size_t i = 0; i < kLength; ++i) {
    char16_t c = name[name.size() - kLength + i];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
    if (c != kExtension[i]) return false;
  }
  return true;
}

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
                    const CancelFlag& cancelRequested, size_t& recordCount) {
  std::vector<Record> records;
  const HRESULT hr = folder.captureFolder(dataFolder, records, cancelRequested);
  recordCount = records.size();
  return hr;
}

// Each folder type: its record type and its number in the index.
struct FolderKind {
  uint32_t folderType;
  int32_t indexType;
  HRESULT (*capture)(MonitoredFolder&, const std::u16string&, const CancelFlag&, size_t&);
};
constexpr FolderKind kFolderKinds[] = {
    {kFolderCalendar, DataDirectoryEntry::Calendar, &captureInto<CalendarEntry>},
    {kFolderContacts, DataDirectoryEntry::Contacts, &captureInto<Contact>},
    {kFolderEmail, DataDirectoryEntry::Email, &captureInto<Email>},
    {kFolderTasks, DataDirectoryEntry::Tasks, &captureInto<Task>},
};

const FolderKind* folderKind(uint32_t folderType) {
  for (const FolderKind& kind : kFolderKinds)
    if (kind.folderType == folderType) return &kind;
  return nullptr;
}

void countFolder(DataCapture::RunSummary& summary, uint32_t folderType, HRESULT hr,
                 size_t records) {
  if (hr == S_FALSE) {
    ++summary.foldersUnchanged;
  } else if (FAILED(hr)) {
    ++summary.foldersFailed;
  } else {
    ++summary.foldersRead;
    summary.records[folderType] += static_cast<uint32_t>(records);
    if (records != 0) ++summary.filesWritten;
  }
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

void DataCapture::freeInstance() { delete std::exchange(g_instance, nullptr); }

DataCapture::DataCapture() {
  PIM_ENTRY("PIM::DataCapture::DataCapture");
  Preferences::instance().addListener(this);
  updateCaptureFolders();
}

DataCapture::~DataCapture() {
  PIM_ENTRY("PIM::DataCapture::~DataCapture");
  // No tick may reach a controller that is going, not even while the
  // progress display below runs its message loop.
  if (autoTimerId_ != 0) actionWindow().killTimer(std::exchange(autoTimerId_, 0));
  if (folderRetryTimerId_ != 0) actionWindow().killTimer(std::exchange(folderRetryTimerId_, 0));
  if (isCapturing() && progressDisplay_) progressDisplay_(true);
  captureThread_.reset();
  Preferences::instance().removeListener(this);
  for (FolderRef& folder : folders_) folder.reset();
  folders_.clear();
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
  if (timerId == 0) return;
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
  // A request during a run is dropped.
  if (isCapturing()) return;
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
  // then.
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
  PIM_LOG_MSG("Beginning data capture process.");
  const std::u16string dataFolder = getDataFolder();
  const std::u16string indexPath = dataFolder + kPathSeparator + kDataDirectoryName;
  // The list cannot change while a run is in progress.
  totalFolders_ = static_cast<uint32_t>(folders_.size());
  foldersDone_ = 0;
  startTicks_ = env()->tickCount();
  RunSummary summary;
  summary.run = ++runsStarted_;
  keepSummary(summary);  // a run that throws leaves an empty one
  // Without a data folder the files would land in the root folder
  // (getDataFolder has logged why).
  if (dataFolder.empty()) return keepSummary(summary);

  std::vector<std::u16string> leftovers = deletableDataFiles(dataFolder);
  std::vector<DataDirectoryEntry> directory;
  {
    // Nobody changes the folder list while the folders are read.
    EntryGuard guard(&folderListLock_);
    for (FolderRef& folder : folders_) {
      DataDirectoryEntry entry;
      if (const FolderKind* kind = folderKind(folder->getFolderType())) {
        size_t records = 0;
        const HRESULT hr = kind->capture(*folder, dataFolder, cancelRequested_, records);
        countFolder(summary, kind->folderType, hr, records);
        entry.type = kind->indexType;
      } else {
        PIM_LOG_ERR("Unsupported data type.");
        ++summary.foldersFailed;
      }
      entry.name = folder->getFileName();
      entry.folder = folder->getFolder();
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

  // Replaced files, files of folders no longer monitored, any other
  // unprotected ".xml" file and the old index, which is written again below.
  for (const std::u16string& name : leftovers) {
    if (env()->removeFile(dataFolder + kPathSeparator + name) && name != kDataDirectoryName)
      ++summary.filesDeleted;
  }

  PIM_LOG_MSG("Writing data directory.");
  writeToFile(indexPath, directory);
  PIM_LOG_MSG("Completed data capture process.");
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
