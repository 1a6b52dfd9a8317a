// Calendar entries read from the reference store as a capture reads them, and
// the data file they make.
#include "data/calendar_entry.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "core/utils.h"
#include "data/data_test_util.h"
#include "store/recurrence_blob.h"

namespace PIM::testing {
namespace {

// The writers of the record's lines: the row's reader, its recurrence
// exceptions included, and the pattern's parser.
const std::string kMakeDataRow = "calendar_entry.cpp : PIM::CalendarEntry::makeDataRow() > ERR> ";
const std::string kParse = "mapi_recurrence.cpp : PIM::MAPIRecurrence::parse() > ERR> ";

// A calendar around the test clock (2026-11-22 10:30 UTC): single
// appointments on both sides of the default window (2026-10-08 00:00:00 to
// 2027-01-06 23:59:59), one with every field, odd and missing values, and
// recurring appointments with a good, a rejected and an unreadable pattern.
const char* kCalendarJson = R"json({
  "stores": [{
    "key": "main", "name": "Mailbox", "default": true, "ipmSubtree": "ipm",
    "root": {"folders": [{"key": "ipm", "name": "Top", "folders": [
      {"key": "calendar", "name": "Calendar", "class": "IPF.Appointment", "items": [
        {"key": "c.first", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "First day"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-10-08T00:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820E"}, "type": "PT_SYSTIME", "value": "2026-10-08T01:00:00Z"}]},
        {"key": "c.before", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "Day before"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-10-07T23:59:59Z"}]},
        {"key": "c.last", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "Last second"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2027-01-06T23:59:59Z"}]},
        {"key": "c.after", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "Day after"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2027-01-07T00:00:00Z"}]},
        {"key": "c.full", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "Plan <Q1> & \"budget\""},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-11-23T09:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820E"}, "type": "PT_SYSTIME", "value": "2026-11-23T10:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8208"}, "type": "PT_UNICODE", "value": {"text": "Ab&", "repeat": 100}},
          {"named": {"set": "PSETID_Appointment", "id": "0x8205"}, "type": "PT_LONG", "value": 3},
          {"tag": "PR_PRIORITY", "value": 1},
          {"tag": "PR_SENDER_NAME_W", "value": "Zoë O'Neil"},
          {"tag": "PR_DISPLAY_TO_W", "value": "Ana; Bob <b@x>; Carl"},
          {"tag": "PR_DISPLAY_CC_W", "value": "Dora"},
          {"tag": "PR_BODY_W", "value": "Line 1\nLine 2 & <more>"}]},
        {"key": "c.bad", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "Bad values"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-11-24T09:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8205"}, "type": "PT_LONG", "value": 7},
          {"tag": "PR_PRIORITY", "value": 5}]},
        {"key": "c.missing", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "error": "MAPI_E_NOT_ENOUGH_MEMORY"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-11-25T09:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820E"}, "type": "PT_SYSTIME", "error": "MAPI_E_NOT_FOUND"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8208"}, "type": "PT_UNICODE", "error": "MAPI_E_NOT_FOUND"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8205"}, "type": "PT_LONG", "error": "MAPI_E_NOT_FOUND"},
          {"tag": "PR_PRIORITY", "error": "MAPI_E_NOT_FOUND"},
          {"tag": "PR_SENDER_NAME_W", "error": "MAPI_E_NOT_FOUND"},
          {"tag": "PR_DISPLAY_TO_W", "value": ""},
          {"tag": "PR_BODY_W", "error": "MAPI_E_NOT_ENOUGH_MEMORY"}]},
        {"key": "c.yearly", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "Since 2015"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2015-05-01T10:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820E"}, "type": "PT_SYSTIME", "value": "2015-05-01T11:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8205"}, "type": "PT_LONG", "value": 2},
          {"named": {"set": "PSETID_Appointment", "id": "0x8223"}, "type": "PT_BOOLEAN", "value": true},
          {"named": {"set": "PSETID_Appointment", "id": "0x8216"}, "type": "PT_BINARY", "value": {"recurrence": {
            "pattern": "yearly", "day": 1, "start": "2015-05-01", "startTime": "10:00", "endTime": "11:00"}}}]},
        {"key": "c.rejected", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "Rejected pattern"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2020-01-01T10:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8223"}, "type": "PT_BOOLEAN", "value": true},
          {"named": {"set": "PSETID_Appointment", "id": "0x8216"}, "type": "PT_BINARY", "value": "04300430 0A20"}]},
        {"key": "c.unreadable", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "No pattern"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2021-01-01T10:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8223"}, "type": "PT_BOOLEAN", "value": true},
          {"named": {"set": "PSETID_Appointment", "id": "0x8216"}, "type": "PT_BINARY", "error": "MAPI_E_NOT_FOUND"}],
         "attachments": [{"props": [], "embedded": {"class": "IPM.OLE.CLASS.{00061055-0000-0000-C000-000000000046}",
           "props": [{"tag": "PR_SUBJECT_W", "value": "Never read"}]}}]},
        {"key": "c.weekly", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "Weekly sync"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-09-07T09:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820E"}, "type": "PT_SYSTIME", "value": "2026-09-07T09:30:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8205"}, "type": "PT_LONG", "value": 2},
          {"tag": "PR_BODY_W", "value": "Series body"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8223"}, "type": "PT_BOOLEAN", "value": true},
          {"named": {"set": "PSETID_Appointment", "id": "0x8216"}, "type": "PT_BINARY", "value": {"recurrence": {
            "pattern": "weekly", "days": ["monday", "friday"], "start": "2026-09-07", "end": "2027-06-28",
            "startTime": "09:00", "endTime": "09:30",
            "exceptions": [
              {"original": "2026-11-16T09:00", "start": "2026-11-17T10:00", "end": "2026-11-17T10:30",
               "subject": "Moved & renamed", "location": "Room <2>"},
              {"original": "2026-11-20T09:00", "start": "2026-11-20T09:00", "end": "2026-11-20T10:00"}]}}}],
         "attachments": [
          {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Moved & renamed"}],
           "embedded": {"class": "IPM.OLE.CLASS.{00061055-0000-0000-C000-000000000046}", "props": [
            {"tag": "PR_SUBJECT_W", "value": "Moved & renamed"},
            {"tag": "PR_BODY_W", "value": "Moved because of <travel>"},
            {"tag": "PR_DISPLAY_TO_W", "value": "Ana; Bob"},
            {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-11-17T10:00:00Z"},
            {"named": {"set": "PSETID_Appointment", "id": "0x820E"}, "type": "PT_SYSTIME", "value": "2026-11-17T10:30:00Z"},
            {"named": {"set": "PSETID_Appointment", "id": "0x8208"}, "type": "PT_UNICODE", "value": "Room <2>"},
            {"named": {"set": "PSETID_Appointment", "id": "0x8205"}, "type": "PT_LONG", "value": 1},
            {"named": {"set": "PSETID_Appointment", "id": "0x8228"}, "type": "PT_SYSTIME", "value": "2026-11-16T09:00:00Z"}]}},
          {"props": [],
           "embedded": {"class": "IPM.OLE.CLASS.{00061055-0000-0000-C000-000000000046}", "props": [
            {"tag": "PR_BODY_W", "value": "Longer this time"},
            {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-11-20T09:00:00Z"},
            {"named": {"set": "PSETID_Appointment", "id": "0x820E"}, "type": "PT_SYSTIME", "value": "2026-11-20T10:00:00Z"},
            {"named": {"set": "PSETID_Appointment", "id": "0x8228"}, "type": "PT_SYSTIME", "value": "2026-11-20T09:00:00Z"}]}},
          {"props": [{"tag": "PR_ATTACH_LONG_FILENAME_W", "value": "agenda.txt"}], "data": {"text": "1. news"}}]}
      ]}]}]}
  }]
})json";

