// Placeholder until the crash hook lands.
#include "platform/win32/win32_env.h"
namespace PIM {
void Win32Env::installCrashHandler(CrashHandler) {}
void Win32Env::uninstallCrashHandler() {}
void Win32Env::showFatalMessage(const std::u16string&, const std::u16string&) {}
}  // namespace PIM
