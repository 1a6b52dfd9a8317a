#include "store/props.h"

#include <algorithm>
#include <cstring>

#include "core/utils.h"

namespace PIM::store {

// ---- Prop and PropList -----------------------------------------------------
namespace {

// Strictly valid UTF-8 (no overlong forms, surrogates or values past
// U+10FFFF) without NULs: such text converts to UTF-16 and back unchanged
// (fromUtf8 ends text at a NUL).
bool validUtf8(std::string_view s) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const size_t n = s.size();
  size_t i = 0;
  constexpr uint64_t ones = 0x0101010101010101ull, highs = 0x8080808080808080ull;
  while (i < n) {
    // ASCII without NULs, 8 bytes at a time.
    while (n - i >= 8) {
      uint64_t x;
      std::memcpy(&x, p + i, 8);
      if ((x & highs) || ((x - ones) & ~x & highs)) break;
      i += 8;
    }
    if (i >= n) break;
    if (p[i] < 0x80) {
      if (p[i] == 0) return false;
      ++i;
      continue;
    }
    const unsigned char c = p[i];
    size_t len = 0;
    uint32_t cp = 0;
    if (c >= 0xC2 && c <= 0xDF)
      len = 2, cp = c & 0x1Fu;
    else if (c >= 0xE0 && c <= 0xEF)
      len = 3, cp = c & 0x0Fu;
    else if (c >= 0xF0 && c <= 0xF4)
      len = 4, cp = c & 0x07u;
    else
      return false;
    if (n - i < len) return false;
    for (size_t k = 1; k < len; ++k) {
      if ((p[i + k] & 0xC0) != 0x80) return false;
      cp = cp << 6 | (p[i + k] & 0x3Fu);
    }
    if (len == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) return false;
    if (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) return false;
    i += len;
  }
  return true;
}

// UTF-16 units of valid UTF-8.
size_t unitsOfUtf8(std::string_view s) {
  size_t units = 0;
  for (unsigned char c : s) {
    if ((c & 0xC0) != 0x80) ++units;
    if (c >= 0xF0) ++units;
  }
  return units;
}

void appendUtf8AsUtf16(std::string_view s, std::u16string& out) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const size_t n = s.size();
  out.reserve(out.size() + n);
  for (size_t i = 0; i < n;) {
    const unsigned char c = p[i];
    if (c < 0x80) {
      out.push_back(c);
      ++i;
    } else if (c < 0xE0) {
      out.push_back(static_cast<char16_t>((c & 0x1Fu) << 6 | (p[i + 1] & 0x3Fu)));
      i += 2;
    } else if (c < 0xF0) {
      out.push_back(
          static_cast<char16_t>((c & 0x0Fu) << 12 | (p[i + 1] & 0x3Fu) << 6 | (p[i + 2] & 0x3Fu)));
      i += 3;
    } else {
      const uint32_t cp = ((c & 0x07u) << 18 | (p[i + 1] & 0x3Fu) << 12 | (p[i + 2] & 0x3Fu) << 6 |
                           (p[i + 3] & 0x3Fu)) -
                          0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
      i += 4;
    }
  }
}

std::u16string utf16Of(std::string_view payload, bool utf8) {
  std::u16string out;
  if (utf8) {
    appendUtf8AsUtf16(payload, out);
  } else {
    out.resize(payload.size() / 2);
    if (!out.empty()) std::memcpy(out.data(), payload.data(), out.size() * 2);
  }
  return out;
}

std::string_view unitsAsBytes(const std::u16string& s) {
  return std::string_view(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}

// Multi-valued strings and binaries: each element as a 4-byte length, then
// its bytes.
void appendElement(std::string& out, std::string_view bytes) {
  const uint32_t n = static_cast<uint32_t>(bytes.size());
  out.append(reinterpret_cast<const char*>(&n), sizeof n);
  out.append(bytes);
}

template <class F>
void eachElement(std::string_view data, F f) {
  size_t at = 0;
  while (data.size() - at >= 4) {
    uint32_t n = 0;
    std::memcpy(&n, data.data() + at, sizeof n);
    at += 4;
    f(data.substr(at, n));
    at += n;
  }
}

bool numericMv(ULONG type) {
  switch (type) {
    case PT_MV_STRING8:
    case PT_MV_UNICODE:
    case PT_MV_BINARY:
    case PT_MV_CLSID:
      return false;
    default:
      return true;
  }
}

}  // namespace

