#include "data/record.h"

#include <string>

#include "core/debug_logger.h"
#include "core/utils.h"

namespace PIM {

Priority priorityFromStore(LONG value) {
  PIM_ENTRY("PIM::priorityFromStore");
  switch (value) {
    case -1:
      return PriorityLow;
    case 0:
      return PriorityNormal;
    case 1:
      return PriorityHigh;
    default:
      PIM_LOG_ERR("Invalid priority value.");
      return PriorityUnknown;
  }
}

std::u16string priorityText(Priority priority) {
  return enumText(priority, {u"Unknown", u"Normal", u"Low", u"High"});
}

std::u16string enumText(int32_t value, std::initializer_list<const char16_t*> texts) {
  PIM_ENTRY("PIM::enumText");
  if (value < 0 || static_cast<size_t>(value) >= texts.size()) {
    PIM_LOG_ERR("Invalid data type.");
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
