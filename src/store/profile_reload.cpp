#include "store/profile_reload.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "store/entry_ids.h"
#include "store/fixture.h"
#include "store/props.h"

namespace PIM::store {
namespace {

using NidMap = std::unordered_map<uint32_t, uint32_t>;  // fresh nid -> live nid

// The fresh load's entry ids in the live profile's terms. Folders keep their
// nids, but an item's nid follows its place in the file, and short-term ids
// carry the session of the profile that made them.
class IdTranslator {
 public:
  IdTranslator(const Profile& live, const Profile& fresh, size_t storeCount)
      : liveSession_(live.sessionNumber()),
        freshSession_(fresh.sessionNumber()),
        nids_(storeCount) {}

  void setUid(size_t store, const Bytes& uid) { uids_[uidKey(uid)] = store; }
  NidMap& nids(size_t store) { return nids_[store]; }
  const NidMap& nids(size_t store) const { return nids_[store]; }

  Bytes id(const Bytes& fresh) const {
    const ParsedId p = parseEntryId(fresh.data(), fresh.size());
    if (p.kind != IdKind::Object || (p.shortTerm && p.session != freshSession_)) return fresh;
    auto store = uids_.find(uidKey(p.storeUid));
    if (store == uids_.end()) return fresh;
    auto nid = nids_[store->second].find(p.nid);
    if (nid == nids_[store->second].end()) return fresh;
    return p.shortTerm ? shortTermEntryId(p.storeUid, nid->second, liveSession_)
                       : objectEntryId(p.storeUid, nid->second);
  }

  PropList props(const PropList& fresh) const {
    PropList out;
    for (const Prop& p : fresh.all()) {
      if (p.type() == PT_BINARY) {
        out.set(Prop::ofBinary(p.tag, id(p.bin())));
      } else if (p.type() == PT_MV_BINARY) {
        std::vector<Bytes> values = p.bins();
        for (Bytes& b : values) b = id(b);
        out.set(Prop::ofMvBinary(p.tag, std::move(values)));
      } else {
        out.set(p);
      }
    }
    return out;
  }

  // Whether a fresh item, in live terms, has the live item's content: read
  // in place, so that an unchanged item costs no copy.
  bool same(const Item& fresh, const Item& live) const {
    if (fresh.associated != live.associated || !same(fresh.props, live.props) ||
        fresh.recipients.size() != live.recipients.size() ||
        fresh.attachments.size() != live.attachments.size())
      return false;
    for (size_t i = 0; i < fresh.recipients.size(); ++i)
      if (!same(fresh.recipients[i].props, live.recipients[i].props)) return false;
    for (size_t i = 0; i < fresh.attachments.size(); ++i) {
      const Attachment& x = fresh.attachments[i];
      const Attachment& y = live.attachments[i];
      if (!same(x.props, y.props) || x.data != y.data || !x.embedded != !y.embedded ||
          (x.embedded && !same(*x.embedded, *y.embedded)))
        return false;
    }
    return true;
  }

  // A deep copy (embedded messages included) in live terms.
  Item item(const Item& fresh) const {
    Item out;
    out.props = props(fresh.props);
    out.associated = fresh.associated;
    out.sourceHash = fresh.sourceHash;
    for (const Recipient& r : fresh.recipients) out.recipients.push_back(Recipient{props(r.props)});
    for (const Attachment& a : fresh.attachments) {
      Attachment copy;
      copy.props = props(a.props);
      copy.data = a.data;
      if (a.embedded) copy.embedded = std::make_shared<Item>(item(*a.embedded));
      out.attachments.push_back(std::move(copy));
    }
    return out;
  }

 private:
  bool same(const PropList& fresh, const PropList& live) const {
    if (fresh.all().size() != live.all().size()) return false;
    for (const Prop& p : fresh.all()) {
      const Prop* q = live.find(p.id());
      if (!q) return false;
      if (p.type() != PT_BINARY && p.type() != PT_MV_BINARY) {
        if (!(*q == p)) return false;
        continue;
      }
      // Binaries are compared in live terms always: the same bytes can name
      // another item there, when items before it moved.
      PropList one;
      one.set(p);
      if (!(*props(one).find(p.id()) == *q)) return false;
    }
    return true;
  }

