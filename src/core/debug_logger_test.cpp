#include "core/debug_logger.h"

#include <gtest/gtest.h>

#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "core/utils.h"
#include "platform/env.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using testing::LogCapture;
using testing::readFileBytes;
using testing::ScopedEnv;
using testing::TempDir;

#ifdef _WIN32
const std::string kEol = "\r\n";  // the log is a text file
#else
const std::string kEol = "\n";
#endif

// The local application-data folder, the host executable and, when set, the
// clock, as a test wants them.
class LogEnv : public EnvWrapper {
 public:
  LogEnv(std::u16string special, std::u16string host = {})
      : EnvWrapper(Env::platformDefault()), special_(std::move(special)), host_(std::move(host)) {}
  std::u16string specialFolder(int) override { return special_; }
  std::u16string hostExecutablePath() override {
    return host_.empty() ? target()->hostExecutablePath() : host_;
  }
  SystemTime localTimeNow() override { return now_ ? *now_ : target()->localTimeNow(); }
  void setNow(const SystemTime& now) { now_ = now; }

 private:
  std::u16string special_;
  std::u16string host_;
  std::optional<SystemTime> now_;
};

// Stops the log however a test ends, so that the next test finds none open.
struct LogSession {
  LogSession() { DebugLogger::instance().start(); }
  ~LogSession() { DebugLogger::instance().stop(); }
};

SystemTime timeOf(uint16_t month, uint16_t dayOfWeek, uint16_t day, uint16_t hour, uint16_t minute,
                  uint16_t second, uint16_t milliseconds) {
  SystemTime t;
  t.year = 2025;
  t.month = month;
  t.dayOfWeek = dayOfWeek;
  t.day = day;
  t.hour = hour;
  t.minute = minute;
  t.second = second;
  t.milliseconds = milliseconds;
  return t;
}

std::string openingLines(const std::string& prefix) {
  return prefix + "-----------------" + kEol + prefix + " Logging Started" + kEol + prefix +
         "-----------------" + kEol;
}

int logThreeLines() {
  PIM_ENTRY("PIM::logThreeLines");
  const int first = __LINE__ + 1;
  PIM_LOG_ERR("Could not create path: " << toUtf8(u"C:\\x"));
  PIM_LOG_MSG("rows: " << 42);
  PIM_ASSERT(1 + 1 == 3);
  PIM_ASSERT(1 + 1 == 2);
  return first;
}

TEST(DebugLoggerTest, LinesCarryTheFunctionHeaderAndTheKindMarker) {
  LogCapture log;
  const int line = logThreeLines();
  const std::string header = std::string(__FILE__) + "(";
  EXPECT_EQ(
      log.lines(),
      (std::vector<std::string>{
          header + std::to_string(line) +
              ") : PIM::logThreeLines() > ERR> Could not create path: C:\\x",
          header + std::to_string(line + 1) + ") : PIM::logThreeLines() > MSG> rows: 42",
          header + std::to_string(line + 2) + ") : PIM::logThreeLines() > ERR> Assertion failed",
      }));
}

TEST(DebugLoggerTest, PrefixIsMonthDayTimeAndMillisecondsOfTheLocalTime) {
  struct Case {
    SystemTime now;
    const char* prefix;
  };
  const Case cases[] = {
      {timeOf(3, 3, 5, 14, 2, 11, 42), "[Mar 05 14:02:11.042] "},
      {timeOf(1, 4, 2, 3, 4, 5, 7), "[Jan 02 03:04:05.007] "},
      {timeOf(12, 3, 31, 23, 59, 59, 999), "[Dec 31 23:59:59.999] "},
      {timeOf(9, 0, 14, 0, 0, 0, 0), "[Sep 14 00:00:00.000] "},
  };
  LogEnv env(u"");
  ScopedEnv scoped(&env);
  for (const auto& c : cases) {
    env.setNow(c.now);
    std::ostringstream sink;
    DebugLogger::instance().redirectForTesting(&sink);
    DebugLogger::instance().write("a line");
    DebugLogger::instance().redirectForTesting(nullptr);
    EXPECT_EQ(sink.str(), std::string(c.prefix) + "a line\n");
  }
}

