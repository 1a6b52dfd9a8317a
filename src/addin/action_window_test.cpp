#include "addin/action_window.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "addin/outlook_app.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using std::chrono::milliseconds;
using testing::LogCapture;

// Long enough for any tick of a 10 ms timer on a loaded machine; tests wait
// for what they expect and only reach this when it never comes.
constexpr milliseconds kPatience{10000};

// Notes each tick with the thread it came on.
struct TickRecorder : public ITimer {
  void onTimer(uint32_t timerId) override {
    ticks.push_back(timerId);
    threads.insert(std::this_thread::get_id());
    if (onTick) onTick(timerId);
  }
  int ticksOf(uint32_t timerId) const {
    int n = 0;
    for (uint32_t t : ticks) n += t == timerId;
    return n;
  }
  std::vector<uint32_t> ticks;
  std::set<std::thread::id> threads;
  std::function<void(uint32_t)> onTick;
};

// A started window whose buttons count their presses.
class ActionWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(window.start());
    ASSERT_NE(window.loop(), nullptr);
    window.setConfigureAction([this] { configured.push_back(std::this_thread::get_id()); });
    window.setCaptureAction([this] { captured.push_back(std::this_thread::get_id()); });
  }

  bool runUntil(const std::function<bool()>& done) {
    return window.loop()->runUntil(done, kPatience);
  }

  PimActionWindow window;
  std::vector<std::thread::id> configured;
  std::vector<std::thread::id> captured;
  const std::thread::id self = std::this_thread::get_id();
};

std::string lineAfterHeader(const std::string& line) {
  const auto at = line.find(" : ");
  return at == std::string::npos ? line : line.substr(at + 3);
}

TEST_F(ActionWindowTest, ButtonMessagesRunTheirActionOnceTheOwnerRunsTheLoop) {
  EXPECT_TRUE(window.postMessage(kButtonPressedMessage, kButtonCapture, 0));
  EXPECT_TRUE(window.postMessage(kButtonPressedMessage, kButtonConfigure, 0));
  // Posting only queues: the host's click handling returns first.
  EXPECT_TRUE(captured.empty());
  EXPECT_TRUE(configured.empty());

  window.loop()->processPending();
  EXPECT_EQ(captured, std::vector<std::thread::id>{self});
  EXPECT_EQ(configured, std::vector<std::thread::id>{self});
}

TEST_F(ActionWindowTest, AClickPostedFromAnotherThreadRunsOnTheWindowsThread) {
  std::thread([&] { window.postMessage(kButtonPressedMessage, kButtonCapture, 0); }).join();
  EXPECT_TRUE(captured.empty());
  ASSERT_TRUE(runUntil([&] { return !captured.empty(); }));
  EXPECT_EQ(captured, std::vector<std::thread::id>{self});
  EXPECT_TRUE(configured.empty());
}

TEST_F(ActionWindowTest, OtherButtonsAndMessagesDoNothing) {
  LogCapture log;
  EXPECT_EQ(window.onButtonPressed(9002, 0), 0);
  EXPECT_EQ(window.onButtonPressed(0, 0), 0);
  window.postMessage(kButtonPressedMessage, 8999, 0);
  window.postMessage(kButtonPressedMessage + 1, kButtonCapture, 0);
  window.loop()->processPending();
  EXPECT_TRUE(captured.empty());
  EXPECT_TRUE(configured.empty());
  EXPECT_TRUE(log.lines().empty());

  EXPECT_EQ(window.onButtonPressed(kButtonConfigure, 0), 0);
  EXPECT_EQ(window.onButtonPressed(kButtonCapture, 0), 0);
  EXPECT_EQ(configured.size(), 1u);
  EXPECT_EQ(captured.size(), 1u);
}

TEST(ActionWindow, ButtonsWithoutActionsAreAcceptedAndDoNothing) {
  PimActionWindow window;
  ASSERT_TRUE(window.start());
  LogCapture log;
  EXPECT_EQ(window.onButtonPressed(kButtonConfigure, 0), 0);
  EXPECT_TRUE(window.postMessage(kButtonPressedMessage, kButtonCapture, 0));
  EXPECT_GE(window.loop()->processPending(), 1u);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ActionWindowTest, TimersTickTheirOwnCallbackOnTheWindowsThreadUntilKilled) {
  TickRecorder first, second;
  const uint32_t a = window.createTimer(10, &first);
  const uint32_t b = window.createTimer(15, &second);
  ASSERT_NE(a, b);
  ASSERT_TRUE(runUntil([&] { return first.ticksOf(a) >= 2 && second.ticksOf(b) >= 2; }));
  EXPECT_EQ(first.ticksOf(b), 0);
  EXPECT_EQ(second.ticksOf(a), 0);
  EXPECT_EQ(first.threads, std::set<std::thread::id>{self});
  EXPECT_EQ(second.threads, std::set<std::thread::id>{self});

  LogCapture log;
  window.killTimer(a);
  const size_t firstTicks = first.ticks.size();
  // b keeps time while a stays silent.
  const int until = second.ticksOf(b) + 3;
  ASSERT_TRUE(runUntil([&] { return second.ticksOf(b) >= until; }));
  EXPECT_EQ(first.ticks.size(), firstTicks);
  window.killTimer(b);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ActionWindowTest, AOneShotTimerKillsItselfFromItsTick) {
  TickRecorder oneShot, clock;
  const uint32_t shot = window.createTimer(10, &oneShot);
  oneShot.onTick = [&](uint32_t id) { window.killTimer(id); };
  const uint32_t tick = window.createTimer(10, &clock);
  ASSERT_TRUE(runUntil([&] { return clock.ticksOf(tick) >= 4; }));
  EXPECT_EQ(oneShot.ticks, std::vector<uint32_t>{shot});
  window.killTimer(tick);
}

