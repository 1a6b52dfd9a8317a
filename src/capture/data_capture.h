// The capture controller: decides when a capture run happens, owns the
// monitored folders, runs each capture on a worker thread of its own and lets
// a progress display watch and cancel it.
//
//   DataCapture* capture = DataCapture::instance();   // folders from the preferences
//   capture->enableCapturing(true);                   // the timer of the capture mode
//   capture->captureNow();                            // or at once
//   capture->waitForCapture(std::chrono::minutes(5));
//   DataCapture::freeInstance();
//
// The capture mode is the preference captureMode: 1 captures once, two
// minutes after capturing was enabled; 2 every captureInterval minutes; any
// other value only on demand.
//
// Threads: everything but the run belongs to the host's user-interface
// thread, the one that owns OutlookApp's action window (timers arrive there).
// The run holds the folder-list lock while it reads the folders; the user's
// thread never waits for it: a folder-list update that finds it taken, or a
// run in progress, is retried by a 50 ms timer and followed by a capture. The
// progress counters and the cancel flag are atomics written by one thread and
// read by others: their getters may be called from any thread (progress()
// as a whole belongs to the user's thread: it also asks isCapturing).
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "addin/action_window.h"
#include "capture/monitored_folder.h"
#include "platform/critical_section.h"
#include "prefs/preferences_listener.h"

namespace PIM {

class DataCapture final : public IPreferencesListener, public ITimer {
 public:
  // totalFolders before the first run.
  static constexpr uint32_t kNoRunYet = 0xFFFFFFFF;
  // The start-up capture's delay, in minutes, whatever the interval.
  static constexpr uint32_t kStartupDelayMinutes = 2;
  static constexpr uint32_t kFolderRetryMs = 50;

  // The one controller, made on first use: it listens to the preferences
  // and builds its folder list; no timer runs until enableCapturing(true).
  static DataCapture* instance();
  // Ends the controller, waiting for a run in progress (see
  // setProgressDisplay), if there is one.
  static void freeInstance();

  DataCapture(const DataCapture&) = delete;
  DataCapture& operator=(const DataCapture&) = delete;

  // True once the host has started; false as it begins to shut down. A run
  // in progress is not cancelled by it.
  void enableCapturing(bool enable);
  // Brings the capture timer in line with the preferences.
  void updateAutoCapture();
  // Rebuilds the monitored folders from the preferences and marks every
  // folder modified; put off by the retry timer while a run is in progress.
  void updateCaptureFolders();
  // Starts a run unless one is in progress; a request during a run is
  // dropped, not queued.
  void captureNow();
  // Whether the last run's thread has not yet ended.
  bool isCapturing() const;
  // Asks a run in progress to stop reading: the folder being read and the
  // later ones keep their previous files; the run still cleans up and
  // writes the index.
  void cancelCapture();
  // Shows the progress display (setProgressDisplay) in its normal form and
  // returns when it closes.
  void showCaptureProgress();

  void onPreferencesChanged() override;
  void onTimer(uint32_t timerId) override;

  // The run's counters as a progress display reads them.
  struct Progress {
    bool capturing = false;
    bool cancelRequested = false;
    uint32_t totalFolders = kNoRunYet;
    uint32_t foldersDone = 0;
    uint32_t startTicks = 0;  // env()->tickCount() when the run began
  };
  Progress progress() const;
  uint32_t getTotalFolders() const { return totalFolders_; }
  uint32_t getFoldersDone() const { return foldersDone_; }
  uint32_t getStartTicks() const { return startTicks_; }
  bool isCancelRequested() const { return cancelRequested_; }

  // What a run did, for the host's report when it has ended.
  struct RunSummary {
    uint32_t run = 0;               // 1 for the controller's first run, 0 before it
    uint32_t foldersRead = 0;       // read and written again (or found empty)
    uint32_t foldersUnchanged = 0;  // tracked and unchanged: their files kept
    uint32_t foldersFailed = 0;     // failed or cancelled: their previous files kept
    uint32_t records[4] = {};       // by FolderType, of the folders read
    uint32_t filesWritten = 0;      // folder files written whole, not the index
    uint32_t filesFailed = 0;       // folder files that could not be made or written whole
    uint32_t filesDeleted = 0;      // replaced and stale files, not the old index
    bool indexWritten = false;      // DataDirectory.xml written whole and in place
    uint32_t errorsLogged = 0;      // error lines the run wrote to the log
    // One line for each thing that went wrong: a folder not read, a file
    // not written ("could not write /data/CVTK1a.XML").
    std::vector<std::string> failures;
    bool cancelled = false;
    uint32_t elapsedMs = 0;
    // Each folder of the run, in the index's order.
    struct Folder {
      OutlookFolder folder;
      int32_t indexType = 0;
      std::u16string fileName;  // after the run; empty when it has none
      HRESULT result = E_FAIL;  // S_FALSE: left unread, unchanged
      bool fileFailed = false;  // its new file was not written whole
    };
    std::vector<Folder> folders;
  };
  // The last run's, once it has ended; all zero before the first.
  RunSummary lastRunSummary() const;

