// Placeholder until the language lookup lands.
#include "platform/posix/posix_env.h"
namespace PIM {
uint16_t PosixEnv::userUiLanguage() { return 0x0409; }
std::u16string PosixEnv::languageAbbreviation(uint16_t) { return u"ENU"; }
}  // namespace PIM
