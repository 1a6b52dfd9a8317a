#include "store/profile.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "store/entry_ids.h"
#include "store/objects.h"
#include "store/props.h"
#include "store/table.h"

namespace PIM::store {
namespace {

std::atomic<uint32_t> nextSession{0x5E550001};

Bytes storeUidFor(size_t index) {
  Bytes uid = {0x9F, 0x3A, 0x51, 0x2C, 0x6E, 0x11, 0x4D, 0x0B, 0x8A, 0x27, 0x5C, 0x0E};
  const uint32_t n = static_cast<uint32_t>(index + 1);
  for (int i = 0; i < 4; ++i) uid.push_back(static_cast<uint8_t>(n >> (8 * i)));
  return uid;
}

Bytes u32Key(uint32_t a, uint32_t b) {
  Bytes key;
  for (uint32_t v : {a, b})
    for (int i = 0; i < 4; ++i) key.push_back(static_cast<uint8_t>(v >> (8 * i)));
  return key;
}

std::u16string joinNames(const Item& item, LONG type) {
  std::u16string out;
  for (const Recipient& r : item.recipients) {
    const Prop* t = r.props.find(PROP_ID(PR_RECIPIENT_TYPE));
    if ((t ? t->num() : MAPI_TO) != type) continue;
    const Prop* name = r.props.find(PROP_ID(PR_DISPLAY_NAME));
    if (!out.empty()) out += u"; ";
    if (name) out += textOf(*name);
  }
  return out;
}

ULONG sizeOf(const Item& item) {
  ULONG size = 0;
  for (const Prop& p : item.props.all()) size += propSize(p);
  for (const Attachment& a : item.attachments) size += static_cast<ULONG>(a.data.size());
  return size;
}

// FNV-1a over everything an item holds, so that its change key moves with
// any edit a reload makes, and only then.
class ContentHash {
 public:
  void add(const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < size; ++i) value_ = (value_ ^ bytes[i]) * 0x100000001B3ull;
  }
  void add(uint64_t number) { add(&number, sizeof number); }
  template <class Text>
  void addText(const Text& text) {
    add(text.size());
    add(text.data(), text.size() * sizeof(text[0]));
  }
  void add(const PropList& props) {
    add(props.all().size());
    for (const Prop& p : props.all()) {
      // The value as held: the same file always loads a value the same way,
      // and a text held in another encoding only costs one more capture.
      add(p.tag);
      add(static_cast<uint64_t>(p.num()));
      add(p.utf8() ? 1 : 0);
      addText(p.bytes());
    }
  }
  void add(const Item& item) {
    add(item.props);
    add(item.associated ? 1 : 0);
    add(item.recipients.size());
    for (const Recipient& r : item.recipients) add(r.props);
    add(item.attachments.size());
    for (const Attachment& a : item.attachments) {
      add(a.props);
      addText(a.data);
      add(a.embedded ? 1 : 0);
      if (a.embedded) add(*a.embedded);
    }
  }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0xCBF29CE484222325ull;
};

void numberAttachments(Item& item) {
  ULONG num = 0;
  for (Attachment& a : item.attachments) {
    a.num = num++;
    if (a.embedded) numberAttachments(*a.embedded);
  }
}

}  // namespace

std::shared_ptr<Profile> Profile::create() { return std::shared_ptr<Profile>(new Profile()); }

Profile::Profile() : session_(nextSession++) {}
Profile::~Profile() = default;

// ---- Building -----------------------------------------------------------------
size_t Profile::addStore(const std::u16string& name, bool isDefault, const StoreOptions& options) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  auto store = std::make_unique<Store>();
  store->name = name;
  store->isDefault = isDefault;
  store->options = options;
  store->uid = storeUidFor(stores_.size());
  store->root = std::make_shared<Folder>();
  store->root->nid = store->nextNid++;
  store->folderIndex[store->root->nid] = store->root;
  stores_.push_back(std::move(store));
  ++version_;
  return stores_.size() - 1;
}

size_t Profile::storeCount() const {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  return stores_.size();
}

Ref Profile::storeRef(size_t store) const {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  return store < stores_.size() ? Ref{Ref::Kind::Store, store, 0} : Ref{};
}

Ref Profile::rootFolder(size_t store) const {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  return store < stores_.size() ? Ref{Ref::Kind::Folder, store, stores_[store]->root->nid} : Ref{};
}

