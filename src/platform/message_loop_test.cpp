#include "platform/message_loop.h"

#include <gtest/gtest.h>

#include <map>
#include <thread>
#include <utility>
#include <vector>

namespace PIM {
namespace {

using std::chrono::milliseconds;

// Long enough for any tick of a 10 ms timer on a loaded machine; the tests
// wait for what they expect and only reach this when it never comes.
constexpr milliseconds kPatience{10000};

constexpr uint32_t kMessage = kFirstUserMessage + 7;

struct Delivery {
  uint32_t message = 0;  // 0 for a timer
  uintptr_t wParam = 0;  // the timer identifier for a timer
  intptr_t lParam = 0;
  std::thread::id thread;

  bool operator==(const Delivery& o) const {
    return message == o.message && wParam == o.wParam && lParam == o.lParam && thread == o.thread;
  }
};

// Notes every delivery; the hooks let a test act from inside one.
class Recorder : public IMessageHandler {
 public:
  void onLoopTimer(uint32_t timerId) override {
    deliveries.push_back({0, timerId, 0, std::this_thread::get_id()});
    if (onTimer) onTimer(timerId);
  }
  intptr_t onLoopMessage(uint32_t message, uintptr_t wParam, intptr_t lParam) override {
    deliveries.push_back({message, wParam, lParam, std::this_thread::get_id()});
    return 0;
  }

  int ticksOf(uint32_t timerId) const {
    int n = 0;
    for (const auto& d : deliveries) n += d.message == 0 && d.wParam == timerId;
    return n;
  }
  int messages() const {
    int n = 0;
    for (const auto& d : deliveries) n += d.message != 0;
    return n;
  }

  std::vector<Delivery> deliveries;
  std::function<void(uint32_t)> onTimer;
};

class MessageLoopTest : public ::testing::Test {
 protected:
  void SetUp() override {
    loop = MessageLoop::create(&recorder);
    ASSERT_NE(loop, nullptr);
  }

  bool runUntilTicks(uint32_t timerId, int ticks) {
    return loop->runUntil([&] { return recorder.ticksOf(timerId) >= ticks; }, kPatience);
  }

  Recorder recorder;
  std::unique_ptr<MessageLoop> loop;
  const std::thread::id self = std::this_thread::get_id();
};

TEST_F(MessageLoopTest, PostedMessagesArriveInOrderOnlyWhenTheOwnerRunsTheLoop) {
  EXPECT_TRUE(loop->post(kMessage, 1, -1));
  EXPECT_TRUE(loop->post(kMessage + 1, 2, 20));
  EXPECT_TRUE(recorder.deliveries.empty());

  EXPECT_EQ(loop->processPending(), 2u);
  EXPECT_EQ(recorder.deliveries,
            (std::vector<Delivery>{{kMessage, 1, -1, self}, {kMessage + 1, 2, 20, self}}));
  EXPECT_EQ(loop->processPending(), 0u);

  // The window system's own message numbers are not for posting.
  EXPECT_FALSE(loop->post(kFirstUserMessage - 1, 0, 0));
  EXPECT_EQ(loop->processPending(), 0u);
}

TEST_F(MessageLoopTest, PostsFromOtherThreadsAllArriveOnTheOwnerInEachSendersOrder) {
  constexpr int kThreads = 4;
  constexpr int kEach = 200;
  std::vector<std::thread> senders;
  for (int t = 0; t < kThreads; ++t) {
    senders.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) loop->post(kMessage + t, static_cast<uintptr_t>(i), t);
    });
  }
  EXPECT_TRUE(loop->runUntil([&] { return recorder.messages() == kThreads * kEach; }, kPatience));
  for (auto& s : senders) s.join();
  EXPECT_EQ(loop->processPending(), 0u);

  std::map<intptr_t, uintptr_t> nextOf;
  for (const auto& d : recorder.deliveries) {
    ASSERT_EQ(d.thread, self);
    ASSERT_EQ(d.message, kMessage + static_cast<uint32_t>(d.lParam));
    EXPECT_EQ(d.wParam, nextOf[d.lParam]++) << "sender " << d.lParam;
  }
  EXPECT_EQ(nextOf.size(), static_cast<size_t>(kThreads));
}

