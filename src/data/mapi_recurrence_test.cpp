// The recurrence decoder against blobs made by the store's encoder (checked
// byte for byte against captured blobs) with single fields broken by hand,
// and against the captured blobs themselves.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/utils.h"
#include "data/data_test_util.h"
#include "data/mapi_recurrence.h"
#include "store/recurrence_blob.h"
#include "testing/schema_check.h"

namespace PIM {
namespace {

using store::AppointmentRecurrence;
using store::Bytes;
using store::encodeAppointmentRecurrence;
using store::kEndAfterCount;
using store::kEndAfterDate;
using store::kEndNever;
using store::kPatternDay;
using store::kPatternMonth;
using store::kPatternMonthNth;
using store::kPatternWeek;
using store::kRecurDaily;
using store::kRecurMonthly;
using store::kRecurWeekly;
using store::kRecurYearly;
using store::minutesSince1601;

constexpr uint64_t kTicksPerMinute = 600000000;

void put16(Bytes& b, size_t at, uint16_t v) {
  b.at(at) = static_cast<uint8_t>(v);
  b.at(at + 1) = static_cast<uint8_t>(v >> 8);
}
void put32(Bytes& b, size_t at, uint32_t v) {
  for (size_t i = 0; i < 4; ++i) b.at(at + i) = static_cast<uint8_t>(v >> (8 * i));
}

// Size of the pattern-specific part, as the layout gives it.
size_t specificSize(const AppointmentRecurrence& r) {
  switch (r.pattern.patternType) {
    case kPatternDay:
      return 0;
    case kPatternMonthNth:
      return 8;
    default:
      return 4;
  }
}

// A series from the first to the last day (0 = never ends) at the given
// times of day; `day` is the day of the month.
struct Series {
  uint16_t frequency, patternType;
  uint32_t period, first, last, endType, count, startTime, endTime;
  uint32_t dayMask = 0, nth = 0, day = 0;
};

AppointmentRecurrence make(const Series& s) {
  AppointmentRecurrence r;
  r.pattern.frequency = s.frequency;
  r.pattern.patternType = s.patternType;
  r.pattern.period = s.period;
  r.pattern.startDate = s.first;
  if (s.last != 0) r.pattern.endDate = s.last;
  r.pattern.endType = s.endType;
  r.pattern.occurrenceCount = s.count;
  r.pattern.dayMask = s.dayMask;
  r.pattern.nth = s.nth;
  r.pattern.dayOfMonth = s.day;
  r.startTimeOffset = s.startTime;
  r.endTimeOffset = s.endTime;
  return r;
}

AppointmentRecurrence daily(uint32_t period) {
  return make({kRecurDaily, kPatternDay, period, minutesSince1601(2024, 1, 1),
               minutesSince1601(2024, 1, 19), kEndAfterCount, 10, 540, 570});
}
AppointmentRecurrence weekdays() {
  return make({kRecurDaily, kPatternWeek, 1, minutesSince1601(2024, 1, 1), 0, kEndNever, 10, 480,
               495, 0x3E});
}
AppointmentRecurrence weekly(uint32_t dayMask) {
  return make({kRecurWeekly, kPatternWeek, 1, minutesSince1601(2024, 1, 1),
               minutesSince1601(2024, 6, 28), kEndAfterDate, 128, 600, 630, dayMask});
}
// The 15th every three months.
AppointmentRecurrence monthly() {
  return make({kRecurMonthly, kPatternMonth, 3, minutesSince1601(2024, 1, 15),
               minutesSince1601(2024, 10, 15), kEndAfterCount, 4, 660, 720, 0, 0, 15});
}
// The last Friday of every month.
AppointmentRecurrence monthlyNth() {
  return make({kRecurMonthly, kPatternMonthNth, 1, minutesSince1601(2024, 1, 26),
               minutesSince1601(2024, 12, 27), kEndAfterDate, 12, 960, 1020, 0x20, 5});
}
// 10 March every year, all day, never ends.
AppointmentRecurrence yearly() {
  return make({kRecurYearly, kPatternMonth, 12, minutesSince1601(2024, 3, 10), 0, kEndNever, 10, 0,
               1440, 0, 0, 10});
}
// The fourth Thursday of November.
AppointmentRecurrence yearlyNth() {
  return make({kRecurYearly, kPatternMonthNth, 12, minutesSince1601(2024, 11, 28),
               minutesSince1601(2028, 11, 23), kEndAfterCount, 5, 1170, 1350, 0x10, 4});
}

// A changed occurrence: one more deleted and one modified date.
void addException(AppointmentRecurrence& r, uint32_t originalDay, uint32_t newDay) {
  store::RecurrenceException e;
  e.originalStart = originalDay + r.startTimeOffset;
  e.start = newDay + r.startTimeOffset;
  e.end = newDay + r.endTimeOffset;
  e.subject = u"Moved";
  r.exceptions.push_back(e);
}

class MAPIRecurrenceTest : public ::testing::Test {
 protected:
  void SetUp() override { Preferences::instance().resetToDefaults(); }
  void TearDown() override { Preferences::instance().resetToDefaults(); }

