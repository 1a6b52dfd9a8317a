#include "addin/pim_addin_win32.h"

#include <olectl.h>

#include <chrono>
#include <cstdio>
#include <new>
#include <string>

#include "addin/button_manager_win32.h"
#include "addin/ferrant_module_win32.h"
#include "addin/outlook_app.h"
#include "capture/data_capture.h"
#include "core/debug_logger.h"
#include "core/resource_loader.h"
#include "mapi/com_error.h"
#include "prefs/preferences.h"
#include "ui/capture_progress_win32.h"

using PIM::ComPtr;

namespace {

// Outlook's _Application interface.
const IID kIidOutlookApplication = {
    0x00063001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// A pointer as the log has always shown them: zero-padded upper-case hex of
// the pointer's width, no prefix.
std::string pointerText(const void* p) {
  char text[24];
  std::snprintf(text, sizeof text, "%0*llX", static_cast<int>(sizeof(void*) * 2),
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(p)));
  return text;
}

std::u16string text(const char16_t* key) {
  return PIM::ResourceLoader::instance()->getStringValue(key, u"");
}

// The capture progress dialog, modal on the host's thread: after the user's
// Capture button, over the host's window, and while the add-in ends during
// a run, where it closes itself once the run has ended. Should no dialog
// come up, the end still waits for the run with the host's messages
// flowing.
void showCaptureProgress(bool shutdownMode) {
  PIM_ENTRY("PIM::showCaptureProgress");
  const INT_PTR shown =
      PIM::CaptureProgress(shutdownMode, shutdownMode ? nullptr : GetActiveWindow()).DoModal();
  if (shown != -1 || !shutdownMode) return;
  PIM_LOG_ERR("Could not show the capture progress.");
  PIM::MessageLoop* loop = OutlookApp::instance()->actionWindow().loop();
  PIM::DataCapture* capture = PIM::DataCapture::instance();
  while (!capture->waitForCapture(std::chrono::milliseconds(0))) {
    if (loop) {
      loop->runUntil([capture] { return !capture->isCapturing(); }, std::chrono::milliseconds(50));
    } else {
      (void)capture->waitForCapture(std::chrono::milliseconds(50));
    }
  }
}

}  // namespace

// ---- IDTExtensibility2: a part object with its own dispatch ----------------

class PimAddin::Extensibility final : public IDTExtensibility2 {
 public:
  explicit Extensibility(PimAddin* outer) : outer_(outer) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    return outer_->QueryInterface(iid, out);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return outer_->AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return outer_->Release(); }

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID, ITypeInfo** info) override {
    if (!info) return E_POINTER;
    *info = nullptr;
    if (index != 0) return DISP_E_BADINDEX;
    ITypeInfo* found = _Module.typeInfo(IID_IDTExtensibility2);
    if (!found) return TYPE_E_ELEMENTNOTFOUND;
    found->AddRef();
    *info = found;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                          DISPID* ids) override {
    ITypeInfo* info = _Module.typeInfo(IID_IDTExtensibility2);
    return info ? info->GetIDsOfNames(names, count, ids) : E_FAIL;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* exception, UINT* argError) override {
    ITypeInfo* info = _Module.typeInfo(IID_IDTExtensibility2);
    if (!info) return E_FAIL;
    return info->Invoke(static_cast<IDTExtensibility2*>(this), id, flags, params, result, exception,
                        argError);
  }

  HRESULT STDMETHODCALLTYPE OnConnection(IDispatch* application, ext_ConnectMode connectMode,
                                         IDispatch* addInInst, SAFEARRAY** custom) override {
    return outer_->OnConnection(application, connectMode, addInInst, custom);
  }
  HRESULT STDMETHODCALLTYPE OnDisconnection(ext_DisconnectMode removeMode,
                                            SAFEARRAY** custom) override {
    return outer_->OnDisconnection(removeMode, custom);
  }
  HRESULT STDMETHODCALLTYPE OnAddInsUpdate(SAFEARRAY** custom) override {
    return outer_->OnAddInsUpdate(custom);
  }
  HRESULT STDMETHODCALLTYPE OnStartupComplete(SAFEARRAY** custom) override {
    return outer_->OnStartupComplete(custom);
  }
  HRESULT STDMETHODCALLTYPE OnBeginShutdown(SAFEARRAY** custom) override {
    return outer_->OnBeginShutdown(custom);
  }

 private:
  PimAddin* outer_;
};

