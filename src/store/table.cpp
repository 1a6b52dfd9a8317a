#include "store/table.h"

#include <algorithm>
#include <cstring>
#include <forward_list>
#include <unordered_map>
#include <unordered_set>

#include "core/debug_logger.h"
#include "store/fault_injector.h"

namespace PIM::store {
namespace {

// Every table method records itself, then asks the fault injector.
#define PIM_TABLE_FAULT(method)                                                                    \
  PIM_ENTRY("PIM::store::TableImpl::" method);                                                     \
  do {                                                                                             \
    if (HRESULT injected = FaultInjector::instance().check("IMAPITable", method)) return injected; \
  } while (0)

// A table row as restrictions, sorts and QueryRows see it: a computed row,
// or an item of a contents table read in place.
class RowView : public RowAccess {
 public:
  RowView(Profile& profile, const TableRow& row)
      : profile_(profile), row_(&row), store_(row.store), item_(row.item.get()) {}
  RowView(Profile& profile, size_t store, const Item& item)
      : profile_(profile), store_(store), item_(&item) {}

  const Prop* find(ULONG propId) const override {
    if (row_ && !row_->pending) return row_->props.find(propId);
    Prop value;
    const Prop* p = profile_.itemRowProp(store_, *item_, propId, value);
    if (p != &value) return p;
    // Kept while the view lives: a caller may hold two values of one row.
    computed_.push_front(std::move(value));
    return &computed_.front();
  }
  std::vector<PropList> subObjectRows(ULONG subObject) const override {
    std::vector<PropList> out;
    if (!item_) return out;
    if (subObject == PR_MESSAGE_RECIPIENTS) {
      for (size_t i = 0; i < item_->recipients.size(); ++i)
        out.push_back(profile_.recipientProps(item_->recipients[i], i));
    } else if (subObject == PR_MESSAGE_ATTACHMENTS) {
      for (const Attachment& a : item_->attachments) out.push_back(profile_.attachmentProps(a));
    }
    return out;
  }

