// Arbitrary bytes through the code-page conversions. The first byte picks a
// code page; the checks are the invariants that hold for any input:
//   - UTF-8 read from any bytes is well-formed UTF-16 and survives a round
//     trip through UTF-8 unchanged;
//   - well-formed UTF-16 survives a round trip through UTF-8;
//   - reading stops at the first NUL, in every code page;
//   - single-byte code pages read every byte as a character of its own and
//     write it back as the same byte (7-bit ASCII aside: it drops the
//     eighth bit).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/utils.h"

namespace {

const uint32_t kCodePages[] = {65001, 1252, 1251, 1253, 1255, 874, 20127, 28597,
                               932,   936,  949,  950,  437,  866, 65000, 4242};

bool isSingleByte(uint32_t codePage) {
  return codePage != 65001 && codePage != 65000 && codePage != 4242 &&
         (codePage < 932 || codePage > 950);
}

bool wellFormed(const std::u16string& text) {
  for (size_t i = 0; i < text.size(); ++i) {
    char16_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 >= text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF) return false;
      ++i;
    } else if (c >= 0xDC00 && c <= 0xDFFF) {
      return false;
    }
  }
  return true;
}

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint32_t codePage = kCodePages[data[0] % std::size(kCodePages)];
  const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::string untilNul(bytes.c_str());

  const std::u16string fromBytes = PIM::fromUtf8(bytes);
  check(wellFormed(fromBytes));
  check(fromBytes.find(u'\0') == std::u16string::npos);
  check(PIM::fromUtf8(PIM::toUtf8(fromBytes)) == fromBytes);

  const std::u16string decoded = PIM::fromCodePage(codePage, bytes);
  check(decoded == PIM::fromCodePage(codePage, untilNul));
  const std::string encoded = PIM::toCodePage(codePage, decoded);
  check(encoded.find('\0') == std::string::npos);
  // 20127 reads 0x80 as NUL, which ends the text.
  if (isSingleByte(codePage) && codePage != 20127) {
    check(decoded.size() == untilNul.size());
    check(encoded == untilNul);
  }

  // The same bytes taken as UTF-16 units.
  std::u16string units;
  for (size_t i = 1; i + 1 < size; i += 2) units += char16_t(data[i] | data[i + 1] << 8);
  const std::u16string unitsUntilNul(units.c_str());
  if (wellFormed(unitsUntilNul)) check(PIM::fromUtf8(PIM::toUtf8(units)) == unitsUntilNul);
  check(wellFormed(PIM::fromUtf8(PIM::toUtf8(units))));
  return 0;
}
