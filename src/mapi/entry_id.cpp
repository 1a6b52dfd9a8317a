#include "mapi/entry_id.h"

#include "core/debug_logger.h"
#include "mapi/com_error.h"
#include "mapi/mapi_properties.h"

namespace PIM {

EntryId::EntryId(ULONG count, const BYTE* bytes) {
  if (bytes && count > 0) bytes_.assign(bytes, bytes + count);
}

LPENTRYID EntryId::asEntryId() const {
  // MAPI takes identifiers through non-const pointers but only reads them.
  return reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(getPtr()));
}

std::u16string EntryId::toWstring() const {
  static constexpr char16_t kDigits[] = u"0123456789abcdef";
  std::u16string text;
  text.reserve(bytes_.size() * 2);
  for (uint8_t byte : bytes_) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

bool EntryId::convertToLongTerm(IMsgStore* store) {
  PIM_ENTRY("PIM::EntryId::convertToLongTerm");
  if (!isValid()) return false;
  if (isLongTerm()) return true;
  ComPtr<IUnknown> object;
  ULONG type = 0;
  const HRESULT hr =
      store ? store->OpenEntry(count(), asEntryId(), nullptr, 0, &type, object.putUnknown())
            : E_INVALIDARG;
  if (FAILED(hr)) {
    PIM_LOG_ERR("HR Error: " << hrText(hr) << ": "
                             << "Failed to retrieve longterm entry id for this entry.");
  }
  // Without an object this read throws E_INVALIDARG to the caller.
  MAPIProperties props(object.get(), {PR_ENTRYID});
  EntryId longTerm;
  if (props.getEntryId(PR_ENTRYID, longTerm) != S_OK) {
    PIM_LOG_ERR("HR Error: " << hrText(E_FAIL) << ": "
                             << "Failed to retrieve longterm entry id for this entry.");
  }
  bytes_ = std::move(longTerm.bytes_);
  // Callers never look at the result of a conversion.
  return false;
}

}  // namespace PIM
