// A probe add-in for the stand-in's own tests: it does to the host what an
// Outlook add-in does (queries _Application, adds a button to the "Standard"
// bar through the command bars, sets its properties and pictures, listens to
// its Click) and writes every call it gets, one line each, to the file named
// by FERRANT_PROBE_LOG. A click is answered through a posted message, so it
// only shows ("clicked", and the file FERRANT_PROBE_TOUCH created) when the
// host pumps messages. FERRANT_PROBE_FAIL=OnConnection makes the connection
// fail after its work.
//
// Registration (regsvr32) writes the class, the ProgID "Ferrant.SimProbe"
// listed in HKLM's Outlook add-ins with LoadBehavior 3, and a second ProgID
// "Ferrant.SimProbe.Idle" in HKCU's list with LoadBehavior 2, which a host
// must not load.
#include <ocidl.h>
#include <olectl.h>
#include <windows.h>

#include <atomic>
#include <string>

#include "addin/sim/late_call_win32.h"
#include "addin/sim/office_model.h"
#include "extensibility.h"
#include "mapi/mapi_ptr.h"

namespace {

using PIM::ComPtr;
using namespace SimCall;

// {D67986AE-9BD6-4F59-81E5-C31F283FF920}
constexpr CLSID kClsidProbe = {
    0xd67986ae, 0x9bd6, 0x4f59, {0x81, 0xe5, 0xc3, 0x1f, 0x28, 0x3f, 0xf9, 0x20}};
constexpr wchar_t kProgId[] = L"Ferrant.SimProbe";
constexpr wchar_t kIdleProgId[] = L"Ferrant.SimProbe.Idle";
constexpr wchar_t kAddinsKey[] = L"Software\\Microsoft\\Office\\Outlook\\Addins";
constexpr UINT kClickMessage = WM_APP + 1;

HMODULE g_module = nullptr;
std::atomic<long> g_objects{0};  // live objects of this DLL
std::atomic<long> g_locks{0};    // IClassFactory::LockServer

std::wstring env(const wchar_t* name) {
  wchar_t value[1024];
  DWORD n = GetEnvironmentVariableW(name, value, 1024);
  return n && n < 1024 ? std::wstring(value, n) : std::wstring();
}

void log(const std::string& line) {
  std::wstring path = env(L"FERRANT_PROBE_LOG");
  if (path.empty()) return;
  HANDLE f = CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (f == INVALID_HANDLE_VALUE) return;
  std::string text = line + "\n";
  DWORD written = 0;
  WriteFile(f, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  CloseHandle(f);
}

std::string hex(HRESULT hr) {
  char text[16];
  wsprintfA(text, "0x%08lX", static_cast<unsigned long>(hr));
  return text;
}

// A BSTR owner for the properties the probe sets.
class Bstr {
 public:
  explicit Bstr(const wchar_t* text) : b_(SysAllocString(text)) {}
  ~Bstr() { SysFreeString(b_); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
  BSTR get() const { return b_; }

 private:
  BSTR b_;
};

// The hidden window that turns a click into work outside the host's event call.
LRESULT CALLBACK windowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message != kClickMessage) return DefWindowProcW(window, message, wParam, lParam);
  log("clicked");
  std::wstring touch = env(L"FERRANT_PROBE_TOUCH");
  if (!touch.empty()) {
    HANDLE f = CreateFileW(touch.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (f != INVALID_HANDLE_VALUE) CloseHandle(f);
  }
  // Asked for, a modal message box from the loop's message, as an add-in's
  // dialog comes; the button that closed it is logged.
  std::wstring box = env(L"FERRANT_PROBE_MESSAGE_BOX");
  if (!box.empty())
    log("message box " + std::to_string(MessageBoxW(nullptr, box.c_str(), L"Probe", MB_OKCANCEL)));
  return 0;
}

class Window {
 public:
  Window() {
    WNDCLASSW wc{};
    wc.lpfnWndProc = windowProc;
    wc.hInstance = g_module;
    wc.lpszClassName = L"FerrantSimProbe";
    RegisterClassW(&wc);
    window_ = CreateWindowExW(0, wc.lpszClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                              g_module, nullptr);
  }
  ~Window() {
    if (window_) DestroyWindow(window_);
    UnregisterClassW(L"FerrantSimProbe", g_module);
  }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  HWND get() const { return window_; }

 private:
  HWND window_ = nullptr;
};

// Counts itself among the DLL's live objects.
struct Counted {
  Counted() { ++g_objects; }
  ~Counted() { --g_objects; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
};

// The button's click sink: _CommandBarButtonEvents, DISPID 1.
class ClickSink final : public IDispatch, Counted {
 public:
  explicit ClickSink(HWND window) : window_(window) {}

  STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IDispatch) &&
        !IsEqualIID(iid, OfficeModel::kDiidCommandBarButtonEvents))
      return E_NOINTERFACE;
    *out = static_cast<IDispatch*>(this);
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++refs_; }
  STDMETHODIMP_(ULONG) Release() override {
    ULONG n = --refs_;
    if (n == 0) delete this;
    return n;
  }
  STDMETHODIMP GetTypeInfoCount(UINT* n) override {
    if (n) *n = 0;
    return S_OK;
  }
  STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT*, EXCEPINFO*,
                      UINT*) override {
    if (id != 1) return DISP_E_MEMBERNOTFOUND;
    bool wellFormed = params && params->cArgs == 2 && flags == DISPATCH_METHOD &&
                      V_VT(&params->rgvarg[1]) == VT_DISPATCH &&
                      V_VT(&params->rgvarg[0]) == (VT_BOOL | VT_BYREF);
    log(std::string("Click args=") + (wellFormed ? "ok" : "bad"));
    PostMessageW(window_, kClickMessage, 0, 0);
    return S_OK;
  }

 private:
  std::atomic<ULONG> refs_{1};
  HWND window_;
};

