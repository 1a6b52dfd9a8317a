// The store's IMAPITable: a live view (columns, restriction, sort, cursor)
// over one TableSource of a Profile. See restriction.h for how restrictions
// and sorts behave; rows cut strings at the store's table string limit.
#pragma once

#include <map>
#include <memory>
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
  // Under the profile's lock: brings the view up to date and queues one
  // notification per advise sink for the row `changedKey` (or TABLE_CHANGED
  // when `changedKey` is empty).
  void collectNotifications(const Bytes& changedKey, std::vector<PendingNotification>& out);

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
  // Recomputes the view from the profile (under its lock), keeping the
  // cursor on the same row where that row is still shown.
  void refresh(bool force = false);
  // Fills one row's values for the current columns into MAPI memory tied to
  // `root` (null: a new root, returned through `values`).
  HRESULT buildRow(const TableRow& row, void* root, LPSPropValue* values, ULONG* count);
  DeliverOptions deliverOptions();

  std::shared_ptr<Profile> profile_;
  TableSource source_;
  // Guarded by the profile's lock:
  std::vector<ULONG> columns_;
  bool restricted_ = false;
  Restriction restriction_;
  std::vector<SSortOrder> sort_;
  std::vector<TableRow> view_;
  uint64_t viewVersion_ = 0;
  size_t cursor_ = 0;
  std::map<BOOKMARK, size_t> bookmarks_;
  BOOKMARK nextBookmark_ = 3;
  std::map<ULONG, ComPtr<IMAPIAdviseSink>> sinks_;
  ULONG nextConnection_ = 1;
};

}  // namespace PIM::store
