// The progress dialog over real capture runs of the reference store, held
// folder by folder, with a tick count the test sets: what each tick shows,
// cancelling, and closing when the run ends.
#include "ui/capture_progress_win32.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "capture/capture_test_util.h"
#include "ui/dialog_controls.h"
#include "ui/dialog_testing_win32.h"

namespace PIM::testing {
namespace {

constexpr char16_t kTexts[] =
    u"CAPTURE_PROGRESS_DIALOG_TITLE=Capturing\r\n"
    u"CAPTURE_PROGRESS_NORMAL=Your data are being captured.\r\n"
    u"CAPTURE_PROGRESS_SHUTDOWN=Outlook closes after the capture.\r\n"
    u"CAPTURE_PROGRESS_ESTIMATING=Estimating...\r\n"
    u"CAPTURE_PROGRESS_CANCEL=Stop\r\n"
    u"CAPTURE_PROGRESS_REMAINING_MINUTES=%1 min left\r\n"
    u"CAPTURE_PROGRESS_REMAINING_SECONDS=%1 s left\r\n"
    u"CAPTURE_PROGRESS_REMAINING_LESSTHANTEN=Almost done\r\n";

// A tick count the test sets, and a run that stops before each new data
// file until the test lets it create one.
class SteppingEnv : public EnvWrapper {
 public:
  SteppingEnv() : EnvWrapper(env()), scoped_(this) {}

  uint32_t tickCount() override { return ticks.load(); }
  OpenAlwaysResult openAlways(const std::u16string& path) override {
    {
      std::unique_lock<std::mutex> guard(lock_);
      ++arrivals_;
      changed_.notify_all();
      changed_.wait_for(guard, kRunTimeout, [this] { return free_ || permits_ > 0; });
      if (!free_ && permits_ > 0) --permits_;
    }
    return target()->openAlways(path);
  }

  // Lets one file through and waits until the run stands before the next
  // (or, with `last`, has passed the last one held).
  bool step() {
    std::unique_lock<std::mutex> guard(lock_);
    const int next = arrivals_ + 1;
    ++permits_;
    changed_.notify_all();
    return changed_.wait_for(guard, kRunTimeout, [&] { return arrivals_ >= next; });
  }
  bool waitArrivals(int count) {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, kRunTimeout, [&] { return arrivals_ >= count; });
  }
  void release() {
    std::lock_guard<std::mutex> guard(lock_);
    free_ = true;
    changed_.notify_all();
  }

  std::atomic<uint32_t> ticks{0};

 private:
  ScopedEnv scoped_;
  std::mutex lock_;
  std::condition_variable changed_;
  int arrivals_ = 0;
  int permits_ = 0;
  bool free_ = false;
};

// What one tick left on the screen.
struct Shown {
  std::u16string remaining;
  int percent = 0;
  bool cancelEnabled = true;
};

bool operator==(const Shown& a, const Shown& b) {
  return a.remaining == b.remaining && a.percent == b.percent && a.cancelEnabled == b.cancelEnabled;
}
std::ostream& operator<<(std::ostream& out, const Shown& s) {
  return out << "{\"" << toUtf8(s.remaining) << "\", " << s.percent << "%, cancel "
             << (s.cancelEnabled ? "on" : "off") << "}";
}

// The dialog under test, recording each tick after the dialog's own handling
// and then doing the script's step for that tick (none past its end).
class ScriptedProgress : public CaptureProgress {
 public:
  ScriptedProgress(bool shutdownMode, std::vector<std::function<void(ScriptedProgress&)>> script)
      : CaptureProgress(shutdownMode), script_(std::move(script)) {}

  std::vector<Shown> ticks;
  std::u16string title, explanation, cancelText, remainingAtStart;
  bool okHidden = false;
  // Presses cancel as soon as the dialog runs: a posted message comes
  // before any timer's.
  bool cancelAtStart = false;

  HWND window() const { return hwnd(); }
  void press(int id) { SendMessageW(item(id), BM_CLICK, 0, 0); }

