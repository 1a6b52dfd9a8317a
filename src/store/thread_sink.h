// The advise sink HrThisThreadAdviseSink hands out: it delivers to the
// wrapped sink on the thread that asked for it, as MAPI promises.
//
// On Windows a notification raised on that thread is delivered at once; one
// raised on another thread is copied (notification_copy.h) and posted to a
// hidden message-only window of the advising thread, made at that thread's
// first request, so it arrives when that thread pumps messages (its host's
// loop, a modal dialog's or a MessageLoop). Notifications for a thread that
// has ended, or whose window is gone, are dropped.
//
// Elsewhere there is no message queue to post to: notifications reach the
// wrapped sink on the thread that raises them, which is the thread the
// Linux host runs its loop on (the `ferrant` command reloads its store there).
#pragma once

#include "mapi/mapi.h"

namespace PIM::store {

// A new sink around `target` (which it holds) for the calling thread; the
// caller owns one reference. Fails when the thread's window cannot be made.
HRESULT makeThreadSink(IMAPIAdviseSink* target, IMAPIAdviseSink** out);

}  // namespace PIM::store
