#include "core/utils.h"

#include <cstdint>

#include "core/debug_logger.h"
#include "platform/env.h"
#include "platform/utf.h"

namespace PIM {

namespace {

constexpr uint32_t kCodePageUtf8 = 65001;
constexpr int64_t kFileTimeUnitsPerSecond = 10'000'000;
constexpr int64_t kFileTimeUnitsPerDay = kFileTimeUnitsPerSecond * 86'400;
// Days from 1601-01-01, where file time starts, to 1970-01-01.
constexpr int64_t kDaysFrom1601To1970 = 134'774;

// Days since 1970-01-01 of a proleptic Gregorian date.
int64_t daysFromCivil(int64_t year, unsigned month, unsigned day) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const unsigned yearOfEra = unsigned(year - era * 400);
  const unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146'097 + int64_t(dayOfEra) - 719'468;
}

// The proleptic Gregorian date of a day counted from 1970-01-01.
void civilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day) {
  days += 719'468;
  const int64_t era = (days >= 0 ? days : days - 146'096) / 146'097;
  const unsigned dayOfEra = unsigned(days - era * 146'097);
  const unsigned yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
  const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const unsigned shiftedMonth = (5 * dayOfYear + 2) / 153;
  day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
  month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
  year = int64_t(yearOfEra) + era * 400 + (month <= 2);
}

bool isLeapYear(unsigned year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

unsigned daysInMonth(unsigned year, unsigned month) {
  static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// The path without trailing separators. Each one is cut together with the
// character before it: "C:\temp\" is looked up as "C:\tem". Folders the
// system builds itself never end in a separator, so this never bites them.
std::u16string cutTrailingSeparators(const std::u16string& path) {
  std::u16string copy = path;
  while (!copy.empty() && (copy.back() == u'\\' || copy.back() == u'/')) {
    copy.resize(copy.size() >= 2 ? copy.size() - 2 : 0);
  }
  return copy;
}

char16_t asciiLower(char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c - u'A' + u'a') : c; }

bool equalsIgnoringAsciiCase(const std::u16string& text, const std::u16string& lower) {
  if (text.size() != lower.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (asciiLower(text[i]) != lower[i]) return false;
  }
  return true;
}

std::u16string hexLower(uint32_t value) {
  static const char16_t kDigits[] = u"0123456789abcdef";
  std::u16string digits;
  do {
    digits.insert(digits.begin(), kDigits[value & 0xF]);
    value >>= 4;
  } while (value != 0);
  return digits;
}

// The entity written for one of XML's five specials, or null.
const char16_t* xmlEntity(char16_t c) {
  switch (c) {
    case u'"':
      return u"&quot;";
    case u'&':
      return u"&amp;";
    case u'\'':
      return u"&apos;";
    case u'<':
      return u"&lt;";
    case u'>':
      return u"&gt;";
    default:
      return nullptr;
  }
}

// Runs a Win32-style conversion of a NUL-terminated text twice: for the size
// including the NUL, then into a zero-filled buffer of that size. `size` and
// `written` receive the two answers; the result ends at the first NUL.
template <typename Text, typename Convert>
Text convertTwice(Convert convert, int& size, int& written) {
  size = convert(nullptr, 0);
  if (size <= 0) return Text();
  Text buffer(size_t(size), typename Text::value_type(0));
  written = convert(buffer.data(), size);
  return Text(buffer.c_str());
}

template <bool kEscape>
void appendUtf8Units(std::string& out, std::u16string_view text) {
  out.reserve(out.size() + text.size() + 16);
  const size_t size = text.size();
  for (size_t i = 0; i < size; ++i) {
    const char16_t c = text[i];
    if (c < 0x80) {
      const char16_t* entity = kEscape ? xmlEntity(c) : nullptr;
      if (!entity) {
        out.push_back(char(c));
      } else {
        for (; *entity; ++entity) out.push_back(char(*entity));
      }
      continue;
    }
    uint32_t scalar = c;
    if (utf::isHighSurrogate(c) && i + 1 < size && utf::isLowSurrogate(text[i + 1])) {
      scalar = 0x10000 + ((scalar - 0xD800) << 10) + (text[++i] - 0xDC00);
    } else if (utf::isHighSurrogate(c) || utf::isLowSurrogate(c)) {
      scalar = 0xFFFD;
    }
    utf::appendUtf8(out, scalar);
  }
}

}  // namespace

void appendUtf8(std::string& out, std::u16string_view text) { appendUtf8Units<false>(out, text); }

void appendEscapedXmlUtf8(std::string& out, std::u16string_view text) {
  appendUtf8Units<true>(out, text);
}

std::u16string escapeXML(const std::u16string& text) {
  PIM_ENTRY("PIM::escapeXML");
  std::u16string result;
  appendEscapedXml(result, text);
  return result;
}

void appendEscapedXml(std::u16string& out, std::u16string_view text) {
  out.reserve(out.size() + text.size());
  for (char16_t c : text) {
    if (const char16_t* entity = xmlEntity(c)) {
      out += entity;
    } else {
      out += c;
    }
  }
}

std::u16string strReplace(const std::u16string& text, const std::u16string& pattern,
                          const std::u16string& replacement) {
  PIM_ENTRY("PIM::strReplace");
  std::u16string result = text;
  // An empty pattern matches everywhere and would never end.
  if (pattern.empty()) return result;
  size_t at = result.find(pattern);
  while (at != std::u16string::npos) {
    result.replace(at, pattern.size(), replacement);
    at = result.find(pattern, at + replacement.size());
  }
  return result;
}

std::vector<std::u16string> splitString(const std::u16string& text,
                                        const std::u16string& separator) {
  PIM_ENTRY("PIM::splitString");
  std::vector<std::u16string> parts;
  if (text.empty()) return parts;
  // An empty separator is found everywhere and would never end.
  if (separator.empty()) return {text};
  size_t start = 0;
  for (;;) {
    size_t found = text.find(separator, start);
    parts.push_back(text.substr(start, found == std::u16string::npos ? found : found - start));
    if (found == std::u16string::npos) break;
    start = found + separator.size();
  }
  return parts;
}

std::string toCodePage(uint32_t codePage, const std::u16string& text) {
  PIM_ENTRY("PIM::toCodePage");
  if (text.empty()) return {};
  int size = 0;
  int written = 0;
  std::string result = convertTwice<std::string>(
      [&](char* out, int outSize) {
        return env()->wideToMultiByte(codePage, text.c_str(), -1, out, outSize);
      },
      size, written);
  if (size <= 0) {
    PIM_LOG_ERR("WideCharToMultiByte failed");
  } else {
    PIM_ASSERT(written == size);
  }
  return result;
}

std::u16string fromCodePage(uint32_t codePage, const std::string& bytes) {
  PIM_ENTRY("PIM::fromCodePage");
  if (bytes.empty()) return {};
  int size = 0;
  int written = 0;
  std::u16string result = convertTwice<std::u16string>(
      [&](char16_t* out, int outSize) {
        return env()->multiByteToWide(codePage, bytes.c_str(), -1, out, outSize);
      },
      size, written);
  if (size <= 0) {
    PIM_LOG_ERR("MultiByteToWideChar failed.");
  } else {
    PIM_ASSERT(written == size);
  }
  return result;
}

std::string toUtf8(const std::u16string& text) { return toCodePage(kCodePageUtf8, text); }

std::u16string fromUtf8(const std::string& bytes) { return fromCodePage(kCodePageUtf8, bytes); }

std::string base64Encode(const std::string& bytes) {
  PIM_ENTRY("PIM::base64Encode");
  std::string out;
  appendBase64(out, bytes);
  return out;
}

void appendBase64(std::string& out, std::string_view bytes) {
  static const char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  constexpr size_t kLineLength = 76;
  out.reserve(out.size() + (bytes.size() + 2) / 3 * 4 + (bytes.size() / 57 + 1) * 2);
  size_t onLine = 0;
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    uint32_t group = uint32_t(uint8_t(bytes[i])) << 16 | uint32_t(uint8_t(bytes[i + 1])) << 8 |
                     uint32_t(uint8_t(bytes[i + 2]));
    out += kAlphabet[(group >> 18) & 0x3F];
    out += kAlphabet[(group >> 12) & 0x3F];
    out += kAlphabet[(group >> 6) & 0x3F];
    out += kAlphabet[group & 0x3F];
    onLine += 4;
    if (onLine >= kLineLength) {
      out += "\r\n";
      onLine = 0;
    }
  }
  size_t rest = bytes.size() - i;
  if (rest > 0) {
    uint32_t group = uint32_t(uint8_t(bytes[i])) << 16;
    if (rest == 2) group |= uint32_t(uint8_t(bytes[i + 1])) << 8;
    out += kAlphabet[(group >> 18) & 0x3F];
    out += kAlphabet[(group >> 12) & 0x3F];
    out += rest == 2 ? kAlphabet[(group >> 6) & 0x3F] : '=';
    out += '=';
  }
  out += "\r\n";
}

bool systemTimeToFileTime(const SystemTime& time, uint64_t& fileTime) {
  if (time.year < 1601 || time.year > 30827 || time.month < 1 || time.month > 12 || time.day < 1 ||
      time.day > daysInMonth(time.year, time.month) || time.hour > 23 || time.minute > 59 ||
      time.second > 59 || time.milliseconds > 999) {
    return false;
  }
  int64_t days = daysFromCivil(time.year, time.month, time.day) + kDaysFrom1601To1970;
  int64_t seconds = int64_t(time.hour) * 3600 + int64_t(time.minute) * 60 + time.second;
  fileTime = uint64_t(days * kFileTimeUnitsPerDay + seconds * kFileTimeUnitsPerSecond +
                      int64_t(time.milliseconds) * 10'000);
  return true;
}

bool fileTimeToSystemTime(uint64_t fileTime, SystemTime& time) {
  if (fileTime > uint64_t(INT64_MAX)) return false;
  const int64_t units = int64_t(fileTime);
  const int64_t days = units / kFileTimeUnitsPerDay;
  const int64_t ofDay = units % kFileTimeUnitsPerDay;
  int64_t year = 0;
  unsigned month = 0;
  unsigned day = 0;
  civilFromDays(days - kDaysFrom1601To1970, year, month, day);
  time.year = uint16_t(year);
  time.month = uint16_t(month);
  time.day = uint16_t(day);
  time.dayOfWeek = uint16_t((days + 1) % 7);  // 1601-01-01 was a Monday
  time.hour = uint16_t(ofDay / (3600 * kFileTimeUnitsPerSecond));
  time.minute = uint16_t(ofDay / (60 * kFileTimeUnitsPerSecond) % 60);
  time.second = uint16_t(ofDay / kFileTimeUnitsPerSecond % 60);
  time.milliseconds = uint16_t(ofDay / 10'000 % 1000);
  return true;
}

int64_t getOneSecond() {
  PIM_ENTRY("PIM::getOneSecond");
  SystemTime now = env()->systemTimeNow();
  now.second = 0;
  uint64_t atZero = 0;
  bool ok = systemTimeToFileTime(now, atZero);
  now.second = 1;
  uint64_t atOne = 0;
  ok = systemTimeToFileTime(now, atOne) && ok;
  PIM_ASSERT(ok);
  // A clock that gives an impossible date still has seconds of the same length.
  return ok ? int64_t(atOne - atZero) : kFileTimeUnitsPerSecond;
}

uint64_t timeToGMT(uint64_t localFileTime) {
  PIM_ENTRY("PIM::timeToGMT");
  TimeZoneInfo zone = env()->timeZone();
  int64_t bias = zone.bias;
  if (zone.state == TimeZoneState::Standard) {
    bias += zone.standardBias;
  } else if (zone.state == TimeZoneState::Daylight) {
    bias += zone.daylightBias;
  }
  return localFileTime + uint64_t(bias * getOneSecond() * 60);
}

bool createUniqueFileName(const std::u16string& folder, const std::u16string& prefix,
                          const std::u16string& suffix, std::u16string& name) {
  PIM_ENTRY("PIM::createUniqueFileName");
  const uint32_t start = env()->tickCount();
  uint32_t counter = start;
  for (;;) {
    std::u16string candidate = prefix + hexLower(counter) + suffix;
    switch (env()->openAlways(folder + kPathSeparator + candidate)) {
      case OpenAlwaysResult::Failed:
        return false;
      case OpenAlwaysResult::Created:
        name = candidate;
        return true;
      case OpenAlwaysResult::AlreadyExisted:
        ++counter;
        if (counter == start) return false;
        break;
    }
  }
}

std::u16string getSpecialPath(int csidl) {
  PIM_ENTRY("PIM::getSpecialPath");
  return env()->specialFolder(csidl);
}

std::u16string getDllPath() {
  PIM_ENTRY("PIM::getDllPath");
  const std::u16string separator(1, kPathSeparator);
  std::vector<std::u16string> parts = splitString(env()->moduleFileName(), separator);
  if (!parts.empty()) parts.pop_back();
  // A module fresh from the build sits in its configuration's folder.
  if (!parts.empty() && (equalsIgnoringAsciiCase(parts.back(), u"release") ||
                         equalsIgnoringAsciiCase(parts.back(), u"debug"))) {
    parts.pop_back();
  }
  PIM_ASSERT(!parts.empty());
  std::u16string path;
  for (const auto& part : parts) path += part + kPathSeparator;
  return path;
}

namespace {

// The check of pathExists and fileExists; its line is logged as written by
// the one of them that `pimEntry_` names.
bool pathStatus(const std::u16string& path, const StackEntry& pimEntry_) {
  std::u16string copy = cutTrailingSeparators(path);
  if (copy.empty()) PIM_LOG_ERR("Invalid path: " << toUtf8(path));
  return env()->pathStatus(copy);
}

}  // namespace

bool pathExists(const std::u16string& path) {
  PIM_ENTRY("PIM::pathExists");
  return pathStatus(path, pimEntry_);
}

bool fileExists(const std::u16string& path) {
  PIM_ENTRY("PIM::fileExists");
  return pathStatus(path, pimEntry_);
}

bool createPath(const std::u16string& path) {
  PIM_ENTRY("PIM::createPath");
  if (pathExists(path)) return true;
  std::u16string copy = cutTrailingSeparators(path);
  if (copy.empty()) PIM_LOG_ERR("Invalid path: " << toUtf8(path));
  return env()->makeDirectory(copy);
}

std::u16string getCorvelFolder() {
  PIM_ENTRY("PIM::getCorvelFolder");
  std::u16string root = getSpecialPath(kCsidlLocalAppData);
  std::u16string path = root + kPathSeparator + u"Corvel";
  // Without the application-data folder the path would land in the root of
  // the drive; that is no place to write to.
  if (!root.empty() && createPath(path)) return path;
  PIM_LOG_ERR("Could not create path: " << toUtf8(path));
  return {};
}

namespace {

// Sets `path` to the maker folder + separator + `name` (empty text when there
// is no maker folder) and creates it if missing; true when it exists.
bool makerSubfolder(const char16_t* name, std::u16string& path) {
  std::u16string maker = getCorvelFolder();
  if (maker.empty()) {
    path.clear();
    return false;
  }
  path = maker + kPathSeparator + name;
  return createPath(path);
}

}  // namespace

namespace {
// Set once by the command line before any capture starts; read-only after.
std::u16string& dataFolderOverride() {
  static std::u16string folder;
  return folder;
}
}  // namespace

void setDataFolder(const std::u16string& folder) { dataFolderOverride() = folder; }

std::u16string getDataFolder() {
  PIM_ENTRY("PIM::getDataFolder");
  std::u16string path = dataFolderOverride();
  if (!path.empty()) {
    if (createPath(path)) return path;
    PIM_LOG_ERR("Could not create path: " << toUtf8(path));
    return {};
  }
  if (makerSubfolder(u"CVTK_Data", path)) return path;
  if (!path.empty()) PIM_LOG_ERR("Could not create path: " << toUtf8(path));
  return {};
}

std::u16string getLogsFolder() {
  PIM_ENTRY("PIM::getLogsFolder");
  std::u16string path;
  if (makerSubfolder(u"CVTK_Logs", path)) return path;
  if (!path.empty()) PIM_LOG_ERR("Could not create path: " << toUtf8(path));
  return {};
}

}  // namespace PIM
