// The per-thread record of which functions are running, for log headers and
// the crash report's stack trace.
//
// Every function that may log opens with PIM_ENTRY("PIM::name"); the record
// lives in the function's frame and is popped on every way out, exceptions
// included. Entry and exit cost one thread-local read and one write.
#pragma once

#include <string>

namespace PIM {

class ThreadLocalSlot;

struct StackEntry {
  StackEntry(const char* file, int line, const char* function);
  ~StackEntry();
  StackEntry(const StackEntry&) = delete;
  StackEntry& operator=(const StackEntry&) = delete;

  const char* file;
  int line;
  const char* function;
  StackEntry* caller = nullptr;
  int depth = 0;
};

class StackLogger {
 public:
  // Allocates the thread-local slot (module start, after
  // DebugLogger::start) and frees it (module unload). Without a slot every
  // operation does nothing.
  static void initialise();
  static void shutdown();

  static void push(StackEntry* entry);
  static void pop();
  static const StackEntry* top();

  // "Stack trace for thread N" and one " [depth] file(line) : in function()"
  // line per record, top first; empty without a slot.
  static std::string stackTrace();

 private:
  static ThreadLocalSlot* slot_;
};

}  // namespace PIM

#define PIM_ENTRY(name) ::PIM::StackEntry pimEntry_(__FILE__, __LINE__, name)
