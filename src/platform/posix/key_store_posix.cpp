// Placeholder until the key store lands.
#include "platform/posix/posix_env.h"
namespace PIM {
KeyStore& PosixEnv::keyStore() { return *keyStore_; }
}  // namespace PIM