Ref Profile::addFolder(const Ref& parent, const std::u16string& name,
                       const std::u16string& containerClass) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  std::shared_ptr<Folder> p =
      parent.kind == Ref::Kind::Folder ? folder(parent.store, parent.id) : nullptr;
  if (!p) return {};
  Store& s = *stores_[parent.store];
  auto f = std::make_shared<Folder>();
  f->nid = s.nextNid++;
  f->parent = p.get();
  f->props.set(Prop::ofText(PR_DISPLAY_NAME_W, name));
  if (!containerClass.empty()) f->props.set(Prop::ofText(PR_CONTAINER_CLASS_W, containerClass));
  p->folders.push_back(f);
  s.folderIndex[f->nid] = f;
  ++version_;
  return Ref{Ref::Kind::Folder, parent.store, f->nid};
}

void Profile::setIpmSubtree(const Ref& f) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  if (f.kind == Ref::Kind::Folder && f.store < stores_.size()) stores_[f.store]->ipmSubtree = f.id;
  ++version_;
}

void Profile::setReceiveFolder(const Ref& f, const std::string& messageClass) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  if (f.kind != Ref::Kind::Folder || f.store >= stores_.size()) return;
  if (messageClass.empty())
    stores_[f.store]->receiveFolder = f.id;
  else
    stores_[f.store]->receiveFolders[messageClass] = f.id;
  ++version_;
}

Ref Profile::addAbEntry(PropList props) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  addressBook_.push_back(AbEntry{std::move(props)});
  ++version_;
  return Ref{Ref::Kind::AbEntry, 0, static_cast<uint32_t>(addressBook_.size() - 1)};
}

ULONG Profile::namedPropId(size_t store, const PropName& name) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  if (store >= stores_.size()) return 0;
  Store& s = *stores_[store];
  auto it = s.names.find(name);
  if (it != s.names.end()) return it->second;
  if (s.nextNamedId > 0xFFFE) return 0;
  const ULONG id = s.nextNamedId++;
  s.names[name] = id;
  return id;
}

bool Profile::setProp(const Ref& target, Prop prop) {
  if (target.kind == Ref::Kind::Item) return modifyItem(target, {std::move(prop)});
  std::lock_guard<std::recursive_mutex> guard(lock_);
  ++version_;
  switch (target.kind) {
    case Ref::Kind::Store:
      if (Store* s = storeAt(target.store)) {
        s->props.set(std::move(prop));
        return true;
      }
      return false;
    case Ref::Kind::Folder:
      if (auto f = folder(target.store, target.id)) {
        f->props.set(std::move(prop));
        return true;
      }
      return false;
    case Ref::Kind::AbEntry:
      if (AbEntry* e = abEntry(target.id)) {
        e->props.set(std::move(prop));
        return true;
      }
      return false;
    default:
      return false;
  }
}

// ---- Changing items -------------------------------------------------------------
void Profile::indexItem(Store& store, const std::shared_ptr<Item>& item, Folder* parent) {
  item->nid = store.nextNid++;
  item->parent = parent;
  numberAttachments(*item);
  store.itemIndex[item->nid] = item;
}

Ref Profile::addItem(const Ref& folderRef, Item item) {
  return insertItem(folderRef, std::move(item), SIZE_MAX);
}

Ref Profile::insertItem(const Ref& folderRef, Item item, size_t position) {
  PIM_ENTRY("PIM::store::Profile::insertItem");
  Ref added;
  std::vector<PendingNotification> pending;
  {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    auto f = folderRef.kind == Ref::Kind::Folder ? folder(folderRef.store, folderRef.id) : nullptr;
    if (!f) return {};
    auto shared = std::make_shared<Item>(std::move(item));
    indexItem(*stores_[folderRef.store], shared, f.get());
    f->items.insert(f->items.begin() + static_cast<ptrdiff_t>(std::min(position, f->items.size())),
                    shared);
    ++version_;
    added = Ref{Ref::Kind::Item, folderRef.store, shared->nid};
    collectFolder(folderRef.store, folderRef.id, shared.get(), true, pending);
  }
  deliver(pending);
  return added;
}

