#include "store/recurrence_blob.h"

#include <algorithm>
#include <set>

#include "core/utils.h"

namespace PIM::store {
namespace {

constexpr uint32_t kMinutesPerDay = 1440;

int64_t daysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;  // days since 1970-01-01
}

const int64_t kDays1601 = daysFromCivil(1601, 1, 1);

struct Writer {
  Bytes out;
  void u16(uint32_t v) {
    out.push_back(static_cast<uint8_t>(v & 0xFF));
    out.push_back(static_cast<uint8_t>((v >> 8) & 0xFF));
  }
  void u32(uint32_t v) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
  }
};

uint32_t midnight(uint32_t minutes) { return minutes - minutes % kMinutesPerDay; }

std::vector<RecurrenceException> sortedExceptions(const AppointmentRecurrence& r) {
  std::vector<RecurrenceException> out = r.exceptions;
  std::stable_sort(out.begin(), out.end(),
                   [](const auto& a, const auto& b) { return a.start < b.start; });
  return out;
}

void writePattern(Writer& w, const RecurrencePattern& p,
                  const std::vector<RecurrenceException>& exceptions) {
  w.u16(0x3004);
  w.u16(0x3004);
  w.u16(p.frequency);
  w.u16(p.patternType);
  w.u16(p.calendarType);
  w.u32(p.firstDateTime ? *p.firstDateTime : firstDateTimeFor(p));
  w.u32(p.period);
  w.u32(p.slidingFlag);
  switch (p.patternType) {
    case kPatternDay:
      break;
    case kPatternWeek:
      w.u32(p.dayMask);
      break;
    case kPatternMonthNth:
      w.u32(p.dayMask);
      w.u32(p.nth);
      break;
    default:
      w.u32(p.dayOfMonth);
      break;  // month, month-end and the Hijri forms
  }
  w.u32(p.endType);
  w.u32(p.occurrenceCount);
  w.u32(p.firstDayOfWeek);
  std::set<uint32_t> deleted;
  for (uint32_t d : p.deleted) deleted.insert(midnight(d));
  std::vector<uint32_t> modified;
  for (const RecurrenceException& e : exceptions) {
    deleted.insert(midnight(e.originalStart));
    modified.push_back(midnight(e.start));
  }
  std::sort(modified.begin(), modified.end());
  w.u32(static_cast<uint32_t>(deleted.size()));
  for (uint32_t d : deleted) w.u32(d);
  w.u32(static_cast<uint32_t>(modified.size()));
  for (uint32_t d : modified) w.u32(d);
  w.u32(p.startDate);
  w.u32(p.endDate);
}

// ExceptionInfo override flags.
constexpr uint16_t kAroSubject = 0x0001;
constexpr uint16_t kAroMeetingType = 0x0002;
constexpr uint16_t kAroReminderDelta = 0x0004;
constexpr uint16_t kAroReminder = 0x0008;
constexpr uint16_t kAroLocation = 0x0010;
constexpr uint16_t kAroBusyStatus = 0x0020;
constexpr uint16_t kAroAttachment = 0x0040;
constexpr uint16_t kAroSubType = 0x0080;
constexpr uint16_t kAroAppointmentColor = 0x0100;
constexpr uint16_t kAroExceptionalBody = 0x0200;

uint16_t overrideFlags(const RecurrenceException& e) {
  uint16_t f = 0;
  if (e.subject) f |= kAroSubject;
  if (e.meetingType) f |= kAroMeetingType;
  if (e.reminderDelta) f |= kAroReminderDelta;
  if (e.reminderSet) f |= kAroReminder;
  if (e.location) f |= kAroLocation;
  if (e.busyStatus) f |= kAroBusyStatus;
  if (e.attachment) f |= kAroAttachment;
  if (e.subType) f |= kAroSubType;
  if (e.appointmentColor) f |= kAroAppointmentColor;
  if (e.exceptionalBody) f |= kAroExceptionalBody;
  return f;
}

void write8bit(Writer& w, const std::u16string& text) {
  const std::string bytes = toCodePage(1252, text);
  w.u16(static_cast<uint32_t>(bytes.size() + 1));
  w.u16(static_cast<uint32_t>(bytes.size()));
  w.out.insert(w.out.end(), bytes.begin(), bytes.end());
}

