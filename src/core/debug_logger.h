// The diagnostic log, "CVTK_DBG.log" in the logs folder: one append-only file
// of whole lines, each with a local-time prefix, flushed line by line so that
// it is complete when the process dies.
//
//   PIM_ENTRY("PIM::getDataFolder");
//   PIM_LOG_ERR("Could not create path: " << toUtf8(path));
//
// writes "[Mar 05 14:02:11.042] src/core/utils.cpp(617) : PIM::getDataFolder()
// > ERR> Could not create path: ..." (one line). UTF-16 values go through
// toUtf8. PIM_ASSERT logs "Assertion failed" and carries on.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>

#include "core/stack_logger.h"
#include "platform/critical_section.h"

namespace PIM {

// Scope lock over a critical section; a null section is not left.
class EntryGuard {
 public:
  explicit EntryGuard(CriticalSection* section) : section_(section) {
    if (section_) section_->enter();
  }
  ~EntryGuard() {
    if (section_) section_->leave();
  }
  EntryGuard(const EntryGuard&) = delete;
  EntryGuard& operator=(const EntryGuard&) = delete;

 private:
  CriticalSection* section_;
};

class DebugLogger {
 public:
  static DebugLogger& instance();

  // Module start, before anything else logs and before the stack slot
  // (StackLogger::initialise): installs the crash report as the handler of
  // fatal faults, opens "CVTK_DBG.log" for appending in the logs folder (or
  // beside the host executable when there is none) and writes the three
  // opening lines. Starting again first stops.
  void start();
  // Module unload: puts back the fault handler the crash report replaced and
  // closes the file.
  void stop();

  // Writes one complete line with its time prefix. Lines from any thread
  // never interleave. Dropped when no log is open.
  void write(const std::string& line);

  // The path of the open log, empty when none is open.
  std::u16string path() const;

  // Tests: send lines to `sink` instead of the file; null stops that.
  void redirectForTesting(std::ostream* sink);

 private:
  DebugLogger() = default;
  std::string timePrefix();

  // lock_ guards stream_, sink_ and path_. started_ belongs to the module's
  // start and unload, which never race with each other.
  mutable CriticalSection lock_;
  std::unique_ptr<std::ostream> stream_;
  std::ostream* sink_ = nullptr;
  std::u16string path_;
  bool started_ = false;
};

// "file(line) : function() >" — the header of a line opened for a function.
void writeLogHeader(std::ostream& out, const char* file, int line, const char* function);

// Error lines written by the calling thread since it started: a capture run
// compares the count before and after to tell the user that something went
// wrong inside it (a rejected blob, a row skipped) without failing the run.
uint32_t errorLinesOnThisThread();
void countErrorLine();

}  // namespace PIM

#define PIM_LOG_LINE_(kind, message)                                         \
  do {                                                                       \
    ::std::ostringstream pimLine_;                                           \
    ::PIM::writeLogHeader(pimLine_, __FILE__, __LINE__, pimEntry_.function); \
    pimLine_ << kind << message;                                             \
    ::PIM::DebugLogger::instance().write(pimLine_.str());                    \
  } while (0)

#define PIM_LOG_ERR(message)          \
  do {                                \
    PIM_LOG_LINE_(" ERR> ", message); \
    ::PIM::countErrorLine();          \
  } while (0)
#define PIM_LOG_MSG(message) PIM_LOG_LINE_(" MSG> ", message)
#define PIM_ASSERT(condition)                          \
  do {                                                 \
    if (!(condition)) PIM_LOG_ERR("Assertion failed"); \
  } while (0)