TEST(DebugLoggerTest, StartOpensTheLogInTheLogsFolderAndEveryStartAppends) {
  TempDir dir;
  LogEnv env(dir.path());
  env.setNow(timeOf(3, 3, 5, 14, 2, 11, 42));
  ScopedEnv scoped(&env);
  const std::u16string expected = dir.path() + kPathSeparator + u"Corvel" + kPathSeparator +
                                  u"CVTK_Logs" + kPathSeparator + u"CVTK_DBG.log";
  {
    LogSession session;
    EXPECT_EQ(DebugLogger::instance().path(), expected);
    DebugLogger::instance().write("first run");
  }
  EXPECT_EQ(DebugLogger::instance().path(), u"");
  DebugLogger::instance().write("while stopped");
  { LogSession again; }

  const std::string prefix = "[Mar 05 14:02:11.042] ";
  EXPECT_EQ(readFileBytes(expected),
            openingLines(prefix) + prefix + "first run" + kEol + openingLines(prefix));
}

TEST(DebugLoggerTest, WithoutALogsFolderTheLogGoesBesideTheHostExecutable) {
  TempDir dir;
  LogEnv env(u"", dir.file(u"host.exe"));
  env.setNow(timeOf(7, 1, 21, 9, 30, 0, 500));
  ScopedEnv scoped(&env);
  {
    LogSession session;
    EXPECT_EQ(DebugLogger::instance().path(), dir.file(u"CVTK_DBG.log"));
  }
  EXPECT_EQ(readFileBytes(dir.file(u"CVTK_DBG.log")), openingLines("[Jul 21 09:30:00.500] "));
}

TEST(DebugLoggerTest, ALogThatCannotBeOpenedDropsItsLines) {
  TempDir dir;
  const std::u16string missing = dir.file(u"missing");
  LogEnv env(u"", missing + kPathSeparator + u"host.exe");
  ScopedEnv scoped(&env);
  LogSession session;
  EXPECT_EQ(DebugLogger::instance().path(), u"");
  DebugLogger::instance().write("dropped");
  EXPECT_FALSE(env.pathStatus(missing));
}

constexpr int kLinesPerThread = 300;

void logMany(int thread) {
  PIM_ENTRY("PIM::logMany");
  // Long lines, so that interleaved writes could not go unnoticed.
  const std::string filler(200, char('a' + thread));
  for (int i = 0; i < kLinesPerThread; ++i) {
    PIM_LOG_MSG("thread " << thread << " line " << i << " " << filler);
  }
}

TEST(DebugLoggerTest, TwoThreadsLoggingAtOnceWriteWholeSeparateLines) {
  TempDir dir;
  LogEnv env(dir.path());
  ScopedEnv scoped(&env);
  std::u16string path;
  {
    LogSession session;
    path = DebugLogger::instance().path();
    std::thread first(logMany, 0);
    std::thread second(logMany, 1);
    first.join();
    second.join();
  }
  const std::regex line(R"(\[[A-Z][a-z]{2} \d\d \d\d:\d\d:\d\d\.\d{3}\] )"
                        R"(src/core/debug_logger_test\.cpp\(\d+\) : PIM::logMany\(\) > MSG> )"
                        R"(thread (\d) line (\d+) ([a-z]+)\r?)");
  std::istringstream file(readFileBytes(path));
  std::string text;
  for (int i = 0; i < 3; ++i) std::getline(file, text);  // the opening lines
  int next[2] = {0, 0};
  int count = 0;
  while (std::getline(file, text)) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(text, match, line)) << text;
    int thread = std::stoi(match[1]);
    EXPECT_EQ(std::stoi(match[2]), next[thread]++) << text;
    EXPECT_EQ(match[3].str(), std::string(200, char('a' + thread))) << text;
    ++count;
  }
  EXPECT_EQ(count, 2 * kLinesPerThread);
}

}  // namespace
}  // namespace PIM