// File time of a UTC date and time.
uint64_t at(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  const SystemTime time{static_cast<uint16_t>(year),
                        static_cast<uint16_t>(month),
                        0,
                        static_cast<uint16_t>(day),
                        static_cast<uint16_t>(hour),
                        static_cast<uint16_t>(minute),
                        static_cast<uint16_t>(second),
                        0};
  uint64_t fileTime = 0;
  EXPECT_TRUE(systemTimeToFileTime(time, fileTime));
  return fileTime;
}

std::string num(uint64_t value) { return std::to_string(value); }

constexpr uint64_t kHour = 36000000000ull;

std::vector<std::string> subjectsOf(const std::vector<CalendarEntry>& entries) {
  std::vector<std::string> out;
  for (const CalendarEntry& entry : entries) out.push_back(toUtf8(entry.subject));
  return out;
}

// The subjects of the appointments at the window's edges, in table order.
std::vector<std::string> edges(const std::vector<CalendarEntry>& entries) {
  const std::set<std::string> names = {"First day", "Day before", "Last second", "Day after"};
  std::vector<std::string> out;
  for (const std::string& subject : subjectsOf(entries))
    if (names.count(subject)) out.push_back(subject);
  return out;
}

// The data-file lines of the entries: each element ends in CR LF, and the
// writer adds one more.
std::string lines(const std::vector<std::string>& elements) {
  std::string out;
  for (const std::string& element : elements) out += element + "\r\n";
  return out;
}

class CalendarEntryTest : public RecordTest {
 protected:
  const char* json() const override { return kCalendarJson; }

  std::string idOf(const std::string& key) {
    return toUtf8(EntryId(profile_->entryId(profile_->byKey(key))).toWstring());
  }
  CalendarSettings& calendar() { return Preferences::instance().calendar; }
  void switchAll(bool on) {
    calendar().captureBody = on;
    calendar().captureOrganizer = on;
    calendar().captureRequiredAttendees = on;
    calendar().captureOptionalAttendees = on;
    calendar().captureBusyStatus = on;
    calendar().capturePriority = on;
  }

