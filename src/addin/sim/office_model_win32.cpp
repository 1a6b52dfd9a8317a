#include "addin/sim/office_model.h"

#include <olectl.h>

#include <algorithm>
#include <cstdio>
#include <span>
#include <utility>

#include "mapi/mapi_ptr.h"

namespace OfficeModel {

using PIM::ComPtr;

namespace {

std::string hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(hr));
  return text;
}

std::wstring fromBstr(BSTR b) { return b ? std::wstring(b, SysStringLen(b)) : std::wstring(); }

// How an argument looked, for the call log: its type and value.
std::string describe(const VARIANT& v) {
  switch (V_VT(&v)) {
    case VT_EMPTY:
      return "VT_EMPTY";
    case VT_I2:
      return "VT_I2 " + std::to_string(V_I2(&v));
    case VT_I4:
      return "VT_I4 " + std::to_string(V_I4(&v));
    case VT_BOOL:
      return "VT_BOOL " + std::to_string(V_BOOL(&v));
    case VT_BSTR:
      return "VT_BSTR \"" + toUtf8(fromBstr(V_BSTR(&v))) + "\"";
    case VT_ERROR:
      return V_ERROR(&v) == DISP_E_PARAMNOTFOUND ? "missing" : "VT_ERROR " + hex(V_ERROR(&v));
    case VT_DISPATCH:
      return V_DISPATCH(&v) ? "VT_DISPATCH" : "VT_DISPATCH null";
    default:
      return "VT " + std::to_string(V_VT(&v));
  }
}

// Fills an out VARIANT; a null `out` (the caller wants no result) is allowed.
HRESULT returnBstr(VARIANT* out, const std::wstring& text) {
  if (!out) return S_OK;
  BSTR b = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
  if (!b) return E_OUTOFMEMORY;
  VariantInit(out);
  V_VT(out) = VT_BSTR;
  V_BSTR(out) = b;
  return S_OK;
}
HRESULT returnI4(VARIANT* out, long value) {
  if (!out) return S_OK;
  VariantInit(out);
  V_VT(out) = VT_I4;
  V_I4(out) = value;
  return S_OK;
}
HRESULT returnBool(VARIANT* out, bool value) {
  if (!out) return S_OK;
  VariantInit(out);
  V_VT(out) = VT_BOOL;
  V_BOOL(out) = value ? VARIANT_TRUE : VARIANT_FALSE;
  return S_OK;
}
// Hands out a new reference of `p` (null gives VT_DISPATCH null).
HRESULT returnDispatch(VARIANT* out, IDispatch* p) {
  if (!out) return S_OK;
  VariantInit(out);
  V_VT(out) = VT_DISPATCH;
  V_DISPATCH(out) = p;
  if (p) p->AddRef();
  return S_OK;
}

std::optional<PictureSize> pictureSize(IDispatch* disp) {
  ComPtr<IPicture> picture;
  if (FAILED(disp->QueryInterface(IID_IPicture, picture.putVoid())) || !picture) return {};
  SHORT type = PICTYPE_UNINITIALIZED;
  OLE_HANDLE handle = 0;
  if (SUCCEEDED(picture->get_Type(&type)) && type == PICTYPE_BITMAP &&
      SUCCEEDED(picture->get_Handle(&handle)) && handle) {
    BITMAP bm{};
    if (GetObjectW(reinterpret_cast<HGDIOBJ>(static_cast<UINT_PTR>(handle)), sizeof bm, &bm))
      return PictureSize{bm.bmWidth, bm.bmHeight};
  }
  OLE_XSIZE_HIMETRIC w = 0;
  OLE_YSIZE_HIMETRIC h = 0;
  if (FAILED(picture->get_Width(&w)) || FAILED(picture->get_Height(&h))) return {};
  // 2540 HIMETRIC units to the inch, 96 pixels to the inch.
  return PictureSize{MulDiv(w, 96, 2540), MulDiv(h, 96, 2540)};
}

}  // namespace

class ModelObject;
class Button;
class ConnectionPoint;