 protected:
  BOOL OnInitDialog() override {
    const BOOL result = CaptureProgress::OnInitDialog();
    wchar_t buffer[128] = {};
    GetWindowTextW(hwnd(), buffer, 128);
    title = reinterpret_cast<const char16_t*>(buffer);
    explanation = itemText(IDC_PROGRESS_EXPLANATION);
    cancelText = itemText(IDCANCEL);
    remainingAtStart = itemText(IDC_PROGRESS_REMAINING);
    okHidden =
        !(GetWindowLongPtrW(item(IDOK), GWL_STYLE) & WS_VISIBLE) && !IsWindowEnabled(item(IDOK));
    if (cancelAtStart) PostMessageW(hwnd(), WM_COMMAND, IDCANCEL, 0);
    return result;
  }
  void OnTimer(UINT_PTR id) override {
    CaptureProgress::OnTimer(id);
    Shown shown;
    shown.remaining = itemText(IDC_PROGRESS_REMAINING);
    shown.percent = static_cast<int>(SendMessageW(item(IDC_PROGRESS_BAR), PBM_GETPOS, 0, 0));
    shown.cancelEnabled = IsWindowEnabled(item(IDCANCEL)) != FALSE;
    ticks.push_back(shown);
    const size_t step = ticks.size() - 1;
    if (step < script_.size()) script_[step](*this);
  }

 private:
  std::vector<std::function<void(ScriptedProgress&)>> script_;
};

class CaptureProgressTest : public CaptureTest {
 protected:
  void SetUp() override {
    if (!canCreateWindows()) GTEST_SKIP() << "no window station to create windows in";
    setUp_ = true;
    CaptureTest::SetUp();
    useLanguageText(kTexts);
    addTask(u"Pay rent");
    addContact(u"Ada Lovelace");
    profile_->addItem(profile_->byKey("inbox"), item(u"IPM.Note", u"Hello"));
    stepper_.ticks = kStart;
  }
  void TearDown() override {
    stepper_.release();
    if (!setUp_) return;
    CaptureTest::TearDown();
    ResourceLoader::freeInstance();
  }

  // Starts a run over `folders` and waits until it stands before its first
  // data file.
  void startHeldRun(std::vector<OutlookFolder> folders) {
    Preferences::instance().tasks.folders = {folders.at(0)};
    if (folders.size() > 1) Preferences::instance().contacts.folders = {folders.at(1)};
    if (folders.size() > 2) Preferences::instance().email.folders = {folders.at(2)};
    DataCapture::instance()->captureNow();
    ASSERT_TRUE(stepper_.waitArrivals(1));
    ASSERT_EQ(DataCapture::instance()->getFoldersDone(), 0u);
  }