 private:
  Profile& profile_;
  const TableRow* row_ = nullptr;
  size_t store_ = 0;
  const Item* item_ = nullptr;
  mutable std::forward_list<Prop> computed_;
};

std::vector<ULONG> defaultColumns(TableSource::Kind kind) {
  switch (kind) {
    case TableSource::Kind::Hierarchy:
    case TableSource::Kind::DeepHierarchy:
      return {PR_ENTRYID,    PR_DISPLAY_NAME_W,    PR_INSTANCE_KEY,
              PR_SUBFOLDERS, PR_CONTAINER_CLASS_W, PR_DEPTH};
    case TableSource::Kind::Stores:
      return {PR_ENTRYID,    PR_DISPLAY_NAME_W, PR_DEFAULT_STORE, PR_INSTANCE_KEY,
              PR_RECORD_KEY, PR_RESOURCE_FLAGS, PR_MDB_PROVIDER};
    case TableSource::Kind::Attachments:
      return {PR_ATTACH_NUM,        PR_INSTANCE_KEY,           PR_ATTACH_METHOD, PR_DISPLAY_NAME_W,
              PR_ATTACH_FILENAME_W, PR_ATTACH_LONG_FILENAME_W, PR_ATTACH_SIZE};
    case TableSource::Kind::Recipients:
      return {PR_ROWID,      PR_INSTANCE_KEY,    PR_DISPLAY_NAME_W, PR_RECIPIENT_TYPE,
              PR_ADDRTYPE_W, PR_EMAIL_ADDRESS_W, PR_ENTRYID};
    default:
      return {PR_ENTRYID, PR_INSTANCE_KEY, PR_MESSAGE_CLASS_W, PR_SUBJECT_W, PR_MESSAGE_FLAGS};
  }
}

}  // namespace

TableImpl* TableImpl::create(std::shared_ptr<Profile> profile, TableSource source) {
  return new TableImpl(std::move(profile), std::move(source));
}

TableImpl::TableImpl(std::shared_ptr<Profile> profile, TableSource source)
    : profile_(std::move(profile)), source_(std::move(source)) {
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  columns_ = defaultColumns(source_.kind);
  refresh(true);
  profile_->registerTable(this);
}

TableImpl::~TableImpl() {
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  profile_->unregisterTable(this);
}

bool TableImpl::answers(REFIID iid) const { return iid == IID_IMAPITable; }

DeliverOptions TableImpl::deliverOptions() {
  DeliverOptions options;
  if (source_.kind == TableSource::Kind::Stores) {
    options.stringLimit = 255;
    return options;
  }
  if (Store* store = profile_->storeAt(source_.store)) {
    options.unicode = store->options.unicode;
    options.stringLimit = store->options.tableStringLimit;
  }
  return options;
}

void TableImpl::refresh(bool force) {
  if (isContents()) {
    if (force) rebuildContents();
    return;
  }
  if (!force && viewVersion_ == profile_->version()) return;
  viewVersion_ = profile_->version();
  std::vector<TableRow> rows = profile_->rows(source_);
  if (restricted_) {
    std::vector<TableRow> kept;
    for (TableRow& row : rows)
      if (evaluate(restriction_, RowView(*profile_, row))) kept.push_back(std::move(row));
    rows = std::move(kept);
  }
  if (!sort_.empty()) {
    std::stable_sort(rows.begin(), rows.end(), [this](const TableRow& a, const TableRow& b) {
      return compareRows(sort_, RowView(*profile_, a), RowView(*profile_, b)) < 0;
    });
  }
  // Keep the cursor on the first row at or after it that is still shown; a
  // cursor at the end stays at the same index.
  size_t cursor = std::min(cursor_, rows.size());
  if (cursor_ < view_.size()) {
    std::unordered_map<std::string, size_t> places;
    for (size_t j = 0; j < rows.size(); ++j)
      places.emplace(std::string(rows[j].instanceKey.begin(), rows[j].instanceKey.end()), j);
    cursor = rows.size();
    for (size_t i = cursor_; i < view_.size(); ++i) {
      const Bytes& key = view_[i].instanceKey;
      auto at = places.find(std::string(key.begin(), key.end()));
      if (at != places.end()) {
        cursor = at->second;
        break;
      }
    }
  }
  view_ = std::move(rows);
  cursor_ = cursor;
}

void TableImpl::rebuildContents() {
  order_.clear();
  shown_.clear();
  auto folder = profile_->folder(source_.store, source_.folder);
  if (!folder) return;
  const bool associated = source_.kind == TableSource::Kind::Associated;
  for (const auto& item : folder->items)
    if (item->associated == associated &&
        (!restricted_ || evaluate(restriction_, RowView(*profile_, source_.store, *item))))
      order_.push_back(item.get());
  if (!sort_.empty()) {
    // Each row's keys are looked up once (its view keeps values it had to
    // compute), then the sort compares them n log n times.
    const size_t n = order_.size(), k = sort_.size();
    std::vector<RowView> views;
    views.reserve(n);
    std::vector<const Prop*> values(n * k);
    for (size_t i = 0; i < n; ++i) {
      views.emplace_back(*profile_, source_.store, *order_[i]);
      sortValues(sort_, views.back(), values.data() + i * k);
    }
    std::vector<size_t> places(n);
    for (size_t i = 0; i < n; ++i) places[i] = i;
    std::stable_sort(places.begin(), places.end(), [&](size_t a, size_t b) {
      return compareSortValues(sort_, values.data() + a * k, values.data() + b * k) < 0;
    });
    std::vector<const Item*> sorted(n);
    for (size_t i = 0; i < n; ++i) sorted[i] = order_[places[i]];
    order_ = std::move(sorted);
  }
  shown_.insert(order_.begin(), order_.end());
}

Bytes TableImpl::keyAt(size_t index) const {
  return isContents() ? profile_->instanceKey(source_.store, order_[index]->nid)
                      : view_[index].instanceKey;
}

bool TableImpl::matchesAt(const Restriction& restriction, size_t index) {
  return isContents() ? evaluate(restriction, RowView(*profile_, source_.store, *order_[index]))
                      : evaluate(restriction, RowView(*profile_, view_[index]));
}

size_t TableImpl::placeOf(const Item& item, size_t skip) {
  // Positions in order_ as if the entry at `skip` (the item's old place, or
  // past the end) were not there.
  const size_t count = order_.size() - (skip < order_.size() ? 1 : 0);
  auto at = [&](size_t i) { return order_[i < skip ? i : i + 1]; };
  auto folder = profile_->folder(source_.store, source_.folder);
  const auto& items = folder->items;
  auto inFolder = std::find_if(items.begin(), items.end(), [&item](const std::shared_ptr<Item>& i) {
    return i.get() == &item;
  });
  if (sort_.empty()) {
    // The folder's order: right after the nearest item before it that is shown.
    while (inFolder != items.begin()) {
      --inFolder;
      if (inFolder->get() == &item || !shown_.count(inFolder->get())) continue;
      const size_t p = static_cast<size_t>(
          std::find(order_.begin(), order_.end(), inFolder->get()) - order_.begin());
      return (p < skip ? p : p - 1) + 1;
    }
    return 0;
  }
  const RowView row(*profile_, source_.store, item);
  // The first position in [from, count) whose row does not order before
  // `row` (orEqual: not before nor level with it).
  auto search = [&](size_t from, bool orEqual) {
    size_t lo = from, hi = count;
    while (lo < hi) {
      const size_t mid = lo + (hi - lo) / 2;
      const int c = compareRows(sort_, RowView(*profile_, source_.store, *at(mid)), row);
      if (c < 0 || (orEqual && c == 0))
        lo = mid + 1;
      else
        hi = mid;
    }
    return lo;
  };
  const size_t first = search(0, false);
  const size_t last = search(first, true);
  if (first == last) return first;
  // Equal keys keep the folder's order: count the tied rows before it there.
  std::unordered_set<const Item*> tied;
  for (size_t i = first; i < last; ++i) tied.insert(at(i));
  size_t before = 0;
  for (auto i = items.begin(); i != inFolder; ++i) before += tied.count(i->get());
  return first + before;
}

HRESULT TableImpl::buildRow(size_t index, void* root, LPSPropValue* values, ULONG* count) {
  const DeliverOptions options = deliverOptions();
  MapiBuffer<SPropValue> own;
  LPSPropValue props = nullptr;
  const ULONG bytes = static_cast<ULONG>(sizeof(SPropValue) * std::max<size_t>(1, columns_.size()));
  HRESULT hr = root ? MAPIAllocateMore(bytes, root, reinterpret_cast<void**>(&props))
                    : MAPIAllocateBuffer(bytes, own.putVoid());
  if (FAILED(hr)) return hr;
  if (!root) props = own.get();
  void* base = root ? root : props;
  const RowView row = isContents() ? RowView(*profile_, source_.store, *order_[index])
                                   : RowView(*profile_, view_[index]);
  for (size_t i = 0; i < columns_.size(); ++i) {
    bool isError = false;
    hr = deliver(row.find(PROP_ID(columns_[i])), columns_[i], base, props[i], options, isError);
    if (FAILED(hr)) return hr;
  }
  *values = root ? props : own.detach();
  *count = static_cast<ULONG>(columns_.size());
  return S_OK;
}

void TableImpl::itemChanged(const Item* item, bool present, std::vector<PendingNotification>& out) {
  long before = -1, after = -1;
  if (item) {
    size_t old = order_.size();
    if (shown_.count(item)) {
      old = static_cast<size_t>(std::find(order_.begin(), order_.end(), item) - order_.begin());
      before = static_cast<long>(old);
    }
    if (present && item->associated == (source_.kind == TableSource::Kind::Associated) &&
        (!restricted_ || evaluate(restriction_, RowView(*profile_, source_.store, *item)))) {
      const size_t place = placeOf(*item, old);
      after = static_cast<long>(place);
      // Only the rows between its old and new places move.
      if (before < 0) {
        order_.insert(order_.begin() + static_cast<ptrdiff_t>(place), item);
        shown_.insert(item);
      } else if (place < old) {
        std::rotate(order_.begin() + static_cast<ptrdiff_t>(place),
                    order_.begin() + static_cast<ptrdiff_t>(old),
                    order_.begin() + static_cast<ptrdiff_t>(old) + 1);
      } else if (place > old) {
        std::rotate(order_.begin() + static_cast<ptrdiff_t>(old),
                    order_.begin() + static_cast<ptrdiff_t>(old) + 1,
                    order_.begin() + static_cast<ptrdiff_t>(place) + 1);
      }
    } else if (before >= 0) {
      order_.erase(order_.begin() + before);
      shown_.erase(item);
    }
    // The cursor stays on its row; on the changed row, it follows it, or
    // goes to the row after it when it left; at the end, it keeps its index.
    const size_t oldCount = order_.size() + (before >= 0) - (after >= 0);
    if (cursor_ < oldCount) {
      if (static_cast<long>(cursor_) == before) {
        if (after >= 0) cursor_ = static_cast<size_t>(after);
      } else {
        size_t rest = cursor_ - (before >= 0 && before < static_cast<long>(cursor_) ? 1 : 0);
        cursor_ = rest + (after >= 0 && after <= static_cast<long>(rest) ? 1 : 0);
      }
    } else {
      cursor_ = std::min(cursor_, order_.size());
    }
  }
  if (sinks_.empty()) return;
  ULONG event = TABLE_CHANGED;
  if (item) {
    if (before < 0 && after < 0) return;  // not shown before or after
    event = before < 0 ? TABLE_ROW_ADDED : (after < 0 ? TABLE_ROW_DELETED : TABLE_ROW_MODIFIED);
  }
  const Bytes changedKey = item ? profile_->instanceKey(source_.store, item->nid) : Bytes();
  for (auto& [connection, sink] : sinks_) {
    PendingNotification pending;
    if (FAILED(MAPIAllocateBuffer(sizeof(NOTIFICATION), pending.notification.putVoid()))) return;
    NOTIFICATION* n = pending.notification.get();
    std::memset(n, 0, sizeof(NOTIFICATION));
    n->ulEventType = fnevTableModified;
    TABLE_NOTIFICATION& tab = n->info.tab;
    tab.ulTableEvent = event;
    tab.hResult = S_OK;
    tab.propIndex.ulPropTag = PR_NULL;
    tab.propPrior.ulPropTag = PR_NULL;
    auto keyValue = [&](const Bytes& key, SPropValue& v) {
      v.ulPropTag = PR_INSTANCE_KEY;
      v.Value.bin.cb = static_cast<ULONG>(key.size());
      if (FAILED(MAPIAllocateMore(static_cast<ULONG>(key.size() + 1), n,
                                  reinterpret_cast<void**>(&v.Value.bin.lpb))))
        return false;
      if (!key.empty()) std::memcpy(v.Value.bin.lpb, key.data(), key.size());
      return true;
    };
    if (event != TABLE_CHANGED && !keyValue(changedKey, tab.propIndex)) return;
    if (event == TABLE_ROW_ADDED || event == TABLE_ROW_MODIFIED) {
      if (after > 0 && !keyValue(keyAt(static_cast<size_t>(after - 1)), tab.propPrior)) return;
      if (FAILED(buildRow(static_cast<size_t>(after), n, &tab.row.lpProps, &tab.row.cValues)))
        return;
    }
    pending.sink = ComPtr<IMAPIAdviseSink>::share(sink.get());
    out.push_back(std::move(pending));
    (void)connection;
  }
}

HRESULT TableImpl::GetLastError(HRESULT, ULONG, LPMAPIERROR* lppMAPIError) {
  if (!lppMAPIError) return MAPI_E_INVALID_PARAMETER;
  *lppMAPIError = nullptr;
  return S_OK;
}

HRESULT TableImpl::Advise(ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG* lpulConnection) {
  PIM_TABLE_FAULT("Advise");
  if (!lpAdviseSink || !lpulConnection) return MAPI_E_INVALID_PARAMETER;
  if (!(ulEventMask & (fnevTableModified | fnevCriticalError))) return MAPI_E_INVALID_PARAMETER;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  refresh();
  const ULONG connection = nextConnection_++;
  sinks_[connection] = ComPtr<IMAPIAdviseSink>::share(lpAdviseSink);
  *lpulConnection = connection;
  return S_OK;
}

HRESULT TableImpl::Unadvise(ULONG ulConnection) {
  PIM_TABLE_FAULT("Unadvise");
  ComPtr<IMAPIAdviseSink> released;  // let go outside the lock
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  auto it = sinks_.find(ulConnection);
  if (it == sinks_.end()) return MAPI_E_NOT_FOUND;
  released = std::move(it->second);
  sinks_.erase(it);
  return S_OK;
}

HRESULT TableImpl::GetStatus(ULONG* lpulTableStatus, ULONG* lpulTableType) {
  PIM_TABLE_FAULT("GetStatus");
  if (!lpulTableStatus || !lpulTableType) return MAPI_E_INVALID_PARAMETER;
  *lpulTableStatus = TBLSTAT_COMPLETE;
  *lpulTableType = TBLTYPE_DYNAMIC;
  return S_OK;
}

HRESULT TableImpl::SetColumns(LPSPropTagArray lpPropTagArray, ULONG) {
  PIM_TABLE_FAULT("SetColumns");
  if (!lpPropTagArray) return MAPI_E_INVALID_PARAMETER;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  columns_.assign(lpPropTagArray->aulPropTag, lpPropTagArray->aulPropTag + lpPropTagArray->cValues);
  return S_OK;
}

HRESULT TableImpl::QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) {
  PIM_TABLE_FAULT("QueryColumns");
  if (!lpPropTagArray) return MAPI_E_INVALID_PARAMETER;
  *lpPropTagArray = nullptr;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  std::vector<ULONG> tags = columns_;
  if (ulFlags & TBL_ALL_COLUMNS) {
    // Every property any row has, after the current columns.
    std::vector<ULONG> rowTags;
    std::unordered_set<ULONG> seen;
    for (ULONG t : tags) seen.insert(PROP_ID(t));
    for (const TableRow& row : profile_->rows(source_)) {
      profile_->rowPropTags(row, rowTags);
      for (ULONG tag : rowTags)
        if (PROP_TYPE(tag) != PT_ERROR && PROP_TYPE(tag) != PT_OBJECT &&
            seen.insert(PROP_ID(tag)).second)
          tags.push_back(tag);
    }
  }
  MapiBuffer<SPropTagArray> out;
  HRESULT hr =
      MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(tags.size())), out.putVoid());
  if (FAILED(hr)) return hr;
  out->cValues = static_cast<ULONG>(tags.size());
  for (size_t i = 0; i < tags.size(); ++i) out->aulPropTag[i] = tags[i];
  *lpPropTagArray = out.detach();
  return S_OK;
}

