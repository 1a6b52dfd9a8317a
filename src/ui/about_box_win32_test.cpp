#include "ui/about_box_win32.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "core/resource_loader.h"
#include "ui/dialog_controls.h"
#include "ui/dialog_testing_win32.h"

namespace PIM {
namespace {

constexpr char16_t kEnglish[] =
    u"ABOUT_DIALOG_TITLE=About the logger\r\n"
    u"ABOUT_PRODUCT_NAME=PIM data logger\r\n"
    u"ABOUT_COPYRIGHT=All rights reserved.\r\n"
    u"ABOUT_VERSION=Version:\r\n"
    u"ABOUT_BUILD=Build:\r\n"
    u"ABOUT_DATE=Date:\r\n"
    u"PREFERENCES_OK=Close\r\n";
constexpr char16_t kHebrew[] =
    u"LANGUAGE_IS_RIGHTTOLEFT=true\r\n"
    u"ABOUT_DIALOG_TITLE=\u05D0\u05D5\u05D3\u05D5\u05EA\r\n"
    u"ABOUT_PRODUCT_NAME=\u05E8\u05D9\u05E9\u05D5\u05DD\r\n"
    u"ABOUT_COPYRIGHT=\u05DB\u05DC \u05D4\u05D6\u05DB\u05D5\u05D9\u05D5\u05EA\r\n"
    u"ABOUT_VERSION=\u05D2\u05E8\u05E1\u05D4:\r\n"
    u"ABOUT_BUILD=\u05D1\u05E0\u05D9\u05D4:\r\n"
    u"ABOUT_DATE=\u05EA\u05D0\u05E8\u05D9\u05DA:\r\n"
    u"PREFERENCES_OK=\u05E1\u05D2\u05D5\u05E8\r\n";
// Only the title and the button: the rest shows the lookup's empty text.
constexpr char16_t kPartial[] =
    u"ABOUT_DIALOG_TITLE=About\r\n"
    u"PREFERENCES_OK=OK\r\n";

using Texts = std::map<int, std::u16string>;

// The about box as it stands once shown: every text (0 is the title), which
// controls are visible, and whether the window was already mirrored when
// its title was set.
class ShownAboutBox : public AboutBox {
 public:
  Texts texts;
  std::vector<int> visible;
  bool mirrored = false;
  bool mirroredAtTitle = false;

 protected:
  BOOL OnInitDialog() override {
    const BOOL result = AboutBox::OnInitDialog();
    SetTimer(hwnd(), 1, 10, nullptr);
    return result;
  }
  void OnTimer(UINT_PTR id) override {
    KillTimer(hwnd(), id);
    wchar_t title[128] = {};
    GetWindowTextW(hwnd(), title, 128);
    texts[0] = reinterpret_cast<const char16_t*>(title);
    for (int control : {IDOK, IDC_ABOUT_PRODUCT, IDC_ABOUT_COPYRIGHT, IDC_ABOUT_VERSION_LABEL,
                        IDC_ABOUT_BUILD_LABEL, IDC_ABOUT_DATE_LABEL, IDC_ABOUT_VERSION,
                        IDC_ABOUT_BUILD, IDC_ABOUT_DATE}) {
      texts[control] = itemText(control);
      if (IsWindowVisible(item(control))) visible.push_back(control);
    }
    mirrored = (GetWindowLongPtrW(hwnd(), GWL_EXSTYLE) & WS_EX_LAYOUTRTL) != 0;
    SendMessageW(item(IDOK), BM_CLICK, 0, 0);
  }
  bool OnMessage(UINT message, WPARAM, LPARAM, INT_PTR&) override {
    if (message == WM_SETTEXT && texts.empty()) {
      mirroredAtTitle = (GetWindowLongPtrW(hwnd(), GWL_EXSTYLE) & WS_EX_LAYOUTRTL) != 0;
    }
    return false;
  }
};

TEST(AboutBoxTest, TextsFromTheLanguageVersionFixedBuildRowsHidden) {
  if (!testing::canCreateWindows()) GTEST_SKIP() << "no window station to create windows in";
  struct Case {
    const char* name;
    const char16_t* language;
    bool rtl;
    Texts texts;
  };
  const Case cases[] = {
      {"left to right",
       kEnglish,
       false,
       {{0, u"About the logger"},
        {IDOK, u"Close"},
        {IDC_ABOUT_PRODUCT, u"PIM data logger"},
        {IDC_ABOUT_COPYRIGHT, u"All rights reserved."},
        {IDC_ABOUT_VERSION_LABEL, u"Version:"},
        {IDC_ABOUT_BUILD_LABEL, u"Build:"},
        {IDC_ABOUT_DATE_LABEL, u"Date:"},
        {IDC_ABOUT_VERSION, u"1.00 A"},
        {IDC_ABOUT_BUILD, u""},
        {IDC_ABOUT_DATE, u"Jan 12 2007"}}},
      {"right to left",
       kHebrew,
       true,
       {{0, u"\u05D0\u05D5\u05D3\u05D5\u05EA"},
        {IDOK, u"\u05E1\u05D2\u05D5\u05E8"},
        {IDC_ABOUT_PRODUCT, u"\u05E8\u05D9\u05E9\u05D5\u05DD"},
        {IDC_ABOUT_COPYRIGHT, u"\u05DB\u05DC \u05D4\u05D6\u05DB\u05D5\u05D9\u05D5\u05EA"},
        {IDC_ABOUT_VERSION_LABEL, u"\u05D2\u05E8\u05E1\u05D4:"},
        {IDC_ABOUT_BUILD_LABEL, u"\u05D1\u05E0\u05D9\u05D4:"},
        {IDC_ABOUT_DATE_LABEL, u"\u05EA\u05D0\u05E8\u05D9\u05DA:"},
        {IDC_ABOUT_VERSION, u"1.00 A"},
        {IDC_ABOUT_BUILD, u""},
        {IDC_ABOUT_DATE, u"Jan 12 2007"}}},
      // The template's own texts stay where the language has none.
      {"keys missing",
       kPartial,
       false,
       {{0, u"About"},
        {IDOK, u"OK"},
        {IDC_ABOUT_PRODUCT, u"Product"},
        {IDC_ABOUT_COPYRIGHT, u"Copyright"},
        {IDC_ABOUT_VERSION_LABEL, u"Version"},
        {IDC_ABOUT_BUILD_LABEL, u"Build"},
        {IDC_ABOUT_DATE_LABEL, u"Date"},
        {IDC_ABOUT_VERSION, u"1.00 A"},
        {IDC_ABOUT_BUILD, u""},
        {IDC_ABOUT_DATE, u"Jan 12 2007"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    testing::useLanguageText(c.language);
    testing::DialogWatchdog watchdog;
    ShownAboutBox box;
    EXPECT_EQ(box.DoModal(), IDOK);
    EXPECT_FALSE(watchdog.fired());
    EXPECT_EQ(box.texts, c.texts);
    EXPECT_EQ(box.visible, (std::vector<int>{IDOK, IDC_ABOUT_PRODUCT, IDC_ABOUT_COPYRIGHT,
                                             IDC_ABOUT_VERSION_LABEL, IDC_ABOUT_VERSION}));
    EXPECT_EQ(box.mirrored, c.rtl);
    EXPECT_EQ(box.mirroredAtTitle, c.rtl) << "mirrored before the first text";
  }
  ResourceLoader::freeInstance();
}

}  // namespace
}  // namespace PIM