ComPtr<IDispatch> pictureOf(int size) {
  PICTDESC desc{};
  desc.cbSizeofstruct = sizeof desc;
  desc.picType = PICTYPE_BITMAP;
  desc.bmp.hbitmap = CreateBitmap(size, size, 1, 32, nullptr);
  ComPtr<IDispatch> picture;
  if (FAILED(OleCreatePictureIndirect(&desc, IID_IPictureDisp, TRUE, picture.putVoid())))
    DeleteObject(desc.bmp.hbitmap);
  return picture;
}

class Probe final : public IDTExtensibility2, Counted {
 public:
  STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IDispatch) &&
        !IsEqualIID(iid, IID_IDTExtensibility2))
      return E_NOINTERFACE;
    *out = static_cast<IDTExtensibility2*>(this);
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++refs_; }
  STDMETHODIMP_(ULONG) Release() override {
    ULONG n = --refs_;
    if (n == 0) delete this;
    return n;
  }
  STDMETHODIMP GetTypeInfoCount(UINT* n) override {
    if (n) *n = 0;
    return S_OK;
  }
  STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                      UINT*) override {
    return E_NOTIMPL;
  }

  STDMETHODIMP OnConnection(IDispatch* application, ext_ConnectMode mode, IDispatch* instance,
                            SAFEARRAY** custom) override {
    log("OnConnection mode=" + std::to_string(mode) + " app=" + (application ? "yes" : "null") +
        " custom=" + (custom && *custom ? "yes" : "null"));
    Variant progId;
    if (SUCCEEDED(invoke(instance, L"ProgId", DISPATCH_PROPERTYGET, {}, &progId.v)) &&
        V_VT(&progId.v) == VT_BSTR)
      log("AddInInst ProgId=" + OfficeModel::toUtf8(V_BSTR(&progId.v)));
    if (!application) return E_POINTER;
    HRESULT hr = application->QueryInterface(OfficeModel::kIidApplication, app_.putVoid());
    log("QueryInterface _Application hr=" + hex(hr));
    if (FAILED(hr)) return hr;
    window_ = std::make_unique<Window>();
    if (mode == ext_cm_AfterStartup) addButton();
    if (env(L"FERRANT_PROBE_FAIL").find(L"OnConnection") != std::wstring::npos) return E_FAIL;
    return S_OK;
  }
  STDMETHODIMP OnDisconnection(ext_DisconnectMode mode, SAFEARRAY**) override {
    log("OnDisconnection mode=" + std::to_string(mode));
    if (point_) log("Unadvise hr=" + hex(point_->Unadvise(cookie_)));
    point_.reset();
    button_.reset();
    app_.reset();
    window_.reset();
    return S_OK;
  }
  STDMETHODIMP OnAddInsUpdate(SAFEARRAY**) override { return S_OK; }
  STDMETHODIMP OnStartupComplete(SAFEARRAY**) override {
    log("OnStartupComplete");
    addButton();
    return S_OK;
  }
  STDMETHODIMP OnBeginShutdown(SAFEARRAY**) override {
    log("OnBeginShutdown");
    return S_OK;
  }

 private:
  // The add-in's walk to a new button on the first "Standard" bar; each
  // failure is logged with where it happened.
  void addButton() {
    Variant explorer, bars, count;
    HRESULT hr = invoke(app_.get(), L"ActiveExplorer", DISPATCH_METHOD, {}, &explorer.v);
    if (SUCCEEDED(hr))
      hr = invoke(V_DISPATCH(&explorer.v), L"CommandBars", DISPATCH_PROPERTYGET, {}, &bars.v);
    if (SUCCEEDED(hr))
      hr = invoke(V_DISPATCH(&bars.v), L"Count", DISPATCH_PROPERTYGET, {}, &count.v);
    if (FAILED(hr)) return log("addButton: command bars hr=" + hex(hr));
    ComPtr<IDispatch> bar;
    for (long i = 1; i <= V_I4(&count.v) && !bar; ++i) {
      Variant item, name;
      hr = invoke(V_DISPATCH(&bars.v), L"Item", DISPATCH_PROPERTYGET, {i4(i)}, &item.v);
      if (FAILED(hr)) {
        log("addButton: Item(" + std::to_string(i) + ") hr=" + hex(hr));
        continue;
      }
      if (SUCCEEDED(invoke(V_DISPATCH(&item.v), L"Name", DISPATCH_PROPERTYGET, {}, &name.v)) &&
          V_VT(&name.v) == VT_BSTR && wcscmp(V_BSTR(&name.v), L"Standard") == 0)
        bar = ComPtr<IDispatch>::share(V_DISPATCH(&item.v));
    }
    if (!bar) return log("addButton: no Standard bar");
    Variant controls, controlCount, control;
    hr = invoke(bar.get(), L"Controls", DISPATCH_PROPERTYGET, {}, &controls.v);
    if (SUCCEEDED(hr))
      hr = invoke(V_DISPATCH(&controls.v), L"Count", DISPATCH_PROPERTYGET, {}, &controlCount.v);
    if (SUCCEEDED(hr))
      hr = invoke(V_DISPATCH(&controls.v), L"Add", DISPATCH_METHOD,
                  {i4(1), missing(), missing(), i4(V_I4(&controlCount.v) + 1), i2(-1)}, &control.v);
    if (FAILED(hr)) return log("addButton: Add hr=" + hex(hr));
    hr = V_DISPATCH(&control.v)
             ->QueryInterface(OfficeModel::kIidCommandBarButton, button_.putVoid());
    if (FAILED(hr)) return log("addButton: no _CommandBarButton");
    Bstr caption(L"Probe"), tip(L"Probe tip");
    ComPtr<IDispatch> picture = pictureOf(16), mask = pictureOf(16);
    const struct {
      const wchar_t* name;
      WORD flags;
      VARIANT value;
    } puts[] = {{L"Caption", DISPATCH_PROPERTYPUT, bstr(caption.get())},
                {L"FaceId", DISPATCH_PROPERTYPUT, i4(4)},
                {L"Style", DISPATCH_PROPERTYPUT, i4(1)},
                {L"Visible", DISPATCH_PROPERTYPUT, vbool(true)},
                {L"DescriptionText", DISPATCH_PROPERTYPUT, bstr(tip.get())},
                {L"TooltipText", DISPATCH_PROPERTYPUT, bstr(tip.get())},
                {L"Picture", DISPATCH_PROPERTYPUTREF, dispatch(picture.get())},
                {L"Mask", DISPATCH_PROPERTYPUT, dispatch(mask.get())}};
    for (const auto& p : puts) {
      hr = invoke(button_.get(), p.name, p.flags, {p.value});
      if (FAILED(hr)) log("addButton: " + OfficeModel::toUtf8(p.name) + " hr=" + hex(hr));
    }
    ComPtr<IConnectionPointContainer> container;
    hr = button_.queryInterface(IID_IConnectionPointContainer, container);
    if (SUCCEEDED(hr))
      hr = container->FindConnectionPoint(OfficeModel::kDiidCommandBarButtonEvents, point_.put());
    ComPtr<IDispatch> sink(new ClickSink(window_->get()));
    if (SUCCEEDED(hr)) hr = point_->Advise(sink.get(), &cookie_);
    if (FAILED(hr)) point_.reset();
    log("addButton: Advise hr=" + hex(hr));
  }

  std::atomic<ULONG> refs_{1};
  ComPtr<IDispatch> app_;
  ComPtr<IDispatch> button_;
  ComPtr<IConnectionPoint> point_;
  DWORD cookie_ = 0;
  std::unique_ptr<Window> window_;
};

