// Code-page conversions with the contract of WideCharToMultiByte and
// MultiByteToWideChar (flags 0, no default character given).
//
// UTF-8 is converted here and behaves as Windows does: a lone surrogate is
// written as U+FFFD, and each maximal ill-formed part of the input reads as
// one U+FFFD, except that a second byte which rules the sequence out (an
// overlong form, a surrogate, a value above U+10FFFF) goes with its lead.
// Single-byte code pages go through a 256-entry table built once from iconv
// and corrected to read every byte as Windows does; multi-byte ones and
// UTF-7 go through iconv directly. A character the code page lacks becomes
// '?', one per UTF-16 unit, as the Windows default character does. Windows'
// best-fit mappings ("A" for "Ā") are not copied: such characters become '?'
// here.
#include <errno.h>
#include <iconv.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "platform/posix/posix_env.h"
#include "platform/utf.h"

namespace PIM {

namespace {

constexpr uint32_t kUtf7 = 65000;
constexpr uint32_t kUtf8 = 65001;
constexpr char16_t kReplacement = 0xFFFD;

using utf::appendUtf16;
using utf::appendUtf8;
using utf::isHighSurrogate;
using utf::isLowSurrogate;

// ----------------------------------------------------------------- UTF-8 --

// The well-formed range of the second byte of a sequence led by `lead`, or
// false when `lead` cannot start one (then `extra` is 0).
bool utf8Lead(uint8_t lead, int& extra, uint8_t& low, uint8_t& high) {
  extra = 0;
  low = 0x80;
  high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    extra = 1;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    extra = 2;
    if (lead == 0xE0) low = 0xA0;   // no overlong forms
    if (lead == 0xED) high = 0x9F;  // no encoded surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    extra = 3;
    if (lead == 0xF0) low = 0x90;   // no overlong forms
    if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
  }
  return extra > 0;
}

// ------------------------------------------------------------- code pages --

// The iconv name of a Windows code page, or empty when it is not supported.
std::string iconvName(uint32_t codePage) {
  if ((codePage >= 1250 && codePage <= 1258) || codePage == 874 || codePage == 932 ||
      codePage == 936 || codePage == 949 || codePage == 950 || codePage == 437 || codePage == 850 ||
      codePage == 866) {
    return "CP" + std::to_string(codePage);
  }
  if (codePage >= 28591 && codePage <= 28605) return "ISO-8859-" + std::to_string(codePage - 28590);
  if (codePage == 20127) return "ASCII";
  if (codePage == kUtf7) return "UTF-7";
  return {};
}

bool isMultiByte(uint32_t codePage) {
  return codePage == 932 || codePage == 936 || codePage == 949 || codePage == 950 ||
         codePage == kUtf7;
}

// What stands for input iconv rejects: how many bytes it covers and the
// output written in their place.
struct Replacement {
  size_t length;
  std::string output;
};

Replacement skipByte(const char*, size_t) { return {1, std::string()}; }
Replacement unknownUnit(const char*, size_t) { return {2, "?"}; }  // input as UTF-16

bool inRange(uint8_t b, uint8_t low, uint8_t high) { return b >= low && b <= high; }

bool isLeadByte(uint32_t codePage, uint8_t b) {
  if (codePage == 932) return inRange(b, 0x81, 0x9F) || inRange(b, 0xE0, 0xFC);
  return inRange(b, 0x81, 0xFE);
}

std::string utf16Unit(char16_t c) { return {char(c & 0xFF), char(c >> 8)}; }

// Single bytes of the double-byte code pages that Windows reads although
// iconv does not.
struct SingleByteExtra {
  uint32_t codePage;
  uint8_t byte;
  char16_t character;
};
const SingleByteExtra kDoubleByteExtras[] = {
    {932, 0x80, 0x0080}, {932, 0xA0, 0xF8F0}, {932, 0xFD, 0xF8F1}, {932, 0xFE, 0xF8F2},
    {932, 0xFF, 0xF8F3}, {936, 0xFF, 0xF8F5}, {949, 0x80, 0x0080}, {949, 0xFF, 0xF8F7},
    {950, 0x80, 0x0080}, {950, 0xFF, 0xF8F8},
};

// Windows reads a lead byte and the byte after it as one character even
// when the pair means nothing; an unknown character is the code page's
// default: the katakana middle dot in 932, '?' elsewhere.
Replacement unknownDoubleByte(uint32_t codePage, const char* at, size_t left) {
  const std::string unknown = utf16Unit(codePage == 932 ? 0x30FB : u'?');
  const uint8_t first = uint8_t(at[0]);
  if (left >= 2 && isLeadByte(codePage, first) && uint8_t(at[1]) >= 0x40) return {2, unknown};
  for (const auto& extra : kDoubleByteExtras) {
    if (extra.codePage == codePage && extra.byte == first) return {1, utf16Unit(extra.character)};
  }
  return {1, unknown};
}

// An open iconv descriptor, closed on destruction.
class Iconv {
 public:
  Iconv(const std::string& to, const std::string& from)
      : cd_(iconv_open(to.c_str(), from.c_str())) {}
  ~Iconv() {
    if (valid()) iconv_close(cd_);
  }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;
  bool valid() const { return cd_ != iconv_t(-1); }

