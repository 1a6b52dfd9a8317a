// The hidden window off Windows: an event loop of the owning thread. Posted
// messages wait in a queue under a mutex; timers live in a table that only
// the owning thread touches, so delivering needs no lock of its own.

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/message_loop.h"

namespace PIM {
namespace {

using Clock = std::chrono::steady_clock;

// USER_TIMER_MINIMUM: the shortest interval window timers keep.
constexpr std::chrono::milliseconds kMinimumInterval{10};

class PosixMessageLoop final : public MessageLoop {
 public:
  explicit PosixMessageLoop(IMessageHandler* handler)
      : handler_(handler), owner_(std::this_thread::get_id()) {}

  bool setTimer(uint32_t timerId, uint32_t intervalMs) override {
    if (!onOwner()) return false;
    const auto interval =
        std::max<Clock::duration>(std::chrono::milliseconds(intervalMs), kMinimumInterval);
    timers_[timerId] = Timer{interval, Clock::now() + interval};
    return true;
  }

  bool killTimer(uint32_t timerId) override {
    if (!onOwner()) return false;
    return timers_.erase(timerId) != 0;
  }

  bool post(uint32_t message, uintptr_t wParam, intptr_t lParam) override {
    if (message < kFirstUserMessage) return false;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      queue_.push_back(Posted{message, wParam, lParam});
    }
    wake_.notify_one();
    return true;
  }

  void quit() override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      quit_ = true;
    }
    wake_.notify_one();
  }

  void run() override { loop(nullptr, std::nullopt); }

  bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) override {
    return loop(done, Clock::now() + timeout);
  }

  size_t processPending() override {
    if (!onOwner()) return 0;
    size_t delivered = 0;
    while (deliverOne()) ++delivered;
    return delivered;
  }

  void* nativeHandle() const override { return nullptr; }

 private:
  struct Timer {
    Clock::duration interval;
    Clock::time_point due;
  };
  struct Posted {
    uint32_t message;
    uintptr_t wParam;
    intptr_t lParam;
  };

  bool onOwner() const { return std::this_thread::get_id() == owner_; }

  bool loop(const std::function<bool()>& done, std::optional<Clock::time_point> deadline) {
    if (!onOwner()) return false;
    for (;;) {
      if (done && done()) return true;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        if (quit_) {
          quit_ = false;
          return false;
        }
      }
      if (deliverOne()) continue;

      // Timers change only on this thread, so the next one due stays put
      // while we wait; only a post or a quit can come sooner.
      std::optional<Clock::time_point> wakeAt = deadline;
      for (const auto& [id, timer] : timers_) {
        if (!wakeAt || timer.due < *wakeAt) wakeAt = timer.due;
      }
      std::unique_lock<std::mutex> lock(mutex_);
      const auto ready = [this] { return quit_ || !queue_.empty(); };
      if (!wakeAt) {
        wake_.wait(lock, ready);
      } else if (!wake_.wait_until(lock, *wakeAt, ready) && deadline && Clock::now() >= *deadline) {
        lock.unlock();
        return done && done();
      }
    }
  }

  // One posted message, else the timer most overdue; false when nothing is
  // due. No lock is held while the handler runs, so it may post, set timers
  // or run a nested loop.
  bool deliverOne() {
    std::optional<Posted> posted;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (!queue_.empty()) {
        posted = queue_.front();
        queue_.pop_front();
      }
    }
    if (posted) {
      handler_->onLoopMessage(posted->message, posted->wParam, posted->lParam);
      return true;
    }

    const auto now = Clock::now();
    auto due = timers_.end();
    for (auto it = timers_.begin(); it != timers_.end(); ++it) {
      if (it->second.due <= now && (due == timers_.end() || it->second.due < due->second.due)) {
        due = it;
      }
    }
    if (due == timers_.end()) return false;
    // Ticks missed while the thread was busy are not made up for.
    due->second.due = now + due->second.interval;
    handler_->onLoopTimer(due->first);
    return true;
  }

  IMessageHandler* const handler_;
  const std::thread::id owner_;

  // Owning thread only.
  std::map<uint32_t, Timer> timers_;

  // mutex_ guards queue_ and quit_; wake_ is signalled when either changes.
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Posted> queue_;
  bool quit_ = false;
};

}  // namespace

std::unique_ptr<MessageLoop> MessageLoop::create(IMessageHandler* handler) {
  if (!handler) return nullptr;
  return std::make_unique<PosixMessageLoop>(handler);
}

}  // namespace PIM
