// What the four record types (tasks, calendar entries, contacts, e-mails)
// have in common: the query each puts on a folder's contents table, the
// priority numbering, the enumeration texts and the attribute writer of their
// XML elements.
//
// A record type T offers, and the capture's table reader calls in this order:
//   static std::vector<NameIdPair> getNameIdPairs();
//   static PropTagArray getPropIds(const std::vector<NameIdPair>& pairs);
//   static HRESULT getRestriction(RecordQuery& query, const std::vector<NameIdPair>& pairs);
//   static HRESULT makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
//                              IMAPIFolder* source, T& record);
//   void writeXML(XmlOut& out) const;      // the element, for the data file
//   std::u16string toXMLString() const;    // the same element as UTF-16 text
// The pairs' tag slots hold the store's tags once they are resolved, and a
// named property is found by its index in the vector.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>

#include "mapi/com_error.h"
#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"

namespace PIM {

// What a record type asks of a table: at most `rowLimit` rows, filtered and
// ordered as given. The caller creates it without limit, restriction or
// sort; the buffers are MAPI-allocated and freed with the query.
struct RecordQuery {
  static constexpr ULONG kNoLimit = 0xFFFFFFFF;
  ULONG rowLimit = kNoLimit;
  MapiBuffer<SRestriction> restriction;
  MapiBuffer<SSortOrderSet> sortOrder;
};

// Shared by tasks and appointments. "Low" comes after "Normal" in this
// numbering, unlike the store's.
enum Priority : int32_t {
  PriorityUnknown = 0,
  PriorityNormal = 1,
  PriorityLow = 2,
  PriorityHigh = 3
};

// Where an operation writes a log line: its file, the line and its name.
// Helpers that log on an operation's behalf take its site, so that the line
// names the operation and not the helper: priorityFromStore(PIM_LOG_SITE, v).
struct LogSite {
  const char* file;
  int line;
  const char* function;
};

// An error line as written at `site`.
void logErrorAt(const LogSite& site, const std::string& text);

// The store's PR_PRIORITY (-1, 0, 1) as a Priority; anything else logs
// "Invalid priority value." and gives PriorityUnknown.
Priority priorityFromStore(const LogSite& site, LONG value);
std::u16string priorityText(const LogSite& site, Priority priority);

// texts[value], or "invalid" with the log line "Invalid data type." when the
// value lies outside the table.
std::u16string enumText(const LogSite& site, int32_t value,
                        std::initializer_list<const char16_t*> texts);

// Where a record writes its XML element: UTF-16 text (toXMLString) or UTF-8
// bytes added straight to the data file's buffer. Each value is escaped and
// converted once, on its way in.
class XmlOut {
 public:
  explicit XmlOut(std::u16string& text) : text_(&text) {}
  explicit XmlOut(std::string& bytes) : bytes_(&bytes) {}

  // Markup, or text that needs no escaping, as it is.
  XmlOut& operator<<(std::u16string_view markup);
  // ASCII bytes, as they are.
  XmlOut& ascii(std::string_view bytes);
  // The bytes in Base64 (base64Encode).
  XmlOut& base64(std::string_view bytes);
  // Text with the five XML specials escaped.
  XmlOut& escaped(std::u16string_view text);
  // ` name="value"`, the value escaped; numbers in decimal.
  XmlOut& attribute(std::u16string_view name, std::u16string_view value);
  XmlOut& attribute(std::u16string_view name, uint64_t value);
  XmlOut& attribute(std::u16string_view name, int64_t value);
  // `indent<name>text</name>` and CR LF, the text escaped.
  XmlOut& element(std::u16string_view indent, std::u16string_view name, std::u16string_view text);

 private:
  std::u16string* text_ = nullptr;
  std::string* bytes_ = nullptr;
};

// The element a record's writeXML(XmlOut&) writes, as UTF-16 text.
template <class Record, class... Options>
std::u16string xmlString(const Record& record, Options... options) {
  std::u16string text;
  XmlOut out(text);
  record.writeXML(out, options...);
  return text;
}

}  // namespace PIM

// The calling operation's site (needs its PIM_ENTRY).
#define PIM_LOG_SITE (::PIM::LogSite{__FILE__, __LINE__, pimEntry_.function})
#define PIM_LOG_ERR_AT(site, message)        \
  do {                                       \
    ::std::ostringstream pimText_;           \
    pimText_ << message;                     \
    ::PIM::logErrorAt(site, pimText_.str()); \
  } while (0)
#define PIM_LOG_HR_AT(site, hr, context) \
  PIM_LOG_ERR_AT(site, "HR Error: " << ::PIM::hrText(hr) << ": " << context)
