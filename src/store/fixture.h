// Loads a Profile from a JSON fixture file (format: docs/fixture-format.md).
//
//   try {
//     auto profile = PIM::store::loadFixtureFile(u"tests/mailbox.json");
//   } catch (const PIM::store::FixtureError& e) {
//     // e.what(): "tests/mailbox.json: /stores/0/root/folders/1/items/3/props/2/value:
//     //            PT_SYSTIME wants a date text such as 2024-03-01T09:30:00Z"
//   }
//
// A malformed fixture throws one FixtureError naming the file, the place (a
// JSON pointer, or line and column for bad JSON) and what is wrong; nothing
// else escapes (allocation failure aside).
#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include "store/profile.h"

namespace PIM::store {

class FixtureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::shared_ptr<Profile> loadFixtureFile(const std::u16string& path);

// For reloads: the items already loaded, as item key -> Item::sourceHash.
// A keyed item whose text hashes the same is not built but left `unbuilt`.
using KnownItems = std::unordered_map<std::string, uint64_t>;
struct LoadStats {
  size_t itemsBuilt = 0;  // items of folders built from their text
};
std::shared_ptr<Profile> loadFixtureFile(const std::u16string& path, const KnownItems* known,
                                         LoadStats* stats);
std::shared_ptr<Profile> loadFixtureText(const std::string& text, const std::string& fileName,
                                         const KnownItems* known, LoadStats* stats);
// The same from text; `fileName` names it in errors.
std::shared_ptr<Profile> loadFixtureText(const std::string& text, const std::string& fileName);

// A path as the seam passes it (UTF-16) in the file system library's terms.
std::filesystem::path nativePath(const std::u16string& path);

}  // namespace PIM::store
