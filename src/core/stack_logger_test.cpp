#include "core/stack_logger.h"

#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>
#include <string>
#include <thread>

#include "core/debug_logger.h"
#include "platform/thread_local_slot.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using testing::LogCapture;

int depthOfNextEntry() {
  PIM_ENTRY("PIM::depthOfNextEntry");
  return pimEntry_.depth;
}

void leaveByException() {
  PIM_ENTRY("PIM::leaveByException");
  throw std::runtime_error("leaving");
}

TEST(StackLoggerTest, FunctionLeavingByExceptionStillPopsItsRecord) {
  PIM_ENTRY("PIM::StackLoggerTest::outer");
  ASSERT_EQ(pimEntry_.depth, 0);
  EXPECT_EQ(depthOfNextEntry(), 1);
  EXPECT_THROW(leaveByException(), std::runtime_error);
  EXPECT_EQ(StackLogger::top(), &pimEntry_);
  EXPECT_EQ(depthOfNextEntry(), 1);
}

std::string traceFromInner(int& innerLine) {
  PIM_ENTRY("PIM::innerFunction");
  innerLine = __LINE__ - 1;
  return StackLogger::stackTrace();
}

TEST(StackLoggerTest, StackTraceListsTheRecordsFromTheTopDown) {
  PIM_ENTRY("PIM::outerFunction");
  const int outerLine = __LINE__ - 1;
  int innerLine = 0;
  std::string trace = traceFromInner(innerLine);
  std::string file = __FILE__;
  EXPECT_EQ(trace, "Stack trace for thread " + std::to_string(currentThreadId()) + "\n" + " [1] " +
                       file + "(" + std::to_string(innerLine) + ") : in PIM::innerFunction()\n" +
                       " [0] " + file + "(" + std::to_string(outerLine) +
                       ") : in PIM::outerFunction()\n");
}

TEST(StackLoggerTest, EachThreadHasItsOwnStack) {
  PIM_ENTRY("PIM::StackLoggerTest::mainThread");
  const StackEntry* otherTop = &pimEntry_;
  int otherDepth = -1;
  std::thread([&] {
    otherTop = StackLogger::top();
    otherDepth = depthOfNextEntry();
  }).join();
  EXPECT_EQ(otherTop, nullptr);
  EXPECT_EQ(otherDepth, 0);
  EXPECT_EQ(StackLogger::top(), &pimEntry_);
}

TEST(StackLoggerTest, PopOnAnEmptyStackLogsCorruptionAndTheStackStaysEmpty) {
  PIM_ENTRY("PIM::StackLoggerTest::mainThread");
  LogCapture log;
  const StackEntry* topAfterPop = &pimEntry_;
  int depthAfterPop = -1;
  std::thread([&] {
    StackLogger::pop();
    topAfterPop = StackLogger::top();
    depthAfterPop = depthOfNextEntry();
  }).join();
  EXPECT_EQ(topAfterPop, nullptr);
  EXPECT_EQ(depthAfterPop, 0);
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(src/core/stack_logger\.cpp\(\d+\) : )"
                                                    R"(PIM::StackLogger::Pop\(\) > ERR> )"
                                                    R"(Stack was corrupted\.)")))
      << lines[0];
}

// Puts the slot back for the tests that follow, however this one ends.
struct SlotRestorer {
  ~SlotRestorer() { StackLogger::initialise(); }
};

TEST(StackLoggerTest, WithoutASlotEveryOperationDoesNothing) {
  SlotRestorer restorer;
  StackLogger::shutdown();
  LogCapture log;
  {
    PIM_ENTRY("PIM::withoutSlot");
    EXPECT_EQ(StackLogger::top(), nullptr);
    EXPECT_EQ(pimEntry_.depth, 0);
    EXPECT_EQ(StackLogger::stackTrace(), "");
  }
  StackLogger::pop();
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
}  // namespace PIM
