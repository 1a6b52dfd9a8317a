// A program the crash tests start and watch die. It opens the log with the
// given folder standing in for the local application-data folder, logs the
// marker as an information line and then faults as asked:
//
//   ferrant_crash_child <folder> <null-write|stack-overflow|divide-by-zero|abort> <marker>
//
// Exit code 2 for bad arguments, 3 if the fault did not end the process.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "core/debug_logger.h"
#include "platform/env.h"

namespace {

constexpr int kExitUsage = 2;
constexpr int kExitSurvived = 3;

class FolderEnv : public PIM::EnvWrapper {
 public:
  explicit FolderEnv(std::u16string folder)
      : EnvWrapper(PIM::Env::platformDefault()), folder_(std::move(folder)) {}
  std::u16string specialFolder(int) override { return folder_; }

 private:
  std::u16string folder_;
};

// Volatile so that the compiler neither sees the faults coming nor folds
// them away.
int* volatile g_nowhere = nullptr;
volatile int g_zero = 0;
// The compiler turns 1 / x into a comparison; any other dividend divides.
volatile int g_dividend = 7;
volatile unsigned g_depthLimit = ~0u;

// Real faults, not the undefined-behaviour sanitizer's reports of them.
#if defined(__GNUC__)
#define FERRANT_REAL_FAULT __attribute__((no_sanitize("undefined")))
#else
#define FERRANT_REAL_FAULT
#endif

FERRANT_REAL_FAULT void writeThroughNull() {
  PIM_ENTRY("ferrant::writeThroughNull");
  *g_nowhere = 1;
}

// No record per level: the stack trace would be as deep as the stack.
unsigned recurse(unsigned depth) {
  volatile char frame[4096];
  frame[0] = char(depth);
  if (depth >= g_depthLimit) return frame[0];
  return recurse(depth + 1) + frame[0];
}

void overflowStack() {
  PIM_ENTRY("ferrant::overflowStack");
  std::printf("%u\n", recurse(0));
}

FERRANT_REAL_FAULT void divideByZero() {
  PIM_ENTRY("ferrant::divideByZero");
  std::printf("%d\n", g_dividend / g_zero);
}

void abortProcess() {
  PIM_ENTRY("ferrant::abortProcess");
  std::abort();
}

int run(const char* mode, const char* marker) {
  PIM_ENTRY("ferrant::crashChildMain");
  PIM_LOG_MSG(marker);
  if (!std::strcmp(mode, "null-write")) {
    writeThroughNull();
  } else if (!std::strcmp(mode, "stack-overflow")) {
    overflowStack();
  } else if (!std::strcmp(mode, "divide-by-zero")) {
    divideByZero();
  } else if (!std::strcmp(mode, "abort")) {
    abortProcess();
  } else {
    std::fprintf(stderr, "ferrant_crash_child: unknown mode '%s'\n", mode);
    return kExitUsage;
  }
  return kExitSurvived;
}

}  // namespace

#if defined(__SANITIZE_THREAD__)
#define FERRANT_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define FERRANT_THREAD_SANITIZER 1
#endif
#endif
#ifdef FERRANT_THREAD_SANITIZER
// The report allocates inside the signal handler on purpose: the process is
// dying and only the log matters. ThreadSanitizer would stop the child at the
// first allocation, before the report is written.
extern "C" const char* __tsan_default_options() { return "report_signal_unsafe=0"; }
#endif

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: ferrant_crash_child <folder> <mode> <marker>\n", stderr);
    return kExitUsage;
  }
  FolderEnv env(std::filesystem::path(argv[1]).u16string());
  PIM::setEnv(&env);
  PIM::DebugLogger::instance().start();
  PIM::StackLogger::initialise();
  int result = run(argv[2], argv[3]);
  PIM::StackLogger::shutdown();
  PIM::DebugLogger::instance().stop();
  PIM::setEnv(nullptr);
  return result;
}
