// Calling Office's objects by name through IDispatch: no Office headers
// exist here, and names (not vtable slots) are what stay the same across
// Office versions.
//
//   PIM::ComPtr<IDispatch> controls;
//   HRESULT hr = PIM::LateBound::getDispatch(bar, L"Controls", controls);
//   PIM::LateBound::Variant count;
//   hr = PIM::LateBound::getProperty(controls.get(), L"Count", count);
//
// Arguments go in the order of the call as written (the helpers reverse them
// into IDispatch's order). Every function answers the HRESULT of the step
// that failed: looking the name up, the call itself, or the result's type.
// Nothing here logs; the caller knows what the call was for.
//
// Header-only, so that the MAPI library's command-bar lookup can use it
// without linking the add-in's library.
#pragma once

#include <windows.h>

#include <oaidl.h>
#include <oleauto.h>

#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <string>

#include "mapi/mapi_ptr.h"

namespace PIM::LateBound {

// Owns a VARIANT: cleared (releasing an interface or freeing a BSTR) when
// destroyed, reset or handed out again through put().
class Variant {
 public:
  Variant() noexcept { VariantInit(&v_); }
  ~Variant() { VariantClear(&v_); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;

  // Typed constructors for arguments; the variant owns what it holds.
  static Variant int32(int32_t value) noexcept {
    Variant v;
    v.v_.vt = VT_I4;
    v.v_.lVal = value;
    return v;
  }
  static Variant int16(int16_t value) noexcept {
    Variant v;
    v.v_.vt = VT_I2;
    v.v_.iVal = value;
    return v;
  }
  static Variant boolean(bool value) noexcept {
    Variant v;
    v.v_.vt = VT_BOOL;
    v.v_.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return v;
  }
  // An optional argument left out.
  static Variant missing() noexcept {
    Variant v;
    v.v_.vt = VT_ERROR;
    v.v_.scode = DISP_E_PARAMNOTFOUND;
    return v;
  }
  // A copy of `text`; VT_EMPTY when it cannot be allocated (putString
  // tells that apart).
  static Variant string(const std::u16string& text) noexcept {
    Variant v;
    BSTR b = SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.data()),
                               static_cast<UINT>(text.size()));
    if (b) {
      v.v_.vt = VT_BSTR;
      v.v_.bstrVal = b;
    }
    return v;
  }
  // Holds a reference of its own to `object`.
  static Variant dispatch(IDispatch* object) noexcept {
    Variant v;
    v.v_.vt = VT_DISPATCH;
    v.v_.pdispVal = object;
    if (object) object->AddRef();
    return v;
  }

  Variant(Variant&& other) noexcept : v_(other.v_) { VariantInit(&other.v_); }
  Variant& operator=(Variant&& other) noexcept {
    if (this != &other) {
      VariantClear(&v_);
      v_ = other.v_;
      VariantInit(&other.v_);
    }
    return *this;
  }

  const VARIANT& get() const noexcept { return v_; }
  VARTYPE type() const noexcept { return v_.vt; }
  // The slot for a result; what was held is cleared first.
  VARIANT* put() noexcept {
    VariantClear(&v_);
    return &v_;
  }

  // Converts in place to `type` (VariantChangeType's rules).
  [[nodiscard]] HRESULT changeType(VARTYPE type) noexcept {
    return v_.vt == type ? S_OK : VariantChangeType(&v_, &v_, 0, type);
  }

 private:
  VARIANT v_;
};

// The dispatch identifier of `name` on `object` (English names).
[[nodiscard]] inline HRESULT dispIdOf(IDispatch* object, const wchar_t* name, DISPID& id) noexcept {
  if (!object || !name) return E_INVALIDARG;
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  return object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
}