HRESULT TableImpl::GetRowCount(ULONG, ULONG* lpulCount) {
  PIM_TABLE_FAULT("GetRowCount");
  if (!lpulCount) return MAPI_E_INVALID_PARAMETER;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  refresh();
  *lpulCount = static_cast<ULONG>(rowCount());
  return S_OK;
}

HRESULT TableImpl::SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought) {
  PIM_TABLE_FAULT("SeekRow");
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  refresh();
  long origin = 0;
  if (bkOrigin == BOOKMARK_BEGINNING) {
    origin = 0;
  } else if (bkOrigin == BOOKMARK_CURRENT) {
    origin = static_cast<long>(cursor_);
  } else if (bkOrigin == BOOKMARK_END) {
    origin = static_cast<long>(rowCount());
  } else {
    auto it = bookmarks_.find(bkOrigin);
    if (it == bookmarks_.end()) return MAPI_E_INVALID_BOOKMARK;
    origin = static_cast<long>(std::min(it->second, rowCount()));
  }
  const long target =
      std::clamp<long>(origin + static_cast<long>(lRowCount), 0, static_cast<long>(rowCount()));
  cursor_ = static_cast<size_t>(target);
  if (lplRowsSought) *lplRowsSought = static_cast<LONG>(target - origin);
  return S_OK;
}

