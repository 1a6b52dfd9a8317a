// Distribution-list members: one-off identifiers made by the store's own
// encoder, captured ones, and values broken one field at a time.
#include "data/one_off_member.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>

#include "core/utils.h"
#include "store/one_off_entry_id.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using store::OneOffEntryId;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char kInvalid[] = "Data stored in the binary blob is invalid for this entry.";
const char kNotUnicode[] =
    "Data stored in the binary blob for this entry is either not unicode, or invalid.";
const char kWrongCount[] = "Invalid number of strings stored in binary blog.";

std::vector<uint8_t> encode(const OneOffEntryId& entry) {
  return store::encodeOneOffEntryId(entry);
}

// The 24-byte head of a one-off identifier with the given flags word.
std::vector<uint8_t> head(uint16_t flags) {
  OneOffEntryId entry;
  std::vector<uint8_t> bytes = encode(entry);
  bytes.resize(24);
  bytes[22] = static_cast<uint8_t>(flags & 0xFF);
  bytes[23] = static_cast<uint8_t>(flags >> 8);
  return bytes;
}

std::vector<uint8_t> withUnits(std::vector<uint8_t> bytes, const std::u16string& units) {
  for (char16_t c : units) {
    bytes.push_back(static_cast<uint8_t>(c & 0xFF));
    bytes.push_back(static_cast<uint8_t>(c >> 8));
  }
  return bytes;
}

std::vector<uint8_t> withBytes(std::vector<uint8_t> bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
  return bytes;
}

// The member text, or "rejected", and the log's messages.
struct Decoded {
  std::string member;
  std::vector<std::string> log;
};
Decoded decode(const std::vector<uint8_t>& value) {
  testing::LogCapture log;
  std::u16string member = u"untouched";
  const bool ok = decodeOneOffMember(value, member);
  if (!ok) {
    EXPECT_EQ(member, u"untouched") << "a rejected value leaves the member alone";
  }
  return {ok ? toUtf8(member) : "rejected", log.messages()};
}

TEST(OneOffMemberTest, MembersMadeByTheStoresEncoder) {
  struct Case {
    OneOffEntryId entry;
    std::string member;
  } cases[] = {
      {{u"Дмитрий Соколов", u"SMTP", u"dmitri@example.ru"}, "Дмитрий Соколов <dmitri@example.ru>"},
      {{u"王芳 🍵", u"SMTP", u"wang.fang@example.cn", true, true}, "王芳 🍵 <wang.fang@example.cn>"},
      // Only an SMTP address is shown; anything else would mean nothing to
      // the reader of the file.
      {{u"Renée Lefèvre", u"EX", u"/o=Org/cn=Recipients/cn=renee"}, "Renée Lefèvre"},
      {{u"Fax", u"FAX", u"+351 21 555 0100"}, "Fax"},
      {{u"Lower", u"smtp", u"lower@example.com"}, "Lower"},  // the type is compared exactly
      {{u"", u"SMTP", u"nameless@example.com"}, " <nameless@example.com>"},
      {{u"Empty", u"", u""}, "Empty"},
      {{u"José Müller", u"SMTP", u"jose@example.de", false}, "José Müller <jose@example.de>"},
      {{u"Françoise €uro", u"SMTP", u"f@example.fr", false, true}, "Françoise €uro <f@example.fr>"},
      {{u"Plain", u"SMTP", u"plain@example.com", false, false, 1252, 0x1000},
       "Plain <plain@example.com>"},
  };
  for (const Case& c : cases) {
    const Decoded decoded = decode(encode(c.entry));
    EXPECT_EQ(decoded.member, c.member);
    EXPECT_THAT(decoded.log, IsEmpty()) << c.member;
  }
}

TEST(OneOffMemberTest, BadValuesAreRejectedWithTheirLogLines) {
  const std::vector<uint8_t> good = encode({u"Ana", u"SMTP", u"ana@example.com"});
  std::vector<uint8_t> odd = good;
  odd.push_back(0);
  std::vector<uint8_t> cut = good;
  cut.resize(cut.size() - 2);  // the address loses its terminator
  std::vector<uint8_t> narrowed = good;
  narrowed[23] &= 0x7F;  // the UTF-16 text read as 8-bit: every high byte ends a string

  struct Case {
    const char* what;
    std::vector<uint8_t> value;
    const char* line;
  } cases[] = {
      {"empty", {}, kInvalid},
      {"one byte short of the head", std::vector<uint8_t>(good.begin(), good.begin() + 23),
       kInvalid},
      {"head only, Unicode", head(0x8000), kWrongCount},
      {"head only, 8-bit", head(0), kWrongCount},
      {"odd length, Unicode", odd, kNotUnicode},
      {"a head of 25 bytes, Unicode", withBytes(head(0x8000), "A"), kNotUnicode},
      {"unterminated last string", cut, kWrongCount},
      {"Unicode flag cleared", narrowed, kWrongCount},
      {"two strings, Unicode", withUnits(head(0x8000), std::u16string(u"A\0SMTP\0", 7)),
       kWrongCount},
      {"four strings, Unicode", withUnits(head(0x8000), std::u16string(u"A\0B\0C\0D\0", 8)),
       kWrongCount},
      {"two strings, 8-bit", withBytes(head(0), std::string("A\0SMTP\0", 7)), kWrongCount},
      {"an empty extra string, 8-bit", withBytes(head(0), std::string("A\0SMTP\0a@b\0\0", 12)),
       kWrongCount},
  };
  for (const Case& c : cases) {
    const Decoded decoded = decode(c.value);
    EXPECT_EQ(decoded.member, "rejected") << c.what;
    EXPECT_THAT(decoded.log, ElementsAre(c.line)) << c.what;
  }
}

