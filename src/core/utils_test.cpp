#include "core/utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "testing/test_support.h"

namespace PIM {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using testing::LogCapture;
using testing::ScopedEnv;
using testing::TempDir;

// The platform's Env with the clocks, module name, special folder and file
// calls replaced where a test sets them.
class FakeEnv : public EnvWrapper {
 public:
  FakeEnv() : EnvWrapper(Env::platformDefault()) {}

  std::optional<TimeZoneInfo> zone;
  std::optional<SystemTime> now;
  std::optional<uint32_t> tick;
  std::optional<std::u16string> module;
  std::optional<std::u16string> special;
  std::optional<OpenAlwaysResult> openResult;  // instead of touching the disk
  std::vector<std::u16string> statted;
  std::vector<std::u16string> opened;
  std::u16string refusedFolder;  // makeDirectory fails for paths ending so
  int conversions = 0;
  int sizeSurplus = 0;  // added to the answer of a size query

  TimeZoneInfo timeZone() override { return zone ? *zone : target()->timeZone(); }
  SystemTime systemTimeNow() override { return now ? *now : target()->systemTimeNow(); }
  uint32_t tickCount() override { return tick ? *tick : target()->tickCount(); }
  std::u16string moduleFileName() override { return module ? *module : target()->moduleFileName(); }
  std::u16string specialFolder(int csidl) override {
    return special ? *special : target()->specialFolder(csidl);
  }
  bool pathStatus(const std::u16string& path) override {
    statted.push_back(path);
    return target()->pathStatus(path);
  }
  bool makeDirectory(const std::u16string& path) override {
    if (!refusedFolder.empty() && path.size() >= refusedFolder.size() &&
        path.compare(path.size() - refusedFolder.size(), refusedFolder.size(), refusedFolder) ==
            0) {
      return false;
    }
    return target()->makeDirectory(path);
  }
  OpenAlwaysResult openAlways(const std::u16string& path) override {
    opened.push_back(path);
    return openResult ? *openResult : target()->openAlways(path);
  }
  int wideToMultiByte(uint32_t cp, const char16_t* t, int u, char* o, int s) override {
    ++conversions;
    int n = target()->wideToMultiByte(cp, t, u, o, s);
    return s == 0 && n > 0 ? n + sizeSurplus : n;
  }
  int multiByteToWide(uint32_t cp, const char* t, int b, char16_t* o, int s) override {
    ++conversions;
    return target()->multiByteToWide(cp, t, b, o, s);
  }
};

std::u16string sep() { return std::u16string(1, kPathSeparator); }

// --- XML escaping, replacement and splitting ---------------------------------

TEST(EscapeXmlTest, EscapesTheFiveSpecialsAndCopiesEverythingElse) {
  EXPECT_EQ(escapeXML(u"a<b & 'c' > \"d\""), u"a&lt;b &amp; &apos;c&apos; &gt; &quot;d&quot;");
  EXPECT_EQ(escapeXML(u""), u"");
  // Controls, lone surrogates and existing entities pass through untouched.
  const std::u16string raw = u"\x01\t\xD800z&amp;";
  EXPECT_EQ(escapeXML(raw), u"\x01\t\xD800z&amp;amp;");
}

TEST(StrReplaceTest, ReplacesEveryOccurrenceLeftToRightWithoutRescanning) {
  EXPECT_EQ(strReplace(u"a.b.c", u".", u"::"), u"a::b::c");
  EXPECT_EQ(strReplace(u"aaa", u"aa", u"b"), u"ba");  // non-overlapping
  // A replacement that contains the pattern ends.
  EXPECT_EQ(strReplace(u"x-x", u"x", u"xx"), u"xx-xx");
  EXPECT_EQ(strReplace(u"abc", u"abc", u""), u"");
  EXPECT_EQ(strReplace(u"abc", u"z", u"y"), u"abc");
  EXPECT_EQ(strReplace(u"abc", u"", u"y"), u"abc");
}

TEST(SplitStringTest, KeepsEmptyElementsAndGivesNoneForEmptyText) {
  EXPECT_THAT(splitString(u"C:\\a\\b", u"\\"), ElementsAre(u"C:", u"a", u"b"));
  EXPECT_THAT(splitString(u"", u"\\"), IsEmpty());
  EXPECT_THAT(splitString(u"a\\", u"\\"), ElementsAre(u"a", u""));
  EXPECT_THAT(splitString(u"\\a\\\\b", u"\\"), ElementsAre(u"", u"a", u"", u"b"));
  EXPECT_THAT(splitString(u"abc", u","), ElementsAre(u"abc"));
  EXPECT_THAT(splitString(u"1, 2, 3", u", "), ElementsAre(u"1", u"2", u"3"));
  EXPECT_THAT(splitString(u"abc", u""), ElementsAre(u"abc"));
}

// --- Code pages -------------------------------------------------------------
// The same expectations hold on Windows, where the system converts, and on
// POSIX, where our own conversion does.

TEST(CodePageTest, Utf8RoundTripsIncludingSupplementaryCharacters) {
  const std::u16string text = u"Gr\u00FC\u00DFe \U0001F600";
  const std::string bytes =
      "Gr\xC3\xBC\xC3\x9F"
      "e \xF0\x9F\x98\x80";
  EXPECT_EQ(toUtf8(text), bytes);
  EXPECT_EQ(fromUtf8(bytes), text);
  EXPECT_EQ(toUtf8(u"\u65E5\u672C"), "\xE6\x97\xA5\xE6\x9C\xAC");
  EXPECT_EQ(toUtf8(u"\U0010FFFF"), "\xF4\x8F\xBF\xBF");
}

TEST(CodePageTest, LoneSurrogatesBecomeTheReplacementCharacter) {
  EXPECT_EQ(toUtf8(std::u16string(u"a") + char16_t(0xD800) + u"b"),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(toUtf8(std::u16string(u"a") + char16_t(0xDC00)), "a\xEF\xBF\xBD");
  // A low surrogate before a high one is two lone ones.
  EXPECT_EQ(toUtf8(std::u16string{char16_t(0xDC00), char16_t(0xD800)}), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(CodePageTest, InvalidUtf8ReadsAsOneReplacementPerIllFormedPart) {
  EXPECT_EQ(fromUtf8("a\x80z"), u"a\uFFFDz");
  EXPECT_EQ(fromUtf8("a\xE2\x82z"), u"a\uFFFDz");    // truncated sequence
  EXPECT_EQ(fromUtf8("\xC0\xAF"), u"\uFFFD\uFFFD");  // C0 never leads
  EXPECT_EQ(fromUtf8("\xF0\x9F\x98"), u"\uFFFD");    // cut at the end
  EXPECT_EQ(fromUtf8("\xFFok"), u"\uFFFDok");
  // A second byte that rules the sequence out goes with its lead: overlong,
  // encoded surrogate, above U+10FFFF.
  EXPECT_EQ(fromUtf8("\xE0\x80\x80"), u"\uFFFD\uFFFD");
  EXPECT_EQ(fromUtf8("\xED\xA0\x80"), u"\uFFFD\uFFFD");
  EXPECT_EQ(fromUtf8("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD");
}

TEST(CodePageTest, WindowsCodePagesConvertBothWays) {
  EXPECT_EQ(toCodePage(1252, u"\u20AC caf\u00E9"), "\x80 caf\xE9");
  EXPECT_EQ(fromCodePage(1252, "\x80 caf\xE9"), u"\u20AC caf\u00E9");
  EXPECT_EQ(toCodePage(1251, u"\u041F\u0440\u0438\u0432\u0435\u0442"), "\xCF\xF0\xE8\xE2\xE5\xF2");
  EXPECT_EQ(fromCodePage(1251, "\xCF\xF0\xE8\xE2\xE5\xF2"),
            u"\u041F\u0440\u0438\u0432\u0435\u0442");
  EXPECT_EQ(toCodePage(932, u"\u3042\uFF71"), "\x82\xA0\xB1");
  EXPECT_EQ(fromCodePage(932, "\x82\xA0\xB1"), u"\u3042\uFF71");
}

TEST(CodePageTest, UndefinedBytesReadAsWindowsReadsThem) {
  EXPECT_EQ(fromCodePage(1252, "\x81\x9D"), u"\u0081\u009D");  // holes as C1 controls
  EXPECT_EQ(fromCodePage(1253, "\xAA\xFF"), u"\uF8F9\uF8FB");  // holes as private use
  EXPECT_EQ(toCodePage(1253, u"\uF8F9"), "\xAA");
  EXPECT_EQ(fromCodePage(20127, "a\xE9"), u"ai");         // eighth bit dropped
  EXPECT_EQ(fromCodePage(932, "\x85\x40z"), u"\u30FBz");  // unknown pair, one dot
}

TEST(CodePageTest, UnmappableCharactersBecomeTheDefaultCharacter) {
  EXPECT_EQ(toCodePage(1252, u"a\u4E2Db"), "a?b");
  EXPECT_EQ(toCodePage(1251, u"x\u4E2D"), "x?");
}

TEST(CodePageTest, EmptyTextNeverReachesThePlatform) {
  FakeEnv fake;
  ScopedEnv scoped(&fake);
  EXPECT_EQ(toUtf8(u""), "");
  EXPECT_EQ(fromUtf8(""), u"");
  EXPECT_EQ(fake.conversions, 0);
}

TEST(CodePageTest, ConversionStopsAtTheFirstNul) {
  EXPECT_EQ(toUtf8(std::u16string(u"ab\0cd", 5)), "ab");
  EXPECT_EQ(fromUtf8(std::string("ab\0cd", 5)), u"ab");
}

TEST(CodePageTest, FailuresAreLoggedWithTheirOwnTexts) {
  LogCapture log;
  EXPECT_EQ(toCodePage(4242, u"abc"), "");
  EXPECT_EQ(fromCodePage(4242, "abc"), u"");
  EXPECT_THAT(log.messages(),
              ElementsAre("WideCharToMultiByte failed", "MultiByteToWideChar failed."));
}

TEST(CodePageTest, ASizeThatDisagreesWithTheConversionIsAnAssertion) {
  FakeEnv fake;
  fake.sizeSurplus = 1;
  ScopedEnv scoped(&fake);
  LogCapture log;
  EXPECT_EQ(toUtf8(u"abc"), "abc");
  EXPECT_THAT(log.messages(), ElementsAre("Assertion failed"));
}

TEST(CodePageTest, PlatformCallsFollowTheWin32Contract) {
  Env* e = env();
  const char16_t text[] = u"h\u00E9";
  EXPECT_EQ(e->wideToMultiByte(65001, text, -1, nullptr, 0), 4);  // with the NUL
  EXPECT_EQ(e->wideToMultiByte(65001, text, 2, nullptr, 0), 3);   // without
  char small[2];
  EXPECT_EQ(e->wideToMultiByte(65001, text, 2, small, 2), 0);
  char out[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  ASSERT_EQ(e->wideToMultiByte(65001, text, 2, out, 8), 3);
  EXPECT_EQ(std::string(out, 4), "h\xC3\xA9x");
  EXPECT_EQ(e->wideToMultiByte(65001, text, 0, out, 8), 0);

  EXPECT_EQ(e->multiByteToWide(1252, "ab", -1, nullptr, 0), 3);
  EXPECT_EQ(e->multiByteToWide(1252, "ab", -7, nullptr, 0), 3);  // any negative count
  char16_t wide[4] = {u'x', u'x', u'x', u'x'};
  ASSERT_EQ(e->multiByteToWide(1252,
                               "\xE9"
                               "a",
                               2, wide, 4),
            2);
  EXPECT_EQ(std::u16string(wide, 3),
            u"\u00E9"
            u"ax");
  EXPECT_EQ(e->multiByteToWide(1252, "abc", 3, wide, 2), 0);
}

// --- Base64 -------------------------------------------------------------------

std::string countingBytes(size_t n) {
  std::string bytes;
  for (size_t i = 0; i < n; ++i) bytes += char(i);
  return bytes;
}

TEST(Base64Test, BreaksLinesAfter76CharactersAndAlwaysEndsWithALineBreak) {
  const std::string line =
      "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4";
  ASSERT_EQ(line.size(), 76u);
  EXPECT_EQ(base64Encode(countingBytes(57)), line + "\r\n\r\n");
  EXPECT_EQ(base64Encode(countingBytes(58)), line + "\r\nOQ==\r\n");
  EXPECT_EQ(base64Encode(countingBytes(59)), line + "\r\nOTo=\r\n");
  EXPECT_EQ(base64Encode(""), "\r\n");
}

TEST(Base64Test, EncodesEveryByteValueWithTheStandardAlphabet) {
  EXPECT_EQ(base64Encode("foobar"), "Zm9vYmFy\r\n");
  EXPECT_EQ(base64Encode("fooba"), "Zm9vYmE=\r\n");
  EXPECT_EQ(base64Encode("f"), "Zg==\r\n");
  EXPECT_EQ(base64Encode(countingBytes(256)),
            "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8gISIjJCUmJygpKissLS4vMDEyMzQ1Njc4\r\n"
            "OTo7PD0+P0BBQkNERUZHSElKS0xNTk9QUVJTVFVWV1hZWltcXV5fYGFiY2RlZmdoaWprbG1ub3Bx\r\n"
            "cnN0dXZ3eHl6e3x9fn+AgYKDhIWGh4iJiouMjY6PkJGSk5SVlpeYmZqbnJ2en6ChoqOkpaanqKmq\r\n"
            "q6ytrq+wsbKztLW2t7i5uru8vb6/wMHCw8TFxsfIycrLzM3Oz9DR0tPU1dbX2Nna29zd3t/g4eLj\r\n"
            "5OXm5+jp6uvs7e7v8PHy8/T19vf4+fr7/P3+/w==\r\n");
}

// --- Time -------------------------------------------------------------------------

// A date and time of day; the day of the week is left 0.
SystemTime makeTime(uint16_t year, uint16_t month, uint16_t day, uint16_t hour = 0,
                    uint16_t minute = 0, uint16_t second = 0, uint16_t ms = 0) {
  return SystemTime{.year = year,
                    .month = month,
                    .day = day,
                    .hour = hour,
                    .minute = minute,
                    .second = second,
                    .milliseconds = ms};
}

constexpr uint64_t kOneHour = 36'000'000'000ull;

TEST(FileTimeTest, ConvertsCalendarDatesBothWays) {
  struct Case {
    SystemTime time;
    uint64_t fileTime;
    uint16_t dayOfWeek;
  };
  const Case cases[] = {
      {makeTime(1601, 1, 1), 0, 1},
      {makeTime(1970, 1, 1), 116'444'736'000'000'000ull, 4},
      {makeTime(2000, 2, 29, 12, 34, 56, 789), 125'963'012'967'890'000ull, 2},
      {makeTime(9999, 12, 31, 23, 59, 59, 999), 2'650'467'743'999'990'000ull, 5},
  };
  for (const Case& c : cases) {
    uint64_t fileTime = 1;
    ASSERT_TRUE(systemTimeToFileTime(c.time, fileTime)) << c.time.year;
    EXPECT_EQ(fileTime, c.fileTime) << c.time.year;
    SystemTime back;
    ASSERT_TRUE(fileTimeToSystemTime(c.fileTime, back));
    EXPECT_EQ(back.year, c.time.year);
    EXPECT_EQ(back.month, c.time.month);
    EXPECT_EQ(back.day, c.time.day);
    EXPECT_EQ(back.dayOfWeek, c.dayOfWeek);
    EXPECT_EQ(back.hour, c.time.hour);
    EXPECT_EQ(back.minute, c.time.minute);
    EXPECT_EQ(back.second, c.time.second);
    EXPECT_EQ(back.milliseconds, c.time.milliseconds);
  }
}

TEST(FileTimeTest, RejectsImpossibleDates) {
  uint64_t fileTime = 0;
  EXPECT_FALSE(systemTimeToFileTime(makeTime(2001, 2, 29), fileTime));
  EXPECT_FALSE(systemTimeToFileTime(makeTime(1900, 2, 29), fileTime));
  EXPECT_TRUE(systemTimeToFileTime(makeTime(2000, 2, 29), fileTime));
  EXPECT_FALSE(systemTimeToFileTime(makeTime(1600, 12, 31), fileTime));
  EXPECT_FALSE(systemTimeToFileTime(makeTime(2020, 13, 1), fileTime));
  EXPECT_FALSE(systemTimeToFileTime(makeTime(2020, 4, 31), fileTime));
  EXPECT_FALSE(systemTimeToFileTime(makeTime(2020, 1, 1, 24), fileTime));
  SystemTime time;
  EXPECT_FALSE(fileTimeToSystemTime(uint64_t(1) << 63, time));
}

TEST(FileTimeTest, OneSecondIsTenMillionUnits) {
  EXPECT_EQ(getOneSecond(), 10'000'000);
  FakeEnv fake;
  fake.now = makeTime(2024, 12, 31, 23, 59, 59, 999);
  ScopedEnv scoped(&fake);
  EXPECT_EQ(getOneSecond(), 10'000'000);
  // A clock that gives an impossible date is an assertion, not a broken second.
  fake.now = makeTime(2024, 2, 30);
  LogCapture log;
  EXPECT_EQ(getOneSecond(), 10'000'000);
  EXPECT_THAT(log.messages(), ElementsAre("Assertion failed"));
}

TEST(TimeToGmtTest, UsesTheBiasInForceNow) {
  FakeEnv fake;
  ScopedEnv scoped(&fake);
  const uint64_t local = 130'000'000'000'000'000ull;

  fake.zone = TimeZoneInfo{-60, 0, -60, TimeZoneState::Standard};  // one hour east, winter
  EXPECT_EQ(timeToGMT(local), local - kOneHour);
  fake.zone = TimeZoneInfo{-60, 0, -60, TimeZoneState::Daylight};  // same zone in summer
  EXPECT_EQ(timeToGMT(local), local - 2 * kOneHour);
  fake.zone = TimeZoneInfo{300, 30, -60, TimeZoneState::Standard};  // standard bias counts
  EXPECT_EQ(timeToGMT(local), local + 5 * kOneHour + kOneHour / 2);
  fake.zone = TimeZoneInfo{300, 30, -60, TimeZoneState::Unknown};  // plain bias only
  EXPECT_EQ(timeToGMT(local), local + 5 * kOneHour);
}

// --- Unique file names -------------------------------------------------------------

TEST(CreateUniqueFileNameTest, NamesFromTheTickCountAndSkipsTakenOnes) {
  TempDir dir;
  FakeEnv fake;
  fake.tick = 0x1A2B;  // both calls in the same millisecond
  ScopedEnv scoped(&fake);
  std::u16string first;
  std::u16string second;
  ASSERT_TRUE(createUniqueFileName(dir.path(), u"cap", u".xml", first));
  ASSERT_TRUE(createUniqueFileName(dir.path(), u"cap", u".xml", second));
  EXPECT_EQ(first, u"cap1a2b.xml");
  EXPECT_EQ(second, u"cap1a2c.xml");
  // The empty files stay as the names' reservations.
  EXPECT_TRUE(fileExists(dir.file(first)));
  EXPECT_TRUE(fileExists(dir.file(second)));
  EXPECT_EQ(fake.opened.back(), dir.path() + sep() + u"cap1a2c.xml");
}

TEST(CreateUniqueFileNameTest, CounterWrapsAt32Bits) {
  TempDir dir;
  FakeEnv fake;
  fake.tick = 0xFFFFFFFF;
  ScopedEnv scoped(&fake);
  std::u16string name;
  ASSERT_TRUE(createUniqueFileName(dir.path(), u"", u"", name));
  ASSERT_TRUE(createUniqueFileName(dir.path(), u"", u"", name));
  EXPECT_EQ(name, u"0");
}

TEST(CreateUniqueFileNameTest, FailsWhenTheFileCannotBeOpened) {
  TempDir dir;
  std::u16string name = u"untouched";
  EXPECT_FALSE(createUniqueFileName(dir.file(u"missing"), u"a", u".b", name));
  EXPECT_EQ(name, u"untouched");
}

// --- Module and folders ----------------------------------------------------------

TEST(DllPathTest, DropsTheFileNameAndABuildConfigurationFolder) {
  FakeEnv fake;
  ScopedEnv scoped(&fake);
  const std::u16string s = sep();
  fake.module = s + u"a" + s + u"Release" + s + u"x.dll";
  EXPECT_EQ(getDllPath(), s + u"a" + s);
  fake.module = s + u"a" + s + u"DEBUG" + s + u"x.dll";
  EXPECT_EQ(getDllPath(), s + u"a" + s);
  fake.module = s + u"a" + s + u"b" + s + u"x.dll";
  EXPECT_EQ(getDllPath(), s + u"a" + s + u"b" + s);
  fake.module = s + u"a" + s + u"Releases" + s + u"x.dll";
  EXPECT_EQ(getDllPath(), s + u"a" + s + u"Releases" + s);
}

TEST(DllPathTest, AModuleWithoutFolderIsAnAssertion) {
  FakeEnv fake;
  fake.module = u"x.dll";
  ScopedEnv scoped(&fake);
  LogCapture log;
  EXPECT_EQ(getDllPath(), u"");
  EXPECT_THAT(log.messages(), ElementsAre("Assertion failed"));
}

TEST(DllPathTest, TheRealModuleIsAFolderOfThisProgram) {
  std::u16string path = getDllPath();
  ASSERT_FALSE(path.empty());
  EXPECT_EQ(path.back(), kPathSeparator);
  EXPECT_TRUE(pathExists(path.substr(0, path.size() - 1)));
}

TEST(PathExistsTest, CutsEachTrailingSeparatorWithTheCharacterBeforeIt) {
  FakeEnv fake;
  ScopedEnv scoped(&fake);
  LogCapture log;
  pathExists(u"C:\\temp\\");
  pathExists(u"/srv/data/x/");
  pathExists(u"C:\\temp");
  EXPECT_THAT(fake.statted, ElementsAre(u"C:\\tem", u"/srv/dat", u"C:\\temp"));
  EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(PathExistsTest, APathOfSeparatorsOnlyIsInvalid) {
  LogCapture log;
  EXPECT_FALSE(pathExists(u"/"));
  EXPECT_FALSE(fileExists(u"a\\"));
  const std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_THAT(lines[0], EndsWith(" : PIM::pathExists() > ERR> Invalid path: /"));
  EXPECT_THAT(lines[1], EndsWith(" : PIM::fileExists() > ERR> Invalid path: a\\"));
}

TEST(PathExistsTest, ReportsFilesAndFolders) {
  TempDir dir;
  testing::writeFileBytes(dir.file(u"f.txt"), "x");
  EXPECT_TRUE(pathExists(dir.path()));
  EXPECT_TRUE(fileExists(dir.file(u"f.txt")));
  EXPECT_FALSE(pathExists(dir.file(u"none")));
}

TEST(CreatePathTest, CreatesTheLastLevelOnly) {
  TempDir dir;
  EXPECT_TRUE(createPath(dir.path()));
  EXPECT_TRUE(createPath(dir.file(u"one")));
  EXPECT_TRUE(pathExists(dir.file(u"one")));
  EXPECT_TRUE(createPath(dir.file(u"one")));  // already there
  EXPECT_FALSE(createPath(dir.file(u"two") + sep() + u"three"));
  EXPECT_FALSE(pathExists(dir.file(u"two")));
}

TEST(FolderTest, TheFirstCallerCreatesTheTreeUnderTheApplicationDataFolder) {
  TempDir dir;
  FakeEnv fake;
  fake.special = dir.path();
  ScopedEnv scoped(&fake);
  LogCapture log;
  const std::u16string maker = dir.path() + sep() + u"Corvel";
  EXPECT_EQ(getDataFolder(), maker + sep() + u"CVTK_Data");
  EXPECT_EQ(getLogsFolder(), maker + sep() + u"CVTK_Logs");
  EXPECT_EQ(getCorvelFolder(), maker);
  EXPECT_TRUE(pathExists(maker + sep() + u"CVTK_Data"));
  EXPECT_TRUE(pathExists(maker + sep() + u"CVTK_Logs"));
  EXPECT_EQ(getDataFolder(), maker + sep() + u"CVTK_Data");  // existing is fine
  EXPECT_THAT(log.messages(), IsEmpty());
}

TEST(FolderTest, NoApplicationDataFolderGivesEmptyPathsAndOneLineEach) {
  FakeEnv fake;
  fake.special = u"";
  ScopedEnv scoped(&fake);
  LogCapture log;
  EXPECT_EQ(getSpecialPath(kCsidlLocalAppData), u"");
  EXPECT_EQ(getCorvelFolder(), u"");
  EXPECT_EQ(getDataFolder(), u"");
  EXPECT_EQ(getLogsFolder(), u"");
  const std::string line = "Could not create path: " + toUtf8(sep() + u"Corvel");
  EXPECT_THAT(log.messages(), ElementsAre(line, line, line));
}

TEST(FolderTest, AMakerFolderThatCannotBeCreatedIsLogged) {
  TempDir dir;
  FakeEnv fake;
  fake.special = dir.file(u"missing");
  ScopedEnv scoped(&fake);
  LogCapture log;
  EXPECT_EQ(getDataFolder(), u"");
  EXPECT_THAT(log.messages(), ElementsAre("Could not create path: " +
                                          toUtf8(dir.file(u"missing") + sep() + u"Corvel")));
}

TEST(FolderTest, ASubfolderThatCannotBeCreatedIsLogged) {
  TempDir dir;
  FakeEnv fake;
  fake.special = dir.path();
  fake.refusedFolder = u"CVTK_Logs";
  ScopedEnv scoped(&fake);
  LogCapture log;
  const std::u16string logs = dir.path() + sep() + u"Corvel" + sep() + u"CVTK_Logs";
  EXPECT_EQ(getLogsFolder(), u"");
  EXPECT_THAT(log.messages(), ElementsAre("Could not create path: " + toUtf8(logs)));
  EXPECT_NE(getDataFolder(), u"");
}

}  // namespace
}  // namespace PIM