  // Expected elements; those named ...On are written with every switch on.
  std::string firstDay() {
    return "<entry entryId=\"" + idOf("c.first") + "\" subject=\"First day\" startTime=\"" +
           num(at(2026, 10, 8)) + "\" endTime=\"" + num(at(2026, 10, 8, 1)) + "\">\r\n</entry>\r\n";
  }
  std::string lastSecond() {
    return "<entry entryId=\"" + idOf("c.last") + "\" subject=\"Last second\" startTime=\"" +
           num(at(2027, 1, 6, 23, 59, 59)) + "\">\r\n</entry>\r\n";
  }
  std::string missing() {
    return "<entry entryId=\"" + idOf("c.missing") + "\" startTime=\"" + num(at(2026, 11, 25, 9)) +
           "\">\r\n</entry>\r\n";
  }
  std::string yearlyRecurrence(const std::string& before = "45", const std::string& after = "45") {
    // Never ends: the pattern's end date is 31 December 4500, ten occurrences.
    const uint64_t endDate = (uint64_t{store::kNoEndDate} + 11 * 60) * 600000000ull;
    return "<recurrence maxDaysBefore=\"" + before + "\" maxDaysAfter=\"" + after +
           "\" startDate=\"" + num(at(2015, 5, 1, 10)) + "\" endDate=\"" + num(endDate) +
           "\" occurrenceCount=\"10\">\r\n<YearlySpecific month=\"4\" day=\"1\" />\r\n"
           "</recurrence>\r\n";
  }
  std::string weeklyRecurrence(const std::string& before = "45", const std::string& after = "45") {
    return "<recurrence maxDaysBefore=\"" + before + "\" maxDaysAfter=\"" + after +
           "\" startDate=\"" + num(at(2026, 9, 7, 9)) + "\" endDate=\"" +
           num(at(2027, 6, 28, 9, 30)) +
           "\">\r\n<Weekly onDays=\"monday,friday\" every=\"1\" />\r\n</recurrence>\r\n";
  }
  static std::string location300() {
    std::string text;
    for (int i = 0; i < 100; ++i) text += "Ab&amp;";
    return text;
  }
  std::string fullOn() {
    return "<entry entryId=\"" + idOf("c.full") +
           "\" subject=\"Plan &lt;Q1&gt; &amp; &quot;budget&quot;\" startTime=\"" +
           num(at(2026, 11, 23, 9)) + "\" endTime=\"" + num(at(2026, 11, 23, 10)) +
           "\" location=\"" + location300() +
           "\" priority=\"High\" organizer=\"Zoë O&apos;Neil\" busyStatus=\"OOO\">\r\n"
           "  <requiredAttendees>\r\n"
           "    <attendee>Ana</attendee>\r\n"
           "    <attendee>Bob &lt;b@x&gt;</attendee>\r\n"
           "    <attendee>Carl</attendee>\r\n"
           "  </requiredAttendees>\r\n"
           "  <optionalAttendees>\r\n"
           "    <attendee>Dora</attendee>\r\n"
           "  </optionalAttendees>\r\n"
           "  <body>Line 1\nLine 2 &amp; &lt;more&gt;</body>\r\n"
           "</entry>\r\n";
  }
  std::string bad() {
    return "<entry entryId=\"" + idOf("c.bad") + "\" subject=\"Bad values\" startTime=\"" +
           num(at(2026, 11, 24, 9)) + "\">\r\n</entry>\r\n";
  }
  std::string yearlyOn(const std::string& before = "45", const std::string& after = "45") {
    return "<entry entryId=\"" + idOf("c.yearly") + "\" subject=\"Since 2015\" startTime=\"" +
           num(at(2015, 5, 1, 10)) + "\" endTime=\"" + num(at(2015, 5, 1, 11)) +
           "\" recurring=\"true\" busyStatus=\"Busy\">\r\n" + yearlyRecurrence(before, after) +
           "</entry>\r\n";
  }
  std::string weeklyOn(const std::string& before = "45", const std::string& after = "45") {
    return "<entry entryId=\"" + idOf("c.weekly") + "\" subject=\"Weekly sync\" startTime=\"" +
           num(at(2026, 9, 7, 9)) + "\" endTime=\"" + num(at(2026, 9, 7, 9, 30)) +
           "\" recurring=\"true\" busyStatus=\"Busy\">\r\n" + weeklyRecurrence(before, after) +
           "  <exceptions>\r\n"
           "<exception baseDate=\"" +
           num(at(2026, 11, 16, 9)) + "\" subject=\"Moved &amp; renamed\" startTime=\"" +
           num(at(2026, 11, 17, 10)) + "\" endTime=\"" + num(at(2026, 11, 17, 10, 30)) +
           "\" location=\"Room &lt;2&gt;\" busyStatus=\"Tentative\">\r\n"
           "  <requiredAttendees>\r\n"
           "    <attendee>Ana</attendee>\r\n"
           "    <attendee>Bob</attendee>\r\n"
           "  </requiredAttendees>\r\n"
           "  <body>Moved because of &lt;travel&gt;</body>\r\n"
           "</exception>\r\n"
           "<exception baseDate=\"" +
           num(at(2026, 11, 20, 9)) + "\" startTime=\"" + num(at(2026, 11, 20, 9)) +
           "\" endTime=\"" + num(at(2026, 11, 20, 10)) +
           "\">\r\n"
           "  <body>Longer this time</body>\r\n"
           "</exception>\r\n"
           " </exceptions>\r\n"
           "  <body>Series body</body>\r\n"
           "</entry>\r\n";
  }
  std::string rejected() {
    return "<entry entryId=\"" + idOf("c.rejected") +
           "\" subject=\"Rejected pattern\" startTime=\"" + num(at(2020, 1, 1, 10)) +
           "\">\r\n</entry>\r\n";
  }
  std::string unreadable() {
    return "<entry entryId=\"" + idOf("c.unreadable") + "\" subject=\"No pattern\" startTime=\"" +
           num(at(2021, 1, 1, 10)) + "\">\r\n</entry>\r\n";
  }
};

TEST_F(CalendarEntryTest, EveryFieldOnWritesTheWholeFile) {
  LogCapture log;
  const std::vector<CalendarEntry> entries = read<CalendarEntry>("calendar");
  EXPECT_EQ(fileOf(entries), envelope(lines({firstDay(), lastSecond(), fullOn(), bad(), missing(),
                                             yearlyOn(), rejected(), unreadable(), weeklyOn()})));
  EXPECT_EQ(writers(log),
            (std::vector<std::string>{
                kMakeDataRow + "Invalid priority value.",  // busy status 7
                kMakeDataRow + "Invalid priority value.",  // priority 5
                kParse + "Invalid recurrence data.",
                kMakeDataRow + "HR Error: 0x80004005: Failed to retrieve recurrence data.",
                kMakeDataRow + "HR Error: 0x8004010f: Invalid exception attachment.",
            }));
  ASSERT_EQ(entries.size(), 9u);
  EXPECT_EQ(entries[2].location.size(), 300u) << "the table's cut text is read again";
}

