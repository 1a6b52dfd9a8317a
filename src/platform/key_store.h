// A per-user hierarchical store of typed values: the Windows registry, or on
// other systems a file of our own with the same operations and failures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace PIM {

// An open key. Null is never a valid key.
using KeyHandle = void*;

// Value types, numbered as the registry numbers them. Stores keep any other
// number they are given, too, with its bytes as they are.
enum class ValueType : uint32_t { None = 0, String = 1, Binary = 3, Dword = 4 };

// Results: 0 on success, else a platform error code (on POSIX the Win32
// numbers: 2 not found, 5 access denied, 234 more data, ...).
inline constexpr long kKeyOk = 0;
inline constexpr long kKeyNotFound = 2;
inline constexpr long kKeyAccessDenied = 5;
inline constexpr long kKeyInvalidHandle = 6;
inline constexpr long kKeyWriteFault = 29;
inline constexpr long kKeyInvalidParameter = 87;
inline constexpr long kKeyDiskFull = 112;
inline constexpr long kKeyMoreData = 234;
inline constexpr long kKeyDeleted = 1018;  // the key was deleted while open

// Whether the settings as a whole can be relied on.
struct KeyStoreState {
  enum Health {
    Usable,
    // Damaged and set aside: what could be read is in use, the rest is lost.
    Damaged,
    // Cannot be read at all: every read gives its default.
    Unreadable,
  };
  Health health = Usable;
  std::string message;  // what is wrong, for the user; empty when usable
};

// The registry's limits, kept by every store.
inline constexpr size_t kMaxKeyNameUnits = 255;
inline constexpr size_t kMaxValueNameUnits = 16383;
inline constexpr size_t kMaxKeyDepth = 512;

class KeyStore {
 public:
  virtual ~KeyStore() = default;

  // The root of the current user's settings (HKEY_CURRENT_USER).
  virtual KeyHandle currentUserRoot() = 0;

  // Creates `name` (one level, no separators) below `parent` if missing and
  // opens it for reading and writing. The caller closes *out with closeKey.
  virtual long createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) = 0;
  virtual void closeKey(KeyHandle key) = 0;

  // RegQueryValueEx: with data null only *type and *size are set. When the
  // value is larger than *size, returns kKeyMoreData with *size the size
  // needed. String values hold UTF-16 with their terminating NUL.
  virtual long queryValue(KeyHandle key, const std::u16string& name, ValueType* type, uint8_t* data,
                          uint32_t* size) = 0;
  virtual long setValue(KeyHandle key, const std::u16string& name, ValueType type,
                        const uint8_t* data, uint32_t size) = 0;

  // Deletes the key at `path` (components separated by backslashes) below
  // `parent`, with everything under it.
  virtual long deleteTree(KeyHandle parent, const std::u16string& path) = 0;

  // Problems the store met on its own that the caller should log (a damaged
  // settings file set aside, for example), oldest first; each is returned
  // once. The registry has none.
  virtual std::vector<std::string> takeDiagnostics() { return {}; }

  // Reads the settings if need be and tells whether they can be relied on.
  // A damage met by any earlier call of this object is told too.
  virtual KeyStoreState checkState() { return {}; }

  // Runs `body` (which uses this store's other methods) as one change that
  // other processes see whole or not at all: what it reads is what is stored
  // when it starts, and nobody else changes the settings until it ends. When
  // `body` fails nothing it changed is kept, where the store can undo it (the
  // registry cannot). Returns body's result, or the store's own failure with
  // the reason in `why`.
  virtual long changeTogether(const std::function<long()>& body, std::string& why) {
    (void)why;
    return body();
  }
};

}  // namespace PIM