HRESULT TableImpl::SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator) {
  PIM_TABLE_FAULT("SeekRowApprox");
  if (ulDenominator == 0) return MAPI_E_INVALID_PARAMETER;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  refresh();
  cursor_ = std::min<size_t>(rowCount(), static_cast<size_t>(static_cast<uint64_t>(rowCount()) *
                                                             ulNumerator / ulDenominator));
  return S_OK;
}

HRESULT TableImpl::QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator) {
  PIM_TABLE_FAULT("QueryPosition");
  if (!lpulRow || !lpulNumerator || !lpulDenominator) return MAPI_E_INVALID_PARAMETER;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  refresh();
  *lpulRow = static_cast<ULONG>(cursor_);
  *lpulNumerator = static_cast<ULONG>(cursor_);
  *lpulDenominator = static_cast<ULONG>(std::max<size_t>(1, rowCount()));
  return S_OK;
}

HRESULT TableImpl::FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags) {
  PIM_TABLE_FAULT("FindRow");
  if (!lpRestriction) return MAPI_E_INVALID_PARAMETER;
  Restriction wanted;
  if (HRESULT hr = copyRestriction(*lpRestriction, wanted); FAILED(hr)) return hr;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  LONG ignored = 0;
  if (HRESULT hr = SeekRow(bkOrigin, 0, &ignored); FAILED(hr)) return hr;
  const bool backward = (ulFlags & DIR_BACKWARD) != 0;
  for (long i = static_cast<long>(cursor_) - (backward ? 1 : 0);
       i >= 0 && i < static_cast<long>(rowCount()); i += backward ? -1 : 1) {
    if (matchesAt(wanted, static_cast<size_t>(i))) {
      cursor_ = static_cast<size_t>(i);
      return S_OK;
    }
  }
  return MAPI_E_NOT_FOUND;
}

