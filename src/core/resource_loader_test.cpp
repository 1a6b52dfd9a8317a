#include "core/resource_loader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "core/language_file_testing.h"
#include "core/unicode_file_reader.h"
#include "core/utils.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using testing::LogCapture;
using testing::ScopedEnv;
using testing::TempDir;
using testing::utf16Bytes;
using Strings = std::map<std::u16string, std::u16string>;
using Messages = std::vector<std::string>;

// Every line rule once, in CR LF lines like a real language file.
const std::u16string kRules =
    u"# a comment line = not a pair\r\n"
    u"TITLE=Line one\\nLine two\r\n"
    u"TABBED=a\\tb\r\n"
    u"\r\n"
    u" INDENTED=skipped\r\n"
    u"\tTABBED_KEY=skipped\r\n"
    u"SPACED =kept with the space\r\n"
    u"NOVALUE\r\n"
    u"EQUALS=a=b\r\n"
    u"TWICE=first\r\n"
    u"TWICE=second\r\n"
    u"=no key\r\n"
    u"NO_TEXT=\r\n"
    u"UNICODE=\u05e9\u05dc\u05d5\u05dd \U0001F600\r\n"
    u"BACKSLASH=C:\\\\new\\\\folder\r\n"
    u"LAST=without line end";

const Strings kRulesMap = {
    {u"TITLE", u"Line one\nLine two"},
    {u"TABBED", u"a\tb"},
    {u"SPACED ", u"kept with the space"},
    {u"NOVALUE", u"NOVALUE"},
    {u"EQUALS", u"a=b"},
    {u"TWICE", u"first"},
    {u"UNICODE", u"\u05e9\u05dc\u05d5\u05dd \U0001F600"},
    // Doubled backslashes escape nothing: the "\n" after the first one is
    // still a line break.
    {u"BACKSLASH", u"C:\\\new\\\\folder"},
};

const Messages kRulesMessages = {
    "Skipping the empty line",
    "Skipping the line that begins with space",
    "Skipping the line that begins with space",
    "Key or value missing, skip this item",
    "Key or value missing, skip this item",
};

class ResourceLoaderTest : public ::testing::Test {
 protected:
  void SetUp() override { ResourceLoader::freeInstance(); }
  void TearDown() override { ResourceLoader::freeInstance(); }

  static ResourceLoader* loadBytes(const std::string& bytes) {
    UnicodeFileReader reader;
    reader.openBuffer(bytes);
    ResourceLoader* loader = ResourceLoader::instance();
    loader->readResourceString(reader);
    EXPECT_FALSE(reader.isOpen());
    return loader;
  }
};

TEST_F(ResourceLoaderTest, AppliesEveryLineRule) {
  LogCapture log;
  ResourceLoader* loader = loadBytes(utf16Bytes(kRules, true));
  EXPECT_EQ(loader->strings(), kRulesMap);
  EXPECT_EQ(log.messages(), kRulesMessages);
}

TEST_F(ResourceLoaderTest, BigEndianAndUtf8TwinsGiveTheSameTexts) {
  {
    LogCapture log;
    EXPECT_EQ(loadBytes(utf16Bytes(kRules, false))->strings(), kRulesMap);
    EXPECT_EQ(log.messages(), kRulesMessages);
  }
  ResourceLoader::freeInstance();
  LogCapture log;
  EXPECT_EQ(loadBytes(toUtf8(kRules))->strings(), kRulesMap);
  Messages expected = {
      "Possibly invalid resource file. No UNICODE signature found. Reading as ASCII."};
  expected.insert(expected.end(), kRulesMessages.begin(), kRulesMessages.end());
  EXPECT_EQ(log.messages(), expected);
}

TEST_F(ResourceLoaderTest, LookupsFallBackToTheCallersDefault) {
  ResourceLoader* loader = loadBytes(utf16Bytes(u"KNOWN=text\r\n", true));
  EXPECT_EQ(loader->getStringValue(u"KNOWN", u"default"), u"text");
  EXPECT_EQ(loader->getStringValue(u"known", u"default"), u"default");
  EXPECT_EQ(loader->getStringValue(u"MISSING", u""), u"");
}