// Everything the objects of one model share. Main thread only.
class State {
 public:
  struct Bar {
    std::wstring name;
    std::vector<int> slots;  // the bar's controls in order: 0 = one of Office's, n = Button#n
  };
  struct ButtonData {
    int bar = 0;  // index into bars
    int type = 0;
    bool temporary = false;
    std::optional<std::wstring> caption, tooltip, description;
    std::optional<long> faceId, style;
    std::optional<bool> visible;
    ComPtr<IDispatch> picture, mask;
    std::optional<PictureSize> pictureSize, maskSize;
    std::vector<std::pair<DWORD, ComPtr<IDispatch>>> sinks;  // cookie, sink
  };

  explicit State(Settings s) : settings(std::move(s)) {
    for (const BarSpec& spec : settings.bars)
      bars.push_back(Bar{spec.name, std::vector<int>(std::max(spec.existingControls, 0), 0)});
  }

  void log(std::string line) { calls.push_back(std::move(line)); }

  Settings settings;
  bool alive = true;  // false once the Office is gone: calls then fail
  std::vector<std::string> calls;
  std::vector<Bar> bars;
  std::vector<ButtonData> buttons;  // Button#n is buttons[n - 1]
  DWORD nextCookie = 1;

  // Reference counts of every live object, for outstandingReferences().
  std::vector<const long*> liveCounts;
  // The model's own references (dropped by clear()).
  std::vector<ComPtr<IUnknown>> held;
  std::vector<ComPtr<IDispatch>> buttonObjects;  // Button#n's object at n - 1
  std::vector<ComPtr<IConnectionPoint>> points;  // Button#n's connection point at n - 1
  ComPtr<IDispatch> application, explorer, commandBars;
  std::vector<ComPtr<IDispatch>> barObjects, controlsObjects;

  // Drops what the model holds. Releasing a sink may call back into the
  // model (a sink that releases its button), so the containers are emptied
  // before anything is released.
  void clear() {
    alive = false;
    std::vector<ComPtr<IUnknown>> h = std::move(held);
    std::vector<ComPtr<IDispatch>> b = std::move(buttonObjects);
    std::vector<ComPtr<IConnectionPoint>> p = std::move(points);
    std::vector<ComPtr<IDispatch>> bo = std::move(barObjects), co = std::move(controlsObjects);
    ComPtr<IDispatch> a = std::move(application), e = std::move(explorer),
                      c = std::move(commandBars);
    std::vector<ButtonData> data = std::move(buttons);
    buttons.clear();
  }

  long modelReferences() const {
    long n = static_cast<long>(held.size() + buttonObjects.size() + points.size() +
                               barObjects.size() + controlsObjects.size());
    for (const auto* p : {&application, &explorer, &commandBars})
      if (*p) ++n;
    return n;
  }
};

// The IUnknown/IDispatch plumbing shared by every model object: reference
// count, the name table and Invoke's checks; each class supplies its members.
class ModelObject : public IDispatch {
 public:
  struct Member {
    const wchar_t* name;
    DISPID id;
  };

  // One Invoke, as the member implementations see it.
  struct Call {
    WORD flags;
    DISPPARAMS* params;
    VARIANT* result;
    UINT* argErr;
    std::string detail;  // what the log shows after the member's name