bool Profile::modifyItem(const Ref& ref, const std::vector<Prop>& set,
                         const std::vector<ULONG>& removeIds) {
  PIM_ENTRY("PIM::store::Profile::modifyItem");
  std::vector<PendingNotification> pending;
  {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    auto it = ref.kind == Ref::Kind::Item ? item(ref.store, ref.id) : nullptr;
    if (!it || !it->parent) return false;
    for (const Prop& p : set) it->props.set(p);
    for (ULONG id : removeIds) it->props.erase(id);
    it->sourceHash = 0;  // no longer what the file said
    ++version_;
    collectFolder(ref.store, it->parent->nid, it.get(), true, pending);
  }
  deliver(pending);
  return true;
}

bool Profile::deleteItem(const Ref& ref) {
  PIM_ENTRY("PIM::store::Profile::deleteItem");
  std::vector<PendingNotification> pending;
  {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    auto it = ref.kind == Ref::Kind::Item ? item(ref.store, ref.id) : nullptr;
    if (!it || !it->parent) return false;
    Folder* parent = it->parent;
    auto& items = parent->items;
    items.erase(std::remove(items.begin(), items.end(), it), items.end());
    stores_[ref.store]->itemIndex.erase(it->nid);
    it->parent = nullptr;
    ++version_;
    collectFolder(ref.store, parent->nid, it.get(), false, pending);
  }
  deliver(pending);
  return true;
}

bool Profile::replaceItem(const Ref& ref, Item content, size_t position) {
  PIM_ENTRY("PIM::store::Profile::replaceItem");
  std::vector<PendingNotification> pending;
  {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    auto it = ref.kind == Ref::Kind::Item ? item(ref.store, ref.id) : nullptr;
    if (!it || !it->parent) return false;
    // In place: open messages and their sub-object tables see the new content.
    content.nid = it->nid;
    content.parent = it->parent;
    *it = std::move(content);
    numberAttachments(*it);
    auto& items = it->parent->items;
    // Most replacements keep their place: spare the folder's items a shift.
    if (items[std::min(position, items.size() - 1)] != it) {
      items.erase(std::remove(items.begin(), items.end(), it), items.end());
      items.insert(items.begin() + static_cast<ptrdiff_t>(std::min(position, items.size())), it);
    }
    ++version_;
    collectFolder(ref.store, it->parent->nid, it.get(), true, pending);
  }
  deliver(pending);
  return true;
}

void Profile::touchFolder(const Ref& f) {
  if (f.kind != Ref::Kind::Folder) return;
  std::vector<PendingNotification> pending;
  {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    collectFolder(f.store, f.id, nullptr, false, pending);
  }
  deliver(pending);
}

void Profile::collectFolder(size_t store, uint32_t folderNid, const Item* changed, bool present,
                            std::vector<PendingNotification>& out) {
  PIM_ENTRY("PIM::store::Profile::collectFolder");
  for (TableImpl* table : tables_) {
    const TableSource& s = table->source();
    if ((s.kind == TableSource::Kind::Contents || s.kind == TableSource::Kind::Associated) &&
        s.store == store && s.folder == folderNid)
      table->itemChanged(changed, present, out);
  }
}

void Profile::deliver(std::vector<PendingNotification>& pending) {
  for (PendingNotification& p : pending) p.sink->OnNotify(1, p.notification.get());
}

// ---- Finding ----------------------------------------------------------------------
void Profile::setKey(const std::string& key, const Ref& ref) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  keys_[key] = ref;
}

Ref Profile::byKey(const std::string& key) const {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  auto it = keys_.find(key);
  return it == keys_.end() ? Ref{} : it->second;
}

std::map<std::string, Ref> Profile::keys() const {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  return keys_;
}

void Profile::replaceKeys(std::map<std::string, Ref> keys) {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  keys_ = std::move(keys);
}

Ref Profile::findFolder(size_t store, const std::u16string& path) const {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  if (store >= stores_.size()) return {};
  const Folder* f = stores_[store]->root.get();
  for (const std::u16string& name : splitString(path, u"/")) {
    if (name.empty()) continue;
    const Folder* next = nullptr;
    for (const auto& child : f->folders) {
      const Prop* n = child->props.find(PROP_ID(PR_DISPLAY_NAME));
      if (n && textOf(*n) == name) {
        next = child.get();
        break;
      }
    }
    if (!next) return {};
    f = next;
  }
  return Ref{Ref::Kind::Folder, store, f->nid};
}

std::shared_ptr<const Item> Profile::itemCopy(const Ref& ref) const {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  if (ref.kind != Ref::Kind::Item || ref.store >= stores_.size()) return nullptr;
  auto& index = stores_[ref.store]->itemIndex;
  auto it = index.find(ref.id);
  return it == index.end() ? nullptr : std::make_shared<Item>(*it->second);
}

