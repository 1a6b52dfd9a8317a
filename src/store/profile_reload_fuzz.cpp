// Two store files from one input (split at the first NUL byte; without one
// the second is the first again): the first loaded, with every folder's
// contents table open and advised, then the second applied to it by
// difference. Besides never crashing or leaking:
//   - an applied or unchanged reload leaves the same store as a fresh load
//     of the second file: the same folders and items in the same places,
//     the same contents, the same keys, with entry ids inside values
//     pointing at the same objects;
//   - a refused one leaves the store as the first file made it;
//   - only folders the reload reports changed hear of it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "mapi/mapi_ptr.h"
#include "store/counting_sink.h"
#include "store/entry_ids.h"
#include "store/fixture.h"
#include "store/mapi_runtime.h"
#include "store/profile_reload.h"

namespace {

using namespace PIM::store;

void check(bool condition) {
  if (!condition) std::abort();
}

std::shared_ptr<Profile> load(const std::string& text) {
  try {
    return loadFixtureText(text, "fuzz.json");
  } catch (const FixtureError&) {
    return nullptr;
  }
}

// The objects of one profile matched to another's by their places: for
// each store, the other's folder and item nids -> this one's.
class Matching {
 public:
  Matching(Profile& mine, Profile& other) : mine_(mine), other_(other) {}

  // False when the two differ anywhere.
  bool same() {
    std::scoped_lock guard(mine_.mutex(), other_.mutex());
    if (mine_.storeCount() != other_.storeCount()) return false;
    nids_.assign(mine_.storeCount(), {});
    for (size_t s = 0; s < mine_.storeCount(); ++s)
      if (!pair(s, *mine_.storeAt(s)->root, *other_.storeAt(s)->root)) return false;
    for (size_t s = 0; s < mine_.storeCount(); ++s) {
      const Store& a = *mine_.storeAt(s);
      const Store& b = *other_.storeAt(s);
      if (a.name != b.name || a.isDefault != b.isDefault || a.uid != b.uid ||
          !sameProps(a.props, b.props, s) || a.ipmSubtree != nid(s, b.ipmSubtree) ||
          a.receiveFolder != nid(s, b.receiveFolder) ||
          a.receiveFolders.size() != b.receiveFolders.size())
        return false;
      for (const auto& [messageClass, folder] : b.receiveFolders) {
        auto it = a.receiveFolders.find(messageClass);
        if (it == a.receiveFolders.end() || it->second != nid(s, folder)) return false;
      }
      for (const auto& [name, id] : b.names) {
        auto it = a.names.find(name);
        if (it == a.names.end() || it->second != id) return false;
      }
    }
    for (const auto& [key, ref] : other_.keys()) {
      Ref expected = ref;
      if (ref.kind == Ref::Kind::Folder || ref.kind == Ref::Kind::Item)
        expected.id = nid(ref.store, ref.id);
      if (!(mine_.byKey(key) == expected)) return false;
    }
    return mine_.keys().size() == other_.keys().size();
  }

 private:
  uint32_t nid(size_t store, uint32_t otherNid) const {
    if (otherNid == 0) return 0;
    auto it = nids_[store].find(otherNid);
    return it == nids_[store].end() ? otherNid : it->second;
  }

  bool pair(size_t s, const Folder& a, const Folder& b) {
    nids_[s][b.nid] = a.nid;
    if (a.folders.size() != b.folders.size() || a.items.size() != b.items.size()) return false;
    for (size_t i = 0; i < a.items.size(); ++i) nids_[s][b.items[i]->nid] = a.items[i]->nid;
    for (size_t i = 0; i < a.folders.size(); ++i)
      if (!pair(s, *a.folders[i], *b.folders[i])) return false;
    // Contents last: values may point at any object of the store.
    if (!sameProps(a.props, b.props, s)) return false;
    for (size_t i = 0; i < a.items.size(); ++i)
      if (!sameItem(*a.items[i], *b.items[i], s)) return false;
    return true;
  }

  // `other`'s id as this profile would write it for the same object.
  Bytes id(const Bytes& other, size_t s) const {
    const ParsedId p = parseEntryId(other.data(), other.size());
    if (p.kind != IdKind::Object || p.storeUid != other_.storeAt(s)->uid) return other;
    if (p.shortTerm) {
      if (p.session != other_.sessionNumber()) return other;
      return shortTermEntryId(p.storeUid, nid(s, p.nid), mine_.sessionNumber());
    }
    return objectEntryId(p.storeUid, nid(s, p.nid));
  }

  bool sameProp(const Prop& a, Prop b, size_t s) const {
    if (b.type() == PT_BINARY) b = Prop::ofBinary(b.tag, id(b.bin(), s));
    if (b.type() == PT_MV_BINARY) {
      std::vector<Bytes> values = b.bins();
      for (Bytes& value : values) value = id(value, s);
      b = Prop::ofMvBinary(b.tag, std::move(values));
    }
    return a == b;
  }

