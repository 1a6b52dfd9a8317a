#include "addin/button_wrapper_win32.h"

#include <ocidl.h>

#include "addin/button_manager_win32.h"
#include "core/debug_logger.h"
#include "mapi/com_error.h"

namespace PIM {

namespace {

// The button's connection point for its Click event.
HRESULT findEventsPoint(IDispatch* button, ComPtr<IConnectionPoint>& point) {
  ComPtr<IConnectionPointContainer> container;
  HRESULT hr = button->QueryInterface(IID_IConnectionPointContainer, container.putVoid());
  if (SUCCEEDED(hr) && !container) hr = E_NOINTERFACE;
  if (SUCCEEDED(hr)) hr = container->FindConnectionPoint(kDiidCommandBarButtonEvents, point.put());
  if (SUCCEEDED(hr) && !point) hr = E_NOINTERFACE;
  return hr;
}

}  // namespace

ButtonWrapper::ButtonWrapper(IDispatch* button, uint32_t id)
    : button_(ComPtr<IDispatch>::share(button)), id_(id) {
  PIM_ENTRY("PIM::ButtonWrapper::ButtonWrapper");
  HRESULT hr = E_INVALIDARG;
  if (button_) {
    ComPtr<IConnectionPoint> point;
    hr = findEventsPoint(button_.get(), point);
    DWORD cookie = 0;
    if (SUCCEEDED(hr)) hr = point->Advise(static_cast<IDispatch*>(this), &cookie);
    if (SUCCEEDED(hr)) cookie_ = cookie;
  }
  if (FAILED(hr)) PIM_LOG_HR(hr, "Failed to advise button " << id_);
}

ButtonWrapper::~ButtonWrapper() {
  PIM_ENTRY("PIM::ButtonWrapper::~ButtonWrapper");
  // A sink that never connected has nothing to disconnect.
  if (cookie_ != 0) {
    ComPtr<IConnectionPoint> point;
    HRESULT hr = findEventsPoint(button_.get(), point);
    if (SUCCEEDED(hr)) hr = point->Unadvise(cookie_);
    if (FAILED(hr)) PIM_LOG_HR(hr, "Failed to unadvise button " << id_);
    cookie_ = 0;
  }
  button_.reset();
}

void ButtonWrapper::OnClickButton(IDispatch* /*ctrl*/, VARIANT_BOOL* /*cancelDefault*/) {
  PIM_ENTRY("PIM::ButtonWrapper::OnClickButton");
  ButtonManager::instance()->onButtonClicked(id_);
}

HRESULT ButtonWrapper::QueryInterface(REFIID iid, void** out) {
  if (!out) return E_POINTER;
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) ||
      IsEqualIID(iid, kDiidCommandBarButtonEvents)) {
    *out = static_cast<IDispatch*>(this);
    return S_OK;
  }
  *out = nullptr;
  return E_NOINTERFACE;
}

// The manager owns the wrapper; COM's references keep nothing alive.
ULONG ButtonWrapper::AddRef() { return 2; }
ULONG ButtonWrapper::Release() { return 1; }

HRESULT ButtonWrapper::GetTypeInfoCount(UINT* count) {
  if (!count) return E_POINTER;
  *count = 0;
  return S_OK;
}

HRESULT ButtonWrapper::GetTypeInfo(UINT /*index*/, LCID /*lcid*/, ITypeInfo** info) {
  if (info) *info = nullptr;
  return E_NOTIMPL;
}

HRESULT ButtonWrapper::GetIDsOfNames(REFIID /*iid*/, LPOLESTR* /*names*/, UINT /*count*/,
                                     LCID /*lcid*/, DISPID* /*ids*/) {
  return E_NOTIMPL;
}

HRESULT ButtonWrapper::Invoke(DISPID id, REFIID iid, LCID /*lcid*/, WORD flags, DISPPARAMS* params,
                              VARIANT* result, EXCEPINFO* /*exception*/, UINT* argError) {
  if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
  if (id != kDispIdClick) return DISP_E_MEMBERNOTFOUND;
  if (!(flags & DISPATCH_METHOD)) return DISP_E_MEMBERNOTFOUND;
  if (!params || params->cArgs != 2) return DISP_E_BADPARAMCOUNT;
  if (params->cNamedArgs != 0) return DISP_E_NONAMEDARGS;
  // Arguments arrive last first: [1] the control, [0] CancelDefault.
  const VARIANTARG& ctrl = params->rgvarg[1];
  const VARIANTARG& cancel = params->rgvarg[0];
  if (ctrl.vt != VT_DISPATCH) {
    if (argError) *argError = 1;
    return DISP_E_TYPEMISMATCH;
  }
  if (cancel.vt != (VT_BOOL | VT_BYREF)) {
    if (argError) *argError = 0;
    return DISP_E_TYPEMISMATCH;
  }
  if (result) VariantInit(result);
  OnClickButton(ctrl.pdispVal, cancel.pboolVal);
  return S_OK;
}

}  // namespace PIM
