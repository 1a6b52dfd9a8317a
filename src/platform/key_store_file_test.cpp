#include "platform/key_store_file.h"

#include <gtest/gtest.h>

#include "platform/key_store.h"

namespace PIM::keyfile {
namespace {

std::string bytes(std::initializer_list<int> list) {
  std::string out;
  for (int b : list) out += char(b);
  return out;
}

std::string utf16(const std::u16string& text) {
  std::string out;
  for (char16_t unit : text) {
    out += char(unit & 0xFF);
    out += char(unit >> 8);
  }
  return out;
}

constexpr uint32_t kDword = uint32_t(ValueType::Dword);
constexpr uint32_t kBinary = uint32_t(ValueType::Binary);
constexpr uint32_t kString = uint32_t(ValueType::String);

const char kHeader[] =
    "ferrant-keystore 2\n"
    "; Settings of the Ferrant programs for this user. [a\\b] starts the key a\\b;\n"
    "; its values follow, one a line: \"name\"=dword:0000000f, \"name\"=hex:01,02,\n"
    "; \"name\"=sz:\"text\" or \"name\"=hex(<type>):01,02. The last line closes\n"
    "; the file: a file without it was cut short.\n";

TEST(KeyStoreFileTest, WritesEveryFormAndReadsItBack) {
  KeyNode root;
  root.setValue(u"AtRoot", kDword, bytes({1, 0, 0, 0}));
  KeyNode& cvtk = root.addSubkey(u"Software").addSubkey(u"Corvel").addSubkey(u"CVTK");
  cvtk.setValue(u"Frequency", kDword, bytes({0x0f, 0x01, 0x00, 0xa0}));
  std::string folders;
  for (int i = 0; i < 27; ++i) folders += char(i * 9);
  cvtk.setValue(u"Folders", kBinary, folders);
  cvtk.setValue(u"Empty", kBinary, "");
  cvtk.setValue(u"Title", kString,
                utf16(u"a \"q\" \\ \t\u00e9\u20ac\U0001F600") + bytes({0x00, 0xD8, 0, 0}));
  cvtk.setValue(u"", 7, bytes({0x61, 0, 0, 0}));
  cvtk.setValue(u"Odd text", kString, bytes({0x61, 0x00, 0x62}));
  cvtk.setValue(u"Short dword", kDword, bytes({1, 2}));
  cvtk.setValue(u"Big type", 0xFFFFFFFFu, "");
  root.addSubkey(u"Empty key");

  const std::string expected = std::string(kHeader) +
                               "\"AtRoot\"=dword:00000001\n"
                               "\n[Software]\n"
                               "\n[Software\\Corvel]\n"
                               "\n[Software\\Corvel\\CVTK]\n"
                               "\"Frequency\"=dword:a000010f\n"
                               "\"Folders\"=hex:00,09,12,1b,24,2d,36,3f,48,51,5a,63,6c,75,7e,87,90,"
                               "99,a2,ab,b4,bd,c6,cf,d8,\\\n"
                               "  e1,ea\n"
                               "\"Empty\"=hex:\n"
                               "\"Title\"=sz:\"a \\\"q\\\" \\\\ \\u0009\xC3\xA9\xE2\x82\xAC"
                               "\xF0\x9F\x98\x80\\ud800\"\n"
                               "\"\"=hex(7):61,00,00,00\n"
                               "\"Odd text\"=hex(1):61,00,62\n"
                               "\"Short dword\"=hex(4):01,02\n"
                               "\"Big type\"=hex(ffffffff):\n"
                               "\n[Empty key]\n"
                               "\n; end of settings\n";
  std::string text = storeText(root);
  EXPECT_EQ(text, expected);

  ParsedStore parsed = parseStoreText(text);
  EXPECT_TRUE(parsed.problems.empty());
  EXPECT_EQ(parsed.version, 2);
  EXPECT_TRUE(parsed.root == root);

  // Cut short anywhere, the text is damaged (the last newline aside); a
  // file of the first format, which had no closing line, is read as it is.
  for (size_t size = 1; size + 1 < text.size(); ++size) {
    ASSERT_FALSE(parseStoreText(text.substr(0, size)).problems.empty()) << size;
  }
  parsed = parseStoreText("ferrant-keystore 2\n[K]\n\"A\"=hex:01,02\n");
  ASSERT_EQ(parsed.problems.size(), 1u);
  EXPECT_EQ(parsed.problems[0].line, 4u);
  EXPECT_EQ(parsed.problems[0].reason, "the file ends before its closing line: it was cut short");
  EXPECT_TRUE(parseStoreText("ferrant-keystore 1\n[K]\n\"A\"=hex:01,02\n").problems.empty());
}

TEST(KeyStoreFileTest, NamesCompareWithoutAsciiCaseAndKeepTheirFirstSpelling) {
  ParsedStore parsed = parseStoreText(
      "ferrant-keystore 1\n"
      "[Software\\Corvel]\n"
      "\"Mode\"=dword:00000001\n"
      "[SOFTWARE\\corvel\\CVTK]\n"
      "[software\\CORVEL]\n"
      "\"Other\"=dword:00000002\n");
  ASSERT_TRUE(parsed.problems.empty());
  ASSERT_EQ(parsed.root.subkeyCount(), 1u);
  const KeyNode& software = parsed.root.subkey(0);
  EXPECT_EQ(software.name(), u"Software");
  const KeyNode* corvel = findPath(parsed.root, {u"SOFTWARE", u"CORVEL"});
  ASSERT_NE(corvel, nullptr);
  EXPECT_EQ(corvel->name(), u"Corvel");
  EXPECT_EQ(corvel->values().size(), 2u);
  ASSERT_NE(corvel->findValue(u"MODE"), nullptr);
  EXPECT_EQ(corvel->findValue(u"MODE")->name, u"Mode");
  EXPECT_NE(findPath(parsed.root, {u"software", u"corvel", u"cvtk"}), nullptr);
  // Only ASCII letters fold, as in the registry's own comparison of most names.
  EXPECT_TRUE(sameName(u"Stra\u00dfe", u"STRA\u00dfE"));
  EXPECT_FALSE(sameName(u"\u00e9", u"\u00c9"));
  EXPECT_FALSE(sameName(u"ab", u"abc"));
}

TEST(KeyStoreFileTest, ReadsHandEditedText) {
  ParsedStore parsed = parseStoreText(
      "\xEF\xBB\xBF"
      "ferrant-keystore  1\r\n"
      "\r\n"
      "  ; a note\r\n"
      "  [Key]  \r\n"
      "  \"A\" = dword:0000ABCD  \r\n"
      "\"B\"=hex:0A, FF ,\\  \r\n"
      "\r\n"
      "\"C\"=hex(3):01\r\n"
      "\"D\"=sz:\"x\"\r\n");
  // A blank line where more bytes were promised spoils the value begun in
  // line 6.
  ASSERT_EQ(parsed.problems.size(), 1u);
  EXPECT_EQ(parsed.problems[0].line, 6u);
  const KeyNode* key = findPath(parsed.root, {u"key"});
  ASSERT_NE(key, nullptr);
  ASSERT_NE(key->findValue(u"A"), nullptr);
  EXPECT_EQ(key->findValue(u"A")->data, bytes({0xCD, 0xAB, 0, 0}));
  EXPECT_EQ(key->findValue(u"B"), nullptr);
  ASSERT_NE(key->findValue(u"C"), nullptr);
  EXPECT_EQ(key->findValue(u"C")->type, kBinary);
  ASSERT_NE(key->findValue(u"D"), nullptr);
  EXPECT_EQ(key->findValue(u"D")->data, utf16(u"x") + bytes({0, 0}));

  parsed = parseStoreText("ferrant-keystore 1\n[K]\n\"B\"=hex:0a,ff,\\\n\t  01\n");
  ASSERT_TRUE(parsed.problems.empty());
  EXPECT_EQ(findPath(parsed.root, {u"K"})->findValue(u"B")->data, bytes({0x0a, 0xff, 0x01}));
}

TEST(KeyStoreFileTest, BlankTextIsAnEmptyStore) {
  for (const char* text : {"", "\n\n", " \r\n\t"}) {
    ParsedStore parsed = parseStoreText(text);
    EXPECT_TRUE(parsed.problems.empty()) << text;
    EXPECT_EQ(parsed.version, 0);
    EXPECT_TRUE(parsed.root == KeyNode());
  }
}

TEST(KeyStoreFileTest, NewerFormatIsNotRead) {
  ParsedStore parsed = parseStoreText("ferrant-keystore 3\n[Key]\n\"A\"=dword:00000001\n");
  EXPECT_TRUE(parsed.newerFormat);
  EXPECT_EQ(parsed.version, 3);
  EXPECT_EQ(parsed.root.subkeyCount(), 0u);
  EXPECT_TRUE(parsed.problems.empty());
}

// Each damaged line is reported with its number and skipped; the lines
// around it are still read.
TEST(KeyStoreFileTest, ReportsEachDamagedLineAndKeepsTheRest) {
  struct Case {
    std::string line;
    std::string reason;
  };
  const Case cases[] = {
      {"garbage", "not a key, a value or a comment"},
      {"[Key", "a key line must end in ]"},
      {"[]", "invalid key name"},
      {"[A\\\\B]", "invalid key name"},
      {"[A\x01]", "invalid key name"},
      {"[\xC3]", "key name is not UTF-8"},
      {"[\xC0\xAF]", "key name is not UTF-8"},
      {"\"name", "a text has no closing double quote"},
      {"\"na\\qme\"=dword:00000001", "unknown escape in a text"},
      {"\"n\\u12\"=dword:00000001", "\\u needs four hexadecimal digits"},
      {"\"\xED\xA0\x80\"=dword:00000001", "text is not UTF-8"},
      {"\"n\" dword:00000001", "expected = after the value name"},
      {"\"n\"=dword:1", "dword: needs eight hexadecimal digits"},
      {"\"n\"=dword:000000001", "text after the value"},
      {"\"n\"=qword:00000001", "unknown value type"},
      {"\"n\"=hex:1", "expected two hexadecimal digits"},
      {"\"n\"=hex:01;02", "expected a comma between bytes"},
      {"\"n\"=hex:01,", "expected two hexadecimal digits"},
      {"\"n\"=hex:01,\\ 02", "text after a line continuation"},
      {"\"n\"=hex(:01", "hex( needs a type number and ):"},
      {"\"n\"=hex(123456789):01", "hex( needs a type number and ):"},
      {"\"n\"=sz:x", "expected a double quote"},
      {"\"n\"=sz:\"x\" y", "text after the value"},
      {"\"" + std::string(16384, 'n') + "\"=dword:00000001", "value name too long"},
  };
  for (const auto& c : cases) {
    std::string text = "ferrant-keystore 1\n[Key]\n\"Before\"=dword:00000001\n" + c.line +
                       "\n\"After\"=dword:00000002\n";
    ParsedStore parsed = parseStoreText(text);
    ASSERT_EQ(parsed.problems.size(), 1u) << c.line;
    EXPECT_EQ(parsed.problems[0].line, 4u) << c.line;
    EXPECT_EQ(parsed.problems[0].reason.substr(0, c.reason.size()), c.reason) << c.line;
    const KeyNode* key = findPath(parsed.root, {u"Key"});
    ASSERT_NE(key, nullptr);
    EXPECT_NE(key->findValue(u"Before"), nullptr) << c.line;
    // After a bad key line its values have no key to go to.
    EXPECT_EQ(key->findValue(u"After") != nullptr, c.line[0] != '[') << c.line;
  }
}

TEST(KeyStoreFileTest, ReportsAMissingOrBadHeaderAndReadsTheRest) {
  ParsedStore parsed = parseStoreText("[Key]\n\"A\"=dword:00000001\n");
  ASSERT_EQ(parsed.problems.size(), 1u);
  EXPECT_EQ(parsed.problems[0].line, 1u);
  EXPECT_NE(findPath(parsed.root, {u"Key"})->findValue(u"A"), nullptr);

  for (const char* header :
       {"ferrant-keystore", "ferrant-keystore 0", "ferrant-keystore x", "ferrant-keystore 1 2",
        "ferrant-keystore 9999999999", "ferrant-keystore1"}) {
    parsed = parseStoreText(std::string(header) + "\n[Key]\n");
    ASSERT_EQ(parsed.problems.size(), 1u) << header;
    EXPECT_EQ(parsed.problems[0].line, 1u) << header;
    EXPECT_FALSE(parsed.newerFormat) << header;
    EXPECT_NE(findPath(parsed.root, {u"Key"}), nullptr) << header;
  }
}

TEST(KeyStoreFileTest, ReportsTextEndingInsideAValueAndValuesGivenTwice) {
  ParsedStore parsed = parseStoreText("ferrant-keystore 1\n[K]\n\"A\"=hex:01,\\");
  ASSERT_EQ(parsed.problems.size(), 1u);
  EXPECT_EQ(parsed.problems[0].reason, "the file ends inside a value");

  parsed = parseStoreText(
      "ferrant-keystore 1\n[K]\n\"A\"=dword:00000001\n\"B\"=hex:\n\"a\"=dword:00000002\n");
  ASSERT_EQ(parsed.problems.size(), 1u);
  EXPECT_EQ(parsed.problems[0].line, 5u);
  const KeyNode* key = findPath(parsed.root, {u"K"});
  ASSERT_EQ(key->values().size(), 2u);
  EXPECT_EQ(key->values()[0].name, u"A");
  EXPECT_EQ(key->values()[0].data, bytes({2, 0, 0, 0}));
}

TEST(KeyStoreFileTest, LimitsKeyNamesAndDepthAsTheRegistryDoes) {
  EXPECT_TRUE(isValidKeyName(u"CVTK"));
  EXPECT_TRUE(isValidKeyName(std::u16string(255, u'k')));
  EXPECT_TRUE(isValidKeyName(u" spaced [x] "));
  EXPECT_TRUE(isValidKeyName(u"\U0001F600"));
  EXPECT_FALSE(isValidKeyName(u""));
  EXPECT_FALSE(isValidKeyName(std::u16string(256, u'k')));
  EXPECT_FALSE(isValidKeyName(u"a\\b"));
  EXPECT_FALSE(isValidKeyName(u"tab\there"));
  EXPECT_FALSE(isValidKeyName(u"\x7f"));
  EXPECT_FALSE(isValidKeyName(u"lone \xD800"));
  EXPECT_FALSE(isValidKeyName(u"\xDC00 lone"));

  std::string path = std::string(kMaxKeyDepth * 2 - 1, 'k');
  for (size_t i = 1; i < path.size(); i += 2) path[i] = '\\';
  ParsedStore parsed = parseStoreText("ferrant-keystore 1\n[" + path + "]\n");
  EXPECT_TRUE(parsed.problems.empty());
  parsed = parseStoreText("ferrant-keystore 1\n[" + path + "\\k]\n");
  ASSERT_EQ(parsed.problems.size(), 1u);
  EXPECT_EQ(parsed.problems[0].reason.substr(0, 21), "keys nested too deep;");
}

TEST(KeyStoreFileTest, NodesReportChangesAndRemoveWithoutCase) {
  KeyNode root;
  EXPECT_TRUE(root.setValue(u"A", kDword, bytes({1, 0, 0, 0})));
  EXPECT_FALSE(root.setValue(u"a", kDword, bytes({1, 0, 0, 0})));
  EXPECT_TRUE(root.setValue(u"a", kBinary, bytes({1, 0, 0, 0})));
  ASSERT_EQ(root.values().size(), 1u);
  EXPECT_EQ(root.values()[0].name, u"A");
  EXPECT_EQ(root.values()[0].type, kBinary);

  root.addSubkey(u"One").addSubkey(u"Two");
  root.addSubkey(u"Three");
  EXPECT_FALSE(root.removeSubkey(u"Two"));
  EXPECT_TRUE(root.removeSubkey(u"ONE"));
  ASSERT_EQ(root.subkeyCount(), 1u);
  EXPECT_EQ(root.subkey(0).name(), u"Three");
  root.clear();
  EXPECT_TRUE(root == KeyNode());
}

}  // namespace
}  // namespace PIM::keyfile