Prop Prop::ofNum(ULONG tag, int64_t value) {
  Prop p;
  p.tag = tag;
  p.scalar_.num = value;
  return p;
}
Prop Prop::ofReal(ULONG tag, double value) {
  Prop p;
  const ULONG type = PROP_TYPE(tag);
  p.tag = type == PT_R4 || type == PT_APPTIME ? tag : CHANGE_PROP_TYPE(tag, PT_DOUBLE);
  p.scalar_.real = value;
  return p;
}
Prop Prop::ofBytes(ULONG tag, std::string value) {
  Prop p;
  p.tag = tag;
  p.data_ = std::move(value);
  return p;
}
Prop Prop::ofLong(ULONG tag, int32_t value) { return ofNum(CHANGE_PROP_TYPE(tag, PT_LONG), value); }
Prop Prop::ofBool(ULONG tag, bool value) {
  return ofNum(CHANGE_PROP_TYPE(tag, PT_BOOLEAN), value ? 1 : 0);
}
Prop Prop::ofI8(ULONG tag, int64_t value) { return ofNum(CHANGE_PROP_TYPE(tag, PT_I8), value); }
Prop Prop::ofTime(ULONG tag, uint64_t fileTime) {
  return ofNum(CHANGE_PROP_TYPE(tag, PT_SYSTIME), static_cast<int64_t>(fileTime));
}
Prop Prop::ofText(ULONG tag, std::u16string value) {
  return ofBytes(CHANGE_PROP_TYPE(tag, PT_UNICODE), std::string(unitsAsBytes(value)));
}
Prop Prop::ofUtf8Text(ULONG tag, std::string utf8) {
  if (!validUtf8(utf8)) return ofText(tag, fromUtf8(utf8));
  Prop p = ofBytes(CHANGE_PROP_TYPE(tag, PT_UNICODE), std::move(utf8));
  p.utf8_ = true;
  return p;
}
Prop Prop::ofString8(ULONG tag, std::string value) {
  return ofBytes(CHANGE_PROP_TYPE(tag, PT_STRING8), std::move(value));
}
Prop Prop::ofBinary(ULONG tag, Bytes value) {
  return ofBytes(CHANGE_PROP_TYPE(tag, PT_BINARY), std::string(value.begin(), value.end()));
}
Prop Prop::ofBinary(ULONG tag, std::string_view value) {
  return ofBytes(CHANGE_PROP_TYPE(tag, PT_BINARY), std::string(value));
}
Prop Prop::ofError(ULONG propId, SCODE error) { return ofNum(PROP_TAG(PT_ERROR, propId), error); }
Prop Prop::ofMvBinary(ULONG tag, std::vector<Bytes> values) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_MV_BINARY);
  for (const Bytes& b : values)
    appendElement(p.data_, std::string_view(reinterpret_cast<const char*>(b.data()), b.size()));
  return p;
}
Prop Prop::ofMvText(ULONG tag, std::vector<std::u16string> values) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_MV_UNICODE);
  for (const std::u16string& t : values) appendElement(p.data_, unitsAsBytes(t));
  return p;
}
Prop Prop::ofI2(ULONG tag, int16_t value) { return ofNum(CHANGE_PROP_TYPE(tag, PT_I2), value); }
Prop Prop::ofClsid(ULONG tag, Bytes guid) {
  return ofBytes(CHANGE_PROP_TYPE(tag, PT_CLSID), std::string(guid.begin(), guid.end()));
}
Prop Prop::ofMvNum(ULONG tag, const std::vector<int64_t>& values) {
  const ULONG type = PROP_TYPE(tag);
  return ofMvNums(type == PT_MV_I2 || type == PT_MV_I8 || type == PT_MV_SYSTIME
                      ? tag
                      : CHANGE_PROP_TYPE(tag, PT_MV_LONG),
                  values);
}
Prop Prop::ofMvClsid(ULONG tag, std::vector<Bytes> guids) {
  Prop p = ofMvBinary(tag, std::move(guids));
  p.tag = CHANGE_PROP_TYPE(tag, PT_MV_CLSID);
  return p;
}
Prop Prop::ofMvNums(ULONG tag, const std::vector<int64_t>& values) {
  Prop p;
  p.tag = tag;
  p.data_.assign(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(int64_t));
  return p;
}
Prop Prop::ofMvString8(ULONG tag, const std::vector<std::string>& values) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_MV_STRING8);
  for (const std::string& s : values) appendElement(p.data_, s);
  return p;
}
Prop Prop::ofMvUtf8Text(ULONG tag, const std::vector<std::string>& values) {
  bool valid = true;
  for (const std::string& s : values) valid = valid && validUtf8(s);
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_MV_UNICODE);
  p.utf8_ = valid;
  for (const std::string& s : values) {
    if (valid)
      appendElement(p.data_, s);
    else
      appendElement(p.data_, unitsAsBytes(fromUtf8(s)));
  }
  return p;
}

