#include "addin/ferrant_module_win32.h"

#include <atomic>
#include <chrono>
#include <new>

#include "addin/outlook_app.h"
#include "addin/pim_addin_win32.h"
#include "addin/registrar_win32.h"
#include "capture/data_capture.h"
#include "core/debug_logger.h"
#include "mapi/com_error.h"
#include "ui/prefs_sheet_win32.h"

CFerrantModule _Module;
CFerrantApp theApp;

const GUID CFerrantModule::kAppId = {
    0x34C2CE7C, 0x96FF, 0x402E, {0xAE, 0x16, 0xD5, 0xDB, 0x06, 0xF2, 0xA0, 0x21}};
const wchar_t CFerrantModule::kAppIdText[] = L"{34C2CE7C-96FF-402E-AE16-D5DB06F2A021}";

namespace {

// The one class factory; it lives as long as the DLL, and its references
// are locks on the module.
class PimAddinFactory final : public IClassFactory {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    if (iid == IID_IUnknown || iid == IID_IClassFactory) {
      *out = static_cast<IClassFactory*>(this);
      AddRef();
      return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override {
    _Module.lock();
    return 2;
  }
  ULONG STDMETHODCALLTYPE Release() override {
    _Module.unlock();
    return 1;
  }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    return PimAddin::create(iid, out);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
    if (lock) {
      _Module.lock();
    } else {
      _Module.unlock();
    }
    return S_OK;
  }
};

PimAddinFactory g_factory;

}  // namespace

std::u16string CFerrantModule::modulePath() const {
  wchar_t path[MAX_PATH * 4];
  const DWORD length = GetModuleFileNameW(instance_, path, sizeof path / sizeof path[0]);
  if (length == 0 || length >= sizeof path / sizeof path[0]) return {};
  return std::u16string(reinterpret_cast<const char16_t*>(path), length);
}

HRESULT CFerrantModule::getClassObject(REFCLSID clsid, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (clsid != CLSID_PimAddin) return CLASS_E_CLASSNOTAVAILABLE;
  return g_factory.QueryInterface(iid, out);
}

HRESULT CFerrantModule::registerServer(bool registerTypeLib) {
  PIM_ENTRY("CFerrantModule::registerServer");
  const std::u16string appId(reinterpret_cast<const char16_t*>(kAppIdText));
  HRESULT hr = PIM::applyRegistryResource(instance_, PIM::kAppIdScriptResource, true, appId);
  if (SUCCEEDED(hr))
    hr = PIM::applyRegistryResource(instance_, PIM::kAddinScriptResource, true, appId);
  if (SUCCEEDED(hr) && registerTypeLib) {
    const std::u16string path = modulePath();
    const auto* wide = reinterpret_cast<const wchar_t*>(path.c_str());
    PIM::ComPtr<ITypeLib> library;
    hr = LoadTypeLibEx(wide, REGKIND_NONE, library.put());
    if (SUCCEEDED(hr)) hr = RegisterTypeLib(library.get(), const_cast<wchar_t*>(wide), nullptr);
  }
  if (FAILED(hr)) PIM_LOG_ERR("HR Error: " << PIM::hrText(hr) << ": Registration failed.");
  return hr;
}

HRESULT CFerrantModule::unregisterServer(bool unregisterTypeLib) {
  PIM_ENTRY("CFerrantModule::unregisterServer");
  const std::u16string appId(reinterpret_cast<const char16_t*>(kAppIdText));
  HRESULT hr = S_OK;
  if (unregisterTypeLib) {
    PIM::ComPtr<ITypeLib> library;
    TLIBATTR* attributes = nullptr;
    const std::u16string path = modulePath();
    if (SUCCEEDED(LoadTypeLibEx(reinterpret_cast<const wchar_t*>(path.c_str()), REGKIND_NONE,
                                library.put())) &&
        SUCCEEDED(library->GetLibAttr(&attributes))) {
      // A library that was never registered is not an error here.
      BSTR registered = nullptr;
      if (SUCCEEDED(QueryPathOfRegTypeLib(attributes->guid, attributes->wMajorVerNum,
                                          attributes->wMinorVerNum, attributes->lcid,
                                          &registered))) {
        SysFreeString(registered);
        hr = UnRegisterTypeLib(attributes->guid, attributes->wMajorVerNum, attributes->wMinorVerNum,
                               attributes->lcid, attributes->syskind);
      }
      library->ReleaseTLibAttr(attributes);
    }
  }
  const HRESULT addin =
      PIM::applyRegistryResource(instance_, PIM::kAddinScriptResource, false, appId);
  if (SUCCEEDED(hr)) hr = addin;
  const HRESULT appIdKeys =
      PIM::applyRegistryResource(instance_, PIM::kAppIdScriptResource, false, appId);
  if (SUCCEEDED(hr)) hr = appIdKeys;
  if (FAILED(hr)) PIM_LOG_ERR("HR Error: " << PIM::hrText(hr) << ": Unregistration failed.");
  return hr;
}

ITypeInfo* CFerrantModule::typeInfo(REFIID iid) {
  PIM_ENTRY("CFerrantModule::typeInfo");
  const std::u16string path = modulePath();
  // FerrantLib is the module's first type library; the host interfaces the
  // second ("<path>\2" names a resource by number).
  if (!ferrantLib_) {
    (void)LoadTypeLibEx(reinterpret_cast<const wchar_t*>(path.c_str()), REGKIND_NONE,
                        ferrantLib_.put());
  }
  if (!hostLib_) {
    const std::u16string second = path + u"\\2";
    (void)LoadTypeLibEx(reinterpret_cast<const wchar_t*>(second.c_str()), REGKIND_NONE,
                        hostLib_.put());
  }
  ITypeInfo* info = nullptr;
  for (ITypeLib* library : {ferrantLib_.get(), hostLib_.get()}) {
    if (library && SUCCEEDED(library->GetTypeInfoOfGuid(iid, &info))) {
      // The library keeps its type information alive while it is held.
      const ULONG left = info->Release();
      (void)left;
      return info;
    }
  }
  PIM_LOG_ERR("Assertion failed");
  return nullptr;
}

void CFerrantModule::releaseTypeInfo() {
  ferrantLib_.reset();
  hostLib_.reset();
}

// What the framework's OLE set-up would do for a DLL is already done by the
// host: it initialised OLE on its main thread before loading any add-in, and
// each add-in object adds its own reference to the apartment (CoInitialize
// in its constructor). So start-up only makes the action window, on the
// thread that loads the DLL, which is the host's main thread.
BOOL CFerrantApp::InitInstance() {
  PIM_ENTRY("CFerrantApp::InitInstance");
  PIM::PimActionWindow& window = OutlookApp::instance()->actionWindow();
  window.start();
  window.setCaptureAction([] {
    PIM::DataCapture::instance()->captureNow();
    PIM::DataCapture::instance()->showCaptureProgress();
  });
  window.setConfigureAction(&PIM::ShowPreferences);
  return TRUE;
}

int CFerrantApp::ExitInstance() {
  PIM_ENTRY("CFerrantApp::ExitInstance");
  _Module.releaseTypeInfo();
  return 0;
}