TEST(OneOffMemberTest, OnlyTheFlagsWordAndTheStringsAreRead) {
  // The provider UID, version and leading flags are not checked, and text
  // after the third terminator is dropped.
  std::vector<uint8_t> value(24, 0xAB);
  value[22] = 0x00;
  value[23] = 0x80;
  value = withUnits(value, std::u16string(u"Ana\0SMTP\0ana@example.com\0tail", 29));
  EXPECT_EQ(decode(value).member, "Ana <ana@example.com>");

  std::vector<uint8_t> narrow(24, 0xCD);
  narrow[22] = 0xFF;
  narrow[23] = 0x7F;  // every flag but Unicode
  narrow = withBytes(narrow, std::string("Bo\0EX\0/o=x\0tail", 15));
  EXPECT_EQ(decode(narrow).member, "Bo");
}

TEST(OneOffMemberTest, EightBitStringsAreReadInTheAnsiCodePage) {
  // 0x80 is the euro sign in the Western ANSI code page and a C1 control in
  // ISO 8859-1; 0x9F is Y with diaeresis.
  const std::vector<uint8_t> value = withBytes(head(0), std::string("\x80 \x9F\0SMTP\0x@y\0", 13));
  EXPECT_EQ(decode(value).member, "€ Ÿ <x@y>");
}

TEST(OneOffMemberTest, GetStringsCutsAtEveryTerminator) {
  EXPECT_THAT(getStrings(std::vector<char16_t>{}), IsEmpty());
  EXPECT_THAT(getStrings(std::vector<char16_t>{u'a', u'b'}), IsEmpty()) << "no terminator";
  EXPECT_THAT(getStrings(std::vector<char16_t>{0, u'x', 0, 0, u'\u00E9', 0, u'z'}),
              ElementsAre(u"", u"x", u"", u"\u00E9"));
  EXPECT_THAT(getStrings(std::vector<char16_t>{0xD83C, 0xDF75, 0}), ElementsAre(u"\U0001F375"));

  EXPECT_THAT(getStrings(std::vector<char>{}), IsEmpty());
  EXPECT_THAT(getStrings(std::vector<char>{'a', 'b'}), IsEmpty());
  EXPECT_THAT(getStrings(std::vector<char>{0, 'x', 0, 0, '\xE9', 0, 'z'}),
              ElementsAre(u"", u"x", u"", u"\u00E9"));
}

// A captured blob (hex text) from the shared test data, or empty.
std::vector<uint8_t> captured(const std::string& name) {
  const std::string dir = testing::sharedTestData();
  if (dir.empty()) return {};
  const std::filesystem::path path = std::filesystem::path(dir) / "mapi-blobs" / name;
  if (!std::filesystem::exists(path)) return {};
  const std::string text = testing::readFileBytes(path.u16string());
  std::vector<uint8_t> bytes;
  std::string digits;
  for (char c : text)
    if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
  for (size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  return bytes;
}

TEST(OneOffMemberTest, CapturedIdentifiersAgreeWithTheStoresDecoder) {
  int seen = 0;
  for (const char* name : {"ENTRYID-17.dat", "ENTRYID-40.dat"}) {
    const std::vector<uint8_t> value = captured(name);
    if (value.empty()) continue;
    ++seen;
    OneOffEntryId entry;
    ASSERT_TRUE(store::decodeOneOffEntryId(value.data(), value.size(), entry)) << name;
    ASSERT_EQ(entry.addressType, u"SMTP") << name;
    const Decoded decoded = decode(value);
    EXPECT_EQ(decoded.member, toUtf8(entry.displayName + u" <" + entry.address + u">")) << name;
    EXPECT_THAT(decoded.log, IsEmpty()) << name;
  }
  if (seen == 0) GTEST_SKIP() << "no shared test data";
}

}  // namespace
}  // namespace PIM
