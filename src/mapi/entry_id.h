// Entry identifiers and the identity of a chosen folder.
//
// An EntryId holds the bytes exactly as the store returned them and compares
// them bytewise: the store is never asked, so a short-term and a long-term
// identifier of the same object differ. Identifiers are therefore converted
// to long-term form (convertToLongTerm) before they are kept.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "mapi/mapi.h"

namespace PIM {

class EntryId {
 public:
  EntryId() = default;
  // A null pointer or a count of 0 gives an empty identifier.
  EntryId(ULONG count, const BYTE* bytes);
  explicit EntryId(const SBinary& value) : EntryId(value.cb, value.lpb) {}
  explicit EntryId(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

  bool isValid() const { return !bytes_.empty(); }
  size_t size() const { return bytes_.size(); }
  // The first byte, or null when empty.
  const uint8_t* getPtr() const { return bytes_.empty() ? nullptr : bytes_.data(); }
  const std::vector<uint8_t>& getVector() const { return bytes_; }
  // The same bytes typed for OpenEntry and friends (which never write them).
  LPENTRYID asEntryId() const;
  ULONG count() const { return static_cast<ULONG>(bytes_.size()); }

  // The first flags byte is 0 only in identifiers that stay valid across
  // sessions.
  bool isLongTerm() const { return isValid() && bytes_[0] == 0; }

  bool operator==(const EntryId& other) const = default;

  // Two lower-case hexadecimal digits a byte, no separators.
  std::u16string toWstring() const;

  // Replaces a short-term identifier by the long-term one that the opened
  // object reports (empty when that read fails). Returns true only when the
  // identifier was already long-term, false for an empty one and after every
  // conversion. When the store cannot open the entry the read that follows
  // has no object and throws ComError(E_INVALIDARG).
  bool convertToLongTerm(IMsgStore* store);

 private:
  std::vector<uint8_t> bytes_;
};

// A folder chosen for capture: its own identifier and its store's. Folder
// lists in the registry and on the Folders page keep the folder first.
struct OutlookFolder {
  EntryId folderId;
  EntryId storeId;
  bool operator==(const OutlookFolder& other) const = default;
};

}  // namespace PIM
