// The folders an archive capture takes: every folder of the default store's
// top of information store, that folder itself included (some files keep
// mail there), whose kind is captured by the folder tree's rules. Search
// folders and folders outside that tree are never taken.
#pragma once

#include <string>
#include <vector>

#include "mapi/entry_id.h"
#include "mapi/mapi.h"
#include "prefs/folder_kind.h"

namespace PIM {

struct StoreFolder {
  OutlookFolder identity;  // long-term identifiers
  FolderNodeType type = kNodeOther;
  std::u16string path;  // "Store/Folder/Sub"; the store's name for the top
};

// In the hierarchy's order, the top first. False, with `error` set, when the
// default store or its top folder cannot be opened.
bool listStoreFolders(IMAPISession* session, std::vector<StoreFolder>& folders, std::string& error);

}  // namespace PIM
