// A hidden window with timers and posted messages, owned by one thread.
//
// On Windows it is a message-only window: its timers are window timers
// (WM_TIMER) and posted messages go through the thread's message queue, so
// whatever loop serves that thread (the host's, a modal dialog's, or run()
// below) delivers them. Elsewhere it is a small event loop of its own that
// delivers on the owning thread whenever that thread runs it.
//
//   class Handler : public IMessageHandler { ... };
//   auto loop = MessageLoop::create(&handler);   // on the owning thread
//   loop->setTimer(7, 250);                      // onLoopTimer(7) every 250 ms
//   loop->post(kFirstUserMessage + 1, 9001, 0);  // from any thread
//   loop->run();                                 // until quit()
//
// Threads: create, setTimer, killTimer, run, runUntil, processPending and
// the destructor belong to the thread that called create(); off it they do
// nothing and answer false or 0. post() and quit() may be called from any
// thread while the loop exists (not from a signal handler: they take a lock).
// The handler is called only on the owning thread, and may set and kill
// timers and run a nested loop from inside a call.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace PIM {

// WM_USER: posted messages are numbered from here up, below is the window
// system's own.
inline constexpr uint32_t kFirstUserMessage = 0x400;

// Receives what a MessageLoop delivers, always on the loop's thread.
class IMessageHandler {
 public:
  // The timer `timerId` is due (WM_TIMER).
  virtual void onLoopTimer(uint32_t timerId) = 0;
  // A posted message; the result is the window procedure's.
  virtual intptr_t onLoopMessage(uint32_t message, uintptr_t wParam, intptr_t lParam) = 0;

 protected:
  ~IMessageHandler() = default;
};

class MessageLoop {
 public:
  // Makes the hidden window owned by the calling thread; null when the
  // system refuses one. `handler` is not owned and must outlive the loop.
  static std::unique_ptr<MessageLoop> create(IMessageHandler* handler);

  // Destroys the window, which ends its timers; messages still queued are
  // dropped.
  virtual ~MessageLoop() = default;
  MessageLoop(const MessageLoop&) = delete;
  MessageLoop& operator=(const MessageLoop&) = delete;

  // Arms timer `timerId` to fire every `intervalMs` from now, replacing a
  // timer of that identifier. Intervals below the window system's minimum
  // (10 ms) are raised to it. A timer that falls due several times while the
  // thread is busy fires once.
  virtual bool setTimer(uint32_t timerId, uint32_t intervalMs) = 0;
  // Stops timer `timerId`; false when there is none.
  virtual bool killTimer(uint32_t timerId) = 0;

  // Queues `message` (kFirstUserMessage or above; false otherwise) for
  // onLoopMessage and returns at once. Messages arrive in the order posted,
  // before any timer that is due at the same time.
  virtual bool post(uint32_t message, uintptr_t wParam, intptr_t lParam) = 0;

  // Makes the innermost run()/runUntil() of the owning thread return; if
  // none runs, the next one returns at once.
  virtual void quit() = 0;

  // Delivers messages and timers until quit().
  virtual void run() = 0;
  // Delivers messages and timers until `done` answers true (asked before
  // each wait and after each delivery; may be empty), quit() or `timeout`;
  // true when `done` was seen to hold.
  virtual bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) = 0;
  // Delivers every message queued and every timer due, then returns the
  // number delivered without waiting.
  virtual size_t processPending() = 0;

  // The HWND on Windows, null elsewhere.
  virtual void* nativeHandle() const = 0;

 protected:
  MessageLoop() = default;
};

}  // namespace PIM
