// Any bytes are read without a crash, and a file the reader accepts is
// exactly what the writer makes of the folders it read.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "app/capture_fingerprints.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace PIM;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Fingerprints read;
  std::string error;
  if (!parseFingerprints(bytes, read, error)) {
    if (error.empty() || !(read == Fingerprints())) std::abort();
    return 0;
  }
  if (formatFingerprints(read) != bytes) std::abort();
  return 0;
}
