// A key store in memory, so that tests of the settings never touch the
// user's own (the registry, or the settings file).
//
//   testing::MemoryKeyStoreEnv keys;   // installs itself for its lifetime
//   Preferences::instance().load();
#pragma once

#include <string>

#include "platform/env.h"
#include "platform/key_store.h"
#include "platform/key_store_file.h"
#include "testing/test_support.h"

namespace PIM::testing {

class MemoryKeyStore : public KeyStore {
 public:
  KeyHandle currentUserRoot() override { return &root_; }
  long createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) override;
  void closeKey(KeyHandle) override {}
  long queryValue(KeyHandle key, const std::u16string& name, ValueType* type, uint8_t* data,
                  uint32_t* size) override;
  long setValue(KeyHandle key, const std::u16string& name, ValueType type, const uint8_t* data,
                uint32_t size) override;
  long deleteTree(KeyHandle parent, const std::u16string& path) override;

  // The whole store in the settings file's text form, for comparisons.
  std::string text() const { return keyfile::storeText(root_); }
  // From now on every value written fails with `result` (kKeyOk: none).
  void refuseWrites(long result) { refusal_ = result; }

 private:
  keyfile::KeyNode root_;
  long refusal_ = kKeyOk;
};

class MemoryKeyStoreEnv : public EnvWrapper {
 public:
  MemoryKeyStoreEnv() : EnvWrapper(env()), scoped_(this) {}
  KeyStore& keyStore() override { return store_; }
  MemoryKeyStore& store() { return store_; }

 private:
  MemoryKeyStore store_;
  ScopedEnv scoped_;
};

}  // namespace PIM::testing
