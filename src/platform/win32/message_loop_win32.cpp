// The hidden window on Windows: a message-only window of the thread that
// creates it. Its timers are window timers without a timer procedure, so
// ticks arrive as WM_TIMER through whatever loop serves the thread (the
// host's, a modal dialog's, or run() here).

#include <windows.h>

#include <atomic>
#include <mutex>

#include "platform/message_loop.h"
#include "platform/win32/own_module.h"

namespace PIM {
namespace {

constexpr wchar_t kWindowName[] = L"CorvelBrisaPimMessageWindow";
constexpr wchar_t kClassName[] = L"FerrantMessageWindow";

// Registering the class and creating a window, or destroying one and
// unregistering the class, happen as one step so that two threads cannot
// unregister the class between another's registration and creation.
std::mutex& classLock() {
  static std::mutex lock;
  return lock;
}

LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

class Win32MessageLoop final : public MessageLoop {
 public:
  Win32MessageLoop(IMessageHandler* handler, HWND window)
      : handler_(handler), window_(window), owner_(GetCurrentThreadId()) {
    SetWindowLongPtrW(window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  }

  ~Win32MessageLoop() override {
    SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
    if (!onOwner()) {
      // Only the owning thread can destroy the window: have it closed there.
      PostMessageW(window_, WM_CLOSE, 0, 0);
      return;
    }
    std::lock_guard<std::mutex> lock(classLock());
    DestroyWindow(window_);
    // Fails while other windows of the class live; the last one succeeds.
    UnregisterClassW(kClassName, ownModule());
  }

  bool setTimer(uint32_t timerId, uint32_t intervalMs) override {
    if (!onOwner()) return false;
    return SetTimer(window_, timerId, intervalMs, nullptr) != 0;
  }

  bool killTimer(uint32_t timerId) override {
    if (!onOwner()) return false;
    return KillTimer(window_, timerId) != 0;
  }

  bool post(uint32_t message, uintptr_t wParam, intptr_t lParam) override {
    if (message < kFirstUserMessage) return false;
    return PostMessageW(window_, message, wParam, lParam) != 0;
  }

  void quit() override {
    quit_ = true;
    // Wakes a loop waiting for input; DefWindowProc answers it.
    PostMessageW(window_, WM_NULL, 0, 0);
  }

  void run() override {
    if (!onOwner()) return;
    MSG msg;
    while (!quit_.exchange(false)) {
      const BOOL got = GetMessageW(&msg, nullptr, 0, 0);
      if (got == -1) return;
      if (got == 0) {
        // WM_QUIT belongs to the outermost loop: put it back for that one.
        PostQuitMessage(static_cast<int>(msg.wParam));
        return;
      }
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
  }

  bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) override {
    if (!onOwner()) return false;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
      if (done && done()) return true;
      if (quit_.exchange(false)) return false;
      bool quitMessage = false;
      if (deliverOne(&quitMessage)) continue;
      if (quitMessage) return false;
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return done && done();
      // Wakes for posted messages and for timers that fall due.
      MsgWaitForMultipleObjectsEx(0, nullptr, static_cast<DWORD>(left.count()), QS_ALLINPUT,
                                  MWMO_INPUTAVAILABLE);
    }
  }

  size_t processPending() override {
    if (!onOwner()) return 0;
    size_t delivered = 0;
    bool quitMessage = false;
    while (deliverOne(&quitMessage)) ++delivered;
    return delivered;
  }

  void* nativeHandle() const override { return window_; }

  LRESULT handle(UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_TIMER) {
      handler_->onLoopTimer(static_cast<uint32_t>(wParam));
      return 0;
    }
    if (message >= kFirstUserMessage) {
      return handler_->onLoopMessage(message, wParam, lParam);
    }
    return DefWindowProcW(window_, message, wParam, lParam);
  }

 private:
  bool onOwner() const { return GetCurrentThreadId() == owner_; }

  // Dispatches one message of the thread's queue (WM_TIMER included once a
  // timer is due); false when the queue is empty or holds WM_QUIT, which is
  // left for the outermost loop.
  bool deliverOne(bool* quitMessage) {
    MSG msg;
    if (!PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) return false;
    if (msg.message == WM_QUIT) {
      PostQuitMessage(static_cast<int>(msg.wParam));
      *quitMessage = true;
      return false;
    }
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
    return true;
  }

  IMessageHandler* const handler_;
  const HWND window_;
  const DWORD owner_;
  std::atomic<bool> quit_{false};
};

LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  // Null while the window is being created and destroyed.
  auto* loop = reinterpret_cast<Win32MessageLoop*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (!loop) return DefWindowProcW(window, message, wParam, lParam);
  return loop->handle(message, wParam, lParam);
}

}  // namespace

std::unique_ptr<MessageLoop> MessageLoop::create(IMessageHandler* handler) {
  if (!handler) return nullptr;
  const HINSTANCE module = ownModule();
  std::lock_guard<std::mutex> lock(classLock());
  // No class style, cursor, background or icon: the window is never shown.
  WNDCLASSEXW windowClass = {};
  windowClass.cbSize = sizeof(windowClass);
  windowClass.lpfnWndProc = windowProc;
  windowClass.hInstance = module;
  windowClass.lpszClassName = kClassName;
  if (!RegisterClassExW(&windowClass) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
    return nullptr;
  }
  HWND window = CreateWindowExW(0, kClassName, kWindowName, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                module, nullptr);
  if (!window) return nullptr;
  return std::make_unique<Win32MessageLoop>(handler, window);
}

}  // namespace PIM