std::u16string Prop::text() const { return utf16Of(data_, utf8_); }

size_t Prop::textUnits() const { return utf8_ ? unitsOfUtf8(data_) : data_.size() / 2; }

size_t Prop::count() const {
  if (numericMv(type())) return data_.size() / sizeof(int64_t);
  size_t n = 0;
  eachElement(data_, [&n](std::string_view) { ++n; });
  return n;
}
std::vector<int64_t> Prop::nums() const {
  std::vector<int64_t> out;
  if (!numericMv(type())) return out;
  out.resize(data_.size() / sizeof(int64_t));
  if (!out.empty()) std::memcpy(out.data(), data_.data(), out.size() * sizeof(int64_t));
  return out;
}
std::vector<std::u16string> Prop::texts() const {
  std::vector<std::u16string> out;
  if (type() != PT_MV_UNICODE) return out;
  eachElement(data_, [&](std::string_view e) { out.push_back(utf16Of(e, utf8_)); });
  return out;
}
std::vector<std::string> Prop::strs() const {
  std::vector<std::string> out;
  if (type() != PT_MV_STRING8) return out;
  eachElement(data_, [&](std::string_view e) { out.emplace_back(e); });
  return out;
}
std::vector<Bytes> Prop::bins() const {
  std::vector<Bytes> out;
  if (type() != PT_MV_BINARY && type() != PT_MV_CLSID) return out;
  eachElement(data_, [&](std::string_view e) { out.emplace_back(e.begin(), e.end()); });
  return out;
}
Prop Prop::element(size_t i) const {
  Prop e;
  e.tag = PROP_TAG(type() & ~MV_FLAG, id());
  if (numericMv(type())) {
    if ((i + 1) * sizeof(int64_t) <= data_.size())
      std::memcpy(&e.scalar_.num, data_.data() + i * sizeof(int64_t), sizeof(int64_t));
    return e;
  }
  e.utf8_ = utf8_;
  size_t at = 0;
  eachElement(data_, [&](std::string_view v) {
    if (at++ == i) e.data_.assign(v);
  });
  return e;
}

bool Prop::operator==(const Prop& other) const {
  if (tag != other.tag) return false;
  switch (type()) {
    case PT_R4:
    case PT_DOUBLE:
    case PT_APPTIME:
      return real() == other.real();
    case PT_UNICODE:
      return utf8_ == other.utf8_ ? data_ == other.data_ : text() == other.text();
    case PT_MV_UNICODE:
      return utf8_ == other.utf8_ ? data_ == other.data_ : texts() == other.texts();
    default:
      return scalar_.num == other.scalar_.num && data_ == other.data_;
  }
}

