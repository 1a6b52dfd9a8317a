// Following a fixture file as it is edited: a loaded profile takes in a new
// load of the same file, changing only the items that differ, so that only
// the folders whose items changed notify their tables (and get captured
// again).
//
//   auto live = PIM::store::loadFixtureFile(u"box.json");
//   PIM::store::FixtureWatcher watcher(live, u"box.json");
//   ...  // once a second, from the command's event loop:
//   ReloadResult r = watcher.check();
//   if (r.status == ReloadResult::Status::Applied)
//     for (const ChangedFolder& f : r.folders) ...;   // f.path: "Top/Inbox"
//
// Items are matched by their fixture "key"; items without one by their place
// among the keyless items of their folder. A matched item whose content or
// place changed is replaced in place (it keeps its entry id: one
// TABLE_ROW_MODIFIED); others are added (TABLE_ROW_ADDED) or deleted
// (TABLE_ROW_DELETED). Everything else -- stores, folders, their names,
// classes and properties, named-property registrations, the address book --
// the live profile cannot follow: such a file is refused whole with
// RestartNeeded and the live profile stays as it was.
//
// Notifications are delivered on the calling thread, one change at a time,
// outside the profile's lock. The reload is not atomic against changes that
// other threads make to the same profile meanwhile.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "store/fixture.h"
#include "store/profile.h"

namespace PIM::store {

struct ChangedFolder {
  Ref folder;
  std::u16string path;  // display names below the store's root, joined by '/'
};

struct ReloadResult {
  enum class Status {
    Unchanged,      // nothing differs (or, from the watcher, the file did not change)
    Pending,        // watcher only: the file changed but does not load yet; tried again next time
    Applied,        // `folders` changed
    RestartNeeded,  // `error` says what the live profile cannot follow
    LoadFailed,     // `error` is the loader's text
  };
  Status status = Status::Unchanged;
  std::vector<ChangedFolder> folders;  // in file order
  std::string error;
  size_t itemsBuilt = 0;  // reloadFixtureFile: items built from the file's text
};

// Brings `live` in line with `fresh`, a newer load of the same fixture.
// `fresh` is only read; it may be dropped afterwards.
ReloadResult reloadProfile(Profile& live, Profile& fresh);

// The items of `live` that still hold what their fixture text said, for
// loadFixtureFile/Text to leave unbuilt (then reloadProfile takes them as
// equal to their live namesakes).
KnownItems knownItems(Profile& live);

// Loads `path` and applies it as reloadProfile does; a file that does not
// load gives LoadFailed with the loader's text and changes nothing.
ReloadResult reloadFixtureFile(Profile& live, const std::u16string& path);

// Loads a store file of another kind (a data file) for the watcher; throws
// an exception whose text is one line when the file does not load.
using StoreFileLoader = std::function<std::shared_ptr<Profile>(const std::u16string& path)>;

// Polls a fixture file's modification time and size and applies each new
// version to the profile loaded from it. Make it right after loading the
// profile: the file as it is then counts as loaded. Use from one thread.
class FixtureWatcher {
 public:
  // `load` reads files that are not fixtures; empty = the fixture loader.
  FixtureWatcher(std::shared_ptr<Profile> live, std::u16string path, StoreFileLoader load = {});

  // Unchanged when the file looks as it did at the last check. Otherwise the
  // file is loaded and applied: Applied, Unchanged (same content) or
  // RestartNeeded. Editors write in several steps, so a file that does not
  // load is Pending once and tried again at the next check even when it
  // looks the same; only a second failure of the same version is reported
  // (LoadFailed, once).
  ReloadResult check();

 private:
  struct Stamp {
    bool exists = false;
    std::filesystem::file_time_type time{};
    uintmax_t size = 0;
    bool operator==(const Stamp& other) const = default;
  };
  Stamp stamp() const;

  std::shared_ptr<Profile> live_;
  std::u16string path_;
  StoreFileLoader load_;
  Stamp seen_;          // the version last looked at
  bool retry_ = false;  // seen_ failed to load once and gets one more try
};

}  // namespace PIM::store
