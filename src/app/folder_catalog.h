// Every folder of every store in the session, by path ("Store/Folder/Sub")
// and by identity, so that the command line can show and choose the folders
// to capture by name.
#pragma once

#include <string>
#include <vector>

#include "mapi/entry_id.h"
#include "mapi/mapi.h"
#include "prefs/folder_kind.h"

namespace PIM {

class FolderCatalog {
 public:
  struct Folder {
    std::u16string path;
    OutlookFolder identity;  // long-term identifiers
    // The kind it may be chosen for, by its container class.
    FolderNodeType type = kNodeOther;
  };

  // Reads the stores table and each store's folder tree below its top of
  // information store (the root when it has none). Stores that cannot be
  // opened are left out.
  explicit FolderCatalog(IMAPISession* session);

  const std::vector<Folder>& folders() const { return folders_; }
  // The folder of that path (letter case ignored) or of that identity.
  const Folder* byPath(const std::u16string& path) const;
  const Folder* byIdentity(const OutlookFolder& identity) const;
  // The path of a chosen folder, or its identifier in hexadecimal when the
  // folder is not in the session any more.
  std::u16string describe(const OutlookFolder& identity) const;

 private:
  // `inboxId`: the default store's Inbox, empty for other stores.
  void addTree(IMsgStore* store, const EntryId& storeId, const std::u16string& storeName,
               const EntryId& inboxId);
  std::vector<Folder> folders_;
};

}  // namespace PIM
