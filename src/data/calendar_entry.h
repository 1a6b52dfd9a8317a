// An appointment of a captured calendar folder and its <entry> element.
// Single appointments are captured when they start inside a window of days
// around today; recurring ones always, with their pattern and their changed
// occurrences (read from the embedded messages of the appointment's
// attachments and written as nested <exception> elements of the same shape).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "data/mapi_recurrence.h"
#include "data/record.h"
#include "mapi/entry_id.h"
#include "mapi/mapi_properties.h"
#include "mapi/outlook_utils.h"
#include "platform/env.h"

namespace PIM {

class CalendarEntry {
 public:
  // One more than the store's busy status (0..3).
  enum BusyStatus : int32_t { BusyUnknown = 0, Free = 1, Tentative = 2, Busy = 3, OutOfOffice = 4 };
  // Indexes into getNameIdPairs().
  enum {
    kStartTime = 0,
    kEndTime = 1,
    kLocation = 2,
    kBusyStatus = 3,
    kRecurring = 4,
    kRecurrenceData = 5,
    kBaseDate = 6
  };

  uint64_t startTime = 0;  // file time as stored (UTC), 0 = none
  uint64_t endTime = 0;
  uint64_t baseDate = 0;  // an exception's start in the series, 0 = none
  std::u16string location;
  std::u16string organizer;
  std::u16string body;
  std::u16string sourceFolder;  // written when set; makeDataRow leaves it alone
  std::u16string subject;
  bool recurring = false;
  BusyStatus busyStatus = BusyUnknown;
  MAPIRecurrence recurrence;
  std::vector<std::u16string> requiredAttendees;
  std::vector<std::u16string> optionalAttendees;
  std::vector<CalendarEntry> exceptions;  // in attachment-table order
  Priority priority = PriorityUnknown;
  EntryId entryId;

  // The day (UTC) the window of days before and after is counted from:
  // today unless a host set another, as a command capturing an old archive
  // does. Set before a run starts, never during one.
  static void setWindowDay(const SystemTime* day);
  static SystemTime windowDay();

  static std::vector<NameIdPair> getNameIdPairs();
  static PropTagArray getPropIds(const std::vector<NameIdPair>& pairs);
  // The day window (every recurring appointment, and single ones starting
  // inside it); no sort and no row limit.
  static HRESULT getRestriction(RecordQuery& query, const std::vector<NameIdPair>& pairs);
  // `sourceFolder` is the captured folder: long texts are re-read through
  // it, and a recurring appointment is opened through it to read its
  // exceptions. The capture calls it with isException false; it fills an
  // exception from its embedded message with true.
  static HRESULT makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
                             IMAPIFolder* sourceFolder, CalendarEntry& entry,
                             bool isException = false);
  // <entry ...> or, for an exception, <exception ...>, ending in CR LF.
  void writeXML(XmlOut& out, bool isException = false) const;
  std::u16string toXMLString(bool isException = false) const;

  static std::u16string priorityToStr(Priority priority);
  static std::u16string busyToStr(BusyStatus status);

 private:
  static std::vector<ULONG> columns(const std::vector<NameIdPair>& pairs);
  // The changed occurrences of a recurring appointment; its failures are
  // logged at makeDataRow's `site`.
  static void readExceptions(const LogSite& site, const std::vector<NameIdPair>& pairs,
                             IMAPIFolder* sourceFolder, CalendarEntry& entry);
  // A recurring appointment with a pattern the reader understood.
  bool hasRecurrence() const { return recurring && recurrence.type != MAPIRecurrence::None; }
};

}  // namespace PIM
