// The Office model as an add-in reaches it: late-bound walks, Add's exact
// argument types, property puts, pictures, clicks through the connection
// point, the failure knobs, and references left behind.
#include "addin/sim/office_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <olectl.h>

#include <vector>

#include "addin/sim/late_call_win32.h"
#include "mapi/mapi_ptr.h"

namespace OfficeModel {
namespace {

using PIM::ComPtr;
using ::testing::Contains;

using SimCall::dispatch;
using SimCall::i2;
using SimCall::i4;
using SimCall::invoke;
using SimCall::missing;
using SimCall::vbool;
using Var = SimCall::Variant;

ComPtr<IDispatch> take(Var& v) {
  EXPECT_EQ(V_VT(&v.v), VT_DISPATCH);
  ComPtr<IDispatch> p = ComPtr<IDispatch>::share(V_DISPATCH(&v.v));
  return p;
}

ComPtr<IDispatch> get(IDispatch* object, const wchar_t* name, std::vector<VARIANT> args = {}) {
  Var r;
  EXPECT_EQ(invoke(object, name, DISPATCH_PROPERTYGET, std::move(args), &r.v), S_OK) << name;
  return take(r);
}

ComPtr<IDispatch> controlsOf(Office& office, long bar) {
  Var explorer;
  EXPECT_EQ(invoke(office.application(), L"ActiveExplorer", DISPATCH_METHOD, {}, &explorer.v),
            S_OK);
  ComPtr<IDispatch> bars = get(V_DISPATCH(&explorer.v), L"CommandBars");
  ComPtr<IDispatch> item = get(bars.get(), L"Item", {i4(bar)});
  return get(item.get(), L"Controls");
}

// Add as the add-in calls it: Type 1, Id and Parameter missing, Before,
// Temporary -1.
HRESULT add(IDispatch* controls, long before, ComPtr<IDispatch>& button) {
  Var r;
  HRESULT hr = invoke(controls, L"Add", DISPATCH_METHOD,
                      {i4(1), missing(), missing(), i4(before), i2(-1)}, &r.v);
  if (SUCCEEDED(hr)) button = take(r);
  return hr;
}

TEST(OfficeModel, WalksFromTheApplicationToTheNamedBarsAndTheirControls) {
  Office office({.bars = {{L"Standard", 0}, {L"Web", 3}}});
  Var explorer;
  ASSERT_EQ(invoke(office.application(), L"activeexplorer", DISPATCH_METHOD, {}, &explorer.v),
            S_OK);
  ComPtr<IDispatch> bars = get(V_DISPATCH(&explorer.v), L"CommandBars");
  Var count;
  ASSERT_EQ(invoke(bars.get(), L"Count", DISPATCH_PROPERTYGET, {}, &count.v), S_OK);
  EXPECT_EQ(V_VT(&count.v), VT_I4);
  EXPECT_EQ(V_I4(&count.v), 2);
  ComPtr<IDispatch> web = get(bars.get(), L"Item", {i4(2)});
  Var name;
  ASSERT_EQ(invoke(web.get(), L"Name", DISPATCH_PROPERTYGET, {}, &name.v), S_OK);
  EXPECT_STREQ(V_BSTR(&name.v), L"Web");
  ComPtr<IDispatch> controls = get(web.get(), L"Controls");
  Var controlCount;
  ASSERT_EQ(invoke(controls.get(), L"Count", DISPATCH_PROPERTYGET, {}, &controlCount.v), S_OK);
  EXPECT_EQ(V_I4(&controlCount.v), 3);

  // Wrong forms fail as an automation server's do.
  Var r;
  EXPECT_EQ(invoke(bars.get(), L"Item", DISPATCH_PROPERTYGET, {i4(3)}, &r.v), DISP_E_BADINDEX);
  EXPECT_EQ(invoke(bars.get(), L"Item", DISPATCH_PROPERTYGET, {i2(1)}, &r.v), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(invoke(bars.get(), L"Item", DISPATCH_PROPERTYGET, {}, &r.v), DISP_E_BADPARAMCOUNT);
  EXPECT_EQ(invoke(office.application(), L"ActiveExplorer", DISPATCH_PROPERTYGET, {}, &r.v),
            DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(invoke(bars.get(), L"Items", DISPATCH_PROPERTYGET, {}, &r.v), DISP_E_UNKNOWNNAME);
  EXPECT_THAT(office.calls(), Contains("CommandBar#2.Name hr=0x00000000 -> VT_BSTR \"Web\""));
  EXPECT_THAT(office.calls(), Contains("CommandBars.Item(3) hr=0x8002000B"));
}

TEST(OfficeModel, AddTakesExactlyTheArgumentTypesOfAButtonAtTheEnd) {
  struct Case {
    const char* what;
    std::vector<VARIANT> args;
    HRESULT hr;
    UINT argErr;  // index into the reversed rgvarg
  };
  const Case cases[] = {
      {"Type as VT_I2", {i2(1), missing(), missing(), i4(1), i2(-1)}, DISP_E_TYPEMISMATCH, 4},
      {"Id given", {i4(1), i4(0), missing(), i4(1), i2(-1)}, DISP_E_TYPEMISMATCH, 3},
      {"Parameter empty", {i4(1), missing(), VARIANT{}, i4(1), i2(-1)}, DISP_E_TYPEMISMATCH, 2},
      {"Before as VT_I2", {i4(1), missing(), missing(), i2(1), i2(-1)}, DISP_E_TYPEMISMATCH, 1},
      {"Temporary as VT_BOOL",
       {i4(1), missing(), missing(), i4(1), vbool(true)},
       DISP_E_TYPEMISMATCH,
       0},
      {"Before past the end", {i4(1), missing(), missing(), i4(3), i2(-1)}, DISP_E_BADINDEX, 0},
      {"not a button", {i4(2), missing(), missing(), i4(1), i2(-1)}, E_INVALIDARG, 0},
      {"four arguments", {i4(1), missing(), missing(), i4(1)}, DISP_E_BADPARAMCOUNT, 0},
  };
  Office office({.bars = {{L"Standard", 1}}});
  ComPtr<IDispatch> controls = controlsOf(office, 1);
  for (const Case& c : cases) {
    Var r;
    UINT argErr = 99;
    EXPECT_EQ(invoke(controls.get(), L"Add", DISPATCH_METHOD, c.args, &r.v, &argErr), c.hr)
        << c.what;
    if (c.hr == DISP_E_TYPEMISMATCH) {
      EXPECT_EQ(argErr, c.argErr) << c.what;
    }
  }
  EXPECT_TRUE(office.buttons().empty());

  ComPtr<IDispatch> button;
  ASSERT_EQ(add(controls.get(), 2, button), S_OK);
  ComPtr<IDispatch> first;  // Office's own control moves behind this one
  ASSERT_EQ(add(controls.get(), 1, first), S_OK);
  std::vector<ButtonInfo> buttons = office.buttons();
  ASSERT_EQ(buttons.size(), 2u);
  EXPECT_EQ(buttons[0].bar, "Standard");
  EXPECT_EQ(buttons[0].index, 3);
  EXPECT_EQ(buttons[1].index, 1);
  EXPECT_TRUE(buttons[0].temporary);
  EXPECT_THAT(office.calls(),
              Contains("Controls#1.Add(VT_I4 1, missing, missing, VT_I4 2, VT_I2 -1) "
                       "hr=0x00000000 -> VT_DISPATCH"));
}

TEST(OfficeModel, ButtonPropertiesAreSetByNamedPutsOfTheirOwnType) {
  Office office;
  ComPtr<IDispatch> button;
  ASSERT_EQ(add(controlsOf(office, 1).get(), 1, button), S_OK);
  ComPtr<IDispatch> typed;
  EXPECT_EQ(button->QueryInterface(kIidCommandBarButton, typed.putVoid()), S_OK);

  BSTR caption = SysAllocString(L"Capture");
  VARIANT text = SimCall::bstr(caption);
  EXPECT_EQ(invoke(button.get(), L"Caption", DISPATCH_PROPERTYPUT, {text}), S_OK);
  EXPECT_EQ(invoke(button.get(), L"TooltipText", DISPATCH_PROPERTYPUT, {text}), S_OK);
  EXPECT_EQ(invoke(button.get(), L"FaceId", DISPATCH_PROPERTYPUT, {i4(4)}), S_OK);
  EXPECT_EQ(invoke(button.get(), L"Style", DISPATCH_PROPERTYPUT, {i2(1)}), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(invoke(button.get(), L"Visible", DISPATCH_PROPERTYPUT, {i4(-1)}), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(invoke(button.get(), L"Visible", DISPATCH_PROPERTYPUT, {vbool(true)}), S_OK);
  EXPECT_EQ(invoke(button.get(), L"Caption", DISPATCH_PROPERTYPUT, {i4(1)}), DISP_E_TYPEMISMATCH);
  SysFreeString(caption);

  // A put without the named DISPID_PROPERTYPUT is not a put.
  VARIANT arg = i4(7);
  DISPPARAMS unnamed{&arg, nullptr, 1, 0};
  DISPID faceId = DISPID_UNKNOWN;
  LPOLESTR name[] = {const_cast<LPOLESTR>(L"FaceId")};
  ASSERT_EQ(button->GetIDsOfNames(IID_NULL, name, 1, LOCALE_USER_DEFAULT, &faceId), S_OK);
  EXPECT_EQ(button->Invoke(faceId, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYPUT, &unnamed,
                           nullptr, nullptr, nullptr),
            DISP_E_PARAMNOTFOUND);

  ButtonInfo b = office.buttons().at(0);
  EXPECT_EQ(b.caption, "Capture");
  EXPECT_EQ(b.tooltip, "Capture");
  EXPECT_EQ(b.description, std::nullopt);
  EXPECT_EQ(b.faceId, 4);
  EXPECT_EQ(b.style, std::nullopt);
  EXPECT_EQ(b.visible, true);
  EXPECT_THAT(office.calls(), Contains("Button#1.Caption=VT_BSTR \"Capture\" hr=0x00000000"));
}

TEST(OfficeModel, PicturesKeepTheirBitmapSizeAndOtherObjectsAreRefused) {
  Office office;
  ComPtr<IDispatch> button;
  ASSERT_EQ(add(controlsOf(office, 1).get(), 1, button), S_OK);

  auto picture = [](int w, int h) {
    PICTDESC desc{};
    desc.cbSizeofstruct = sizeof desc;
    desc.picType = PICTYPE_BITMAP;
    desc.bmp.hbitmap = CreateBitmap(w, h, 1, 32, nullptr);
    ComPtr<IDispatch> p;
    EXPECT_EQ(OleCreatePictureIndirect(&desc, IID_IPictureDisp, TRUE, p.putVoid()), S_OK);
    return p;
  };
  ComPtr<IDispatch> face = picture(16, 16), mask = picture(20, 10);
  EXPECT_EQ(invoke(button.get(), L"Picture", DISPATCH_PROPERTYPUTREF, {dispatch(face.get())}),
            S_OK);
  EXPECT_EQ(invoke(button.get(), L"Mask", DISPATCH_PROPERTYPUT, {dispatch(mask.get())}), S_OK);
  EXPECT_EQ(invoke(button.get(), L"Mask", DISPATCH_PROPERTYPUT, {dispatch(button.get())}),
            DISP_E_TYPEMISMATCH);
  ButtonInfo b = office.buttons().at(0);
  EXPECT_EQ(b.picture, (PictureSize{16, 16}));
  EXPECT_EQ(b.mask, (PictureSize{20, 10}));
}

// A click sink as an add-in writes one: answers the events interface and
// records what each Invoke brought.
class Sink : public IDispatch {
 public:
  STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
    *out = nullptr;
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) ||
        (answersEvents && IsEqualIID(iid, kDiidCommandBarButtonEvents))) {
      *out = this;
      AddRef();
      return S_OK;
    }
    return E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return ++refs; }
  STDMETHODIMP_(ULONG) Release() override { return --refs; }
  STDMETHODIMP GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
  STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  STDMETHODIMP Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT*, EXCEPINFO*,
                      UINT*) override {
    ++clicks;
    lastId = id;
    lastFlags = flags;
    if (params->cArgs == 2) {
      ctrlType = V_VT(&params->rgvarg[1]);
      ctrl = V_DISPATCH(&params->rgvarg[1]);
      cancelType = V_VT(&params->rgvarg[0]);
      if (cancelType == (VT_BOOL | VT_BYREF)) *V_BOOLREF(&params->rgvarg[0]) = VARIANT_TRUE;
    }
    return S_OK;
  }

  bool answersEvents = true;
  ULONG refs = 1;
  int clicks = 0;
  DISPID lastId = 0;
  WORD lastFlags = 0;
  VARTYPE ctrlType = VT_EMPTY, cancelType = VT_EMPTY;
  IDispatch* ctrl = nullptr;
};

TEST(OfficeModel, ClicksReachAdvisedSinksWithTheButtonAndCancelDefault) {
  Office office;
  ComPtr<IDispatch> button;
  ASSERT_EQ(add(controlsOf(office, 1).get(), 1, button), S_OK);
  ComPtr<IConnectionPointContainer> container;
  ASSERT_EQ(button->QueryInterface(IID_IConnectionPointContainer, container.putVoid()), S_OK);
  ComPtr<IConnectionPoint> point;
  EXPECT_EQ(container->FindConnectionPoint(IID_IDispatch, point.put()), CONNECT_E_NOCONNECTION);
  ASSERT_EQ(container->FindConnectionPoint(kDiidCommandBarButtonEvents, point.put()), S_OK);

  Sink sink, deaf;
  deaf.answersEvents = false;
  DWORD cookie = 0, none = 0;
  EXPECT_EQ(point->Advise(&deaf, &none), CONNECT_E_CANNOTCONNECT);
  ASSERT_EQ(point->Advise(&sink, &cookie), S_OK);
  EXPECT_EQ(office.buttons().at(0).sinks, 1);

  bool cancel = false;
  EXPECT_EQ(office.click(1, &cancel), S_OK);
  EXPECT_EQ(sink.clicks, 1);
  EXPECT_EQ(sink.lastId, 1);
  EXPECT_EQ(sink.lastFlags, DISPATCH_METHOD);
  EXPECT_EQ(sink.ctrlType, VT_DISPATCH);
  EXPECT_EQ(sink.ctrl, button.get());
  EXPECT_EQ(sink.cancelType, VT_BOOL | VT_BYREF);
  EXPECT_TRUE(cancel);
  EXPECT_EQ(office.click(2), E_INVALIDARG);

  EXPECT_EQ(point->Unadvise(cookie), S_OK);
  EXPECT_EQ(point->Unadvise(cookie), CONNECT_E_NOCONNECTION);
  EXPECT_EQ(office.click(1), S_OK);
  EXPECT_EQ(sink.clicks, 1);
  EXPECT_EQ(sink.refs, 1u);  // the model holds no sink after Unadvise
}

TEST(OfficeModel, KnobsMakeTheNamedCallsFail) {
  Office office({.bars = {{L"Standard", 0}, {L"Standard", 0}},
                 .failItem = 1,
                 .failApplicationQi = true,
                 .failAdd = false,
                 .failAdvise = true});
  ComPtr<IDispatch> app;
  EXPECT_EQ(office.application()->QueryInterface(kIidApplication, app.putVoid()), E_NOINTERFACE);
  Var explorer;
  ASSERT_EQ(invoke(office.application(), L"ActiveExplorer", DISPATCH_METHOD, {}, &explorer.v),
            S_OK);
  ComPtr<IDispatch> bars = get(V_DISPATCH(&explorer.v), L"CommandBars");
  Var r;
  EXPECT_EQ(invoke(bars.get(), L"Item", DISPATCH_PROPERTYGET, {i4(1)}, &r.v), E_FAIL);
  ComPtr<IDispatch> second = get(bars.get(), L"Item", {i4(2)});
  ComPtr<IDispatch> button;
  ASSERT_EQ(add(get(second.get(), L"Controls").get(), 1, button), S_OK);
  EXPECT_EQ(office.buttons().at(0).barIndex, 2);
  ComPtr<IConnectionPointContainer> container;
  ASSERT_EQ(button->QueryInterface(IID_IConnectionPointContainer, container.putVoid()), S_OK);
  ComPtr<IConnectionPoint> point;
  ASSERT_EQ(container->FindConnectionPoint(kDiidCommandBarButtonEvents, point.put()), S_OK);
  Sink sink;
  DWORD cookie = 0;
  EXPECT_EQ(point->Advise(&sink, &cookie), CONNECT_E_ADVISELIMIT);

  Office failingAdd({.failAdd = true});
  EXPECT_EQ(add(controlsOf(failingAdd, 1).get(), 1, button), E_FAIL);
  EXPECT_TRUE(failingAdd.buttons().empty());
}

TEST(OfficeModel, CountsReferencesLeftAndOutlivesTheOfficeSafely) {
  ComPtr<IDispatch> kept;
  {
    Office office;
    ComPtr<IDispatch> controls = controlsOf(office, 1);
    ComPtr<IDispatch> button;
    ASSERT_EQ(add(controls.get(), 1, button), S_OK);
    EXPECT_EQ(office.outstandingReferences(), 2);
    controls.reset();
    EXPECT_EQ(office.outstandingReferences(), 1);
    kept = std::move(button);
  }
  // The host is gone: calls fail cleanly, the last release frees the object.
  EXPECT_EQ(invoke(kept.get(), L"FaceId", DISPATCH_PROPERTYPUT, {i4(4)}), RPC_E_DISCONNECTED);
  kept.reset();
}

}  // namespace
}  // namespace OfficeModel