  static MAPIRecurrence decode(const Bytes& blob) {
    MAPIRecurrence r;
    r.reset(blob);
    return r;
  }
  static std::string xmlOf(const Bytes& blob) { return toUtf8(decode(blob).toXml()); }

  // What the log holds after "file(line) : ": the function, the marker and
  // the text.
  static std::vector<std::string> logged(const testing::LogCapture& log) {
    std::vector<std::string> out;
    for (const std::string& line : log.lines()) {
      const size_t at = line.find(" : ");
      out.push_back(at == std::string::npos ? line : line.substr(at + 3));
    }
    return out;
  }

  testing::ClockEnv clock_;  // UTC
  testing::ScopedEnv scopedClock_{&clock_};
};

constexpr const char* kParseError = "PIM::MAPIRecurrence::parse() > ERR> ";

TEST_F(MAPIRecurrenceTest, EachPatternTypeWritesItsWholeElement) {
  Preferences::instance().calendar.captureDaysBefore = 7;
  Preferences::instance().calendar.captureDaysAfter = 60;
  struct Case {
    const char* name;
    AppointmentRecurrence recurrence;
    std::string xml;
  };
  const std::string head = "<recurrence maxDaysBefore=\"7\" maxDaysAfter=\"60\" ";
  const Case cases[] = {
      {"every 2 days", daily(2880),
       head + "startDate=\"133485732000000000\" endDate=\"133501302000000000\" "
              "occurrenceCount=\"10\">\r\n<Daily every=\"2\" />\r\n</recurrence>\r\n"},
      {"every weekday, never ends", weekdays(),
       head + "startDate=\"133485696000000000\" endDate=\"915151688400000000\" "
              "occurrenceCount=\"10\">\r\n<DailyWeekly />\r\n</recurrence>\r\n"},
      {"weekly, Monday to Friday", weekly(0x3E),
       head + "startDate=\"133485768000000000\" endDate=\"133640442000000000\" "
              "occurrenceCount=\"128\">\r\n"
              "<Weekly onDays=\"monday,tuesday,wednesday,thursday,friday\" every=\"1\" />\r\n"
              "</recurrence>\r\n"},
      {"the 15th every 3 months", monthly(),
       head + "startDate=\"133497900000000000\" endDate=\"133734672000000000\" "
              "occurrenceCount=\"4\">\r\n<MonthlySpecific day=\"15\" every=\"3\" />\r\n"
              "</recurrence>\r\n"},
      {"the last Friday", monthlyNth(),
       head + "startDate=\"133507584000000000\" endDate=\"133797924000000000\" "
              "occurrenceCount=\"12\">\r\n"
              "<MonthlyFuzzy occurrence=\"5\" dayName=\"friday\" every=\"1\" />\r\n"
              "</recurrence>\r\n"},
      {"10 March", yearly(),
       head + "startDate=\"133545024000000000\" endDate=\"915152255400000000\" "
              "occurrenceCount=\"10\">\r\n<YearlySpecific month=\"2\" day=\"10\" />\r\n"
              "</recurrence>\r\n"},
      {"fourth Thursday of November", yearlyNth(),
       head + "startDate=\"133772958000000000\" endDate=\"135031050000000000\" "
              "occurrenceCount=\"5\">\r\n"
              "<YearlyFuzzy occurrence=\"4\" dayName=\"thursday\" month=\"10\" />\r\n"
              "</recurrence>\r\n"},
  };
  for (const Case& c : cases) {
    testing::LogCapture log;
    EXPECT_EQ(xmlOf(encodeAppointmentRecurrence(c.recurrence)), c.xml) << c.name;
    EXPECT_EQ(logged(log), std::vector<std::string>{}) << c.name;
  }

  // A zero end and count are left out; the start is always written.
  AppointmentRecurrence bare = daily(1440);
  bare.pattern.occurrenceCount = 0;
  bare.pattern.endDate = 0;
  bare.startTimeOffset = bare.endTimeOffset = 0;
  EXPECT_EQ(xmlOf(encodeAppointmentRecurrence(bare)),
            head +
                "startDate=\"133485408000000000\">\r\n<Daily every=\"1\" />\r\n"
                "</recurrence>\r\n");

  // The limits are written signed.
  Preferences::instance().calendar.captureDaysBefore = 0xFFFFFFFF;
  Preferences::instance().calendar.captureDaysAfter = 0;
  EXPECT_EQ(xmlOf(encodeAppointmentRecurrence(bare)),
            "<recurrence maxDaysBefore=\"-1\" maxDaysAfter=\"0\" startDate=\"133485408000000000\">"
            "\r\n<Daily every=\"1\" />\r\n</recurrence>\r\n");
}

// Every value a pattern may carry past the decoder's checks is valid in the
// published schema, not only the ones a well-kept calendar holds.
TEST_F(MAPIRecurrenceTest, EdgeValuesTheDecoderAcceptsAreValidInTheSchema) {
  auto nth = [](AppointmentRecurrence r, uint32_t occurrence, uint32_t dayMask) {
    r.pattern.nth = occurrence;
    r.pattern.dayMask = dayMask;
    return r;
  };
  AppointmentRecurrence december = yearly();
  december.pattern.startDate = minutesSince1601(2024, 12, 1);
  december.pattern.dayOfMonth = 0;
  const AppointmentRecurrence accepted[] = {
      nth(monthlyNth(), 0, 0x20),
      nth(monthlyNth(), 5, 0x7F),
      nth(yearlyNth(), 0, 0),
      nth(yearlyNth(), 6, 0x10),
      nth(yearlyNth(), 0xFFFFFFFF, 0xFFFFFFFF),
      weekly(0),
      daily(0),
      december,
  };
  struct Line {
    std::u16string text;
    std::u16string toXMLString() const { return text; }
  };
  std::vector<Line> lines;
  for (const AppointmentRecurrence& r : accepted) {
    const MAPIRecurrence decoded = decode(encodeAppointmentRecurrence(r));
    ASSERT_NE(decoded.type, MAPIRecurrence::None) << toUtf8(decoded.toXml());
    lines.push_back(
        {u"<entry entryId=\"01\" recurring=\"true\">\r\n" + decoded.toXml() + u"</entry>"});
  }
  testing::TempDir dir;
  const std::u16string path = dir.file(u"edges.xml");
  ASSERT_TRUE(writeToFile(path, lines));
  const std::optional<std::string> errors = testing::schemaErrors(path);
  if (!errors) GTEST_SKIP() << "no schema check here";
  EXPECT_EQ(*errors, "");
}

TEST_F(MAPIRecurrenceTest, DecodedFieldsAndEndTypes) {
  MAPIRecurrence r = decode(encodeAppointmentRecurrence(yearlyNth()));
  EXPECT_EQ(r.type, MAPIRecurrence::YearlyFuzzy);
  EXPECT_EQ(r.endType, 2u);
  EXPECT_EQ(r.occurrenceCount, 5u);
  EXPECT_EQ(r.dayMask, 0x10u);
  EXPECT_EQ(r.occurrence, 4u);
  EXPECT_EQ(r.month, 10u);
  EXPECT_EQ(r.day, 0u);
  EXPECT_EQ(r.every, 0u);

  // Parsing new data keeps nothing of the last pattern.
  r.data = encodeAppointmentRecurrence(weekly(0x41));
  r.parse();
  EXPECT_EQ(r.type, MAPIRecurrence::Weekly);
  EXPECT_EQ(r.dayMask, 0x41u);
  EXPECT_EQ(r.occurrence, 0u);
  EXPECT_EQ(r.month, 0u);

  // A daily period under a day is no whole day.
  EXPECT_EQ(decode(encodeAppointmentRecurrence(daily(1439))).every, 0u);
  EXPECT_EQ(decode(encodeAppointmentRecurrence(daily(4319))).every, 2u);

  // Only the end type's low byte counts.
  const struct {
    uint32_t field;
    uint32_t endType;
  } ends[] = {{0x2021, 1}, {0x2022, 2}, {0x2023, 3}, {0x21, 1}, {0x22, 2}, {0xFFFFFF23, 3}};
  AppointmentRecurrence w = weekly(0x02);
  for (const auto& end : ends) {
    w.pattern.endType = end.field;
    EXPECT_EQ(decode(encodeAppointmentRecurrence(w)).endType, end.endType) << end.field;
  }

  // Wrong versions only log; the pattern stays.
  Bytes blob = encodeAppointmentRecurrence(weekly(0x02));
  put32(blob, 0, 0x30053004);
  blob[5] = 0x21;
  testing::LogCapture log;
  r = decode(blob);
  EXPECT_EQ(r.type, MAPIRecurrence::Weekly);
  EXPECT_EQ(logged(log), (std::vector<std::string>{std::string(kParseError) + "Assertion failed",
                                                   std::string(kParseError) + "Assertion failed"}));

  // Every weekday passes by any one of its three marks.
  AppointmentRecurrence wd = weekdays();
  wd.pattern.period = 2;
  wd.pattern.dayMask = 0x3E;
  wd.pattern.firstDateTime = 0;
  EXPECT_EQ(decode(encodeAppointmentRecurrence(wd)).type, MAPIRecurrence::DailyWeekday);
  wd.pattern.dayMask = 0x1E;
  wd.pattern.period = 1;
  EXPECT_EQ(decode(encodeAppointmentRecurrence(wd)).type, MAPIRecurrence::DailyWeekday);
  wd.pattern.period = 2;
  wd.pattern.firstDateTime = 8640;
  EXPECT_EQ(decode(encodeAppointmentRecurrence(wd)).type, MAPIRecurrence::DailyWeekday);

  // A type set by hand outside the seven writes nothing.
  r = decode(encodeAppointmentRecurrence(weekly(0x02)));
  r.type = 8;
  EXPECT_EQ(r.toXml(), u"");
  r.type = MAPIRecurrence::None;
  EXPECT_EQ(r.toXml(), u"");
}

TEST_F(MAPIRecurrenceTest, RejectedPatternsLogTheirReasonAndClearEveryField) {
  struct Case {
    const char* name;
    Bytes blob;
    const char* error;
  };
  auto blobOf = [](const AppointmentRecurrence& r) { return encodeAppointmentRecurrence(r); };
  auto with = [](Bytes b, size_t at, uint32_t value) {
    put32(b, at, value);
    return b;
  };
  // PatternType and the frequency byte, 16 bits each.
  auto with16 = [](Bytes b, size_t at, uint16_t value) {
    put16(b, at, value);
    return b;
  };
  Bytes short67 = blobOf(daily(1440));
  ASSERT_GE(short67.size(), 68u);
  short67.resize(67);
  AppointmentRecurrence badWeekday = weekdays();
  badWeekday.pattern.period = 2;
  badWeekday.pattern.dayMask = 0x1E;
  badWeekday.pattern.firstDateTime = 0;
  AppointmentRecurrence december = yearly();
  december.pattern.firstDateTime = 480961;  // inside December: month 12
  AppointmentRecurrence nthDecember = yearlyNth();
  nthDecember.pattern.firstDateTime = 525601;  // past December: month 13
  AppointmentRecurrence yearlyPeriod1 = yearly();
  yearlyPeriod1.pattern.period = 1;
  AppointmentRecurrence nthPeriod24 = yearlyNth();
  nthPeriod24.pattern.period = 24;
  nthPeriod24.pattern.firstDateTime = 304 * 1440;  // 1 November
  AppointmentRecurrence never = weekly(0x02);
  never.pattern.endType = 0xFFFFFFFF;
  AppointmentRecurrence endType24 = weekly(0x02);
  endType24.pattern.endType = 0x2024;

  const Case cases[] = {
      {"empty", {}, "Invalid recurrence data."},
      {"67 bytes", short67, "Invalid recurrence data."},
      {"daily pattern 2", with16(blobOf(daily(1440)), 6, 2), "Invalid type of daily recurrence."},
      {"weekly pattern 0", with16(blobOf(weekly(1)), 6, 0), "Invalid type of weekly recurrence."},
      {"weekly pattern 2", with16(blobOf(weekly(1)), 6, 2), "Invalid type of weekly recurrence."},
      {"monthly pattern 1", with16(blobOf(monthly()), 6, 1), "Invalid type of mothly recurrence."},
      {"monthly month-end", with16(blobOf(monthly()), 6, 4), "Invalid type of mothly recurrence."},
      {"yearly pattern 0", with16(blobOf(yearly()), 6, 0), "Invalid type of mothly recurrence."},
      {"frequency 0x0E", with16(blobOf(yearly()), 4, 0x200E), "Invalid recurrence data type"},
      {"frequency 0x09", with16(blobOf(daily(1440)), 4, 0x2009), "Invalid recurrence data type"},
      {"weekday without its marks", blobOf(badWeekday), "Invalid daily weekday recurrence data."},
      {"weekly mask 128", blobOf(weekly(0x80)),
       "Invalid weekly recurrence data, invalid day mask."},
      {"monthly nth mask 128", with(blobOf(monthlyNth()), 22, 0x80),
       "Invalid monthly recurrence data, invalid day mask."},
      {"monthly nth period 13", with(blobOf(monthlyNth()), 14, 13),
       "Invalid monthly recurrence data, invlid month."},
      {"monthly nth occurrence 6", with(blobOf(monthlyNth()), 26, 6),
       "Invalid monthly recurrence data, invalid occurrence."},
      {"yearly in December", blobOf(december),
       "Invalid yearly recurrence data, invalid month for recurrence.."},
      {"yearly nth past December", blobOf(nthDecember),
       "Invalid yearly recurrence data, invalid month for recurrence.."},
      {"yearly period 1", blobOf(yearlyPeriod1),
       "Invalid yearly recurrence data, months between recurrences must be 12."},
      {"yearly nth period 24", blobOf(nthPeriod24),
       "Invalid yearly recurrence data, months between recurrences must be 12."},
      {"end type 0xFFFFFFFF", blobOf(never), "Invalid termination type."},
      {"end type 0x2024", blobOf(endType24), "Invalid termination type."},
  };
  const Bytes good = blobOf(monthlyNth());
  for (const Case& c : cases) {
    MAPIRecurrence r;
    r.reset(good);
    ASSERT_EQ(r.type, MAPIRecurrence::MonthlyFuzzy);
    testing::LogCapture log;
    r.reset(c.blob);
    EXPECT_EQ(logged(log), std::vector<std::string>{kParseError + std::string(c.error)}) << c.name;
    EXPECT_EQ(r.data, c.blob) << c.name;
    EXPECT_EQ(r.type, MAPIRecurrence::None) << c.name;
    EXPECT_EQ(r.endType, 0u) << c.name;
    EXPECT_EQ(r.startDate, 0u) << c.name;
    EXPECT_EQ(r.endDate, 0u) << c.name;
    EXPECT_EQ(r.occurrenceCount, 0u) << c.name;
    EXPECT_EQ(r.every, 0u) << c.name;
    EXPECT_EQ(r.dayMask, 0u) << c.name;
    EXPECT_EQ(r.occurrence, 0u) << c.name;
    EXPECT_EQ(r.toXml(), u"") << c.name;
  }

  // The checks that pass: occurrence 5 (last), a yearly month at its start
  // minute, the months between monthly occurrences up to 12.
  EXPECT_EQ(decode(with(good, 26, 5)).type, MAPIRecurrence::MonthlyFuzzy);
  EXPECT_EQ(decode(with(good, 14, 12)).every, 12u);
  december.pattern.firstDateTime = 480960;  // 1 December
  EXPECT_EQ(decode(blobOf(december)).month, 11u);
}

// The blob must hold 68 + S bytes, then 4 more for each deleted and each
// modified date; what follows the end time is not needed.
TEST_F(MAPIRecurrenceTest, LengthChecksFollowTheDateLists) {
  struct Case {
    const char* name;
    AppointmentRecurrence recurrence;
    size_t deleted, modified;
  };
  AppointmentRecurrence nth = monthlyNth();
  nth.pattern.deleted = {minutesSince1601(2024, 3, 29)};
  addException(nth, minutesSince1601(2024, 2, 23), minutesSince1601(2024, 2, 22));
  AppointmentRecurrence day = daily(1440);
  day.pattern.deleted = {minutesSince1601(2024, 1, 3), minutesSince1601(2024, 1, 4)};
  AppointmentRecurrence week = weekly(0x02);
  addException(week, minutesSince1601(2024, 1, 8), minutesSince1601(2024, 1, 9));
  addException(week, minutesSince1601(2024, 1, 15), minutesSince1601(2024, 1, 16));
  const Case cases[] = {{"daily, no dates", daily(1440), 0, 0},
                        {"daily, 2 deleted", day, 2, 0},
                        {"weekly, 2 exceptions", week, 2, 2},
                        {"monthly nth, 2 deleted 1 modified", nth, 2, 1},
                        {"yearly nth, no dates", yearlyNth(), 0, 0}};
  for (const Case& c : cases) {
    Bytes blob = encodeAppointmentRecurrence(c.recurrence);
    const size_t needed = 68 + specificSize(c.recurrence) + 4 * c.deleted + 4 * c.modified;
    ASSERT_GT(blob.size(), needed) << c.name;
    blob.resize(needed);
    const MAPIRecurrence whole = decode(blob);
    EXPECT_NE(whole.type, MAPIRecurrence::None) << c.name;
    EXPECT_EQ(
        whole.startDate,
        (uint64_t{c.recurrence.pattern.startDate} + c.recurrence.startTimeOffset) * kTicksPerMinute)
        << c.name;
    EXPECT_EQ(whole.endDate, (uint64_t{c.recurrence.pattern.endDate} + c.recurrence.endTimeOffset) *
                                 kTicksPerMinute)
        << c.name;
    blob.pop_back();
    testing::LogCapture log;
    EXPECT_EQ(decode(blob).type, MAPIRecurrence::None) << c.name;
    EXPECT_EQ(logged(log),
              std::vector<std::string>{kParseError + std::string("Invalid recurrence data.")})
        << c.name;
  }

  // Counts that would run far past the end (and wrap 32-bit sizes).
  Bytes blob = encodeAppointmentRecurrence(weekly(0x02));
  const size_t s = 4;
  for (size_t countAt : {34 + s, 38 + s}) {
    for (uint32_t count : {0xFFFFFFFFu, 0x40000000u, 0x3FFFFFFFu, 5u}) {
      Bytes broken = blob;
      put32(broken, countAt, count);
      testing::LogCapture log;
      EXPECT_EQ(decode(broken).type, MAPIRecurrence::None) << countAt << " " << count;
      EXPECT_EQ(logged(log),
                std::vector<std::string>{kParseError + std::string("Invalid recurrence data.")});
    }
  }
}

TEST_F(MAPIRecurrenceTest, MinutesToMonthCountsByRunningTotals) {
  const uint32_t day = 1440;
  const struct {
    uint32_t minutes;
    uint32_t month;
  } cases[] = {{0, 0},
               {1, 1},               // inside January
               {31 * day, 1},        // 1 February
               {31 * day + 1, 2},    // inside February
               {59 * day, 2},        // 1 March
               {181 * day, 6},       // 1 July
               {334 * day, 11},      // 1 December
               {334 * day + 1, 12},  // inside December
               {365 * day, 12},      // the year's last minute
               {365 * day + 1, 13},  // past December
               {0xFFFFFFFF, 13}};
  for (const auto& c : cases) EXPECT_EQ(minutesToMonth(c.minutes), c.month) << c.minutes;
}

TEST_F(MAPIRecurrenceTest, DaysStringNamesTheSetBitsFromSunday) {
  EXPECT_EQ(MAPIRecurrence::toDaysString(0), u"");
  EXPECT_EQ(MAPIRecurrence::toDaysString(0x01), u"sunday");
  EXPECT_EQ(MAPIRecurrence::toDaysString(0x40), u"saturday");
  EXPECT_EQ(MAPIRecurrence::toDaysString(0x41), u"sunday,saturday");
  EXPECT_EQ(MAPIRecurrence::toDaysString(0x3E), u"monday,tuesday,wednesday,thursday,friday");
  EXPECT_EQ(MAPIRecurrence::toDaysString(0x7F),
            u"sunday,monday,tuesday,wednesday,thursday,friday,saturday");
  // Bits past Saturday name no day.
  EXPECT_EQ(MAPIRecurrence::toDaysString(0x80), u"");
  EXPECT_EQ(MAPIRecurrence::toDaysString(0xFFFFFF88), u"wednesday");
}

TEST_F(MAPIRecurrenceTest, StartAndEndMoveToUtcByTheZoneInForce) {
  const Bytes blob = encodeAppointmentRecurrence(daily(2880));
  // 2024-01-01 09:00 and 2024-01-19 09:30 local.
  const uint64_t start = 133485732000000000, end = 133501302000000000;
  const uint64_t hour = 60 * kTicksPerMinute;

  // Central Europe in summer time: UTC = local - 1 h - 1 h.
  clock_.zone = {-60, 0, -60, TimeZoneState::Daylight};
  MAPIRecurrence r = decode(blob);
  EXPECT_EQ(r.startDate, start - 2 * hour);
  EXPECT_EQ(r.endDate, end - 2 * hour);

  // Eastern America in standard time: UTC = local + 5 h.
  clock_.zone = {300, 0, -60, TimeZoneState::Standard};
  r = decode(blob);
  EXPECT_EQ(r.startDate, start + 5 * hour);
  EXPECT_EQ(r.endDate, end + 5 * hour);
  EXPECT_NE(toUtf8(r.toXml()).find(" startDate=\"" + std::to_string(start + 5 * hour) +
                                   "\" endDate=\"" + std::to_string(end + 5 * hour) + "\""),
            std::string::npos);
}

// Captured blobs: the fields as read by hand from their bytes.
TEST_F(MAPIRecurrenceTest, CapturedBlobs) {
  if (testing::sharedTestData().empty()) GTEST_SKIP() << "no shared test data";
  struct Case {
    const char* file;
    uint32_t dayMask, every, endType, count, start, startOffset, end, endOffset;
  };
  // Every one is a weekly series; number 4 never ends (31 December 4500).
  const Case cases[] = {
      {"APPOINTMENTRECURRENCEPATTERN-1.dat", 0x10, 2, 1, 18, 0x0CD8F480, 870, 0x0CDE56A0, 930},
      {"APPOINTMENTRECURRENCEPATTERN-2.dat", 0x02, 2, 1, 6, 0x0CD78140, 840, 0x0CD90B00, 900},
      {"APPOINTMENTRECURRENCEPATTERN-3.dat", 0x10, 2, 1, 10, 0x0CD45740, 900, 0x0CD71C00, 960},
      {"APPOINTMENTRECURRENCEPATTERN-4.dat", 0x1E, 1, 3, 10, 0x0CD132E0, 1050, 0x5AE980DF, 1080},
  };
  for (const Case& c : cases) {
    const Bytes blob = testing::sharedBlob(c.file);
    if (blob.empty()) continue;
    testing::LogCapture log;
    const MAPIRecurrence r = decode(blob);
    EXPECT_EQ(logged(log), std::vector<std::string>{}) << c.file;
    EXPECT_EQ(r.type, MAPIRecurrence::Weekly) << c.file;
    EXPECT_EQ(r.dayMask, c.dayMask) << c.file;
    EXPECT_EQ(r.every, c.every) << c.file;
    EXPECT_EQ(r.endType, c.endType) << c.file;
    EXPECT_EQ(r.occurrenceCount, c.count) << c.file;
    EXPECT_EQ(r.startDate, (uint64_t{c.start} + c.startOffset) * kTicksPerMinute) << c.file;
    EXPECT_EQ(r.endDate, (uint64_t{c.end} + c.endOffset) * kTicksPerMinute) << c.file;
  }
  // Bare patterns lack the appointment part: too short for their date lists
  // (4 deleted, 1 modified in 74 bytes) or for anything (54 bytes).
  for (const char* file : {"RECURRENCEPATTERN-1.dat", "RECURRENCEPATTERN-2.dat"}) {
    const Bytes blob = testing::sharedBlob(file);
    if (blob.empty()) continue;
    testing::LogCapture log;
    EXPECT_EQ(decode(blob).type, MAPIRecurrence::None) << file;
    EXPECT_EQ(logged(log),
              std::vector<std::string>{kParseError + std::string("Invalid recurrence data.")})
        << file;
  }
}

}  // namespace
}  // namespace PIM
