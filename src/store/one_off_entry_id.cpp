#include "store/one_off_entry_id.h"

#include "core/utils.h"
#include "store/entry_ids.h"

namespace PIM::store {

Bytes encodeOneOffEntryId(const OneOffEntryId& entry) {
  Bytes out(4, 0);
  out.insert(out.end(), kOneOffProviderUid, kOneOffProviderUid + 16);
  out.push_back(0);  // version
  out.push_back(0);
  const uint16_t flags =
      static_cast<uint16_t>((entry.unicode ? MAPI_ONE_OFF_UNICODE : 0) |
                            (entry.noRichInfo ? MAPI_ONE_OFF_NO_RICH_INFO : 0) | entry.otherFlags);
  out.push_back(static_cast<uint8_t>(flags & 0xFF));
  out.push_back(static_cast<uint8_t>(flags >> 8));
  for (const std::u16string* text : {&entry.displayName, &entry.addressType, &entry.address}) {
    if (entry.unicode) {
      for (char16_t c : *text) {
        out.push_back(static_cast<uint8_t>(c & 0xFF));
        out.push_back(static_cast<uint8_t>(c >> 8));
      }
      out.push_back(0);
      out.push_back(0);
    } else {
      const std::string bytes = toCodePage(entry.codePage, *text);
      out.insert(out.end(), bytes.begin(), bytes.end());
      out.push_back(0);
    }
  }
  return out;
}

}  // namespace PIM::store
