// Property value sets and tag arrays.
//
// MAPIProperties holds the values read from one object (GetProps) or one
// table row and finds them by the tag each value carries: a property the
// store could not deliver comes back under its error-typed tag (PT_ERROR)
// and is then not found under the tag that was asked for. The typed getters
// never throw; they answer E_FAIL and leave the output alone when the value
// is missing or of another type.
//
//   MAPIProperties props(message, {PR_SUBJECT_W, PR_IMPORTANCE});   // throws ComError
//   std::u16string subject;
//   if (props.getWstring(PR_SUBJECT_W, subject) == S_OK) ...
//
// Every text tag is asked for in both forms (PT_UNICODE and PT_STRING8), so
// that stores that deliver only 8-bit text still yield a value; 8-bit text
// is read as UTF-8.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "mapi/entry_id.h"
#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"

namespace PIM {

class MAPIProperties {
 public:
  MAPIProperties() = default;
  // attach(object, tags); a failure is thrown as ComError.
  MAPIProperties(IUnknown* object, const std::vector<ULONG>& tags);
  // Opens `id` through `folder` (best access) and reads `tags` from it; any
  // failure is thrown as ComError. Re-reads one item in full.
  MAPIProperties(IUnknown* folder, const EntryId& id, const std::vector<ULONG>& tags);
  MAPIProperties(const MAPIProperties&) = delete;
  MAPIProperties& operator=(const MAPIProperties&) = delete;
  // The index points into the value array, which does not move.
  MAPIProperties(MAPIProperties&& other) noexcept;
  MAPIProperties& operator=(MAPIProperties&& other) noexcept;
  ~MAPIProperties() = default;

  // Reads `tags` (and the twins of text tags) with GetProps. Returns S_OK
  // (also when some values are errors), E_INVALIDARG for a null object or no
  // tags, or the failing code.
  HRESULT attach(IUnknown* object, const std::vector<ULONG>& tags);
  // Takes ownership of a MAPI-allocated value array. E_INVALIDARG when null
  // or empty.
  HRESULT attach(SPropValue* values, ULONG count);
  // Forgets the values without freeing them (they belong to someone else,
  // e.g. a table's row set).
  void release();

  ULONG count() const { return count_; }
  // The value carrying exactly this tag, or null (also for tag 0).
  const SPropValue* getPropValue(ULONG tag) const;

  HRESULT getBool(ULONG tag, bool& out) const;
  HRESULT getLong(ULONG tag, LONG& out) const;
  // The file time as stored (UTC).
  HRESULT getSystime(ULONG tag, uint64_t& out) const;
  HRESULT getBinary(ULONG tag, std::vector<uint8_t>& out) const;
  HRESULT getEntryId(ULONG tag, EntryId& out) const;
  // One byte array per non-empty element.
  HRESULT getMvBinary(ULONG tag, std::vector<std::vector<uint8_t>>& out) const;
  // The text under `tag` or its twin of the other text type. With a source
  // folder, a text the table may have cut is re-read from the item
  // (verifyString).
  HRESULT getWstring(ULONG tag, std::u16string& out, IUnknown* source = nullptr) const;
  // Tables cut strings at 255 characters (510 in some stores): such a text is
  // read again from the item itself through `source`. Errors are logged and
  // leave `text` as it was.
  void verifyString(ULONG tag, std::u16string& text, IUnknown* source) const;

 private:
  void clear();

  MapiBuffer<SPropValue> values_;
  ULONG count_ = 0;
  std::map<ULONG, const SPropValue*> index_;
};

// An owned, MAPI-allocated SPropTagArray, or none.
class PropTagArray {
 public:
  PropTagArray() = default;
  // Allocates count and tags; an empty list gives a valid array of count 0.
  // Throws ComError (std::bad_alloc when out of memory).
  explicit PropTagArray(const std::vector<ULONG>& tags);
  // attach(array).
  explicit PropTagArray(SPropTagArray* array);

  // Takes ownership; throws ComError(E_FAIL) when an array is already held.
  void attach(SPropTagArray* array);
  SPropTagArray* get() const { return array_.get(); }
  // 0 when none is held.
  ULONG size() const;
  // Throws ComError(E_INVALIDARG) when i >= size().
  ULONG getAt(ULONG i) const;

 private:
  MapiBuffer<SPropTagArray> array_;
};

}  // namespace PIM
