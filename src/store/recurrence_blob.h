// Encoder of recurrence blobs: the RecurrencePattern and
// AppointmentRecurrencePattern layouts of MS-OXOCAL (all integers
// little-endian, times in minutes since 1601-01-01 00:00 local time):
//
//   RecurrencePattern
//     ReaderVersion 0x3004 (2)  WriterVersion 0x3004 (2)  RecurFrequency (2)
//     PatternType (2)  CalendarType (2)  FirstDateTime (4)  Period (4)
//     SlidingFlag (4)  PatternTypeSpecific (0, 4 or 8)  EndType (4)
//     OccurrenceCount (4)  FirstDOW (4)
//     DeletedInstanceCount (4) + dates (4 each)
//     ModifiedInstanceCount (4) + dates (4 each)
//     StartDate (4)  EndDate (4)
//   AppointmentRecurrencePattern = RecurrencePattern +
//     ReaderVersion2 0x3006 (4)  WriterVersion2 (4)  StartTimeOffset (4)
//     EndTimeOffset (4)  ExceptionCount (2)  ExceptionInfo...
//     ReservedBlock1Size (4) = 0
//     ExtendedException... (WriterVersion2 >= 0x3009)
//     ReservedBlock2Size (4) = 0
//
// The deleted-instance list gets every date of `deleted` plus the original
// date of every exception, and the modified list the new start date of every
// exception, both sorted, as MS-OXOCAL requires. Kept apart so that
// decoders can be tested against it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "store/model.h"

namespace PIM::store {

inline constexpr uint16_t kRecurDaily = 0x200A;
inline constexpr uint16_t kRecurWeekly = 0x200B;
inline constexpr uint16_t kRecurMonthly = 0x200C;
inline constexpr uint16_t kRecurYearly = 0x200D;
inline constexpr uint16_t kPatternDay = 0x0000;
inline constexpr uint16_t kPatternWeek = 0x0001;
inline constexpr uint16_t kPatternMonth = 0x0002;
inline constexpr uint16_t kPatternMonthNth = 0x0003;
inline constexpr uint16_t kPatternMonthEnd = 0x0004;
inline constexpr uint32_t kEndAfterDate = 0x2021;
inline constexpr uint32_t kEndAfterCount = 0x2022;
inline constexpr uint32_t kEndNever = 0x2023;
inline constexpr uint32_t kNoEndDate = 0x5AE980DF;  // 31 December 4500, "never"

// A changed occurrence. Times in minutes (local).
struct RecurrenceException {
  uint32_t originalStart = 0;  // start the occurrence had in the series
  uint32_t start = 0;
  uint32_t end = 0;
  std::optional<std::u16string> subject;
  std::optional<std::u16string> location;
  std::optional<uint32_t> meetingType;
  std::optional<uint32_t> reminderDelta;
  std::optional<uint32_t> reminderSet;
  std::optional<uint32_t> busyStatus;
  std::optional<uint32_t> attachment;
  std::optional<uint32_t> subType;
  std::optional<uint32_t> appointmentColor;
  bool exceptionalBody = false;  // ARO_EXCEPTIONAL_BODY: the body differs (no data here)
  uint32_t changeHighlight = 0;  // ExtendedException.ChangeHighlightValue
};

struct RecurrencePattern {
  uint16_t frequency = kRecurDaily;
  uint16_t patternType = kPatternDay;
  uint16_t calendarType = 0;
  std::optional<uint32_t> firstDateTime;  // computed from the others when absent
  uint32_t period = 1440;  // minutes (daily), weeks (weekly), months (monthly, yearly)
  uint32_t slidingFlag = 0;
  uint32_t dayMask = 0;     // bit 0 Sunday .. bit 6 Saturday (week, month-nth)
  uint32_t dayOfMonth = 0;  // month, month-end
  uint32_t nth = 0;         // month-nth: 1..4, 5 = last
  uint32_t endType = kEndNever;
  uint32_t occurrenceCount = 10;
  uint32_t firstDayOfWeek = 0;    // 0 = Sunday
  std::vector<uint32_t> deleted;  // midnights of occurrences deleted outright
  uint32_t startDate = 0;         // midnight of the first occurrence
  uint32_t endDate = kNoEndDate;
};

struct AppointmentRecurrence {
  RecurrencePattern pattern;
  uint32_t readerVersion2 = 0x3006;
  uint32_t writerVersion2 = 0x3009;
  uint32_t startTimeOffset = 0;  // minutes after midnight
  uint32_t endTimeOffset = 0;
  std::vector<RecurrenceException> exceptions;
};

// Minutes since 1601-01-01 00:00 of a date and time (proleptic Gregorian).
uint32_t minutesSince1601(int year, int month, int day, int hour = 0, int minute = 0);

// FirstDateTime by the rules of MS-OXOCAL: the start date modulo the period
// (daily), the start of the start date's week modulo the period in weeks
// (weekly), the first of the month that many months after January 1601 that
// the start month is modulo the period (monthly, yearly).
uint32_t firstDateTimeFor(const RecurrencePattern& pattern);

Bytes encodeRecurrencePattern(const RecurrencePattern& pattern);
Bytes encodeAppointmentRecurrence(const AppointmentRecurrence& recurrence);

}  // namespace PIM::store
