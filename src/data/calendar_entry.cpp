#include "data/calendar_entry.h"

#include <utility>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "mapi/com_error.h"
#include "mapi/mapi_ptr.h"
#include "mapi/mapi_table.h"
#include "prefs/preferences.h"

namespace PIM {

namespace {

const CalendarSettings& settings() { return Preferences::instance().calendar; }

void setFileTime(SPropValue& value, ULONG tag, uint64_t time) {
  value = {};
  value.ulPropTag = tag;
  value.Value.ft.dwLowDateTime = static_cast<DWORD>(time & 0xFFFFFFFFu);
  value.Value.ft.dwHighDateTime = static_cast<DWORD>(time >> 32);
}

void setProperty(SRestriction& restriction, ULONG relop, SPropValue* value) {
  restriction = {};
  restriction.rt = RES_PROPERTY;
  restriction.res.resProperty.relop = relop;
  restriction.res.resProperty.ulPropTag = value->ulPropTag;
  restriction.res.resProperty.lpProp = value;
}

void setAnd(SRestriction& restriction, SRestriction* both) {
  restriction = {};
  restriction.rt = RES_AND;
  restriction.res.resAnd.cRes = 2;
  restriction.res.resAnd.lpRes = both;
}

// The attendee names of a display list ("A; B; C"), appended to `names`.
void readAttendees(const MAPIProperties& row, ULONG tag, IMAPIFolder* source,
                   std::vector<std::u16string>& names) {
  std::u16string list;
  if (row.getWstring(tag, list, source) != S_OK) return;
  for (std::u16string& name : splitString(list, u"; ")) names.push_back(std::move(name));
}

void appendAttendees(XmlOut& out, const char16_t* element,
                     const std::vector<std::u16string>& names) {
  out << u"  <" << element << u">\r\n";
  for (const std::u16string& name : names) out.element(u"    ", u"attendee", name);
  out << u"  </" << element << u">\r\n";
}

}  // namespace

std::vector<NameIdPair> CalendarEntry::getNameIdPairs() {
  PIM_ENTRY("PIM::CalendarEntry::getNameIdPairs");
  return {{&PSETID_Appointment, MNID_ID, 0x820D, PT_SYSTIME, kStartTime},
          {&PSETID_Appointment, MNID_ID, 0x820E, PT_SYSTIME, kEndTime},
          {&PSETID_Appointment, MNID_ID, 0x8208, PT_UNICODE, kLocation},
          {&PSETID_Appointment, MNID_ID, 0x8205, PT_LONG, kBusyStatus},
          {&PSETID_Appointment, MNID_ID, 0x8223, PT_BOOLEAN, kRecurring},
          {&PSETID_Appointment, MNID_ID, 0x8216, PT_BINARY, kRecurrenceData},
          {&PSETID_Appointment, MNID_ID, 0x8228, PT_SYSTIME, kBaseDate}};
}

std::vector<ULONG> CalendarEntry::columns(const std::vector<NameIdPair>& pairs) {
  std::vector<ULONG> tags = {
      PR_ENTRYID,           PR_BODY_W,    pairs[kStartTime].tag, pairs[kEndTime].tag,
      pairs[kLocation].tag, PR_SUBJECT_W, pairs[kRecurring].tag, pairs[kRecurrenceData].tag,
      pairs[kBaseDate].tag};
  if (settings().captureOrganizer) tags.push_back(PR_SENDER_NAME_W);
  if (settings().captureRequiredAttendees) tags.push_back(PR_DISPLAY_TO_W);
  if (settings().captureOptionalAttendees) tags.push_back(PR_DISPLAY_CC_W);
  if (settings().captureBusyStatus) tags.push_back(pairs[kBusyStatus].tag);
  if (settings().capturePriority) tags.push_back(PR_PRIORITY);
  return tags;
}

PropTagArray CalendarEntry::getPropIds(const std::vector<NameIdPair>& pairs) {
  PIM_ENTRY("PIM::CalendarEntry::getPropIds");
  return PropTagArray(columns(pairs));
}

namespace {
bool g_windowDaySet = false;
SystemTime g_windowDay;
}  // namespace

void CalendarEntry::setWindowDay(const SystemTime* day) {
  g_windowDaySet = day != nullptr;
  g_windowDay = day ? *day : SystemTime();
}

SystemTime CalendarEntry::windowDay() {
  SystemTime day = g_windowDaySet ? g_windowDay : env()->systemTimeNow();
  day.hour = day.minute = day.second = day.milliseconds = 0;
  return day;
}

HRESULT CalendarEntry::getRestriction(RecordQuery& query, const std::vector<NameIdPair>& pairs) {
  PIM_ENTRY("PIM::CalendarEntry::getRestriction");
  const uint64_t second = static_cast<uint64_t>(getOneSecond());
  const uint64_t day = second * 86400;
  const SystemTime midnight = windowDay();
  uint64_t today = 0;
  PIM_ASSERT(systemTimeToFileTime(midnight, today));
  // Computed in UTC and then shifted by the zone's bias all the same: the
  // window moves by the local offset, as it always has.
  const uint64_t from = timeToGMT(today - settings().captureDaysBefore * day);
  const uint64_t to = timeToGMT(today + (settings().captureDaysAfter + uint64_t{1}) * day - second);

  SRestriction* root = nullptr;
  if (FAILED(MAPIAllocateBuffer(sizeof(SRestriction), reinterpret_cast<void**>(&root)))) {
    PIM_LOG_ERR("Failed to MAPI allocate buffer for restriction.");
    return E_FAIL;
  }
  query.restriction.reset(root);
  SRestriction* either = nullptr;
  SRestriction* recurring = nullptr;
  SRestriction* window = nullptr;
  SPropValue* values = nullptr;
  if (FAILED(MAPIAllocateMore(2 * sizeof(SRestriction), root, reinterpret_cast<void**>(&either))) ||
      FAILED(
          MAPIAllocateMore(2 * sizeof(SRestriction), root, reinterpret_cast<void**>(&recurring))) ||
      FAILED(MAPIAllocateMore(2 * sizeof(SRestriction), root, reinterpret_cast<void**>(&window))) ||
      FAILED(MAPIAllocateMore(3 * sizeof(SPropValue), root, reinterpret_cast<void**>(&values)))) {
    PIM_LOG_ERR("Failed to MAPI allocate buffer for restriction.");
    return E_FAIL;
  }
  *root = {};
  root->rt = RES_OR;
  root->res.resOr.cRes = 2;
  root->res.resOr.lpRes = either;

  // Every recurring appointment, whatever its dates.
  const ULONG isRecurring = pairs[kRecurring].tag;
  setAnd(either[0], recurring);
  recurring[0] = {};
  recurring[0].rt = RES_EXIST;
  recurring[0].res.resExist.ulPropTag = isRecurring;
  values[0] = {};
  values[0].ulPropTag = isRecurring;
  values[0].Value.b = 1;
  setProperty(recurring[1], RELOP_EQ, &values[0]);

  // Single appointments that start inside the window.
  const ULONG start = pairs[kStartTime].tag;
  setAnd(either[1], window);
  setFileTime(values[1], start, from);
  setProperty(window[0], RELOP_GE, &values[1]);
  setFileTime(values[2], start, to);
  setProperty(window[1], RELOP_LE, &values[2]);
  return S_OK;
}

HRESULT CalendarEntry::makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
                                   IMAPIFolder* sourceFolder, CalendarEntry& entry,
                                   bool isException) {
  PIM_ENTRY("PIM::CalendarEntry::makeDataRow");
  (void)row.getEntryId(PR_ENTRYID, entry.entryId);
  row.getWstring(PR_SUBJECT_W, entry.subject, sourceFolder);
  row.getWstring(pairs[kLocation].tag, entry.location, sourceFolder);
  row.getSystime(pairs[kStartTime].tag, entry.startTime);
  row.getSystime(pairs[kEndTime].tag, entry.endTime);
  row.getSystime(pairs[kBaseDate].tag, entry.baseDate);
  if (settings().captureBody) row.getWstring(PR_BODY_W, entry.body, sourceFolder);
  if (settings().captureOrganizer) row.getWstring(PR_SENDER_NAME_W, entry.organizer, sourceFolder);
  if (settings().captureRequiredAttendees)
    readAttendees(row, PR_DISPLAY_TO_W, sourceFolder, entry.requiredAttendees);
  if (settings().captureOptionalAttendees)
    readAttendees(row, PR_DISPLAY_CC_W, sourceFolder, entry.optionalAttendees);

  if (!isException && entry.entryId.isValid() &&
      row.getBool(pairs[kRecurring].tag, entry.recurring) == S_OK && entry.recurring) {
    std::vector<uint8_t> blob;
    const HRESULT hr = row.getBinary(pairs[kRecurrenceData].tag, blob);
    if (FAILED(hr)) {
      PIM_LOG_HR(hr, "Failed to retrieve recurrence data.");
    } else {
      entry.recurrence.reset(blob);
      readExceptions(PIM_LOG_SITE, pairs, sourceFolder, entry);
    }
  }

  LONG value = 0;
  if (settings().captureBusyStatus && row.getLong(pairs[kBusyStatus].tag, value) == S_OK) {
    if (value >= 0 && value <= 3) {
      entry.busyStatus = static_cast<BusyStatus>(value + 1);
    } else {
      entry.busyStatus = BusyUnknown;
      // The busy status shares the priority's text.
      PIM_LOG_ERR("Invalid priority value.");
    }
  }
  if (settings().capturePriority && row.getLong(PR_PRIORITY, value) == S_OK)
    entry.priority = priorityFromStore(PIM_LOG_SITE, value);
  return S_OK;
}

