// A MAPI profile of the reference store: several message stores (one the
// default), their folder trees and items, and an address book. Tests and the
// fixture loader build and change it through this C++ interface; the system
// reaches it through MAPI, starting from logon().
//
//   auto profile = PIM::store::loadFixtureFile(u"mailbox.json");
//   PIM::ComPtr<IMAPISession> session;
//   profile->logon(session.put());
//   profile->addItem(profile->byKey("inbox"), item);   // the inbox's tables hear of it
//
// Every change to a folder's items notifies the folder's open tables that
// were advised (fnevTableModified): TABLE_ROW_ADDED, TABLE_ROW_MODIFIED or
// TABLE_ROW_DELETED for the row as that table shows it (none when the row is
// outside the table's restriction before and after), and TABLE_CHANGED for
// touchFolder(). Notifications are delivered on the thread that made the
// change, after the profile's lock is released.
//
// Thread safety: every method may be called from any thread; one lock guards
// the whole profile.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "mapi/mapi.h"
#include "store/model.h"

namespace PIM::store {

class TableImpl;
struct PendingNotification;

// A handle on one object of the profile.
struct Ref {
  enum class Kind { None, Store, Folder, Item, AbEntry };
  Kind kind = Kind::None;
  size_t store = 0;
  uint32_t id = 0;  // folder or item nid; address-book index
  bool valid() const { return kind != Kind::None; }
  bool operator==(const Ref& other) const {
    return kind == other.kind && store == other.store && id == other.id;
  }
};

// What a table shows.
struct TableSource {
  enum class Kind {
    Contents,
    Associated,
    Hierarchy,
    DeepHierarchy,
    Stores,
    Attachments,
    Recipients
  };
  Kind kind = Kind::Contents;
  size_t store = 0;
  uint32_t folder = 0;
  std::shared_ptr<Item> item;  // Attachments, Recipients
};

// One row as a table computes it. A contents row starts as its key and its
// item alone: its properties are made the first time a restriction, a sort
// or a read asks for them (Profile::rowProps), so that opening a table of a
// large folder costs a key per item, not a copy of every item.
struct TableRow {
  Bytes instanceKey;
  mutable PropList props;
  std::shared_ptr<Item> item;  // contents rows: for sub-object restrictions
  size_t store = 0;            // contents rows: the item's store
  mutable bool pending = false;
};

class Profile : public std::enable_shared_from_this<Profile> {
 public:
  static std::shared_ptr<Profile> create();
  ~Profile();
  Profile(const Profile&) = delete;
  Profile& operator=(const Profile&) = delete;

  // ---- Building --------------------------------------------------------
  // A new store with an empty root folder; returns its index. Its uid (inside
  // all its entry ids) follows from the index, so identifiers are the same
  // on every load of the same fixture.
  size_t addStore(const std::u16string& name, bool isDefault, const StoreOptions& options = {});
  size_t storeCount() const;
  Ref storeRef(size_t store) const;
  Ref rootFolder(size_t store) const;
  Ref addFolder(const Ref& parent, const std::u16string& name,
                const std::u16string& containerClass = u"");
  void setIpmSubtree(const Ref& folder);
  // The receive folder of a message class ("" = the default one).
  void setReceiveFolder(const Ref& folder, const std::string& messageClass = "");
  Ref addAbEntry(PropList props);
  // The store's property id of a named property, registered when new.
  ULONG namedPropId(size_t store, const PropName& name);
  // Sets a property of a store, folder, item (notifies) or address-book entry.
  bool setProp(const Ref& target, Prop prop);

  // ---- Changing items (each notifies the folder's tables) ------------------
  Ref addItem(const Ref& folder, Item item);
  // The same at `position` among the folder's items (both kinds; past the
  // end = last).
  Ref insertItem(const Ref& folder, Item item, size_t position);
  bool modifyItem(const Ref& item, const std::vector<Prop>& set,
                  const std::vector<ULONG>& removeIds = {});
  bool deleteItem(const Ref& item);
  // Gives the item `content`'s properties, recipients, attachments and kind,
  // and moves it to `position` among its folder's items; it keeps its entry
  // id. One notification, as for modifyItem.
  bool replaceItem(const Ref& item, Item content, size_t position);
  // Tells the folder's tables that it changed without changing an item.
  void touchFolder(const Ref& folder);

