// Dialog templates from bytes: the reader must refuse, never overrun.
#include <cstddef>
#include <cstdint>

#include "ui/dialog_template.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  PIM::DialogTemplate d;
  std::string error;
  if (PIM::parseDialogTemplate(data, size, d, error)) {
    const std::vector<uint8_t> again = PIM::encodeDialogTemplate(d);
    PIM::DialogTemplate back;
    if (!PIM::parseDialogTemplate(again.data(), again.size(), back, error)) __builtin_trap();
    if (back.controls.size() != d.controls.size()) __builtin_trap();
  }
  return 0;
}