HRESULT TableImpl::Restrict(LPSRestriction lpRestriction, ULONG) {
  PIM_TABLE_FAULT("Restrict");
  Restriction copy;
  if (lpRestriction)
    if (HRESULT hr = copyRestriction(*lpRestriction, copy); FAILED(hr)) return hr;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  restricted_ = lpRestriction != nullptr;
  restriction_ = std::move(copy);
  cursor_ = 0;
  refresh(true);
  cursor_ = 0;
  return S_OK;
}

HRESULT TableImpl::CreateBookmark(BOOKMARK* lpbkPosition) {
  PIM_TABLE_FAULT("CreateBookmark");
  if (!lpbkPosition) return MAPI_E_INVALID_PARAMETER;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  *lpbkPosition = nextBookmark_++;
  bookmarks_[*lpbkPosition] = cursor_;
  return S_OK;
}

HRESULT TableImpl::FreeBookmark(BOOKMARK bkPosition) {
  PIM_TABLE_FAULT("FreeBookmark");
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  return bookmarks_.erase(bkPosition) ? S_OK : MAPI_E_INVALID_BOOKMARK;
}

HRESULT TableImpl::SortTable(LPSSortOrderSet lpSortCriteria, ULONG) {
  PIM_TABLE_FAULT("SortTable");
  if (!lpSortCriteria) return MAPI_E_INVALID_PARAMETER;
  // Categorized views and sorting on single values of multi-valued
  // properties are beyond this store, as they are beyond many real ones.
  if (lpSortCriteria->cCategories != 0) return MAPI_E_TOO_COMPLEX;
  std::vector<SSortOrder> keys(lpSortCriteria->aSort,
                               lpSortCriteria->aSort + lpSortCriteria->cSorts);
  for (const SSortOrder& key : keys)
    if ((PROP_TYPE(key.ulPropTag) & MV_INSTANCE) || key.ulOrder > TABLE_SORT_DESCEND)
      return MAPI_E_TOO_COMPLEX;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  sort_ = std::move(keys);
  refresh(true);
  cursor_ = 0;
  return S_OK;
}

