#include "ui/flip_rtl.h"

#include "core/debug_logger.h"

namespace PIM {

void FlipRTL(HWND window) {
  PIM_ENTRY("PIM::FlipRTL");
  if (!window) return;
  SetWindowLongPtrW(window, GWL_EXSTYLE, GetWindowLongPtrW(window, GWL_EXSTYLE) | WS_EX_LAYOUTRTL);
  RECT client = {};
  GetClientRect(window, &client);
  const LONG width = client.right - client.left;
  for (HWND child = GetWindow(window, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
    RECT r = {};
    GetWindowRect(child, &r);
    MapWindowPoints(HWND_DESKTOP, window, reinterpret_cast<POINT*>(&r), 2);
    MoveWindow(child, width - r.right, r.top, r.right - r.left, r.bottom - r.top, TRUE);
    FlipRTL(child);
  }
}

}  // namespace PIM
