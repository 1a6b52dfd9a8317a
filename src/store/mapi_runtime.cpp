#include "store/mapi_runtime.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "core/debug_logger.h"
#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"
#include "store/fault_injector.h"
#include "store/thread_sink.h"

namespace PIM::store {
namespace {

constexpr uint64_t kRootMagic = 0x4D415049524F4F54ull;  // "MAPIROOT"
constexpr uint64_t kMoreMagic = 0x4D4150494D4F5245ull;  // "MAPIMORE"
constexpr uint64_t kDeadMagic = 0x4445414444454144ull;

// Placed before every block handed out; 32 bytes keep the block aligned for
// any MAPI structure.
struct alignas(16) BlockHeader {
  uint64_t magic;
  BlockHeader* more;  // the next block tied to the same root
  uint64_t size;
  uint64_t reserved;
};

std::atomic<int64_t> liveRoots{0};
std::mutex chainLock;  // guards the `more` chains

BlockHeader* headerOf(void* block) { return static_cast<BlockHeader*>(block) - 1; }

void* newBlock(ULONG size, uint64_t magic) {
  void* raw = std::malloc(sizeof(BlockHeader) + size);
  if (!raw) return nullptr;
  auto* header = static_cast<BlockHeader*>(raw);
  header->magic = magic;
  header->more = nullptr;
  header->size = size;
  header->reserved = 0;
  return header + 1;
}

}  // namespace

int64_t liveMapiBuffers() { return liveRoots.load(); }

}  // namespace PIM::store

using PIM::store::BlockHeader;
using PIM::store::FaultInjector;

extern "C" SCODE WINAPI MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer) {
  if (!lppBuffer) return MAPI_E_INVALID_PARAMETER;
  *lppBuffer = nullptr;
  if (HRESULT injected = FaultInjector::instance().check("", "MAPIAllocateBuffer")) return injected;
  void* block = PIM::store::newBlock(cbSize, PIM::store::kRootMagic);
  if (!block) return MAPI_E_NOT_ENOUGH_MEMORY;
  ++PIM::store::liveRoots;
  *lppBuffer = block;
  return S_OK;
}

extern "C" SCODE WINAPI MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer) {
  if (!lppBuffer) return MAPI_E_INVALID_PARAMETER;
  *lppBuffer = nullptr;
  // Blocks hang off a root only; a block of a block would never be freed.
  if (!lpObject || PIM::store::headerOf(lpObject)->magic != PIM::store::kRootMagic)
    return MAPI_E_INVALID_PARAMETER;
  if (HRESULT injected = FaultInjector::instance().check("", "MAPIAllocateMore")) return injected;
  void* block = PIM::store::newBlock(cbSize, PIM::store::kMoreMagic);
  if (!block) return MAPI_E_NOT_ENOUGH_MEMORY;
  BlockHeader* root = PIM::store::headerOf(lpObject);
  BlockHeader* added = PIM::store::headerOf(block);
  {
    std::lock_guard<std::mutex> guard(PIM::store::chainLock);
    added->more = root->more;
    root->more = added;
  }
  *lppBuffer = block;
  return S_OK;
}

extern "C" ULONG WINAPI MAPIFreeBuffer(LPVOID lpBuffer) {
  if (!lpBuffer) return S_OK;
  BlockHeader* root = PIM::store::headerOf(lpBuffer);
  if (root->magic != PIM::store::kRootMagic) {
    PIM_ENTRY("MAPIFreeBuffer");
    PIM_LOG_ERR("MAPIFreeBuffer: not the root of a MAPI allocation");
    return static_cast<ULONG>(MAPI_E_INVALID_PARAMETER);
  }
  BlockHeader* chain;
  {
    std::lock_guard<std::mutex> guard(PIM::store::chainLock);
    chain = root->more;
    root->more = nullptr;
  }
  while (chain) {
    BlockHeader* next = chain->more;
    chain->magic = PIM::store::kDeadMagic;
    std::free(chain);
    chain = next;
  }
  root->magic = PIM::store::kDeadMagic;
  std::free(root);
  --PIM::store::liveRoots;
  return S_OK;
}

