// Reading a MAPI table one row at a time.
//
//   MAPITable table(contentsTable);        // throws ComError
//   table.setColumns({PR_ENTRYID, PR_SUBJECT_W});
//   table.restrict(&restriction, 0);
//   while (MAPIProperties* row = table.getNextRow()) ...
//
// Rows come from the store 100 at a time and only one batch is held. The row
// returned by getNextRow() stays valid until the next getNextRow() or the
// wrapper's end. A busy store (MAPI_E_BUSY) is waited for (up to 500 ms) and
// asked once more. Used by one thread at a time; no lock.
#pragma once

#include <vector>

#include "mapi/mapi.h"
#include "mapi/mapi_properties.h"
#include "mapi/mapi_ptr.h"

namespace PIM {

class MAPITable {
 public:
  static constexpr LONG kBatchRows = 100;
  static constexpr ULONG kBusyWaitMs = 500;

  // Takes a reference of its own, reads the row count and seeks to the first
  // row; a failure is thrown as ComError. A null table only logs.
  explicit MAPITable(IMAPITable* table);
  MAPITable(const MAPITable&) = delete;
  MAPITable& operator=(const MAPITable&) = delete;
  ~MAPITable();

  // The count read at construction (not asked again).
  ULONG getRowCount() const { return rowCount_; }
  [[nodiscard]] HRESULT reset();
  [[nodiscard]] HRESULT setColumns(const std::vector<ULONG>& tags);
  // S_OK (warnings included), the failure code, or E_FAIL when the store
  // stayed busy.
  [[nodiscard]] HRESULT restrict(SRestriction* restriction, ULONG flags);
  [[nodiscard]] HRESULT sortTable(SSortOrderSet* sortOrder, ULONG flags);
  // The next row, or null at the end of the table and on any failure.
  MAPIProperties* getNextRow();
  // Why the last getNextRow() returned null when the store failed (or
  // stayed busy) rather than running out of rows; S_OK otherwise. A reader
  // that would take a failure for the end keeps a shortened copy of the
  // table as if it were whole.
  HRESULT rowError() const { return rowError_; }

 private:
  // Calls `call` again after a wait while the store answers busy; at most
  // two attempts. Returns the last answer.
  template <class Call>
  HRESULT retryWhenBusy(Call call);

  ULONG rowCount_ = 0;
  ComPtr<IMAPITable> table_;
  ULONG next_ = 0;
  RowSet batch_;
  MAPIProperties row_;
  HRESULT rowError_ = S_OK;
};

}  // namespace PIM
