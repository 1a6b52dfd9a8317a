// Registration scripts: the brace format COM servers keep as "REGISTRY"
// resources, read into a tree and applied to a registry in add or removal
// mode. The registry itself is behind RegistryTarget, so the rules below run
// the same against the Windows registry and against a map in a test.
//
//   HKCR
//   {
//     NoRemove AppID
//     {
//       '%APPID%' = s 'Ferrant'
//       'Ferrant.DLL' { val AppID = s '%APPID%' }
//     }
//   }
//
// Grammar: a script is root blocks `ROOT { key... }`, ROOT one of HKCR, HKCU,
// HKLM or HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE. A key is
// `[NoRemove|ForceRemove|Delete] NAME [= s 'TEXT' | = d 'NUMBER'] [{ ... }]`,
// its body holding keys and values `val NAME = s|d 'VALUE'`. Names are quoted
// ('...', '' for a quote inside) or bare; a bare name runs to the next blank,
// '=' or quote, so GUIDs in braces are names and the braces of a body stand
// apart. Keywords, roots and types are matched ignoring case. `%NAME%` is
// replaced in names and values by the caller's text (taken as it is, quotes
// and all); `%%` is one percent sign.
//
// Add mode creates every key and writes its values; ForceRemove first
// deletes the key with everything under it; Delete deletes the key (its body
// is not applied). Removal mode deletes every key with everything under it,
// except NoRemove keys (and the roots), which stay: only their bodies are
// processed and their `val` values deleted. Deleting what is not there
// succeeds, and adding twice leaves the same keys and values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/key_store.h"

namespace PIM {

enum class RegistryRoot { ClassesRoot, CurrentUser, LocalMachine };

// "HKCR", "HKCU", "HKLM".
const char* registryRootName(RegistryRoot root);

struct ScriptValue {
  enum class Type { String, Dword };
  // Empty for a key's default value.
  std::u16string name;
  Type type = Type::String;
  std::u16string text;  // String
  uint32_t number = 0;  // Dword
  int line = 0;

  bool operator==(const ScriptValue&) const = default;
};

struct ScriptKey {
  enum class Flag { None, NoRemove, ForceRemove, Delete };
  std::u16string name;
  Flag flag = Flag::None;
  std::optional<ScriptValue> defaultValue;
  std::vector<ScriptValue> values;  // the `val` lines, in script order
  std::vector<ScriptKey> subkeys;
  int line = 0;

  bool operator==(const ScriptKey&) const = default;
};

struct ScriptRoot {
  RegistryRoot root = RegistryRoot::ClassesRoot;
  std::vector<ScriptKey> keys;
  int line = 0;

  bool operator==(const ScriptRoot&) const = default;
};

struct RegistryScript {
  std::vector<ScriptRoot> roots;
};

// What replaces %NAME%: pairs of a name (without the percent signs, matched
// ignoring case) and its text.
using ScriptSubstitutions = std::vector<std::pair<std::u16string, std::u16string>>;

struct ScriptError {
  int line = 0;  // 1-based line of the script where the fault is
  std::string message;
  // "line 4: ..." for a log line.
  std::string describe() const;
};

// Reads `text` into `out`. On a fault returns false with the first fault's
// line and what is wrong; `out` is then unspecified.
bool parseRegistryScript(std::u16string_view text, const ScriptSubstitutions& substitutions,
                         RegistryScript& out, ScriptError& error);

// A script's bytes as text: UTF-16LE after its byte-order mark, otherwise
// UTF-8 (a leading UTF-8 mark is skipped). False, with `text` empty, for
// bytes that are neither.
bool decodeRegistryScript(std::string_view bytes, std::u16string& text);

// The registry as the applier sees it. Results are Win32 error codes
// (kKeyOk, kKeyNotFound for a key or value that is not there, ...).
// Handles come from root(), createKey or openKey; the applier closes every
// handle but the roots'.
class RegistryTarget {
 public:
  virtual ~RegistryTarget() = default;
  // Never fails; the handle needs no closing.
  virtual KeyHandle root(RegistryRoot root) = 0;
  // Opens `name` (one level) below `parent`, creating it where missing.
  virtual long createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) = 0;
  // Opens an existing key for reading, writing and deleting below it.
  virtual long openKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) = 0;
  virtual void closeKey(KeyHandle key) = 0;
  // An empty name is the key's default value.
  virtual long setString(KeyHandle key, const std::u16string& name, const std::u16string& text) = 0;
  virtual long setDword(KeyHandle key, const std::u16string& name, uint32_t value) = 0;
  virtual long deleteValue(KeyHandle key, const std::u16string& name) = 0;
  // Deletes `name` below `parent` with everything under it.
  virtual long deleteTree(KeyHandle parent, const std::u16string& name) = 0;
};

struct ScriptApplyResult {
  long error = kKeyOk;  // the first failure's code
  // "HKLM\Software\...: what failed (script line 4)", empty on success.
  std::string where;
  bool ok() const { return error == kKeyOk; }
};

// Applies `script`. Add mode stops at the first failure (the caller may
// remove what was written); removal mode carries on past a failure so that
// as much as possible goes, and tells the first one.
ScriptApplyResult applyRegistryScript(const RegistryScript& script, RegistryTarget& target,
                                      bool registering);

}  // namespace PIM
