// UTF-8 and UTF-16 building blocks shared by the platform layer's own text
// handling (which cannot use core/utils: that sits above the platform).
#pragma once

#include <cstdint>
#include <string>

namespace PIM::utf {

inline bool isHighSurrogate(uint32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
inline bool isLowSurrogate(uint32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }

// One scalar value (at most U+10FFFF, no surrogate) as UTF-8.
inline void appendUtf8(std::string& out, uint32_t c) {
  if (c < 0x80) {
    out += char(c);
  } else if (c < 0x800) {
    out += char(0xC0 | (c >> 6));
    out += char(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += char(0xE0 | (c >> 12));
    out += char(0x80 | ((c >> 6) & 0x3F));
    out += char(0x80 | (c & 0x3F));
  } else {
    out += char(0xF0 | (c >> 18));
    out += char(0x80 | ((c >> 12) & 0x3F));
    out += char(0x80 | ((c >> 6) & 0x3F));
    out += char(0x80 | (c & 0x3F));
  }
}

// One scalar value as one UTF-16 unit or a surrogate pair.
inline void appendUtf16(std::u16string& out, uint32_t c) {
  if (c >= 0x10000) {
    out += char16_t(0xD800 + ((c - 0x10000) >> 10));
    out += char16_t(0xDC00 + ((c - 0x10000) & 0x3FF));
  } else {
    out += char16_t(c);
  }
}

}  // namespace PIM::utf
