// The capture controller: its timers in each capture mode, one run at a time,
// folder-list updates put off during a run, and its end.
#include "capture/data_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "capture/capture_test_util.h"
#include "mapi/com_error.h"

namespace PIM::testing {
namespace {

class DataCaptureTest : public CaptureTest {
 protected:
  void SetUp() override {
    CaptureTest::SetUp();
    addTask(u"Pay rent");
    Preferences::instance().tasks.folders = {identity("tasks")};
  }

  static void setMode(uint32_t mode, uint32_t interval) {
    Preferences::instance().captureMode = mode;
    Preferences::instance().captureInterval = interval;
  }

  // Fires the capture timer and waits for the run it starts.
  void fireCaptureTimer(DataCapture* capture) {
    const uint32_t timer = capture->getAutoTimerId();
    ASSERT_NE(timer, 0u);
    actionWindow().OnTimer(timer);
    ASSERT_TRUE(capture->waitForCapture(kRunTimeout));
  }

  static std::vector<std::string> run() {
    return {"MSG> Beginning data capture process.", "MSG> Writing data directory.",
            "MSG> Completed data capture process."};
  }
  static std::vector<std::string> join(std::initializer_list<std::vector<std::string>> parts) {
    std::vector<std::string> all;
    for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  }
};

TEST_F(DataCaptureTest, ProgressBeforeAndDuringARunAndASecondRequestIsDropped) {
  DataCapture* capture = DataCapture::instance();
  EXPECT_EQ(capture->getTotalFolders(), 0xFFFFFFFFu);
  EXPECT_FALSE(capture->progress().capturing);
  EXPECT_EQ(capture->progress().totalFolders, DataCapture::kNoRunYet);

  LogCapture log;
  env_.gate.arm(Step::ListDataFolder);
  capture->captureNow();
  ASSERT_TRUE(env_.gate.waitArrived());
  DataCapture::Progress progress = capture->progress();
  EXPECT_TRUE(progress.capturing);
  EXPECT_FALSE(progress.cancelRequested);
  EXPECT_EQ(progress.totalFolders, 1u);
  EXPECT_EQ(progress.foldersDone, 0u);
  EXPECT_EQ(progress.startTicks, CaptureEnv::kTicks);
  capture->captureNow();  // the button pressed again
  env_.gate.open();
  ASSERT_TRUE(capture->waitForCapture(kRunTimeout));

  progress = capture->progress();
  EXPECT_FALSE(progress.capturing);
  EXPECT_EQ(progress.totalFolders, 1u);
  EXPECT_EQ(progress.foldersDone, 1u);
  EXPECT_EQ(captureLines(log), run()) << "one run only";
}

TEST_F(DataCaptureTest, APreferenceChangeDuringARunIsAppliedAfterIt) {
  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  ASSERT_EQ(index(), envelope(indexLine("CVTK1000.XML", "tasks", "tasks")));

  capture->updateCaptureFolders();  // every folder modified again

  LogCapture log;
  env_.gate.arm(Step::CreateFile);
  capture->captureNow();
  ASSERT_TRUE(env_.gate.waitArrived());
  // A run is in progress and holds the folder list: the update waits.
  Preferences::instance().email.folders = {identity("inbox")};
  savePreferences();
  EXPECT_EQ(capture->getFolderCount(), 1u);
  const uint32_t retry = capture->getFolderRetryTimerId();
  ASSERT_NE(retry, 0u);
  // A retry during the run only tries again later.
  actionWindow().OnTimer(retry);
  const uint32_t again = capture->getFolderRetryTimerId();
  EXPECT_NE(again, 0u);
  EXPECT_EQ(capture->getFolderCount(), 1u);
  env_.gate.open();
  ASSERT_TRUE(capture->waitForCapture(kRunTimeout));
  EXPECT_EQ(index(), envelope(indexLine("CVTK1001.XML", "tasks", "tasks")));

  // After the run the retry rebuilds the list and captures at once.
  actionWindow().OnTimer(again);
  EXPECT_EQ(capture->getFolderRetryTimerId(), 0u);
  EXPECT_EQ(capture->getFolderCount(), 2u);
  ASSERT_TRUE(capture->waitForCapture(kRunTimeout));
  EXPECT_EQ(index(), envelope(indexLine("CVTK1000.XML", "tasks", "tasks") +
                              indexLine("CVTK1002.XML", "email", "inbox")));
  expectIndexMatchesFolder();
  EXPECT_EQ(captureLines(log), join({run(), run()}));
}

TEST_F(DataCaptureTest, AFolderThatCannotBeOpenedIsLeftOut) {
  Preferences::instance().contacts.folders = {identity("contacts")};
  store::ScopedFaults faults;
  faults->failCall("IMsgStore::OpenEntry", MAPI_E_NOT_FOUND);
  LogCapture log;
  DataCapture* capture = DataCapture::instance();
  EXPECT_EQ(captureLines(log), std::vector<std::string>({"ERR> Failed to get folder",
                                                         "ERR> Failed to get monitor folder: " +
                                                             hrText(MAPI_E_NOT_FOUND)}));
  EXPECT_EQ(capture->getFolderCount(), 1u);
  runCapture(capture);
  EXPECT_EQ(index(), envelope(indexLine("CVTK1000.XML", "tasks", "tasks")));
}

TEST_F(DataCaptureTest, AutomaticModeCapturesOnEveryTickOfItsInterval) {
  setMode(CaptureAutomatic, 15);
  LogCapture log;
  DataCapture* capture = DataCapture::instance();
  EXPECT_EQ(capture->getAutoTimerId(), 0u) << "not before capturing is enabled";
  capture->enableCapturing(true);
  const uint32_t first = capture->getAutoTimerId();
  EXPECT_NE(first, 0u);
  EXPECT_EQ(capture->getCurrentInterval(), 15u);
  fireCaptureTimer(capture);
  fireCaptureTimer(capture);
  EXPECT_EQ(capture->getAutoTimerId(), first);

  // A new interval restarts the timer; the old one is gone.
  setMode(CaptureAutomatic, 30);
  savePreferences();
  const uint32_t second = capture->getAutoTimerId();
  EXPECT_NE(second, 0u);
  EXPECT_NE(second, first);
  EXPECT_EQ(capture->getCurrentInterval(), 30u);
  actionWindow().OnTimer(first);
  EXPECT_FALSE(capture->isCapturing());

  setMode(CaptureManual, 30);
  savePreferences();
  EXPECT_EQ(capture->getAutoTimerId(), 0u);
  EXPECT_EQ(captureLines(log),
            join({{"MSG> Starting automatic capturing."},
                  run(),
                  run(),
                  {"MSG> Cancelling automatic capturing.", "MSG> Starting automatic capturing.",
                   "MSG> Cancelling automatic capturing."}}));
}

TEST_F(DataCaptureTest, AnIntervalBelowOneMinuteBecomesOneAndDisablingStopsTheTimer) {
  setMode(CaptureAutomatic, 0);
  LogCapture log;
  DataCapture* capture = DataCapture::instance();
  capture->enableCapturing(true);
  EXPECT_NE(capture->getAutoTimerId(), 0u);
  EXPECT_EQ(capture->getCurrentInterval(), 1u);
  capture->enableCapturing(false);
  EXPECT_EQ(capture->getAutoTimerId(), 0u);
  EXPECT_EQ(captureLines(log),
            std::vector<std::string>({"ERR> Auto capture interval time must be >= 1 minute.",
                                      "MSG> Starting automatic capturing.",
                                      "MSG> Cancelling automatic capturing."}));
}

TEST_F(DataCaptureTest, StartupModeCapturesOnceAndThenEndsItsTimer) {
  setMode(CaptureAtStartup, 15);
  LogCapture log;
  DataCapture* capture = DataCapture::instance();
  capture->enableCapturing(true);
  const uint32_t timer = capture->getAutoTimerId();
  EXPECT_NE(timer, 0u);
  EXPECT_EQ(capture->getCurrentInterval(), DataCapture::kStartupDelayMinutes);
  // A changed interval leaves the start-up timer alone.
  setMode(CaptureAtStartup, 20);
  savePreferences();
  EXPECT_EQ(capture->getAutoTimerId(), timer);

  fireCaptureTimer(capture);
  actionWindow().OnTimer(timer);
  EXPECT_EQ(capture->getAutoTimerId(), 0u);
  EXPECT_FALSE(capture->isCapturing());
  // Once it has happened, enabling again starts nothing.
  capture->enableCapturing(true);
  EXPECT_EQ(capture->getAutoTimerId(), 0u);
  EXPECT_EQ(
      captureLines(log),
      join({{"MSG> Starting automatic capturing."},
            run(),
            {"MSG> Cancelling automatic capturing - startup capture has already happened."}}));
}

TEST_F(DataCaptureTest, StartupModeAfterAManualCaptureOnlyEndsItsTimer) {
  setMode(CaptureAtStartup, 15);
  DataCapture* capture = DataCapture::instance();
  capture->enableCapturing(true);
  runCapture(capture);
  LogCapture log;
  actionWindow().OnTimer(capture->getAutoTimerId());
  EXPECT_FALSE(capture->isCapturing());
  EXPECT_EQ(capture->getAutoTimerId(), 0u);
  EXPECT_EQ(captureLines(log),
            std::vector<std::string>(
                {"MSG> Cancelling automatic capturing - startup capture has already happened."}));
}

TEST_F(DataCaptureTest, EndingDuringARunWaitsBehindTheProgressDisplay) {
  DataCapture* capture = DataCapture::instance();
  std::vector<bool> shown;
  capture->setProgressDisplay([&](bool shutdownMode) {
    shown.push_back(shutdownMode);
    if (!shutdownMode) return;
    EXPECT_TRUE(capture->isCapturing());
    env_.gate.open();
    EXPECT_TRUE(capture->waitForCapture(kRunTimeout));
  });
  capture->showCaptureProgress();
  EXPECT_EQ(shown, std::vector<bool>({false}));

  LogCapture log;
  env_.gate.arm(Step::ListDataFolder);
  capture->captureNow();
  ASSERT_TRUE(env_.gate.waitArrived());
  DataCapture::freeInstance();
  EXPECT_EQ(shown, std::vector<bool>({false, true}));
  EXPECT_EQ(captureLines(log), run());
  EXPECT_EQ(index(), envelope(indexLine("CVTK1000.XML", "tasks", "tasks")));

  // Without a run the display is not shown, and without one the end waits
  // all the same.
  capture = DataCapture::instance();
  capture->setProgressDisplay([&](bool shutdownMode) { shown.push_back(shutdownMode); });
  DataCapture::freeInstance();
  EXPECT_EQ(shown.size(), 2u);
  capture = DataCapture::instance();
  env_.gate.arm(Step::CreateFile);
  capture->captureNow();
  ASSERT_TRUE(env_.gate.waitArrived());
  std::thread opener([&] { env_.gate.open(); });
  DataCapture::freeInstance();
  opener.join();
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1001.XML", "DataDirectory.xml"}))
      << "the end waited for the run";
}

// The shut-down display cancels the run through the controller it finds as
// the instance: that must be the one ending, and nothing it arms may tick
// once the controller is gone.
TEST_F(DataCaptureTest, TheShutDownDisplayCancelsTheEndingControllerAndNoTimerOutlivesIt) {
  DataCapture* capture = DataCapture::instance();
  DataCapture* seen = nullptr;
  capture->setProgressDisplay([&](bool shutdownMode) {
    ASSERT_TRUE(shutdownMode);
    seen = DataCapture::instance();
    seen->cancelCapture();
    DataCapture::freeInstance();  // a host that asks again while it waits
    env_.gate.open();
    EXPECT_TRUE(capture->waitForCapture(kRunTimeout));
  });
  capture->enableCapturing(true);  // the automatic timer runs
  env_.gate.arm(Step::ListDataFolder);
  capture->captureNow();
  ASSERT_TRUE(env_.gate.waitArrived());
  DataCapture::freeInstance();
  EXPECT_EQ(seen, capture);
  // Every tick the window can still deliver finds no controller behind it.
  for (uint32_t id = 1; id <= 16; ++id) actionWindow().OnTimer(id);
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"DataDirectory.xml"}))
      << "the run was cancelled and no other started";
}

