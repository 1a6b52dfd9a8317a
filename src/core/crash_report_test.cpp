#include "core/crash_report.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "platform/env.h"
#include "platform/thread_local_slot.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using testing::LogCapture;
using testing::readFileBytes;
using testing::ScopedEnv;
using testing::TempDir;

const char kFatalMessage[] =
    "Corvel Tarvik: There was an error that caused the Brisa PIM Outlook Plugin to fail.\n"
    "Please send PIM_DBG.log to support.";

// Records the fatal message instead of showing it.
class MessageEnv : public EnvWrapper {
 public:
  MessageEnv() : EnvWrapper(Env::platformDefault()) {}
  void showFatalMessage(const std::u16string& caption, const std::u16string& text) override {
    shown.push_back(toUtf8(caption) + ": " + toUtf8(text));
  }
  std::vector<std::string> shown;
};

TEST(CrashReportTest, ExceptionNamesKeepTheirTexts) {
  const std::pair<uint32_t, const char*> names[] = {
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
      {0x40000015, "Unknown exception"},
      {0xE06D7363, "Unknown exception"},
      {0, "Unknown exception"},
  };
  for (const auto& [code, name] : names)
    EXPECT_STREQ(exceptionName(code), name) << std::hex << code;
}

std::vector<std::string> reportOf(const CrashInfo& info) {
  LogCapture log;
  MessageEnv env;
  ScopedEnv scoped(&env);
  reportCrash(info);
  EXPECT_EQ(env.shown, std::vector<std::string>{kFatalMessage});
  return log.lines();
}

CrashInfo accessViolation(uint64_t kind, uint64_t dataAddress) {
  CrashInfo info;
  info.code = 0xC0000005;
  info.address = 0x00401A2F;
  info.parameters = {kind, dataAddress};
  return info;
}

void crashInside(const CrashInfo& info, std::vector<std::string>& lines, int& line) {
  PIM_ENTRY("PIM::crashInside");
  line = __LINE__ - 1;
  lines = reportOf(info);
}

TEST(CrashReportTest, WriteAtZeroGivesTheAccessViolationLineRegistersAndStackTrace) {
  CrashInfo info = accessViolation(1, 0);
  info.registerGroups = {
      {" General registers: ", {{"AX", 0x12AB}, {"BX", 0}, {"CX", 0xFFFFFFFF}}},
      {" Control registers: ", {{"SP", 0x0012FF7C}, {"Flags", 0x246}}},
  };
  std::vector<std::string> lines;
  int line = 0;
  crashInside(info, lines, line);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "Unhandled exception: Access Violation at 0x00401A2F writing to 0x00000000",
                       " General registers:  AX=0x000012ab BX=0x00000000 CX=0xffffffff",
                       " Control registers:  SP=0x0012ff7c Flags=0x00000246",
                       "Stack trace for thread " + std::to_string(currentThreadId()),
                       " [0] " + std::string(__FILE__) + "(" + std::to_string(line) +
                           ") : in PIM::crashInside()",
                       "",
                   }));
}

TEST(CrashReportTest, AccessKindFollowsTheFirstParameter) {
  EXPECT_EQ(reportOf(accessViolation(0, 0xDEADBEEF))[0],
            "Unhandled exception: Access Violation at 0x00401A2F reading from 0xdeadbeef");
  EXPECT_EQ(reportOf(accessViolation(8, 0x10))[0],
            "Unhandled exception: Access Violation at 0x00401A2F accessing 0x00000010");
}

TEST(CrashReportTest, OtherExceptionsAndShortRecordsGiveTheNamedLine) {
  CrashInfo overflow;
  overflow.code = 0xC00000FD;
  overflow.address = 0x7C90E4F4;
  EXPECT_EQ(reportOf(overflow)[0], "Unhandled exception: Stack overflow(0xc00000fd) at 0x7C90E4F4");

  CrashInfo shortRecord = accessViolation(1, 0);
  shortRecord.parameters.resize(1);
  EXPECT_EQ(reportOf(shortRecord)[0],
            "Unhandled exception: Access violation(0xc0000005) at 0x00401A2F");

  CrashInfo unknown;
  unknown.code = 0x40000015;
  unknown.address = 0x1;
  EXPECT_EQ(reportOf(unknown)[0],
            "Unhandled exception: Unknown exception(0x40000015) at 0x00000001");
}

