// Placeholder until the code-page conversions land.
#include "platform/win32/win32_env.h"
namespace PIM {
int Win32Env::wideToMultiByte(uint32_t, const char16_t*, int, char*, int) { return 0; }
int Win32Env::multiByteToWide(uint32_t, const char*, int, char16_t*, int) { return 0; }
}  // namespace PIM