// ---- Identifiers ------------------------------------------------------------------
Bytes Profile::entryId(const Ref& ref) const {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  switch (ref.kind) {
    case Ref::Kind::Store:
      return ref.store < stores_.size() ? storeEntryId(stores_[ref.store]->uid) : Bytes();
    case Ref::Kind::Folder:
    case Ref::Kind::Item:
      return ref.store < stores_.size() ? objectEntryId(stores_[ref.store]->uid, ref.id) : Bytes();
    case Ref::Kind::AbEntry:
      return ref.id < addressBook_.size() ? abEntryId(ref.id) : Bytes();
    default:
      return {};
  }
}

Bytes Profile::shortTermEntryId(const Ref& ref) const {
  std::lock_guard<std::recursive_mutex> guard(lock_);
  if ((ref.kind != Ref::Kind::Folder && ref.kind != Ref::Kind::Item) || ref.store >= stores_.size())
    return {};
  return PIM::store::shortTermEntryId(stores_[ref.store]->uid, ref.id, session_);
}

Bytes Profile::instanceKey(size_t store, uint32_t nid) const {
  return u32Key(static_cast<uint32_t>(store), nid);
}

HRESULT Profile::logon(LPMAPISESSION* session) {
  PIM_ENTRY("PIM::store::Profile::logon");
  if (!session) return MAPI_E_INVALID_PARAMETER;
  *session = newSession(shared_from_this());
  return S_OK;
}

// ---- For the MAPI objects -------------------------------------------------------------
Store* Profile::storeAt(size_t index) {
  return index < stores_.size() ? stores_[index].get() : nullptr;
}

Store* Profile::storeByUid(const Bytes& uid, size_t* index) {
  for (size_t i = 0; i < stores_.size(); ++i) {
    if (stores_[i]->uid == uid) {
      if (index) *index = i;
      return stores_[i].get();
    }
  }
  return nullptr;
}

AbEntry* Profile::abEntry(uint32_t index) {
  return index < addressBook_.size() ? &addressBook_[index] : nullptr;
}

std::shared_ptr<Folder> Profile::folder(size_t store, uint32_t nid) {
  if (store >= stores_.size()) return nullptr;
  auto& index = stores_[store]->folderIndex;
  auto it = index.find(nid);
  return it == index.end() ? nullptr : it->second;
}

std::shared_ptr<Item> Profile::item(size_t store, uint32_t nid) {
  if (store >= stores_.size()) return nullptr;
  auto& index = stores_[store]->itemIndex;
  auto it = index.find(nid);
  return it == index.end() ? nullptr : it->second;
}

PropList Profile::storeProps(size_t index) {
  PropList out;
  Store* s = storeAt(index);
  if (!s) return out;
  out = s->props;
  const Bytes id = storeEntryId(s->uid);
  out.set(Prop::ofBinary(PR_ENTRYID, id));
  out.set(Prop::ofBinary(PR_STORE_ENTRYID, id));
  out.set(Prop::ofBinary(PR_RECORD_KEY, s->uid));
  out.set(Prop::ofBinary(PR_STORE_RECORD_KEY, s->uid));
  out.set(Prop::ofBinary(PR_INSTANCE_KEY, u32Key(static_cast<uint32_t>(index), 0)));
  out.set(Prop::ofBinary(PR_MDB_PROVIDER, Bytes(kStoreProviderUid, kStoreProviderUid + 16)));
  out.set(Prop::ofLong(PR_OBJECT_TYPE, MAPI_STORE));
  out.set(Prop::ofBool(PR_DEFAULT_STORE, s->isDefault));
  out.setDefault(Prop::ofText(PR_DISPLAY_NAME_W, s->name));
  out.setDefault(Prop::ofLong(PR_RESOURCE_FLAGS, s->isDefault ? STATUS_DEFAULT_STORE : 0));
  out.setDefault(Prop::ofLong(PR_STORE_SUPPORT_MASK, s->options.unicode ? STORE_UNICODE_OK : 0));
  if (s->ipmSubtree)
    out.setDefault(Prop::ofBinary(PR_IPM_SUBTREE_ENTRYID, objectEntryId(s->uid, s->ipmSubtree)));
  return out;
}

