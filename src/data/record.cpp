#include "data/record.h"

#include <sstream>
#include <string>

#include "core/debug_logger.h"
#include "core/utils.h"

namespace PIM {

void logErrorAt(const LogSite& site, const std::string& text) {
  std::ostringstream line;
  writeLogHeader(line, site.file, site.line, site.function);
  line << " ERR> " << text;
  DebugLogger::instance().write(line.str());
  countErrorLine();
}

Priority priorityFromStore(const LogSite& site, LONG value) {
  switch (value) {
    case -1:
      return PriorityLow;
    case 0:
      return PriorityNormal;
    case 1:
      return PriorityHigh;
    default:
      logErrorAt(site, "Invalid priority value.");
      return PriorityUnknown;
  }
}

std::u16string priorityText(const LogSite& site, Priority priority) {
  return enumText(site, priority, {u"Unknown", u"Normal", u"Low", u"High"});
}

std::u16string enumText(const LogSite& site, int32_t value,
                        std::initializer_list<const char16_t*> texts) {
  if (value < 0 || static_cast<size_t>(value) >= texts.size()) {
    logErrorAt(site, "Invalid data type.");
    return u"invalid";
  }
  return texts.begin()[value];
}

void appendAttribute(std::u16string& out, const char16_t* name, const std::u16string& value) {
  out += u' ';
  out += name;
  out += u"=\"";
  out += escapeXML(value);
  out += u'"';
}

void appendAttribute(std::u16string& out, const char16_t* name, uint64_t value) {
  appendAttribute(out, name, decimal(value));
}

void appendAttribute(std::u16string& out, const char16_t* name, int64_t value) {
  appendAttribute(out, name, decimal(value));
}

std::u16string decimal(uint64_t value) {
  const std::string digits = std::to_string(value);
  return std::u16string(digits.begin(), digits.end());
}

std::u16string decimal(int64_t value) {
  const std::string digits = std::to_string(value);
  return std::u16string(digits.begin(), digits.end());
}

}  // namespace PIM
