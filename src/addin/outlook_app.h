// The one place that keeps what Outlook hands the add-in: its application
// object (for the command bars) and the Extended MAPI session (for every
// store, folder and item read). Everything else asks this holder instead of
// keeping a reference of its own.
//
//   IMAPISession* session = OutlookApp::instance()->getMapiSession();
//   if (!session) return ...;   // before the connection or after it ended
//
// Threads: the references are written only on Outlook's main thread, when
// the add-in connects and disconnects, while no capture runs. The session is
// then read without a lock from any thread (Extended MAPI objects may be used
// from any thread of the process); the application only on the main thread.
#pragma once

#include "addin/action_window.h"
#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"

class OutlookApp {
 public:
  // The process-wide holder, made when the module loads; never null.
  static OutlookApp* instance();

  OutlookApp(const OutlookApp&) = delete;
  OutlookApp& operator=(const OutlookApp&) = delete;

  // The held reference without a reference for the caller; null (and the
  // log line "Assertion failed") when none is held.
  IUnknown* getOutlookApp() const;
  IMAPISession* getMapiSession() const;

  // Keeps a reference of its own to `p` and releases the one held before;
  // null just clears.
  void setOutlookApp(IUnknown* application);
  void setMapiSession(IMAPISession* session);

  // The hidden window that toolbar clicks are posted to and that carries
  // every timer; made with the holder, its window by start() when the
  // module starts.
  PIM::PimActionWindow& actionWindow() { return actionWindow_; }

 private:
  OutlookApp();
  // Releases the application, then the session.
  ~OutlookApp();

  static OutlookApp theApp_;

  PIM::ComPtr<IUnknown> application_;
  PIM::ComPtr<IMAPISession> session_;
  // Destroyed after the destructor has released the references.
  PIM::PimActionWindow actionWindow_;
};
