#include "mapi/mapi_table.h"

#include "core/debug_logger.h"
#include "mapi/com_error.h"

namespace PIM {

namespace {

constexpr int kAttempts = 2;

// What restrict and sortTable answer: warnings count as success, a store
// that stayed busy as E_FAIL.
HRESULT viewResult(HRESULT hr) {
  if (hr == MAPI_E_BUSY) return E_FAIL;
  return FAILED(hr) ? hr : S_OK;
}

}  // namespace

MAPITable::MAPITable(IMAPITable* table) : table_(ComPtr<IMAPITable>::share(table)) {
  PIM_ENTRY("PIM::MAPITable::MAPITable");
  PIM_ASSERT(table_);
  if (!table_) return;
  HRESULT hr = table_->GetRowCount(0, &rowCount_);
  if (FAILED(hr)) throwComError(hr);
  hr = reset();
  if (FAILED(hr)) throwComError(hr);
}

MAPITable::~MAPITable() {
  // The current row points into the batch.
  row_.release();
}

HRESULT MAPITable::reset() {
  PIM_ENTRY("PIM::MAPITable::reset");
  PIM_ASSERT(table_);
  if (!table_) return E_INVALIDARG;
  return table_->SeekRow(BOOKMARK_BEGINNING, 0, nullptr);
}

HRESULT MAPITable::setColumns(const std::vector<ULONG>& tags) {
  PIM_ENTRY("PIM::MAPITable::setColumns");
  PIM_ASSERT(table_);
  if (!table_) return E_INVALIDARG;
  try {
    PropTagArray columns(tags);
    return table_->SetColumns(columns.get(), TBL_ASYNC);
  } catch (const ComError& error) {
    // Out of memory goes on as std::bad_alloc.
    return error.hr();
  }
}

template <class Call>
HRESULT MAPITable::retryWhenBusy(Call call) {
  PIM_ENTRY("PIM::MAPITable::retryWhenBusy");
  HRESULT hr = MAPI_E_BUSY;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    hr = call();
    if (hr != MAPI_E_BUSY) return hr;
    ULONG status = 0;
    const HRESULT wait = table_->WaitForCompletion(0, kBusyWaitMs, &status);
    if (FAILED(wait)) PIM_LOG_ERR("HR Error: " << hrText(wait));
  }
  return hr;
}

HRESULT MAPITable::restrict(SRestriction* restriction, ULONG flags) {
  PIM_ENTRY("PIM::MAPITable::restrict");
  PIM_ASSERT(table_);
  if (!table_) return E_INVALIDARG;
  return viewResult(retryWhenBusy([&] { return table_->Restrict(restriction, flags); }));
}

HRESULT MAPITable::sortTable(SSortOrderSet* sortOrder, ULONG flags) {
  PIM_ENTRY("PIM::MAPITable::sortTable");
  PIM_ASSERT(table_);
  if (!table_) return E_INVALIDARG;
  return viewResult(retryWhenBusy([&] { return table_->SortTable(sortOrder, flags); }));
}

MAPIProperties* MAPITable::getNextRow() {
  PIM_ENTRY("PIM::MAPITable::getNextRow");
  PIM_ASSERT(table_);
  row_.release();
  if (!table_) return nullptr;
  if (batch_ && next_ >= batch_.size()) {
    batch_.reset();
    next_ = 0;
  }
  if (!batch_) {
    const HRESULT hr =
        retryWhenBusy([&] { return table_->QueryRows(kBatchRows, 0, batch_.put()); });
    // The row loop ends as at the end of the table; rowError() tells the
    // two apart for a caller that must.
    rowError_ = FAILED(hr) ? hr : S_OK;
    if (FAILED(hr)) {
      batch_.reset();
      return nullptr;
    }
  }
  if (next_ >= batch_.size()) return nullptr;
  SRow* rows = batch_->aRow;
  SRow& row = rows[next_++];
  (void)row_.attach(row.lpProps, row.cValues);
  return &row_;
}

}  // namespace PIM
