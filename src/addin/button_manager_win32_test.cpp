// The toolbar buttons against a stand-in of Office's object model: which bar
// gets them, the calls and argument types Office sees, their pictures, the
// clicks that reach the action window, and what is logged when Office says
// no.
#include "addin/button_manager_win32.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "addin/late_bound_win32.h"
#include "addin/outlook_app.h"
#include "addin/sim/office_model.h"
#include "mapi/outlook_utils.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using OfficeModel::BarSpec;
using OfficeModel::Office;
using OfficeModel::PictureSize;
using OfficeModel::Settings;
using testing::LogCapture;

constexpr std::chrono::milliseconds kPatience{10000};

// A log line from its function on: "PIM::ButtonManager::addButton() > ERR> ...".
std::vector<std::string> logged(const LogCapture& log) {
  std::vector<std::string> out;
  for (const std::string& line : log.lines()) {
    const auto at = line.find(" : ");
    out.push_back(at == std::string::npos ? line : line.substr(at + 3));
  }
  return out;
}

std::string addLine(const std::string& text) {
  return "PIM::ButtonManager::addButton() > ERR> " + text;
}

// The members of button `number` that the add-in called, in order, without
// their values: "Caption", "Advise", ...
std::vector<std::string> buttonCalls(const Office& office, int number) {
  const std::string prefix = "Button#" + std::to_string(number) + ".";
  std::vector<std::string> out;
  for (const std::string& call : office.calls()) {
    if (call.rfind(prefix, 0) != 0) continue;
    const std::string rest = call.substr(prefix.size());
    out.push_back(rest.substr(0, rest.find_first_of("=( ")));
  }
  return out;
}

bool called(const Office& office, const std::string& text) {
  for (const std::string& call : office.calls()) {
    if (call.find(text) != std::string::npos) return true;
  }
  return false;
}

// Outlook's application and action window as the add-in has them once
// connected; the presses of Configure and Capture are counted on the
// window's thread.
class ButtonManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(window().start());
    window().setConfigureAction([this] { ++configured; });
    window().setCaptureAction([this] { ++captured; });
  }
  void TearDown() override {
    // While the model still answers: the wrappers disconnect from it.
    ButtonManager::freeInstance();
    OutlookApp::instance()->setOutlookApp(nullptr);
    window().setConfigureAction(nullptr);
    window().setCaptureAction(nullptr);
  }

  static PimActionWindow& window() { return OutlookApp::instance()->actionWindow(); }

  Office& connect(Settings settings = {}) {
    ButtonManager::freeInstance();
    OutlookApp::instance()->setOutlookApp(nullptr);
    office.emplace(std::move(settings));
    OutlookApp::instance()->setOutlookApp(office->application());
    return *office;
  }

  // The two buttons as the add-in makes them at start-up.
  void addBoth() {
    ButtonManager* buttons = ButtonManager::instance();
    ASSERT_EQ(buttons->addButton(u"Configure", "Standard", 9000), S_OK);
    ASSERT_EQ(buttons->addButton(u"Capture", "Standard", 9001), S_OK);
  }

  std::optional<Office> office;
  int configured = 0;
  int captured = 0;
};

