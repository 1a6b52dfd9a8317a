#include <windows.h>

#include <gtest/gtest.h>

#include <thread>

#include "platform/message_loop.h"

namespace PIM {
namespace {

struct Counter : public IMessageHandler {
  void onLoopTimer(uint32_t) override { ++ticks; }
  intptr_t onLoopMessage(uint32_t, uintptr_t wParam, intptr_t) override {
    ++messages;
    return static_cast<intptr_t>(wParam) * 2;
  }
  int ticks = 0;
  int messages = 0;
};

TEST(MessageLoopWin32, IsAMessageOnlyWindowOfTheCreatingThread) {
  Counter counter;
  auto loop = MessageLoop::create(&counter);
  ASSERT_NE(loop, nullptr);
  HWND window = static_cast<HWND>(loop->nativeHandle());
  ASSERT_TRUE(IsWindow(window));
  EXPECT_EQ(FindWindowExW(HWND_MESSAGE, nullptr, nullptr, L"CorvelBrisaPimMessageWindow"), window);
  EXPECT_FALSE(IsWindowVisible(window));
  EXPECT_EQ(GetWindowThreadProcessId(window, nullptr), GetCurrentThreadId());

  // Sent messages of our range reach the handler and carry its result.
  EXPECT_EQ(SendMessageW(window, 0x401, 21, 0), 42);
  EXPECT_EQ(counter.messages, 1);

  // A WM_TIMER of the window's own is a tick, whoever drives the queue.
  ASSERT_TRUE(loop->setTimer(77, 10));
  MSG msg;
  while (counter.ticks == 0 && GetMessageW(&msg, nullptr, 0, 0) > 0) DispatchMessageW(&msg);
  EXPECT_EQ(counter.ticks, 1);

  loop.reset();
  EXPECT_FALSE(IsWindow(window));
}

TEST(MessageLoopWin32, DestroyedOffItsThreadTheWindowIsClosedByItsOwner) {
  Counter counter;
  auto loop = MessageLoop::create(&counter);
  ASSERT_NE(loop, nullptr);
  HWND window = static_cast<HWND>(loop->nativeHandle());
  std::thread([&] { loop.reset(); }).join();
  // The handler is no longer called: the window only waits for its close.
  PostMessageW(window, 0x401, 1, 0);
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
  EXPECT_FALSE(IsWindow(window));
  EXPECT_EQ(counter.messages, 0);
}

TEST(MessageLoopWin32, RunLeavesAQuitMessageToTheOutermostLoop) {
  Counter counter;
  auto loop = MessageLoop::create(&counter);
  ASSERT_NE(loop, nullptr);
  PostQuitMessage(3);
  loop->run();
  MSG msg;
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
  EXPECT_EQ(msg.wParam, 3u);
}

}  // namespace
}  // namespace PIM
