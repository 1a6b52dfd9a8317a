#include "testing/memory_key_store.h"

#include <cstring>

namespace PIM::testing {

namespace {
keyfile::KeyNode* node(KeyHandle key) { return static_cast<keyfile::KeyNode*>(key); }
}  // namespace

long MemoryKeyStore::createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) {
  if (!parent) return kKeyInvalidHandle;
  if (!keyfile::isValidKeyName(name)) return kKeyInvalidParameter;
  *out = &node(parent)->addSubkey(name);
  return kKeyOk;
}

long MemoryKeyStore::queryValue(KeyHandle key, const std::u16string& name, ValueType* type,
                                uint8_t* data, uint32_t* size) {
  if (!key) return kKeyInvalidHandle;
  const keyfile::KeyValue* value = node(key)->findValue(name);
  if (!value) return kKeyNotFound;
  if (type) *type = static_cast<ValueType>(value->type);
  if (!size) return kKeyOk;
  const uint32_t needed = static_cast<uint32_t>(value->data.size());
  if (data && *size < needed) {
    *size = needed;
    return kKeyMoreData;
  }
  if (data && needed) std::memcpy(data, value->data.data(), needed);
  *size = needed;
  return kKeyOk;
}

long MemoryKeyStore::setValue(KeyHandle key, const std::u16string& name, ValueType type,
                              const uint8_t* data, uint32_t size) {
  if (!key) return kKeyInvalidHandle;
  if (refusal_ != kKeyOk) return refusal_;
  node(key)->setValue(
      name, static_cast<uint32_t>(type),
      size ? std::string(reinterpret_cast<const char*>(data), size) : std::string());
  return kKeyOk;
}

long MemoryKeyStore::deleteTree(KeyHandle parent, const std::u16string& path) {
  if (!parent) return kKeyInvalidHandle;
  keyfile::KeyNode* at = node(parent);
  size_t start = 0;
  for (;;) {
    const size_t end = path.find(u'\\', start);
    const std::u16string name = path.substr(start, end - start);
    if (end == std::u16string::npos) return at->removeSubkey(name) ? kKeyOk : kKeyNotFound;
    at = at->findSubkey(name);
    if (!at) return kKeyNotFound;
    start = end + 1;
  }
}

}  // namespace PIM::testing