const Prop* PropList::find(ULONG propId) const {
  for (const Prop& p : props_)
    if (p.id() == propId) return &p;
  return nullptr;
}
Prop* PropList::find(ULONG propId) {
  for (Prop& p : props_)
    if (p.id() == propId) return &p;
  return nullptr;
}
void PropList::set(Prop prop) {
  if (Prop* old = find(prop.id()))
    *old = std::move(prop);
  else
    props_.push_back(std::move(prop));
}
void PropList::setDefault(Prop prop) {
  if (!find(prop.id())) props_.push_back(std::move(prop));
}
bool PropList::erase(ULONG propId) {
  auto it = std::find_if(props_.begin(), props_.end(),
                         [propId](const Prop& p) { return p.id() == propId; });
  if (it == props_.end()) return false;
  props_.erase(it);
  return true;
}

bool PropName::operator<(const PropName& other) const {
  int c = std::memcmp(&set, &other.set, sizeof(GUID));
  if (c != 0) return c < 0;
  if (kind != other.kind) return kind < other.kind;
  if (kind == MNID_ID) return id < other.id;
  return name < other.name;
}

// ---- Text helpers ------------------------------------------------------------
std::u16string textOf(const Prop& prop) {
  if (prop.type() == PT_UNICODE) return prop.text();
  if (prop.type() == PT_STRING8) return fromUtf8(prop.str());
  return {};
}

namespace {

char16_t foldChar(char16_t c) {
  if (c >= u'A' && c <= u'Z') return static_cast<char16_t>(c + 32);
  if (c < 0x80) return c;
  if ((c >= 0xC0 && c <= 0xDE && c != 0xD7)) return static_cast<char16_t>(c + 32);
  if (c >= 0x100 && c <= 0x17F && c != 0x130 && c != 0x131 && c != 0x138 && c != 0x149 &&
      c != 0x17F) {
    // Latin Extended-A pairs upper/lower case as even/odd, except in the
    // ranges that start on an odd code point.
    const bool oddUpper = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    if (oddUpper ? (c % 2 == 1) : (c % 2 == 0)) return static_cast<char16_t>(c + 1);
    return c;
  }
  if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) return static_cast<char16_t>(c + 32);
  if (c >= 0x410 && c <= 0x42F) return static_cast<char16_t>(c + 32);
  if (c >= 0x400 && c <= 0x40F) return static_cast<char16_t>(c + 80);
  return c;
}

// Latin-1 letters 0xC0..0xFF without their accents.
constexpr char kLatin1Base[] =
    "AAAAAAACEEEEIIIIDNOOOOO\xD7OUUUUYTsaaaaaaaceeeeiiiidnooooo\xF7ouuuuyty";

}  // namespace

std::u16string foldCase(const std::u16string& text) {
  std::u16string out(text);
  for (char16_t& c : out) c = foldChar(c);
  return out;
}

std::u16string stripAccents(const std::u16string& text) {
  std::u16string out;
  out.reserve(text.size());
  for (char16_t c : text) {
    if (c >= 0x300 && c <= 0x36F) continue;  // combining marks
    if (c >= 0xC0 && c <= 0xFF)
      out.push_back(static_cast<char16_t>(static_cast<unsigned char>(kLatin1Base[c - 0xC0])));
    else
      out.push_back(c);
  }
  return out;
}

// ---- Conversions ---------------------------------------------------------------
std::string utf8Of(const Prop& prop) { return prop.utf8() ? prop.str() : toUtf8(prop.text()); }

bool convertProp(const Prop& prop, ULONG type, Prop& out) {
  const ULONG have = prop.type();
  if (type == PT_UNSPECIFIED || type == have) {
    out = prop;
    return true;
  }
  const ULONG tag = PROP_TAG(type, prop.id());
  if (type == PT_UNICODE && have == PT_STRING8) {
    out = Prop::ofText(tag, fromUtf8(prop.str()));
    return true;
  }
  if (type == PT_STRING8 && have == PT_UNICODE) {
    out = Prop::ofString8(tag, utf8Of(prop));
    return true;
  }
  if (type == PT_MV_UNICODE && have == PT_MV_STRING8) {
    std::vector<std::u16string> texts;
    for (const std::string& s : prop.strs()) texts.push_back(fromUtf8(s));
    out = Prop::ofMvText(tag, std::move(texts));
    return true;
  }
  if (type == PT_MV_STRING8 && have == PT_MV_UNICODE) {
    std::vector<std::string> strs;
    for (size_t i = 0; i < prop.count(); ++i) strs.push_back(utf8Of(prop.element(i)));
    out = Prop::ofMvString8(tag, strs);
    return true;
  }
  out = Prop();
  return false;
}