TEST_F(CalendarEntryTest, EveryFieldOffWritesTheWholeFile) {
  switchAll(false);
  LogCapture log;
  const std::vector<CalendarEntry> entries = read<CalendarEntry>("calendar");
  const std::string full = "<entry entryId=\"" + idOf("c.full") +
                           "\" subject=\"Plan &lt;Q1&gt; &amp; &quot;budget&quot;\" startTime=\"" +
                           num(at(2026, 11, 23, 9)) + "\" endTime=\"" + num(at(2026, 11, 23, 10)) +
                           "\" location=\"" + location300() + "\">\r\n</entry>\r\n";
  const std::string yearly = "<entry entryId=\"" + idOf("c.yearly") +
                             "\" subject=\"Since 2015\" startTime=\"" + num(at(2015, 5, 1, 10)) +
                             "\" endTime=\"" + num(at(2015, 5, 1, 11)) +
                             "\" recurring=\"true\">\r\n" + yearlyRecurrence() + "</entry>\r\n";
  const std::string weekly =
      "<entry entryId=\"" + idOf("c.weekly") + "\" subject=\"Weekly sync\" startTime=\"" +
      num(at(2026, 9, 7, 9)) + "\" endTime=\"" + num(at(2026, 9, 7, 9, 30)) +
      "\" recurring=\"true\">\r\n" + weeklyRecurrence() +
      "  <exceptions>\r\n"
      "<exception baseDate=\"" +
      num(at(2026, 11, 16, 9)) + "\" subject=\"Moved &amp; renamed\" startTime=\"" +
      num(at(2026, 11, 17, 10)) + "\" endTime=\"" + num(at(2026, 11, 17, 10, 30)) +
      "\" location=\"Room &lt;2&gt;\">\r\n"
      "</exception>\r\n"
      "<exception baseDate=\"" +
      num(at(2026, 11, 20, 9)) + "\" startTime=\"" + num(at(2026, 11, 20, 9)) + "\" endTime=\"" +
      num(at(2026, 11, 20, 10)) +
      "\">\r\n"
      "</exception>\r\n"
      " </exceptions>\r\n"
      "</entry>\r\n";
  EXPECT_EQ(fileOf(entries), envelope(lines({firstDay(), lastSecond(), full, bad(), missing(),
                                             yearly, rejected(), unreadable(), weekly})));
  // Neither the busy status nor the priority is read, so neither complains.
  EXPECT_EQ(writers(log),
            (std::vector<std::string>{
                kParse + "Invalid recurrence data.",
                kMakeDataRow + "HR Error: 0x80004005: Failed to retrieve recurrence data.",
                kMakeDataRow + "HR Error: 0x8004010f: Invalid exception attachment.",
            }));
  ASSERT_EQ(entries.size(), 9u);
  EXPECT_TRUE(entries[2].body.empty());
  EXPECT_TRUE(entries[2].organizer.empty());
  EXPECT_TRUE(entries[2].requiredAttendees.empty());
  EXPECT_TRUE(entries[2].optionalAttendees.empty());
  EXPECT_EQ(entries[2].busyStatus, CalendarEntry::BusyUnknown);
  EXPECT_EQ(entries[2].priority, PriorityUnknown);
}

// Values read with a switch on are still left out when it is off at writing.
TEST_F(CalendarEntryTest, EachSwitchGovernsItsOwnOutput) {
  const std::vector<CalendarEntry> entries = read<CalendarEntry>("calendar");
  ASSERT_EQ(entries.size(), 9u);
  const CalendarEntry& full = entries[2];
  const std::string all = toUtf8(full.toXMLString());
  struct Case {
    Setting<bool> CalendarSettings::*flag;
    std::vector<std::string> gone;
  };
  const std::vector<Case> cases = {
      {&CalendarSettings::captureBody, {"  <body>Line 1\nLine 2 &amp; &lt;more&gt;</body>\r\n"}},
      {&CalendarSettings::captureOrganizer, {" organizer=\"Zoë O&apos;Neil\""}},
      {&CalendarSettings::captureRequiredAttendees,
       {"  <requiredAttendees>\r\n    <attendee>Ana</attendee>\r\n"
        "    <attendee>Bob &lt;b@x&gt;</attendee>\r\n    <attendee>Carl</attendee>\r\n"
        "  </requiredAttendees>\r\n"}},
      {&CalendarSettings::captureOptionalAttendees,
       {"  <optionalAttendees>\r\n    <attendee>Dora</attendee>\r\n  </optionalAttendees>\r\n"}},
      {&CalendarSettings::captureBusyStatus, {" busyStatus=\"OOO\""}},
      {&CalendarSettings::capturePriority, {" priority=\"High\""}},
  };
  for (const Case& c : cases) {
    Preferences::instance().resetToDefaults();
    calendar().*c.flag = false;
    std::string expected = all;
    for (const std::string& part : c.gone) {
      const size_t at = expected.find(part);
      ASSERT_NE(at, std::string::npos) << part;
      expected.erase(at, part.size());
    }
    EXPECT_EQ(toUtf8(full.toXMLString()), expected);
  }
}