PropList Profile::folderProps(size_t store, const Folder& f, bool forTable) {
  Store& s = *stores_[store];
  PropList out = f.props;
  const Bytes longTerm = objectEntryId(s.uid, f.nid);
  const bool shortTerm = forTable && s.options.shortTermIdsInTables;
  out.set(Prop::ofBinary(
      PR_ENTRYID, shortTerm ? PIM::store::shortTermEntryId(s.uid, f.nid, session_) : longTerm));
  if (forTable) out.set(Prop::ofBinary(PR_LONGTERM_ENTRYID_FROM_TABLE, longTerm));
  out.set(Prop::ofBinary(PR_RECORD_KEY, longTerm));
  out.set(Prop::ofBinary(PR_INSTANCE_KEY, instanceKey(store, f.nid)));
  out.set(
      Prop::ofBinary(PR_PARENT_ENTRYID, objectEntryId(s.uid, f.parent ? f.parent->nid : f.nid)));
  out.set(Prop::ofBinary(PR_STORE_ENTRYID, storeEntryId(s.uid)));
  out.set(Prop::ofBinary(PR_STORE_RECORD_KEY, s.uid));
  out.set(Prop::ofLong(PR_OBJECT_TYPE, MAPI_FOLDER));
  out.set(Prop::ofLong(PR_FOLDER_TYPE, f.parent ? FOLDER_GENERIC : FOLDER_ROOT));
  out.set(Prop::ofLong(PR_CONTENT_COUNT,
                       static_cast<int32_t>(std::count_if(
                           f.items.begin(), f.items.end(),
                           [](const std::shared_ptr<Item>& i) { return !i->associated; }))));
  out.set(Prop::ofBool(PR_SUBFOLDERS, !f.folders.empty()));
  return out;
}

PropList Profile::itemProps(size_t store, const Item& it, bool forTable) {
  PropList out = it.props;
  addComputedItemProps(store, it, forTable, out);
  return out;
}

const PropList& Profile::rowProps(const TableRow& row) {
  if (row.pending) {
    row.props = itemProps(row.store, *row.item, true);
    row.pending = false;
  }
  return row.props;
}

namespace {
// What the store sets on an item's row over the item's own values, and what
// it adds only where the item has no value, each in the order rows list them.
constexpr ULONG kSetIds[] = {PROP_ID(PR_ENTRYID),       PROP_ID(PR_RECORD_KEY),
                             PROP_ID(PR_INSTANCE_KEY),  PROP_ID(PR_PARENT_ENTRYID),
                             PROP_ID(PR_STORE_ENTRYID), PROP_ID(PR_OBJECT_TYPE)};
constexpr ULONG kDefaultIds[] = {PROP_ID(PR_HASATTACH),    PROP_ID(PR_MESSAGE_FLAGS),
                                 PROP_ID(PR_MESSAGE_SIZE), PROP_ID(PR_CHANGE_KEY),
                                 PROP_ID(PR_DISPLAY_TO),   PROP_ID(PR_DISPLAY_CC),
                                 PROP_ID(PR_DISPLAY_BCC)};

bool oneOf(ULONG id, const ULONG* ids, size_t count) {
  return std::find(ids, ids + count, id) != ids + count;
}
}  // namespace