TEST_F(ResourceLoaderTest, RightToLeftOnlyWhenTheFlagSaysTrue) {
  struct Case {
    std::u16string file;
    bool rtl;
  };
  for (const Case& c :
       {Case{u"LANGUAGE_IS_RIGHTTOLEFT=true\r\n", true},
        Case{u"LANGUAGE_IS_RIGHTTOLEFT=TrUe\r\n", true},
        Case{u"LANGUAGE_IS_RIGHTTOLEFT=false\r\n", false},
        Case{u"LANGUAGE_IS_RIGHTTOLEFT=true \r\n", false},
        Case{u"LANGUAGE_IS_RIGHTTOLEFT=yes\r\n", false}, Case{u"OTHER=true\r\n", false}}) {
    ResourceLoader::freeInstance();
    EXPECT_EQ(loadBytes(utf16Bytes(c.file, true))->isRtl(), c.rtl) << toUtf8(c.file);
  }
}

TEST_F(ResourceLoaderTest, ReadingASecondFileKeepsTheFirstTexts) {
  loadBytes(utf16Bytes(u"A=one\r\n", true));
  ResourceLoader* loader = loadBytes(utf16Bytes(u"A=two\r\nB=three\r\n", true));
  EXPECT_EQ(loader->strings(), (Strings{{u"A", u"one"}, {u"B", u"three"}}));
}

TEST_F(ResourceLoaderTest, MissingFileGivesNoTexts) {
  TempDir dir;
  LogCapture log;
  ResourceLoader::instance()->readResourceString(dir.file(u"strings.XYZ"));
  EXPECT_TRUE(ResourceLoader::instance()->strings().empty());
  EXPECT_EQ(log.messages(), Messages{"Could not open the specified file."});
}

TEST_F(ResourceLoaderTest, SingletonLivesUntilFreed) {
  ResourceLoader* first = ResourceLoader::instance();
  EXPECT_EQ(ResourceLoader::instance(), first);
  loadBytes(utf16Bytes(u"A=one\r\n", true));
  ResourceLoader::freeInstance();
  EXPECT_TRUE(ResourceLoader::instance()->strings().empty());
}

// A user interface language, the platform's abbreviations for it, and the
// module placed in a temporary folder with its "Language" folder.
class LanguageEnv : public EnvWrapper {
 public:
  LanguageEnv(uint16_t langId, std::map<uint16_t, std::u16string> abbreviations,
              std::u16string module)
      : EnvWrapper(env()),
        langId_(langId),
        abbreviations_(std::move(abbreviations)),
        module_(std::move(module)) {}

  uint16_t userUiLanguage() override { return langId_; }
  std::u16string languageAbbreviation(uint16_t id) override {
    auto found = abbreviations_.find(id);
    return found == abbreviations_.end() ? std::u16string() : found->second;
  }
  std::u16string moduleFileName() override {
    return module_.empty() ? EnvWrapper::moduleFileName() : module_;
  }

 private:
  uint16_t langId_;
  std::map<uint16_t, std::u16string> abbreviations_;
  std::u16string module_;
};

class LanguageFileSearch : public ResourceLoaderTest {
 protected:
  void SetUp() override {
    ResourceLoaderTest::SetUp();
    languageDir_ = dir_.file(u"Language");
    ASSERT_TRUE(createPath(languageDir_));
  }

  void addFile(const std::u16string& code) {
    testing::writeFileBytes(languageDir_ + kPathSeparator + u"strings." + code,
                            utf16Bytes(u"WHICH=" + code + u"\r\n", true));
  }

  // German (Austria): DEA, its primary language DEU, then "DE", then ENU.
  std::u16string loadGerman() {
    LanguageEnv fake(0x0C07, {{0x0C07, u"DEA"}, {0x0007, u"DEU"}}, dir_.file(u"Ferrant.dll"));
    ScopedEnv scoped(&fake);
    EXPECT_EQ(ResourceLoader::instance()->getDefaultLanguageCode(), u"DEA");
    EXPECT_EQ(ResourceLoader::instance()->getSimpleDefaultLanguageCode(), u"DEU");
    found_ = ResourceLoader::instance()->loadResource();
    return ResourceLoader::instance()->getStringValue(u"WHICH", u"none");
  }

