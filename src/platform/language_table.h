// Windows language identifiers and their three-letter abbreviations for the
// common locales, so that systems without the Win32 locale database name
// languages as Windows does (language files are named by the abbreviation).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace PIM {

inline constexpr uint16_t kLangEnglishUnitedStates = 0x0409;

struct LanguageTableEntry {
  const char* language;          // ISO 639-1, as in POSIX locale names ("de")
  const char* country;           // ISO 3166-1 ("AT")
  uint16_t langId;               // primary language in bits 0-9, sub-language above
  const char16_t* abbreviation;  // "DEA"
};

// Every known locale; the first entry of each language is its primary
// country, used for the language alone and for neutral identifiers.
std::span<const LanguageTableEntry> languageTable();

// The identifier of a language and country; a country not in the table
// gives the language's primary country. 0 when the language is unknown.
// Letter case is ignored.
uint16_t languageIdFor(std::string_view language, std::string_view country);

// The identifier of a POSIX locale name ("de_AT.UTF-8@euro", "fr", "C").
// "C", "POSIX", empty and unknown names give English (United States).
uint16_t languageIdForLocaleName(std::string_view localeName);

// The abbreviation of an identifier; a neutral identifier (sub-language 0)
// gives its primary country's. Empty text when unknown.
std::u16string languageAbbreviationFor(uint16_t langId);

}  // namespace PIM
