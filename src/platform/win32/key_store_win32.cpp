// The key store on Windows: the registry itself.
#include <windows.h>

#include <mutex>

#include "platform/win32/win32_env.h"

namespace PIM {

namespace {

// Read and write: KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY |
// KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY | READ_CONTROL.
constexpr REGSAM kReadWrite = 0x2001F;

HKEY toKey(KeyHandle key) { return static_cast<HKEY>(key); }

class Win32KeyStore final : public KeyStore {
 public:
  KeyHandle currentUserRoot() override { return HKEY_CURRENT_USER; }

  long createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) override {
    if (!out) return kKeyInvalidParameter;
    HKEY key = nullptr;
    LONG result = RegCreateKeyExW(toKey(parent), wide(name), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                  kReadWrite, nullptr, &key, nullptr);
    *out = result == ERROR_SUCCESS ? key : nullptr;
    return result;
  }

  void closeKey(KeyHandle key) override {
    // The predefined root stays open for the whole process.
    if (key && toKey(key) != HKEY_CURRENT_USER) RegCloseKey(toKey(key));
  }

  long queryValue(KeyHandle key, const std::u16string& name, ValueType* type, uint8_t* data,
                  uint32_t* size) override {
    DWORD storedType = REG_NONE;
    DWORD bytes = size ? *size : 0;
    LONG result = RegQueryValueExW(toKey(key), wide(name), nullptr, &storedType, data,
                                   size ? &bytes : nullptr);
    if (type) *type = ValueType(storedType);
    if (size) *size = bytes;
    return result;
  }

  long setValue(KeyHandle key, const std::u16string& name, ValueType type, const uint8_t* data,
                uint32_t size) override {
    return RegSetValueExW(toKey(key), wide(name), 0, DWORD(type), data, size);
  }

  long deleteTree(KeyHandle parent, const std::u16string& path) override {
    return RegDeleteTreeW(toKey(parent), path.empty() ? nullptr : wide(path));
  }
};

}  // namespace

KeyStore& Win32Env::keyStore() {
  static std::mutex creating;
  std::lock_guard<std::mutex> guard(creating);
  if (!keyStore_) keyStore_ = std::make_unique<Win32KeyStore>();
  return *keyStore_;
}

}  // namespace PIM