TEST(CrashReportTest, WideValuesKeepAllTheirDigits) {
  CrashInfo info = accessViolation(1, 0x7FFE12345678);
  info.address = 0x7FF6A0B1C2D3;
  info.registerDigits = 16;
  info.registerGroups = {{" Segment registers: ", {{"FS", 0x2B}}}};
  auto lines = reportOf(info);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            "Unhandled exception: Access Violation at 0x7FF6A0B1C2D3 writing to 0x7ffe12345678");
  EXPECT_EQ(lines[1], " Segment registers:  FS=0x000000000000002b");
}

// --- A real crash in a child process ---------------------------------------

struct RegisterNames {
  const char* title;
  std::vector<const char*> names;
  int digits;
};

// The register lines each system's report carries.
[[maybe_unused]] const RegisterNames kX64General = {
    " General registers: ",
    {"RAX", "RBX", "RCX", "RDX", "RSI", "RDI", "R8", "R9", "R10", "R11", "R12", "R13", "R14",
     "R15"},
    16};
#if defined(_WIN32) && defined(__x86_64__)
const std::vector<RegisterNames> kRegisterLines = {
    kX64General,
    {" Control registers: ", {"RSP", "RBP", "CS", "SS", "RIP", "Flags"}, 16},
    {" Segment registers: ", {"DS", "ES", "FS", "GS"}, 16},
};
#elif defined(_WIN32) && defined(__i386__)
const std::vector<RegisterNames> kRegisterLines = {
    {" General registers: ", {"AX", "BX", "CX", "DX", "SI", "DI"}, 8},
    {" Control registers: ", {"SP", "BP", "CS", "SS", "IP", "Flags"}, 8},
    {" Segment registers: ", {"DS", "ES", "FS", "GS"}, 8},
};
#elif defined(__x86_64__) && defined(__linux__)
const std::vector<RegisterNames> kRegisterLines = {
    kX64General,
    {" Control registers: ", {"RSP", "RBP", "RIP", "EFL", "CS"}, 16},
    {" Segment registers: ", {"FS", "GS"}, 16},
};
#else
const std::vector<RegisterNames> kRegisterLines = {};
#endif

std::string registerPattern(const RegisterNames& line) {
  std::string pattern = line.title;
  for (const char* name : line.names) {
    pattern += std::string(" ") + name + "=0x[0-9a-f]{" + std::to_string(line.digits) + "}";
  }
  return pattern;
}

// The instruction pointer as the register lines show it.
uint64_t instructionPointer(const std::vector<std::string>& report) {
  std::smatch match;
  for (const auto& line : report) {
    if (std::regex_search(line, match, std::regex(" E?R?IP=0x([0-9a-f]+)"))) {
      return std::stoull(match[1], nullptr, 16);
    }
  }
  return 0;
}

#ifdef _WIN32
// Sets an environment variable of this process, inherited by the child,
// for the life of the object.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const std::string& value) : name_(name) {
    const char* old = std::getenv(name);
    old_ = old ? old : "";
    _putenv_s(name, value.c_str());
  }
  ~ScopedVariable() { _putenv_s(name_, old_.c_str()); }
  const std::string& old() const { return old_; }

 private:
  const char* name_;
  std::string old_;
};
#endif

struct ChildCrash {
  int status = 0;
  std::vector<std::string> report;  // the log's lines after the marker, unprefixed
  std::string errors;               // the child's standard error
};

