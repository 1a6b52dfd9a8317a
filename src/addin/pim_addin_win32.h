// The COM object Outlook creates and drives: the add-in. It brings the rest
// of the system up in OnConnection/OnStartupComplete and down in
// OnBeginShutdown/OnDisconnection, and holds no state of its own: all it
// makes lives in the process-wide singletons.
//
// It answers IDTExtensibility2 (dual: the five methods after IDispatch's),
// IPimAddin (dual, no methods of its own), a connection point container
// with the empty _IPimAddinEvents, and ISupportErrorInfo. The two dual
// interfaces each dispatch through their own type information, so the
// extensibility interface is a part object of its own (same identity, same
// reference count).
//
// Threads: the host's main thread (apartment threaded).
#pragma once

#include <windows.h>
// after windows.h, which it needs
#include <ocidl.h>

#include <atomic>
#include <map>

#include "extensibility.h"
#include "ferrant.h"

class PimAddin final : public IPimAddin,
                       public IConnectionPointContainer,
                       public ISupportErrorInfo {
 public:
  // A new object with one reference, and one lock on the module.
  static HRESULT create(REFIID iid, void** out);

  // IUnknown
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // IDispatch of IPimAddin, over FerrantLib.
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID lcid, ITypeInfo** info) override;
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID lcid,
                                          DISPID* ids) override;
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID iid, LCID lcid, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* exception, UINT* argError) override;

  // IConnectionPointContainer
  HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** out) override;
  HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** out) override;

  // ISupportErrorInfo
  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override;

  // IDTExtensibility2, reached through the part object below.
  HRESULT OnConnection(IDispatch* application, ext_ConnectMode connectMode, IDispatch* addInInst,
                       SAFEARRAY** custom);
  HRESULT OnDisconnection(ext_DisconnectMode removeMode, SAFEARRAY** custom);
  HRESULT OnAddInsUpdate(SAFEARRAY** custom);
  HRESULT OnStartupComplete(SAFEARRAY** custom);
  HRESULT OnBeginShutdown(SAFEARRAY** custom);

 private:
  class Extensibility;
  class EventsPoint;

  PimAddin();
  ~PimAddin();

  std::atomic<ULONG> refs_{1};
  Extensibility* extensibility_;
  EventsPoint* events_;
};
