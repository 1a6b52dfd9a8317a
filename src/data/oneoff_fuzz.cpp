// Arbitrary bytes as a distribution-list member. Besides never crashing:
//   - a member is only ever made of a value with the whole 24-byte head and,
//     when the Unicode flag is set, an even length;
//   - the member text holds no NUL;
//   - every value the store's own encoder would write exactly so (three
//     strings, nothing after them, provider UID and all) is accepted, with
//     the text the store's decoder reads from it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "data/one_off_member.h"
#include "store/one_off_entry_id.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<uint8_t> value(data, data + size);
  std::u16string member;
  const bool accepted = PIM::decodeOneOffMember(value, member);
  if (accepted) {
    check(size >= 24);
    check((data[23] & 0x80) == 0 || size % 2 == 0);
    check(member.find(u'\0') == std::u16string::npos);
  }

  // The store reads 8-bit strings in the Western code page, as the member
  // decoder does off Windows.
  PIM::store::OneOffEntryId entry;
  if (PIM::store::decodeOneOffEntryId(data, size, entry) &&
      PIM::store::encodeOneOffEntryId(entry) == value) {
    check(accepted);
    check(member == (entry.addressType == u"SMTP" ? entry.displayName + u" <" + entry.address + u">"
                                                  : entry.displayName));
  }
  return 0;
}