// ---- The empty _IPimAddinEvents connection point ---------------------------

// Nothing ever fires it; it keeps the sinks it is given until they leave, so
// that a host that connects to every source interface gets what it expects.
class PimAddin::EventsPoint final : public IConnectionPoint {
 public:
  explicit EventsPoint(PimAddin* outer) : outer_(outer) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    if (iid == IID_IUnknown || iid == IID_IConnectionPoint) {
      *out = static_cast<IConnectionPoint*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  // The point lives and dies with the add-in.
  ULONG STDMETHODCALLTYPE AddRef() override { return outer_->AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return outer_->Release(); }

  HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override {
    if (!iid) return E_POINTER;
    *iid = DIID__IPimAddinEvents;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** out) override {
    if (!out) return E_POINTER;
    *out = static_cast<IConnectionPointContainer*>(outer_);
    outer_->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override {
    if (!sink || !cookie) return E_POINTER;
    ComPtr<IUnknown> held;
    if (FAILED(sink->QueryInterface(DIID__IPimAddinEvents, held.putVoid())) &&
        FAILED(sink->QueryInterface(IID_IDispatch, held.putVoid())))
      return CONNECT_E_CANNOTCONNECT;
    *cookie = nextCookie_++;
    sinks_.emplace(*cookie, std::move(held));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
    return sinks_.erase(cookie) ? S_OK : CONNECT_E_NOCONNECTION;
  }
  HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** out) override {
    if (out) *out = nullptr;
    return E_NOTIMPL;
  }

  void releaseSinks() { sinks_.clear(); }

 private:
  PimAddin* outer_;
  std::map<DWORD, ComPtr<IUnknown>> sinks_;
  DWORD nextCookie_ = 1;
};

namespace {

// The container's one point, enumerated.
class OnePointEnumerator final : public IEnumConnectionPoints {
 public:
  OnePointEnumerator(IConnectionPoint* point, ULONG position)
      : point_(ComPtr<IConnectionPoint>::share(point)), position_(position) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    if (iid == IID_IUnknown || iid == IID_IEnumConnectionPoints) {
      *out = static_cast<IEnumConnectionPoints*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }
  HRESULT STDMETHODCALLTYPE Next(ULONG count, IConnectionPoint** points, ULONG* fetched) override {
    if (!points || (count > 1 && !fetched)) return E_POINTER;
    ULONG given = 0;
    if (count > 0 && position_ == 0) {
      point_->AddRef();
      points[given++] = point_.get();
      position_ = 1;
    }
    if (fetched) *fetched = given;
    return given == count ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    if (count == 0) return S_OK;
    const bool had = position_ == 0;
    position_ = 1;
    return had && count == 1 ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    position_ = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IEnumConnectionPoints** out) override {
    if (!out) return E_POINTER;
    *out = new (std::nothrow) OnePointEnumerator(point_.get(), position_);
    return *out ? S_OK : E_OUTOFMEMORY;
  }

