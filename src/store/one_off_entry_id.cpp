#include "store/one_off_entry_id.h"

#include "core/utils.h"
#include "store/entry_ids.h"

namespace PIM::store {

Bytes encodeOneOffEntryId(const OneOffEntryId& entry) {
  Bytes out;
  out.reserve(64);  // also keeps GCC 12's -O2 bounds check from misfiring on the inserts
  out.resize(4);
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

bool decodeOneOffEntryId(const uint8_t* bytes, size_t size, OneOffEntryId& out, uint32_t codePage) {
  if (!bytes || size < 24) return false;
  if (bytes[0] || bytes[1] || bytes[2] || bytes[3]) return false;
  for (size_t i = 0; i < 16; ++i)
    if (bytes[4 + i] != kOneOffProviderUid[i]) return false;
  const uint16_t flags = static_cast<uint16_t>(bytes[22] | bytes[23] << 8);
  out = OneOffEntryId();
  out.unicode = (flags & MAPI_ONE_OFF_UNICODE) != 0;
  out.noRichInfo = (flags & MAPI_ONE_OFF_NO_RICH_INFO) != 0;
  out.otherFlags =
      static_cast<uint16_t>(flags & ~(MAPI_ONE_OFF_UNICODE | MAPI_ONE_OFF_NO_RICH_INFO));
  out.codePage = codePage;
  size_t at = 24;
  for (std::u16string* text : {&out.displayName, &out.addressType, &out.address}) {
    if (out.unicode) {
      for (;;) {
        if (at + 2 > size) return false;
        const char16_t c = static_cast<char16_t>(bytes[at] | bytes[at + 1] << 8);
        at += 2;
        if (!c) break;
        text->push_back(c);
      }
    } else {
      std::string narrow;
      for (;;) {
        if (at >= size) return false;
        const char c = static_cast<char>(bytes[at++]);
        if (!c) break;
        narrow.push_back(c);
      }
      *text = fromCodePage(codePage, narrow);
    }
  }
  return true;
}

}  // namespace PIM::store
