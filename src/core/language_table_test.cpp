#include "platform/language_table.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "core/utils.h"

namespace PIM {
namespace {

TEST(LanguageTable, EveryEntryRoundTrips) {
  std::set<std::string> locales;
  for (const auto& entry : languageTable()) {
    std::string locale = std::string(entry.language) + "_" + entry.country;
    EXPECT_TRUE(locales.insert(locale).second) << "twice: " << locale;
    EXPECT_EQ(languageIdFor(entry.language, entry.country), entry.langId) << locale;
    EXPECT_EQ(languageAbbreviationFor(entry.langId), entry.abbreviation) << locale;
    EXPECT_EQ(std::u16string(entry.abbreviation).size(), 3u) << locale;
    EXPECT_NE(entry.langId & 0xFC00, 0) << locale << " is a neutral identifier";
  }
}

TEST(LanguageTable, LocaleNamesGiveWindowsIdentifiers) {
  struct Case {
    const char* name;
    uint16_t langId;
  };
  for (const Case& c :
       {Case{"en_US.UTF-8", 0x0409}, Case{"en_GB", 0x0809}, Case{"de_DE.UTF-8", 0x0407},
        Case{"de_AT.UTF-8@euro", 0x0C07}, Case{"de_CH", 0x0807}, Case{"fr_CA.utf8", 0x0C0C},
        Case{"es_ES", 0x0C0A}, Case{"pt_PT", 0x0816}, Case{"pt_BR", 0x0416},
        Case{"zh_TW.Big5", 0x0404}, Case{"nn_NO", 0x0814}, Case{"no_NO", 0x0414},
        Case{"he_IL", 0x040D}, Case{"ja_JP.eucJP", 0x0411}, Case{"en_gb", 0x0809},
        // A language alone, or with a country the table lacks: its primary country.
        Case{"de", 0x0407}, Case{"de_BR.UTF-8", 0x0407}, Case{"es", 0x0C0A}, Case{"pt", 0x0416},
        Case{"zh", 0x0804}, Case{"en_JM", 0x0409},
        // No language, or one the table lacks: English (United States).
        Case{"C", 0x0409}, Case{"POSIX", 0x0409}, Case{"C.UTF-8", 0x0409}, Case{"", 0x0409},
        Case{"xx_YY", 0x0409}, Case{"sr_RS@latin", 0x0409}, Case{"_DE", 0x0409}}) {
    EXPECT_EQ(languageIdForLocaleName(c.name), c.langId) << '"' << c.name << '"';
  }
}

TEST(LanguageTable, NeutralIdentifiersNameThePrimaryCountry) {
  struct Case {
    uint16_t langId;
    const char16_t* abbreviation;
  };
  for (const Case& c :
       {Case{0x0007, u"DEU"}, Case{0x0009, u"ENU"}, Case{0x000C, u"FRA"}, Case{0x000A, u"ESN"},
        Case{0x0016, u"PTB"}, Case{0x0004, u"CHS"}, Case{0x0014, u"NOR"}, Case{0x001D, u"SVE"},
        // Unknown: no text.
        Case{0x0000, u""}, Case{0x7C09, u""}, Case{0x0401 | 0x3C00, u""}, Case{0x0092, u""}}) {
    EXPECT_EQ(languageAbbreviationFor(c.langId), c.abbreviation) << std::hex << c.langId;
  }
}

}  // namespace
}  // namespace PIM
