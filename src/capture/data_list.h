// Reading one folder's contents table into records of one type: resolve the
// type's named properties, set its columns, restriction, sort and row limit,
// and make a record of each row until the limit, the end of the table or a
// cancel.
//
//   std::vector<Task> tasks;
//   HRESULT hr = getDataList(folder, &tasks, cancelRequested);
//
// S_OK when the table ended or the limit was reached, E_ABORT when cancelled,
// E_FAIL when the names could not be resolved or the store failed to give
// the rows (not taken for the table's end), E_INVALIDARG for a null folder
// or list. A failed table call (columns, restriction, sort) and a query the
// type cannot build are thrown as ComError for the capture thread to catch.
#pragma once

#include <atomic>
#include <vector>

#include "core/debug_logger.h"
#include "data/record.h"
#include "mapi/com_error.h"
#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"
#include "mapi/mapi_table.h"
#include "mapi/outlook_utils.h"

namespace PIM {

using CancelFlag = std::atomic<bool>;

template <class Record>
HRESULT getDataList(IMAPIFolder* folder, IMAPITable* contents, std::vector<Record>* dataList,
                    const CancelFlag& cancelRequested) {
  PIM_ENTRY("PIM::getDataList");
  if (!folder) {
    PIM_LOG_HR(E_INVALIDARG, "Invalid source folder.");
    return E_INVALIDARG;
  }
  if (!dataList) {
    PIM_LOG_HR(E_INVALIDARG, "Invalid dataList parameter.");
    return E_INVALIDARG;
  }
  std::vector<NameIdPair> pairs = Record::getNameIdPairs();
  if (FAILED(OutlookUtils::getNamedPropIds(folder, pairs))) return E_FAIL;

  const PropTagArray columns = Record::getPropIds(pairs);
  MAPITable table(contents);
  RecordQuery query;
  HRESULT hr = Record::getRestriction(query, pairs);
  if (FAILED(hr)) throwComError(hr);
  std::vector<ULONG> tags;
  for (ULONG i = 0; i < columns.size(); ++i) tags.push_back(columns.getAt(i));
  if (FAILED(hr = table.setColumns(tags))) throwComError(hr);
  if (query.restriction && FAILED(hr = table.restrict(query.restriction.get(), 0)))
    throwComError(hr);
  if (cancelRequested) return E_ABORT;
  if (query.sortOrder && FAILED(hr = table.sortTable(query.sortOrder.get(), 0))) throwComError(hr);

  // Only a loop left because of the cancel is a cancelled read: a cancel
  // that comes after the last row, or once the limit is reached, leaves a
  // complete read, which is kept.
  ULONG count = 0;
  bool cancelled = false;
  while (count < query.rowLimit) {
    if (cancelRequested) {
      cancelled = true;
      break;
    }
    MAPIProperties* row = table.getNextRow();
    if (!row) {
      // A store that fails part way must not pass for a table that ended:
      // the folder keeps its previous, whole file instead of a shortened one.
      if (FAILED(table.rowError())) {
        PIM_LOG_HR(table.rowError(), "Failed to retrieve data from the data table.");
        return E_FAIL;
      }
      break;
    }
    Record record;
    hr = Record::makeDataRow(pairs, *row, folder, record);
    if (FAILED(hr)) {
      PIM_LOG_HR(hr, "Could not add data entry.");
      continue;
    }
    dataList->push_back(std::move(record));
    ++count;
  }
  return cancelled ? E_ABORT : S_OK;
}

// Opens the folder's contents table and reads it as above.
template <class Record>
HRESULT getDataList(IMAPIFolder* folder, std::vector<Record>* dataList,
                    const CancelFlag& cancelRequested) {
  PIM_ENTRY("PIM::getDataList");
  if (!folder) {
    PIM_LOG_HR(E_INVALIDARG, "Invalid source folder.");
    return E_INVALIDARG;
  }
  ComPtr<IMAPITable> contents;
  HRESULT hr = folder->GetContentsTable(0, contents.put());
  if (FAILED(hr)) throwComError(hr);
  return getDataList(folder, contents.get(), dataList, cancelRequested);
}

}  // namespace PIM