namespace {

struct Allocator {
  void* root;
  HRESULT hr = S_OK;
  template <class T>
  T* alloc(size_t count) {
    if (count == 0) count = 1;
    void* p = nullptr;
    if (FAILED(hr)) return nullptr;
    hr = MAPIAllocateMore(static_cast<ULONG>(sizeof(T) * count), root, &p);
    return FAILED(hr) ? nullptr : static_cast<T*>(p);
  }
  LPSTR copyString8(std::string_view s) {
    auto* p = alloc<char>(s.size() + 1);
    if (!p) return nullptr;
    std::memcpy(p, s.data(), s.size());
    p[s.size()] = 0;
    return p;
  }
  LPWSTR copyText(const std::u16string& s) {
    auto* p = alloc<WCHAR>(s.size() + 1);
    if (!p) return nullptr;
    for (size_t i = 0; i < s.size(); ++i) p[i] = static_cast<WCHAR>(s[i]);
    p[s.size()] = 0;
    return p;
  }
  bool copyBinary(std::string_view b, SBinary& out) {
    out.cb = static_cast<ULONG>(b.size());
    out.lpb = alloc<BYTE>(b.size());
    if (!out.lpb) return false;
    if (!b.empty()) std::memcpy(out.lpb, b.data(), b.size());
    return true;
  }
};

void setError(SPropValue& out, ULONG propId, SCODE error) {
  out.ulPropTag = PROP_TAG(PT_ERROR, propId);
  out.dwAlignPad = 0;
  out.Value.err = error;
}

FILETIME toFileTime(int64_t ticks) {
  FILETIME ft;
  ft.dwLowDateTime = static_cast<DWORD>(static_cast<uint64_t>(ticks) & 0xFFFFFFFFu);
  ft.dwHighDateTime = static_cast<DWORD>(static_cast<uint64_t>(ticks) >> 32);
  return ft;
}

// A GUID from up to 16 bytes, zero-filled when the fixture gave fewer.
void copyGuid(std::string_view from, GUID& to) {
  std::memset(&to, 0, sizeof(GUID));
  if (!from.empty()) std::memcpy(&to, from.data(), std::min<size_t>(16, from.size()));
}

// Fills a multi-valued array: count, then the MAPI-allocated items, each
// converted by `convert(source item, target item)`.
template <class Source, class Target, class Convert>
void copyEach(Allocator& a, const std::vector<Source>& from, ULONG& count, Target*& to,
              Convert convert) {
  count = static_cast<ULONG>(from.size());
  if (!(to = a.alloc<Target>(from.size()))) return;
  for (size_t i = 0; i < from.size(); ++i) convert(from[i], to[i]);
}

size_t longestValue(const Prop& p) {
  switch (p.type()) {
    case PT_UNICODE:
      return p.textUnits() * 2;
    case PT_STRING8:
    case PT_BINARY:
      return p.bytes().size();
    default:
      return 0;
  }
}

}  // namespace

