// One settings key, opened (and created where missing) from a base key and a
// backslash-separated path, with typed reads and writes of its values. The
// only way the system touches its settings; the store underneath is
// env()->keyStore() (the registry on Windows).
//
//   RegistryKey key(env()->keyStore().currentUserRoot(), u"Software\\Corvel\\CVTK");
//   uint32_t minutes = key.readDword(u"Frequency", 15);
//
// Nothing throws: every failure is one error line in the diagnostic log and
// the caller's default. Reading a value not written yet (first run) logs a
// line too; that is expected. Objects are short-lived and used by one thread.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "platform/key_store.h"

namespace PIM {

class RegistryKey {
 public:
  // Backslash separates the levels on every platform: it is the key store's
  // own separator, not a file path. An empty level opens the same key again.
  RegistryKey(KeyHandle base, const std::u16string& path);
  // Closes every handle it opened, the deepest first.
  ~RegistryKey();
  RegistryKey(const RegistryKey&) = delete;
  RegistryKey& operator=(const RegistryKey&) = delete;

  // True when every level of the path was opened.
  bool isValid() const { return valid_; }

  uint32_t readDword(const std::u16string& name, uint32_t defaultValue) const;
  // Any stored number but 0 is true.
  bool readBool(const std::u16string& name, bool defaultValue) const;
  // True on success. A value of no bytes leaves `out` as it was.
  bool readBinary(const std::u16string& name, std::vector<uint8_t>& out) const;

  bool writeDword(const std::u16string& name, uint32_t value);
  bool writeBool(const std::u16string& name, bool value);
  bool writeBinary(const std::u16string& name, const std::vector<uint8_t>& bytes);

 private:
  // The key values live in: the last level opened, or the base key itself
  // when the path has no level.
  KeyHandle deepest() const { return keys_.empty() ? base_ : keys_.back(); }
  // Logs what the store met on its own (a damaged settings file, say).
  void logStoreDiagnostics() const;

  KeyStore* store_;
  KeyHandle base_;
  std::deque<KeyHandle> keys_;  // one per level, outermost first
  bool valid_ = false;
};

}  // namespace PIM
