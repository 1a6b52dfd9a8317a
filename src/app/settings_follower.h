// Notices that the settings were changed by another process (`ferrant
// prefs set` while `ferrant watch` runs), as the add-in learns of them
// from its own preferences sheet. Off Windows the settings are a file that
// every change replaces whole, so a new version has a new inode, time or
// size; the registry is not followed.
#pragma once

#include <cstdint>
#include <string>

namespace PIM {

class SettingsFollower {
 public:
  // The settings as they are now count as seen.
  SettingsFollower();
  // True once for each version of the settings not seen before.
  bool changed() {
    const Stamp now = stamp();
    if (now == seen_) return false;
    seen_ = now;
    return true;
  }
  // The file followed; empty when there is none.
  const std::string& path() const { return path_; }

 private:
  struct Stamp {
    bool exists = false;
    uint64_t device = 0, inode = 0, size = 0;
    int64_t seconds = 0, nanoseconds = 0;
    bool operator==(const Stamp&) const = default;
  };
  Stamp stamp() const;

  std::string path_;
  Stamp seen_;
};

}  // namespace PIM
