// The store's entry identifiers. Every one starts with the four MAPI flag
// bytes (all 0 for a long-term identifier) and a 16-byte provider UID:
//
//   object, long-term   00000000 | store uid (16) | nid (4 LE)                 24 bytes
//   object, short-term  A0000000 | store uid (16) | nid (4 LE) | session (4)  28 bytes
//   message store       00000000 | kStoreProviderUid | store uid (16)         36 bytes
//   address book entry  00000000 | kAbProviderUid | index (4 LE)              24 bytes
//
// A short-term identifier carries MAPI_SHORTTERM | MAPI_THISSESSION in its
// first byte and is valid only in the session (profile) that made it.
#pragma once

#include <cstdint>

#include "store/model.h"

namespace PIM::store {

extern const uint8_t kStoreProviderUid[16];
extern const uint8_t kAbProviderUid[16];
// MAPI's one-off UID (MS-OXCDATA), first in every one-off entry identifier.
extern const uint8_t kOneOffProviderUid[16];

Bytes objectEntryId(const Bytes& storeUid, uint32_t nid);
Bytes shortTermEntryId(const Bytes& storeUid, uint32_t nid, uint32_t session);
Bytes storeEntryId(const Bytes& storeUid);
Bytes abEntryId(uint32_t index);

enum class IdKind { Invalid, Object, Store, AddressBook, OneOff };

struct ParsedId {
  IdKind kind = IdKind::Invalid;
  Bytes storeUid;    // Object, Store
  uint32_t nid = 0;  // Object
  bool shortTerm = false;
  uint32_t session = 0;  // short-term Object
  uint32_t index = 0;    // AddressBook
};

// Reads an identifier; Invalid when the bytes are none of the above.
ParsedId parseEntryId(const uint8_t* bytes, size_t size);

}  // namespace PIM::store
