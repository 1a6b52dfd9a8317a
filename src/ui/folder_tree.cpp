#include "ui/folder_tree.h"

#include <algorithm>

#include "core/debug_logger.h"
#include "core/stack_logger.h"
#include "mapi/com_error.h"
#include "mapi/mapi_properties.h"
#include "mapi/mapi_ptr.h"
#include "mapi/mapi_table.h"
#include "mapi/outlook_utils.h"

namespace PIM {

namespace {

std::vector<OutlookFolder>* listOf(PreferenceValues& values, uint32_t type) {
  switch (type) {
    case kNodeCalendar:
      return &values.calendar.folders;
    case kNodeContacts:
      return &values.contacts.folders;
    case kNodeEmail:
      return &values.email.folders;
    case kNodeTasks:
      return &values.tasks.folders;
    default:
      return nullptr;
  }
}

const std::vector<OutlookFolder>* listOf(const PreferenceValues& values, uint32_t type) {
  return listOf(const_cast<PreferenceValues&>(values), type);
}

bool isCapturable(uint32_t type) { return type <= kNodeTasks; }

}  // namespace

int imageIndexFromType(uint32_t type) {
  static constexpr int kImages[] = {2, 3, 4, 5, 7, 6, 8};
  return type < std::size(kImages) ? kImages[type] : 8;
}

bool FolderNode::operator<(const FolderNode& other) const {
  const bool store = type == kNodeStore;
  const bool otherStore = other.type == kNodeStore;
  if (store || otherStore) return store && !otherStore;
  return name < other.name;  // code unit by code unit
}

HRESULT FolderTree::findDefaultStore(IMAPISession* session) {
  PIM_ENTRY("PIM::FolderPage::findDefaultStore");
  ComPtr<IMsgStore> store;
  const HRESULT hr = OutlookUtils::getDefaultMsgStore(session, store);
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to open the default message store.");
    return hr;
  }
  inboxId = OutlookUtils::getMAPIInboxFolderEntryId(store.get());
  defaultStoreId = OutlookUtils::getDefaultMsgStoreId(session);
  return S_OK;
}

void FolderTree::buildFolderList(IMAPISession* session) {
  PIM_ENTRY("PIM::FolderPage::buildFolderList");
  roots.clear();
  ComPtr<IMAPITable> stores;
  HRESULT hr = session ? session->GetMsgStoresTable(0, stores.put()) : E_INVALIDARG;
  if (FAILED(hr)) {
    PIM_LOG_ERR("Could not get message stores table.");
    PIM_LOG_HR(hr, "Could not get message stores table.");
    return;
  }
  try {
    MAPITable table(stores.get());
    hr = table.setColumns({PR_DISPLAY_NAME_W, PR_DEFAULT_STORE, PR_ENTRYID});
    if (FAILED(hr)) {
      PIM_LOG_ERR("Could not get message stores table.");
      PIM_LOG_HR(hr, "Could not get message stores table.");
      return;
    }
    while (!stop) {
      const MAPIProperties* row = table.getNextRow();
      if (!row) break;
      bool isDefault = false;
      (void)row->getBool(PR_DEFAULT_STORE, isDefault);
      // Only the default store is offered: its folders are the ones a
      // capture is set up for.
      if (!isDefault) continue;
      FolderNode storeNode;
      storeNode.type = kNodeStore;
      (void)row->getWstring(PR_DISPLAY_NAME_W, storeNode.name);
      if (FAILED(row->getEntryId(PR_ENTRYID, storeNode.storeId)) || !storeNode.storeId.isValid()) {
        PIM_LOG_ERR("Failed to get the store entry id.");
        continue;
      }
      ComPtr<IMsgStore> store;
      if (FAILED(OutlookUtils::getMsgStore(session, storeNode.storeId, store))) {
        PIM_LOG_ERR("Failed to get the store interface.");
        continue;
      }
      const EntryId starting[] = {OutlookUtils::getMAPIInboxFolderEntryId(store.get()),
                                  OutlookUtils::getMAPIDefaultCalendarFolderEntryId(store.get()),
                                  OutlookUtils::getMAPIDefaultContactsFolderEntryId(store.get()),
                                  OutlookUtils::getMAPIDefaultTasksFolderEntryId(store.get())};
      for (const EntryId& folderId : starting) {
        if (stop) break;
        if (!folderId.isValid()) continue;
        FolderNode node;
        node.folderId = folderId;
        node.storeId = storeNode.storeId;
        try {
          ComPtr<IMAPIFolder> folder;
          if (FAILED(OutlookUtils::getMAPIFolderByEntryId(store.get(), folderId, folder))) continue;
          MAPIProperties props(folder.get(), {PR_DISPLAY_NAME_W, PR_CONTAINER_CLASS_W});
          (void)props.getWstring(PR_DISPLAY_NAME_W, node.name);
          std::u16string containerClass;
          (void)props.getWstring(PR_CONTAINER_CLASS_W, containerClass);
          node.type = folderNodeType(containerClass, false);
        } catch (const ComError& error) {
          PIM_LOG_ERR("Error retrieving mail user properties:" << error.what());
          continue;
        } catch (...) {
          PIM_LOG_ERR("Unknown error retrieving mail user properties.");
          continue;
        }
        const bool below = ennumerateFolders(store.get(), node.storeId, folderId, node.children);
        node.capturable = isCapturable(node.type) || below;
        storeNode.capturable = storeNode.capturable || node.capturable;
        storeNode.children.push_back(std::move(node));
      }
      roots.push_back(std::move(storeNode));
    }
    if (FAILED(table.rowError())) {
      PIM_LOG_ERR("Failed to retrieve data from the stores table:" << hrText(table.rowError()));
    }
  } catch (const ComError& error) {
    PIM_LOG_ERR("Failed to retrieve data from the stores table:" << error.what());
  } catch (...) {
    PIM_LOG_ERR("Failed to retrieve data from the stores table.");
  }
}

