// Encoder of MAPI one-off entry identifiers (MS-OXCDATA "One-Off EntryID"):
//
//   offset 0   flags, 4 bytes, 0
//   offset 4   MAPI's one-off provider UID 81 2B 1F A4 BE A3 10 19 9D 6E 00 DD 01 0F 54 02
//   offset 20  version, 16 bits LE, 0
//   offset 22  flags, 16 bits LE: 0x8000 MAPI_ONE_OFF_UNICODE, 0x0001 MAPI_ONE_OFF_NO_RICH_INFO
//   offset 24  display name, address type, address: each NUL-terminated,
//              UTF-16LE when Unicode, else 8-bit text in `codePage`
//
// Kept apart so that decoders can be tested against it.
#pragma once

#include <cstdint>
#include <string>

#include "store/model.h"

namespace PIM::store {

struct OneOffEntryId {
  std::u16string displayName;
  std::u16string addressType;  // "SMTP", "EX", ...
  std::u16string address;
  bool unicode = true;
  bool noRichInfo = false;
  uint32_t codePage = 1252;  // for 8-bit strings
  uint16_t otherFlags = 0;   // further bits of the flags word (format, encoding preference)
};

Bytes encodeOneOffEntryId(const OneOffEntryId& entry);

// Reads a one-off entry identifier (the session opens them as mail users);
// false when the bytes are not one. 8-bit strings are read in `codePage`.
bool decodeOneOffEntryId(const uint8_t* bytes, size_t size, OneOffEntryId& out,
                         uint32_t codePage = 1252);

}  // namespace PIM::store