void writeWide(Writer& w, const std::u16string& text) {
  w.u16(static_cast<uint32_t>(text.size()));
  for (char16_t c : text) w.u16(c);
}

}  // namespace

uint32_t minutesSince1601(int year, int month, int day, int hour, int minute) {
  const int64_t days =
      daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) - kDays1601;
  return static_cast<uint32_t>(days * kMinutesPerDay + hour * 60 + minute);
}

uint32_t firstDateTimeFor(const RecurrencePattern& p) {
  const uint32_t period = p.period ? p.period : 1;
  if (p.frequency == kRecurDaily && p.patternType == kPatternDay) return p.startDate % period;
  if (p.frequency == kRecurDaily || p.frequency == kRecurWeekly) {
    // 1601-01-01 was a Monday.
    const uint32_t day = p.startDate / kMinutesPerDay;
    const uint32_t weekday = (day + 1) % 7;
    const uint32_t weekStart = day - (weekday + 7 - p.firstDayOfWeek % 7) % 7;
    return static_cast<uint32_t>((static_cast<uint64_t>(weekStart) * kMinutesPerDay) %
                                 (static_cast<uint64_t>(period) * 7 * kMinutesPerDay));
  }
  // Monthly and yearly: months since January 1601 of the start date.
  const int64_t days = static_cast<int64_t>(p.startDate / kMinutesPerDay) + kDays1601;
  // Civil year and month of `days` (inverse of daysFromCivil).
  const int64_t z = days + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  const unsigned m = mp < 10 ? mp + 3 : mp - 9;
  const int64_t y = static_cast<int64_t>(yoe) + era * 400 + (m <= 2);
  const int64_t months = (y - 1601) * 12 + (m - 1);
  const int64_t r = months % period;
  return minutesSince1601(static_cast<int>(1601 + r / 12), static_cast<int>(r % 12 + 1), 1);
}

Bytes encodeRecurrencePattern(const RecurrencePattern& pattern) {
  Writer w;
  writePattern(w, pattern, {});
  return w.out;
}

Bytes encodeAppointmentRecurrence(const AppointmentRecurrence& r) {
  const std::vector<RecurrenceException> exceptions = sortedExceptions(r);
  Writer w;
  writePattern(w, r.pattern, exceptions);
  w.u32(r.readerVersion2);
  w.u32(r.writerVersion2);
  w.u32(r.startTimeOffset);
  w.u32(r.endTimeOffset);
  w.u16(static_cast<uint32_t>(exceptions.size()));
  for (const RecurrenceException& e : exceptions) {
    w.u32(e.start);
    w.u32(e.end);
    w.u32(e.originalStart);
    const uint16_t flags = overrideFlags(e);
    w.u16(flags);
    if (e.subject) write8bit(w, *e.subject);
    if (e.meetingType) w.u32(*e.meetingType);
    if (e.reminderDelta) w.u32(*e.reminderDelta);
    if (e.reminderSet) w.u32(*e.reminderSet);
    if (e.location) write8bit(w, *e.location);
    if (e.busyStatus) w.u32(*e.busyStatus);
    if (e.attachment) w.u32(*e.attachment);
    if (e.subType) w.u32(*e.subType);
    if (e.appointmentColor) w.u32(*e.appointmentColor);
  }
  w.u32(0);  // ReservedBlock1Size
  if (r.writerVersion2 >= 0x3009) {
    for (const RecurrenceException& e : exceptions) {
      w.u32(4);  // ChangeHighlightSize
      w.u32(e.changeHighlight);
      w.u32(0);  // ReservedBlockEE1Size
      if (e.subject || e.location) {
        w.u32(e.start);
        w.u32(e.end);
        w.u32(e.originalStart);
        if (e.subject) writeWide(w, *e.subject);
        if (e.location) writeWide(w, *e.location);
        w.u32(0);  // ReservedBlockEE2Size
      }
    }
  }
  w.u32(0);  // ReservedBlock2Size
  return w.out;
}

}  // namespace PIM::store
