// Tasks read from a store folder and written as a data file.
#include "data/task.h"

#include <gtest/gtest.h>

#include "core/utils.h"
#include "data/data_test_util.h"

namespace PIM::testing {
namespace {

// Due dates are stored as local midnight; the zone in the tests is UTC+1
// (bias -60) unless a test says otherwise.
const char* kTasksJson = R"json({
  "stores": [{
    "key": "main", "name": "Mailbox", "default": true,
    "root": {"folders": [{"key": "tasks", "name": "Tasks", "class": "IPF.Task", "items": [
      {"key": "late", "class": "IPM.Task", "props": [
        {"tag": "PR_SUBJECT_W", "value": "Pay <rent> & \"fees\""},
        {"named": {"set": "PSETID_Task", "id": "0x8101"}, "type": "PT_LONG", "value": 1},
        {"named": {"set": "PSETID_Task", "id": "0x8105"}, "type": "PT_SYSTIME", "value": "2026-12-03"},
        {"tag": "PR_PRIORITY", "value": 1},
        {"tag": "PR_BODY_W", "value": "Two lines\nof <text>"}]},
      {"key": "early", "class": "IPM.Task", "props": [
        {"tag": "PR_SUBJECT_W", "value": "Ler «Cem Anos»"},
        {"named": {"set": "PSETID_Task", "id": "0x8101"}, "type": "PT_LONG", "value": 4},
        {"named": {"set": "PSETID_Task", "id": "0x8105"}, "type": "PT_SYSTIME", "value": "2026-11-25"},
        {"tag": "PR_PRIORITY", "value": -1}]},
      {"key": "done", "class": "IPM.Task", "props": [
        {"tag": "PR_SUBJECT_W", "value": "Finished"},
        {"named": {"set": "PSETID_Task", "id": "0x8101"}, "type": "PT_LONG", "value": 2},
        {"named": {"set": "PSETID_Task", "id": "0x8105"}, "type": "PT_SYSTIME", "value": "2026-11-01"}]},
      {"key": "bare", "class": "IPM.Task", "props": [
        {"tag": "PR_SUBJECT_W", "error": "MAPI_E_NOT_FOUND"}]},
      {"key": "odd", "class": "IPM.Task", "props": [
        {"tag": "PR_SUBJECT_W", "value": {"text": "é", "repeat": 300}},
        {"named": {"set": "PSETID_Task", "id": "0x8101"}, "type": "PT_LONG", "value": 9},
        {"named": {"set": "PSETID_Task", "id": "0x8105"}, "type": "PT_SYSTIME", "value": "2026-12-24"},
        {"tag": "PR_PRIORITY", "value": 7}]}
    ]}]}
  }]
})json";

class TaskTest : public RecordTest {
 protected:
  const char* json() const override { return kTasksJson; }
  void SetUp() override {
    RecordTest::SetUp();
    clock_.zone = {-60, 0, -60, TimeZoneState::Standard};
  }
  std::string id(const std::string& key) {
    return toUtf8(EntryId(profile_->entryId(profile_->byKey(key))).toWstring());
  }
  TaskSettings& settings() { return Preferences::instance().tasks; }
};

// Local midnight of the day, one hour earlier in UTC.
constexpr const char* kDec3 = "134407260000000000";   // 2026-12-02T23:00Z
constexpr const char* kNov25 = "134400348000000000";  // 2026-11-24T23:00Z
constexpr const char* kDec24 = "134425404000000000";  // 2026-12-23T23:00Z

TEST_F(TaskTest, WritesOpenTasksByDueDateWithEveryField) {
  LogCapture log;
  std::string e300;
  for (int i = 0; i < 300; ++i) e300 += "é";
  std::vector<Task> tasks = read<Task>("tasks");
  // The completed task is left out; the one without any status is kept, and
  // sorts last because this store puts missing due dates last.
  EXPECT_EQ(fileOf(tasks),
            envelope("<task entryId=\"" + id("early") + "\" subject=\"Ler «Cem Anos»\" dueDate=\"" +
                     kNov25 +
                     "\" status=\"Deferred\" priority=\"Low\">\r\n</task>\r\n"
                     "<task entryId=\"" +
                     id("late") +
                     "\" subject=\"Pay &lt;rent&gt; &amp; &quot;fees&quot;\" dueDate=\"" + kDec3 +
                     "\" status=\"In progress\" priority=\"High\">\r\n"
                     "  <body>Two lines\nof &lt;text&gt;</body>\r\n</task>\r\n"
                     "<task entryId=\"" +
                     id("odd") + "\" subject=\"" + e300 + "\" dueDate=\"" + kDec24 +
                     "\">\r\n</task>\r\n"
                     "<task entryId=\"" +
                     id("bare") + "\">\r\n</task>\r\n"));
  EXPECT_EQ(writers(log), (std::vector<std::string>{
                              "task.cpp : PIM::Task::makeDataRow() > ERR> Invalid priority value.",
                              "task.cpp : PIM::Task::makeDataRow() > ERR> Invalid status value."}));
}

