// Arbitrary bytes as a folder identity read back from the settings. Besides
// never crashing or reading past the bytes:
//   - they are taken exactly when they hold a length and that many bytes of
//     the folder's id, then a length and that many bytes of the store's;
//   - what is taken is those two ids, and written again it gives back the
//     bytes up to the end of the store's id (anything after is ignored);
//   - a refused value leaves the identity it was to fill as it was.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "prefs/preferences.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

uint64_t lengthAt(const uint8_t* p) {
  return uint64_t{p[0]} | uint64_t{p[1]} << 8 | uint64_t{p[2]} << 16 | uint64_t{p[3]} << 24;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<uint8_t> bytes(data, data + size);
  const PIM::OutlookFolder untouched{PIM::EntryId(std::vector<uint8_t>{1, 2, 3}),
                                     PIM::EntryId(std::vector<uint8_t>{4})};
  PIM::OutlookFolder folder = untouched;
  const bool taken = PIM::Preferences::fromKeyData(bytes, folder);

  // The layout, worked out in 64 bits so that no length can wrap.
  const uint64_t n = size;
  const uint64_t folderLength = n >= 4 ? lengthAt(data) : 0;
  const bool hasStoreLength = n >= 4 && n >= 8 + folderLength;
  const uint64_t storeLength = hasStoreLength ? lengthAt(data + 4 + folderLength) : 0;
  const bool wellFormed = hasStoreLength && n >= 8 + folderLength + storeLength;
  check(taken == wellFormed);
  if (!taken) {
    check(folder == untouched);
    return 0;
  }
  const auto folderStart = bytes.begin() + 4;
  const auto storeStart = folderStart + static_cast<std::ptrdiff_t>(folderLength) + 4;
  check(folder.folderId.getVector() ==
        std::vector<uint8_t>(folderStart, folderStart + static_cast<std::ptrdiff_t>(folderLength)));
  check(folder.storeId.getVector() ==
        std::vector<uint8_t>(storeStart, storeStart + static_cast<std::ptrdiff_t>(storeLength)));

  const std::vector<uint8_t> written = PIM::Preferences::toKeyData(folder);
  check(written ==
        std::vector<uint8_t>(bytes.begin(), storeStart + static_cast<std::ptrdiff_t>(storeLength)));
  PIM::OutlookFolder again;
  check(PIM::Preferences::fromKeyData(written, again) && again == folder);
  return 0;
}