// Invoke by name with `flags`; `args` in the order written. A property put
// passes its one argument as the named DISPID_PROPERTYPUT, as IDispatch
// demands. `result` may be null.
[[nodiscard]] inline HRESULT invoke(IDispatch* object, const wchar_t* name, WORD flags,
                                    std::initializer_list<const Variant*> args,
                                    Variant* result) noexcept {
  DISPID id = DISPID_UNKNOWN;
  HRESULT hr = dispIdOf(object, name, id);
  if (FAILED(hr)) return hr;
  // IDispatch takes its arguments last first. The variants stay owned by
  // the caller: Invoke only reads them.
  VARIANTARG reversed[8];
  if (args.size() > sizeof reversed / sizeof reversed[0]) return E_INVALIDARG;
  UINT n = 0;
  for (auto it = std::rbegin(args); it != std::rend(args); ++it) reversed[n++] = (*it)->get();
  DISPID putId = DISPID_PROPERTYPUT;
  DISPPARAMS params = {n ? reversed : nullptr, nullptr, n, 0};
  if (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) {
    params.rgdispidNamedArgs = &putId;
    params.cNamedArgs = 1;
  }
  EXCEPINFO exception = {};
  UINT argError = 0;
  hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params,
                      result ? result->put() : nullptr, &exception, &argError);
  // The exception's texts are ours to free; its code is the better answer.
  if (hr == DISP_E_EXCEPTION) {
    if (exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
    if (FAILED(exception.scode)) hr = exception.scode;
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrHelpFile);
  }
  return hr;
}

[[nodiscard]] inline HRESULT getProperty(IDispatch* object, const wchar_t* name, Variant& result,
                                         std::initializer_list<const Variant*> args = {}) noexcept {
  return invoke(object, name, DISPATCH_PROPERTYGET, args, &result);
}

[[nodiscard]] inline HRESULT putProperty(IDispatch* object, const wchar_t* name,
                                         const Variant& value) noexcept {
  return invoke(object, name, DISPATCH_PROPERTYPUT, {&value}, nullptr);
}

[[nodiscard]] inline HRESULT callMethod(IDispatch* object, const wchar_t* name, Variant& result,
                                        std::initializer_list<const Variant*> args = {}) noexcept {
  return invoke(object, name, DISPATCH_METHOD, args, &result);
}

// Text property `name` set to `text`; E_OUTOFMEMORY when no copy can be
// made.
[[nodiscard]] inline HRESULT putString(IDispatch* object, const wchar_t* name,
                                       const std::u16string& text) noexcept {
  const Variant value = Variant::string(text);
  if (value.type() != VT_BSTR) return E_OUTOFMEMORY;
  return putProperty(object, name, value);
}

// A result that must be an object: E_POINTER when it is null or absent,
// DISP_E_TYPEMISMATCH when it is something else.
[[nodiscard]] inline HRESULT takeDispatch(Variant& value, ComPtr<IDispatch>& out) noexcept {
  out.reset();
  if (value.type() == VT_EMPTY || value.type() == VT_NULL) return E_POINTER;
  if (value.type() != VT_DISPATCH && value.type() != VT_UNKNOWN) return DISP_E_TYPEMISMATCH;
  HRESULT hr = value.changeType(VT_DISPATCH);
  if (FAILED(hr)) return hr;
  out = ComPtr<IDispatch>::share(value.get().pdispVal);
  return out ? S_OK : E_POINTER;
}

// Property `name` (with `args`) as an object.
[[nodiscard]] inline HRESULT getDispatch(IDispatch* object, const wchar_t* name,
                                         ComPtr<IDispatch>& out,
                                         std::initializer_list<const Variant*> args = {}) noexcept {
  out.reset();
  Variant value;
  HRESULT hr = getProperty(object, name, value, args);
  return FAILED(hr) ? hr : takeDispatch(value, out);
}

// Property `name` as a 32-bit number.
[[nodiscard]] inline HRESULT getInt32(IDispatch* object, const wchar_t* name,
                                      int32_t& out) noexcept {
  Variant value;
  HRESULT hr = getProperty(object, name, value);
  if (SUCCEEDED(hr)) hr = value.changeType(VT_I4);
  if (SUCCEEDED(hr)) out = value.get().lVal;
  return hr;
}

// Property `name` as text.
[[nodiscard]] inline HRESULT getString(IDispatch* object, const wchar_t* name,
                                       std::u16string& out) {
  Variant value;
  HRESULT hr = getProperty(object, name, value);
  if (SUCCEEDED(hr)) hr = value.changeType(VT_BSTR);
  if (SUCCEEDED(hr)) {
    const BSTR b = value.get().bstrVal;
    out.assign(reinterpret_cast<const char16_t*>(b), b ? SysStringLen(b) : 0);
  }
  return hr;
}

}  // namespace PIM::LateBound