TEST_F(CalendarEntryTest, DayCountsAndTheClockMoveTheWindow) {
  const std::vector<std::string> recurring = {"Since 2015", "Rejected pattern", "No pattern",
                                              "Weekly sync"};
  auto singles = [&] { return edges(read<CalendarEntry>("calendar")); };
  using Names = std::vector<std::string>;
  EXPECT_EQ(singles(), (Names{"First day", "Last second"}));
  calendar().captureDaysBefore = 46;
  EXPECT_EQ(singles(), (Names{"First day", "Day before", "Last second"}));
  calendar().captureDaysBefore = 44;
  EXPECT_EQ(singles(), (Names{"Last second"}));
  calendar().captureDaysAfter = 46;
  EXPECT_EQ(singles(), (Names{"Last second", "Day after"}));
  calendar().captureDaysAfter = 44;
  EXPECT_EQ(singles(), Names{});

  // Today only: nothing of the fixture but the recurring ones; the time of
  // day does not matter, the date does.
  calendar().captureDaysBefore = 0;
  calendar().captureDaysAfter = 0;
  const std::vector<CalendarEntry> today = read<CalendarEntry>("calendar");
  EXPECT_EQ(subjectsOf(today), recurring);
  clock_.now = {2026, 11, 0, 23, 23, 59, 59, 999};
  EXPECT_EQ(subjectsOf(read<CalendarEntry>("calendar")),
            (Names{"Plan <Q1> & \"budget\"", "Since 2015", "Rejected pattern", "No pattern",
                   "Weekly sync"}));

  // From the 20th to the 30th; the counts also stand in the recurrence
  // elements.
  calendar().captureDaysBefore = 3;
  calendar().captureDaysAfter = 7;
  EXPECT_EQ(fileOf(read<CalendarEntry>("calendar")),
            envelope(lines({fullOn(), bad(), missing(), yearlyOn("3", "7"), rejected(),
                            unreadable(), weeklyOn("3", "7")})));
}

// The window is worked out in UTC and then shifted by the zone's bias.
TEST_F(CalendarEntryTest, TheZoneBiasShiftsTheWindowEdges) {
  using Names = std::vector<std::string>;
  auto singles = [&] { return edges(read<CalendarEntry>("calendar")); };
  clock_.zone.bias = -60;  // an hour east of UTC: both edges an hour earlier
  EXPECT_EQ(singles(), (Names{"First day", "Day before"}));
  clock_.zone.bias = 60;  // an hour west: both edges an hour later
  EXPECT_EQ(singles(), (Names{"Last second", "Day after"}));
  clock_.zone = {-60, 0, -60, TimeZoneState::Daylight};  // two hours east in summer time
  EXPECT_EQ(singles(), (Names{"First day", "Day before"}));
}

TEST_F(CalendarEntryTest, TheRestrictionIsTheWindowOrAnyRecurringAppointment) {
  std::vector<NameIdPair> pairs = CalendarEntry::getNameIdPairs();
  for (ULONG i = 0; i < pairs.size(); ++i) pairs[i].tag = PROP_TAG(pairs[i].propType, 0x8100 + i);
  const ULONG start = pairs[CalendarEntry::kStartTime].tag;
  const ULONG recurring = pairs[CalendarEntry::kRecurring].tag;
  auto check = [&](uint64_t from, uint64_t to) {
    RecordQuery query;
    ASSERT_EQ(CalendarEntry::getRestriction(query, pairs), S_OK);
    EXPECT_EQ(query.rowLimit, RecordQuery::kNoLimit);
    EXPECT_FALSE(query.sortOrder);
    const SRestriction* root = query.restriction.get();
    ASSERT_TRUE(root);
    ASSERT_EQ(root->rt, ULONG{RES_OR});
    ASSERT_EQ(root->res.resOr.cRes, 2u);
    const SRestriction* either = root->res.resOr.lpRes;
    ASSERT_EQ(either[0].rt, ULONG{RES_AND});
    ASSERT_EQ(either[0].res.resAnd.cRes, 2u);
    const SRestriction* isRecurring = either[0].res.resAnd.lpRes;
    EXPECT_EQ(isRecurring[0].rt, ULONG{RES_EXIST});
    EXPECT_EQ(isRecurring[0].res.resExist.ulPropTag, recurring);
    ASSERT_EQ(isRecurring[1].rt, ULONG{RES_PROPERTY});
    EXPECT_EQ(isRecurring[1].res.resProperty.relop, ULONG{RELOP_EQ});
    EXPECT_EQ(isRecurring[1].res.resProperty.ulPropTag, recurring);
    EXPECT_EQ(isRecurring[1].res.resProperty.lpProp->ulPropTag, recurring);
    EXPECT_TRUE(isRecurring[1].res.resProperty.lpProp->Value.b);
    ASSERT_EQ(either[1].rt, ULONG{RES_AND});
    ASSERT_EQ(either[1].res.resAnd.cRes, 2u);
    const SRestriction* window = either[1].res.resAnd.lpRes;
    const ULONG relops[2] = {RELOP_GE, RELOP_LE};
    const uint64_t bounds[2] = {from, to};
    for (int i = 0; i < 2; ++i) {
      ASSERT_EQ(window[i].rt, ULONG{RES_PROPERTY});
      EXPECT_EQ(window[i].res.resProperty.relop, relops[i]);
      EXPECT_EQ(window[i].res.resProperty.ulPropTag, start);
      const SPropValue* value = window[i].res.resProperty.lpProp;
      EXPECT_EQ(value->ulPropTag, start);
      EXPECT_EQ(uint64_t{value->Value.ft.dwHighDateTime} << 32 | value->Value.ft.dwLowDateTime,
                bounds[i]);
    }
  };
  check(at(2026, 10, 8), at(2027, 1, 6, 23, 59, 59));
  clock_.now = {2026, 11, 0, 22, 23, 59, 59, 999};
  calendar().captureDaysBefore = 0;
  calendar().captureDaysAfter = 0;
  check(at(2026, 11, 22), at(2026, 11, 22, 23, 59, 59));
  clock_.zone.bias = -90;
  check(at(2026, 11, 22) - kHour * 3 / 2, at(2026, 11, 22, 23, 59, 59) - kHour * 3 / 2);
}

