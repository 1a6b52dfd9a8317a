#include "mapi/com_error.h"

#include <cstdio>
#include <new>

namespace PIM {

ComError::ComError(HRESULT hr) : hr_(hr), text_(hrText(hr)) {}

void throwComError(HRESULT hr) {
  if (hr == E_OUTOFMEMORY) throw std::bad_alloc();
  throw ComError(hr);
}

std::string hrText(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(hr));
  return text;
}

}  // namespace PIM
