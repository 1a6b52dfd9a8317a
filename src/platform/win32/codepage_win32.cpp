// Code-page conversions: the Win32 calls themselves, flags 0 and no default
// character, so the system's default character and best-fit mappings apply.
#include <windows.h>

#include "platform/win32/win32_env.h"

namespace PIM {

int Win32Env::wideToMultiByte(uint32_t codePage, const char16_t* text, int units, char* out,
                              int outSize) {
  return WideCharToMultiByte(codePage, 0, reinterpret_cast<const wchar_t*>(text), units, out,
                             outSize, nullptr, nullptr);
}

int Win32Env::multiByteToWide(uint32_t codePage, const char* text, int bytes, char16_t* out,
                              int outUnits) {
  return MultiByteToWideChar(codePage, 0, text, bytes, reinterpret_cast<wchar_t*>(out), outUnits);
}

}  // namespace PIM