// Runs the crash child in a fresh folder and reads what it left behind.
ChildCrash runCrashChild(const std::string& mode) {
  std::u16string host = env()->hostExecutablePath();
  std::u16string child =
      host.substr(0, host.find_last_of(u"/\\") + 1) + fromUtf8(FERRANT_CRASH_CHILD);
  TempDir dir;
  const std::string marker = "crash-marker-" + mode + "-" + std::to_string(std::random_device()());
  auto quoted = [](const std::u16string& text) { return "\"" + toUtf8(text) + "\""; };
  std::string command = quoted(child) + " " + quoted(dir.path()) + " " + mode + " " + marker +
                        " >" + quoted(dir.file(u"stdout.txt")) + " 2>" +
                        quoted(dir.file(u"stderr.txt"));
#ifdef _WIN32
  // cmd /c drops the first and the last quote of a command line that has more.
  command = "\"" + command + "\"";
  // Nobody is at the screen to dismiss the message box...
  ScopedVariable toStderr("FERRANT_FATAL_MESSAGE_TO_STDERR", "1");
  // ...nor the crash dialog of Wine's debugger, which the fault reaches
  // after the report. Windows itself ignores this variable.
  const char* overrides = std::getenv("WINEDLLOVERRIDES");
  std::string noDebugger = overrides && *overrides ? std::string(overrides) + ";" : std::string();
  ScopedVariable wine("WINEDLLOVERRIDES", noDebugger + "winedbg.exe=d");
#endif
  ChildCrash crash;
  crash.status = std::system(command.c_str());
  crash.errors = readFileBytes(dir.file(u"stderr.txt"));

  std::istringstream log(readFileBytes(dir.path() + kPathSeparator + u"Corvel" + kPathSeparator +
                                       u"CVTK_Logs" + kPathSeparator + u"CVTK_DBG.log"));
  bool afterMarker = false;
  std::string line;
  while (std::getline(log, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    // Lines with the time prefix "[Mar 05 14:02:11.042] " lose it.
    if (line.size() >= 22 && line[0] == '[' && line.compare(20, 2, "] ") == 0) line.erase(0, 22);
    if (afterMarker) crash.report.push_back(line);
    if (line.size() >= marker.size() &&
        line.compare(line.size() - marker.size(), marker.size(), marker) == 0) {
      afterMarker = true;
    }
  }
  return crash;
}

void expectReport(const ChildCrash& crash, const std::string& exceptionPattern,
                  const std::string& function, bool knownExitStatus = true) {
  if (knownExitStatus) {
    EXPECT_NE(crash.status, 0);
  }
  EXPECT_TRUE(crash.errors.starts_with(std::string(kFatalMessage) + "\n")) << crash.errors;
  std::vector<std::string> patterns = {exceptionPattern};
  for (const auto& line : kRegisterLines) patterns.push_back(registerPattern(line));
  patterns.push_back(R"(Stack trace for thread \d+)");
  patterns.push_back(R"( \[1\] src/core/crash_child_main\.cpp\(\d+\) : in )" + function +
                     R"(\(\))");
  patterns.push_back(
      R"( \[0\] src/core/crash_child_main\.cpp\(\d+\) : in ferrant::crashChildMain\(\))");
  patterns.push_back("");
  ASSERT_EQ(crash.report.size(), patterns.size()) << ::testing::PrintToString(crash.report);
  for (size_t i = 0; i < patterns.size(); ++i) {
    EXPECT_TRUE(std::regex_match(crash.report[i], std::regex(patterns[i])))
        << crash.report[i] << "\n  does not match\n"
        << patterns[i];
  }
  if (!kRegisterLines.empty()) {
    // The faulting address is where the instruction pointer stood.
    std::smatch match;
    ASSERT_TRUE(std::regex_search(crash.report[0], match, std::regex(" at 0x([0-9A-F]+)")));
    EXPECT_EQ(std::stoull(match[1], nullptr, 16), instructionPointer(crash.report));
  }
}

TEST(CrashReportTest, ChildWritingThroughNullReportsAnAccessViolationOnWriteAtZero) {
  expectReport(runCrashChild("null-write"),
               "Unhandled exception: Access Violation at 0x[0-9A-F]{8,} writing to 0x00000000",
               "ferrant::writeThroughNull");
}

TEST(CrashReportTest, ChildRecursingWithoutEndReportsAStackOverflow) {
#ifdef _WIN32
  // After the report the fault goes on to Wine's own handler, which has no
  // stack left either: the process then ends with any exit code, 0 included.
  const bool knownExitStatus = false;
#else
  const bool knownExitStatus = true;
#endif
  expectReport(runCrashChild("stack-overflow"),
               R"(Unhandled exception: Stack overflow\(0xc00000fd\) at 0x[0-9A-F]{8,})",
               "ferrant::overflowStack", knownExitStatus);
}

TEST(CrashReportTest, ChildDividingByZeroReportsAnIntegerDivideByZero) {
  expectReport(runCrashChild("divide-by-zero"),
               R"(Unhandled exception: Integer divide by zero\(0xc0000094\) at 0x[0-9A-F]{8,})",
               "ferrant::divideByZero");
}

TEST(CrashReportTest, ChildAbortingReportsAnUnknownException) {
#ifdef _WIN32
  GTEST_SKIP() << "the runtime's abort ends the process without raising an exception";
#endif
  expectReport(runCrashChild("abort"),
               R"(Unhandled exception: Unknown exception\(0x40000015\) at 0x[0-9A-F]{8,})",
               "ferrant::abortProcess");
}

}  // namespace
}  // namespace PIM
