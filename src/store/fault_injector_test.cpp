// Which calls a fault rule fails, and what the injector counts and records.
#include "store/fault_injector.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace PIM::store {
namespace {

// The calls every case makes, in this order.
const std::vector<std::pair<const char*, const char*>> kCalls = {
    {"IMAPITable", "QueryRows"},  {"IMsgStore", "OpenEntry"},   {"IMAPITable", "QueryRows"},
    {"", "MAPIAllocateBuffer"},   {"IMAPIFolder", "OpenEntry"}, {"IMAPITable", "QueryRows"},
    {"IMAPITable", "SetColumns"},
};

// One letter per call: '.' answered S_OK, 'x' failed.
std::string run(FaultInjector& faults) {
  std::string out;
  for (const auto& [iface, method] : kCalls) out += faults.check(iface, method) == S_OK ? '.' : 'x';
  return out;
}

TEST(FaultInjectorTest, RulesFailTheCallsTheyName) {
  struct Case {
    const char* name;
    unsigned nth;
    unsigned times;
    const char* failed;
  };
  const Case cases[] = {
      {"IMAPITable::QueryRows", 1, 1, "x......"},
      {"QueryRows", 2, 1, "..x...."},
      {"QueryRows", 2, 0, "..x..x."},
      {"OpenEntry", 1, 2, ".x..x.."},
      {"IMsgStore::OpenEntry", 1, 0, ".x....."},
      {"MAPIAllocateBuffer", 1, 1, "...x..."},
      {"SetColumns", 2, 1, "......."},
      {"Unknown::Call", 1, 0, "......."},
      // Any call: the nth of the whole sequence.
      {"*", 1, 1, "x......"},
      {"*", 4, 1, "...x..."},
      {"*", 7, 1, "......x"},
      {"*", 8, 1, "......."},
      {"*", 6, 0, ".....xx"},
      {"*", 3, 2, "..xx..."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " from " + std::to_string(c.nth) + " for " +
                 std::to_string(c.times));
    ScopedFaults faults;
    faults->failCall(c.name, MAPI_E_CALL_FAILED, c.nth, c.times);
    EXPECT_EQ(run(FaultInjector::instance()), c.failed);
  }
}

TEST(FaultInjectorTest, TheFirstRuleThatFiresGivesTheAnswer) {
  ScopedFaults faults;
  faults->failCall("QueryRows", MAPI_E_BUSY, 3);
  faults->failCall("*", MAPI_E_NOT_FOUND, 6);
  std::vector<HRESULT> answers;
  for (const auto& [iface, method] : kCalls) answers.push_back(faults->check(iface, method));
  EXPECT_EQ(answers, (std::vector<HRESULT>{S_OK, S_OK, S_OK, S_OK, S_OK, MAPI_E_BUSY, S_OK}));
}

TEST(FaultInjectorTest, CountsAndRecordsEveryCallUntilCleared) {
  ScopedFaults faults;
  run(FaultInjector::instance());  // before recording: counted only
  faults->recordCalls();
  faults->check("IMAPITable", "QueryRows");
  faults->check("", "HrThisThreadAdviseSink");
  EXPECT_EQ(faults->totalCalls(), kCalls.size() + 2);
  EXPECT_EQ(faults->callCount("QueryRows"), 4u);
  EXPECT_EQ(faults->callCount("IMAPITable::QueryRows"), 4u);
  EXPECT_EQ(faults->callCount("OpenEntry"), 2u);
  EXPECT_EQ(faults->recordedCalls(),
            (std::vector<std::string>{"IMAPITable::QueryRows", "HrThisThreadAdviseSink"}));

  faults->clear();
  faults->check("IMAPITable", "QueryRows");
  EXPECT_EQ(faults->totalCalls(), 1u);
  EXPECT_TRUE(faults->recordedCalls().empty()) << "recording ends with clear()";
  EXPECT_EQ(faults->calledNames(),
            (std::vector<std::string>{"IMAPITable::QueryRows", "QueryRows"}));
}

TEST(FaultInjectorTest, AHookRunsOnceAtItsCallBeforeTheAnswer) {
  ScopedFaults faults;
  faults->failCall("*", MAPI_E_CALL_FAILED, 3);
  std::vector<unsigned> seenAt;
  faults->atCall(3, [&] {
    seenAt.push_back(faults->totalCalls());
    // The lock is not held: the hook may make calls of its own.
    faults->check("IMAPITable", "Abort");
  });
  EXPECT_EQ(run(FaultInjector::instance()), "..x....");
  EXPECT_EQ(seenAt, std::vector<unsigned>{3});
  EXPECT_EQ(faults->callCount("Abort"), 1u);
}

}  // namespace
}  // namespace PIM::store
