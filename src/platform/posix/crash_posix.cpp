// Placeholder until the crash hook lands.
#include "platform/posix/posix_env.h"
namespace PIM {
void PosixEnv::installCrashHandler(CrashHandler) {}
void PosixEnv::uninstallCrashHandler() {}
void PosixEnv::showFatalMessage(const std::u16string&, const std::u16string&) {}
}  // namespace PIM