// Notifications from a thread of the store, and the user changing the
// preferences and cancelling, all while a run reads the folders.
TEST_F(DataCaptureTest, ChangesFromOtherThreadsDuringARunLeaveAConsistentResult) {
  Preferences::instance().email.folders = {identity("inbox")};
  Preferences::instance().contacts.folders = {identity("contacts")};
  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  capture->updateCaptureFolders();

  env_.gate.arm(Step::CreateFile);
  capture->captureNow();
  std::thread changer([&] {
    for (int i = 0; i < 100; ++i) {
      addTask(u"Task " + fromUtf8(std::to_string(i)));
      profile_->touchFolder(profile_->byKey("inbox"));
    }
  });
  ASSERT_TRUE(env_.gate.waitArrived());
  Preferences::instance().email.folders.push_back(identity("reports"));
  savePreferences();
  const DataCapture::Progress during = capture->progress();
  EXPECT_LE(during.foldersDone, during.totalFolders);
  env_.gate.open();
  capture->cancelCapture();
  changer.join();
  ASSERT_TRUE(capture->waitForCapture(kRunTimeout));
  for (uint32_t retry; (retry = capture->getFolderRetryTimerId()) != 0;) {
    actionWindow().OnTimer(retry);
    ASSERT_TRUE(capture->waitForCapture(kRunTimeout));
  }
  EXPECT_EQ(capture->getFolderCount(), 4u);
  expectIndexMatchesFolder();

  runCapture(capture);
  const std::vector<std::string> names = indexedNames();
  EXPECT_EQ(names.size(), 2u) << "the contacts and the new mail folder are empty";
  expectIndexMatchesFolder();
  expectFilesValid();
}

}  // namespace
}  // namespace PIM::testing