TEST_F(MessageLoopTest, TimersTickOnTheOwnerUntilKilled) {
  ASSERT_TRUE(loop->setTimer(3, 5));
  ASSERT_TRUE(loop->setTimer(4, 1));
  ASSERT_TRUE(runUntilTicks(3, 3));
  ASSERT_TRUE(runUntilTicks(4, 3));
  for (const auto& d : recorder.deliveries) EXPECT_EQ(d.thread, self);

  EXPECT_TRUE(loop->killTimer(3));
  EXPECT_FALSE(loop->killTimer(3));
  EXPECT_FALSE(loop->killTimer(99));
  const int ticksAtKill = recorder.ticksOf(3);
  // Timer 4 keeps time: several of its ticks pass and 3 stays silent.
  const int more = recorder.ticksOf(4) + 3;
  ASSERT_TRUE(runUntilTicks(4, more));
  EXPECT_EQ(recorder.ticksOf(3), ticksAtKill);
}

TEST_F(MessageLoopTest, SettingAnArmedTimerAgainReplacesIt) {
  ASSERT_TRUE(loop->setTimer(8, 3600 * 1000));
  ASSERT_TRUE(loop->setTimer(8, 10));
  EXPECT_TRUE(runUntilTicks(8, 2));
}

TEST_F(MessageLoopTest, HandlerMayKillItsTimerAndPostFromInsideATick) {
  recorder.onTimer = [&](uint32_t timerId) {
    loop->killTimer(timerId);  // a one-shot timer
    loop->post(kMessage, timerId, 0);
  };
  ASSERT_TRUE(loop->setTimer(5, 10));
  ASSERT_TRUE(loop->setTimer(6, 10));
  ASSERT_TRUE(loop->runUntil([&] { return recorder.messages() == 2; }, kPatience));
  EXPECT_EQ(recorder.ticksOf(5), 1);
  EXPECT_EQ(recorder.ticksOf(6), 1);
  EXPECT_FALSE(loop->killTimer(5));
  EXPECT_FALSE(loop->killTimer(6));
}

TEST_F(MessageLoopTest, QuitEndsRunFromAnotherThreadOrBeforeItStarts) {
  loop->quit();
  loop->run();  // returns at once: the quit was waiting

  // The quit may overtake the message posted before it; whatever run() left
  // is still delivered afterwards.

  std::thread quitter([&] {
    loop->post(kMessage, 42, 0);
    loop->quit();
  });
  loop->run();
  quitter.join();
  loop->processPending();
  EXPECT_EQ(recorder.deliveries, (std::vector<Delivery>{{kMessage, 42, 0, self}}));

  // A quit is used up by the loop it ended.
  EXPECT_FALSE(loop->runUntil({}, milliseconds(1)));
}

TEST_F(MessageLoopTest, RunUntilStopsAtItsTimeoutWhenNothingHappens) {
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(loop->runUntil([] { return false; }, milliseconds(30)));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(30));
  EXPECT_TRUE(recorder.deliveries.empty());
  EXPECT_TRUE(loop->runUntil([] { return true; }, milliseconds(0)));
}

TEST_F(MessageLoopTest, OtherThreadsCannotArmTimersOrRunTheLoop) {
  loop->post(kMessage, 1, 0);
  bool armed = true;
  bool killed = true;
  size_t delivered = 99;
  bool ran = true;
  std::thread([&] {
    armed = loop->setTimer(1, 10);
    killed = loop->killTimer(1);
    delivered = loop->processPending();
    ran = loop->runUntil([] { return true; }, milliseconds(0));
  }).join();
  EXPECT_FALSE(armed);
  EXPECT_FALSE(killed);
  EXPECT_EQ(delivered, 0u);
  EXPECT_FALSE(ran);
  EXPECT_EQ(loop->processPending(), 1u);
}

TEST_F(MessageLoopTest, LoopsOfTwoThreadsKeepTheirOwnDeliveries) {
  Recorder otherRecorder;
  std::thread::id otherThread;
  bool otherTicked = false;
  std::thread other([&] {
    otherThread = std::this_thread::get_id();
    auto otherLoop = MessageLoop::create(&otherRecorder);
    ASSERT_NE(otherLoop, nullptr);
    otherLoop->setTimer(1, 10);
    otherTicked = otherLoop->runUntil([&] { return otherRecorder.ticksOf(1) >= 2; }, kPatience);
  });
  ASSERT_TRUE(loop->setTimer(1, 10));
  EXPECT_TRUE(runUntilTicks(1, 2));
  other.join();
  EXPECT_TRUE(otherTicked);
  for (const auto& d : recorder.deliveries) EXPECT_EQ(d.thread, self);
  for (const auto& d : otherRecorder.deliveries) EXPECT_EQ(d.thread, otherThread);
}

TEST(MessageLoopCreate, NeedsAHandler) { EXPECT_EQ(MessageLoop::create(nullptr), nullptr); }

}  // namespace
}  // namespace PIM