    bool isMethod() const { return flags & DISPATCH_METHOD; }
    bool isGet() const { return flags & DISPATCH_PROPERTYGET; }
    bool isPut() const { return flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF); }
    UINT positional() const { return params->cArgs - params->cNamedArgs; }
    // The i-th positional argument in declaration order (rgvarg is reversed).
    VARIANT& arg(UINT i) const { return params->rgvarg[params->cArgs - 1 - i]; }
    HRESULT mismatch(UINT i) const {
      if (argErr) *argErr = params->cArgs - 1 - i;
      return DISP_E_TYPEMISMATCH;
    }
    // Checks a property get or method call with `count` positional arguments
    // and no named ones.
    HRESULT expectArgs(UINT count) const {
      if (params->cNamedArgs) return DISP_E_NONAMEDARGS;
      return params->cArgs == count ? S_OK : DISP_E_BADPARAMCOUNT;
    }
    // The value of a property put: one argument named DISPID_PROPERTYPUT.
    HRESULT putValue(VARTYPE vt, VARIANT*& value) {
      if (params->cNamedArgs != 1 || !params->rgdispidNamedArgs ||
          params->rgdispidNamedArgs[0] != DISPID_PROPERTYPUT)
        return DISP_E_PARAMNOTFOUND;
      if (params->cArgs != 1) return DISP_E_BADPARAMCOUNT;
      value = &params->rgvarg[0];
      detail = "=" + describe(*value);
      if (V_VT(value) != vt) {
        if (argErr) *argErr = 0;
        return DISP_E_TYPEMISMATCH;
      }
      return S_OK;
    }
  };

  ModelObject(std::shared_ptr<State> state, std::string name)
      : state_(std::move(state)), name_(std::move(name)) {
    state_->liveCounts.push_back(&refs_);
  }
  virtual ~ModelObject() { std::erase(state_->liveCounts, &refs_); }
  ModelObject(const ModelObject&) = delete;
  ModelObject& operator=(const ModelObject&) = delete;

  STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch)) {
      *out = static_cast<IDispatch*>(this);
    } else {
      HRESULT hr = queryOther(iid, out);
      if (FAILED(hr)) return hr;
    }
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs_); }
  STDMETHODIMP_(ULONG) Release() override {
    long n = --refs_;
    if (n == 0) delete this;
    return static_cast<ULONG>(n);
  }

  STDMETHODIMP GetTypeInfoCount(UINT* count) override {
    if (!count) return E_POINTER;
    *count = 0;
    return S_OK;
  }
  STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
    if (info) *info = nullptr;
    return DISP_E_BADINDEX;
  }
  STDMETHODIMP GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID, DISPID* ids) override {
    if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
    if (!names || !ids || count == 0) return E_INVALIDARG;
    HRESULT hr = S_OK;
    ids[0] = DISPID_UNKNOWN;
    for (const Member& m : members())
      if (names[0] && _wcsicmp(names[0], m.name) == 0) ids[0] = m.id;
    if (ids[0] == DISPID_UNKNOWN) hr = DISP_E_UNKNOWNNAME;
    // The members take no named arguments.
    for (UINT i = 1; i < count; ++i) {
      ids[i] = DISPID_UNKNOWN;
      hr = DISP_E_UNKNOWNNAME;
    }
    if (FAILED(hr))
      state_->log(name_ + ".GetIDsOfNames(" + toUtf8(names[0] ? names[0] : L"") +
                  ") hr=" + hex(hr));
    return hr;
  }
  STDMETHODIMP Invoke(DISPID id, REFIID iid, LCID, WORD flags, DISPPARAMS* params, VARIANT* result,
                      EXCEPINFO*, UINT* argErr) override {
    if (!IsEqualIID(iid, IID_NULL)) return DISP_E_UNKNOWNINTERFACE;
    if (!state_->alive) return RPC_E_DISCONNECTED;
    if (!params || (params->cArgs && !params->rgvarg) || params->cNamedArgs > params->cArgs)
      return E_INVALIDARG;
    const Member* member = nullptr;
    for (const Member& m : members())
      if (m.id == id) member = &m;
    if (!member) {
      state_->log(name_ + ".Invoke(" + std::to_string(id) + ") hr=" + hex(DISP_E_MEMBERNOTFOUND));
      return DISP_E_MEMBERNOTFOUND;
    }
    Call call{flags, params, result, argErr, {}};
    HRESULT hr = invoke(id, call);
    std::string line = name_ + "." + toUtf8(member->name) + call.detail + " hr=" + hex(hr);
    if (SUCCEEDED(hr) && result && V_VT(result) != VT_EMPTY) line += " -> " + describe(*result);
    state_->log(std::move(line));
    return hr;
  }

 protected:
  virtual HRESULT queryOther(REFIID, void**) { return E_NOINTERFACE; }
  virtual std::span<const Member> members() const = 0;
  virtual HRESULT invoke(DISPID id, Call& call) = 0;

  // A property get with no arguments: checks the call's form.
  static HRESULT plainGet(const Call& call) {
    if (!call.isGet()) return DISP_E_MEMBERNOTFOUND;
    return call.expectArgs(0);
  }

  std::shared_ptr<State> state_;
  std::string name_;

 private:
  long refs_ = 1;
};

