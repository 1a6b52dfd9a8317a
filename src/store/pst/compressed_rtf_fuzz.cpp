// Feeds arbitrary bytes to the compressed RTF reader and its text view:
// they must decode or refuse, never crash or read out of bounds.
#include <cstddef>
#include <cstdint>
#include <string>

#include "store/pst/compressed_rtf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string rtf, error;
  if (PIM::store::decompressRtf(data, size, rtf, error)) (void)PIM::store::rtfToText(rtf);
  // The text view also reads RTF that never was compressed.
  (void)PIM::store::rtfToText(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