TEST_F(CalendarEntryTest, AFailedAllocationGivesNoRestriction) {
  const std::vector<NameIdPair> pairs = CalendarEntry::getNameIdPairs();
  for (const char* call : {"MAPIAllocateBuffer", "MAPIAllocateMore"}) {
    store::ScopedFaults faults;
    faults->failCall(call, MAPI_E_NOT_ENOUGH_MEMORY);
    LogCapture log;
    RecordQuery query;
    EXPECT_EQ(CalendarEntry::getRestriction(query, pairs), E_FAIL) << call;
    EXPECT_EQ(log.messages(),
              std::vector<std::string>{"Failed to MAPI allocate buffer for restriction."});
  }
  // A folder whose query cannot be made is not read at all.
  store::ScopedFaults faults;
  faults->failCall("MAPIAllocateMore", MAPI_E_NOT_ENOUGH_MEMORY);
  std::vector<CalendarEntry> entries;
  CancelFlag cancel{false};
  EXPECT_THROW(getDataList(folder("calendar").get(), &entries, cancel), ComError);
  EXPECT_TRUE(entries.empty());
}

TEST_F(CalendarEntryTest, TheColumnsFollowTheSwitches) {
  std::vector<NameIdPair> pairs = CalendarEntry::getNameIdPairs();
  const LONG dispIds[] = {0x820D, 0x820E, 0x8208, 0x8205, 0x8223, 0x8216, 0x8228};
  const ULONG types[] = {PT_SYSTIME, PT_SYSTIME, PT_UNICODE, PT_LONG,
                         PT_BOOLEAN, PT_BINARY,  PT_SYSTIME};
  ASSERT_EQ(pairs.size(), 7u);
  for (ULONG i = 0; i < pairs.size(); ++i) {
    EXPECT_EQ(*pairs[i].propSet, PSETID_Appointment);
    EXPECT_EQ(pairs[i].kind, ULONG{MNID_ID});
    EXPECT_EQ(pairs[i].dispId, dispIds[i]);
    EXPECT_EQ(pairs[i].propType, types[i]);
    EXPECT_EQ(pairs[i].tag, i);
    pairs[i].tag = PROP_TAG(types[i], 0x8100 + i);
  }
  auto columns = [&] {
    const PropTagArray array = CalendarEntry::getPropIds(pairs);
    std::vector<ULONG> out;
    for (ULONG i = 0; i < array.size(); ++i) out.push_back(array.getAt(i));
    return out;
  };
  const std::vector<ULONG> always = {PR_ENTRYID,   PR_BODY_W,    pairs[0].tag,
                                     pairs[1].tag, pairs[2].tag, PR_SUBJECT_W,
                                     pairs[4].tag, pairs[5].tag, pairs[6].tag};
  std::vector<ULONG> all = always;
  all.insert(all.end(),
             {PR_SENDER_NAME_W, PR_DISPLAY_TO_W, PR_DISPLAY_CC_W, pairs[3].tag, PR_PRIORITY});
  EXPECT_EQ(columns(), all);
  switchAll(false);
  EXPECT_EQ(columns(), always) << "the body is asked for even when it is not captured";
  calendar().captureOptionalAttendees = true;
  calendar().capturePriority = true;
  std::vector<ULONG> some = always;
  some.insert(some.end(), {PR_DISPLAY_CC_W, PR_PRIORITY});
  EXPECT_EQ(columns(), some);
}

TEST_F(CalendarEntryTest, TheElementWritesItsAttributesInOrder) {
  CalendarEntry entry;
  EXPECT_EQ(toUtf8(entry.toXMLString()), "<entry>\r\n</entry>\r\n");
  EXPECT_EQ(toUtf8(entry.toXMLString(true)), "<exception>\r\n</exception>\r\n");

  entry.entryId = EntryId(std::vector<uint8_t>{0x00, 0xAB});
  entry.subject = u"S";
  entry.startTime = 1;
  entry.endTime = 2;
  entry.baseDate = 3;
  entry.location = u"L";
  entry.priority = PriorityLow;
  entry.organizer = u"O";
  entry.sourceFolder = u"Calendar & <more>";
  entry.busyStatus = CalendarEntry::Free;
  entry.recurring = true;  // without a pattern: not written
  entry.optionalAttendees = {u"x&y"};
  entry.exceptions.resize(1);  // an exception has none of its own
  entry.exceptions[0].subject = u"E";
  EXPECT_EQ(toUtf8(entry.toXMLString()),
            "<entry entryId=\"00ab\" subject=\"S\" startTime=\"1\" endTime=\"2\" location=\"L\" "
            "priority=\"Low\" organizer=\"O\" sourceFolder=\"Calendar &amp; &lt;more&gt;\" "
            "busyStatus=\"Free\">\r\n"
            "  <optionalAttendees>\r\n    <attendee>x&amp;y</attendee>\r\n"
            "  </optionalAttendees>\r\n"
            "  <exceptions>\r\n<exception subject=\"E\">\r\n</exception>\r\n </exceptions>\r\n"
            "</entry>\r\n");
  EXPECT_EQ(
      toUtf8(entry.toXMLString(true)),
      "<exception baseDate=\"3\" entryId=\"00ab\" subject=\"S\" startTime=\"1\" endTime=\"2\" "
      "location=\"L\" priority=\"Low\" organizer=\"O\" "
      "sourceFolder=\"Calendar &amp; &lt;more&gt;\" busyStatus=\"Free\">\r\n"
      "  <optionalAttendees>\r\n    <attendee>x&amp;y</attendee>\r\n"
      "  </optionalAttendees>\r\n"
      "</exception>\r\n");

  // Values outside the tables.
  LogCapture log;
  entry = CalendarEntry();
  entry.priority = static_cast<Priority>(9);
  entry.busyStatus = static_cast<CalendarEntry::BusyStatus>(-2);
  EXPECT_EQ(toUtf8(entry.toXMLString()),
            "<entry priority=\"invalid\" busyStatus=\"invalid\">\r\n</entry>\r\n");
  EXPECT_EQ(
      writers(log),
      (std::vector<std::string>{
          "calendar_entry.cpp : PIM::CalendarEntry::priorityToStr() > ERR> Invalid data type.",
          "calendar_entry.cpp : PIM::CalendarEntry::busyToStr() > ERR> Invalid data type."}));
  EXPECT_EQ(toUtf8(CalendarEntry::busyToStr(CalendarEntry::OutOfOffice)), "OOO");
  EXPECT_EQ(toUtf8(CalendarEntry::busyToStr(CalendarEntry::Tentative)), "Tentative");
  EXPECT_EQ(toUtf8(CalendarEntry::busyToStr(CalendarEntry::BusyUnknown)), "Unknown");
  EXPECT_EQ(toUtf8(CalendarEntry::priorityToStr(PriorityNormal)), "Normal");
  EXPECT_EQ(toUtf8(CalendarEntry::priorityToStr(PriorityUnknown)), "Unknown");
}