  // Keyed by text: g++ 12 at -O3 warns falsely on ordering byte vectors.
  static std::string uidKey(const Bytes& uid) { return std::string(uid.begin(), uid.end()); }

  uint32_t liveSession_;
  uint32_t freshSession_;
  std::map<std::string, size_t> uids_;
  std::vector<NidMap> nids_;
};

// A deep copy of a live item (embedded messages included).
Item copyOf(const Item& live) {
  Item out;
  out.props = live.props;
  out.associated = live.associated;
  out.sourceHash = live.sourceHash;
  out.recipients = live.recipients;
  for (const Attachment& a : live.attachments) {
    Attachment copy;
    copy.props = a.props;
    copy.data = a.data;
    if (a.embedded) copy.embedded = std::make_shared<Item>(copyOf(*a.embedded));
    out.attachments.push_back(std::move(copy));
  }
  return out;
}

// ---- Equality of content ------------------------------------------------------
bool sameProps(const PropList& a, const PropList& b) {
  if (a.all().size() != b.all().size()) return false;
  for (const Prop& p : a.all()) {
    const Prop* q = b.find(p.id());
    if (!q || !(*q == p)) return false;
  }
  return true;
}

bool sameOptions(const StoreOptions& a, const StoreOptions& b) {
  return a.unicode == b.unicode && a.shortTermIdsInTables == b.shortTermIdsInTables &&
         a.tableStringLimit == b.tableStringLimit && a.streamTerminator == b.streamTerminator &&
         a.getPropsByteLimit == b.getPropsByteLimit;
}

// Indexes (into `targets`) of a longest strictly increasing subsequence.
std::vector<size_t> longestIncreasing(const std::vector<size_t>& targets) {
  std::vector<size_t> tails;  // index of the smallest tail of each length
  std::vector<size_t> previous(targets.size(), SIZE_MAX);
  for (size_t i = 0; i < targets.size(); ++i) {
    auto at = std::lower_bound(tails.begin(), tails.end(), targets[i],
                               [&](size_t t, size_t value) { return targets[t] < value; });
    if (at != tails.begin()) previous[i] = *(at - 1);
    if (at == tails.end())
      tails.push_back(i);
    else
      *at = i;
  }
  std::vector<size_t> out;
  for (size_t i = tails.empty() ? SIZE_MAX : tails.back(); i != SIZE_MAX; i = previous[i])
    out.push_back(i);
  std::reverse(out.begin(), out.end());
  return out;
}

// One change to the live profile.
struct Step {
  enum class Kind { Delete, Insert, Replace };
  Kind kind;
  Ref target;                // Delete, Replace: the item; Insert: the folder
  size_t position;           // Insert, Replace
  Item content;              // Insert, Replace
  uint32_t expectedNid = 0;  // Insert
};

struct FolderPair {
  size_t store;
  std::shared_ptr<Folder> live;
  std::shared_ptr<Folder> fresh;
  std::u16string path;
  // Filled by matchItems: the live item of each fresh item (null: new).
  std::vector<std::shared_ptr<Item>> matches;
};

// A fresh item left unbuilt has no live item to vouch for it any more: the
// file is loaded again, whole.
struct NeedsFullLoad {};

class RestartNeeded {
 public:
  explicit RestartNeeded(std::string what) : what_(std::move(what)) {}
  const std::string& what() const { return what_; }

 private:
  std::string what_;
};

// Works out, under both profiles' locks, every step that brings `live` in
// line with `fresh`, or throws RestartNeeded. Changes nothing.
class Planner {
 public:
  Planner(Profile& live, Profile& fresh)
      : live_(live), fresh_(fresh), ids_(live, fresh, fresh.storeCount()) {}

