// The Folders page's rules without its window: the default store's folders
// read into a tree of nodes (on the page's load thread), the nodes shown in
// a check tree with the folders already chosen ticked, and the ticked
// folders written back into the preferences' folder lists.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "mapi/entry_id.h"
#include "mapi/mapi.h"
#include "prefs/folder_kind.h"
#include "prefs/preferences.h"
#include "ui/check_tree_sink.h"

namespace PIM {

// The tree's image of a node type; the "loading" item shows image 7 too.
int imageIndexFromType(uint32_t type);
inline constexpr int kLoadingImage = 7;

struct FolderNode {
  std::u16string name;
  uint32_t type = kNodeOther;
  EntryId folderId;
  EntryId storeId;
  CheckTreeSink::Item item = nullptr;
  std::vector<FolderNode> children;
  // This folder or one below it can be captured.
  bool capturable = false;

  // Stores first; other folders by name, unit by unit (upper case before
  // lower case); two stores are equal.
  bool operator<(const FolderNode& other) const;
};

class FolderTree {
 public:
  // Keeps the default store's identifier and its Inbox's for buildTree;
  // the failure is logged.
  HRESULT findDefaultStore(IMAPISession* session);

  // The load thread's work: the default store as the one root, under it
  // its Inbox, Calendar, Contacts and Tasks and everything below them.
  // Ends early, with part of the tree, when `stop` is set.
  void buildFolderList(IMAPISession* session);
  // The subfolders of `folderId`, recursively, sorted; true when any of
  // them can be captured. A folder whose subfolders cannot be read is kept
  // without them.
  bool ennumerateFolders(IMsgStore* store, const EntryId& storeId, const EntryId& folderId,
                         std::vector<FolderNode>& children);

  // Shows `nodes` under `parent`: stores without a box, capturable folders
  // with one (ticked when in the preferences' list of their kind), any
  // other folder not at all, with nothing below it.
  void buildTree(CheckTreeSink& tree, CheckTreeSink::Item parent, std::vector<FolderNode>& nodes,
                 const PreferenceValues& values);
  // Adds every ticked folder of `nodes` and below to the list of its kind.
  void saveEntries(const CheckTreeSink& tree, const std::vector<FolderNode>& nodes,
                   PreferenceValues& values) const;
  // The page's OK: after a completed load the four lists become exactly the
  // ticked folders; before it they stay as they were.
  void applyTo(const CheckTreeSink& tree, PreferenceValues& values) const;

  // Written by the page's thread, read by the load thread between rows.
  std::atomic<bool> stop{false};
  // Set when the load has completed (page's thread only).
  bool loaded = false;
  std::vector<FolderNode> roots;
  EntryId inboxId;
  EntryId defaultStoreId;
};

}  // namespace PIM
