// Deep copies of MAPI notifications (Windows), so that they can be handed to
// another thread: whoever raises a notification frees it as soon as OnNotify
// returns.
//
//   PIM::MapiBuffer<NOTIFICATION> copy;
//   hr = copyNotifications(count, notifications, copy.put());
//   ...  // later, on another thread:
//   sink->OnNotify(count, copy.get());
#pragma once

#include "mapi/mapi.h"

namespace PIM::store {

// Copies `count` notifications into one MAPI buffer: the array, with every
// entry id, property value, tag array and string they point to hung off it
// (MAPIAllocateMore), so that one MAPIFreeBuffer frees it all. Carried
// whole: fnevTableModified (the row and both index values), the fnevObject*
// kinds, fnevNewMail, fnevExtended and fnevStatusObjectModified; of
// fnevCriticalError the extended error (lpMAPIError, whose text width the
// notification does not say) is left out. Other kinds keep their plain
// fields only. Fails with the allocation's error and leaves `*out` null.
HRESULT copyNotifications(ULONG count, const NOTIFICATION* from, LPNOTIFICATION* out);

}  // namespace PIM::store
