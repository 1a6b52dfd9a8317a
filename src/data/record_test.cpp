// What the record types share: the texts of their enumerations.
#include "data/record.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "core/utils.h"
#include "data/calendar_entry.h"
#include "data/data_file.h"
#include "data/data_test_util.h"
#include "data/email.h"
#include "data/task.h"

namespace PIM::testing {
namespace {

// A value outside its table gives "invalid", and the line says so in the
// name and file of the converter that was asked, not of a shared helper.
TEST(EnumerationTexts, AValueOutsideItsTableIsLoggedByItsOwnConverter) {
  struct Case {
    std::function<std::u16string()> convert;
    const char* writer;
  };
  const Case cases[] = {
      {[] { return Task::statusToStr(static_cast<Task::TaskStatus>(6)); },
       "task.cpp : PIM::Task::statusToStr()"},
      {[] { return Task::priorityToStr(static_cast<Priority>(-1)); },
       "task.cpp : PIM::Task::priorityToStr()"},
      {[] { return CalendarEntry::priorityToStr(static_cast<Priority>(4)); },
       "calendar_entry.cpp : PIM::CalendarEntry::priorityToStr()"},
      {[] { return CalendarEntry::busyToStr(static_cast<CalendarEntry::BusyStatus>(-2)); },
       "calendar_entry.cpp : PIM::CalendarEntry::busyToStr()"},
      {[] { return Email::importanceToStr(static_cast<Email::Importance>(4)); },
       "email.cpp : PIM::Email::importanceToStr()"},
      {[] { return Email::sensitivityToStr(static_cast<Email::Sensitivity>(5)); },
       "email.cpp : PIM::Email::sensitivityToStr()"},
      {[] { return Email::flagStatusToStr(static_cast<Email::FlagStatus>(-1)); },
       "email.cpp : PIM::Email::flagStatusToStr()"},
      {[] { return DataDirectoryEntry::typeToStr(5); },
       "data_file.cpp : PIM::DataDirectoryEntry::typeToStr()"},
  };
  for (const Case& c : cases) {
    LogCapture log;
    EXPECT_EQ(toUtf8(c.convert()), "invalid") << c.writer;
    EXPECT_EQ(writers(log),
              std::vector<std::string>{std::string(c.writer) + " > ERR> Invalid data type."});
  }
}

}  // namespace
}  // namespace PIM::testing
