#include "platform/language_table.h"

namespace PIM {

namespace {

constexpr uint16_t kPrimaryLanguageMask = 0x3FF;

// The identifiers and abbreviations are those of the Win32 locale database.
constexpr LanguageTableEntry kTable[] = {
    {"en", "US", 0x0409, u"ENU"},
    {"en", "GB", 0x0809, u"ENG"},
    {"en", "AU", 0x0C09, u"ENA"},
    {"en", "CA", 0x1009, u"ENC"},
    {"en", "NZ", 0x1409, u"ENZ"},
    {"en", "IE", 0x1809, u"ENI"},
    {"en", "ZA", 0x1C09, u"ENS"},
    {"en", "IN", 0x4009, u"ENN"},
    {"de", "DE", 0x0407, u"DEU"},
    {"de", "AT", 0x0C07, u"DEA"},
    {"de", "CH", 0x0807, u"DES"},
    {"de", "LU", 0x1007, u"DEL"},
    {"de", "LI", 0x1407, u"DEC"},
    {"fr", "FR", 0x040C, u"FRA"},
    {"fr", "CA", 0x0C0C, u"FRC"},
    {"fr", "BE", 0x080C, u"FRB"},
    {"fr", "CH", 0x100C, u"FRS"},
    {"fr", "LU", 0x140C, u"FRL"},
    {"es", "ES", 0x0C0A, u"ESN"},
    {"es", "MX", 0x080A, u"ESM"},
    {"es", "AR", 0x2C0A, u"ESS"},
    {"es", "CO", 0x240A, u"ESO"},
    {"es", "CL", 0x340A, u"ESL"},
    {"es", "US", 0x540A, u"EST"},
    {"it", "IT", 0x0410, u"ITA"},
    {"it", "CH", 0x0810, u"ITS"},
    {"nl", "NL", 0x0413, u"NLD"},
    {"nl", "BE", 0x0813, u"NLB"},
    {"pt", "BR", 0x0416, u"PTB"},
    {"pt", "PT", 0x0816, u"PTG"},
    {"sv", "SE", 0x041D, u"SVE"},
    {"sv", "FI", 0x081D, u"SVF"},
    // Bokmal comes first: the neutral Norwegian identifier is Bokmal's.
    {"nb", "NO", 0x0414, u"NOR"},
    {"nn", "NO", 0x0814, u"NON"},
    {"no", "NO", 0x0414, u"NOR"},
    {"da", "DK", 0x0406, u"DAN"},
    {"fi", "FI", 0x040B, u"FIN"},
    {"is", "IS", 0x040F, u"ISL"},
    {"ru", "RU", 0x0419, u"RUS"},
    {"uk", "UA", 0x0422, u"UKR"},
    {"be", "BY", 0x0423, u"BEL"},
    {"pl", "PL", 0x0415, u"PLK"},
    {"cs", "CZ", 0x0405, u"CSY"},
    {"sk", "SK", 0x041B, u"SKY"},
    {"hu", "HU", 0x040E, u"HUN"},
    {"ro", "RO", 0x0418, u"ROM"},
    {"bg", "BG", 0x0402, u"BGR"},
    {"hr", "HR", 0x041A, u"HRV"},
    {"sl", "SI", 0x0424, u"SLV"},
    {"et", "EE", 0x0425, u"ETI"},
    {"lv", "LV", 0x0426, u"LVI"},
    {"lt", "LT", 0x0427, u"LTH"},
    {"el", "GR", 0x0408, u"ELL"},
    {"tr", "TR", 0x041F, u"TRK"},
    {"ca", "ES", 0x0403, u"CAT"},
    {"eu", "ES", 0x042D, u"EUQ"},
    {"gl", "ES", 0x0456, u"GLC"},
    {"sq", "AL", 0x041C, u"SQI"},
    {"mk", "MK", 0x042F, u"MKI"},
    {"ka", "GE", 0x0437, u"KAT"},
    {"hy", "AM", 0x042B, u"HYE"},
    {"kk", "KZ", 0x043F, u"KKZ"},
    // Simplified Chinese first: the neutral Chinese identifier is China's.
    {"zh", "CN", 0x0804, u"CHS"},
    {"zh", "TW", 0x0404, u"CHT"},
    {"zh", "HK", 0x0C04, u"ZHH"},
    {"zh", "SG", 0x1004, u"ZHI"},
    {"zh", "MO", 0x1404, u"ZHM"},
    {"ja", "JP", 0x0411, u"JPN"},
    {"ko", "KR", 0x0412, u"KOR"},
    {"ar", "SA", 0x0401, u"ARA"},
    {"ar", "EG", 0x0C01, u"ARE"},
    {"ar", "AE", 0x3801, u"ARU"},
    {"he", "IL", 0x040D, u"HEB"},
    {"fa", "IR", 0x0429, u"FAR"},
    {"ur", "PK", 0x0420, u"URD"},
    {"hi", "IN", 0x0439, u"HIN"},
    {"th", "TH", 0x041E, u"THA"},
    {"vi", "VN", 0x042A, u"VIT"},
    {"id", "ID", 0x0421, u"IND"},
    {"ms", "MY", 0x043E, u"MSL"},
    {"af", "ZA", 0x0436, u"AFK"},
};

char lowerAscii(char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (lowerAscii(a[i]) != lowerAscii(b[i])) return false;
  }
  return true;
}

}  // namespace

std::span<const LanguageTableEntry> languageTable() { return kTable; }

uint16_t languageIdFor(std::string_view language, std::string_view country) {
  const LanguageTableEntry* primary = nullptr;
  for (const auto& entry : kTable) {
    if (!equalsIgnoringCase(entry.language, language)) continue;
    if (equalsIgnoringCase(entry.country, country)) return entry.langId;
    if (!primary) primary = &entry;
  }
  return primary ? primary->langId : 0;
}

uint16_t languageIdForLocaleName(std::string_view localeName) {
  // language[_COUNTRY][.codeset][@modifier]
  localeName = localeName.substr(0, localeName.find('@'));
  localeName = localeName.substr(0, localeName.find('.'));
  auto underscore = localeName.find('_');
  std::string_view language = localeName.substr(0, underscore);
  std::string_view country =
      underscore == std::string_view::npos ? std::string_view() : localeName.substr(underscore + 1);
  uint16_t id = languageIdFor(language, country);
  // "C" and "POSIX" are no language of the table and land here too.
  return id ? id : kLangEnglishUnitedStates;
}

std::u16string languageAbbreviationFor(uint16_t langId) {
  bool neutral = (langId & ~kPrimaryLanguageMask) == 0;
  for (const auto& entry : kTable) {
    if (entry.langId == langId || (neutral && (entry.langId & kPrimaryLanguageMask) == langId)) {
      return entry.abbreviation;
    }
  }
  return {};
}

}  // namespace PIM