// One recurring appointment with two exceptions, for the store's failures.
const char* kFaultJson = R"json({
  "stores": [{
    "key": "main", "name": "Mailbox", "default": true,
    "root": {"folders": [
      {"key": "calendar", "name": "Calendar", "class": "IPF.Appointment", "items": [
        {"key": "c.daily", "class": "IPM.Appointment", "props": [
          {"tag": "PR_SUBJECT_W", "value": "Daily"},
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-11-02T08:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8223"}, "type": "PT_BOOLEAN", "value": true},
          {"named": {"set": "PSETID_Appointment", "id": "0x8216"}, "type": "PT_BINARY", "value": {"recurrence": {
            "pattern": "daily", "every": 2, "start": "2026-11-02", "count": 5, "endDate": "2026-11-10",
            "startTime": "08:00", "endTime": "08:30",
            "exceptions": [
              {"original": "2026-11-04T08:00", "start": "2026-11-04T09:00", "end": "2026-11-04T09:30"},
              {"original": "2026-11-06T08:00", "start": "2026-11-06T09:00", "end": "2026-11-06T09:30"}]}}}],
         "attachments": [
          {"props": [], "embedded": {"class": "IPM.OLE.CLASS.{00061055-0000-0000-C000-000000000046}",
           "props": [{"tag": "PR_SUBJECT_W", "value": "One"}]}},
          {"props": [], "embedded": {"class": "IPM.OLE.CLASS.{00061055-0000-0000-C000-000000000046}",
           "props": [{"tag": "PR_SUBJECT_W", "value": "Two"}]}}]}]}]}
  }]
})json";

class CalendarFaultTest : public CalendarEntryTest {
 protected:
  const char* json() const override { return kFaultJson; }

  std::string daily(const std::vector<std::string>& exceptions) {
    std::string xml = "<entry entryId=\"" + idOf("c.daily") + "\" subject=\"Daily\" startTime=\"" +
                      num(at(2026, 11, 2, 8)) +
                      "\" recurring=\"true\">\r\n<recurrence maxDaysBefore=\"45\" "
                      "maxDaysAfter=\"45\" startDate=\"" +
                      num(at(2026, 11, 2, 8)) + "\" endDate=\"" + num(at(2026, 11, 10, 8, 30)) +
                      "\" occurrenceCount=\"5\">\r\n<Daily every=\"2\" />\r\n</recurrence>\r\n";
    if (!exceptions.empty()) {
      xml += "  <exceptions>\r\n";
      for (const std::string& subject : exceptions)
        xml += "<exception subject=\"" + subject + "\">\r\n</exception>\r\n";
      xml += " </exceptions>\r\n";
    }
    return xml + "</entry>\r\n";
  }
};

