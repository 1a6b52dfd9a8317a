// Notifications raised on another thread travel to the advising thread
// through a hidden message-only window of that thread. The copies wait in a
// mailbox; the window is woken once per batch of waiting copies (a thread's
// queue holds at most 10,000 posted messages, and a large reload raises more).

#include <windows.h>

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "mapi/mapi_ptr.h"
#include "platform/win32/own_module.h"
#include "store/notification_copy.h"
#include "store/thread_sink.h"

namespace PIM::store {
namespace {

constexpr wchar_t kClassName[] = L"FerrantAdviseSinkWindow";
constexpr UINT kWakeMessage = WM_USER + 1;

struct Delivery {
  const void* via = nullptr;  // the wrapper that took it
  ComPtr<IMAPIAdviseSink> target;
  ULONG count = 0;
  MapiBuffer<NOTIFICATION> notifications;
};

// What waits for one advising thread.
struct Mailbox {
  std::mutex lock;        // guards window and queue
  HWND window = nullptr;  // null once the window is gone: posts are dropped
  std::deque<Delivery> queue;

  // The window is gone: later copies are dropped, and those waiting are
  // handed back, to be let go by the caller outside the lock.
  std::deque<Delivery> close() {
    std::lock_guard<std::mutex> guard(lock);
    window = nullptr;
    return std::exchange(queue, {});
  }
};

// The advising threads' mailboxes by thread id. Never destroyed: copies that
// still wait at process exit are not worth running destructors for.
struct Registry {
  std::mutex lock;
  std::map<DWORD, std::shared_ptr<Mailbox>> threads;
};
Registry& registry() {
  static Registry* const instance = new Registry;
  return *instance;
}

LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

void deliverWaiting(Mailbox& mailbox) {
  // One at a time, so that a sink that pumps messages inside OnNotify keeps
  // the order of what follows.
  for (;;) {
    Delivery next;
    {
      std::lock_guard<std::mutex> guard(mailbox.lock);
      if (mailbox.queue.empty()) return;
      next = std::move(mailbox.queue.front());
      mailbox.queue.pop_front();
    }
    next.target->OnNotify(next.count, next.notifications.get());
  }
}

LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  auto* mailbox = reinterpret_cast<Mailbox*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (mailbox && message == kWakeMessage) {
    deliverWaiting(*mailbox);
    return 0;
  }
  if (mailbox && message == WM_NCDESTROY) {
    SetWindowLongPtrW(window, GWLP_USERDATA, 0);
    std::deque<Delivery> dropped = mailbox->close();
    Registry& r = registry();
    std::lock_guard<std::mutex> guard(r.lock);
    auto it = r.threads.find(GetCurrentThreadId());
    if (it != r.threads.end() && it->second.get() == mailbox) r.threads.erase(it);
  }
  return DefWindowProcW(window, message, wParam, lParam);
}

bool windowServesThisThread(HWND window) {
  return window && IsWindow(window) &&
         GetWindowThreadProcessId(window, nullptr) == GetCurrentThreadId();
}

// The calling thread's mailbox, with its window made on first use (or again
// when a thread of a reused id left one behind).
std::shared_ptr<Mailbox> mailboxOfThisThread() {
  Registry& r = registry();
  std::lock_guard<std::mutex> guard(r.lock);
  const DWORD thread = GetCurrentThreadId();
  auto it = r.threads.find(thread);
  if (it != r.threads.end()) {
    std::lock_guard<std::mutex> boxGuard(it->second->lock);
    if (windowServesThisThread(it->second->window)) return it->second;
  }
  const HINSTANCE module = ownModule();
  WNDCLASSEXW windowClass = {};
  windowClass.cbSize = sizeof(windowClass);
  windowClass.lpfnWndProc = windowProc;
  windowClass.hInstance = module;
  windowClass.lpszClassName = kClassName;
  if (!RegisterClassExW(&windowClass) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS)
    return nullptr;
  HWND window =
      CreateWindowExW(0, kClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, module, nullptr);
  if (!window) return nullptr;
  auto mailbox = std::make_shared<Mailbox>();
  mailbox->window = window;
  SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(mailbox.get()));
  r.threads[thread] = mailbox;
  return mailbox;
}

class ThreadSink final : public IMAPIAdviseSink {
 public:
  ThreadSink(IMAPIAdviseSink* target, std::shared_ptr<Mailbox> mailbox)
      : target_(ComPtr<IMAPIAdviseSink>::share(target)),
        mailbox_(std::move(mailbox)),
        owner_(GetCurrentThreadId()) {}
  ~ThreadSink() {
    // Nobody holds this wrapper any more, so nobody waits for what it
    // carried; and copies left for a thread that ended without its window
    // being told would otherwise wait for ever.
    std::deque<Delivery> dropped;
    std::lock_guard<std::mutex> guard(mailbox_->lock);
    if (mailbox_->window && !IsWindow(mailbox_->window)) mailbox_->window = nullptr;
    auto& queue = mailbox_->queue;
    for (auto it = queue.begin(); it != queue.end();) {
      if (!mailbox_->window || it->via == this) {
        dropped.push_back(std::move(*it));
        it = queue.erase(it);
      } else {
        ++it;
      }
    }
    // `dropped` goes after the lock: its references are let go outside it.
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_INVALIDARG;
    if (iid == IID_IUnknown || iid == IID_IMAPIAdviseSink) {
      *out = static_cast<IMAPIAdviseSink*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }

  ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override {
    if (GetCurrentThreadId() == owner_) return target_->OnNotify(count, notifications);
    Delivery delivery;
    // A copy that cannot be made is a notification lost, as when the
    // advising thread is gone.
    if (FAILED(copyNotifications(count, notifications, delivery.notifications.put()))) return 0;
    delivery.via = this;
    delivery.target = ComPtr<IMAPIAdviseSink>::share(target_.get());
    delivery.count = count;
    HWND window = nullptr;
    bool wake = false;
    {
      std::lock_guard<std::mutex> guard(mailbox_->lock);
      if (!mailbox_->window) return 0;
      window = mailbox_->window;
      wake = mailbox_->queue.empty();
      mailbox_->queue.push_back(std::move(delivery));
    }
    // Waiting copies already have a wake-up on its way, unless the thread
    // ended without its window being told.
    const bool alive = wake ? PostMessageW(window, kWakeMessage, 0, 0) != 0 : IsWindow(window);
    if (!alive) mailbox_->close();
    return 0;
  }

 private:
  std::atomic<ULONG> refs_{1};
  ComPtr<IMAPIAdviseSink> target_;
  std::shared_ptr<Mailbox> mailbox_;
  const DWORD owner_;
};

}  // namespace

HRESULT makeThreadSink(IMAPIAdviseSink* target, IMAPIAdviseSink** out) {
  std::shared_ptr<Mailbox> mailbox = mailboxOfThisThread();
  if (!mailbox) return MAPI_E_CALL_FAILED;
  *out = new ThreadSink(target, std::move(mailbox));
  return S_OK;
}

}  // namespace PIM::store