extern "C" void STDAPICALLTYPE FreeProws(LPSRowSet lpRows) {
  if (!lpRows) return;
  for (ULONG i = 0; i < lpRows->cRows; ++i) MAPIFreeBuffer(lpRows->aRow[i].lpProps);
  MAPIFreeBuffer(lpRows);
}

extern "C" HRESULT STDAPICALLTYPE HrQueryAllRows(LPMAPITABLE lpTable, LPSPropTagArray lpPropTags,
                                                 LPSRestriction lpRestriction,
                                                 LPSSortOrderSet lpSortOrderSet, LONG crowsMax,
                                                 LPSRowSet* lppRows) {
  if (!lpTable || !lppRows) return MAPI_E_INVALID_PARAMETER;
  *lppRows = nullptr;
  HRESULT hr = S_OK;
  if (lpPropTags && FAILED(hr = lpTable->SetColumns(lpPropTags, TBL_BATCH))) return hr;
  if (lpRestriction && FAILED(hr = lpTable->Restrict(lpRestriction, TBL_BATCH))) return hr;
  if (lpSortOrderSet && FAILED(hr = lpTable->SortTable(lpSortOrderSet, TBL_BATCH))) return hr;
  if (FAILED(hr = lpTable->SeekRow(BOOKMARK_BEGINNING, 0, nullptr))) return hr;

  // Collect the batches' rows, then move their value arrays into one set.
  std::vector<PIM::RowSet> batches;
  ULONG total = 0;
  for (;;) {
    PIM::RowSet batch;
    if (FAILED(hr = lpTable->QueryRows(256, 0, batch.put()))) return hr;
    if (batch.size() == 0) break;
    total += batch.size();
    if (crowsMax > 0 && total > static_cast<ULONG>(crowsMax)) return MAPI_E_TABLE_TOO_BIG;
    batches.push_back(std::move(batch));
  }
  PIM::MapiBuffer<SRowSet> all;
  if (FAILED(hr = MAPIAllocateBuffer(static_cast<ULONG>(CbNewSRowSet(total)), all.putVoid())))
    return hr;
  all->cRows = 0;
  for (PIM::RowSet& batch : batches) {
    for (ULONG i = 0; i < batch->cRows; ++i) {
      all->aRow[all->cRows++] = batch->aRow[i];
      batch->aRow[i].lpProps = nullptr;
      batch->aRow[i].cValues = 0;
    }
  }
  *lppRows = all.detach();
  return S_OK;
}

extern "C" HRESULT STDAPICALLTYPE HrGetOneProp(LPMAPIPROP lpMapiProp, ULONG ulPropTag,
                                               LPSPropValue* lppProp) {
  if (!lpMapiProp || !lppProp) return MAPI_E_INVALID_PARAMETER;
  *lppProp = nullptr;
  SizedSPropTagArray(1, tags) = {1, {ulPropTag}};
  ULONG count = 0;
  PIM::MapiBuffer<SPropValue> values;
  HRESULT hr =
      lpMapiProp->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.put());
  if (FAILED(hr)) return hr;
  if (count != 1 || !values) return MAPI_E_NOT_FOUND;
  if (PROP_TYPE(values->ulPropTag) == PT_ERROR) return values->Value.err;
  *lppProp = values.detach();
  return S_OK;
}

extern "C" HRESULT STDAPICALLTYPE HrThisThreadAdviseSink(LPMAPIADVISESINK lpAdviseSink,
                                                         LPMAPIADVISESINK* lppAdviseSink) {
  if (!lpAdviseSink || !lppAdviseSink) return MAPI_E_INVALID_PARAMETER;
  if (HRESULT injected = FaultInjector::instance().check("", "HrThisThreadAdviseSink")) {
    *lppAdviseSink = nullptr;
    return injected;
  }
  *lppAdviseSink = nullptr;
  return PIM::store::makeThreadSink(lpAdviseSink, lppAdviseSink);
}
