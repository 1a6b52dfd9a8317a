// The per-thread record of which functions are running, for log headers and
// the crash report's stack trace.
//
// Every function that may log opens with PIM_ENTRY("PIM::name"); the record
// lives in the function's frame and is popped on every way out, exceptions
// included. Entry and exit cost one thread-local read and one write, inline.
#pragma once

#include <atomic>
#include <string>

namespace PIM {

struct StackEntry;

namespace stack_detail {
#if defined(_WIN32)
// MinGW's thread_local is emulated (a lookup call per access): the system's
// TLS slot costs a third of it.
StackEntry* loadTop();
void storeTop(StackEntry* entry);
#else
// A thread_local of the executable itself: one load or store. The crash
// report reads it from a signal handler, where the initial-exec model needs
// no lookup that could allocate or lock.
extern constinit thread_local StackEntry* t_top __attribute__((tls_model("initial-exec")));
inline StackEntry* loadTop() { return t_top; }
inline void storeTop(StackEntry* entry) { t_top = entry; }
#endif
}  // namespace stack_detail

class StackLogger {
 public:
  // Switches the record on (module start, after DebugLogger::start) and off
  // (module unload); each empties the calling thread's stack. While off
  // every operation does nothing.
  static void initialise();
  static void shutdown();

  static void push(StackEntry* entry);
  static void pop();
  // pop() for the record on top, the common case: its own caller is the
  // next top, so the write need not wait for the read.
  static void leave(StackEntry* entry);
  static const StackEntry* top();

  // "Stack trace for thread N" and one " [depth] file(line) : in function()"
  // line per record, top first; empty while off.
  static std::string stackTrace();

 private:
  static void reportCorruption();
  static std::atomic<bool> enabled_;
};

struct StackEntry {
  StackEntry(const char* file, int line, const char* function)
      : file(file), line(line), function(function) {
    StackLogger::push(this);
  }
  ~StackEntry() { StackLogger::leave(this); }
  StackEntry(const StackEntry&) = delete;
  StackEntry& operator=(const StackEntry&) = delete;

  const char* file;
  int line;
  const char* function;
  StackEntry* caller = nullptr;
  int depth = 0;
};

inline void StackLogger::push(StackEntry* entry) {
  if (!enabled_.load(std::memory_order_relaxed)) return;
  StackEntry* caller = stack_detail::loadTop();
  entry->caller = caller;
  entry->depth = caller ? caller->depth + 1 : 0;
  stack_detail::storeTop(entry);
}

inline void StackLogger::pop() {
  if (!enabled_.load(std::memory_order_relaxed)) return;
  StackEntry* current = stack_detail::loadTop();
  if (!current) {
    reportCorruption();
    return;
  }
  stack_detail::storeTop(current->caller);
}

inline void StackLogger::leave(StackEntry* entry) {
  if (!enabled_.load(std::memory_order_relaxed)) return;
  if (stack_detail::loadTop() != entry) {
    pop();
    return;
  }
  stack_detail::storeTop(entry->caller);
}

}  // namespace PIM

#define PIM_ENTRY(name) ::PIM::StackEntry pimEntry_(__FILE__, __LINE__, name)