void CalendarEntry::readExceptions(const LogSite& site, const std::vector<NameIdPair>& pairs,
                                   IMAPIFolder* sourceFolder, CalendarEntry& entry) {
  try {
    HRESULT hr = E_INVALIDARG;
    ComPtr<IUnknown> opened;
    ComPtr<IMessage> message;
    ComPtr<IMAPITable> attachments;
    if (sourceFolder) {
      ULONG type = 0;
      hr = sourceFolder->OpenEntry(entry.entryId.count(), entry.entryId.asEntryId(), nullptr,
                                   MAPI_BEST_ACCESS, &type, opened.putUnknown());
    }
    if (SUCCEEDED(hr)) hr = opened.queryInterface(IID_IMessage, message);
    if (SUCCEEDED(hr)) hr = message->GetAttachmentTable(0, attachments.put());
    if (FAILED(hr)) {
      PIM_LOG_HR_AT(site, hr, "Failed to retrieve recurrence data.");
      return;
    }
    MAPITable table(attachments.get());
    hr = table.setColumns({PR_DISPLAY_NAME_W, PR_ATTACH_NUM});
    if (FAILED(hr)) {
      PIM_LOG_HR_AT(site, hr, "Failed to retrieve recurrence data.");
      return;
    }
    const std::vector<ULONG> tags = columns(pairs);
    while (MAPIProperties* row = table.getNextRow()) {
      LONG number = 0;
      ComPtr<IAttach> attachment;
      hr = row->getLong(PR_ATTACH_NUM, number);
      if (SUCCEEDED(hr))
        hr = message->OpenAttach(static_cast<ULONG>(number), nullptr, MAPI_BEST_ACCESS,
                                 attachment.put());
      if (FAILED(hr)) {
        PIM_LOG_HR_AT(site, hr, "Failed to retrieve recurrence attachment");
        continue;
      }
      ComPtr<IMessage> embedded;
      hr = attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0,
                                    MAPI_MODIFY | MAPI_DEFERRED_ERRORS, embedded.putUnknown());
      if (FAILED(hr)) {
        PIM_LOG_HR_AT(site, hr, "Invalid exception attachment.");
        continue;
      }
      MAPIProperties props(embedded.get(), tags);
      CalendarEntry& exception = entry.exceptions.emplace_back();
      makeDataRow(pairs, props, sourceFolder, exception, true);
      // GetProps may have cut or refused a long body; the stream has it all.
      if (settings().captureBody)
        OutlookUtils::getEntryStringProperty(embedded.get(), PR_BODY_W, exception.body);
    }
  } catch (const ComError& error) {
    PIM_LOG_ERR_AT(site, "Failed to get exception attachments:" << error.what());
  } catch (...) {
    PIM_LOG_ERR_AT(site, "Unknown error. Failed to get exception attachments.");
  }
}