  // Converts all of `in`; input iconv rejects (or cannot convert) is
  // replaced as `replace(at, left)` says.
  template <typename Replace>
  std::string run(const char* in, size_t size, Replace replace) {
    std::string out;
    iconv(cd_, nullptr, nullptr, nullptr, nullptr);
    char* inPtr = const_cast<char*>(in);
    size_t inLeft = size;
    while (inLeft > 0) {
      char buffer[256];
      char* outPtr = buffer;
      size_t outLeft = sizeof buffer;
      size_t result = iconv(cd_, &inPtr, &inLeft, &outPtr, &outLeft);
      int error = result == size_t(-1) ? errno : 0;
      out.append(buffer, size_t(outPtr - buffer));
      if (error == EILSEQ || error == EINVAL) {
        flush(out);  // close any shift state before the replacement goes in
        Replacement r = replace(inPtr, inLeft);
        out += r.output;
        size_t step = std::min(std::max<size_t>(r.length, 1), inLeft);
        inPtr += step;
        inLeft -= step;
      } else if (error != 0 && error != E2BIG) {
        break;
      }
    }
    flush(out);
    return out;
  }

 private:
  // Writes what the converter still holds back: a shift sequence, or a
  // character waiting for a combining mark.
  void flush(std::string& out) {
    char buffer[64];
    char* outPtr = buffer;
    size_t outLeft = sizeof buffer;
    iconv(cd_, nullptr, nullptr, &outPtr, &outLeft);
    out.append(buffer, size_t(outPtr - buffer));
  }

  iconv_t cd_;
};

std::string utf16Bytes(const char16_t* text, size_t units) {
  std::string bytes;
  bytes.reserve(units * 2);
  for (size_t i = 0; i < units; ++i) {
    bytes += char(text[i] & 0xFF);
    bytes += char(text[i] >> 8);
  }
  return bytes;
}

std::u16string fromUtf16Bytes(const std::string& bytes) {
  std::u16string text;
  text.reserve(bytes.size() / 2);
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    text += char16_t(uint8_t(bytes[i]) | uint16_t(uint8_t(bytes[i + 1])) << 8);
  }
  return text;
}

// A single-byte code page as two tables.
struct SingleByteTable {
  std::array<char16_t, 256> toUnicode{};
  std::unordered_map<char16_t, char> fromUnicode;
};

constexpr uint32_t kAscii = 20127;

