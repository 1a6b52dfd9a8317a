// Placeholder until the key store lands.
#include "platform/win32/win32_env.h"
namespace PIM {
KeyStore& Win32Env::keyStore() { return *keyStore_; }
}  // namespace PIM
