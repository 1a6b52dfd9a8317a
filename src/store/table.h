// The store's IMAPITable: a live view (columns, restriction, sort, cursor)
// over one TableSource of a Profile. See restriction.h for how restrictions
// and sorts behave; rows cut strings at the store's table string limit.
//
// A contents table holds only the order of the folder's items it shows: the
// restriction and the sort keys are read from the items in place, a row's
// columns are made when QueryRows (or a notification) hands it out, and a
// change to one item moves that one entry instead of recomputing the view.
// Other tables recompute their (small) rows when the profile changed.
#pragma once

#include <map>
#include <memory>
#include <unordered_set>
#include <vector>

#include "mapi/mapi_ptr.h"
#include "store/com_base.h"
#include "store/profile.h"
#include "store/props.h"
#include "store/restriction.h"

namespace PIM::store {

// A notification ready to deliver outside the profile's lock.
struct PendingNotification {
  ComPtr<IMAPIAdviseSink> sink;
  MapiBuffer<NOTIFICATION> notification;
};

class TableImpl final : public ComBase<IMAPITable> {
 public:
  // One reference for the caller.
  static TableImpl* create(std::shared_ptr<Profile> profile, TableSource source);

  const TableSource& source() const { return source_; }
  // Contents tables, under the profile's lock, right after the change: takes
  // in the change to `item` (in the folder when `present`) and queues one
  // notification per advise sink for its row, if the table shows it before
  // or after; null `item`: TABLE_CHANGED.
  void itemChanged(const Item* item, bool present, std::vector<PendingNotification>& out);

  MAPIMETHOD(GetLastError)(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override;
  MAPIMETHOD(Advise)
  (ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG* lpulConnection) override;
  MAPIMETHOD(Unadvise)(ULONG ulConnection) override;
  MAPIMETHOD(GetStatus)(ULONG* lpulTableStatus, ULONG* lpulTableType) override;
  MAPIMETHOD(SetColumns)(LPSPropTagArray lpPropTagArray, ULONG ulFlags) override;
  MAPIMETHOD(QueryColumns)(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) override;
  MAPIMETHOD(GetRowCount)(ULONG ulFlags, ULONG* lpulCount) override;
  MAPIMETHOD(SeekRow)(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought) override;
  MAPIMETHOD(SeekRowApprox)(ULONG ulNumerator, ULONG ulDenominator) override;
  MAPIMETHOD(QueryPosition)(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator) override;
  MAPIMETHOD(FindRow)(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags) override;
  MAPIMETHOD(Restrict)(LPSRestriction lpRestriction, ULONG ulFlags) override;
  MAPIMETHOD(CreateBookmark)(BOOKMARK* lpbkPosition) override;
  MAPIMETHOD(FreeBookmark)(BOOKMARK bkPosition) override;
  MAPIMETHOD(SortTable)(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) override;
  MAPIMETHOD(QuerySortOrder)(LPSSortOrderSet* lppSortCriteria) override;
  MAPIMETHOD(QueryRows)(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) override;
  MAPIMETHOD(Abort)() override;
  MAPIMETHOD(ExpandRow)
  (ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulRowCount, ULONG ulFlags, LPSRowSet* lppRows,
   ULONG* lpulMoreRows) override;
  MAPIMETHOD(CollapseRow)
  (ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulFlags, ULONG* lpulRowCount) override;
  MAPIMETHOD(WaitForCompletion)(ULONG ulFlags, ULONG ulTimeout, ULONG* lpulTableStatus) override;
  MAPIMETHOD(GetCollapseState)
  (ULONG ulFlags, ULONG cbInstanceKey, LPBYTE lpbInstanceKey, ULONG* lpcbCollapseState,
   LPBYTE* lppbCollapseState) override;
  MAPIMETHOD(SetCollapseState)
  (ULONG ulFlags, ULONG cbCollapseState, LPBYTE pbCollapseState, BOOKMARK* lpbkLocation) override;

 private:
  TableImpl(std::shared_ptr<Profile> profile, TableSource source);
  ~TableImpl() override;
  bool answers(REFIID iid) const override;
  const char* interfaceName() const override { return "IMAPITable"; }
  bool isContents() const {
    return source_.kind == TableSource::Kind::Contents ||
           source_.kind == TableSource::Kind::Associated;
  }
  // Under the profile's lock. Other tables: recomputes the rows when the
  // profile changed (or `force`), keeping the cursor on the same row where
  // that row is still shown. Contents tables: with `force`, makes the order
  // anew from the folder (the callers then reset the cursor).
  void refresh(bool force = false);
  void rebuildContents();
  size_t rowCount() const { return isContents() ? order_.size() : view_.size(); }
  Bytes keyAt(size_t index) const;
  bool matchesAt(const Restriction& restriction, size_t index);
  // Where a contents row for `item` belongs in order_ once the entry at
  // `skip` (its old place; past the end: none) has left.
  size_t placeOf(const Item& item, size_t skip);
  // Fills one row's values for the current columns into MAPI memory tied to
  // `root` (null: a new root, returned through `values`).
  HRESULT buildRow(size_t index, void* root, LPSPropValue* values, ULONG* count);
  DeliverOptions deliverOptions();

  std::shared_ptr<Profile> profile_;
  TableSource source_;
  // Guarded by the profile's lock:
  std::vector<ULONG> columns_;
  bool restricted_ = false;
  Restriction restriction_;
  std::vector<SSortOrder> sort_;
  std::vector<TableRow> view_;  // other tables
  uint64_t viewVersion_ = 0;
  // Contents tables: the items shown, in the table's order, and the same as
  // a set. Items leave the table (under the lock) before they are let go.
  std::vector<const Item*> order_;
  std::unordered_set<const Item*> shown_;
  size_t cursor_ = 0;
  std::map<BOOKMARK, size_t> bookmarks_;
  BOOKMARK nextBookmark_ = 3;
  std::map<ULONG, ComPtr<IMAPIAdviseSink>> sinks_;
  ULONG nextConnection_ = 1;
};

}  // namespace PIM::store