namespace {

constexpr DISPID kIdActiveExplorer = 0x111;
constexpr DISPID kIdCommandBars = 0x2000;
constexpr DISPID kIdCount = 2;
constexpr DISPID kIdItem = DISPID_VALUE;
constexpr DISPID kIdName = 3;
constexpr DISPID kIdControls = 4;
constexpr DISPID kIdAdd = 5;
constexpr DISPID kIdCaption = 0x60020000;
constexpr DISPID kIdFaceId = 0x60030001;
constexpr DISPID kIdStyle = 0x60030002;
constexpr DISPID kIdVisible = 0x60020003;
constexpr DISPID kIdTooltipText = 0x60020004;
constexpr DISPID kIdDescriptionText = 0x60020005;
constexpr DISPID kIdPicture = 0x60030006;
constexpr DISPID kIdMask = 0x60030007;
constexpr DISPID kIdProgId = 1;
constexpr DISPID kIdDescription = 2;
constexpr DISPID kIdConnect = 3;

}  // namespace

class Application : public ModelObject {
 public:
  using ModelObject::ModelObject;

 protected:
  HRESULT queryOther(REFIID iid, void** out) override {
    if (!IsEqualIID(iid, kIidApplication)) return E_NOINTERFACE;
    HRESULT hr = state_->settings.failApplicationQi ? E_NOINTERFACE : S_OK;
    state_->log("Application.QueryInterface(_Application) hr=" + hex(hr));
    if (SUCCEEDED(hr)) *out = static_cast<IDispatch*>(this);
    return hr;
  }
  std::span<const Member> members() const override {
    static constexpr Member table[] = {{L"ActiveExplorer", kIdActiveExplorer}};
    return table;
  }
  HRESULT invoke(DISPID, Call& call) override {
    if (!call.isMethod()) return DISP_E_MEMBERNOTFOUND;
    HRESULT hr = call.expectArgs(0);
    if (FAILED(hr)) return hr;
    call.detail = "()";
    return returnDispatch(call.result, state_->explorer.get());
  }
};

class Explorer : public ModelObject {
 public:
  using ModelObject::ModelObject;

 protected:
  std::span<const Member> members() const override {
    static constexpr Member table[] = {{L"CommandBars", kIdCommandBars}};
    return table;
  }
  HRESULT invoke(DISPID, Call& call) override {
    HRESULT hr = plainGet(call);
    return FAILED(hr) ? hr : returnDispatch(call.result, state_->commandBars.get());
  }
};

class CommandBars : public ModelObject {
 public:
  using ModelObject::ModelObject;

 protected:
  std::span<const Member> members() const override {
    static constexpr Member table[] = {{L"Count", kIdCount}, {L"Item", kIdItem}};
    return table;
  }
  HRESULT invoke(DISPID id, Call& call) override {
    if (id == kIdCount) {
      HRESULT hr = plainGet(call);
      return FAILED(hr) ? hr : returnI4(call.result, static_cast<long>(state_->bars.size()));
    }
    if (!call.isGet()) return DISP_E_MEMBERNOTFOUND;
    HRESULT hr = call.expectArgs(1);
    if (FAILED(hr)) return hr;
    const VARIANT& index = call.arg(0);
    call.detail = "(" + describe(index) + ")";
    if (V_VT(&index) != VT_I4) return call.mismatch(0);
    long n = V_I4(&index);
    call.detail = "(" + std::to_string(n) + ")";
    if (n < 1 || n > static_cast<long>(state_->bars.size())) return DISP_E_BADINDEX;
    if (n == state_->settings.failItem) return E_FAIL;
    return returnDispatch(call.result, state_->barObjects[n - 1].get());
  }
};

class CommandBar : public ModelObject {
 public:
  CommandBar(std::shared_ptr<State> state, int bar)
      : ModelObject(std::move(state), "CommandBar#" + std::to_string(bar + 1)), bar_(bar) {}

 protected:
  std::span<const Member> members() const override {
    static constexpr Member table[] = {{L"Name", kIdName}, {L"Controls", kIdControls}};
    return table;
  }
  HRESULT invoke(DISPID id, Call& call) override {
    HRESULT hr = plainGet(call);
    if (FAILED(hr)) return hr;
    if (id == kIdName) return returnBstr(call.result, state_->bars[bar_].name);
    return returnDispatch(call.result, state_->controlsObjects[bar_].get());
  }

 private:
  int bar_;
};

class Button : public ModelObject, public IConnectionPointContainer {
 public:
  Button(std::shared_ptr<State> state, int number)
      : ModelObject(std::move(state), "Button#" + std::to_string(number)), number_(number) {}

  STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
    return ModelObject::QueryInterface(iid, out);
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ModelObject::AddRef(); }
  STDMETHODIMP_(ULONG) Release() override { return ModelObject::Release(); }

  STDMETHODIMP EnumConnectionPoints(IEnumConnectionPoints** out) override {
    if (out) *out = nullptr;
    return E_NOTIMPL;
  }
  STDMETHODIMP FindConnectionPoint(REFIID iid, IConnectionPoint** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!state_->alive) return RPC_E_DISCONNECTED;
    HRESULT hr = CONNECT_E_NOCONNECTION;
    if (IsEqualIID(iid, kDiidCommandBarButtonEvents)) {
      *out = state_->points[number_ - 1].get();
      (*out)->AddRef();
      hr = S_OK;
    }
    state_->log(
        name_ + ".FindConnectionPoint(" +
        (IsEqualIID(iid, kDiidCommandBarButtonEvents) ? "_CommandBarButtonEvents" : "other") +
        ") hr=" + hex(hr));
    return hr;
  }

 protected:
  HRESULT queryOther(REFIID iid, void** out) override {
    if (IsEqualIID(iid, IID_IConnectionPointContainer)) {
      *out = static_cast<IConnectionPointContainer*>(this);
      return S_OK;
    }
    if (IsEqualIID(iid, kIidCommandBarButton)) {
      state_->log(name_ + ".QueryInterface(_CommandBarButton) hr=" + hex(S_OK));
      *out = static_cast<IDispatch*>(this);
      return S_OK;
    }
    return E_NOINTERFACE;
  }
  std::span<const Member> members() const override {
    static constexpr Member table[] = {{L"Caption", kIdCaption},
                                       {L"FaceId", kIdFaceId},
                                       {L"Style", kIdStyle},
                                       {L"Visible", kIdVisible},
                                       {L"TooltipText", kIdTooltipText},
                                       {L"DescriptionText", kIdDescriptionText},
                                       {L"Picture", kIdPicture},
                                       {L"Mask", kIdMask}};
    return table;
  }
  HRESULT invoke(DISPID id, Call& call) override {
    State::ButtonData& b = data();
    if (call.isPut()) {
      // Only the pictures are object properties, set by reference as well.
      bool isPicture = id == kIdPicture || id == kIdMask;
      if (!isPicture && !(call.flags & DISPATCH_PROPERTYPUT)) return DISP_E_MEMBERNOTFOUND;
      return put(id, call, b);
    }
    HRESULT hr = plainGet(call);
    if (FAILED(hr)) return hr;
    switch (id) {
      case kIdCaption:
        return returnBstr(call.result, b.caption.value_or(L""));
      case kIdTooltipText:
        return returnBstr(call.result, b.tooltip.value_or(L""));
      case kIdDescriptionText:
        return returnBstr(call.result, b.description.value_or(L""));
      case kIdFaceId:
        return returnI4(call.result, b.faceId.value_or(0));
      case kIdStyle:
        return returnI4(call.result, b.style.value_or(0));
      case kIdVisible:
        return returnBool(call.result, b.visible.value_or(true));
      case kIdPicture:
        return returnDispatch(call.result, b.picture.get());
      default:
        return returnDispatch(call.result, b.mask.get());
    }
  }

 private:
  State::ButtonData& data() { return state_->buttons[number_ - 1]; }

  HRESULT put(DISPID id, Call& call, State::ButtonData& b) {
    VARIANT* v = nullptr;
    switch (id) {
      case kIdCaption:
      case kIdTooltipText:
      case kIdDescriptionText: {
        HRESULT hr = call.putValue(VT_BSTR, v);
        if (FAILED(hr)) return hr;
        auto& field = id == kIdCaption       ? b.caption
                      : id == kIdTooltipText ? b.tooltip
                                             : b.description;
        field = fromBstr(V_BSTR(v));
        return S_OK;
      }
      case kIdFaceId:
      case kIdStyle: {
        HRESULT hr = call.putValue(VT_I4, v);
        if (FAILED(hr)) return hr;
        (id == kIdFaceId ? b.faceId : b.style) = V_I4(v);
        return S_OK;
      }
      case kIdVisible: {
        HRESULT hr = call.putValue(VT_BOOL, v);
        if (FAILED(hr)) return hr;
        b.visible = V_BOOL(v) != VARIANT_FALSE;
        return S_OK;
      }
      default: {
        HRESULT hr = call.putValue(VT_DISPATCH, v);
        if (FAILED(hr)) return hr;
        if (!V_DISPATCH(v)) return E_POINTER;
        ComPtr<IDispatch> picture;
        if (FAILED(V_DISPATCH(v)->QueryInterface(IID_IPictureDisp, picture.putVoid())) ||
            !picture) {
          if (call.argErr) *call.argErr = 0;
          return DISP_E_TYPEMISMATCH;
        }
        std::optional<PictureSize> size = pictureSize(picture.get());
        if (size)
          call.detail += " " + std::to_string(size->width) + "x" + std::to_string(size->height);
        if (id == kIdPicture) {
          b.picture = std::move(picture);
          b.pictureSize = size;
        } else {
          b.mask = std::move(picture);
          b.maskSize = size;
        }
        return S_OK;
      }
    }
  }

  int number_;
};

