// The user-interface language off Windows comes from the locale environment
// that decides the language of messages, mapped to Windows identifiers.
#include <cstdlib>

#include "platform/language_table.h"
#include "platform/posix/posix_env.h"

namespace PIM {

// Read on every call: the variables are the user's current choice.
uint16_t PosixEnv::userUiLanguage() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value && *value) return languageIdForLocaleName(value);
  }
  return kLangEnglishUnitedStates;
}

std::u16string PosixEnv::languageAbbreviation(uint16_t langId) {
  return languageAbbreviationFor(langId);
}

}  // namespace PIM
