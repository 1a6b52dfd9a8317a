// Late-bound calls for the stand-in's own tests and probe add-in: a VARIANT
// owner, variant makers, and one call by member name the way an add-in makes
// it (GetIDsOfNames, then Invoke with the arguments reversed and a property
// put's value named DISPID_PROPERTYPUT).
#pragma once

#include <oleauto.h>
#include <windows.h>

#include <vector>

namespace SimCall {

// Owns one VARIANT: cleared when destroyed.
struct Variant {
  VARIANT v;
  Variant() { VariantInit(&v); }
  ~Variant() { VariantClear(&v); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
};

// Argument makers. None owns anything: a BSTR or object passed stays the
// caller's.
inline VARIANT i4(long n) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_I4;
  V_I4(&v) = n;
  return v;
}
inline VARIANT i2(short n) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_I2;
  V_I2(&v) = n;
  return v;
}
inline VARIANT vbool(bool b) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_BOOL;
  V_BOOL(&v) = b ? VARIANT_TRUE : VARIANT_FALSE;
  return v;
}
inline VARIANT missing() {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_ERROR;
  V_ERROR(&v) = DISP_E_PARAMNOTFOUND;
  return v;
}
inline VARIANT bstr(BSTR b) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_BSTR;
  V_BSTR(&v) = b;
  return v;
}
inline VARIANT dispatch(IDispatch* p) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_DISPATCH;
  V_DISPATCH(&v) = p;
  return v;
}

// Calls member `name` of `object`; `args` in declaration order. For a
// property put (DISPATCH_PROPERTYPUT or PUTREF) `args` holds the one value.
inline HRESULT invoke(IDispatch* object, const wchar_t* name, WORD flags, std::vector<VARIANT> args,
                      VARIANT* result = nullptr, UINT* argErr = nullptr) {
  if (!object) return E_POINTER;
  DISPID id = DISPID_UNKNOWN;
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  HRESULT hr = object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
  if (FAILED(hr)) return hr;
  std::vector<VARIANT> reversed(args.rbegin(), args.rend());
  DISPID propput = DISPID_PROPERTYPUT;
  bool put = flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF);
  DISPPARAMS params{reversed.data(), put ? &propput : nullptr, static_cast<UINT>(reversed.size()),
                    put ? 1u : 0u};
  UINT err = 0;
  return object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, nullptr,
                        argErr ? argErr : &err);
}

}  // namespace SimCall