class Controls : public ModelObject {
 public:
  Controls(std::shared_ptr<State> state, int bar)
      : ModelObject(std::move(state), "Controls#" + std::to_string(bar + 1)), bar_(bar) {}

 protected:
  std::span<const Member> members() const override {
    static constexpr Member table[] = {{L"Count", kIdCount}, {L"Add", kIdAdd}};
    return table;
  }
  HRESULT invoke(DISPID id, Call& call) override;

 private:
  int bar_;
};

class ConnectionPoint : public IConnectionPoint {
 public:
  ConnectionPoint(std::shared_ptr<State> state, int number)
      : state_(std::move(state)), number_(number), name_("Button#" + std::to_string(number)) {
    state_->liveCounts.push_back(&refs_);
  }
  virtual ~ConnectionPoint() { std::erase(state_->liveCounts, &refs_); }
  ConnectionPoint(const ConnectionPoint&) = delete;
  ConnectionPoint& operator=(const ConnectionPoint&) = delete;

  STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IConnectionPoint))
      return E_NOINTERFACE;
    *out = static_cast<IConnectionPoint*>(this);
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(++refs_); }
  STDMETHODIMP_(ULONG) Release() override {
    long n = --refs_;
    if (n == 0) delete this;
    return static_cast<ULONG>(n);
  }

  STDMETHODIMP GetConnectionInterface(IID* iid) override {
    if (!iid) return E_POINTER;
    *iid = kDiidCommandBarButtonEvents;
    return S_OK;
  }
  STDMETHODIMP GetConnectionPointContainer(IConnectionPointContainer** out) override {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!state_->alive) return RPC_E_DISCONNECTED;
    return state_->buttonObjects[number_ - 1]->QueryInterface(IID_IConnectionPointContainer,
                                                              reinterpret_cast<void**>(out));
  }
  STDMETHODIMP Advise(IUnknown* sink, DWORD* cookie) override {
    if (cookie) *cookie = 0;
    if (!state_->alive) return RPC_E_DISCONNECTED;
    HRESULT hr = S_OK;
    ComPtr<IDispatch> events;
    if (!sink || !cookie) {
      hr = E_POINTER;
    } else if (state_->settings.failAdvise) {
      hr = CONNECT_E_ADVISELIMIT;
    } else if (FAILED(sink->QueryInterface(kDiidCommandBarButtonEvents, events.putVoid())) ||
               !events) {
      hr = CONNECT_E_CANNOTCONNECT;
    } else {
      *cookie = state_->nextCookie++;
      state_->buttons[number_ - 1].sinks.emplace_back(*cookie, std::move(events));
    }
    state_->log(name_ + ".Advise hr=" + hex(hr) +
                " cookie=" + std::to_string(cookie ? *cookie : 0));
    return hr;
  }
  STDMETHODIMP Unadvise(DWORD cookie) override {
    // The Office let go of every sink when it ended.
    if (!state_->alive) return RPC_E_DISCONNECTED;
    HRESULT hr = CONNECT_E_NOCONNECTION;
    ComPtr<IDispatch> released;  // let go of after the list is consistent
    {
      auto& sinks = state_->buttons[number_ - 1].sinks;
      auto it = std::find_if(sinks.begin(), sinks.end(),
                             [cookie](const auto& s) { return s.first == cookie; });
      if (it != sinks.end()) {
        released = std::move(it->second);
        sinks.erase(it);
        hr = S_OK;
      }
    }
    state_->log(name_ + ".Unadvise(" + std::to_string(cookie) + ") hr=" + hex(hr));
    return hr;
  }
  STDMETHODIMP EnumConnections(IEnumConnections** out) override {
    if (out) *out = nullptr;
    return E_NOTIMPL;
  }

 private:
  std::shared_ptr<State> state_;
  int number_;
  std::string name_;
  long refs_ = 1;
};

