// The recurrence pattern of a recurring appointment, decoded from its
// AppointmentRecurrencePattern blob, and its <recurrence> element. Only what
// the element needs is decoded; a pattern the reader does not understand is
// dropped whole (type 0), and the appointment is then written as a single
// one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace PIM {

class XmlOut;

class MAPIRecurrence {
 public:
  enum RecurrenceType : uint32_t {
    None = 0,
    Daily = 1,         // every N days
    DailyWeekday = 2,  // every weekday
    Weekly = 3,
    MonthlySpecific = 4,  // on a day of the month
    MonthlyFuzzy = 5,     // on the Nth weekday
    YearlySpecific = 6,
    YearlyFuzzy = 7
  };

  MAPIRecurrence() { init(); }

  // Keeps a copy of the blob and parses it.
  void reset(const std::vector<uint8_t>& blob);
  // Decodes `data`; a rejected blob is logged and leaves every field zero.
  void parse();
  // The <recurrence> element with its lines, or empty text for type 0.
  std::u16string toXml() const;
  void writeXml(XmlOut& out) const;
  // "monday,tuesday" for the set bits (bit 0 = Sunday).
  static std::u16string toDaysString(uint32_t dayMask);

  std::vector<uint8_t> data;
  uint32_t type = None;
  uint32_t endType = 0;  // 1 on a date, 2 after a count, 3 never
  uint64_t startDate = 0;
  uint64_t endDate = 0;
  uint32_t occurrenceCount = 0;
  uint32_t every = 0;
  uint32_t dayMask = 0;
  uint32_t day = 0;
  uint32_t month = 0;       // 0 = January
  uint32_t occurrence = 0;  // 1..5, 5 = last

 private:
  void init();
};

// The month index of a FirstDateTime in minutes, as the yearly checks expect
// it (see the implementation).
uint32_t minutesToMonth(uint32_t minutes);

}  // namespace PIM
