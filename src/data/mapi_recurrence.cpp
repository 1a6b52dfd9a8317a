#include "data/mapi_recurrence.h"

#include "core/debug_logger.h"
#include "core/utils.h"
#include "data/record.h"
#include "prefs/preferences.h"

namespace PIM {

namespace {

constexpr uint32_t kVersions = 0x30043004;  // ReaderVersion and WriterVersion 0x3004
constexpr uint8_t kFrequencyHigh = 0x20;
constexpr uint8_t kFrequencyDaily = 0x0A;
constexpr uint8_t kFrequencyWeekly = 0x0B;
constexpr uint8_t kFrequencyMonthly = 0x0C;
constexpr uint8_t kFrequencyYearly = 0x0D;
constexpr uint8_t kEndAfterDate = 0x21;
constexpr uint8_t kEndAfterCount = 0x22;
constexpr uint8_t kEndNever = 0x23;
constexpr uint32_t kMinutesPerDay = 1440;
constexpr uint32_t kMondayToFriday = 0x3E;
// FirstDateTime of an every-weekday series whose weeks start on Sunday.
constexpr uint32_t kWeekdayFirstDateTime = 8640;
constexpr uint32_t kLargestDayMask = 127;
// The smallest blob: the pattern without its specific part, no deleted or
// modified dates, and the appointment part up to its exception count.
constexpr uint64_t kMinimumSize = 68;
constexpr uint64_t kTicksPerMinute = 60ULL * 10000000ULL;

// Little-endian fields at fixed offsets of a blob. A read answers false,
// leaving `out` alone, when the field does not lie wholly inside the blob;
// offsets are 64-bit so that counts taken from the blob cannot wrap them.
class BlobReader {
 public:
  explicit BlobReader(const std::vector<uint8_t>& bytes) : bytes_(bytes) {}
  bool holds(uint64_t size) const { return size <= bytes_.size(); }
  bool u8(uint64_t offset, uint32_t& out) const { return read(offset, 1, out); }
  bool u16(uint64_t offset, uint32_t& out) const { return read(offset, 2, out); }
  bool u32(uint64_t offset, uint32_t& out) const { return read(offset, 4, out); }