std::u16string CalendarEntry::toXMLString(bool isException) const {
  return xmlString(*this, isException);
}

void CalendarEntry::writeXML(XmlOut& out, bool isException) const {
  PIM_ENTRY("PIM::CalendarEntry::toXMLString");
  if (isException) {
    out << u"<exception";
    if (baseDate != 0) out.attribute(u"baseDate", baseDate);
  } else {
    out << u"<entry";
  }
  if (entryId.isValid()) out.attribute(u"entryId", entryId.toWstring());
  if (!subject.empty()) out.attribute(u"subject", subject);
  if (startTime != 0) out.attribute(u"startTime", startTime);
  if (endTime != 0) out.attribute(u"endTime", endTime);
  if (!location.empty()) out.attribute(u"location", location);
  if (settings().capturePriority && priority != PriorityUnknown)
    out.attribute(u"priority", priorityToStr(priority));
  if (settings().captureOrganizer && !organizer.empty()) out.attribute(u"organizer", organizer);
  if (!sourceFolder.empty()) out.attribute(u"sourceFolder", sourceFolder);
  if (hasRecurrence()) out.attribute(u"recurring", u"true");
  if (settings().captureBusyStatus && busyStatus != BusyUnknown)
    out.attribute(u"busyStatus", busyToStr(busyStatus));
  out << u">\r\n";
  if (!isException && hasRecurrence()) recurrence.writeXml(out);
  if (settings().captureRequiredAttendees && !requiredAttendees.empty())
    appendAttendees(out, u"requiredAttendees", requiredAttendees);
  if (settings().captureOptionalAttendees && !optionalAttendees.empty())
    appendAttendees(out, u"optionalAttendees", optionalAttendees);
  if (!isException && !exceptions.empty()) {
    out << u"  <exceptions>\r\n";
    for (const CalendarEntry& exception : exceptions) exception.writeXML(out, true);
    // One blank before the closing tag, against two before the opening one:
    // readers of these files have always seen it so.
    out << u" </exceptions>\r\n";
  }
  if (settings().captureBody && !body.empty()) out.element(u"  ", u"body", body);
  out << (isException ? u"</exception>\r\n" : u"</entry>\r\n");
}

std::u16string CalendarEntry::priorityToStr(Priority priority) {
  PIM_ENTRY("PIM::CalendarEntry::priorityToStr");
  return priorityText(PIM_LOG_SITE, priority);
}

std::u16string CalendarEntry::busyToStr(BusyStatus status) {
  PIM_ENTRY("PIM::CalendarEntry::busyToStr");
  return enumText(PIM_LOG_SITE, status, {u"Unknown", u"Free", u"Tentative", u"Busy", u"OOO"});
}

}  // namespace PIM
