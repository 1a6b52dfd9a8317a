#include "ui/dialog_win32.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ui/dialog_testing_win32.h"
#include "ui/ui_resources.h"

namespace PIM {
namespace {

using testing::canCreateWindows;
using testing::DialogWatchdog;

// What the user (or the dialog itself) does once the dialog runs; the first
// timer tick does it.
enum class Act { ClickOk, ClickCancel, PressEscape, CloseBox, EndWith42, HandleOkItself };

// A dialog over the progress template that records which handler the
// procedure reached, and with which window.
class Probe : public Dialog {
 public:
  explicit Probe(Act act) : Dialog(IDD_CAPTURE_PROGRESS), act_(act) {}

  std::vector<std::string> calls;
  HWND windowAtInit = nullptr;
  std::u16string buttonText;

 protected:
  BOOL OnInitDialog() override {
    calls.push_back("init");
    windowAtInit = hwnd();
    // The progress template's OK button is disabled; a click needs it on.
    enableItem(IDOK, true);
    setItemText(IDCANCEL, u"Stop \u05D0");
    buttonText = itemText(IDCANCEL);
    SetTimer(hwnd(), 7, 10, nullptr);
    return TRUE;
  }
  void OnTimer(UINT_PTR id) override {
    calls.push_back("timer " + std::to_string(id));
    KillTimer(hwnd(), id);
    switch (act_) {
      case Act::ClickOk:
      case Act::HandleOkItself:
        SendMessageW(item(IDOK), BM_CLICK, 0, 0);
        break;
      case Act::ClickCancel:
        SendMessageW(item(IDCANCEL), BM_CLICK, 0, 0);
        break;
      case Act::PressEscape:
        // What the dialog manager turns Escape into.
        SendMessageW(hwnd(), WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
        break;
      case Act::CloseBox:
        SendMessageW(hwnd(), WM_SYSCOMMAND, SC_CLOSE, 0);
        break;
      case Act::EndWith42:
        EndDialog(42);
        break;
    }
  }
  bool OnCommand(int id, int) override {
    if (act_ == Act::HandleOkItself && id == IDOK) {
      calls.push_back("command ok");
      EndDialog(5);
      return true;
    }
    return false;
  }
  void OnOK() override {
    calls.push_back("ok");
    Dialog::OnOK();
  }
  void OnCancel() override {
    calls.push_back("cancel");
    Dialog::OnCancel();
  }

 private:
  Act act_;
};

TEST(DialogTest, HandlersReachTheObjectAndTheResultComesBack) {
  if (!canCreateWindows()) GTEST_SKIP() << "no window station to create windows in";
  struct Case {
    const char* name;
    Act act;
    INT_PTR result;
    std::vector<std::string> calls;
  };
  const Case cases[] = {
      {"OK button", Act::ClickOk, IDOK, {"init", "timer 7", "ok"}},
      {"cancel button", Act::ClickCancel, IDCANCEL, {"init", "timer 7", "cancel"}},
      {"escape", Act::PressEscape, IDCANCEL, {"init", "timer 7", "cancel"}},
      {"close box", Act::CloseBox, IDCANCEL, {"init", "timer 7", "cancel"}},
      {"own end", Act::EndWith42, 42, {"init", "timer 7"}},
      {"command handled first", Act::HandleOkItself, 5, {"init", "timer 7", "command ok"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    DialogWatchdog watchdog;
    Probe probe(c.act);
    EXPECT_EQ(probe.DoModal(), c.result);
    EXPECT_FALSE(watchdog.fired());
    EXPECT_EQ(probe.calls, c.calls);
    EXPECT_NE(probe.windowAtInit, nullptr);
    EXPECT_EQ(probe.buttonText, u"Stop \u05D0");
    // The window is gone and the object knows it.
    EXPECT_EQ(probe.hwnd(), nullptr);
    EXPECT_FALSE(IsWindow(probe.windowAtInit));
  }
}

TEST(DialogTest, MissingTemplateAnswersMinusOne) {
  if (!canCreateWindows()) GTEST_SKIP() << "no window station to create windows in";
  class Missing : public Dialog {
   public:
    Missing() : Dialog(999) {}
  } missing;
  EXPECT_EQ(missing.DoModal(), -1);
}

// A page over the about box's template (the sheet makes any template a
// child): its tab shows the template's caption.
class ProbePage : public PropertyPage {
 public:
  ProbePage() : PropertyPage(IDD_ABOUTBOX) {}

  HWND windowAtInit = nullptr;
  std::u16string tabText;
  bool sheetHasHelp = false;

 protected:
  BOOL OnInitDialog() override {
    windowAtInit = hwnd();
    SetTimer(hwnd(), 3, 10, nullptr);
    return TRUE;
  }
  void OnTimer(UINT_PTR id) override {
    KillTimer(hwnd(), id);
    HWND sheet = GetParent(hwnd());
    HWND tabs = reinterpret_cast<HWND>(SendMessageW(sheet, PSM_GETTABCONTROL, 0, 0));
    wchar_t buffer[64] = {};
    TCITEMW tab = {};
    tab.mask = TCIF_TEXT;
    tab.pszText = buffer;
    tab.cchTextMax = 64;
    SendMessageW(tabs, TCM_GETITEMW, 0, reinterpret_cast<LPARAM>(&tab));
    tabText = reinterpret_cast<const char16_t*>(buffer);
    HWND help = GetDlgItem(sheet, IDHELP);
    sheetHasHelp = help && IsWindowVisible(help) && IsWindowEnabled(help);
    SendMessageW(sheet, PSM_PRESSBUTTON, PSBTN_CANCEL, 0);
  }
};

TEST(PropertyPageTest, PageObjectGetsItsWindowAndTheTemplateCaptionIsTheTab) {
  if (!canCreateWindows()) GTEST_SKIP() << "no window station to create windows in";
  DialogWatchdog watchdog;
  ProbePage page;
  HPROPSHEETPAGE pages[] = {page.create(true)};
  ASSERT_NE(pages[0], nullptr);
  PROPSHEETHEADERW header = {};
  header.dwSize = sizeof header;
  header.dwFlags = PSH_NOAPPLYNOW | PSH_HASHELP;
  header.pszCaption = L"Sheet";
  header.nPages = 1;
  header.phpage = pages;
  EXPECT_EQ(PropertySheetW(&header), 0);  // cancelled
  EXPECT_FALSE(watchdog.fired());
  EXPECT_NE(page.windowAtInit, nullptr);
  EXPECT_EQ(page.tabText, u"About");
  EXPECT_TRUE(page.sheetHasHelp);
  EXPECT_EQ(page.hwnd(), nullptr);
}

}  // namespace
}  // namespace PIM
