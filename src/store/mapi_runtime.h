// The store's side of the MAPI functions (MAPIAllocateBuffer and friends,
// FreeProws, HrQueryAllRows, HrGetOneProp, HrThisThreadAdviseSink).
//
// Off Windows these are the only definitions. On Windows the test programs
// link them from this library instead of importing mapi32: the static
// definitions satisfy the linker before any import library is searched, and
// no test program links mapi32 at all. That keeps Wine's mapi32 (which needs
// a provider, exports some x64 helpers only under decorated names and stubs
// HrQueryAllRows) out of the tests. The add-in itself imports mapi32 and
// never links this library; our own mapi32.dll (src/store/mapi32) is made
// from it. HrThisThreadAdviseSink's sink is thread_sink.h's.
#pragma once

#include <cstdint>

namespace PIM::store {

// Root buffers from MAPIAllocateBuffer not yet freed, process-wide (tests
// check for leaks with it).
int64_t liveMapiBuffers();

}  // namespace PIM::store
