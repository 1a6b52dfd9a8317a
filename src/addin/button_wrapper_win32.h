// One toolbar button and the sink of its Click event: Office calls the
// sink's IDispatch with dispatch identifier 1 (Click), and the sink hands the
// button's identifier to the button manager, which posts it to the action
// window.
//
// The sink is connected to the button's _CommandBarButtonEvents in the
// constructor and disconnected in the destructor. Its lifetime is the
// manager's (made with new, ended with delete): the references that COM
// hands around (the connection point's, QueryInterface's) do not own it,
// and the connection's reference ends when the destructor disconnects.
//
// Threads: the host's main thread.
#pragma once

#include <windows.h>

#include <oaidl.h>

#include <cstdint>

#include "mapi/mapi_ptr.h"

namespace PIM {

// Office's _CommandBarButton and the dispatch interface of its events.
inline constexpr IID kIidCommandBarButton = {
    0x000C030E, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID kDiidCommandBarButtonEvents = {
    0x000C0351, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
// The dispatch identifier of _CommandBarButtonEvents::Click.
inline constexpr DISPID kDispIdClick = 1;

class ButtonWrapper final : public IDispatch {
 public:
  // Keeps a reference of its own to `button` (a _CommandBarButton) and
  // connects the sink; a failed connection is logged and the wrapper stays,
  // deaf to clicks.
  ButtonWrapper(IDispatch* button, uint32_t id);
  // Disconnects (a failure is logged) and releases the button.
  ~ButtonWrapper();
  ButtonWrapper(const ButtonWrapper&) = delete;
  ButtonWrapper& operator=(const ButtonWrapper&) = delete;

  IDispatch* button() const { return button_.get(); }
  uint32_t id() const { return id_; }

  // Click: the button's identifier goes to the manager. CancelDefault is
  // never written.
  void OnClickButton(IDispatch* ctrl, VARIANT_BOOL* cancelDefault);

  // IUnknown: IUnknown, IDispatch and _CommandBarButtonEvents.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // IDispatch without type information: Invoke knows Click only, with its
  // two arguments (VT_DISPATCH the control, VT_BOOL | VT_BYREF
  // CancelDefault).
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) override;
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID lcid,
                                          DISPID* ids) override;
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* exception, UINT* argError) override;

 private:
  // The connection's cookie; 0 while not connected (connection points hand
  // out non-zero cookies).
  DWORD cookie_ = 0;
  ComPtr<IDispatch> button_;
  uint32_t id_;
};

}  // namespace PIM
