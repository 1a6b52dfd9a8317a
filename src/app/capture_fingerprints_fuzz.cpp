// Any bytes are read without a crash, and a file the reader accepts is
// exactly what the writer makes of the folders it read.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "app/capture_fingerprints.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace PIM;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::vector<FolderFingerprint> folders;
  std::string error;
  if (!parseFingerprints(bytes, folders, error)) {
    if (error.empty() || !folders.empty()) std::abort();
    return 0;
  }
  if (formatFingerprints(folders) != bytes) std::abort();
  return 0;
}
