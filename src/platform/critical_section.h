// The system's lock: re-entrant for the thread that holds it, like a Win32
// critical section. Taken through EntryGuard (core/debug_logger.h).
#pragma once

#include <mutex>

namespace PIM {

class CriticalSection {
 public:
  void enter() { mutex_.lock(); }
  bool tryEnter() { return mutex_.try_lock(); }
  void leave() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

}  // namespace PIM