// Where the Windows tables differ from iconv's: bytes read as another
// character (its 28597 is the 1987 edition of ISO 8859-7).
struct ByteOverride {
  uint32_t codePage;
  uint8_t byte;
  char16_t character;
};
const ByteOverride kByteOverrides[] = {
    {1255, 0xCA, 0x05BA},  {28597, 0xA1, 0x02BD}, {28597, 0xA2, 0x02BC},
    {28597, 0xA4, 0xF7C2}, {28597, 0xA5, 0xF7C3}, {28597, 0xAA, 0xF7C4},
    {28597, 0xAE, 0xF7C5}, {28597, 0xD2, 0xF7C6}, {28597, 0xFF, 0xF7C7},
};

// Windows reads an undefined byte as the character of the same number (the
// holes of 1252 read as C1 controls), except from 0xA0 up in these code
// pages, where the holes read as consecutive private-use characters in byte
// order.
struct PrivateUseHoles {
  uint32_t codePage;
  char16_t first;
};
const PrivateUseHoles kPrivateUseHoles[] = {
    {874, 0xF8C1}, {1253, 0xF8F9}, {1255, 0xF88D}, {1257, 0xF8FC}};

std::unique_ptr<SingleByteTable> buildTable(uint32_t codePage) {
  Iconv decoder("UTF-16LE", iconvName(codePage));
  if (!decoder.valid()) return nullptr;
  char16_t nextPrivate = 0;
  for (const auto& holes : kPrivateUseHoles) {
    if (holes.codePage == codePage) nextPrivate = holes.first;
  }
  auto table = std::make_unique<SingleByteTable>();
  for (int b = 0; b < 256; ++b) {
    char byte = char(b);
    std::u16string text = fromUtf16Bytes(decoder.run(&byte, 1, skipByte));
    char16_t c = text.size() == 1 ? text[0] : 0;
    for (const auto& o : kByteOverrides) {
      if (o.codePage == codePage && o.byte == b) c = o.character;
    }
    if (codePage == kAscii && b >= 0x80) {
      c = char16_t(b & 0x7F);  // Windows drops the eighth bit
    } else if (c == 0 && b != 0) {
      c = nextPrivate && b >= 0xA0 ? nextPrivate++ : char16_t(b);
    }
    table->toUnicode[size_t(b)] = c;
    // The lowest byte wins for a character two bytes share.
    table->fromUnicode.emplace(c, byte);
  }
  return table;
}

// The table of a single-byte code page, built on first use; null when iconv
// lacks the code page.
const SingleByteTable* singleByteTable(uint32_t codePage) {
  static std::mutex lock;
  static std::map<uint32_t, std::unique_ptr<SingleByteTable>> tables;
  std::lock_guard<std::mutex> guard(lock);
  auto it = tables.find(codePage);
  if (it == tables.end()) it = tables.emplace(codePage, buildTable(codePage)).first;
  return it->second.get();
}

std::optional<std::string> encode(uint32_t codePage, const char16_t* text, size_t units) {
  if (codePage == kUtf8) return utf16ToUtf8(text, units);
  std::string name = iconvName(codePage);
  if (name.empty()) return std::nullopt;
  if (isMultiByte(codePage)) {
    Iconv encoder(name, "UTF-16LE");
    if (!encoder.valid()) return std::nullopt;
    std::string input = utf16Bytes(text, units);
    return encoder.run(input.data(), input.size(), unknownUnit);
  }
  const SingleByteTable* table = singleByteTable(codePage);
  if (!table) return std::nullopt;
  std::string out;
  out.reserve(units);
  for (size_t i = 0; i < units; ++i) {
    auto it = table->fromUnicode.find(text[i]);
    out += it == table->fromUnicode.end() ? '?' : it->second;
  }
  return out;
}

std::optional<std::u16string> decode(uint32_t codePage, const char* bytes, size_t size) {
  if (codePage == kUtf8) return utf8ToUtf16(bytes, size);
  std::string name = iconvName(codePage);
  if (name.empty()) return std::nullopt;
  if (isMultiByte(codePage)) {
    Iconv decoder("UTF-16LE", name);
    if (!decoder.valid()) return std::nullopt;
    auto replace = [codePage](const char* at, size_t left) {
      return unknownDoubleByte(codePage, at, left);
    };
    return fromUtf16Bytes(decoder.run(bytes, size, replace));
  }
  const SingleByteTable* table = singleByteTable(codePage);
  if (!table) return std::nullopt;
  std::u16string out;
  out.reserve(size);
  for (size_t i = 0; i < size; ++i) out += table->toUnicode[uint8_t(bytes[i])];
  return out;
}

