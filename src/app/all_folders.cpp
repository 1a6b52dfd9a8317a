#include "app/all_folders.h"

#include <exception>

#include "core/debug_logger.h"
#include "mapi/mapi_ptr.h"
#include "mapi/mapi_table.h"
#include "mapi/outlook_utils.h"

namespace PIM {

bool listStoreFolders(IMAPISession* session, std::vector<StoreFolder>& folders,
                      std::string& error) {
  PIM_ENTRY("PIM::listStoreFolders");
  folders.clear();
  try {
    const EntryId storeId = OutlookUtils::getDefaultMsgStoreId(session);
    ComPtr<IMsgStore> store;
    if (!storeId.isValid() || FAILED(OutlookUtils::getMsgStore(session, storeId, store))) {
      error = "the default store cannot be opened";
      return false;
    }
    std::u16string storeName;
    {
      MapiBuffer<SPropValue> name;
      if (SUCCEEDED(HrGetOneProp(store.get(), PR_DISPLAY_NAME_W, name.put())))
        storeName = reinterpret_cast<const char16_t*>(name->Value.lpszW);
    }
    EntryId inboxId = OutlookUtils::getMAPIInboxFolderEntryId(store.get());
    if (inboxId.isValid()) inboxId.convertToLongTerm(store.get());
    const auto add = [&](const EntryId& id, const std::u16string& containerClass,
                         std::u16string path) {
      StoreFolder folder;
      folder.identity.folderId = id;
      folder.identity.storeId = storeId;
      folder.type = folderNodeType(containerClass, inboxId.isValid() && id == inboxId);
      folder.path = std::move(path);
      if (folder.type <= kNodeTasks) folders.push_back(std::move(folder));
    };

    EntryId topId = OutlookUtils::getEntryId(store.get(), PR_IPM_SUBTREE_ENTRYID);
    ComPtr<IMAPIFolder> top;
    if (!topId.isValid() || FAILED(OutlookUtils::getMAPIFolderByEntryId(store.get(), topId, top))) {
      error = "the store's top of information store cannot be opened";
      return false;
    }
    topId.convertToLongTerm(store.get());
    std::u16string topClass;
    {
      MapiBuffer<SPropValue> value;
      if (SUCCEEDED(HrGetOneProp(top.get(), PR_CONTAINER_CLASS_W, value.put())))
        topClass = reinterpret_cast<const char16_t*>(value->Value.lpszW);
    }
    add(topId, topClass, storeName);

    ComPtr<IMAPITable> hierarchy;
    if (FAILED(top->GetHierarchyTable(CONVENIENT_DEPTH, hierarchy.put()))) {
      error = "the folders below the top of information store cannot be listed";
      return false;
    }
    MAPITable table(hierarchy.get());
    if (FAILED(table.setColumns(
            {PR_DISPLAY_NAME_W, PR_ENTRYID, PR_DEPTH, PR_CONTAINER_CLASS_W, PR_FOLDER_TYPE}))) {
      error = "the folders below the top of information store cannot be listed";
      return false;
    }
    // The names of the folders above the current row, one per depth.
    std::vector<std::u16string> above;
    while (MAPIProperties* row = table.getNextRow()) {
      std::u16string name, containerClass;
      LONG depth = 1, folderType = FOLDER_GENERIC;
      EntryId id;
      row->getWstring(PR_DISPLAY_NAME_W, name);
      row->getLong(PR_DEPTH, depth);
      row->getLong(PR_FOLDER_TYPE, folderType);
      if (row->getEntryId(PR_ENTRYID, id) != S_OK || depth < 1) continue;
      above.resize(static_cast<size_t>(depth) - 1);
      above.push_back(name);
      if (static_cast<ULONG>(folderType) == FOLDER_SEARCH) continue;
      id.convertToLongTerm(store.get());
      row->getWstring(PR_CONTAINER_CLASS_W, containerClass);
      std::u16string path = storeName;
      for (const std::u16string& part : above) path += u"/" + part;
      add(id, containerClass, std::move(path));
    }
    return true;
  } catch (const std::exception& e) {
    folders.clear();
    error = std::string("the store's folders cannot be listed: ") + e.what();
    return false;
  }
}

}  // namespace PIM