HRESULT deliver(const Prop* prop, ULONG requested, void* root, SPropValue& out,
                const DeliverOptions& options, bool& isError) {
  const ULONG id = PROP_ID(requested);
  const ULONG wanted = PROP_TYPE(requested);
  isError = true;
  if (!prop) {
    setError(out, id, MAPI_E_NOT_FOUND);
    return S_OK;
  }
  if (prop->type() == PT_ERROR) {
    setError(out, id, static_cast<SCODE>(prop->num()));
    return S_OK;
  }
  if (!options.unicode && (wanted == PT_UNICODE || wanted == PT_MV_UNICODE)) {
    setError(out, id, MAPI_E_NOT_FOUND);
    return S_OK;
  }
  ULONG target = wanted;
  if (target == PT_UNSPECIFIED) {
    target = prop->type();
    // A store without Unicode hands its text out 8-bit.
    if (!options.unicode && target == PT_UNICODE) target = PT_STRING8;
    if (!options.unicode && target == PT_MV_UNICODE) target = PT_MV_STRING8;
  }
  // Values already of the wanted type are read in place.
  Prop converted;
  const Prop* source = prop;
  if (target != prop->type()) {
    if (!convertProp(*prop, target, converted)) {
      setError(out, id, MAPI_E_NOT_FOUND);
      return S_OK;
    }
    source = &converted;
  }
  const Prop& value = *source;
  if (options.byteLimit && longestValue(value) > options.byteLimit) {
    setError(out, id, MAPI_E_NOT_ENOUGH_MEMORY);
    return S_OK;
  }
  const size_t cut = options.stringLimit ? options.stringLimit : std::string::npos;

  Allocator a{root};
  out.ulPropTag = PROP_TAG(target, id);
  out.dwAlignPad = 0;
  switch (target) {
    case PT_I2:
      out.Value.i = static_cast<short>(value.num());
      break;
    case PT_LONG:
      out.Value.l = static_cast<LONG>(value.num());
      break;
    case PT_BOOLEAN:
      out.Value.b = value.num() ? 1 : 0;
      break;
    case PT_R4:
      out.Value.flt = static_cast<float>(value.real());
      break;
    case PT_DOUBLE:
      out.Value.dbl = value.real();
      break;
    case PT_APPTIME:
      out.Value.at = value.real();
      break;
    case PT_I8:
      out.Value.li.QuadPart = value.num();
      break;
    case PT_SYSTIME:
      out.Value.ft = toFileTime(value.num());
      break;
    case PT_STRING8:
      out.Value.lpszA = a.copyString8(value.bytes().substr(0, cut));
      break;
    case PT_UNICODE: {
      std::u16string text = value.text();
      if (text.size() > cut) text.resize(cut);
      out.Value.lpszW = a.copyText(text);
      break;
    }
    case PT_BINARY:
      a.copyBinary(value.bytes(), out.Value.bin);
      break;
    case PT_CLSID:
      if ((out.Value.lpguid = a.alloc<GUID>(1))) copyGuid(value.bytes(), *out.Value.lpguid);
      break;
    case PT_MV_I2:
      copyEach(a, value.nums(), out.Value.MVi.cValues, out.Value.MVi.lpi,
               [](int64_t n, SHORT& to) { to = static_cast<SHORT>(n); });
      break;
    case PT_MV_LONG:
      copyEach(a, value.nums(), out.Value.MVl.cValues, out.Value.MVl.lpl,
               [](int64_t n, LONG& to) { to = static_cast<LONG>(n); });
      break;
    case PT_MV_I8:
      copyEach(a, value.nums(), out.Value.MVli.cValues, out.Value.MVli.lpli,
               [](int64_t n, LARGE_INTEGER& to) { to.QuadPart = n; });
      break;
    case PT_MV_SYSTIME:
      copyEach(a, value.nums(), out.Value.MVft.cValues, out.Value.MVft.lpft,
               [](int64_t n, FILETIME& to) { to = toFileTime(n); });
      break;
    case PT_MV_STRING8:
      copyEach(a, value.strs(), out.Value.MVszA.cValues, out.Value.MVszA.lppszA,
               [&a](const std::string& from, LPSTR& to) { to = a.copyString8(from); });
      break;
    case PT_MV_UNICODE:
      copyEach(a, value.texts(), out.Value.MVszW.cValues, out.Value.MVszW.lppszW,
               [&a](const std::u16string& from, LPWSTR& to) { to = a.copyText(from); });
      break;
    case PT_MV_CLSID:
      copyEach(a, value.bins(), out.Value.MVguid.cValues, out.Value.MVguid.lpguid,
               [](const Bytes& from, GUID& to) {
                 copyGuid(std::string_view(reinterpret_cast<const char*>(from.data()), from.size()),
                          to);
               });
      break;
    case PT_MV_BINARY:
      copyEach(a, value.bins(), out.Value.MVbin.cValues, out.Value.MVbin.lpbin,
               [&a](const Bytes& from, SBinary& to) {
                 a.copyBinary(
                     std::string_view(reinterpret_cast<const char*>(from.data()), from.size()), to);
               });
      break;
    case PT_OBJECT:
      out.Value.x = 0;
      break;
    default:
      setError(out, id, MAPI_E_NOT_FOUND);
      return S_OK;
  }
  if (FAILED(a.hr)) return a.hr;
  isError = false;
  return S_OK;
}