 private:
  std::atomic<ULONG> refs_{1};
  ComPtr<IConnectionPoint> point_;
  ULONG position_;
};

}  // namespace

// ---- The object ------------------------------------------------------------

HRESULT PimAddin::create(REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  auto* addin = new (std::nothrow) PimAddin();
  if (!addin) return E_OUTOFMEMORY;
  const HRESULT hr = addin->QueryInterface(iid, out);
  addin->Release();
  return hr;
}

// CoInitialize on the host's thread only adds a reference to the apartment
// the host made; the destructor gives it back.
PimAddin::PimAddin() : extensibility_(new Extensibility(this)), events_(new EventsPoint(this)) {
  PIM_ENTRY("PimAddin::PimAddin");
  CoInitialize(nullptr);
  _Module.lock();
}

PimAddin::~PimAddin() {
  PIM_ENTRY("PimAddin::~PimAddin");
  events_->releaseSinks();
  delete events_;
  delete extensibility_;
  _Module.unlock();
  CoUninitialize();
}

HRESULT PimAddin::QueryInterface(REFIID iid, void** out) {
  if (!out) return E_POINTER;
  if (iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IPimAddin) {
    *out = static_cast<IPimAddin*>(this);
  } else if (iid == IID_IDTExtensibility2) {
    *out = static_cast<IDTExtensibility2*>(extensibility_);
  } else if (iid == IID_IConnectionPointContainer) {
    *out = static_cast<IConnectionPointContainer*>(this);
  } else if (iid == IID_ISupportErrorInfo) {
    *out = static_cast<ISupportErrorInfo*>(this);
  } else {
    *out = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

ULONG PimAddin::AddRef() { return ++refs_; }

ULONG PimAddin::Release() {
  const ULONG left = --refs_;
  if (left == 0) delete this;
  return left;
}

HRESULT PimAddin::GetTypeInfoCount(UINT* count) {
  if (!count) return E_POINTER;
  *count = 1;
  return S_OK;
}

HRESULT PimAddin::GetTypeInfo(UINT index, LCID, ITypeInfo** info) {
  if (!info) return E_POINTER;
  *info = nullptr;
  if (index != 0) return DISP_E_BADINDEX;
  ITypeInfo* found = _Module.typeInfo(IID_IPimAddin);
  if (!found) return TYPE_E_ELEMENTNOTFOUND;
  found->AddRef();
  *info = found;
  return S_OK;
}

HRESULT PimAddin::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) {
  ITypeInfo* info = _Module.typeInfo(IID_IPimAddin);
  return info ? info->GetIDsOfNames(names, count, ids) : E_FAIL;
}

HRESULT PimAddin::Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                         EXCEPINFO* exception, UINT* argError) {
  ITypeInfo* info = _Module.typeInfo(IID_IPimAddin);
  if (!info) return E_FAIL;
  return info->Invoke(static_cast<IPimAddin*>(this), id, flags, params, result, exception,
                      argError);
}

HRESULT PimAddin::EnumConnectionPoints(IEnumConnectionPoints** out) {
  if (!out) return E_POINTER;
  *out = new (std::nothrow) OnePointEnumerator(events_, 0);
  return *out ? S_OK : E_OUTOFMEMORY;
}

HRESULT PimAddin::FindConnectionPoint(REFIID iid, IConnectionPoint** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (iid != DIID__IPimAddinEvents) return CONNECT_E_NOCONNECTION;
  events_->AddRef();
  *out = events_;
  return S_OK;
}

HRESULT PimAddin::InterfaceSupportsErrorInfo(REFIID iid) {
  return iid == IID_IPimAddin ? S_OK : S_FALSE;
}

// ---- The add-in's life -------------------------------------------------------

HRESULT PimAddin::OnConnection(IDispatch* application, ext_ConnectMode connectMode,
                               IDispatch* addInInst, SAFEARRAY** /*custom*/) {
  PIM_ENTRY("PimAddin::OnConnection");
  PIM_LOG_MSG("OnConnection: " << pointerText(application) << " " << static_cast<int>(connectMode)
                               << " " << pointerText(addInInst));
  if (!application) {
    PIM_LOG_ERR("Outlook passed invalid application dispatch object");
    return E_INVALIDARG;
  }
  try {
    ComPtr<IUnknown> outlook;
    HRESULT hr = application->QueryInterface(kIidOutlookApplication, outlook.putVoid());
    if (FAILED(hr)) {
      PIM_LOG_ERR("HR Error: " << PIM::hrText(hr));
      return hr;
    }
    // Joins the session the host already has open; the host initialised
    // MAPI in this process, so the add-in never does.
    ComPtr<IMAPISession> session;
    hr = MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT, session.put());
    if (FAILED(hr)) {
      PIM_LOG_ERR("HR Error: " << PIM::hrText(hr));
      return hr;
    }
    OutlookApp::instance()->setOutlookApp(outlook.get());
    OutlookApp::instance()->setMapiSession(session.get());
    PIM::Preferences::instance().load();
    PIM::ResourceLoader::instance()->loadResource();

    // Connected while the host was already running: nobody will call
    // OnStartupComplete, so it runs now.
    if (connectMode != ext_cm_Startup) {
      hr = OnStartupComplete(nullptr);
      if (FAILED(hr)) {
        PIM_LOG_ERR("HR Error: " << PIM::hrText(hr));
        OutlookApp::instance()->setOutlookApp(nullptr);
        OutlookApp::instance()->setMapiSession(nullptr);
      }
    }
    return hr;
  } catch (const std::bad_alloc&) {
    PIM_LOG_ERR("HR Error: " << PIM::hrText(E_OUTOFMEMORY));
    return E_OUTOFMEMORY;
  } catch (const std::exception& e) {
    PIM_LOG_ERR("HR Error: " << PIM::hrText(E_FAIL) << ": " << e.what());
    return E_FAIL;
  }
}