  static constexpr uint32_t kStart = 100000;
  SteppingEnv stepper_;
  bool setUp_ = false;
};

using Step = std::function<void(ScriptedProgress&)>;

TEST_F(CaptureProgressTest, EstimatesFollowTheRunAndTheDialogClosesWhenItEnds) {
  startHeldRun({identity("tasks"), identity("contacts"), identity("inbox")});
  ASSERT_EQ(DataCapture::instance()->getTotalFolders(), 3u);
  SteppingEnv& env = stepper_;
  const std::vector<Step> script = {
      // The first folder took 20 s: two more to go, about 40 s.
      [&](ScriptedProgress&) {
        env.ticks = kStart + 20000;
        ASSERT_TRUE(env.step());
      },
      // 15 s later 25 s are left.
      [&](ScriptedProgress&) { env.ticks = kStart + 35000; },
      // The second folder runs long: the estimate counts down to nothing.
      [&](ScriptedProgress&) { env.ticks = kStart + 200000; },
      // It ends at 200 s: 100 s a folder, one to go.
      [&](ScriptedProgress&) { ASSERT_TRUE(env.step()); },
      [&](ScriptedProgress&) {
        env.release();
        ASSERT_TRUE(DataCapture::instance()->waitForCapture(kRunTimeout));
      },
  };
  DialogWatchdog watchdog;
  ScriptedProgress dialog(false, script);
  EXPECT_EQ(dialog.DoModal(), IDOK);
  EXPECT_FALSE(watchdog.fired());
  EXPECT_EQ(dialog.title, u"Capturing");
  EXPECT_EQ(dialog.explanation, u"Your data are being captured.");
  EXPECT_EQ(dialog.cancelText, u"Stop");
  EXPECT_EQ(dialog.remainingAtStart, u"Estimating...");
  EXPECT_TRUE(dialog.okHidden);
  EXPECT_EQ(dialog.ticks, (std::vector<Shown>{
                              {u"Estimating...", 0, true},
                              {u"60 s left", 33, true},
                              {u"30 s left", 33, true},
                              {u"Almost done", 33, true},
                              {u"1 min left", 66, true},
                              // The run has ended: the last tick shows where.
                              {u"Almost done", 100, true},
                          }));
  EXPECT_FALSE(DataCapture::instance()->lastRunSummary().cancelled);
}

TEST_F(CaptureProgressTest, CancelAsksTheRunToStopAndTheDialogWaitsForItsEnd) {
  startHeldRun({identity("tasks"), identity("contacts")});
  SteppingEnv& env = stepper_;
  bool openAfterCancel = false, openAfterClose = false;
  const std::vector<Step> script = {
      [&](ScriptedProgress& d) {
        d.press(IDCANCEL);
        EXPECT_TRUE(DataCapture::instance()->isCancelRequested());
        // Pressed again, the disabled button does nothing; the close box
        // and Escape leave the dialog open while the run goes on.
        d.press(IDCANCEL);
        SendMessageW(d.window(), WM_COMMAND, IDCANCEL, 0);
        SendMessageW(d.window(), WM_SYSCOMMAND, SC_CLOSE, 0);
        SendMessageW(d.window(), WM_COMMAND, IDOK, 0);
        openAfterCancel = IsWindow(d.window()) && IsWindowVisible(d.window());
      },
      [&](ScriptedProgress& d) { openAfterClose = IsWindowVisible(d.window()) != FALSE; },
      [&](ScriptedProgress&) {
        env.release();
        ASSERT_TRUE(DataCapture::instance()->waitForCapture(kRunTimeout));
      },
  };
  DialogWatchdog watchdog;
  ScriptedProgress dialog(false, script);
  EXPECT_EQ(dialog.DoModal(), IDOK);
  EXPECT_FALSE(watchdog.fired());
  EXPECT_TRUE(openAfterCancel);
  EXPECT_TRUE(openAfterClose);
  ASSERT_EQ(dialog.ticks.size(), 4u);
  // Each tick is seen before its step: the press came after the first.
  EXPECT_TRUE(dialog.ticks[0].cancelEnabled);
  EXPECT_FALSE(dialog.ticks[1].cancelEnabled);
  EXPECT_FALSE(dialog.ticks[3].cancelEnabled);
  EXPECT_TRUE(DataCapture::instance()->lastRunSummary().cancelled);
}

// Without a run going on (none started, or one with nothing to read that has
// ended) the dialog closes on its first tick with the bar at 0, in either
// form; cancel then closes it at once.
TEST_F(CaptureProgressTest, WithoutARunTheFirstTickCloses) {
  struct Case {
    const char* name;
    bool shutdownMode;
    bool cancelAtStart;
    const char16_t* explanation;
    INT_PTR result;
  };
  const Case cases[] = {
      {"normal", false, false, u"Your data are being captured.", IDOK},
      {"shutting down", true, false, u"Outlook closes after the capture.", IDOK},
      {"cancelled before the first tick", false, true, u"Your data are being captured.", IDCANCEL},
  };
  // A run of no folders, ended before the dialog opens.
  stepper_.release();
  DataCapture::instance()->captureNow();
  ASSERT_TRUE(DataCapture::instance()->waitForCapture(kRunTimeout));
  ASSERT_EQ(DataCapture::instance()->getTotalFolders(), 0u);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    DialogWatchdog watchdog;
    ScriptedProgress dialog(c.shutdownMode, {});
    dialog.cancelAtStart = c.cancelAtStart;
    EXPECT_EQ(dialog.DoModal(), c.result);
    EXPECT_FALSE(watchdog.fired());
    EXPECT_EQ(dialog.explanation, c.explanation);
    if (c.cancelAtStart) {
      EXPECT_TRUE(dialog.ticks.empty());
    } else {
      EXPECT_EQ(dialog.ticks, (std::vector<Shown>{{u"Estimating...", 0, true}}));
    }
  }
}

}  // namespace
}  // namespace PIM::testing
