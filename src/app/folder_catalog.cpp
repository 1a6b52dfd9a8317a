#include "app/folder_catalog.h"

#include <exception>

#include "core/debug_logger.h"
#include "mapi/mapi_ptr.h"
#include "mapi/mapi_table.h"
#include "mapi/outlook_utils.h"

namespace PIM {

namespace {

bool sameIgnoringCase(const std::u16string& a, const std::u16string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char16_t x = a[i], y = b[i];
    if (x >= u'A' && x <= u'Z') x = static_cast<char16_t>(x - u'A' + u'a');
    if (y >= u'A' && y <= u'Z') y = static_cast<char16_t>(y - u'A' + u'a');
    if (x != y) return false;
  }
  return true;
}

}  // namespace

FolderCatalog::FolderCatalog(IMAPISession* session) {
  PIM_ENTRY("PIM::FolderCatalog::FolderCatalog");
  if (!session) return;
  try {
    ComPtr<IMAPITable> stores;
    if (FAILED(session->GetMsgStoresTable(0, stores.put()))) return;
    MAPITable table(stores.get());
    if (FAILED(table.setColumns({PR_DISPLAY_NAME_W, PR_ENTRYID, PR_DEFAULT_STORE}))) return;
    while (MAPIProperties* row = table.getNextRow()) {
      std::u16string name;
      EntryId storeId;
      bool isDefault = false;
      row->getWstring(PR_DISPLAY_NAME_W, name);
      row->getBool(PR_DEFAULT_STORE, isDefault);
      if (row->getEntryId(PR_ENTRYID, storeId) != S_OK) continue;
      ComPtr<IMsgStore> store;
      if (FAILED(OutlookUtils::getMsgStore(session, storeId, store))) continue;
      EntryId inboxId;
      if (isDefault) {
        inboxId = OutlookUtils::getMAPIInboxFolderEntryId(store.get());
        inboxId.convertToLongTerm(store.get());
      }
      addTree(store.get(), storeId, name, inboxId);
    }
  } catch (const std::exception& e) {
    PIM_LOG_ERR("Could not list the folders: " << e.what());
  }
}

void FolderCatalog::addTree(IMsgStore* store, const EntryId& storeId,
                            const std::u16string& storeName, const EntryId& inboxId) {
  PIM_ENTRY("PIM::FolderCatalog::addTree");
  ComPtr<IMAPIFolder> top;
  const EntryId subtree = OutlookUtils::getEntryId(store, PR_IPM_SUBTREE_ENTRYID);
  if (subtree.isValid()) {
    if (FAILED(OutlookUtils::getMAPIFolderByEntryId(store, subtree, top))) return;
  } else {
    ULONG type = 0;
    if (FAILED(store->OpenEntry(0, nullptr, nullptr, MAPI_BEST_ACCESS, &type, top.putUnknown())))
      return;
  }
  ComPtr<IMAPITable> hierarchy;
  if (FAILED(top->GetHierarchyTable(CONVENIENT_DEPTH, hierarchy.put()))) return;
  MAPITable table(hierarchy.get());
  if (FAILED(table.setColumns({PR_DISPLAY_NAME_W, PR_ENTRYID, PR_DEPTH, PR_CONTAINER_CLASS_W})))
    return;
  // The names of the folders above the current row, one per depth.
  std::vector<std::u16string> above;
  while (MAPIProperties* row = table.getNextRow()) {
    std::u16string name;
    LONG depth = 1;
    Folder folder;
    row->getWstring(PR_DISPLAY_NAME_W, name);
    row->getLong(PR_DEPTH, depth);
    if (row->getEntryId(PR_ENTRYID, folder.identity.folderId) != S_OK || depth < 1) continue;
    above.resize(static_cast<size_t>(depth) - 1);
    above.push_back(name);
    folder.identity.folderId.convertToLongTerm(store);
    folder.identity.storeId = storeId;
    std::u16string containerClass;
    row->getWstring(PR_CONTAINER_CLASS_W, containerClass);
    folder.type =
        folderNodeType(containerClass, inboxId.isValid() && folder.identity.folderId == inboxId);
    folder.path = storeName;
    for (const std::u16string& part : above) folder.path += u"/" + part;
    folders_.push_back(std::move(folder));
  }
}

const FolderCatalog::Folder* FolderCatalog::byPath(const std::u16string& path) const {
  for (const Folder& folder : folders_)
    if (sameIgnoringCase(folder.path, path)) return &folder;
  return nullptr;
}

const FolderCatalog::Folder* FolderCatalog::byIdentity(const OutlookFolder& identity) const {
  for (const Folder& folder : folders_)
    if (folder.identity == identity) return &folder;
  return nullptr;
}

std::u16string FolderCatalog::describe(const OutlookFolder& identity) const {
  if (const Folder* folder = byIdentity(identity)) return folder->path;
  return u"(not in this store: " + identity.folderId.toWstring() + u")";
}

}  // namespace PIM