  void plan() {
    liveKeys_ = itemKeys(live_);
    freshKeys_ = itemKeys(fresh_);
    const size_t count = fresh_.storeCount();
    if (live_.storeCount() != count) throw RestartNeeded("stores were added or removed");
    for (size_t s = 0; s < count; ++s) {
      const Store& l = *live_.storeAt(s);
      const Store& f = *fresh_.storeAt(s);
      if (l.name != f.name || l.isDefault != f.isDefault || !sameOptions(l.options, f.options))
        throw RestartNeeded(storeText(s) + ": its name, default flag or options changed");
      // Ids the live store handed out itself later (GetIDsFromNames) may stay.
      for (const auto& [name, id] : f.names) {
        auto it = l.names.find(name);
        if (it == l.names.end() || it->second != id)
          throw RestartNeeded(storeText(s) + ": its named properties changed");
      }
      ids_.setUid(s, f.uid);
      pairFolders(s, l.root, f.root, u"");
    }
    if (!sameAddressBook()) throw RestartNeeded("the address book changed");
    for (FolderPair& pair : pairs_) matchItems(pair);
    // Unbuilt items may hold entry ids of stores, folders and address-book
    // entries by key: the keys must name the same objects as before.
    if (anyUnbuilt_ && !sameObjectKeys()) throw NeedsFullLoad{};
    predictNewNids();
    for (size_t s = 0; s < count; ++s) checkStore(s);
    for (const FolderPair& pair : pairs_)
      if (!sameProps(ids_.props(pair.fresh->props), pair.live->props))
        throw RestartNeeded(folderText(pair) + ": its name, class or properties changed");
    for (FolderPair& pair : pairs_) planFolder(pair);
    planKeys();
  }

  std::vector<Step> steps;
  std::vector<ChangedFolder> changed;
  std::map<std::string, Ref> keys;

 private:
  std::string storeText(size_t s) { return "store \"" + toUtf8(live_.storeAt(s)->name) + "\""; }
  std::string folderText(const FolderPair& pair) {
    if (pair.path.empty()) return "the root folder of " + storeText(pair.store);
    return "folder \"" + toUtf8(pair.path) + "\" of " + storeText(pair.store);
  }

  void pairFolders(size_t s, const std::shared_ptr<Folder>& l, const std::shared_ptr<Folder>& f,
                   const std::u16string& path) {
    pairs_.push_back(FolderPair{s, l, f, path, {}});
    ids_.nids(s)[f->nid] = l->nid;
    if (l->folders.size() != f->folders.size())
      throw RestartNeeded(folderText(pairs_.back()) + ": subfolders were added or removed");
    for (size_t i = 0; i < l->folders.size(); ++i) {
      const Prop* name = l->folders[i]->props.find(PROP_ID(PR_DISPLAY_NAME));
      const std::u16string own = name ? textOf(*name) : u"";
      pairFolders(s, l->folders[i], f->folders[i], path.empty() ? own : path + u"/" + own);
    }
  }

  bool sameAddressBook() {
    for (uint32_t i = 0;; ++i) {
      const AbEntry* l = live_.abEntry(i);
      const AbEntry* f = fresh_.abEntry(i);
      if (!l || !f) return !l && !f;
      if (!sameProps(l->props, f->props)) return false;
    }
  }

  // Items are matched within their folder: by key, else by place among the
  // keyless ones.
  void matchItems(FolderPair& pair) {
    std::unordered_map<std::string_view, std::shared_ptr<Item>> keyed;
    keyed.reserve(pair.live->items.size());
    std::vector<std::shared_ptr<Item>> keyless;
    for (const auto& item : pair.live->items) {
      auto key = liveKeys_.find(item->nid + (uint64_t{pair.store} << 32));
      if (key != liveKeys_.end())
        keyed[key->second] = item;
      else
        keyless.push_back(item);
    }
    size_t nextKeyless = 0;
    for (const auto& item : pair.fresh->items) {
      std::shared_ptr<Item> match;
      auto key = freshKeys_.find(item->nid + (uint64_t{pair.store} << 32));
      if (key != freshKeys_.end()) {
        auto it = keyed.find(key->second);
        if (it != keyed.end()) match = it->second;
      } else if (nextKeyless < keyless.size()) {
        match = keyless[nextKeyless++];
      }
      if (item->unbuilt) {
        anyUnbuilt_ = true;
        if (match && match->sourceHash != item->sourceHash) throw NeedsFullLoad{};
        if (!match) unbuiltSource(pair.store, key->second, *item);  // checked here, copied later
      }
      if (match) ids_.nids(pair.store)[item->nid] = match->nid;
      pair.matches.push_back(match);
    }
  }