  // ---- Finding ---------------------------------------------------------------
  void setKey(const std::string& key, const Ref& ref);
  Ref byKey(const std::string& key) const;
  std::map<std::string, Ref> keys() const;
  void replaceKeys(std::map<std::string, Ref> keys);
  // A folder by display names below the root, joined by '/'.
  Ref findFolder(size_t store, const std::u16string& path) const;
  // A copy of an item as stored (for tests).
  std::shared_ptr<const Item> itemCopy(const Ref& item) const;

  // ---- Identifiers -------------------------------------------------------
  // Long-term: of a store, folder, item or address-book entry; empty when
  // the object does not exist.
  Bytes entryId(const Ref& ref) const;
  // Short-term (folders and items), valid in this profile's sessions only.
  Bytes shortTermEntryId(const Ref& ref) const;
  uint32_t sessionNumber() const { return session_; }

  // ---- MAPI ------------------------------------------------------------------
  // A session on this profile; the caller owns one reference.
  HRESULT logon(LPMAPISESSION* session);

  // ---- For the store's own MAPI objects --------------------------------------
  std::recursive_mutex& mutex() const { return lock_; }
  // Under mutex():
  Store* storeAt(size_t index);
  Store* storeByUid(const Bytes& uid, size_t* index);
  AbEntry* abEntry(uint32_t index);
  std::shared_ptr<Folder> folder(size_t store, uint32_t nid);
  std::shared_ptr<Item> item(size_t store, uint32_t nid);
  PropList storeProps(size_t store);
  PropList folderProps(size_t store, const Folder& folder, bool forTable);
  PropList itemProps(size_t store, const Item& item, bool forTable);
  // A row's properties, made now when the row was made without them.
  const PropList& rowProps(const TableRow& row);
  // One property of an item's contents-table row (what rowProps would hold)
  // without making the others: a value of the item itself, or one the store
  // computes into `scratch`; null when the row has none.
  const Prop* itemRowProp(size_t store, const Item& item, ULONG propId, Prop& scratch);
  // The PR_INSTANCE_KEY of a folder's or item's row.
  Bytes instanceKey(size_t store, uint32_t nid) const;
  // The tags of rowProps(row) in their order, without copying the values.
  void rowPropTags(const TableRow& row, std::vector<ULONG>& tags);
  PropList attachmentProps(const Attachment& attachment);
  PropList recipientProps(const Recipient& recipient, size_t row);
  PropList abProps(uint32_t index);
  std::vector<TableRow> rows(const TableSource& source);
  // Grows with every change; tables other than contents tables recompute
  // their rows when it moved (contents tables follow each item change).
  uint64_t version() const { return version_; }
  void registerTable(TableImpl* table);
  void unregisterTable(TableImpl* table);

 private:
  Profile();
  Ref refOf(size_t store, const Folder* folder) const;
  void indexItem(Store& store, const std::shared_ptr<Item>& item, Folder* parent);
  // Under the lock, right after the change: brings every contents table of
  // the folder up to date with `changed` (null: no item changed, only
  // TABLE_CHANGED), which is in the folder when `present`, and collects their
  // notifications to deliver once the lock is released.
  void collectFolder(size_t store, uint32_t folderNid, const Item* changed, bool present,
                     std::vector<PendingNotification>& out);
  static void deliver(std::vector<PendingNotification>& pending);
  // What itemProps adds to an item's own properties.
  void addComputedItemProps(size_t store, const Item& it, bool forTable, PropList& out);
  // One of those values; false when the item gets none of that identifier.
  // `tagOnly`: only out's tag is meant; costly values are left empty.
  bool computedItemProp(size_t store, const Item& it, bool forTable, ULONG propId, Prop& out,
                        bool tagOnly = false);

  mutable std::recursive_mutex lock_;  // guards everything below
  std::vector<std::unique_ptr<Store>> stores_;
  std::vector<AbEntry> addressBook_;
  std::map<std::string, Ref> keys_;
  std::vector<TableImpl*> tables_;
  uint32_t session_;
  uint64_t version_ = 1;
};

}  // namespace PIM::store
