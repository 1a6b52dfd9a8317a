// Text, time and path helpers used by every part of the system. None of them
// throws: failures are logged and give an empty or false result.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/env.h"

namespace PIM {

// Escapes the five XML specials (" & ' < >) one UTF-16 unit at a time and
// copies everything else, control characters and lone surrogates included.
std::u16string escapeXML(const std::u16string& text);

// Replaces every occurrence of `pattern`, left to right; inserted text is
// never searched again.
std::u16string strReplace(const std::u16string& text, const std::u16string& pattern,
                          const std::u16string& replacement);

// Splits at every `separator`; leading, trailing and doubled separators give
// empty elements, an empty text gives no element.
std::vector<std::u16string> splitString(const std::u16string& text,
                                        const std::u16string& separator);

// Conversions through the platform's code pages (65001 = UTF-8). Both stop
// at the first NUL; a failed conversion is logged and gives empty text.
std::string toCodePage(uint32_t codePage, const std::u16string& text);
std::u16string fromCodePage(uint32_t codePage, const std::string& bytes);
std::string toUtf8(const std::u16string& text);
std::u16string fromUtf8(const std::string& bytes);

// Base64 with a CR LF after every 76 characters and at the very end.
std::string base64Encode(const std::string& bytes);

// File time (100 ns units since 1601-01-01) and broken-down time, both
// without a zone. False for dates outside 1601..30827 or impossible fields
// (day of week is ignored going in and set coming out).
bool systemTimeToFileTime(const SystemTime& time, uint64_t& fileTime);
bool fileTimeToSystemTime(uint64_t fileTime, SystemTime& time);

// One second in file-time units (100 ns).
int64_t getOneSecond();
// A local file time to UTC, using the zone's bias at the moment of the call.
uint64_t timeToGMT(uint64_t localFileTime);

// Reserves a new empty file folder + separator + prefix + hex counter +
// suffix; `name` receives the file name without the folder.
bool createUniqueFileName(const std::u16string& folder, const std::u16string& prefix,
                          const std::u16string& suffix, std::u16string& name);

std::u16string getSpecialPath(int csidl);
// The folder of the program's own module, ending in the path separator.
std::u16string getDllPath();
bool pathExists(const std::u16string& path);
bool fileExists(const std::u16string& path);
bool createPath(const std::u16string& path);
std::u16string getCorvelFolder();
std::u16string getDataFolder();
std::u16string getLogsFolder();

}  // namespace PIM
