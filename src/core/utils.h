// Text, time and path helpers used by every part of the system. None of them
// throws: failures are logged and give an empty or false result.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/env.h"

namespace PIM {

// Escapes the five XML specials (" & ' < >) one UTF-16 unit at a time and
// copies everything else, control characters and lone surrogates included.
std::u16string escapeXML(const std::u16string& text);

// escapeXML added to the end of `out`.
void appendEscapedXml(std::u16string& out, std::u16string_view text);

// Append UTF-16 text to UTF-8 bytes the way toUtf8 converts it (a lone
// surrogate becomes U+FFFD), without going through the platform. Unlike
// toUtf8 they copy a NUL; the second escapes as escapeXML does.
void appendUtf8(std::string& out, std::u16string_view text);
void appendEscapedXmlUtf8(std::string& out, std::u16string_view text);

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
void appendBase64(std::string& out, std::string_view bytes);

// File time (100 ns units since 1601-01-01) and broken-down time, both
// without a zone. The first fails for years outside 1601..30827 and for
// impossible fields (the day of the week is not read); the second for times
// above 2^63 - 1, and sets the day of the week.
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

// The shell special folder, or empty text.
std::u16string getSpecialPath(int csidl);
// The folder of the program's own module, ending in the path separator; a
// "Release" or "Debug" folder holding the module is left out.
std::u16string getDllPath();
// Whether the path names a file or folder. A trailing separator is cut
// together with the character before it ("C:	emp" tests "C:	em").
bool pathExists(const std::u16string& path);
bool fileExists(const std::u16string& path);
// Creates the last folder of the path unless it exists (parents must);
// true if it exists afterwards.
bool createPath(const std::u16string& path);
// The maker folder under the local application data, and the data and logs
// folders in it; each is created if missing, and is empty text (with a log
// line) when it cannot be.
std::u16string getCorvelFolder();
std::u16string getDataFolder();
// The command line may put the data elsewhere (`ferrant --data-dir`): the
// folder is used as the data folder from then on; empty restores the
// default. Set before any capture starts.
void setDataFolder(const std::u16string& folder);
std::u16string getLogsFolder();

}  // namespace PIM