  // The live store numbers new items in the order they are added, which is
  // the order planFolder adds them in.
  void predictNewNids() {
    std::vector<uint32_t> next;
    for (size_t s = 0; s < fresh_.storeCount(); ++s) next.push_back(live_.storeAt(s)->nextNid);
    for (const FolderPair& pair : pairs_)
      for (size_t i = 0; i < pair.matches.size(); ++i)
        if (!pair.matches[i]) ids_.nids(pair.store)[pair.fresh->items[i]->nid] = next[pair.store]++;
  }

  void checkStore(size_t s) {
    const Store& l = *live_.storeAt(s);
    const Store& f = *fresh_.storeAt(s);
    auto folderNid = [&](uint32_t nid) -> uint32_t {
      if (!nid) return 0;
      auto it = ids_.nids(s).find(nid);
      return it == ids_.nids(s).end() ? 0 : it->second;
    };
    bool same = sameProps(ids_.props(f.props), l.props) &&
                folderNid(f.ipmSubtree) == l.ipmSubtree &&
                folderNid(f.receiveFolder) == l.receiveFolder &&
                f.receiveFolders.size() == l.receiveFolders.size();
    for (const auto& [cls, nid] : f.receiveFolders) {
      auto it = l.receiveFolders.find(cls);
      same = same && it != l.receiveFolders.end() && it->second == folderNid(nid);
    }
    if (!same)
      throw RestartNeeded(storeText(s) +
                          ": its properties, IPM subtree or receive folders changed");
  }

  void planFolder(FolderPair& pair) {
    const size_t before = steps.size();
    const Ref folderRef{Ref::Kind::Folder, pair.store, pair.live->nid};
    auto itemRef = [&](uint32_t nid) { return Ref{Ref::Kind::Item, pair.store, nid}; };

    // What stays: the matched items, in live order.
    std::vector<uint32_t> order;  // live nids as the folder will hold them, step by step
    std::unordered_map<uint32_t, size_t> target;
    target.reserve(pair.matches.size());
    for (size_t i = 0; i < pair.matches.size(); ++i)
      if (pair.matches[i]) target[pair.matches[i]->nid] = i;
    for (const auto& item : pair.live->items) {
      if (target.count(item->nid))
        order.push_back(item->nid);
      else
        steps.push_back(Step{Step::Kind::Delete, itemRef(item->nid), 0, {}, 0});
    }
    // The longest run already in the new order stays put; the rest move.
    std::vector<size_t> targets;
    for (uint32_t nid : order) targets.push_back(target[nid]);
    std::unordered_set<uint32_t> stays;
    stays.reserve(order.size());
    for (size_t i : longestIncreasing(targets)) stays.insert(order[i]);

    // Each item in turn goes right after the one before it in the new order.
    uint32_t previous = 0;
    for (size_t i = 0; i < pair.fresh->items.size(); ++i) {
      const auto& match = pair.matches[i];
      const Item& fresh = *pair.fresh->items[i];
      const bool unbuilt = fresh.unbuilt;
      const uint32_t nid = match ? match->nid : ids_.nids(pair.store).at(pair.fresh->items[i]->nid);
      if (match) {
        const bool moves = !stays.count(nid);
        if (moves) order.erase(std::find(order.begin(), order.end(), nid));
        if (moves || (!unbuilt && !ids_.same(fresh, *match))) {
          const size_t at =
              moves
                  ? afterOf(order, previous)
                  : static_cast<size_t>(std::find(order.begin(), order.end(), nid) - order.begin());
          if (moves) order.insert(order.begin() + static_cast<ptrdiff_t>(at), nid);
          // An unbuilt item holds what its live namesake holds.
          steps.push_back(Step{Step::Kind::Replace, itemRef(nid), at,
                               unbuilt ? copyOf(*match) : ids_.item(fresh), 0});
        } else if (!unbuilt) {
          // The same content from other text (spacing, say): known by this text from now on.
          match->sourceHash = fresh.sourceHash;
        }
      } else {
        const size_t at = afterOf(order, previous);
        order.insert(order.begin() + static_cast<ptrdiff_t>(at), nid);
        // An unbuilt item new here holds what its live namesake elsewhere holds.
        steps.push_back(Step{
            Step::Kind::Insert, folderRef, at,
            unbuilt
                ? copyOf(unbuiltSource(
                      pair.store, freshKeys_.at(fresh.nid + (uint64_t{pair.store} << 32)), fresh))
                : ids_.item(fresh),
            nid});
      }
      previous = nid;
    }
    if (steps.size() != before) changed.push_back(ChangedFolder{folderRef, pair.path});
  }