template <typename Char>
size_t terminatedLength(const Char* text) {
  size_t n = 0;
  while (text[n] != 0) ++n;
  return n;
}

// The Win32 conventions around a conversion: a negative count (not only -1)
// converts up to and including the NUL, count 0 is an error, outSize 0 asks for the size and a
// buffer too small fails. Returns the units written (or needed), 0 on
// failure.
template <typename In, typename Out, typename Convert>
int convertWin32Style(const In* text, int count, Out* out, int outSize, Convert convert) {
  if (!text || count == 0 || outSize < 0 || (outSize > 0 && !out)) return 0;
  const bool terminated = count < 0;
  auto result = convert(text, terminated ? terminatedLength(text) : size_t(count));
  if (!result) return 0;
  // The terminator is written as a NUL whatever the code page's shift state.
  if (terminated) result->push_back(Out(0));
  if (result->size() > size_t(INT_MAX)) return 0;
  const int size = int(result->size());
  if (outSize == 0) return size;
  if (size > outSize) return 0;
  std::memcpy(out, result->data(), result->size() * sizeof(Out));
  return size;
}

}  // namespace

std::string utf16ToUtf8(const char16_t* text, size_t units) {
  std::string out;
  out.reserve(units);
  for (size_t i = 0; i < units; ++i) {
    uint32_t c = text[i];
    if (isHighSurrogate(c) && i + 1 < units && isLowSurrogate(text[i + 1])) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
    } else if (isHighSurrogate(c) || isLowSurrogate(c)) {
      c = kReplacement;
    }
    appendUtf8(out, c);
  }
  return out;
}

std::u16string utf8ToUtf16(const char* bytes, size_t size) {
  std::u16string out;
  out.reserve(size);
  size_t i = 0;
  while (i < size) {
    uint8_t lead = uint8_t(bytes[i]);
    if (lead < 0x80) {
      out += char16_t(lead);
      ++i;
      continue;
    }
    int extra = 0;
    uint8_t low = 0;
    uint8_t high = 0;
    if (!utf8Lead(lead, extra, low, high)) {
      out += kReplacement;
      ++i;
      continue;
    }
    uint32_t c = lead & (0x3F >> extra);
    size_t next = i + 1;
    bool complete = true;
    for (int k = 0; k < extra; ++k, ++next) {
      uint8_t b = next < size ? uint8_t(bytes[next]) : 0;
      if (next >= size || b < 0x80 || b > 0xBF) {
        complete = false;
        break;
      }
      if (b < low || b > high) {
        // An overlong form, a surrogate or a value above U+10FFFF shows in
        // the second byte; Windows drops that byte with the lead.
        complete = false;
        ++next;
        break;
      }
      c = (c << 6) | (b & 0x3F);
      low = 0x80;
      high = 0xBF;
    }
    // An incomplete sequence is one replacement; the byte that broke it
    // starts the next one.
    appendUtf16(out, complete ? c : kReplacement);
    i = next;
  }
  return out;
}

int PosixEnv::wideToMultiByte(uint32_t codePage, const char16_t* text, int units, char* out,
                              int outSize) {
  return convertWin32Style(text, units, out, outSize, [codePage](const char16_t* in, size_t n) {
    return encode(codePage, in, n);
  });
}

int PosixEnv::multiByteToWide(uint32_t codePage, const char* text, int bytes, char16_t* out,
                              int outUnits) {
  return convertWin32Style(text, bytes, out, outUnits, [codePage](const char* in, size_t n) {
    return decode(codePage, in, n);
  });
}

}  // namespace PIM