HRESULT Controls::invoke(DISPID id, Call& call) {
  State::Bar& bar = state_->bars[bar_];
  if (id == kIdCount) {
    HRESULT hr = plainGet(call);
    return FAILED(hr) ? hr : returnI4(call.result, static_cast<long>(bar.slots.size()));
  }
  if (!call.isMethod()) return DISP_E_MEMBERNOTFOUND;
  if (call.params->cNamedArgs) return DISP_E_NONAMEDARGS;
  call.detail = "(";
  for (UINT i = 0; i < call.positional(); ++i)
    call.detail += (i ? ", " : "") + describe(call.arg(i));
  call.detail += ")";
  HRESULT hr = call.expectArgs(5);
  if (FAILED(hr)) return hr;
  // Type (msoControlButton), Id, Parameter, Before, Temporary.
  const VARIANT& type = call.arg(0);
  if (V_VT(&type) != VT_I4) return call.mismatch(0);
  for (UINT i : {1u, 2u}) {
    const VARIANT& missing = call.arg(i);
    if (V_VT(&missing) != VT_ERROR || V_ERROR(&missing) != DISP_E_PARAMNOTFOUND)
      return call.mismatch(i);
  }
  const VARIANT& before = call.arg(3);
  if (V_VT(&before) != VT_I4) return call.mismatch(3);
  const VARIANT& temporary = call.arg(4);
  if (V_VT(&temporary) != VT_I2) return call.mismatch(4);
  if (V_I4(&type) != 1) return E_INVALIDARG;  // the model makes buttons only
  long position = V_I4(&before);
  if (position < 1 || position > static_cast<long>(bar.slots.size()) + 1) return DISP_E_BADINDEX;
  if (state_->settings.failAdd) return E_FAIL;

  int number = static_cast<int>(state_->buttons.size()) + 1;
  State::ButtonData data;
  data.bar = bar_;
  data.type = V_I4(&type);
  data.temporary = V_I2(&temporary) != 0;
  state_->buttons.push_back(std::move(data));
  bar.slots.insert(bar.slots.begin() + (position - 1), number);
  state_->buttonObjects.emplace_back(new Button(state_, number));
  state_->points.emplace_back(new ConnectionPoint(state_, number));
  return returnDispatch(call.result, state_->buttonObjects.back().get());
}

class AddInInstance : public ModelObject {
 public:
  AddInInstance(std::wstring progId, std::wstring description)
      : ModelObject(std::make_shared<State>(Settings{}), "AddIn"),
        progId_(std::move(progId)),
        description_(std::move(description)) {}

 protected:
  std::span<const Member> members() const override {
    static constexpr Member table[] = {
        {L"ProgId", kIdProgId}, {L"Description", kIdDescription}, {L"Connect", kIdConnect}};
    return table;
  }
  HRESULT invoke(DISPID id, Call& call) override {
    if (id == kIdConnect && call.isPut()) {
      VARIANT* v = nullptr;
      HRESULT hr = call.putValue(VT_BOOL, v);
      if (SUCCEEDED(hr)) connect_ = V_BOOL(v) != VARIANT_FALSE;
      return hr;
    }
    HRESULT hr = plainGet(call);
    if (FAILED(hr)) return hr;
    if (id == kIdConnect) return returnBool(call.result, connect_);
    return returnBstr(call.result, id == kIdProgId ? progId_ : description_);
  }

 private:
  std::wstring progId_, description_;
  bool connect_ = true;
};

// ---- Office -----------------------------------------------------------------

Office::Office(Settings settings) : state_(std::make_shared<State>(std::move(settings))) {
  State& s = *state_;
  s.application.reset(new Application(state_, "Application"));
  s.explorer.reset(new Explorer(state_, "Explorer"));
  s.commandBars.reset(new CommandBars(state_, "CommandBars"));
  for (int i = 0; i < static_cast<int>(s.bars.size()); ++i) {
    s.barObjects.emplace_back(new CommandBar(state_, i));
    s.controlsObjects.emplace_back(new Controls(state_, i));
  }
}

Office::~Office() { state_->clear(); }

