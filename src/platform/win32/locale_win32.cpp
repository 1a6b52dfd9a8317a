// Placeholder until the language lookup lands.
#include "platform/win32/win32_env.h"
namespace PIM {
uint16_t Win32Env::userUiLanguage() { return 0x0409; }
std::u16string Win32Env::languageAbbreviation(uint16_t) { return u"ENU"; }
}  // namespace PIM
