// Test helper: language file bytes as an editor would save them.
#pragma once

#include <string>

namespace PIM::testing {

// The signature and the units of `text` in the chosen byte order.
inline std::string utf16Bytes(const std::u16string& text, bool littleEndian) {
  std::string bytes = littleEndian ? "\xFF\xFE" : "\xFE\xFF";
  for (char16_t unit : text) {
    char low = char(unit & 0xFF);
    char high = char(unit >> 8);
    bytes += littleEndian ? std::string{low, high} : std::string{high, low};
  }
  return bytes;
}

}  // namespace PIM::testing
