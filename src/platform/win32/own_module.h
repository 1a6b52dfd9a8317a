// The module holding the calling code: the add-in DLL inside the host, the
// store DLL, or the executable in tests. Window classes, dialog templates
// and bitmaps belong to the module that holds them, not to the host's.
#pragma once

#include <windows.h>

namespace PIM {

// Inline, so that each module that calls it has its own copy and finds
// itself by that copy's address.
inline HMODULE ownModule() {
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCWSTR>(&ownModule), &module)) {
    return nullptr;
  }
  return module;
}

}  // namespace PIM