  static size_t afterOf(const std::vector<uint32_t>& order, uint32_t previous) {
    if (!previous) return 0;
    return static_cast<size_t>(std::find(order.begin(), order.end(), previous) - order.begin()) + 1;
  }

  void planKeys() {
    for (const auto& [key, ref] : fresh_.keys()) {
      Ref live = ref;
      if (ref.kind == Ref::Kind::Folder || ref.kind == Ref::Kind::Item)
        live.id = ids_.nids(ref.store).at(ref.id);
      keys[key] = live;
    }
  }

  static std::unordered_map<uint64_t, std::string> itemKeys(const Profile& profile) {
    std::unordered_map<uint64_t, std::string> out;
    for (const auto& [key, ref] : profile.keys())
      if (ref.kind == Ref::Kind::Item) out[ref.id + (uint64_t{ref.store} << 32)] = key;
    return out;
  }

  bool sameObjectKeys() {
    for (const auto& [key, ref] : fresh_.keys()) {
      if (ref.kind == Ref::Kind::Item) continue;
      Ref expected = ref;
      if (ref.kind == Ref::Kind::Folder) {
        auto nid = ids_.nids(ref.store).find(ref.id);
        if (nid == ids_.nids(ref.store).end()) return false;
        expected.id = nid->second;
      }
      if (!(live_.byKey(key) == expected)) return false;
    }
    return true;
  }

  // The live item an unbuilt fresh item stands for, in whichever folder of
  // the store it is.
  const Item& unbuiltSource(size_t store, const std::string& key, const Item& fresh) {
    const Ref ref = live_.byKey(key);
    auto source =
        ref.kind == Ref::Kind::Item && ref.store == store ? live_.item(store, ref.id) : nullptr;
    if (!source || !source->parent || source->sourceHash != fresh.sourceHash) throw NeedsFullLoad{};
    return *source;
  }