 private:
  bool read(uint64_t offset, unsigned width, uint32_t& out) const {
    if (offset > bytes_.size() || bytes_.size() - offset < width) return false;
    uint32_t value = 0;
    for (unsigned i = 0; i < width; ++i) value |= uint32_t{bytes_[offset + i]} << (8 * i);
    out = value;
    return true;
  }
  const std::vector<uint8_t>& bytes_;
};

// Size of the pattern-specific part of each type.
uint64_t specificSize(uint32_t type) {
  switch (type) {
    case MAPIRecurrence::Daily:
      return 0;
    case MAPIRecurrence::MonthlyFuzzy:
    case MAPIRecurrence::YearlyFuzzy:
      return 8;
    default:
      return 4;
  }
}

// The pattern line of each type, 1 to 7: its element and attributes in order.
struct PatternAttribute {
  const char16_t* name = nullptr;
  uint32_t MAPIRecurrence::*field = nullptr;
};
struct PatternLine {
  const char16_t* element;
  PatternAttribute attributes[3];
};
const PatternLine kPatternLines[] = {
    {u"<Daily", {{u"every", &MAPIRecurrence::every}}},
    {u"<DailyWeekly", {}},
    {u"<Weekly", {{u"onDays", &MAPIRecurrence::dayMask}, {u"every", &MAPIRecurrence::every}}},
    {u"<MonthlySpecific", {{u"day", &MAPIRecurrence::day}, {u"every", &MAPIRecurrence::every}}},
    {u"<MonthlyFuzzy",
     {{u"occurrence", &MAPIRecurrence::occurrence},
      {u"dayName", &MAPIRecurrence::dayMask},
      {u"every", &MAPIRecurrence::every}}},
    {u"<YearlySpecific", {{u"month", &MAPIRecurrence::month}, {u"day", &MAPIRecurrence::day}}},
    {u"<YearlyFuzzy",
     {{u"occurrence", &MAPIRecurrence::occurrence},
      {u"dayName", &MAPIRecurrence::dayMask},
      {u"month", &MAPIRecurrence::month}}},
};

uint64_t minutesToTicks(uint64_t minutes) { return minutes * kTicksPerMinute; }

}  // namespace

void MAPIRecurrence::init() {
  type = None;
  endType = 0;
  startDate = 0;
  endDate = 0;
  occurrenceCount = 0;
  every = 0;
  dayMask = 0;
  day = 0;
  month = 0;
  occurrence = 0;
}

void MAPIRecurrence::reset(const std::vector<uint8_t>& blob) {
  PIM_ENTRY("PIM::MAPIRecurrence::reset");
  data = blob;
  init();
  parse();
}

void MAPIRecurrence::parse() {
  PIM_ENTRY("PIM::MAPIRecurrence::parse");
  init();
  // Every rejection drops the whole pattern.
  auto reject = [&](const char* text) {
    PIM_LOG_ERR(text);
    init();
  };
  const BlobReader blob(data);
  // Every field read before the first length check lies inside these bytes.
  if (!blob.holds(kMinimumSize)) return reject("Invalid recurrence data.");

  uint32_t versions = 0, frequency = 0, frequencyHigh = 0, patternType = 0;
  uint32_t firstDateTime = 0, period = 0, dword1 = 0, dword2 = 0;
  blob.u32(0, versions);
  blob.u8(4, frequency);
  blob.u8(5, frequencyHigh);
  blob.u16(6, patternType);
  blob.u32(10, firstDateTime);
  blob.u32(14, period);
  blob.u32(22, dword1);
  blob.u32(26, dword2);
  PIM_ASSERT(versions == kVersions);
  PIM_ASSERT(frequencyHigh == kFrequencyHigh);

  switch (frequency) {
    case kFrequencyDaily:
      if (patternType == 0) {
        type = Daily;
      } else if (patternType == 1) {
        type = DailyWeekday;
      } else {
        return reject("Invalid type of daily recurrence.");
      }
      break;
    case kFrequencyWeekly:
      if (patternType != 1) return reject("Invalid type of weekly recurrence.");
      type = Weekly;
      break;
    case kFrequencyMonthly:
    case kFrequencyYearly: {
      const bool yearly = frequency == kFrequencyYearly;
      if (patternType == 2) {
        type = yearly ? YearlySpecific : MonthlySpecific;
      } else if (patternType == 3) {
        type = yearly ? YearlyFuzzy : MonthlyFuzzy;
      } else {
        // Yearly patterns share the monthly text, spelling included.
        return reject("Invalid type of mothly recurrence.");
      }
      break;
    }
    default:
      return reject("Invalid recurrence data type");
  }

  switch (type) {
    case Daily:
      every = period / kMinutesPerDay;
      break;
    case DailyWeekday:
      if (firstDateTime != kWeekdayFirstDateTime && period != 1 && dword1 != kMondayToFriday)
        return reject("Invalid daily weekday recurrence data.");
      break;
    case Weekly:
      every = period;
      dayMask = dword1;
      if (dayMask > kLargestDayMask)
        return reject("Invalid weekly recurrence data, invalid day mask.");
      break;
    case MonthlySpecific:
      every = period;
      day = dword1;
      break;
    case MonthlyFuzzy:
      every = period;
      dayMask = dword1;
      occurrence = dword2;
      if (dayMask > kLargestDayMask)
        return reject("Invalid monthly recurrence data, invalid day mask.");
      if (period > 12) return reject("Invalid monthly recurrence data, invlid month.");
      if (occurrence > 5) return reject("Invalid monthly recurrence data, invalid occurrence.");
      break;
    case YearlySpecific:
    case YearlyFuzzy:
      month = minutesToMonth(firstDateTime);
      if (type == YearlySpecific) {
        day = dword1;
      } else {
        dayMask = dword1;
        occurrence = dword2;
      }
      if (month > 11)
        return reject("Invalid yearly recurrence data, invalid month for recurrence..");
      if (period != 12)
        return reject("Invalid yearly recurrence data, months between recurrences must be 12.");
      break;
    default:
      return reject("Recurrence type is invalid or unknown.");
  }

  // The deleted and modified instance dates are skipped by their counts.
  uint64_t at = specificSize(type);
  uint32_t endTypeField = 0, deletedCount = 0, modifiedCount = 0;
  if (!blob.holds(kMinimumSize + at) || !blob.u32(22 + at, endTypeField) ||
      !blob.u32(26 + at, occurrenceCount) || !blob.u32(34 + at, deletedCount))
    return reject("Invalid recurrence data.");
  at += 4ULL * deletedCount;
  if (!blob.holds(kMinimumSize + at) || !blob.u32(38 + at, modifiedCount))
    return reject("Invalid recurrence data.");
  at += 4ULL * modifiedCount;
  uint32_t start = 0, end = 0, startOffset = 0, endOffset = 0;
  if (!blob.holds(kMinimumSize + at) || !blob.u32(42 + at, start) || !blob.u32(46 + at, end) ||
      !blob.u32(58 + at, startOffset) || !blob.u32(62 + at, endOffset))
    return reject("Invalid recurrence data.");

  startDate = timeToGMT(minutesToTicks(uint64_t{start} + startOffset));
  endDate = timeToGMT(minutesToTicks(uint64_t{end} + endOffset));

  // Only the low byte counts: writers differ in the high bytes (0x2021 or
  // 0x21). A 0xFFFFFFFF "never" is not one of them.
  switch (endTypeField & 0xFF) {
    case kEndAfterDate:
      endType = 1;
      break;
    case kEndAfterCount:
      endType = 2;
      break;
    case kEndNever:
      endType = 3;
      break;
    default:
      return reject("Invalid termination type.");
  }
}

std::u16string MAPIRecurrence::toXml() const {
  std::u16string text;
  XmlOut out(text);
  writeXml(out);
  return text;
}

void MAPIRecurrence::writeXml(XmlOut& out) const {
  PIM_ENTRY("PIM::MAPIRecurrence::toXml");
  if (type == None || type > YearlyFuzzy) return;
  const CalendarSettings& settings = Preferences::instance().calendar;
  out << u"<recurrence";
  // The limits are written signed, as the reader of the file expects them.
  out.attribute(u"maxDaysBefore", int64_t{static_cast<int32_t>(settings.captureDaysBefore.get())});
  out.attribute(u"maxDaysAfter", int64_t{static_cast<int32_t>(settings.captureDaysAfter.get())});
  out.attribute(u"startDate", startDate);
  if (endDate != 0) out.attribute(u"endDate", endDate);
  if (occurrenceCount != 0) out.attribute(u"occurrenceCount", uint64_t{occurrenceCount});
  out << u">\r\n";
  const PatternLine& line = kPatternLines[type - 1];
  out << line.element;
  for (const PatternAttribute& attribute : line.attributes) {
    if (!attribute.name) break;
    const uint32_t value = this->*attribute.field;
    // Day masks are written as weekday names.
    if (attribute.field == &MAPIRecurrence::dayMask) {
      out.attribute(attribute.name, toDaysString(value));
    } else {
      out.attribute(attribute.name, uint64_t{value});
    }
  }
  out << u" />\r\n</recurrence>\r\n";
}

std::u16string MAPIRecurrence::toDaysString(uint32_t dayMask) {
  PIM_ENTRY("PIM::MAPIRecurrence::toDaysString");
  static const char16_t* const kNames[] = {u"sunday,",   u"monday,", u"tuesday,", u"wednesday,",
                                           u"thursday,", u"friday,", u"saturday,"};
  std::u16string days;
  for (unsigned bit = 0; bit < 7; ++bit)
    if (dayMask & (1u << bit)) days += kNames[bit];
  if (!days.empty()) days.pop_back();
  return days;
}

uint32_t minutesToMonth(uint32_t minutes) {
  PIM_ENTRY("PIM::minutesToMonth");
  // A year without 29 February. The running total reaches the start minute
  // of a month at the month before it, so that minute gives the 0-based
  // month; a minute inside January gives 1.
  static const uint32_t kMonthDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (minutes == 0) return 0;
  uint32_t total = 0;
  for (uint32_t m = 0; m < 12; ++m) {
    total += kMonthDays[m] * kMinutesPerDay;
    if (total >= minutes) return m + 1;
  }
  return 13;
}

}  // namespace PIM
