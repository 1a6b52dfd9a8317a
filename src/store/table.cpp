#include "store/table.h"

#include <algorithm>
#include <cstring>
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

// A table row as restrictions and sorts see it.
class RowView : public RowAccess {
 public:
  RowView(Profile& profile, const TableRow& row) : profile_(profile), row_(row) {}
  const Prop* find(ULONG propId) const override { return profile_.rowProps(row_).find(propId); }
  std::vector<PropList> subObjectRows(ULONG subObject) const override {
    std::vector<PropList> out;
    if (!row_.item) return out;
    if (subObject == PR_MESSAGE_RECIPIENTS) {
      for (size_t i = 0; i < row_.item->recipients.size(); ++i)
        out.push_back(profile_.recipientProps(row_.item->recipients[i], i));
    } else if (subObject == PR_MESSAGE_ATTACHMENTS) {
      for (const Attachment& a : row_.item->attachments) out.push_back(profile_.attachmentProps(a));
    }
    return out;
  }

 private:
  Profile& profile_;
  const TableRow& row_;
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
    cursor = rows.size();
    for (size_t i = cursor_; i < view_.size() && cursor == rows.size(); ++i)
      for (size_t j = 0; j < rows.size(); ++j)
        if (rows[j].instanceKey == view_[i].instanceKey) {
          cursor = j;
          break;
        }
  }
  view_ = std::move(rows);
  cursor_ = cursor;
}

HRESULT TableImpl::buildRow(const TableRow& row, void* root, LPSPropValue* values, ULONG* count) {
  const DeliverOptions options = deliverOptions();
  MapiBuffer<SPropValue> own;
  LPSPropValue props = nullptr;
  const ULONG bytes = static_cast<ULONG>(sizeof(SPropValue) * std::max<size_t>(1, columns_.size()));
  HRESULT hr = root ? MAPIAllocateMore(bytes, root, reinterpret_cast<void**>(&props))
                    : MAPIAllocateBuffer(bytes, own.putVoid());
  if (FAILED(hr)) return hr;
  if (!root) props = own.get();
  void* base = root ? root : props;
  for (size_t i = 0; i < columns_.size(); ++i) {
    bool isError = false;
    hr = deliver(profile_->rowProps(row).find(PROP_ID(columns_[i])), columns_[i], base, props[i],
                 options, isError);
    if (FAILED(hr)) return hr;
  }
  *values = root ? props : own.detach();
  *count = static_cast<ULONG>(columns_.size());
  return S_OK;
}

void TableImpl::collectNotifications(const Bytes& changedKey,
                                     std::vector<PendingNotification>& out) {
  auto indexIn = [&changedKey](const std::vector<TableRow>& rows) -> long {
    for (size_t i = 0; i < rows.size(); ++i)
      if (rows[i].instanceKey == changedKey) return static_cast<long>(i);
    return -1;
  };
  const long before = changedKey.empty() ? -1 : indexIn(view_);
  refresh(true);
  if (sinks_.empty()) return;
  const long after = changedKey.empty() ? -1 : indexIn(view_);
  ULONG event = TABLE_CHANGED;
  if (!changedKey.empty()) {
    if (before < 0 && after < 0) return;  // not shown before or after
    event = before < 0 ? TABLE_ROW_ADDED : (after < 0 ? TABLE_ROW_DELETED : TABLE_ROW_MODIFIED);
  }
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
      if (after > 0 && !keyValue(view_[after - 1].instanceKey, tab.propPrior)) return;
      if (FAILED(buildRow(view_[after], n, &tab.row.lpProps, &tab.row.cValues))) return;
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
  *lpulCount = static_cast<ULONG>(view_.size());
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
    origin = static_cast<long>(view_.size());
  } else {
    auto it = bookmarks_.find(bkOrigin);
    if (it == bookmarks_.end()) return MAPI_E_INVALID_BOOKMARK;
    origin = static_cast<long>(std::min(it->second, view_.size()));
  }
  const long target =
      std::clamp<long>(origin + static_cast<long>(lRowCount), 0, static_cast<long>(view_.size()));
  cursor_ = static_cast<size_t>(target);
  if (lplRowsSought) *lplRowsSought = static_cast<LONG>(target - origin);
  return S_OK;
}

HRESULT TableImpl::SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator) {
  PIM_TABLE_FAULT("SeekRowApprox");
  if (ulDenominator == 0) return MAPI_E_INVALID_PARAMETER;
  std::lock_guard<std::recursive_mutex> guard(profile_->mutex());
  refresh();
  cursor_ = std::min<size_t>(view_.size(), static_cast<size_t>(static_cast<uint64_t>(view_.size()) *
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
  *lpulDenominator = static_cast<ULONG>(std::max<size_t>(1, view_.size()));
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
       i >= 0 && i < static_cast<long>(view_.size()); i += backward ? -1 : 1) {
    if (evaluate(wanted, RowView(*profile_, view_[static_cast<size_t>(i)]))) {
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
    count = std::min<size_t>(static_cast<size_t>(lRowCount), view_.size() - cursor_);
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
    if (FAILED(hr = buildRow(view_[first + i], nullptr, &row.lpProps, &row.cValues))) return hr;
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