class Factory : public IClassFactory {
 public:
  STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IClassFactory)) return E_NOINTERFACE;
    *out = this;
    AddRef();
    return S_OK;
  }
  // The factory is static: its references keep the DLL as a lock would.
  STDMETHODIMP_(ULONG) AddRef() override { return ++g_locks; }
  STDMETHODIMP_(ULONG) Release() override { return --g_locks; }
  STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (outer) return CLASS_E_NOAGGREGATION;
    ComPtr<Probe> probe(new Probe);
    return probe->QueryInterface(iid, out);
  }
  STDMETHODIMP LockServer(BOOL lock) override {
    lock ? ++g_locks : --g_locks;
    return S_OK;
  }
};

Factory g_factory;

std::wstring clsidText() {
  wchar_t text[40] = {};
  StringFromGUID2(kClsidProbe, text, 40);
  return text;
}

LONG setValue(HKEY root, const std::wstring& path, const wchar_t* name, const std::wstring& text) {
  return RegSetKeyValueW(root, path.c_str(), name, REG_SZ, text.c_str(),
                         static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}
LONG setDword(HKEY root, const std::wstring& path, const wchar_t* name, DWORD value) {
  return RegSetKeyValueW(root, path.c_str(), name, REG_DWORD, &value, sizeof value);
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    g_module = instance;
    DisableThreadLibraryCalls(instance);
  }
  return TRUE;
}

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** out) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!IsEqualCLSID(clsid, kClsidProbe)) return CLASS_E_CLASSNOTAVAILABLE;
  return g_factory.QueryInterface(iid, out);
}

