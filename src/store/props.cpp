#include "store/props.h"

#include <algorithm>
#include <cstring>

#include "core/utils.h"

namespace PIM::store {

// ---- Prop and PropList -----------------------------------------------------
Prop Prop::ofLong(ULONG tag, int32_t value) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_LONG);
  p.num = value;
  return p;
}
Prop Prop::ofBool(ULONG tag, bool value) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_BOOLEAN);
  p.num = value ? 1 : 0;
  return p;
}
Prop Prop::ofI8(ULONG tag, int64_t value) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_I8);
  p.num = value;
  return p;
}
Prop Prop::ofTime(ULONG tag, uint64_t fileTime) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_SYSTIME);
  p.num = static_cast<int64_t>(fileTime);
  return p;
}
Prop Prop::ofText(ULONG tag, std::u16string value) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_UNICODE);
  p.text = std::move(value);
  return p;
}
Prop Prop::ofString8(ULONG tag, std::string value) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_STRING8);
  p.str = std::move(value);
  return p;
}
Prop Prop::ofBinary(ULONG tag, Bytes value) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_BINARY);
  p.bin = std::move(value);
  return p;
}
Prop Prop::ofError(ULONG propId, SCODE error) {
  Prop p;
  p.tag = PROP_TAG(PT_ERROR, propId);
  p.num = error;
  return p;
}
Prop Prop::ofMvBinary(ULONG tag, std::vector<Bytes> values) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_MV_BINARY);
  p.bins = std::move(values);
  return p;
}
Prop Prop::ofMvText(ULONG tag, std::vector<std::u16string> values) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_MV_UNICODE);
  p.texts = std::move(values);
  return p;
}
Prop Prop::ofI2(ULONG tag, int16_t value) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_I2);
  p.num = value;
  return p;
}
Prop Prop::ofReal(ULONG tag, double value) {
  Prop p;
  const ULONG type = PROP_TYPE(tag);
  p.tag = type == PT_R4 || type == PT_APPTIME ? tag : CHANGE_PROP_TYPE(tag, PT_DOUBLE);
  p.real = value;
  return p;
}
Prop Prop::ofClsid(ULONG tag, Bytes guid) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_CLSID);
  p.bin = std::move(guid);
  return p;
}
Prop Prop::ofMvNum(ULONG tag, std::vector<int64_t> values) {
  Prop p;
  const ULONG type = PROP_TYPE(tag);
  p.tag = type == PT_MV_I2 || type == PT_MV_I8 || type == PT_MV_SYSTIME
              ? tag
              : CHANGE_PROP_TYPE(tag, PT_MV_LONG);
  p.nums = std::move(values);
  return p;
}
Prop Prop::ofMvString8(ULONG tag, std::vector<std::string> values) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_MV_STRING8);
  p.strs = std::move(values);
  return p;
}
Prop Prop::ofMvClsid(ULONG tag, std::vector<Bytes> guids) {
  Prop p;
  p.tag = CHANGE_PROP_TYPE(tag, PT_MV_CLSID);
  p.bins = std::move(guids);
  return p;
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
  if (prop.type() == PT_UNICODE) return prop.text;
  if (prop.type() == PT_STRING8) return fromUtf8(prop.str);
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
bool convertProp(const Prop& prop, ULONG type, Prop& out) {
  const ULONG have = prop.type();
  if (type == PT_UNSPECIFIED || type == have) {
    out = prop;
    return true;
  }
  out = Prop();
  out.tag = PROP_TAG(type, prop.id());
  if (type == PT_UNICODE && have == PT_STRING8) {
    out.text = fromUtf8(prop.str);
    return true;
  }
  if (type == PT_STRING8 && have == PT_UNICODE) {
    out.str = toUtf8(prop.text);
    return true;
  }
  if (type == PT_MV_UNICODE && have == PT_MV_STRING8) {
    for (const std::string& s : prop.strs) out.texts.push_back(fromUtf8(s));
    return true;
  }
  if (type == PT_MV_STRING8 && have == PT_MV_UNICODE) {
    for (const std::u16string& s : prop.texts) out.strs.push_back(toUtf8(s));
    return true;
  }
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
  LPSTR copyString8(const std::string& s) {
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
  bool copyBinary(const Bytes& b, SBinary& out) {
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
void copyGuid(const Bytes& from, GUID& to) {
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
      return p.text.size() * 2;
    case PT_STRING8:
      return p.str.size();
    case PT_BINARY:
      return p.bin.size();
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
    setError(out, id, static_cast<SCODE>(prop->num));
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
  Prop value;
  if (!convertProp(*prop, target, value)) {
    setError(out, id, MAPI_E_NOT_FOUND);
    return S_OK;
  }
  if (options.byteLimit && longestValue(value) > options.byteLimit) {
    setError(out, id, MAPI_E_NOT_ENOUGH_MEMORY);
    return S_OK;
  }
  if (options.stringLimit) {
    if (target == PT_UNICODE && value.text.size() > options.stringLimit)
      value.text.resize(options.stringLimit);
    if (target == PT_STRING8 && value.str.size() > options.stringLimit)
      value.str.resize(options.stringLimit);
  }

  Allocator a{root};
  out.ulPropTag = PROP_TAG(target, id);
  out.dwAlignPad = 0;
  switch (target) {
    case PT_I2:
      out.Value.i = static_cast<short>(value.num);
      break;
    case PT_LONG:
      out.Value.l = static_cast<LONG>(value.num);
      break;
    case PT_BOOLEAN:
      out.Value.b = value.num ? 1 : 0;
      break;
    case PT_R4:
      out.Value.flt = static_cast<float>(value.real);
      break;
    case PT_DOUBLE:
      out.Value.dbl = value.real;
      break;
    case PT_APPTIME:
      out.Value.at = value.real;
      break;
    case PT_I8:
      out.Value.li.QuadPart = value.num;
      break;
    case PT_SYSTIME:
      out.Value.ft = toFileTime(value.num);
      break;
    case PT_STRING8:
      out.Value.lpszA = a.copyString8(value.str);
      break;
    case PT_UNICODE:
      out.Value.lpszW = a.copyText(value.text);
      break;
    case PT_BINARY:
      a.copyBinary(value.bin, out.Value.bin);
      break;
    case PT_CLSID:
      if ((out.Value.lpguid = a.alloc<GUID>(1))) copyGuid(value.bin, *out.Value.lpguid);
      break;
    case PT_MV_I2:
      copyEach(a, value.nums, out.Value.MVi.cValues, out.Value.MVi.lpi,
               [](int64_t n, SHORT& to) { to = static_cast<SHORT>(n); });
      break;
    case PT_MV_LONG:
      copyEach(a, value.nums, out.Value.MVl.cValues, out.Value.MVl.lpl,
               [](int64_t n, LONG& to) { to = static_cast<LONG>(n); });
      break;
    case PT_MV_I8:
      copyEach(a, value.nums, out.Value.MVli.cValues, out.Value.MVli.lpli,
               [](int64_t n, LARGE_INTEGER& to) { to.QuadPart = n; });
      break;
    case PT_MV_SYSTIME:
      copyEach(a, value.nums, out.Value.MVft.cValues, out.Value.MVft.lpft,
               [](int64_t n, FILETIME& to) { to = toFileTime(n); });
      break;
    case PT_MV_STRING8:
      copyEach(a, value.strs, out.Value.MVszA.cValues, out.Value.MVszA.lppszA,
               [&a](const std::string& from, LPSTR& to) { to = a.copyString8(from); });
      break;
    case PT_MV_UNICODE:
      copyEach(a, value.texts, out.Value.MVszW.cValues, out.Value.MVszW.lppszW,
               [&a](const std::u16string& from, LPWSTR& to) { to = a.copyText(from); });
      break;
    case PT_MV_CLSID:
      copyEach(a, value.bins, out.Value.MVguid.cValues, out.Value.MVguid.lpguid, copyGuid);
      break;
    case PT_MV_BINARY:
      copyEach(a, value.bins, out.Value.MVbin.cValues, out.Value.MVbin.lpbin,
               [&a](const Bytes& from, SBinary& to) { a.copyBinary(from, to); });
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
  Prop p;
  p.tag = v.ulPropTag;
  auto ticks = [](const FILETIME& ft) {
    return static_cast<int64_t>((static_cast<uint64_t>(ft.dwHighDateTime) << 32) |
                                ft.dwLowDateTime);
  };
  auto text = [](LPCWSTR s) { return s ? std::u16string(asU16(s)) : std::u16string(); };
  auto bytes = [](const SBinary& b) { return b.lpb ? Bytes(b.lpb, b.lpb + b.cb) : Bytes(); };
  switch (PROP_TYPE(v.ulPropTag)) {
    case PT_I2:
      p.num = v.Value.i;
      break;
    case PT_LONG:
      p.num = v.Value.l;
      break;
    case PT_BOOLEAN:
      p.num = v.Value.b ? 1 : 0;
      break;
    case PT_ERROR:
      p.num = v.Value.err;
      break;
    case PT_R4:
      p.real = v.Value.flt;
      break;
    case PT_DOUBLE:
      p.real = v.Value.dbl;
      break;
    case PT_APPTIME:
      p.real = v.Value.at;
      break;
    case PT_I8:
      p.num = v.Value.li.QuadPart;
      break;
    case PT_SYSTIME:
      p.num = ticks(v.Value.ft);
      break;
    case PT_STRING8:
      p.str = v.Value.lpszA ? v.Value.lpszA : "";
      break;
    case PT_UNICODE:
      p.text = text(v.Value.lpszW);
      break;
    case PT_BINARY:
      p.bin = bytes(v.Value.bin);
      break;
    case PT_CLSID:
      if (v.Value.lpguid) {
        const auto* g = reinterpret_cast<const uint8_t*>(v.Value.lpguid);
        p.bin.assign(g, g + sizeof(GUID));
      }
      break;
    case PT_MV_I2:
      for (ULONG i = 0; v.Value.MVi.lpi && i < v.Value.MVi.cValues; ++i)
        p.nums.push_back(v.Value.MVi.lpi[i]);
      break;
    case PT_MV_LONG:
      for (ULONG i = 0; v.Value.MVl.lpl && i < v.Value.MVl.cValues; ++i)
        p.nums.push_back(v.Value.MVl.lpl[i]);
      break;
    case PT_MV_I8:
      for (ULONG i = 0; v.Value.MVli.lpli && i < v.Value.MVli.cValues; ++i)
        p.nums.push_back(v.Value.MVli.lpli[i].QuadPart);
      break;
    case PT_MV_SYSTIME:
      for (ULONG i = 0; v.Value.MVft.lpft && i < v.Value.MVft.cValues; ++i)
        p.nums.push_back(ticks(v.Value.MVft.lpft[i]));
      break;
    case PT_MV_STRING8:
      for (ULONG i = 0; v.Value.MVszA.lppszA && i < v.Value.MVszA.cValues; ++i)
        p.strs.push_back(v.Value.MVszA.lppszA[i] ? v.Value.MVszA.lppszA[i] : "");
      break;
    case PT_MV_UNICODE:
      for (ULONG i = 0; v.Value.MVszW.lppszW && i < v.Value.MVszW.cValues; ++i)
        p.texts.push_back(text(v.Value.MVszW.lppszW[i]));
      break;
    case PT_MV_BINARY:
      for (ULONG i = 0; v.Value.MVbin.lpbin && i < v.Value.MVbin.cValues; ++i)
        p.bins.push_back(bytes(v.Value.MVbin.lpbin[i]));
      break;
    default:
      break;
  }
  return p;
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

int compareBytes(const Bytes& a, const Bytes& b) {
  const size_t n = std::min(a.size(), b.size());
  if (n) {
    int c = std::memcmp(a.data(), b.data(), n);
    if (c != 0) return c < 0 ? -1 : 1;
  }
  return order(a.size(), b.size());
}

// Element i of a value (single-valued: the value itself) as a one-element Prop.
Prop element(const Prop& p, size_t i) {
  Prop e;
  const ULONG base = p.type() & ~MV_FLAG;
  e.tag = PROP_TAG(base, p.id());
  switch (base) {
    case PT_UNICODE:
      e.text = p.texts[i];
      break;
    case PT_STRING8:
      e.str = p.strs[i];
      break;
    case PT_BINARY:
    case PT_CLSID:
      e.bin = p.bins[i];
      break;
    default:
      e.num = p.nums[i];
      break;
  }
  return e;
}

size_t countOf(const Prop& p) {
  switch (p.type()) {
    case PT_MV_UNICODE:
      return p.texts.size();
    case PT_MV_STRING8:
      return p.strs.size();
    case PT_MV_BINARY:
    case PT_MV_CLSID:
      return p.bins.size();
    default:
      return p.nums.size();
  }
}

}  // namespace

bool compareProps(const Prop& a, const Prop& b, int& result) {
  const Kind ka = kindOf(a.type()), kb = kindOf(b.type());
  if (ka == Kind::None || ka != kb) return false;
  const bool mva = (a.type() & MV_FLAG) != 0, mvb = (b.type() & MV_FLAG) != 0;
  if (mva != mvb) return false;
  if (mva) {
    const size_t na = countOf(a), nb = countOf(b);
    for (size_t i = 0; i < na && i < nb; ++i) {
      if (!compareProps(element(a, i), element(b, i), result)) return false;
      if (result != 0) return true;
    }
    result = order(na, nb);
    return true;
  }
  switch (ka) {
    case Kind::Number:
      // File times are unsigned; every stored number fits in 63 bits.
      result = order(a.num, b.num);
      return true;
    case Kind::Real:
      result = order(a.real, b.real);
      return true;
    case Kind::Text:
      result = order(foldCase(textOf(a)), foldCase(textOf(b)));
      return true;
    case Kind::Bytes:
      result = compareBytes(a.bin, b.bin);
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
        return static_cast<ULONG>(e.str.size() + 1);
      case PT_UNICODE:
        return static_cast<ULONG>((e.text.size() + 1) * 2);
      case PT_BINARY:
        return static_cast<ULONG>(e.bin.size());
      default:
        return 0;
    }
  };
  if (!(p.type() & MV_FLAG)) return one(p.type(), p);
  ULONG total = 0;
  const ULONG base = p.type() & ~MV_FLAG;
  for (size_t i = 0; i < countOf(p); ++i) total += one(base, element(p, i));
  return total;
}

}  // namespace PIM::store