TEST_F(ActionWindowTest, ATickForAnUnknownTimerIsDroppedSilently) {
  TickRecorder recorder;
  const uint32_t id = window.createTimer(60000, &recorder);
  LogCapture log;
  window.OnTimer(id + 1);
  window.OnTimer(0);
  EXPECT_TRUE(recorder.ticks.empty());
  window.OnTimer(id);
  EXPECT_EQ(recorder.ticks, std::vector<uint32_t>{id});

  // A tick that was queued before the kill finds nothing.
  window.killTimer(id);
  window.OnTimer(id);
  EXPECT_EQ(recorder.ticks.size(), 1u);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ActionWindowTest, KillingAnUnknownTimerLogsAndChangesNothing) {
  TickRecorder recorder;
  const uint32_t id = window.createTimer(10, &recorder);
  {
    LogCapture log;
    window.killTimer(id + 1);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lineAfterHeader(lines[0]),
              "PIM::PimActionWindow::killTimer() > ERR> Assertion failed");
  }
  {
    LogCapture log;
    window.killTimer(0);  // 0 is never live either
    EXPECT_EQ(log.messages(), (std::vector<std::string>{"Assertion failed", "Assertion failed"}));
  }
  // The live timer still ticks and can still be killed.
  ASSERT_TRUE(runUntil([&] { return recorder.ticksOf(id) >= 2; }));
  LogCapture log;
  window.killTimer(id);
  EXPECT_TRUE(log.lines().empty());
  window.killTimer(id);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Assertion failed"});
}

TEST_F(ActionWindowTest, ATimerOfNoIntervalLogsAndStillTicks) {
  TickRecorder recorder;
  LogCapture log;
  const uint32_t id = window.createTimer(0, &recorder);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lineAfterHeader(lines[0]),
            "PIM::PimActionWindow::createTimer() > ERR> Assertion failed");
  ASSERT_TRUE(runUntil([&] { return recorder.ticksOf(id) >= 2; }));
  window.killTimer(id);
}

TEST_F(ActionWindowTest, ATimerWithoutCallbackLogsAndItsTicksGoNowhere) {
  LogCapture log;
  const uint32_t id = window.createTimer(10, nullptr);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Assertion failed"});
  window.OnTimer(id);
  TickRecorder clock;
  const uint32_t tick = window.createTimer(10, &clock);
  ASSERT_TRUE(runUntil([&] { return clock.ticksOf(tick) >= 2; }));
  window.killTimer(id);
  window.killTimer(tick);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Assertion failed"});
}

TEST(ActionWindow, IdentifiersAreNeverZeroNorThoseOfLiveTimers) {
  PimActionWindow window;  // not started: the table works alone
  TickRecorder recorder;
  LogCapture log;
  std::set<uint32_t> live;
  for (int i = 0; i < 50; ++i) {
    const uint32_t id = window.createTimer(1000, &recorder);
    EXPECT_NE(id, 0u);
    EXPECT_TRUE(live.insert(id).second) << id;
    if (i % 3 == 0) {
      window.killTimer(*live.begin());
      live.erase(live.begin());
    }
  }
  for (uint32_t id : live) window.OnTimer(id);
  EXPECT_EQ(recorder.ticks.size(), live.size());
  EXPECT_TRUE(log.lines().empty());
}

TEST(ActionWindow, DestroyingTheWindowEndsItsTimers) {
  TickRecorder recorder;
  {
    PimActionWindow window;
    ASSERT_TRUE(window.start());
    window.createTimer(10, &recorder);
    window.createTimer(10, &recorder);
    ASSERT_TRUE(window.loop()->runUntil([&] { return recorder.ticks.size() >= 2; }, kPatience));
  }
  const size_t ticks = recorder.ticks.size();
  // A fresh window on the same thread receives nothing of the old one's.
  PimActionWindow next;
  ASSERT_TRUE(next.start());
  TickRecorder clock;
  const uint32_t id = next.createTimer(10, &clock);
  ASSERT_TRUE(next.loop()->runUntil([&] { return clock.ticksOf(id) >= 3; }, kPatience));
  EXPECT_EQ(recorder.ticks.size(), ticks);
}

// The holder's window, started the way the module starts it, takes the
// posted click.
TEST(ActionWindow, TheHoldersWindowTakesClicks) {
  PimActionWindow& window = OutlookApp::instance()->actionWindow();
  ASSERT_TRUE(window.start());
  int captures = 0;
  window.setCaptureAction([&] { ++captures; });
  EXPECT_TRUE(window.postMessage(kButtonPressedMessage, kButtonCapture, 0));
  EXPECT_TRUE(window.loop()->runUntil([&] { return captures == 1; }, kPatience));
  window.setCaptureAction(nullptr);
}

}  // namespace
}  // namespace PIM