TEST_F(ButtonManagerTest, ButtonsGoToTheEndOfTheBarWithTheirPropertiesInOrder) {
  Office& model = connect({.bars = {{L"Menu Bar", 2}, {L"Standard", 3}}});
  LogCapture log;
  ButtonManager* buttons = ButtonManager::instance();
  ASSERT_EQ(buttons->addButton(u"Pr\u00e9f\u00e9rences \u2699", "Standard", 9000), S_OK);
  EXPECT_EQ(buttons->setTooltip(9000, u"Open the preferences"), S_OK);
  EXPECT_EQ(buttons->setPicture(9000, 213, 210), S_OK);
  ASSERT_EQ(buttons->addButton(u"Capture", "Standard", 9001), S_OK);
  EXPECT_TRUE(log.lines().empty());

  // Add(Type 1, missing, missing, Before = count + 1, Temporary as a
  // 2-byte -1): the model refuses every other type.
  EXPECT_TRUE(called(model,
                     "Controls#2.Add(VT_I4 1, missing, missing, VT_I4 4, VT_I2 -1) "
                     "hr=0x00000000 -> VT_DISPATCH"));
  EXPECT_TRUE(called(model,
                     "Controls#2.Add(VT_I4 1, missing, missing, VT_I4 5, VT_I2 -1) "
                     "hr=0x00000000 -> VT_DISPATCH"));
  const auto made = model.buttons();
  ASSERT_EQ(made.size(), 2u);
  const auto& configure = made[0];
  EXPECT_EQ(configure.bar, "Standard");
  EXPECT_EQ(configure.barIndex, 2);
  EXPECT_EQ(configure.index, 4);
  EXPECT_EQ(made[1].index, 5);
  EXPECT_EQ(configure.type, 1);
  EXPECT_TRUE(configure.temporary);
  EXPECT_EQ(configure.caption, "Pr\u00e9f\u00e9rences \u2699");
  EXPECT_EQ(configure.faceId, 4);
  EXPECT_EQ(configure.style, 1);
  EXPECT_EQ(configure.visible, true);
  EXPECT_EQ(configure.description, "Open the preferences");
  EXPECT_EQ(configure.tooltip, "Open the preferences");
  EXPECT_EQ(configure.picture, (PictureSize{16, 16}));
  EXPECT_EQ(configure.mask, (PictureSize{16, 16}));
  EXPECT_EQ(configure.sinks, 1);
  EXPECT_EQ(made[1].sinks, 1);
  EXPECT_EQ(made[1].caption, "Capture");
  EXPECT_FALSE(made[1].tooltip.has_value());

  EXPECT_EQ(buttonCalls(model, 1),
            (std::vector<std::string>{"QueryInterface", "Caption", "FaceId", "Style", "Visible",
                                      "FindConnectionPoint", "Advise", "DescriptionText",
                                      "TooltipText", "Picture", "Mask"}));
}