Prop fromMapi(const SPropValue& v) {
  const ULONG tag = v.ulPropTag;
  auto ticks = [](const FILETIME& ft) {
    return static_cast<int64_t>((static_cast<uint64_t>(ft.dwHighDateTime) << 32) |
                                ft.dwLowDateTime);
  };
  auto text = [](LPCWSTR s) { return s ? std::u16string(asU16(s)) : std::u16string(); };
  auto bytes = [](const SBinary& b) { return b.lpb ? Bytes(b.lpb, b.lpb + b.cb) : Bytes(); };
  std::vector<int64_t> nums;
  switch (PROP_TYPE(tag)) {
    case PT_I2:
      return Prop::ofNum(tag, v.Value.i);
    case PT_LONG:
      return Prop::ofNum(tag, v.Value.l);
    case PT_BOOLEAN:
      return Prop::ofNum(tag, v.Value.b ? 1 : 0);
    case PT_ERROR:
      return Prop::ofNum(tag, v.Value.err);
    case PT_R4:
      return Prop::ofReal(tag, v.Value.flt);
    case PT_DOUBLE:
      return Prop::ofReal(tag, v.Value.dbl);
    case PT_APPTIME:
      return Prop::ofReal(tag, v.Value.at);
    case PT_I8:
      return Prop::ofNum(tag, v.Value.li.QuadPart);
    case PT_SYSTIME:
      return Prop::ofNum(tag, ticks(v.Value.ft));
    case PT_STRING8:
      return Prop::ofString8(tag, v.Value.lpszA ? v.Value.lpszA : "");
    case PT_UNICODE:
      return Prop::ofText(tag, text(v.Value.lpszW));
    case PT_BINARY:
      return Prop::ofBinary(tag, bytes(v.Value.bin));
    case PT_CLSID: {
      std::string g;
      if (v.Value.lpguid) g.assign(reinterpret_cast<const char*>(v.Value.lpguid), sizeof(GUID));
      return Prop::ofBytes(tag, std::move(g));
    }
    case PT_MV_I2:
      for (ULONG i = 0; v.Value.MVi.lpi && i < v.Value.MVi.cValues; ++i)
        nums.push_back(v.Value.MVi.lpi[i]);
      return Prop::ofMvNums(tag, nums);
    case PT_MV_LONG:
      for (ULONG i = 0; v.Value.MVl.lpl && i < v.Value.MVl.cValues; ++i)
        nums.push_back(v.Value.MVl.lpl[i]);
      return Prop::ofMvNums(tag, nums);
    case PT_MV_I8:
      for (ULONG i = 0; v.Value.MVli.lpli && i < v.Value.MVli.cValues; ++i)
        nums.push_back(v.Value.MVli.lpli[i].QuadPart);
      return Prop::ofMvNums(tag, nums);
    case PT_MV_SYSTIME:
      for (ULONG i = 0; v.Value.MVft.lpft && i < v.Value.MVft.cValues; ++i)
        nums.push_back(ticks(v.Value.MVft.lpft[i]));
      return Prop::ofMvNums(tag, nums);
    case PT_MV_STRING8: {
      std::vector<std::string> strs;
      for (ULONG i = 0; v.Value.MVszA.lppszA && i < v.Value.MVszA.cValues; ++i)
        strs.push_back(v.Value.MVszA.lppszA[i] ? v.Value.MVszA.lppszA[i] : "");
      return Prop::ofMvString8(tag, strs);
    }
    case PT_MV_UNICODE: {
      std::vector<std::u16string> texts;
      for (ULONG i = 0; v.Value.MVszW.lppszW && i < v.Value.MVszW.cValues; ++i)
        texts.push_back(text(v.Value.MVszW.lppszW[i]));
      return Prop::ofMvText(tag, std::move(texts));
    }
    case PT_MV_BINARY: {
      std::vector<Bytes> bins;
      for (ULONG i = 0; v.Value.MVbin.lpbin && i < v.Value.MVbin.cValues; ++i)
        bins.push_back(bytes(v.Value.MVbin.lpbin[i]));
      return Prop::ofMvBinary(tag, std::move(bins));
    }
    default:
      return Prop::ofNum(tag, 0);
  }
}