bool Profile::computedItemProp(size_t store, const Item& it, bool forTable, ULONG propId, Prop& out,
                               bool tagOnly) {
  Store& s = *stores_[store];
  const bool hasAttach = !it.attachments.empty();
  switch (propId) {
    case PROP_ID(PR_ENTRYID):
      if (!it.nid) return false;
      out = Prop::ofBinary(PR_ENTRYID, forTable && s.options.shortTermIdsInTables
                                           ? PIM::store::shortTermEntryId(s.uid, it.nid, session_)
                                           : objectEntryId(s.uid, it.nid));
      return true;
    case PROP_ID(PR_RECORD_KEY):
      if (!it.nid) return false;
      out = Prop::ofBinary(PR_RECORD_KEY, objectEntryId(s.uid, it.nid));
      return true;
    case PROP_ID(PR_INSTANCE_KEY):
      if (!it.nid) return false;
      out = Prop::ofBinary(PR_INSTANCE_KEY, instanceKey(store, it.nid));
      return true;
    case PROP_ID(PR_PARENT_ENTRYID):
      if (!it.nid || !it.parent) return false;
      out = Prop::ofBinary(PR_PARENT_ENTRYID, objectEntryId(s.uid, it.parent->nid));
      return true;
    case PROP_ID(PR_STORE_ENTRYID):
      out = Prop::ofBinary(PR_STORE_ENTRYID, storeEntryId(s.uid));
      return true;
    case PROP_ID(PR_OBJECT_TYPE):
      out = Prop::ofLong(PR_OBJECT_TYPE, MAPI_MESSAGE);
      return true;
    case PROP_ID(PR_HASATTACH):
      out = Prop::ofBool(PR_HASATTACH, hasAttach);
      return true;
    case PROP_ID(PR_MESSAGE_FLAGS):
      out = Prop::ofLong(PR_MESSAGE_FLAGS, (hasAttach ? MSGFLAG_HASATTACH : 0) |
                                               (it.associated ? MSGFLAG_ASSOCIATED : 0) |
                                               MSGFLAG_READ);
      return true;
    case PROP_ID(PR_MESSAGE_SIZE):
      out = Prop::ofLong(PR_MESSAGE_SIZE, tagOnly ? 0 : static_cast<int32_t>(sizeOf(it)));
      return true;
    case PROP_ID(PR_CHANGE_KEY): {
      // A store's change key changes whenever the item is saved; here,
      // whenever its content does, which also keeps it the same across
      // loads of one file.
      if (tagOnly) {
        out = Prop::ofBinary(PR_CHANGE_KEY, Bytes());
        return true;
      }
      ContentHash hash;
      hash.add(it);
      Bytes key(8);
      for (size_t i = 0; i < key.size(); ++i)
        key[i] = static_cast<uint8_t>(hash.value() >> (8 * i));
      out = Prop::ofBinary(PR_CHANGE_KEY, std::move(key));
      return true;
    }
    case PROP_ID(PR_DISPLAY_TO):
    case PROP_ID(PR_DISPLAY_CC):
    case PROP_ID(PR_DISPLAY_BCC): {
      if (it.recipients.empty()) return false;
      const LONG type = propId == PROP_ID(PR_DISPLAY_TO)
                            ? MAPI_TO
                            : (propId == PROP_ID(PR_DISPLAY_CC) ? MAPI_CC : MAPI_BCC);
      out = Prop::ofText(PROP_TAG(PT_UNICODE, propId), tagOnly ? u"" : joinNames(it, type));
      return true;
    }
    default:
      return false;
  }
}

void Profile::rowPropTags(const TableRow& row, std::vector<ULONG>& tags) {
  tags.clear();
  if (!row.pending) {
    for (const Prop& p : row.props.all()) tags.push_back(p.tag);
    return;
  }
  // The item's own tags, then the computed ones replacing and following
  // them as their values would, without computing the costly values.
  for (const Prop& p : row.item->props.all()) tags.push_back(p.tag);
  auto indexOf = [&tags](ULONG id) {
    for (size_t i = 0; i < tags.size(); ++i)
      if (PROP_ID(tags[i]) == id) return i;
    return tags.size();
  };
  Prop value;
  for (ULONG id : kSetIds) {
    if (!computedItemProp(row.store, *row.item, true, id, value, true)) continue;
    const size_t at = indexOf(id);
    if (at < tags.size())
      tags[at] = value.tag;
    else
      tags.push_back(value.tag);
  }
  for (ULONG id : kDefaultIds)
    if (indexOf(id) == tags.size() && computedItemProp(row.store, *row.item, true, id, value, true))
      tags.push_back(value.tag);
}

void Profile::addComputedItemProps(size_t store, const Item& it, bool forTable, PropList& out) {
  Prop value;
  for (ULONG id : kSetIds)
    if (computedItemProp(store, it, forTable, id, value)) out.set(std::move(value));
  for (ULONG id : kDefaultIds)
    if (computedItemProp(store, it, forTable, id, value)) out.setDefault(std::move(value));
}

const Prop* Profile::itemRowProp(size_t store, const Item& it, ULONG propId, Prop& scratch) {
  const size_t setCount = sizeof(kSetIds) / sizeof(kSetIds[0]);
  const size_t defaultCount = sizeof(kDefaultIds) / sizeof(kDefaultIds[0]);
  if (oneOf(propId, kSetIds, setCount) && computedItemProp(store, it, true, propId, scratch))
    return &scratch;
  if (const Prop* own = it.props.find(propId)) return own;
  if (oneOf(propId, kDefaultIds, defaultCount) &&
      computedItemProp(store, it, true, propId, scratch))
    return &scratch;
  return nullptr;
}