extern "C" HRESULT WINAPI DllCanUnloadNow() {
  return g_objects == 0 && g_locks == 0 ? S_OK : S_FALSE;
}

extern "C" HRESULT WINAPI DllRegisterServer() {
  wchar_t path[MAX_PATH];
  DWORD n = GetModuleFileNameW(g_module, path, MAX_PATH);
  if (n == 0 || n >= MAX_PATH) return E_FAIL;
  std::wstring clsidKey = L"CLSID\\" + clsidText();
  LONG rc = ERROR_SUCCESS;
  auto set = [&rc](LONG r) {
    if (r != ERROR_SUCCESS) rc = r;
  };
  set(setValue(HKEY_CLASSES_ROOT, clsidKey, nullptr, L"outlook-sim probe add-in"));
  set(setValue(HKEY_CLASSES_ROOT, clsidKey + L"\\InprocServer32", nullptr, path));
  set(setValue(HKEY_CLASSES_ROOT, clsidKey + L"\\InprocServer32", L"ThreadingModel", L"Apartment"));
  set(setValue(HKEY_CLASSES_ROOT, clsidKey + L"\\ProgID", nullptr, kProgId));
  for (const wchar_t* progId : {kProgId, kIdleProgId})
    set(setValue(HKEY_CLASSES_ROOT, std::wstring(progId) + L"\\CLSID", nullptr, clsidText()));
  std::wstring loaded = std::wstring(kAddinsKey) + L"\\" + kProgId;
  set(setDword(HKEY_LOCAL_MACHINE, loaded, L"LoadBehavior", 3));
  set(setValue(HKEY_LOCAL_MACHINE, loaded, L"FriendlyName", L"outlook-sim probe"));
  set(setDword(HKEY_CURRENT_USER, std::wstring(kAddinsKey) + L"\\" + kIdleProgId, L"LoadBehavior",
               2));
  return rc == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(rc);
}

extern "C" HRESULT WINAPI DllUnregisterServer() {
  RegDeleteTreeW(HKEY_CLASSES_ROOT, (L"CLSID\\" + clsidText()).c_str());
  for (const wchar_t* progId : {kProgId, kIdleProgId}) RegDeleteTreeW(HKEY_CLASSES_ROOT, progId);
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, (std::wstring(kAddinsKey) + L"\\" + kProgId).c_str());
  RegDeleteTreeW(HKEY_CURRENT_USER, (std::wstring(kAddinsKey) + L"\\" + kIdleProgId).c_str());
  return S_OK;
}
