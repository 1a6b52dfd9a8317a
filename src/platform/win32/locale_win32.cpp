#include <windows.h>

#include "platform/win32/win32_env.h"

namespace PIM {

uint16_t Win32Env::userUiLanguage() { return GetUserDefaultUILanguage(); }

std::u16string Win32Env::languageAbbreviation(uint16_t langId) {
  wchar_t buffer[16] = {};
  if (!GetLocaleInfoW(MAKELCID(langId, SORT_DEFAULT), LOCALE_SABBREVLANGNAME, buffer,
                      int(sizeof buffer / sizeof buffer[0]))) {
    return {};
  }
  return fromWide(buffer);
}

}  // namespace PIM