bool FolderTree::ennumerateFolders(IMsgStore* store, const EntryId& storeId,
                                   const EntryId& folderId, std::vector<FolderNode>& children) {
  PIM_ENTRY("PIM::FolderPage::ennumerateFolders");
  bool capturable = false;
  ComPtr<IMAPIFolder> folder;
  if (FAILED(OutlookUtils::getMAPIFolderByEntryId(store, folderId, folder))) return false;
  ComPtr<IMAPITable> hierarchy;
  const HRESULT hr =
      folder->GetHierarchyTable(MAPI_UNICODE | MAPI_DEFERRED_ERRORS, hierarchy.put());
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Failed to get folder table.");
    return false;
  }
  try {
    MAPITable table(hierarchy.get());
    const HRESULT columns =
        table.setColumns({PR_ENTRYID, PR_LONGTERM_ENTRYID_FROM_TABLE, PR_DISPLAY_NAME_W,
                          PR_SUBFOLDERS, PR_CONTAINER_CLASS_W});
    if (FAILED(columns)) {
      PIM_LOG_HR(columns, "Failed to get folder table.");
      return false;
    }
    while (!stop) {
      const MAPIProperties* row = table.getNextRow();
      if (!row) break;
      FolderNode node;
      node.storeId = storeId;
      (void)row->getEntryId(PR_ENTRYID, node.folderId);
      EntryId longTerm;
      (void)row->getEntryId(PR_LONGTERM_ENTRYID_FROM_TABLE, longTerm);
      // A short-term identifier is good for this session only; the lists
      // keep a folder for the next ones.
      if (!node.folderId.isValid() || (!node.folderId.isLongTerm() && longTerm.isValid()))
        node.folderId = longTerm;
      if (!node.folderId.isValid()) {
        PIM_LOG_ERR("Could not get an EntryID for this folder.");
        continue;
      }
      (void)row->getWstring(PR_DISPLAY_NAME_W, node.name);
      bool hasSubfolders = false;
      (void)row->getBool(PR_SUBFOLDERS, hasSubfolders);
      std::u16string containerClass;
      (void)row->getWstring(PR_CONTAINER_CLASS_W, containerClass);
      node.type = folderNodeType(containerClass, false);
      node.capturable = isCapturable(node.type);
      if (hasSubfolders && ennumerateFolders(store, storeId, node.folderId, node.children))
        node.capturable = true;
      capturable = capturable || node.capturable;
      children.push_back(std::move(node));
    }
  } catch (const ComError& error) {
    PIM_LOG_ERR("Failed to get folder table:" << error.what());
  } catch (...) {
    PIM_LOG_ERR("Unknown error. Failed to get folder table.");
  }
  std::stable_sort(children.begin(), children.end());
  return capturable;
}

void FolderTree::buildTree(CheckTreeSink& tree, CheckTreeSink::Item parent,
                           std::vector<FolderNode>& nodes, const PreferenceValues& values) {
  PIM_ENTRY("PIM::FolderPage::buildTree");
  if (!loaded) PIM_LOG_ERR("Attempt to build tree before the data is loaded.");
  for (FolderNode& node : nodes) {
    // The Inbox is always offered for e-mail, whatever its class says.
    if (node.type == kNodeOther && node.folderId == inboxId && node.storeId == defaultStoreId)
      node.type = kNodeEmail;
    const int image = imageIndexFromType(node.type);
    if (node.type == 4 || node.type == kNodeStore) {
      node.item = tree.insertItem(node.name, kCheckNone, parent, image);
    } else if (const std::vector<OutlookFolder>* chosen = listOf(values, node.type)) {
      const OutlookFolder folder{node.folderId, node.storeId};
      const bool ticked = std::find(chosen->begin(), chosen->end(), folder) != chosen->end();
      node.item = tree.insertItem(node.name, ticked ? kChecked : kUnchecked, parent, image);
    } else {
      continue;  // another kind of folder: neither it nor anything below it
    }
    if (!node.item || node.children.empty()) continue;
    buildTree(tree, node.item, node.children, values);
    tree.expand(node.item);
  }
}

void FolderTree::saveEntries(const CheckTreeSink& tree, const std::vector<FolderNode>& nodes,
                             PreferenceValues& values) const {
  PIM_ENTRY("PIM::FolderPage::saveEntries");
  if (!loaded) PIM_LOG_ERR("Attempt to save data before the data is loaded.");
  for (const FolderNode& node : nodes) {
    std::vector<OutlookFolder>* list = listOf(values, node.type);
    if (list && node.item && tree.getCheckState(node.item) == kChecked)
      list->push_back({node.folderId, node.storeId});
    saveEntries(tree, node.children, values);
  }
}

void FolderTree::applyTo(const CheckTreeSink& tree, PreferenceValues& values) const {
  if (!loaded) return;
  values.calendar.folders.clear();
  values.contacts.folders.clear();
  values.tasks.folders.clear();
  values.email.folders.clear();
  saveEntries(tree, roots, values);
}

}  // namespace PIM