IDispatch* Office::application() const noexcept { return state_->application.get(); }

std::vector<ButtonInfo> Office::buttons() const {
  std::vector<ButtonInfo> out;
  const State& s = *state_;
  for (size_t i = 0; i < s.buttons.size(); ++i) {
    const State::ButtonData& b = s.buttons[i];
    int number = static_cast<int>(i) + 1;
    ButtonInfo info;
    info.number = number;
    info.bar = toUtf8(s.bars[b.bar].name);
    info.barIndex = b.bar + 1;
    const auto& slots = s.bars[b.bar].slots;
    info.index =
        static_cast<int>(std::find(slots.begin(), slots.end(), number) - slots.begin()) + 1;
    info.type = b.type;
    info.temporary = b.temporary;
    if (b.caption) info.caption = toUtf8(*b.caption);
    if (b.tooltip) info.tooltip = toUtf8(*b.tooltip);
    if (b.description) info.description = toUtf8(*b.description);
    info.faceId = b.faceId;
    info.style = b.style;
    info.visible = b.visible;
    if (b.picture) info.picture = b.pictureSize.value_or(PictureSize{});
    if (b.mask) info.mask = b.maskSize.value_or(PictureSize{});
    info.sinks = static_cast<int>(b.sinks.size());
    out.push_back(std::move(info));
  }
  return out;
}

const std::vector<std::string>& Office::calls() const noexcept { return state_->calls; }

void Office::clearCalls() noexcept { state_->calls.clear(); }

HRESULT Office::click(int number, bool* cancelDefault) {
  State& s = *state_;
  if (number < 1 || number > static_cast<int>(s.buttons.size())) return E_INVALIDARG;
  // A sink may unadvise (or add one) while handling the click: fire to the
  // ones advised when the click began, each kept alive for its call.
  std::vector<ComPtr<IDispatch>> sinks;
  for (const auto& [cookie, sink] : s.buttons[number - 1].sinks)
    sinks.push_back(ComPtr<IDispatch>::share(sink.get()));
  ComPtr<IDispatch> button = ComPtr<IDispatch>::share(s.buttonObjects[number - 1].get());

  VARIANT_BOOL cancel = VARIANT_FALSE;
  VARIANTARG args[2];
  VariantInit(&args[0]);
  VariantInit(&args[1]);
  V_VT(&args[1]) = VT_DISPATCH;
  V_DISPATCH(&args[1]) = button.get();
  V_VT(&args[0]) = VT_BOOL | VT_BYREF;
  V_BOOLREF(&args[0]) = &cancel;
  DISPPARAMS params{args, nullptr, 2, 0};

  HRESULT result = S_OK;
  for (const auto& sink : sinks) {
    EXCEPINFO excep{};
    UINT argErr = 0;
    HRESULT hr = sink->Invoke(1, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr,
                              &excep, &argErr);
    SysFreeString(excep.bstrSource);
    SysFreeString(excep.bstrDescription);
    SysFreeString(excep.bstrHelpFile);
    if (FAILED(hr) && SUCCEEDED(result)) result = hr;
  }
  s.log("Button#" + std::to_string(number) + ".Click sinks=" + std::to_string(sinks.size()) +
        " hr=" + hex(result) + " cancel=" + std::to_string(cancel));
  if (cancelDefault) *cancelDefault = cancel != VARIANT_FALSE;
  return result;
}

long Office::outstandingReferences() const noexcept {
  long total = 0;
  for (const long* count : state_->liveCounts) total += *count;
  return total - state_->modelReferences();
}

IDispatch* makeAddInInstance(const std::wstring& progId, const std::wstring& description) {
  return new AddInInstance(progId, description);
}

// ---- text -------------------------------------------------------------------

std::string toUtf8(const wchar_t* text, size_t length) {
  if (!text || length == 0) return {};
  int n =
      WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), nullptr, 0, nullptr, nullptr);
  std::string out(n > 0 ? n : 0, '\0');
  if (n > 0)
    WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(length), out.data(), n, nullptr,
                        nullptr);
  return out;
}

std::string toUtf8(const std::wstring& text) { return toUtf8(text.data(), text.size()); }

std::wstring fromUtf8(const std::string& text) {
  if (text.empty()) return {};
  int n = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(n > 0 ? n : 0, L'\0');
  if (n > 0)
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n);
  return out;
}

}  // namespace OfficeModel
