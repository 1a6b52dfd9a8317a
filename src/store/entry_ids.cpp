#include "store/entry_ids.h"

#include <cstring>

namespace PIM::store {

const uint8_t kStoreProviderUid[16] = {0x46, 0x65, 0x72, 0x72, 0x61, 0x6E, 0x74, 0x53,
                                       0x74, 0x6F, 0x72, 0x65, 0x57, 0x72, 0x61, 0x70};
const uint8_t kAbProviderUid[16] = {0x46, 0x65, 0x72, 0x72, 0x61, 0x6E, 0x74, 0x41,
                                    0x64, 0x64, 0x72, 0x42, 0x6F, 0x6F, 0x6B, 0x31};
const uint8_t kOneOffProviderUid[16] = {0x81, 0x2B, 0x1F, 0xA4, 0xBE, 0xA3, 0x10, 0x19,
                                        0x9D, 0x6E, 0x00, 0xDD, 0x01, 0x0F, 0x54, 0x02};

namespace {

void putU32(Bytes& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}
uint32_t getU32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
// Room reserved up front: an identifier grows by appends, and GCC 12 at -O2
// misreads an insert into a vector made from a short initializer list.
Bytes withFlags(uint8_t first) {
  Bytes id;
  id.reserve(64);
  id.push_back(first);
  id.insert(id.end(), 3, 0);
  return id;
}
void append(Bytes& out, const uint8_t* p, size_t n) { out.insert(out.end(), p, p + n); }

}  // namespace

Bytes objectEntryId(const Bytes& storeUid, uint32_t nid) {
  Bytes id = withFlags(0);
  append(id, storeUid.data(), storeUid.size());
  putU32(id, nid);
  return id;
}

Bytes shortTermEntryId(const Bytes& storeUid, uint32_t nid, uint32_t session) {
  Bytes id = withFlags(MAPI_SHORTTERM | MAPI_THISSESSION);
  append(id, storeUid.data(), storeUid.size());
  putU32(id, nid);
  putU32(id, session);
  return id;
}

Bytes storeEntryId(const Bytes& storeUid) {
  Bytes id = withFlags(0);
  append(id, kStoreProviderUid, 16);
  append(id, storeUid.data(), storeUid.size());
  return id;
}

Bytes abEntryId(uint32_t index) {
  Bytes id = withFlags(0);
  append(id, kAbProviderUid, 16);
  putU32(id, index);
  return id;
}

ParsedId parseEntryId(const uint8_t* bytes, size_t size) {
  ParsedId out;
  if (!bytes || size < 20) return out;
  const uint8_t* uid = bytes + 4;
  const bool flagsZero = bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 0 && bytes[3] == 0;
  if (std::memcmp(uid, kOneOffProviderUid, 16) == 0) {
    if (flagsZero) out.kind = IdKind::OneOff;
    return out;
  }
  if (std::memcmp(uid, kStoreProviderUid, 16) == 0) {
    if (flagsZero && size == 36) {
      out.kind = IdKind::Store;
      out.storeUid.assign(bytes + 20, bytes + 36);
    }
    return out;
  }
  if (std::memcmp(uid, kAbProviderUid, 16) == 0) {
    if (flagsZero && size == 24) {
      out.kind = IdKind::AddressBook;
      out.index = getU32(bytes + 20);
    }
    return out;
  }
  if (flagsZero && size == 24) {
    out.kind = IdKind::Object;
    out.storeUid.assign(uid, uid + 16);
    out.nid = getU32(bytes + 20);
  } else if (bytes[0] == (MAPI_SHORTTERM | MAPI_THISSESSION) && bytes[1] == 0 && bytes[2] == 0 &&
             bytes[3] == 0 && size == 28) {
    out.kind = IdKind::Object;
    out.shortTerm = true;
    out.storeUid.assign(uid, uid + 16);
    out.nid = getU32(bytes + 20);
    out.session = getU32(bytes + 24);
  }
  return out;
}

}  // namespace PIM::store