// ---- Comparison --------------------------------------------------------------
namespace {

enum class Kind { Number, Real, Text, Bytes, None };

Kind kindOf(ULONG type) {
  switch (type & ~MV_FLAG) {
    case PT_I2:
    case PT_LONG:
    case PT_BOOLEAN:
    case PT_I8:
    case PT_SYSTIME:
      return Kind::Number;
    case PT_R4:
    case PT_DOUBLE:
    case PT_APPTIME:
      return Kind::Real;
    case PT_STRING8:
    case PT_UNICODE:
      return Kind::Text;
    case PT_BINARY:
    case PT_CLSID:
      return Kind::Bytes;
    default:
      return Kind::None;
  }
}

template <class T>
int order(const T& a, const T& b) {
  return a < b ? -1 : (b < a ? 1 : 0);
}

int compareBytes(std::string_view a, std::string_view b) {
  const size_t n = std::min(a.size(), b.size());
  if (n) {
    int c = std::memcmp(a.data(), b.data(), n);
    if (c != 0) return c < 0 ? -1 : 1;
  }
  return order(a.size(), b.size());
}

}  // namespace

bool compareProps(const Prop& a, const Prop& b, int& result) {
  const Kind ka = kindOf(a.type()), kb = kindOf(b.type());
  if (ka == Kind::None || ka != kb) return false;
  const bool mva = (a.type() & MV_FLAG) != 0, mvb = (b.type() & MV_FLAG) != 0;
  if (mva != mvb) return false;
  if (mva) {
    const size_t na = a.count(), nb = b.count();
    for (size_t i = 0; i < na && i < nb; ++i) {
      if (!compareProps(a.element(i), b.element(i), result)) return false;
      if (result != 0) return true;
    }
    result = order(na, nb);
    return true;
  }
  switch (ka) {
    case Kind::Number:
      // File times are unsigned; every stored number fits in 63 bits.
      result = order(a.num(), b.num());
      return true;
    case Kind::Real:
      result = order(a.real(), b.real());
      return true;
    case Kind::Text:
      result = order(foldCase(textOf(a)), foldCase(textOf(b)));
      return true;
    case Kind::Bytes:
      result = compareBytes(a.bytes(), b.bytes());
      return true;
    default:
      return false;
  }
}

ULONG propSize(const Prop& p) {
  auto one = [](ULONG type, const Prop& e) -> ULONG {
    switch (type) {
      case PT_I2:
      case PT_BOOLEAN:
        return 2;
      case PT_LONG:
      case PT_R4:
      case PT_ERROR:
        return 4;
      case PT_DOUBLE:
      case PT_APPTIME:
      case PT_I8:
      case PT_SYSTIME:
      case PT_CURRENCY:
        return 8;
      case PT_CLSID:
        return 16;
      case PT_STRING8:
        return static_cast<ULONG>(e.bytes().size() + 1);
      case PT_UNICODE:
        return static_cast<ULONG>((e.textUnits() + 1) * 2);
      case PT_BINARY:
        return static_cast<ULONG>(e.bytes().size());
      default:
        return 0;
    }
  };
  if (!(p.type() & MV_FLAG)) return one(p.type(), p);
  ULONG total = 0;
  const ULONG base = p.type() & ~MV_FLAG;
  const size_t n = p.count();
  for (size_t i = 0; i < n; ++i) total += one(base, p.element(i));
  return total;
}

}  // namespace PIM::store