TEST_F(ButtonManagerTest, OnlyTheFirstReadableBarOfExactlyThatNameGetsTheButton) {
  struct Case {
    const char* what;
    std::vector<BarSpec> bars;
    int failItem;
    int barIndex;  // 0: no button
    std::vector<std::string> log;
    std::vector<std::string> barsNotAsked;
  };
  const Case cases[] = {
      {"no bars at all", {}, 0, 0, {}, {}},
      {"names differ in case and spaces",
       {{L"Menu Bar"}, {L"standard"}, {L"Standard "}, {L"STANDARD"}},
       0,
       0,
       {},
       {}},
      {"two of that name", {{L"Menu Bar"}, {L"Standard"}, {L"Standard"}}, 0, 2, {}, {"#3.Name"}},
      {"a failing item is skipped",
       {{L"Standard"}, {L"Web"}, {L"Standard"}},
       1,
       3,
       {addLine("HR Error: 0x80004005: Failed to retrieve the command bar name for bar 1")},
       {}},
      {"the only match failing",
       {{L"Web"}, {L"Standard"}},
       2,
       0,
       {addLine("HR Error: 0x80004005: Failed to retrieve the command bar name for bar 2")},
       {}},
      {"a failing item after the match is never asked",
       {{L"Standard"}, {L"Web"}},
       2,
       1,
       {},
       {"CommandBars.Item(2)"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Office& model = connect({.bars = c.bars, .failItem = c.failItem});
    LogCapture log;
    ButtonManager* buttons = ButtonManager::instance();
    EXPECT_EQ(buttons->addButton(u"Configure", "Standard", 9000), S_OK);
    const HRESULT tooltip = buttons->setTooltip(9000, u"tip");
    const HRESULT picture = buttons->setPicture(9000, 213, 210);
    EXPECT_EQ(logged(log), c.log);
    for (const std::string& call : c.barsNotAsked) EXPECT_FALSE(called(model, call)) << call;

    const auto made = model.buttons();
    if (c.barIndex == 0) {
      EXPECT_TRUE(made.empty());
      EXPECT_EQ(tooltip, E_INVALIDARG);
      EXPECT_EQ(picture, E_INVALIDARG);
    } else {
      ASSERT_EQ(made.size(), 1u);
      EXPECT_EQ(made[0].barIndex, c.barIndex);
      EXPECT_EQ(tooltip, S_OK);
      EXPECT_EQ(picture, S_OK);
    }
  }
}

TEST_F(ButtonManagerTest, FailuresBeforeTheButtonExistsAreLoggedAndLeaveNoButton) {
  struct Case {
    const char* what;
    bool connected;
    Settings settings;
    std::vector<std::string> log;
  };
  const Case cases[] = {
      {"no application held",
       false,
       {},
       {"OutlookApp::getOutlookApp() > ERR> Assertion failed",
        addLine("HR Error: 0x80070057: Failed to get the command bar collection - could not add "
                "button.")}},
      {"Add refused",
       true,
       {.failAdd = true},
       {addLine("HR Error: 0x80004005: Failed to add new button to the command bar.")}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Office& model = connect(c.settings);
    if (!c.connected) OutlookApp::instance()->setOutlookApp(nullptr);
    LogCapture log;
    ButtonManager* buttons = ButtonManager::instance();
    EXPECT_TRUE(FAILED(buttons->addButton(u"Configure", "Standard", 9000)));
    EXPECT_EQ(logged(log), c.log);
    EXPECT_EQ(buttons->setTooltip(9000, u"tip"), E_INVALIDARG);
    EXPECT_EQ(buttons->setPicture(9000, 213, 210), E_INVALIDARG);
    EXPECT_TRUE(model.buttons().empty());
    EXPECT_EQ(logged(log).size(), c.log.size());
  }
}

TEST_F(ButtonManagerTest, AClickIsPostedToTheActionWindowAndHandledAfterOfficesCall) {
  Office& model = connect();
  addBoth();
  bool cancelDefault = true;
  ASSERT_EQ(model.click(2, &cancelDefault), S_OK);
  // Only posted: nothing ran inside Office's event call.
  EXPECT_EQ(captured, 0);
  EXPECT_FALSE(cancelDefault);
  EXPECT_TRUE(window().loop()->runUntil([&] { return captured == 1; }, kPatience));
  EXPECT_EQ(configured, 0);

  ASSERT_EQ(model.click(1), S_OK);
  ASSERT_EQ(model.click(1), S_OK);
  EXPECT_TRUE(window().loop()->runUntil([&] { return configured == 2; }, kPatience));
  EXPECT_EQ(captured, 1);
}

TEST_F(ButtonManagerTest, AnIdentifierUsedAgainIsLoggedAndBothButtonsStillClick) {
  Office& model = connect();
  ButtonManager* buttons = ButtonManager::instance();
  ASSERT_EQ(buttons->addButton(u"Old", "Standard", 9000), S_OK);
  LogCapture log;
  ASSERT_EQ(buttons->addButton(u"New", "Standard", 9000), S_OK);
  EXPECT_EQ(logged(log),
            (std::vector<std::string>{addLine("Attempt to overwite button with existing id.")}));
  // The identifier now names the newer button.
  ASSERT_EQ(buttons->setTooltip(9000, u"tip"), S_OK);
  auto made = model.buttons();
  ASSERT_EQ(made.size(), 2u);
  EXPECT_FALSE(made[0].tooltip.has_value());
  EXPECT_EQ(made[1].tooltip, "tip");

  ASSERT_EQ(model.click(1), S_OK);
  ASSERT_EQ(model.click(2), S_OK);
  EXPECT_TRUE(window().loop()->runUntil([&] { return configured == 2; }, kPatience));

  // Only the wrapper in the map is removed; the older one stays connected.
  ButtonManager::freeInstance();
  made = model.buttons();
  EXPECT_EQ(made[0].sinks, 1);
  EXPECT_EQ(made[1].sinks, 0);
}

TEST_F(ButtonManagerTest, AFailedConnectionIsLoggedAndTheButtonKeptWithoutClicks) {
  Office& model = connect({.failAdvise = true});
  LogCapture log;
  ButtonManager* buttons = ButtonManager::instance();
  ASSERT_EQ(buttons->addButton(u"Configure", "Standard", 9000), S_OK);
  EXPECT_EQ(logged(log),
            (std::vector<std::string>{"PIM::ButtonWrapper::ButtonWrapper() > ERR> HR Error: "
                                      "0x80040201: Failed to advise button 9000"}));
  EXPECT_EQ(buttons->setTooltip(9000, u"tip"), S_OK);
  EXPECT_EQ(buttons->setPicture(9000, 213, 210), S_OK);
  ASSERT_EQ(model.buttons().size(), 1u);
  EXPECT_EQ(model.buttons()[0].sinks, 0);
  ASSERT_EQ(model.click(1), S_OK);
  window().loop()->processPending();
  EXPECT_EQ(configured, 0);

  // Nothing to disconnect: no Unadvise and no second error.
  ButtonManager::freeInstance();
  EXPECT_FALSE(called(model, "Unadvise"));
  EXPECT_EQ(logged(log).size(), 2u);
}

TEST_F(ButtonManagerTest, FreeingDisconnectsEveryButtonInIdentifierOrderAndReleasesAll) {
  Office& model = connect();
  ButtonManager* buttons = ButtonManager::instance();
  // Added out of order: the map's order decides.
  ASSERT_EQ(buttons->addButton(u"Capture", "Standard", 9001), S_OK);
  ASSERT_EQ(buttons->addButton(u"Configure", "Standard", 9000), S_OK);
  ASSERT_EQ(buttons->setPicture(9000, 213, 210), S_OK);
  model.clearCalls();
  LogCapture log;
  ButtonManager::freeInstance();
  EXPECT_EQ(logged(log), (std::vector<std::string>{"PIM::ButtonManager::~ButtonManager() > MSG> "
                                                   "Removing all toolbar buttons."}));
  std::vector<std::string> unadvised;
  for (const std::string& call : model.calls()) {
    if (call.find(".Unadvise(") != std::string::npos) unadvised.push_back(call.substr(0, 8));
  }
  EXPECT_EQ(unadvised, (std::vector<std::string>{"Button#2", "Button#1"}));
  for (const auto& button : model.buttons()) EXPECT_EQ(button.sinks, 0);

  // The buttons stay on the bar (temporary, Office drops them), and nothing
  // of the model is held any more.
  EXPECT_EQ(model.buttons().size(), 2u);
  OutlookApp::instance()->setOutlookApp(nullptr);
  EXPECT_EQ(model.outstandingReferences(), 0);

  // A new manager starts empty.
  EXPECT_EQ(ButtonManager::instance()->setTooltip(9000, u"tip"), E_INVALIDARG);
}

TEST_F(ButtonManagerTest, PicturesAreTheModulesBitmapsAndAMissingOneSetsNothing) {
  Office& model = connect();
  addBoth();
  ButtonManager* buttons = ButtonManager::instance();
  EXPECT_EQ(buttons->setPicture(9001, 211, 212), S_OK);
  EXPECT_EQ(model.buttons()[1].picture, (PictureSize{16, 16}));
  EXPECT_EQ(model.buttons()[1].mask, (PictureSize{16, 16}));

  for (auto [picture, mask] : {std::pair{999, 210}, std::pair{213, 999}}) {
    EXPECT_EQ(buttons->setPicture(9000, picture, mask),
              HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND));
  }
  EXPECT_FALSE(model.buttons()[0].picture.has_value());
  EXPECT_FALSE(model.buttons()[0].mask.has_value());
}

// The resource as stored: 16 x 16, 24 bits, bottom-up rows of B, G, R.
struct Bitmap24 {
  std::vector<COLORREF> pixels;  // top row first
};

std::optional<Bitmap24> readBitmapResource(int id) {
  HMODULE module = GetModuleHandleW(nullptr);
  HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(id), MAKEINTRESOURCEW(2) /* RT_BITMAP */);
  if (!found) return std::nullopt;
  HGLOBAL loaded = LoadResource(module, found);
  const auto* bytes = static_cast<const uint8_t*>(LockResource(loaded));
  const DWORD size = SizeofResource(module, found);
  BITMAPINFOHEADER header;
  if (!bytes || size < sizeof header) return std::nullopt;
  memcpy(&header, bytes, sizeof header);
  if (header.biWidth != 16 || header.biHeight != 16 || header.biBitCount != 24 ||
      header.biCompression != BI_RGB || size < header.biSize + 16 * 48) {
    return std::nullopt;
  }
  Bitmap24 out;
  for (int y = 15; y >= 0; --y) {
    const uint8_t* row = bytes + header.biSize + y * 48;
    for (int x = 0; x < 16; ++x)
      out.pixels.push_back(RGB(row[3 * x + 2], row[3 * x + 1], row[3 * x]));
  }
  return out;
}

TEST(ButtonBitmaps, EachMaskIsBlackExactlyWhereItsPictureIsDrawn) {
  constexpr COLORREF kWhite = RGB(255, 255, 255), kBlack = RGB(0, 0, 0);
  struct Pair {
    const char* what;
    int picture, mask;
  };
  for (const Pair& p : {Pair{"Configure", 213, 210}, Pair{"Capture", 211, 212}}) {
    SCOPED_TRACE(p.what);
    const auto picture = readBitmapResource(p.picture);
    const auto mask = readBitmapResource(p.mask);
    ASSERT_TRUE(picture && mask) << "16 x 16, 24-bit bitmaps";
    int drawn = 0;
    for (size_t i = 0; i < 256; ++i) {
      const COLORREF m = mask->pixels[i];
      ASSERT_TRUE(m == kWhite || m == kBlack) << i;
      EXPECT_EQ(m == kBlack, picture->pixels[i] != kWhite) << "pixel " << i;
      drawn += m == kBlack;
    }
    // A picture, not a blank or a filled square.
    EXPECT_GT(drawn, 40);
    EXPECT_LT(drawn, 200);
  }
  // The two buttons look different.
  EXPECT_NE(readBitmapResource(210)->pixels, readBitmapResource(212)->pixels);
}

// The sink alone, as Office calls it: only Click with its two arguments in
// IDispatch's order posts the button's identifier.
TEST_F(ButtonManagerTest, TheSinkAnswersClickWithItsTwoArgumentsOnly) {
  Office& model = connect();
  ComPtr<IDispatch> bars;
  ASSERT_EQ(OutlookUtils::getCommandBars(bars), S_OK);
  ComPtr<IDispatch> bar, controls, button;
  const auto first = LateBound::Variant::int32(1);
  ASSERT_EQ(LateBound::getDispatch(bars.get(), L"Item", bar, {&first}), S_OK);
  ASSERT_EQ(LateBound::getDispatch(bar.get(), L"Controls", controls), S_OK);
  const auto type = LateBound::Variant::int32(1), missing = LateBound::Variant::missing();
  const auto temporary = LateBound::Variant::int16(-1);
  LateBound::Variant added;
  ASSERT_EQ(LateBound::callMethod(controls.get(), L"Add", added,
                                  {&type, &missing, &missing, &first, &temporary}),
            S_OK);
  ASSERT_EQ(LateBound::takeDispatch(added, button), S_OK);

  ButtonWrapper sink(button.get(), 9001);
  EXPECT_EQ(model.buttons()[0].sinks, 1);
  VARIANT_BOOL cancel = VARIANT_FALSE;
  auto call = [&](DISPID id, REFIID iid, WORD flags, std::vector<VARIANT> args) {
    DISPPARAMS params = {args.data(), nullptr, static_cast<UINT>(args.size()), 0};
    UINT argError = 99;
    return sink.Invoke(id, iid, LOCALE_USER_DEFAULT, flags, &params, nullptr, nullptr, &argError);
  };
  VARIANT ctrl, byRefBool, plainBool;
  ctrl.vt = VT_DISPATCH;
  ctrl.pdispVal = button.get();
  byRefBool.vt = VT_BOOL | VT_BYREF;
  byRefBool.pboolVal = &cancel;
  plainBool.vt = VT_BOOL;
  plainBool.boolVal = VARIANT_FALSE;

  struct Case {
    const char* what;
    DISPID id;
    const IID* iid;
    WORD flags;
    std::vector<VARIANT> args;  // IDispatch's order: last argument first
    HRESULT hr;
  };
  const Case refused[] = {
      {"another member", 2, &IID_NULL, DISPATCH_METHOD, {byRefBool, ctrl}, DISP_E_MEMBERNOTFOUND},
      {"an interface",
       1,
       &IID_IDispatch,
       DISPATCH_METHOD,
       {byRefBool, ctrl},
       DISP_E_UNKNOWNINTERFACE},
      {"a property get",
       1,
       &IID_NULL,
       DISPATCH_PROPERTYGET,
       {byRefBool, ctrl},
       DISP_E_MEMBERNOTFOUND},
      {"one argument", 1, &IID_NULL, DISPATCH_METHOD, {ctrl}, DISP_E_BADPARAMCOUNT},
      {"arguments in written order",
       1,
       &IID_NULL,
       DISPATCH_METHOD,
       {ctrl, byRefBool},
       DISP_E_TYPEMISMATCH},
      {"CancelDefault by value",
       1,
       &IID_NULL,
       DISPATCH_METHOD,
       {plainBool, ctrl},
       DISP_E_TYPEMISMATCH},
  };
  for (const Case& c : refused) {
    EXPECT_EQ(call(c.id, *c.iid, c.flags, c.args), c.hr) << c.what;
  }
  window().loop()->processPending();
  EXPECT_EQ(captured, 0);

  EXPECT_EQ(call(kDispIdClick, IID_NULL, DISPATCH_METHOD, {byRefBool, ctrl}), S_OK);
  EXPECT_EQ(cancel, VARIANT_FALSE);
  EXPECT_TRUE(window().loop()->runUntil([&] { return captured == 1; }, kPatience));
  EXPECT_EQ(configured, 0);
}

}  // namespace
}  // namespace PIM
