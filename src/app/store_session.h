// The message store a ferrant command works on: a store file (a JSON
// fixture of the reference store, or on Linux an Outlook data file) loaded
// and logged on to, its session handed to OutlookApp for as long as the
// command runs, as the add-in hands over Outlook's.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"

namespace PIM {

namespace store {
class Profile;
}

class StoreSession {
 public:
  // The sample mailbox installed with the program, or the one in the source
  // tree when run from a build folder; empty when neither exists.
  static std::u16string defaultStorePath();

  StoreSession() = default;
  ~StoreSession();
  StoreSession(const StoreSession&) = delete;
  StoreSession& operator=(const StoreSession&) = delete;

  // Loads the file and logs on; on failure `error` says why in one line.
  bool open(const std::u16string& path, std::string& error);

  IMAPISession* session() const { return session_.get(); }
  const std::shared_ptr<store::Profile>& profile() const { return profile_; }
  const std::u16string& path() const { return path_; }
  // The file's size and last write as they were just before it was loaded;
  // false when they could not be had.
  bool stampBeforeLoad(uint64_t& size, int64_t& time) const {
    size = fileSize_;
    time = fileTime_;
    return stamped_;
  }
  // How a watcher loads the file again: empty for fixtures (its own
  // loader), the data file loader for Outlook data files.
  const std::function<std::shared_ptr<store::Profile>(const std::u16string&)>& loader() const {
    return loader_;
  }

 private:
  std::u16string path_;
  bool stamped_ = false;
  uint64_t fileSize_ = 0;
  int64_t fileTime_ = 0;
  std::shared_ptr<store::Profile> profile_;
  std::function<std::shared_ptr<store::Profile>(const std::u16string&)> loader_;
  ComPtr<IMAPISession> session_;
};

}  // namespace PIM
