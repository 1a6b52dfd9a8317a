#include "core/registry_key.h"

#include <cstdint>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "platform/env.h"

namespace PIM {

RegistryKey::RegistryKey(KeyHandle base, const std::u16string& path)
    : store_(&env()->keyStore()), base_(base) {
  PIM_ENTRY("PIM::RegistryKey::RegistryKey");
  if (!base) {
    PIM_LOG_ERR("Invalid base registry key value.");
    return;
  }
  KeyHandle parent = base;
  for (const auto& level : splitString(path, u"\\")) {
    KeyHandle key = nullptr;
    if (store_->createKey(parent, level, &key) != kKeyOk || !key) {
      logStoreDiagnostics();
      PIM_LOG_ERR("Could not acess key at " << toUtf8(path));
      return;
    }
    keys_.push_back(key);
    parent = key;
  }
  logStoreDiagnostics();
  valid_ = true;
}

RegistryKey::~RegistryKey() {
  while (!keys_.empty()) {
    store_->closeKey(keys_.back());
    keys_.pop_back();
  }
}

uint32_t RegistryKey::readDword(const std::u16string& name, uint32_t defaultValue) const {
  PIM_ENTRY("PIM::RegistryKey::readDword");
  if (!valid_) return defaultValue;
  // Four bytes only: a longer value of any type fails as a read.
  uint8_t bytes[4] = {};
  uint32_t size = sizeof bytes;
  ValueType type = ValueType::None;
  long result = store_->queryValue(deepest(), name, &type, bytes, &size);
  logStoreDiagnostics();
  if (result != kKeyOk) {
    PIM_LOG_ERR("Could not read from the registry key: " << toUtf8(name));
    return defaultValue;
  }
  if (type != ValueType::Dword) {
    PIM_LOG_ERR("Registry key is not a valid type. " << toUtf8(name));
    return defaultValue;
  }
  return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 |
         uint32_t(bytes[3]) << 24;
}

bool RegistryKey::readBool(const std::u16string& name, bool defaultValue) const {
  return readDword(name, defaultValue ? 1 : 0) != 0;
}

bool RegistryKey::readBinary(const std::u16string& name, std::vector<uint8_t>& out) const {
  PIM_ENTRY("PIM::RegistryKey::readBinary");
  if (!valid_) return false;
  ValueType type = ValueType::None;
  uint32_t size = 0;
  long result = store_->queryValue(deepest(), name, &type, nullptr, &size);
  logStoreDiagnostics();
  if (result != kKeyOk) {
    PIM_LOG_ERR("Could not read from the registry key: " << toUtf8(name));
    return false;
  }
  if (type != ValueType::Binary) {
    PIM_LOG_ERR("Registry key is not a valid type. " << toUtf8(name));
    return false;
  }
  if (size == 0) return true;
  out.resize(size);
  result = store_->queryValue(deepest(), name, nullptr, out.data(), &size);
  logStoreDiagnostics();
  if (result != kKeyOk) {
    PIM_LOG_ERR("Could not read from the registry key: " << toUtf8(name));
    return false;
  }
  out.resize(size);  // the value may have shrunk between the two reads
  return true;
}

bool RegistryKey::writeDword(const std::u16string& name, uint32_t value) {
  PIM_ENTRY("PIM::RegistryKey::writeDword");
  if (!valid_) return false;
  const uint8_t bytes[4] = {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16),
                            uint8_t(value >> 24)};
  long result = store_->setValue(deepest(), name, ValueType::Dword, bytes, sizeof bytes);
  logStoreDiagnostics();
  if (result != kKeyOk) {
    PIM_LOG_ERR("Could not write " << value << " to the registry key: " << toUtf8(name));
    return false;
  }
  return true;
}

bool RegistryKey::writeBool(const std::u16string& name, bool value) {
  return writeDword(name, value ? 1 : 0);
}

bool RegistryKey::writeBinary(const std::u16string& name, const std::vector<uint8_t>& bytes) {
  PIM_ENTRY("PIM::RegistryKey::writeBinary");
  if (!valid_) return false;
  // The store counts a value's bytes in 32 bits.
  long result = bytes.size() > UINT32_MAX ? kKeyInvalidParameter
                                          : store_->setValue(deepest(), name, ValueType::Binary,
                                                             bytes.data(), uint32_t(bytes.size()));
  logStoreDiagnostics();
  if (result != kKeyOk) {
    PIM_LOG_ERR("Could not write binary data to the registry key: " << toUtf8(name));
    return false;
  }
  return true;
}

void RegistryKey::logStoreDiagnostics() const {
  PIM_ENTRY("PIM::RegistryKey::logStoreDiagnostics");
  for (const auto& problem : store_->takeDiagnostics()) PIM_LOG_ERR(problem);
}

}  // namespace PIM
