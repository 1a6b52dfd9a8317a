// The text form of the file key store: a tree of keys and typed values, and
// its parser and writer. Portable, so that it is tested and fuzzed on every
// platform; the POSIX key store keeps its settings in this form.
//
// The file is UTF-8 text, one item a line:
//
//   ferrant-keystore 2
//   ; comment lines start with a semicolon and are not kept on rewrite
//   "RootValue"=dword:00000001          values before the first key are the root's
//
//   [Software\Corvel\CVTK]              a key: its full path below the root
//   "Frequency"=dword:0000000f          type 4, 32 bits little-endian, in hexadecimal
//   "Folders"=hex:01,02,ff,\            type 3, bytes in hexadecimal; a line ending
//     10,20                             in ",\" goes on in the next line
//   "Title"=sz:"a \"b\" \\ \u0009"      type 1, UTF-16 with its terminating NUL
//   ""=hex(7):00,00                     any other type number, or bytes the forms
//                                       above cannot hold, as hex(<type>)
//
//   ; end of settings                   the last line: a file without it was cut
//                                       short (format 1 had none)
//
// Names and texts are in double quotes; \\, \" and \uXXXX (one UTF-16 unit,
// used for control characters and unpaired surrogates) are the escapes. Key
// names are compared without regard to ASCII case, as the registry compares
// them, and keep the spelling they were first given. The number in the first
// line is the format's version: a reader refuses a higher one rather than
// guess at it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace PIM::keyfile {

inline constexpr int kFormatVersion = 2;

// Key and value names compare equal when they differ only in ASCII case.
bool sameName(const std::u16string& a, const std::u16string& b);

// A name one key level may have: 1 to 255 units, no backslash, no control
// character, no unpaired surrogate.
bool isValidKeyName(const std::u16string& name);

struct KeyValue {
  std::u16string name;
  uint32_t type = 0;
  std::string data;  // the value's bytes
  bool operator==(const KeyValue&) const = default;
};

// One key: its values and subkeys in the order they were first written.
class KeyNode {
 public:
  explicit KeyNode(std::u16string name = {}) : name_(std::move(name)) {}
  KeyNode(const KeyNode&) = delete;
  KeyNode& operator=(const KeyNode&) = delete;
  KeyNode(KeyNode&&) = default;
  KeyNode& operator=(KeyNode&&) = default;

  const std::u16string& name() const { return name_; }
  const std::vector<KeyValue>& values() const { return values_; }
  size_t subkeyCount() const { return subkeys_.size(); }
  const KeyNode& subkey(size_t i) const { return *subkeys_[i]; }

  KeyNode* findSubkey(const std::u16string& name);
  const KeyNode* findSubkey(const std::u16string& name) const;
  // The subkey of that name, created at the end when missing.
  KeyNode& addSubkey(const std::u16string& name);
  bool removeSubkey(const std::u16string& name);

  const KeyValue* findValue(const std::u16string& name) const;
  // Creates the value or replaces its type and data, keeping its place and
  // first spelling. Returns false when the value was already exactly so.
  bool setValue(const std::u16string& name, uint32_t type, std::string data);
  // Removes every value and subkey.
  void clear();

  // Deep comparison, names compared exactly.
  bool operator==(const KeyNode& other) const;

 private:
  std::u16string name_;
  std::vector<KeyValue> values_;
  std::vector<std::unique_ptr<KeyNode>> subkeys_;  // owned; stable addresses
};

// The key at `path` (one name a level) below `root`, or null.
const KeyNode* findPath(const KeyNode& root, const std::vector<std::u16string>& path);
KeyNode* findPath(KeyNode& root, const std::vector<std::u16string>& path);

struct ParseProblem {
  size_t line = 0;  // 1-based
  std::string reason;
};

struct ParsedStore {
  KeyNode root;
  // The version in the first line; 0 when the text was empty or had none.
  int version = 0;
  // A version above kFormatVersion: nothing else was read.
  bool newerFormat = false;
  // Lines that could not be read; everything else is in `root`.
  std::vector<ParseProblem> problems;
};

// Never fails and never crashes: any bytes give a tree, plus the problems
// met. Empty or blank text is an empty store without problems.
ParsedStore parseStoreText(std::string_view text);

// The text of a store; parseStoreText gives the same tree back.
std::string storeText(const KeyNode& root);

}  // namespace PIM::keyfile
