#include "store/restriction.h"

#include <algorithm>

#include "core/utils.h"
#include "store/props.h"

namespace PIM::store {
namespace {

constexpr int kMaxDepth = 64;

HRESULT copyAt(const SRestriction& in, Restriction& out, int depth) {
  if (depth > kMaxDepth) return MAPI_E_TOO_COMPLEX;
  out = Restriction();
  out.rt = in.rt;
  auto copyChildren = [&](ULONG count, const SRestriction* list) -> HRESULT {
    if (count && !list) return MAPI_E_INVALID_PARAMETER;
    out.children.resize(count);
    for (ULONG i = 0; i < count; ++i)
      if (HRESULT hr = copyAt(list[i], out.children[i], depth + 1); FAILED(hr)) return hr;
    return S_OK;
  };
  switch (in.rt) {
    case RES_AND:
      return copyChildren(in.res.resAnd.cRes, in.res.resAnd.lpRes);
    case RES_OR:
      return copyChildren(in.res.resOr.cRes, in.res.resOr.lpRes);
    case RES_NOT:
      if (!in.res.resNot.lpRes) return MAPI_E_INVALID_PARAMETER;
      return copyChildren(1, in.res.resNot.lpRes);
    case RES_CONTENT: {
      const auto& c = in.res.resContent;
      if (!c.lpProp) return MAPI_E_INVALID_PARAMETER;
      out.relop = c.ulFuzzyLevel;
      out.tag = c.ulPropTag;
      out.value = fromMapi(*c.lpProp);
      out.hasValue = true;
      if ((c.ulFuzzyLevel & 0xFFFF) > FL_PREFIX) return MAPI_E_TOO_COMPLEX;
      return S_OK;
    }
    case RES_PROPERTY: {
      const auto& p = in.res.resProperty;
      if (!p.lpProp) return MAPI_E_INVALID_PARAMETER;
      if (p.relop > RELOP_RE) return MAPI_E_TOO_COMPLEX;
      out.relop = p.relop;
      out.tag = p.ulPropTag;
      out.value = fromMapi(*p.lpProp);
      out.hasValue = true;
      if (p.relop == RELOP_RE) {
        try {
          out.regex = std::make_shared<std::regex>(toUtf8(textOf(out.value)));
        } catch (const std::regex_error&) {
          return MAPI_E_TOO_COMPLEX;
        }
      }
      return S_OK;
    }
    case RES_COMPAREPROPS:
      if (in.res.resCompareProps.relop > RELOP_NE) return MAPI_E_TOO_COMPLEX;
      out.relop = in.res.resCompareProps.relop;
      out.tag = in.res.resCompareProps.ulPropTag1;
      out.tag2 = in.res.resCompareProps.ulPropTag2;
      return S_OK;
    case RES_BITMASK:
      out.relop = in.res.resBitMask.relBMR;
      out.tag = in.res.resBitMask.ulPropTag;
      out.number = in.res.resBitMask.ulMask;
      return out.relop <= BMR_NEZ ? S_OK : MAPI_E_TOO_COMPLEX;
    case RES_SIZE:
      if (in.res.resSize.relop > RELOP_NE) return MAPI_E_TOO_COMPLEX;
      out.relop = in.res.resSize.relop;
      out.tag = in.res.resSize.ulPropTag;
      out.number = in.res.resSize.cb;
      return S_OK;
    case RES_EXIST:
      out.tag = in.res.resExist.ulPropTag;
      return S_OK;
    case RES_SUBRESTRICTION:
      if (!in.res.resSub.lpRes) return MAPI_E_INVALID_PARAMETER;
      out.relop = in.res.resSub.ulSubObject;
      if (out.relop != PR_MESSAGE_RECIPIENTS && out.relop != PR_MESSAGE_ATTACHMENTS)
        return MAPI_E_TOO_COMPLEX;
      return copyChildren(1, in.res.resSub.lpRes);
    case RES_COMMENT:
      return in.res.resComment.lpRes ? copyChildren(1, in.res.resComment.lpRes) : S_OK;
    default:
      return MAPI_E_TOO_COMPLEX;
  }
}

bool relate(ULONG relop, int c) {
  switch (relop) {
    case RELOP_LT:
      return c < 0;
    case RELOP_LE:
      return c <= 0;
    case RELOP_GT:
      return c > 0;
    case RELOP_GE:
      return c >= 0;
    case RELOP_EQ:
      return c == 0;
    case RELOP_NE:
      return c != 0;
    default:
      return false;
  }
}

const Prop* present(const RowAccess& row, ULONG tag) {
  const Prop* p = row.find(PROP_ID(tag));
  return p && p->type() != PT_ERROR ? p : nullptr;
}

// The single values of a property: itself, or each of a multi-valued one.
std::vector<Prop> singles(const Prop& p) {
  if (!(p.type() & MV_FLAG)) return {p};
  std::vector<Prop> out;
  const size_t n = p.count();
  for (size_t i = 0; i < n; ++i) out.push_back(p.element(i));
  return out;
}

bool propertyMatches(const Restriction& r, const Prop& have) {
  if (r.relop == RELOP_RE) {
    for (const Prop& one : singles(have))
      if ((one.type() == PT_UNICODE || one.type() == PT_STRING8) &&
          std::regex_search(toUtf8(textOf(one)), *r.regex))
        return true;
    return false;
  }
  int c = 0;
  const bool valueIsMv = (r.value.type() & MV_FLAG) != 0;
  if ((have.type() & MV_FLAG) && !valueIsMv) {
    for (const Prop& one : singles(have))
      if (compareProps(one, r.value, c) && relate(r.relop, c)) return true;
    return false;
  }
  return compareProps(have, r.value, c) && relate(r.relop, c);
}

std::u16string fuzzyText(const std::u16string& text, ULONG fuzzy) {
  std::u16string out = text;
  if (fuzzy & (FL_IGNORENONSPACE | FL_LOOSE)) out = stripAccents(out);
  if (fuzzy & (FL_IGNORECASE | FL_LOOSE)) out = foldCase(out);
  return out;
}

template <class Seq>
bool containsBy(const Seq& hay, const Seq& needle, ULONG how) {
  switch (how) {
    case FL_FULLSTRING:
      return hay == needle;
    case FL_PREFIX:
      return hay.size() >= needle.size() && std::equal(needle.begin(), needle.end(), hay.begin());
    default:
      return std::search(hay.begin(), hay.end(), needle.begin(), needle.end()) != hay.end();
  }
}

bool contentMatches(const Restriction& r, const Prop& have) {
  const ULONG how = r.relop & 0xFFFF;
  const ULONG needleType = r.value.type() & ~MV_FLAG;
  for (const Prop& one : singles(have)) {
    const ULONG type = one.type();
    if ((type == PT_UNICODE || type == PT_STRING8) &&
        (needleType == PT_UNICODE || needleType == PT_STRING8)) {
      if (containsBy(fuzzyText(textOf(one), r.relop), fuzzyText(textOf(r.value), r.relop), how))
        return true;
    } else if (type == PT_BINARY && needleType == PT_BINARY) {
      if (containsBy(one.bytes(), r.value.bytes(), how)) return true;
    }
  }
  return false;
}

}  // namespace

HRESULT copyRestriction(const SRestriction& in, Restriction& out) { return copyAt(in, out, 0); }

bool evaluate(const Restriction& r, const RowAccess& row) {
  switch (r.rt) {
    case RES_AND:
      for (const Restriction& c : r.children)
        if (!evaluate(c, row)) return false;
      return true;
    case RES_OR:
      for (const Restriction& c : r.children)
        if (evaluate(c, row)) return true;
      return false;
    case RES_NOT:
      return !evaluate(r.children.at(0), row);
    case RES_COMMENT:
      return r.children.empty() || evaluate(r.children[0], row);
    case RES_EXIST:
      return present(row, r.tag) != nullptr;
    case RES_PROPERTY: {
      const Prop* have = present(row, r.tag);
      return have && propertyMatches(r, *have);
    }
    case RES_CONTENT: {
      const Prop* have = present(row, r.tag);
      return have && contentMatches(r, *have);
    }
    case RES_BITMASK: {
      const Prop* have = present(row, r.tag);
      if (!have || (have->type() != PT_LONG && have->type() != PT_I2)) return false;
      const bool zero = (static_cast<uint32_t>(have->num()) & r.number) == 0;
      return r.relop == BMR_EQZ ? zero : !zero;
    }
    case RES_SIZE: {
      const Prop* have = present(row, r.tag);
      if (!have) return false;
      const ULONG size = propSize(*have);
      return relate(r.relop, size < r.number ? -1 : (size > r.number ? 1 : 0));
    }
    case RES_COMPAREPROPS: {
      const Prop* a = present(row, r.tag);
      const Prop* b = present(row, r.tag2);
      int c = 0;
      return a && b && compareProps(*a, *b, c) && relate(r.relop, c);
    }
    case RES_SUBRESTRICTION: {
      struct SubRow : RowAccess {
        const PropList* props;
        const Prop* find(ULONG id) const override { return props->find(id); }
        std::vector<PropList> subObjectRows(ULONG) const override { return {}; }
      } sub;
      for (const PropList& props : row.subObjectRows(r.relop)) {
        sub.props = &props;
        if (evaluate(r.children.at(0), sub)) return true;
      }
      return false;
    }
    default:
      return false;
  }
}

void sortValues(const std::vector<SSortOrder>& keys, const RowAccess& row, const Prop** out) {
  for (const SSortOrder& key : keys) *out++ = present(row, key.ulPropTag);
}

int compareSortValues(const std::vector<SSortOrder>& keys, const Prop* const* a,
                      const Prop* const* b) {
  for (size_t i = 0; i < keys.size(); ++i) {
    const Prop* va = a[i];
    const Prop* vb = b[i];
    int c = 0;
    if (!va || !vb) {
      c = (va ? 0 : 1) - (vb ? 0 : 1);  // missing counts as the greatest
    } else if (!compareProps(*va, *vb, c)) {
      c = 0;
    }
    if (keys[i].ulOrder == TABLE_SORT_DESCEND) c = -c;
    if (c != 0) return c;
  }
  return 0;
}

int compareRows(const std::vector<SSortOrder>& keys, const RowAccess& a, const RowAccess& b) {
  std::vector<const Prop*> values(2 * keys.size());
  sortValues(keys, a, values.data());
  sortValues(keys, b, values.data() + keys.size());
  return compareSortValues(keys, values.data(), values.data() + keys.size());
}

}  // namespace PIM::store