HRESULT PimAddin::OnDisconnection(ext_DisconnectMode removeMode, SAFEARRAY** /*custom*/) {
  PIM_ENTRY("PimAddin::OnDisconnection");
  PIM_LOG_MSG("OnDisconnection: " << static_cast<int>(removeMode));
  try {
    PIM::ButtonManager::freeInstance();
    PIM::ResourceLoader::freeInstance();
    PIM::DataCapture::freeInstance();
  } catch (const std::exception& e) {
    PIM_LOG_ERR("HR Error: " << PIM::hrText(E_FAIL) << ": " << e.what());
  }
  OutlookApp::instance()->setOutlookApp(nullptr);
  OutlookApp::instance()->setMapiSession(nullptr);
  return S_OK;
}

HRESULT PimAddin::OnAddInsUpdate(SAFEARRAY** /*custom*/) {
  PIM_ENTRY("PimAddin::OnAddInsUpdate");
  PIM_LOG_MSG("OnAddInsUpdate");
  return S_OK;
}

HRESULT PimAddin::OnStartupComplete(SAFEARRAY** /*custom*/) {
  PIM_ENTRY("PimAddin::OnStartupComplete");
  PIM_LOG_MSG("OnStartupComplete");
  PIM_LOG_MSG("Installing toolbar buttons.");
  try {
    PIM::ButtonManager* buttons = PIM::ButtonManager::instance();
    // The buttons' errors are logged where they happen and stop nothing.
    // Picture and mask resources are crossed between the two buttons on
    // purpose.
    (void)buttons->addButton(text(u"PIM_PREF"), "Standard", 9000);
    (void)buttons->setTooltip(9000, text(u"PIM_PREF"));
    (void)buttons->setPicture(9000, 213, 210);
    (void)buttons->addButton(text(u"PIM_CAPT"), "Standard", 9001);
    (void)buttons->setTooltip(9001, text(u"PIM_CAPT"));
    (void)buttons->setPicture(9001, 211, 212);
    PIM::DataCapture* capture = PIM::DataCapture::instance();
    capture->setProgressDisplay(&showCaptureProgress);
    capture->enableCapturing(true);
  } catch (const std::exception& e) {
    PIM_LOG_ERR("HR Error: " << PIM::hrText(E_FAIL) << ": " << e.what());
  }
  return S_OK;
}

HRESULT PimAddin::OnBeginShutdown(SAFEARRAY** /*custom*/) {
  PIM_ENTRY("PimAddin::OnBeginShutdown");
  PIM_LOG_MSG("OnBeginShutdown");
  try {
    PIM::DataCapture::instance()->enableCapturing(false);
  } catch (const std::exception& e) {
    PIM_LOG_ERR("HR Error: " << PIM::hrText(E_FAIL) << ": " << e.what());
  }
  return S_OK;
}
