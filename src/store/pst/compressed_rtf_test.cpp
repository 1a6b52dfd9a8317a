#include "store/pst/compressed_rtf.h"

#include <gtest/gtest.h>

#include <vector>

#include "core/utils.h"

namespace PIM::store {
namespace {

using Bytes = std::vector<uint8_t>;

// The two worked examples of the format's published description: literals
// and dictionary references, and a reference that runs past the bytes
// written so far (overlapping copy).
const Bytes kSimple = {0x2d, 0x00, 0x00, 0x00, 0x2b, 0x00, 0x00, 0x00, 0x4c, 0x5a, 0x46, 0x75, 0xf1,
                       0xc5, 0xc7, 0xa7, 0x03, 0x00, 0x0a, 0x00, 0x72, 0x63, 0x70, 0x67, 0x31, 0x32,
                       0x35, 0x42, 0x32, 0x0a, 0xf3, 0x20, 0x68, 0x65, 0x6c, 0x09, 0x00, 0x20, 0x62,
                       0x77, 0x05, 0xb0, 0x6c, 0x64, 0x7d, 0x0a, 0x80, 0x0f, 0xa0};
const Bytes kOverlap = {0x1a, 0x00, 0x00, 0x00, 0x1c, 0x00, 0x00, 0x00, 0x4c, 0x5a,
                        0x46, 0x75, 0xe2, 0xd4, 0x4b, 0x51, 0x41, 0x00, 0x04, 0x20,
                        0x57, 0x58, 0x59, 0x5a, 0x0d, 0x6e, 0x7d, 0x01, 0x0e, 0xb0};

TEST(CompressedRtf, DecompressesThePublishedExamples) {
  struct Case {
    const Bytes* data;
    const char* rtf;
  };
  const Case cases[] = {
      {&kSimple, "{\\rtf1\\ansi\\ansicpg1252\\pard hello world}\r\n"},
      {&kOverlap, "{\\rtf1 WXYZWXYZWXYZWXYZWXYZ}"},
  };
  for (const Case& c : cases) {
    std::string rtf, error;
    EXPECT_TRUE(decompressRtf(c.data->data(), c.data->size(), rtf, error)) << error;
    EXPECT_EQ(rtf, c.rtf);
  }
}

TEST(CompressedRtf, UncompressedKindIsCopied) {
  Bytes data = {0x0f, 0, 0, 0, 3, 0, 0, 0, 'M', 'E', 'L', 'A', 0, 0, 0, 0, '{', '}', 'x'};
  std::string rtf, error;
  ASSERT_TRUE(decompressRtf(data.data(), data.size(), rtf, error)) << error;
  EXPECT_EQ(rtf, "{}x");
}

TEST(CompressedRtf, DamagedValuesAreRefused) {
  struct Case {
    const char* name;
    Bytes data;
    const char* error;
  };
  Bytes badCrc = kSimple;
  badCrc[20] ^= 1;
  Bytes cut = kSimple;
  cut.resize(30);
  Bytes kind = kSimple;
  kind[8] = 'X';
  Bytes huge = kSimple;
  huge[7] = 0x7F;
  const Case cases[] = {
      {"short", Bytes(kSimple.begin(), kSimple.begin() + 15), "shorter than its header"},
      {"checksum", badCrc, "checksum"},
      {"cut", cut, "size beyond"},
      {"kind", kind, "unknown"},
      {"claimed size", huge, "unreasonable"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string rtf, error;
    EXPECT_FALSE(decompressRtf(c.data.data(), c.data.size(), rtf, error));
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
  }
}

TEST(CompressedRtf, TextOfRtf) {
  struct Case {
    const char* rtf;
    const char16_t* text;
  };
  const Case cases[] = {
      {"{\\rtf1\\ansi\\ansicpg1252\\pard hello world}\r\n", u"hello world"},
      {"{\\rtf1\\ansi{\\fonttbl{\\f0 Arial;}}{\\colortbl;\\red0;}a\\par b\\tab c}", u"a\r\nb\tc"},
      // 8-bit characters in the document's code page; \uN with its fallback skipped.
      {"{\\rtf1\\ansi\\ansicpg1252 caf\\'e9 \\u8364?!}", u"café €!"},
      {"{\\rtf1\\ansi\\ansicpg932 \\'82\\'a0}", u"あ"},
      // Hidden destinations, HTML tags kept for a reader that rebuilds HTML.
      {"{\\rtf1{\\*\\htmltag64 <p>}Hi{\\*\\generator x;}\\{\\}\\\\}", u"Hi{}\\"},
  };
  for (const Case& c : cases) EXPECT_EQ(toUtf8(rtfToText(c.rtf)), toUtf8(c.text)) << c.rtf;
}

}  // namespace
}  // namespace PIM::store
