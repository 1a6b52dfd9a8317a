#include "data/record.h"

#include <charconv>
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

XmlOut& XmlOut::operator<<(std::u16string_view markup) {
  if (text_) {
    text_->append(markup);
  } else {
    appendUtf8(*bytes_, markup);
  }
  return *this;
}

XmlOut& XmlOut::ascii(std::string_view bytes) {
  if (text_) {
    text_->append(bytes.begin(), bytes.end());
  } else {
    bytes_->append(bytes);
  }
  return *this;
}

XmlOut& XmlOut::base64(std::string_view bytes) {
  if (text_) {
    std::string encoded;
    appendBase64(encoded, bytes);
    return ascii(encoded);
  }
  appendBase64(*bytes_, bytes);
  return *this;
}

XmlOut& XmlOut::escaped(std::u16string_view text) {
  if (text_) {
    appendEscapedXml(*text_, text);
  } else {
    appendEscapedXmlUtf8(*bytes_, text);
  }
  return *this;
}

XmlOut& XmlOut::attribute(std::u16string_view name, std::u16string_view value) {
  *this << u" " << name << u"=\"";
  return escaped(value) << u"\"";
}

XmlOut& XmlOut::attribute(std::u16string_view name, uint64_t value) {
  *this << u" " << name << u"=\"";
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return ascii(std::string_view(digits, size_t(end - digits))) << u"\"";
}

XmlOut& XmlOut::attribute(std::u16string_view name, int64_t value) {
  *this << u" " << name << u"=\"";
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  return ascii(std::string_view(digits, size_t(end - digits))) << u"\"";
}

XmlOut& XmlOut::element(std::u16string_view indent, std::u16string_view name,
                        std::u16string_view text) {
  *this << indent << u"<" << name << u">";
  return escaped(text) << u"</" << name << u">\r\n";
}

}  // namespace PIM