  TempDir dir_;
  std::u16string languageDir_;
  bool found_ = false;
};

const std::string kNoFull =
    "There is no language file for the current language & sub language: DEA";
const std::string kNoPrimary = "There is no language file for the current language: DEU";
const std::string kNoTwoLetters =
    "There is no language file for the current language 2 letter code: DE";
const std::string kNoPath = "Unable to resolve Language file path";

TEST_F(LanguageFileSearch, FullCodeFirst) {
  for (const auto* code : {u"DEA", u"DEU", u"DE", u"ENU"}) addFile(code);
  LogCapture log;
  EXPECT_EQ(loadGerman(), u"DEA");
  EXPECT_TRUE(found_);
  EXPECT_EQ(log.messages(), Messages{});
}

TEST_F(LanguageFileSearch, ThenThePrimaryLanguage) {
  for (const auto* code : {u"DEU", u"DE", u"ENU"}) addFile(code);
  LogCapture log;
  EXPECT_EQ(loadGerman(), u"DEU");
  EXPECT_TRUE(found_);
  EXPECT_EQ(log.messages(), Messages{kNoFull});
}

TEST_F(LanguageFileSearch, ThenItsFirstTwoLetters) {
  for (const auto* code : {u"DE", u"ENU"}) addFile(code);
  LogCapture log;
  EXPECT_EQ(loadGerman(), u"DE");
  EXPECT_TRUE(found_);
  EXPECT_EQ(log.messages(), (Messages{kNoFull, kNoPrimary}));
}

TEST_F(LanguageFileSearch, ThenEnglish) {
  addFile(u"ENU");
  LogCapture log;
  EXPECT_EQ(loadGerman(), u"ENU");
  EXPECT_TRUE(found_);
  EXPECT_EQ(log.messages(), (Messages{kNoFull, kNoPrimary, kNoTwoLetters}));
}

TEST_F(LanguageFileSearch, NoneLeavesTheTextsAsTheyWere) {
  addFile(u"FRA");
  loadBytes(utf16Bytes(u"WHICH=earlier\r\n", true));
  LogCapture log;
  EXPECT_EQ(loadGerman(), u"earlier");
  EXPECT_FALSE(found_);
  EXPECT_EQ(log.messages(), (Messages{kNoFull, kNoPrimary, kNoTwoLetters, kNoPath}));
}

TEST_F(LanguageFileSearch, GermanyUsesItsOwnFile) {
  for (const auto* code : {u"DEA", u"DEU", u"ENU"}) addFile(code);
  LanguageEnv fake(0x0407, {{0x0407, u"DEU"}, {0x0007, u"DEU"}}, dir_.file(u"Ferrant.dll"));
  ScopedEnv scoped(&fake);
  LogCapture log;
  ASSERT_TRUE(ResourceLoader::instance()->loadResource());
  EXPECT_EQ(ResourceLoader::instance()->getStringValue(u"WHICH", u""), u"DEU");
  EXPECT_EQ(log.messages(), Messages{});
}

// The files shipped in the repository, copied beside this test program,
// with the platform's own abbreviations.
class ShippedLanguageFiles : public ResourceLoaderTest {
 protected:
  ResourceLoader* load(uint16_t langId) {
    struct OnlyLanguage : EnvWrapper {
      OnlyLanguage(uint16_t id) : EnvWrapper(env()), id(id) {}
      uint16_t userUiLanguage() override { return id; }
      uint16_t id;
    } fake(langId);
    ScopedEnv scoped(&fake);
    EXPECT_TRUE(ResourceLoader::instance()->loadResource());
    return ResourceLoader::instance();
  }
};

