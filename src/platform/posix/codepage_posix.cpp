// Placeholder until the code-page conversions land.
#include "platform/posix/posix_env.h"
namespace PIM {
int PosixEnv::wideToMultiByte(uint32_t, const char16_t*, int, char*, int) { return 0; }
int PosixEnv::multiByteToWide(uint32_t, const char*, int, char16_t*, int) { return 0; }
}  // namespace PIM
