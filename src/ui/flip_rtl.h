// Mirroring of dialogs for right-to-left languages.
#pragma once

#include <windows.h>

namespace PIM {

// Gives `window` the right-to-left layout and moves each of its children,
// and theirs in turn, to the mirror image of its place in the parent's
// client area (same top, width and height). For dialogs and pages whose
// language file says the language reads right to left; call once, after
// the controls exist.
void FlipRTL(HWND window);

}  // namespace PIM
