// A stand-in for the part of Office's object model an Outlook add-in reaches
// late-bound: Application → ActiveExplorer() → CommandBars → Item(n) →
// Controls → Add(...) → a button with its properties and its Click event.
//
// Every object is a hand-written IDispatch: GetIDsOfNames knows the English
// member names (case-insensitive, as Office's are), Invoke checks the invoke
// kind, the argument count and each argument's exact variant type and fails
// the way an automation server does (DISP_E_MEMBERNOTFOUND,
// DISP_E_BADPARAMCOUNT, DISP_E_TYPEMISMATCH with puArgErr, DISP_E_BADINDEX,
// DISP_E_PARAMNOTFOUND for a property put without the named DISPID_PROPERTYPUT).
// What the model accepts, per object:
//   Application  QI IUnknown, IDispatch, _Application; method ActiveExplorer()
//   Explorer     propget CommandBars
//   CommandBars  propget Count (VT_I4); propget Item(VT_I4, 1-based)
//   CommandBar   propget Name (VT_BSTR), Controls
//   Controls     propget Count; method Add(Type VT_I4 1, Id missing, Parameter
//                missing, Before VT_I4 in 1..Count+1, Temporary VT_I2) where
//                "missing" is VT_ERROR DISP_E_PARAMNOTFOUND
//   Button       QI _CommandBarButton and IConnectionPointContainer; propput
//                and propget Caption, TooltipText, DescriptionText (VT_BSTR),
//                FaceId, Style (VT_I4), Visible (VT_BOOL), propput/putref
//                Picture, Mask (VT_DISPATCH answering IPictureDisp)
//   Connection   FindConnectionPoint(_CommandBarButtonEvents); Advise QIs the
//                sink for that dispatch interface (CONNECT_E_CANNOTCONNECT if
//                it has none); Unadvise(cookie)
// A click calls each advised sink's Invoke(DISPID 1, DISPATCH_METHOD) with
// rgvarg[1] = VT_DISPATCH the button, rgvarg[0] = VT_BOOL|VT_BYREF CancelDefault.
//
// Threading: one thread, the one that made the `Office` (Office's objects
// live in Outlook's main apartment). Nothing is locked.
//
// Lifetime: the `Office` holds a reference to every object it made, as Office
// keeps its bars and controls; the objects share the model's state, so a
// reference the add-in keeps after the `Office` is gone stays safe to call
// (RPC_E_DISCONNECTED, as for a host that went away) and to release. The
// destructor drops the model's own references and every sink and picture
// still held.
#pragma once

#include <ocidl.h>
#include <oleauto.h>
#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace OfficeModel {

// Office's identifiers the model answers to.
inline constexpr IID kIidApplication = {
    0x00063001, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID kIidCommandBarButton = {
    0x000C030E, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID kDiidCommandBarButtonEvents = {
    0x000C0351, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// One command bar: its name and how many controls it holds before any add-in
// adds one (a button appended to it gets index existingControls + 1).
struct BarSpec {
  std::wstring name;
  int existingControls = 0;
};

// How the model is built and where it is told to fail.
struct Settings {
  std::vector<BarSpec> bars{{L"Standard", 0}};
  int failItem = 0;                // CommandBars.Item(failItem) fails with E_FAIL (0 = none)
  bool failApplicationQi = false;  // QI for _Application gives E_NOINTERFACE
  bool failAdd = false;            // Controls.Add fails with E_FAIL (after its type checks)
  bool failAdvise = false;         // Advise fails with CONNECT_E_ADVISELIMIT
};

// A picture as set on a button, in pixels (from the HBITMAP of a bitmap
// picture, else from IPicture's HIMETRIC size at 96 dpi).
struct PictureSize {
  int width = 0;
  int height = 0;
  bool operator==(const PictureSize&) const = default;
};

// What an add-in made of one button. Text is UTF-8. Unset properties are
// empty optionals.
struct ButtonInfo {
  int number = 0;          // 1-based, in the order the buttons were added
  std::string bar;         // the bar's name
  int barIndex = 0;        // 1-based position of that bar in CommandBars
  int index = 0;           // 1-based position among the bar's controls now
  int type = 0;            // Add's Type
  bool temporary = false;  // Add's Temporary
  std::optional<std::string> caption, tooltip, description;
  std::optional<long> faceId, style;
  std::optional<bool> visible;
  std::optional<PictureSize> picture, mask;
  int sinks = 0;  // sinks advised and not unadvised
};

class State;

class Office {
 public:
  explicit Office(Settings settings = {});
  ~Office();
  Office(const Office&) = delete;
  Office& operator=(const Office&) = delete;

  // The Application object, as Outlook hands it to OnConnection. No
  // reference is added; it lives as long as this `Office`.
  IDispatch* application() const noexcept;

  // The buttons added so far, in the order they were added.
  std::vector<ButtonInfo> buttons() const;

  // Every call the add-in made on the model, in order, one line each, e.g.
  //   CommandBars.Item(2) hr=0x80004005
  //   CommandBar#1.Name hr=0x00000000 -> VT_BSTR "Standard"
  //   Controls#1.Add(VT_I4 1, missing, missing, VT_I4 1, VT_I2 -1) hr=0x00000000 -> VT_DISPATCH
  //   Button#1.Caption=VT_BSTR "Capture" hr=0x00000000
  //   Button#1.Picture=VT_DISPATCH 16x16 hr=0x00000000
  //   Button#1.Advise hr=0x00000000 cookie=1
  // Objects are numbered from 1: CommandBar#n / Controls#n by bar position,
  // Button#n in the order added. Failed GetIDsOfNames calls are logged, and
  // clicks made through click() ("Button#1.Click sinks=1 hr=... cancel=0").
  const std::vector<std::string>& calls() const noexcept;
  void clearCalls() noexcept;

  // Fires Click on button `number` (1-based, as in ButtonInfo) to every sink
  // advised on it, in the order they were advised. Returns E_INVALIDARG for
  // an unknown number, else the first failing Invoke's result or S_OK.
  // `cancelDefault` (optional) receives what the sinks left in CancelDefault.
  HRESULT click(int number, bool* cancelDefault = nullptr);

  // References to the model's objects held by others than the model itself
  // (the add-in, the caller). 0 once the add-in has released all it took.
  long outstandingReferences() const noexcept;

 private:
  std::shared_ptr<State> state_;
};

// A small IDispatch for OnConnection's AddInInst: propget ProgId and
// Description (VT_BSTR), propget/propput Connect (VT_BOOL). The reference
// returned is the caller's.
IDispatch* makeAddInInstance(const std::wstring& progId, const std::wstring& description);

// Text helpers for the inspection output.
std::string toUtf8(const std::wstring& text);
std::string toUtf8(const wchar_t* text, size_t length);
std::wstring fromUtf8(const std::string& text);

}  // namespace OfficeModel