TEST_F(CalendarFaultTest, StoreFailuresAreLoggedAndTheEntryIsKept) {
  calendar().captureBody = false;  // exceptions without a body need no stream
  {
    LogCapture log;
    const std::vector<CalendarEntry> entries = read<CalendarEntry>("calendar");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(toUtf8(entries[0].toXMLString()), daily({"One", "Two"}));
    EXPECT_EQ(log.messages(), std::vector<std::string>{});
  }
  struct Case {
    const char* call;
    HRESULT result;
    unsigned nth;
    std::string logged;
    std::vector<std::string> kept;
  };
  const std::vector<Case> cases = {
      {"IMAPIFolder::OpenEntry",
       MAPI_E_NO_ACCESS,
       1,
       "HR Error: 0x80070005: Failed to retrieve recurrence data.",
       {}},
      {"IMessage::QueryInterface",
       E_NOINTERFACE,
       1,
       "HR Error: 0x80004002: Failed to retrieve recurrence data.",
       {}},
      {"IMessage::GetAttachmentTable",
       MAPI_E_NO_SUPPORT,
       1,
       "HR Error: 0x80040102: Failed to retrieve recurrence data.",
       {}},
      // The contents table's columns are set first, the attachment table's next.
      {"IMAPITable::SetColumns",
       MAPI_E_NO_SUPPORT,
       2,
       "HR Error: 0x80040102: Failed to retrieve recurrence data.",
       {}},
      {"IMAPITable::GetRowCount",
       MAPI_E_CALL_FAILED,
       2,
       "Failed to get exception attachments:0x80004005",
       {}},
      {"IMessage::OpenAttach",
       MAPI_E_NOT_FOUND,
       1,
       "HR Error: 0x8004010f: Failed to retrieve recurrence attachment",
       {"Two"}},
      {"IAttach::OpenProperty",
       MAPI_E_NO_ACCESS,
       2,
       "HR Error: 0x80070005: Invalid exception attachment.",
       {"One"}},
      {"IMessage::GetProps",
       MAPI_E_CALL_FAILED,
       2,
       "Failed to get exception attachments:0x80004005",
       {"One"}},
      {"IMessage::GetProps",
       MAPI_E_NOT_ENOUGH_MEMORY,
       1,
       "Unknown error. Failed to get exception attachments.",
       {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.call);
    store::ScopedFaults faults;
    faults->failCall(c.call, c.result, c.nth);
    LogCapture log;
    const std::vector<CalendarEntry> entries = read<CalendarEntry>("calendar");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(toUtf8(entries[0].toXMLString()), daily(c.kept));
    EXPECT_EQ(writers(log), std::vector<std::string>{kMakeDataRow + c.logged});
    EXPECT_GT(faults->callCount(c.call), 0u);
  }
}

// An exception's body is read again through a stream when the store gives
// no long text through GetProps.
class CalendarLongBodyTest : public CalendarEntryTest {
 protected:
  const char* json() const override {
    return R"json({
  "stores": [{
    "key": "main", "name": "Mailbox", "default": true, "options": {"getPropsByteLimit": 1000},
    "root": {"folders": [
      {"key": "calendar", "name": "Calendar", "class": "IPF.Appointment", "items": [
        {"key": "c.monthly", "class": "IPM.Appointment", "props": [
          {"named": {"set": "PSETID_Appointment", "id": "0x820D"}, "type": "PT_SYSTIME", "value": "2026-01-15T11:00:00Z"},
          {"named": {"set": "PSETID_Appointment", "id": "0x8223"}, "type": "PT_BOOLEAN", "value": true},
          {"named": {"set": "PSETID_Appointment", "id": "0x8216"}, "type": "PT_BINARY", "value": {"recurrence": {
            "pattern": "monthly", "day": 15, "start": "2026-01-15", "startTime": "11:00", "endTime": "12:00",
            "exceptions": [{"original": "2026-12-15T11:00", "start": "2026-12-16T11:00", "end": "2026-12-16T12:00"}]}}}],
         "attachments": [
          {"props": [], "embedded": {"class": "IPM.OLE.CLASS.{00061055-0000-0000-C000-000000000046}",
           "props": [{"tag": "PR_BODY_W", "value": {"text": "Long body ", "repeat": 150}}]}}]}]}]}
  }]
})json";
  }
};

TEST_F(CalendarLongBodyTest, AnExceptionBodyIsReadWhole) {
  LogCapture log;
  std::vector<CalendarEntry> entries = read<CalendarEntry>("calendar");
  ASSERT_EQ(entries.size(), 1u);
  ASSERT_EQ(entries[0].exceptions.size(), 1u);
  std::u16string expected;
  for (int i = 0; i < 150; ++i) expected += u"Long body ";
  EXPECT_EQ(entries[0].exceptions[0].body, expected);
  EXPECT_EQ(entries[0].recurrence.type, MAPIRecurrence::MonthlySpecific);
  EXPECT_EQ(log.messages(), std::vector<std::string>{});

  calendar().captureBody = false;
  entries = read<CalendarEntry>("calendar");
  ASSERT_EQ(entries.size(), 1u);
  ASSERT_EQ(entries[0].exceptions.size(), 1u);
  EXPECT_TRUE(entries[0].exceptions[0].body.empty());
}

// The bundled sample mailbox, as a first capture of it sees its calendar.
class CalendarSampleTest : public RecordTest {
 protected:
  void SetUp() override {
    RecordTest::SetUp();
    session_.reset();
    profile_ = store::loadFixtureFile(fromUtf8(FERRANT_SAMPLE_MAILBOX));
    ASSERT_EQ(profile_->logon(session_.put()), S_OK);
  }
};

TEST_F(CalendarSampleTest, TheCalendarHasEveryKindOfRecurrence) {
  const std::vector<CalendarEntry> entries = read<CalendarEntry>("calendar");
  // Five single appointments inside the window, two outside it, and seven
  // recurring ones.
  EXPECT_EQ(entries.size(), 12u);
  std::set<uint32_t> kinds;
  size_t withExceptions = 0;
  for (const CalendarEntry& entry : entries) {
    EXPECT_TRUE(entry.entryId.isValid());
    if (entry.recurring) kinds.insert(entry.recurrence.type);
    if (!entry.exceptions.empty()) ++withExceptions;
    for (const CalendarEntry& exception : entry.exceptions) {
      EXPECT_FALSE(exception.entryId.isValid());
      EXPECT_NE(exception.baseDate, 0u);
    }
  }
  EXPECT_EQ(kinds, (std::set<uint32_t>{1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(withExceptions, 7u);
  const std::string file = fileOf(entries);
  EXPECT_NE(file.find("busyStatus=\"OOO\""), std::string::npos);
}

}  // namespace
}  // namespace PIM::testing
