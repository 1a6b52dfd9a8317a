#include "core/crash_report.h"

#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <thread>

#include "core/debug_logger.h"
#include "core/stack_logger.h"
#include "platform/thread_local_slot.h"

namespace PIM {

namespace {

constexpr uint32_t kAccessViolation = 0xC0000005;

struct NamedException {
  uint32_t code;
  const char* name;
};

// The spelling of these texts is what support knows from old logs.
constexpr NamedException kExceptionNames[] = {
    {0x80000001, "Guard page"},
    {0x80000002, "Datatype misalignment"},
    {0x80000003, "Breakpoint"},
    {0x80000004, "Single step"},
    {0xC0000005, "Access violation"},
    {0xC0000006, "Attempt to load a page that is not present"},
    {0xC0000008, "Invalid handle"},
    {0xC000001D, "Illegal instruction"},
    {0xC0000025, "Non-continual exception has occurred"},
    {0xC0000026, "Invalid disposition"},
    {0xC000008C, "Array out of bounds exception"},
    {0xC000008D, "Floating point denormal operand"},
    {0xC000008E, "Floating point divide by zero"},
    {0xC000008F, "Inexact result"},
    {0xC0000090, "Invalid floating point operation"},
    {0xC0000091, "Floating point overflow"},
    {0xC0000092, "Floating point stack overflow/underflow"},
    {0xC0000093, "Floating point underflow"},
    {0xC0000094, "Integer divide by zero"},
    {0xC0000095, "Integer overflow"},
    {0xC0000096, "Attempt to execute a priveleged instruction"},
    {0xC00000FD, "Stack overflow"},
};

const char16_t kFatalCaption[] = u"Corvel Tarvik";
// Names another log file than the one written; support's instructions use
// this text as it is.
const char16_t kFatalText[] =
    u"There was an error that caused the Brisa PIM Outlook Plugin to fail.\n"
    u"Please send PIM_DBG.log to support.";

// Zero-filled hexadecimal of at least `digits` digits; wider values keep all
// of theirs.
std::string hex(uint64_t value, int digits, bool upperCase) {
  char buffer[24];
  std::snprintf(buffer, sizeof buffer, upperCase ? "%0*" PRIX64 : "%0*" PRIx64, digits, value);
  return buffer;
}

// A code address as the runtime prints a pointer: upper-case digits.
std::string pointerText(uint64_t address) { return "0x" + hex(address, 8, true); }

std::string exceptionLine(const CrashInfo& info) {
  if (info.code == kAccessViolation && info.parameters.size() >= 2) {
    const char* kind = info.parameters[0] == 0   ? " reading from "
                       : info.parameters[0] == 1 ? " writing to "
                                                 : " accessing ";
    return "Unhandled exception: Access Violation at " + pointerText(info.address) + kind + "0x" +
           hex(info.parameters[1], 8, false);
  }
  return std::string("Unhandled exception: ") + exceptionName(info.code) + "(0x" +
         hex(info.code, 8, false) + ")" + " at " + pointerText(info.address);
}

std::string registerLine(const CrashInfo::RegisterGroup& group, int digits) {
  std::string line = group.title;
  for (const auto& [name, value] : group.registers) {
    line += " " + name + "=0x" + hex(value, digits, false);
  }
  return line;
}

}  // namespace

const char* exceptionName(uint32_t code) {
  for (const auto& known : kExceptionNames) {
    if (known.code == code) return known.name;
  }
  return "Unknown exception";
}

void reportCrash(const CrashInfo& info) {
  // One report at a time. A thread that faults while another writes its
  // report waits for it and adds none: the first fault ends the process. A
  // fault inside the report itself is not reported again.
  static std::atomic<uint32_t> reporter{0};
  uint32_t self = currentThreadId();
  uint32_t busy = 0;
  if (!reporter.compare_exchange_strong(busy, self)) {
    while (busy != self && reporter.load() != 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return;
  }
  DebugLogger& log = DebugLogger::instance();
  log.write(exceptionLine(info));
  for (const auto& group : info.registerGroups) log.write(registerLine(group, info.registerDigits));
  log.write(StackLogger::stackTrace());
  env()->showFatalMessage(kFatalCaption, kFatalText);
  reporter = 0;
}

}  // namespace PIM