  Profile& live_;
  Profile& fresh_;
  IdTranslator ids_;
  std::vector<FolderPair> pairs_;  // in the order the loader filled them
  bool anyUnbuilt_ = false;
  std::unordered_map<uint64_t, std::string> liveKeys_;  // (store << 32 | nid) -> key
  std::unordered_map<uint64_t, std::string> freshKeys_;
};

// False when `fresh` holds unbuilt items that `live` no longer vouches for;
// then nothing changed.
bool apply(Profile& live, Profile& fresh, ReloadResult& result) {
  PIM_ENTRY("PIM::store::reloadProfile");
  Planner planner(live, fresh);
  try {
    std::scoped_lock guard(live.mutex(), fresh.mutex());
    planner.plan();
  } catch (const NeedsFullLoad&) {
    return false;
  } catch (const RestartNeeded& e) {
    result.status = ReloadResult::Status::RestartNeeded;
    result.error = "the store cannot follow this change without a restart: " + e.what();
    PIM_LOG_ERR("Store file not reloaded: " << result.error);
    return true;
  }
  // One change at a time, each notifying on this thread outside the lock.
  for (Step& step : planner.steps) {
    bool done = false;
    switch (step.kind) {
      case Step::Kind::Delete:
        done = live.deleteItem(step.target);
        break;
      case Step::Kind::Replace:
        done = live.replaceItem(step.target, std::move(step.content), step.position);
        break;
      case Step::Kind::Insert:
        done = live.insertItem(step.target, std::move(step.content), step.position).id ==
               step.expectedNid;
        break;
    }
    if (!done) PIM_LOG_ERR("Store file reload: the store was changed at the same time");
  }
  live.replaceKeys(std::move(planner.keys));
  result.folders = std::move(planner.changed);
  result.status =
      result.folders.empty() ? ReloadResult::Status::Unchanged : ReloadResult::Status::Applied;
  PIM_LOG_MSG("Store file reloaded: " << result.folders.size() << " folders changed.");
  return true;
}

std::shared_ptr<Profile> load(const std::u16string& path, const KnownItems* known,
                              ReloadResult& result) {
  try {
    LoadStats stats;
    auto fresh = loadFixtureFile(path, known, &stats);
    result.itemsBuilt += stats.itemsBuilt;
    return fresh;
  } catch (const FixtureError& e) {
    result.status = ReloadResult::Status::LoadFailed;
    result.error = e.what();
    return nullptr;
  }
}

}  // namespace

KnownItems knownItems(Profile& live) {
  std::lock_guard<std::recursive_mutex> guard(live.mutex());
  KnownItems out;
  for (const auto& [key, ref] : live.keys()) {
    if (ref.kind != Ref::Kind::Item) continue;
    auto item = live.item(ref.store, ref.id);
    if (item && item->parent && item->sourceHash) out.emplace(key, item->sourceHash);
  }
  return out;
}

ReloadResult reloadProfile(Profile& live, Profile& fresh) {
  PIM_ENTRY("PIM::store::reloadProfile");
  ReloadResult result;
  if (!apply(live, fresh, result)) {
    result.status = ReloadResult::Status::RestartNeeded;
    result.error = "the store cannot follow this change without a restart: items were not loaded";
  }
  return result;
}

ReloadResult reloadFixtureFile(Profile& live, const std::u16string& path) {
  PIM_ENTRY("PIM::store::reloadFixtureFile");
  ReloadResult result;
  // Items whose text is unchanged are not built; should the live profile
  // change meanwhile so that one is not vouched for, the file is loaded whole.
  const KnownItems known = knownItems(live);
  std::shared_ptr<Profile> fresh = load(path, &known, result);
  if (!fresh) return result;
  if (apply(live, *fresh, result)) return result;
  fresh.reset();
  fresh = load(path, nullptr, result);
  if (fresh && !apply(live, *fresh, result)) {
    result.status = ReloadResult::Status::RestartNeeded;
    result.error = "the store cannot follow this change without a restart: items were not loaded";
  }
  return result;
}

// ---- FixtureWatcher --------------------------------------------------------------
FixtureWatcher::FixtureWatcher(std::shared_ptr<Profile> live, std::u16string path,
                               StoreFileLoader load)
    : live_(std::move(live)), path_(std::move(path)), load_(std::move(load)), seen_(stamp()) {}

FixtureWatcher::Stamp FixtureWatcher::stamp() const {
  const std::filesystem::path native = nativePath(path_);
  std::error_code timeError, sizeError;
  Stamp out;
  out.time = std::filesystem::last_write_time(native, timeError);
  out.size = std::filesystem::file_size(native, sizeError);
  out.exists = !timeError && !sizeError;
  if (!out.exists) out = Stamp{};
  return out;
}

ReloadResult FixtureWatcher::check() {
  PIM_ENTRY("PIM::store::FixtureWatcher::check");
  const Stamp now = stamp();
  if (now == seen_ && !retry_) return {};
  const bool firstTry = !(now == seen_);
  seen_ = now;
  retry_ = false;
  ReloadResult result;
  if (!load_) {
    result = reloadFixtureFile(*live_, path_);
  } else {
    try {
      const std::shared_ptr<Profile> fresh = load_(path_);
      result = reloadProfile(*live_, *fresh);
    } catch (const std::exception& e) {
      result.status = ReloadResult::Status::LoadFailed;
      result.error = e.what();
    }
  }
  if (result.status == ReloadResult::Status::LoadFailed) {
    if (firstTry) {
      // Likely caught halfway through a save: look again next time.
      retry_ = true;
      result.status = ReloadResult::Status::Pending;
      PIM_LOG_MSG("Store file does not load yet: " << result.error);
    } else {
      PIM_LOG_ERR("Store file not reloaded: " << result.error);
    }
  }
  return result;
}

}  // namespace PIM::store
