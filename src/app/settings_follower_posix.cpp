#include <sys/stat.h>

#include "app/settings_follower.h"
#include "platform/env.h"
#include "platform/posix/file_key_store.h"

namespace PIM {

namespace {
// The settings file of the key store in force, if it keeps one.
std::string settingsFile() {
  const auto* file = dynamic_cast<const FileKeyStore*>(&env()->keyStore());
  return file ? file->path() : std::string();
}
}  // namespace

SettingsFollower::SettingsFollower() : path_(settingsFile()), seen_(stamp()) {}

SettingsFollower::Stamp SettingsFollower::stamp() const {
  struct stat st;
  if (path_.empty() || stat(path_.c_str(), &st) != 0) return {};
  return {true,
          static_cast<uint64_t>(st.st_dev),
          static_cast<uint64_t>(st.st_ino),
          static_cast<uint64_t>(st.st_size),
          static_cast<int64_t>(st.st_mtim.tv_sec),
          static_cast<int64_t>(st.st_mtim.tv_nsec)};
}

}  // namespace PIM
