// The crash report: what the log and the user get when the process dies of a
// fault nobody handled. DebugLogger::start installs reportCrash as the
// platform's handler of fatal faults and DebugLogger::stop removes it.
#pragma once

#include <cstdint>

#include "platform/env.h"

namespace PIM {

// Writes the exception line, one line per register group and the crashing
// thread's stack trace into the log, then shows the user the one fatal
// message. Runs on the crashing thread; returns so that the platform can hand
// the fault on.
void reportCrash(const CrashInfo& info);

// The report's name of a Windows exception code; "Unknown exception" for
// codes it does not know.
const char* exceptionName(uint32_t code);

}  // namespace PIM