PropList Profile::attachmentProps(const Attachment& a) {
  PropList out = a.props;
  out.set(Prop::ofLong(PR_ATTACH_NUM, static_cast<int32_t>(a.num)));
  out.set(Prop::ofBinary(PR_INSTANCE_KEY, u32Key(0xA77AC400u, a.num)));
  out.set(Prop::ofLong(PR_OBJECT_TYPE, MAPI_ATTACH));
  out.setDefault(
      Prop::ofLong(PR_ATTACH_METHOD, a.embedded ? ATTACH_EMBEDDED_MSG : ATTACH_BY_VALUE));
  out.setDefault(Prop::ofLong(
      PR_ATTACH_SIZE, static_cast<int32_t>(a.embedded ? sizeOf(*a.embedded) : a.data.size())));
  return out;
}

PropList Profile::recipientProps(const Recipient& r, size_t row) {
  PropList out = r.props;
  out.set(Prop::ofLong(PR_ROWID, static_cast<int32_t>(row)));
  out.set(Prop::ofBinary(PR_INSTANCE_KEY, u32Key(0x2EC10000u, static_cast<uint32_t>(row))));
  out.set(Prop::ofLong(PR_OBJECT_TYPE, MAPI_MAILUSER));
  out.setDefault(Prop::ofLong(PR_RECIPIENT_TYPE, MAPI_TO));
  return out;
}

PropList Profile::abProps(uint32_t index) {
  PropList out;
  AbEntry* e = abEntry(index);
  if (!e) return out;
  out = e->props;
  out.set(Prop::ofBinary(PR_ENTRYID, abEntryId(index)));
  out.set(Prop::ofBinary(PR_RECORD_KEY, abEntryId(index)));
  out.set(Prop::ofLong(PR_OBJECT_TYPE, MAPI_MAILUSER));
  out.setDefault(Prop::ofLong(PR_DISPLAY_TYPE, 0));
  return out;
}

std::vector<TableRow> Profile::rows(const TableSource& source) {
  std::vector<TableRow> out;
  switch (source.kind) {
    case TableSource::Kind::Contents:
    case TableSource::Kind::Associated: {
      auto f = folder(source.store, source.folder);
      if (!f) break;
      const bool associated = source.kind == TableSource::Kind::Associated;
      for (const auto& it : f->items)
        if (it->associated == associated)
          out.push_back(TableRow{instanceKey(source.store, it->nid), {}, it, source.store, true});
      break;
    }
    case TableSource::Kind::Hierarchy:
    case TableSource::Kind::DeepHierarchy: {
      auto f = folder(source.store, source.folder);
      if (!f) break;
      const bool deep = source.kind == TableSource::Kind::DeepHierarchy;
      // Depth-first, children in creation order.
      auto walk = [&](auto& self, const Folder& parent, int32_t depth) -> void {
        for (const auto& child : parent.folders) {
          TableRow row{instanceKey(source.store, child->nid),
                       folderProps(source.store, *child, true), nullptr};
          row.props.set(Prop::ofLong(PR_DEPTH, depth));
          out.push_back(std::move(row));
          if (deep) self(self, *child, depth + 1);
        }
      };
      walk(walk, *f, 1);
      break;
    }
    case TableSource::Kind::Stores:
      for (size_t i = 0; i < stores_.size(); ++i)
        out.push_back(TableRow{u32Key(static_cast<uint32_t>(i), 0), storeProps(i), nullptr});
      break;
    case TableSource::Kind::Attachments:
      if (source.item)
        for (const Attachment& a : source.item->attachments)
          out.push_back(TableRow{u32Key(0xA77AC400u, a.num), attachmentProps(a), nullptr});
      break;
    case TableSource::Kind::Recipients:
      if (source.item)
        for (size_t i = 0; i < source.item->recipients.size(); ++i)
          out.push_back(TableRow{u32Key(0x2EC10000u, static_cast<uint32_t>(i)),
                                 recipientProps(source.item->recipients[i], i), nullptr});
      break;
  }
  return out;
}

void Profile::registerTable(TableImpl* table) { tables_.push_back(table); }

void Profile::unregisterTable(TableImpl* table) {
  tables_.erase(std::remove(tables_.begin(), tables_.end(), table), tables_.end());
}

}  // namespace PIM::store
