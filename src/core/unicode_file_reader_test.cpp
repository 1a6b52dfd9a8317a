#include "core/unicode_file_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/language_file_testing.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using testing::LogCapture;
using testing::TempDir;
using testing::utf16Bytes;

const char kNoSignature[] =
    "Possibly invalid resource file. No UNICODE signature found. Reading as ASCII.";

std::vector<std::u16string> allLines(UnicodeFileReader& reader) {
  std::vector<std::u16string> lines;
  std::u16string line;
  while (reader.getLine(line)) lines.push_back(line);
  return lines;
}

std::vector<std::u16string> linesOf(const std::string& bytes) {
  UnicodeFileReader reader;
  EXPECT_TRUE(reader.openBuffer(bytes));
  return allLines(reader);
}

// Text with characters outside Latin-1 and beyond the basic plane, and a last
// line without a line end.
const std::u16string kText = u"first\r\n\r\nSch\u00f6n \u05e9\u05dc\u05d5\u05dd \U0001F600\r\nlast";
const std::vector<std::u16string> kLines = {u"first", u"",
                                            u"Sch\u00f6n \u05e9\u05dc\u05d5\u05dd \U0001F600"};

TEST(UnicodeFileReader, ReadsBothByteOrdersAndDropsAnUnfinishedLastLine) {
  LogCapture log;
  EXPECT_EQ(linesOf(utf16Bytes(kText, true)), kLines);
  EXPECT_EQ(linesOf(utf16Bytes(kText, false)), kLines);
  EXPECT_EQ(log.messages(), std::vector<std::string>{});
}

TEST(UnicodeFileReader, ReadsUtf8WithoutSignatureAndSaysSoOnce) {
  LogCapture log;
  EXPECT_EQ(
      linesOf(
          "first\r\n\r\nSch\xC3\xB6n \xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D \xF0\x9F\x98\x80\r\nlast"),
      kLines);
  EXPECT_EQ(log.messages(), std::vector<std::string>{kNoSignature});
}

TEST(UnicodeFileReader, Utf8StartsAtTheFirstByteAndTakesAnyLineEnd) {
  // The two bytes read as a possible signature are read again as text.
  EXPECT_EQ(linesOf("ab\ncd\re\r\n"), (std::vector<std::u16string>{u"ab", u"cd", u"e"}));
  EXPECT_EQ(linesOf("a\n"), std::vector<std::u16string>{u"a"});
}

TEST(UnicodeFileReader, TooShortForASignatureIsReadAsUtf8) {
  for (const std::string bytes : {"", "\xFF", "x"}) {
    LogCapture log;
    EXPECT_EQ(linesOf(bytes), std::vector<std::u16string>{}) << bytes;
    EXPECT_EQ(log.messages(), std::vector<std::string>{kNoSignature});
  }
}

TEST(UnicodeFileReader, LineEndOtherThanCrLfStepsBackOneByteNotOneUnit) {
  // After "a" LF the reader looks at "b", finds no line end and steps back a
  // single byte: from then on units straddle two characters. Here the rest
  // ends in an odd byte, so no further line is returned.
  EXPECT_EQ(linesOf(utf16Bytes(u"a\nbc\r\n", true)), std::vector<std::u16string>{u"a"});
  // The high byte of "b" and the next byte make one unit, 0x4100; then the
  // shifted bytes happen to form CR and LF again.
  std::string shifted = utf16Bytes(u"a\rb", true) + std::string("\x41\x0D\x00\x0A\x00", 5);
  EXPECT_EQ(linesOf(shifted), (std::vector<std::u16string>{u"a", u"\x4100"}));
  // Two line ends in a row are one line end.
  EXPECT_EQ(linesOf(utf16Bytes(u"a\n\nb\r\r", true)), (std::vector<std::u16string>{u"a", u"b"}));
}

TEST(UnicodeFileReader, OpensFilesByUnicodePathAndClosesOnReopen) {
  TempDir dir;
  const std::u16string path = dir.file(u"strings.\u00c4\u05e9");
  testing::writeFileBytes(path, utf16Bytes(u"one\r\ntwo\r\n", false));

  UnicodeFileReader reader;
  EXPECT_FALSE(reader.isOpen());
  ASSERT_TRUE(reader.open(path));
  EXPECT_TRUE(reader.isOpen());
  std::u16string line;
  ASSERT_TRUE(reader.getLine(line));
  EXPECT_EQ(line, u"one");

  // Opening again starts over from the signature.
  ASSERT_TRUE(reader.open(path));
  EXPECT_EQ(allLines(reader), (std::vector<std::u16string>{u"one", u"two"}));

  reader.close();
  EXPECT_FALSE(reader.isOpen());
  EXPECT_FALSE(reader.getLine(line));
  EXPECT_FALSE(reader.getLineUtf8(line));
}

TEST(UnicodeFileReader, MissingFileIsLoggedAndLeavesTheReaderClosed) {
  TempDir dir;
  UnicodeFileReader reader;
  ASSERT_TRUE(reader.openBuffer(utf16Bytes(u"x\r\n", true)));
  LogCapture log;
  EXPECT_FALSE(reader.open(dir.file(u"missing")));
  EXPECT_FALSE(reader.isOpen());
  std::u16string line;
  EXPECT_FALSE(reader.getLine(line));
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Could not open the specified file."});
}

TEST(UnicodeFileReader, ReopeningForgetsTheByteOrderAndSingleByteMode) {
  UnicodeFileReader reader;
  reader.openBuffer("plain\r\n");
  reader.openBuffer(utf16Bytes(u"wide\r\n", false));
  EXPECT_EQ(allLines(reader), std::vector<std::u16string>{u"wide"});
  reader.openBuffer(utf16Bytes(u"again\r\n", true));
  EXPECT_EQ(allLines(reader), std::vector<std::u16string>{u"again"});
}

}  // namespace
}  // namespace PIM