TEST_F(ShippedLanguageFiles, EnglishIsLeftToRightAndComplete) {
  LogCapture log;
  ResourceLoader* loader = load(0x0409);
  EXPECT_EQ(log.messages(), Messages{});
  EXPECT_FALSE(loader->isRtl());
  EXPECT_EQ(loader->getStringValue(u"PREFERENCES_OK", u""), u"OK");
  EXPECT_EQ(loader->getStringValue(u"CAPTURE_PROGRESS_REMAINING_MINUTES", u""),
            u"About %1 minutes remaining");
  // Every dialog and button key has a text.
  for (const auto* key :
       {u"PIM_PREF", u"PIM_CAPT", u"PREFERENCES_DIALOG_TITLE", u"PREFERENCES_CANCEL",
        u"PREFERENCES_HELP", u"CAPTURE_TAB", u"DATA_TAB", u"FOLDERS_TAB", u"PREFERENCES_DATA_TITLE",
        u"PREFERENCES_FOLDERS_TITLE", u"PREFERENCES_FOLDERS_LOADING",
        u"CAPTURE_PROGRESS_DIALOG_TITLE", u"ABOUT_DIALOG_TITLE", u"ABOUT_PRODUCT_NAME"}) {
    EXPECT_NE(loader->getStringValue(key, u""), u"") << toUtf8(key);
  }
}

// The "%1"/"%2" markers of a text, in order, so that a translation that
// drops, adds or swaps a number is caught.
std::u16string placeholders(const std::u16string& text) {
  std::u16string found;
  for (size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] == u'%' && text[i + 1] >= u'0' && text[i + 1] <= u'9') found += text.substr(i, 2);
  }
  return found;
}

// Every file in the Language folder: read without a skipped line, the keys
// and "%1"/"%2" markers of English, and the direction of its script.
TEST_F(ShippedLanguageFiles, EveryFileIsCompleteAndReadsCleanly) {
  const std::map<std::u16string, bool> rightToLeft = {
      {u"ENU", false}, {u"DEU", false}, {u"HEB", true}};
  const std::u16string folder = getDllPath() + u"Language";
  ResourceLoader::instance()->readResourceString(folder + kPathSeparator + u"strings.ENU");
  const Strings english = ResourceLoader::instance()->strings();
  ASSERT_FALSE(english.empty());
  std::vector<std::u16string> codes;
  for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(folder))) {
    const std::u16string name = entry.path().filename().u16string();
    ASSERT_EQ(name.rfind(u"strings.", 0), 0u) << toUtf8(name);
    codes.push_back(name.substr(8));
  }
  EXPECT_GE(codes.size(), rightToLeft.size());
  for (const std::u16string& code : codes) {
    SCOPED_TRACE(toUtf8(code));
    ResourceLoader::freeInstance();
    LogCapture log;
    ResourceLoader* loader = ResourceLoader::instance();
    loader->readResourceString(folder + kPathSeparator + u"strings." + code);
    EXPECT_EQ(log.messages(), Messages{});
    ASSERT_EQ(rightToLeft.count(code), 1u) << "say in this test which way the language is written";
    EXPECT_EQ(loader->isRtl(), rightToLeft.at(code));
    std::vector<std::u16string> keys, englishKeys;
    for (const auto& [key, text] : loader->strings()) keys.push_back(key);
    for (const auto& [key, text] : english) englishKeys.push_back(key);
    EXPECT_EQ(keys, englishKeys);
    for (const auto& [key, text] : english) {
      EXPECT_EQ(placeholders(loader->getStringValue(key, u"")), placeholders(text))
          << toUtf8(key) << ": " << toUtf8(loader->getStringValue(key, u""));
    }
  }
}

// The user's language picks its own file, not the English one.
TEST_F(ShippedLanguageFiles, EachLanguageGetsItsOwnFile) {
  const struct {
    uint16_t langId;
    std::u16string cancel;
  } cases[] = {
      {0x0409, u"Cancel"},
      {0x0407, u"Abbrechen"},
      {0x040D, u"\u05d1\u05d9\u05d8\u05d5\u05dc"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.langId);
    ResourceLoader::freeInstance();
    LogCapture log;
    EXPECT_EQ(load(c.langId)->getStringValue(u"PREFERENCES_CANCEL", u""), c.cancel);
    EXPECT_EQ(log.messages(), Messages{});
  }
}

}  // namespace
}  // namespace PIM