  // A host that starts a controller over an existing data folder (the
  // command line, where every start is a fresh controller) hands it the
  // previous index here, before the first run: each monitored folder named
  // there, by its entry id and kind, whose file still exists takes that
  // file as its own. A folder the next run does not read (cancelled,
  // failed) then keeps its file and index line, as it would in a
  // controller that had written them itself. Ignored during a run.
  void adoptPreviousFiles(const std::vector<DataDirectoryEntry>& entries);

  // Before a run, on the user's thread: every tracked folder for which
  // `unchanged` answers true is left unread by the next run and keeps its
  // file and index line, as if no change had been notified since the run
  // that wrote them. A notification meanwhile still has it read.
  void keepUnchangedFolders(const std::function<bool(const MonitoredFolder&)>& unchanged);

  // Waits until no run is in progress; false when `timeout` passed first.
  bool waitForCapture(std::chrono::milliseconds timeout) const;

  // The host's progress display, called on the user's thread: with false
  // by showCaptureProgress, with true when the controller ends during a
  // run, where it must stay until the run has ended (its cancel button
  // calls cancelCapture). Without one, the end just waits for the run.
  void setProgressDisplay(std::function<void(bool shutdownMode)> display) {
    progressDisplay_ = std::move(display);
  }
  // Asked on the user's thread before each run starts, whatever started it;
  // the run starts only when it answers true. A host whose data folder other
  // processes write too takes their common lock there.
  void setRunStartCheck(std::function<bool()> check) { runStartCheck_ = std::move(check); }
  // Whether a run that would write the index with the bytes it already has
  // leaves it alone (its time included), for a host that tells its user
  // nothing was rewritten. Set before a run.
  void setKeepIdenticalIndex(bool keep) { keepIdenticalIndex_ = keep; }

  // The state the timers follow, for the host's diagnostics and tests.
  uint32_t getAutoTimerId() const { return autoTimerId_; }
  uint32_t getFolderRetryTimerId() const { return folderRetryTimerId_; }
  uint32_t getCurrentInterval() const { return currentInterval_; }
  size_t getFolderCount() const;

 private:
  class CaptureThread;

  DataCapture();
  ~DataCapture();

  // The worker thread's body; 0 always.
  static unsigned _captureThread(DataCapture* capture);
  void captureThread();
  // The run itself (on the capture thread).
  void captureFunc();
  // Makes `summary` the last run's, with the cancel flag and the time.
  void keepSummary(RunSummary summary);

  void killAutoTimer();
  void killTimers();
  PimActionWindow& actionWindow();

  uint32_t currentInterval_ = 0;
  uint32_t currentMode_ = 0;
  // Guards folders_. Taken before any folder's own lock.
  mutable CriticalSection folderListLock_;
  uint32_t autoTimerId_ = 0;
  uint32_t folderRetryTimerId_ = 0;
  bool capturingEnabled_ = false;
  // Set once captureNow has started a thread; never cleared.
  bool captureStarted_ = false;
  // A folder-list update was put off; a capture is to follow it.
  bool capturePending_ = false;
  // The controller is being destroyed: no new run, no new timer.
  bool ending_ = false;
  std::vector<FolderRef> folders_;
  std::unique_ptr<CaptureThread> captureThread_;
  std::atomic<uint32_t> totalFolders_{kNoRunYet};
  std::atomic<uint32_t> foldersDone_{0};
  std::atomic<uint32_t> startTicks_{0};
  CancelFlag cancelRequested_{false};
  std::function<void(bool)> progressDisplay_;
  std::function<bool()> runStartCheck_;
  bool keepIdenticalIndex_ = false;
  // Written by a run as it ends, read by the host after it.
  mutable std::mutex summaryLock_;
  RunSummary lastRun_;
  uint32_t runsStarted_ = 0;  // the capture thread's
};

}  // namespace PIM