  // In any order: a file that only lists an item's values otherwise is not
  // a change.
  bool sameProps(const PropList& a, const PropList& b, size_t s) const {
    if (a.all().size() != b.all().size()) return false;
    for (const Prop& value : b.all()) {
      const Prop* mine = a.find(value.id());
      if (!mine || !sameProp(*mine, value, s)) return false;
    }
    return true;
  }

  bool sameItem(const Item& a, const Item& b, size_t s) const {
    if (a.associated != b.associated || !sameProps(a.props, b.props, s) ||
        a.recipients.size() != b.recipients.size() || a.attachments.size() != b.attachments.size())
      return false;
    for (size_t i = 0; i < a.recipients.size(); ++i)
      if (!sameProps(a.recipients[i].props, b.recipients[i].props, s)) return false;
    for (size_t i = 0; i < a.attachments.size(); ++i) {
      const Attachment& x = a.attachments[i];
      const Attachment& y = b.attachments[i];
      if (x.data != y.data || !sameProps(x.props, y.props, s) || !x.embedded != !y.embedded ||
          (x.embedded && !sameItem(*x.embedded, *y.embedded, s)))
        return false;
    }
    return true;
  }

  Profile& mine_;
  Profile& other_;
  std::vector<std::map<uint32_t, uint32_t>> nids_;
};

// Every folder's contents table of `profile`, open and advised.
struct Watched {
  PIM::ComPtr<IMAPITable> table;
  CountingSink sink;
  ULONG connection = 0;
  Ref folder;
};

void watchFolders(Profile& profile, IMAPISession* session, const Folder& folder, size_t store,
                  std::vector<std::unique_ptr<Watched>>& out) {
  const Bytes storeId = profile.entryId(profile.storeRef(store));
  PIM::ComPtr<IMsgStore> msgStore;
  if (session->OpenMsgStore(0, static_cast<ULONG>(storeId.size()),
                            reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(storeId.data())),
                            nullptr, MDB_NO_DIALOG, msgStore.put()) != S_OK)
    return;
  const Ref ref{Ref::Kind::Folder, store, folder.nid};
  const Bytes folderId = profile.entryId(ref);
  PIM::ComPtr<IMAPIFolder> opened;
  ULONG type = 0;
  auto watched = std::make_unique<Watched>();
  watched->folder = ref;
  if (msgStore->OpenEntry(static_cast<ULONG>(folderId.size()),
                          reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(folderId.data())),
                          nullptr, 0, &type, opened.putUnknown()) == S_OK &&
      opened->GetContentsTable(0, watched->table.put()) == S_OK &&
      watched->table->Advise(fnevTableModified, &watched->sink, &watched->connection) == S_OK)
    out.push_back(std::move(watched));
  for (const auto& child : folder.folders) watchFolders(profile, session, *child, store, out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const void* nul = std::memchr(data, 0, size);
  const size_t split = nul ? static_cast<size_t>(static_cast<const uint8_t*>(nul) - data) : size;
  const std::string first(text, split);
  const std::string second = nul ? std::string(text + split + 1, size - split - 1) : first;

  const int64_t buffersBefore = liveMapiBuffers();
  {
    std::shared_ptr<Profile> live = load(first);
    std::shared_ptr<Profile> fresh = live ? load(second) : nullptr;
    if (!fresh) return 0;

    PIM::ComPtr<IMAPISession> session;
    check(live->logon(session.put()) == S_OK);
    std::vector<std::unique_ptr<Watched>> watched;
    for (size_t s = 0; s < live->storeCount(); ++s) {
      std::shared_ptr<Folder> root;
      {
        std::lock_guard<std::recursive_mutex> guard(live->mutex());
        root = live->storeAt(s)->root;
      }
      watchFolders(*live, session.get(), *root, s, watched);
    }

    const ReloadResult result = reloadProfile(*live, *fresh);
    switch (result.status) {
      case ReloadResult::Status::Applied:
      case ReloadResult::Status::Unchanged:
        check(Matching(*live, *fresh).same());
        check((result.status == ReloadResult::Status::Unchanged) == result.folders.empty());
        break;
      case ReloadResult::Status::RestartNeeded: {
        check(!result.error.empty() && result.folders.empty());
        std::shared_ptr<Profile> again = load(first);
        check(again && Matching(*live, *again).same());
        break;
      }
      default:
        check(false);  // reloadProfile neither loads nor waits
    }
    std::set<std::pair<size_t, uint32_t>> reported;
    for (const ChangedFolder& folder : result.folders)
      reported.emplace(folder.folder.store, folder.folder.id);
    for (const auto& w : watched) {
      if (w->sink.events != 0) check(reported.count({w->folder.store, w->folder.id}) == 1);
      check(w->table->Unadvise(w->connection) == S_OK);
    }
  }
  check(liveMapiBuffers() == buffersBefore);
  return 0;
}
