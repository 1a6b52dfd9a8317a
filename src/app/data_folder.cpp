#include "app/data_folder.h"

#include <vector>

#include "app/data_folder_lock.h"
#include "data/data_file.h"
#include "platform/env.h"

namespace PIM {

namespace {
// Made and removed at once; like the lock file, no run's clean-up matches it.
constexpr char16_t kProbeName[] = u".ferrant.probe";
}  // namespace

DataFolderState inspectDataFolder(const std::u16string& folder) {
  std::vector<FolderEntry> entries;
  if (!env()->listFolder(folder, entries)) return DataFolderState::NotAFolder;
  bool others = false;
  for (const FolderEntry& entry : entries) {
    if (entry.name == kDataDirectoryName || entry.name == kDataFolderLockName) {
      return DataFolderState::Usable;
    }
    if (entry.name != kProbeName) others = true;
  }
  return others ? DataFolderState::Foreign : DataFolderState::Usable;
}

DataFolderLock::DataFolderLock(std::u16string folder)
    : path_(std::move(folder) + kPathSeparator + kDataFolderLockName) {}

DataFolderLock::~DataFolderLock() = default;

void DataFolderLock::release() { handle_.reset(); }

bool DataFolderLock::held() const { return handle_ != nullptr; }

bool canWriteInto(const std::u16string& folder) {
  const std::u16string probe = folder + kPathSeparator + kProbeName;
  if (!env()->openForWriting(probe)) return false;
  env()->removeFile(probe);
  return true;
}

}  // namespace PIM
