// Checks the portable language table against the Win32 locale database, so
// that both platforms name language files alike.
#include <gtest/gtest.h>

#include <string>

#include "core/utils.h"
#include "platform/env.h"
#include "platform/language_table.h"

namespace PIM {
namespace {

TEST(Win32Locale, TableAgreesWithTheLocaleDatabase) {
  for (const auto& entry : languageTable()) {
    EXPECT_EQ(toUtf8(Env::platformDefault()->languageAbbreviation(entry.langId)),
              toUtf8(entry.abbreviation))
        << entry.language << "_" << entry.country << " " << std::hex << entry.langId;
  }
}

// A neutral identifier names the language's primary country on both sides.
// (Identifier 0 differs: Win32 takes it for the user's default locale.)
TEST(Win32Locale, NeutralIdentifiersAgreeWithTheTable) {
  for (uint16_t id : {0x0004, 0x0007, 0x0009, 0x000A, 0x000C, 0x0014, 0x0016, 0x001D, 0x001A}) {
    EXPECT_EQ(toUtf8(Env::platformDefault()->languageAbbreviation(id)),
              toUtf8(languageAbbreviationFor(id)))
        << std::hex << id;
  }
  EXPECT_EQ(Env::platformDefault()->languageAbbreviation(0x7C09), u"");
}

}  // namespace
}  // namespace PIM