TEST_F(TaskTest, SwitchesLeaveOutColumnsAndAttributes) {
  settings().captureStatus = false;
  settings().capturePriority = false;
  settings().captureBody = false;
  std::vector<NameIdPair> pairs = Task::getNameIdPairs();
  ASSERT_EQ(OutlookUtils::getNamedPropIds(folder("tasks").get(), pairs), S_OK);
  EXPECT_EQ(Task::getPropIds(pairs).size(), 3u);

  std::vector<Task> tasks = read<Task>("tasks");
  ASSERT_EQ(tasks.size(), 4u);
  EXPECT_EQ(fileOf(std::vector<Task>{tasks[1]}),
            envelope("<task entryId=\"" + id("late") +
                     "\" subject=\"Pay &lt;rent&gt; &amp; &quot;fees&quot;\" dueDate=\"" + kDec3 +
                     "\">\r\n</task>\r\n"));

  // Values read while the switches were on are not written once they are off.
  settings().captureStatus = true;
  settings().capturePriority = true;
  settings().captureBody = true;
  std::vector<Task> full = read<Task>("tasks");
  settings().captureStatus = false;
  settings().capturePriority = false;
  settings().captureBody = false;
  EXPECT_EQ(full[1].toXMLString(), tasks[1].toXMLString());
}

TEST_F(TaskTest, RowLimitKeepsTheEarliestDueDates) {
  settings().maxTaskCapture = 2;
  std::vector<Task> tasks = read<Task>("tasks");
  ASSERT_EQ(tasks.size(), 2u);
  EXPECT_EQ(tasks[0].subject, u"Ler «Cem Anos»");
  EXPECT_EQ(tasks[1].subject, u"Pay <rent> & \"fees\"");
}

TEST_F(TaskTest, RestrictionAllocationFailuresAreLogged) {
  std::vector<NameIdPair> pairs = Task::getNameIdPairs();
  for (const char* call : {"MAPIAllocateBuffer", "MAPIAllocateMore"}) {
    for (unsigned nth : {1u, 2u, 4u}) {
      if (std::string(call) == "MAPIAllocateBuffer" && nth > 2) continue;
      store::ScopedFaults faults;
      faults->failCall(call, E_OUTOFMEMORY, nth);
      LogCapture log;
      RecordQuery query;
      EXPECT_EQ(Task::getRestriction(query, pairs), E_FAIL) << call << " " << nth;
      const bool sort = std::string(call) == "MAPIAllocateBuffer" && nth == 1;
      EXPECT_EQ(log.messages(),
                std::vector<std::string>{sort ? "Failed to MAPI allocate buffer for sort order set."
                                              : "Failed to MAPI allocate buffer for restriction."});
    }
  }
}

TEST_F(TaskTest, EmptyTaskKeepsItsStartTagAndLogsAMissingIdentifier) {
  LogCapture log;
  Task task;
  task.status = Task::InProgress;
  Preferences::instance().tasks.captureStatus = false;
  EXPECT_EQ(task.toXMLString(), u"<task entryId=\"\">\r\n</task>");
  EXPECT_EQ(writers(log), std::vector<std::string>{
                              "task.cpp : PIM::Task::toXMLString() > ERR> Assertion failed"});
}

TEST(TaskTexts, InsideTheTables) {
  LogCapture log;
  EXPECT_EQ(Task::statusToStr(Task::Waiting), u"Waiting");
  EXPECT_EQ(Task::priorityToStr(PriorityLow), u"Low");
  EXPECT_TRUE(log.lines().empty());
}

}  // namespace
}  // namespace PIM::testing