HRESULT TableImpl::QuerySortOrder(LPSSortOrderSet* lppSortCriteria) {
  PIM_TABLE_FAULT("QuerySortOrder");
  if (!lppSortCriteria) return MAPI_E_INVALID_PARAMETER;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  MapiBuffer<SSortOrderSet> out;
  HRESULT hr =
      MAPIAllocateBuffer(static_cast<ULONG>(CbNewSSortOrderSet(sort_.size())), out.putVoid());
  if (FAILED(hr)) return hr;
  out->cSorts = static_cast<ULONG>(sort_.size());
  out->cCategories = 0;
  out->cExpanded = 0;
  for (size_t i = 0; i < sort_.size(); ++i) out->aSort[i] = sort_[i];
  *lppSortCriteria = out.detach();
  return S_OK;
}

HRESULT TableImpl::QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) {
  PIM_TABLE_FAULT("QueryRows");
  if (!lppRows) return MAPI_E_INVALID_PARAMETER;
  *lppRows = nullptr;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  refresh();
  size_t first = cursor_, count = 0;
  if (lRowCount >= 0) {
    count = std::min<size_t>(static_cast<size_t>(lRowCount), rowCount() - cursor_);
  } else {
    count = std::min<size_t>(static_cast<size_t>(-static_cast<int64_t>(lRowCount)), cursor_);
    first = cursor_ - count;
  }
  RowSet rows;
  HRESULT hr = MAPIAllocateBuffer(static_cast<ULONG>(CbNewSRowSet(count)),
                                  reinterpret_cast<void**>(rows.put()));
  if (FAILED(hr)) return hr;
  rows->cRows = 0;
  for (size_t i = 0; i < count; ++i) {
    SRow& row = rows->aRow[i];
    row.ulAdrEntryPad = 0;
    if (FAILED(hr = buildRow(first + i, nullptr, &row.lpProps, &row.cValues))) return hr;
    rows->cRows = static_cast<ULONG>(i + 1);
  }
  if (!(ulFlags & TBL_NOADVANCE)) cursor_ = lRowCount >= 0 ? first + count : first;
  *lppRows = rows.detach();
  return S_OK;
}

HRESULT TableImpl::Abort() { return S_OK; }

HRESULT TableImpl::ExpandRow(ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*) {
  return MAPI_E_NO_SUPPORT;
}
HRESULT TableImpl::CollapseRow(ULONG, LPBYTE, ULONG, ULONG*) { return MAPI_E_NO_SUPPORT; }

HRESULT TableImpl::WaitForCompletion(ULONG, ULONG, ULONG* lpulTableStatus) {
  PIM_TABLE_FAULT("WaitForCompletion");
  if (lpulTableStatus) *lpulTableStatus = TBLSTAT_COMPLETE;
  return S_OK;
}

HRESULT TableImpl::GetCollapseState(ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*) {
  return MAPI_E_NO_SUPPORT;
}
HRESULT TableImpl::SetCollapseState(ULONG, ULONG, LPBYTE, BOOKMARK*) { return MAPI_E_NO_SUPPORT; }

}  // namespace PIM::store
