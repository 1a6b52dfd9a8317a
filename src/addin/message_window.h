// A hidden window that never shows: it receives timers and posted messages
// on the thread that started it and hands them to the subclass's handlers.
// On Windows it is a message-only window served by the host's message loop;
// elsewhere its loop() is run by whoever started it.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/message_loop.h"

namespace PIM {

class MessageWindow : protected IMessageHandler {
 public:
  MessageWindow();
  // Destroys the window, which ends its timers.
  virtual ~MessageWindow();
  MessageWindow(const MessageWindow&) = delete;
  MessageWindow& operator=(const MessageWindow&) = delete;

  // Creates the window on the calling thread, which then owns it: every tick
  // and message is handled there. True when the window exists; starting
  // again keeps the first window.
  bool start();
  bool started() const { return loop_ != nullptr; }

  // The window's loop, for hosts without one of their own and for tests;
  // null before start().
  MessageLoop* loop() const { return loop_.get(); }

  // Queues `message` for the window and returns at once; any thread may post
  // once start() has returned. False before start() or when the queue
  // refuses it.
  bool postMessage(uint32_t message, uintptr_t wParam, intptr_t lParam);

 protected:
  // The window's timers, by identifier; false before start().
  bool setWindowTimer(uint32_t timerId, uint32_t intervalMs);
  bool killWindowTimer(uint32_t timerId);

  // An empty message map: nothing is handled here.
  void onLoopTimer(uint32_t) override {}
  intptr_t onLoopMessage(uint32_t, uintptr_t, intptr_t) override { return 0; }

 private:
  std::unique_ptr<MessageLoop> loop_;
};

}  // namespace PIM
