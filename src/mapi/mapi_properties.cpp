#include "mapi/mapi_properties.h"

#include <exception>
#include <utility>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "mapi/com_error.h"

namespace PIM {

namespace {

// The other text form of a text tag, or 0 for other types.
ULONG twinTag(ULONG tag) {
  switch (PROP_TYPE(tag)) {
    case PT_UNICODE:
      return PROP_TAG(PT_STRING8, PROP_ID(tag));
    case PT_STRING8:
      return PROP_TAG(PT_UNICODE, PROP_ID(tag));
    case PT_MV_UNICODE:
      return PROP_TAG(PT_MV_STRING8, PROP_ID(tag));
    case PT_MV_STRING8:
      return PROP_TAG(PT_MV_UNICODE, PROP_ID(tag));
    default:
      return 0;
  }
}

bool readText(const SPropValue* value, std::u16string& out) {
  if (!value) return false;
  if (PROP_TYPE(value->ulPropTag) == PT_UNICODE) {
    out = u16FromMapi(value->Value.lpszW);
    return true;
  }
  if (PROP_TYPE(value->ulPropTag) == PT_STRING8) {
    // 8-bit text from these stores is UTF-8, not the system code page.
    out = fromUtf8(value->Value.lpszA ? value->Value.lpszA : "");
    return true;
  }
  return false;
}

}  // namespace

MAPIProperties::MAPIProperties(IUnknown* object, const std::vector<ULONG>& tags) {
  const HRESULT hr = attach(object, tags);
  if (FAILED(hr)) throwComError(hr);
}

MAPIProperties::MAPIProperties(IUnknown* folder, const EntryId& id,
                               const std::vector<ULONG>& tags) {
  PIM_ENTRY("PIM::MAPIProperties::MAPIProperties");
  if (!folder) throwComError(E_INVALIDARG);
  ComPtr<IMAPIFolder> container;
  HRESULT hr = folder->QueryInterface(IID_IMAPIFolder, container.putVoid());
  if (FAILED(hr)) throwComError(hr);
  ComPtr<IUnknown> item;
  ULONG type = 0;
  hr = container->OpenEntry(id.count(), id.asEntryId(), nullptr, MAPI_BEST_ACCESS, &type,
                            item.putUnknown());
  if (FAILED(hr)) throwComError(hr);
  hr = attach(item.get(), tags);
  if (FAILED(hr)) throwComError(hr);
}

MAPIProperties::MAPIProperties(MAPIProperties&& other) noexcept
    : values_(std::move(other.values_)),
      count_(std::exchange(other.count_, 0)),
      index_(std::move(other.index_)) {
  other.index_.clear();
}

MAPIProperties& MAPIProperties::operator=(MAPIProperties&& other) noexcept {
  if (this != &other) {
    values_ = std::move(other.values_);
    count_ = std::exchange(other.count_, 0);
    index_ = std::move(other.index_);
    other.index_.clear();
  }
  return *this;
}

void MAPIProperties::clear() {
  values_.reset();
  count_ = 0;
  index_.clear();
}

void MAPIProperties::release() {
  (void)values_.detach();
  count_ = 0;
  index_.clear();
}

HRESULT MAPIProperties::attach(IUnknown* object, const std::vector<ULONG>& tags) {
  PIM_ENTRY("PIM::MAPIProperties::attach");
  if (!object || tags.empty()) return E_INVALIDARG;
  clear();
  std::vector<ULONG> request;
  request.reserve(tags.size() * 2);
  for (ULONG tag : tags) {
    request.push_back(tag);
    const ULONG type = PROP_TYPE(tag);
    if (type == PT_UNICODE || type == PT_MV_UNICODE) request.push_back(twinTag(tag));
  }
  ComPtr<IMAPIProp> prop;
  HRESULT hr = object->QueryInterface(IID_IMAPIProp, prop.putVoid());
  if (FAILED(hr)) return hr;
  ULONG count = 0;
  MapiBuffer<SPropValue> values;
  try {
    PropTagArray tagArray(request);
    hr = prop->GetProps(tagArray.get(), 0, &count, values.put());
  } catch (const ComError& error) {
    return error.hr();
  }
  if (FAILED(hr)) return hr;
  // A warning (some values are errors) counts as success; the error values
  // are indexed under their own tags.
  (void)attach(values.detach(), count);
  return S_OK;
}

HRESULT MAPIProperties::attach(SPropValue* values, ULONG count) {
  clear();
  if (!values || count == 0) {
    // An empty array still belongs to us.
    values_.reset(values);
    return E_INVALIDARG;
  }
  values_.reset(values);
  count_ = count;
  const SPropValue* first = values;
  for (ULONG i = 0; i < count; ++i) index_.emplace(first[i].ulPropTag, first + i);
  return S_OK;
}

const SPropValue* MAPIProperties::getPropValue(ULONG tag) const {
  if (tag == 0) return nullptr;
  const auto found = index_.find(tag);
  return found == index_.end() ? nullptr : found->second;
}

HRESULT MAPIProperties::getBool(ULONG tag, bool& out) const {
  const SPropValue* value = getPropValue(tag);
  if (!value || PROP_TYPE(value->ulPropTag) != PT_BOOLEAN) return E_FAIL;
  out = value->Value.b != 0;
  return S_OK;
}

HRESULT MAPIProperties::getLong(ULONG tag, LONG& out) const {
  const SPropValue* value = getPropValue(tag);
  if (!value || PROP_TYPE(value->ulPropTag) != PT_LONG) return E_FAIL;
  out = value->Value.l;
  return S_OK;
}

HRESULT MAPIProperties::getSystime(ULONG tag, uint64_t& out) const {
  const SPropValue* value = getPropValue(tag);
  if (!value || PROP_TYPE(value->ulPropTag) != PT_SYSTIME) return E_FAIL;
  out = (static_cast<uint64_t>(value->Value.ft.dwHighDateTime) << 32) |
        static_cast<uint64_t>(value->Value.ft.dwLowDateTime);
  return S_OK;
}

HRESULT MAPIProperties::getBinary(ULONG tag, std::vector<uint8_t>& out) const {
  const SPropValue* value = getPropValue(tag);
  if (!value || PROP_TYPE(value->ulPropTag) != PT_BINARY) return E_FAIL;
  out.clear();
  if (value->Value.bin.lpb && value->Value.bin.cb > 0) {
    out.assign(value->Value.bin.lpb, value->Value.bin.lpb + value->Value.bin.cb);
  }
  return S_OK;
}

HRESULT MAPIProperties::getEntryId(ULONG tag, EntryId& out) const {
  const SPropValue* value = getPropValue(tag);
  if (!value || PROP_TYPE(value->ulPropTag) != PT_BINARY) return E_FAIL;
  out = EntryId(value->Value.bin);
  return S_OK;
}

HRESULT MAPIProperties::getMvBinary(ULONG tag, std::vector<std::vector<uint8_t>>& out) const {
  const SPropValue* value = getPropValue(tag);
  if (!value || PROP_TYPE(value->ulPropTag) != PT_MV_BINARY) return E_FAIL;
  out.clear();
  const SBinary* elements = value->Value.MVbin.lpbin;
  for (ULONG i = 0; elements && i < value->Value.MVbin.cValues; ++i) {
    if (elements[i].cb == 0 || !elements[i].lpb) continue;
    out.emplace_back(elements[i].lpb, elements[i].lpb + elements[i].cb);
  }
  return S_OK;
}

HRESULT MAPIProperties::getWstring(ULONG tag, std::u16string& out, IUnknown* source) const {
  PIM_ENTRY("PIM::MAPIProperties::getWstring");
  std::u16string text;
  if (!readText(getPropValue(tag), text) && !readText(getPropValue(twinTag(tag)), text)) {
    return E_FAIL;
  }
  verifyString(tag, text, source);
  out = std::move(text);
  return S_OK;
}

void MAPIProperties::verifyString(ULONG tag, std::u16string& text, IUnknown* source) const {
  PIM_ENTRY("PIM::MAPIProperties::verifyString");
  if (!source || (text.size() != 255 && text.size() != 510)) return;
  EntryId id;
  if (getEntryId(PR_ENTRYID, id) != S_OK) return;
  try {
    MAPIProperties item(source, id, {tag});
    std::u16string full = text;
    if (item.getWstring(tag, full) == S_OK) text = std::move(full);
  } catch (const ComError& error) {
    PIM_LOG_ERR("Error retrieving string property:" << error.what());
  } catch (...) {
    PIM_LOG_ERR("Unknown error retrieving string property.");
  }
}

PropTagArray::PropTagArray(const std::vector<ULONG>& tags) {
  const ULONG count = static_cast<ULONG>(tags.size());
  const HRESULT hr =
      MAPIAllocateBuffer(static_cast<ULONG>(CbNewSPropTagArray(count)), array_.putVoid());
  if (FAILED(hr) || !array_) throwComError(FAILED(hr) ? hr : E_OUTOFMEMORY);
  array_->cValues = count;
  ULONG* slots = array_->aulPropTag;
  for (ULONG i = 0; i < count; ++i) slots[i] = tags[i];
}

PropTagArray::PropTagArray(SPropTagArray* array) { attach(array); }

void PropTagArray::attach(SPropTagArray* array) {
  if (array_) throwComError(E_FAIL);
  array_.reset(array);
}

ULONG PropTagArray::size() const { return array_ ? array_->cValues : 0; }

ULONG PropTagArray::getAt(ULONG i) const {
  if (i >= size()) throwComError(E_INVALIDARG);
  const ULONG* slots = array_->aulPropTag;
  return slots[i];
}

}  // namespace PIM
