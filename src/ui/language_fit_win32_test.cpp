// Every shipped language's texts fit the controls that show them: the
// dialogs keep the size of their templates whatever the language, so a
// translation that runs long is cut off on screen. Measured in the
// controls' own font, on real windows made from the templates.
#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/resource_loader.h"
#include "core/utils.h"
#include "ui/dialog_controls.h"
#include "ui/page_controls.h"
#include "ui/ui_resources.h"

namespace PIM {
namespace {

enum class Kind {
  Label,    // one line
  Wrapped,  // as many lines as the control is high
  Radio,    // one line after the round box
  Button,   // one line inside the button's frame
};

struct Shown {
  int dialog;
  int control;
  const char16_t* key;
  Kind kind;
};

// The placeholders as the longest texts they become.
const Shown kShown[] = {
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_FREQUENCY, u"PREFERENCES_CAPTURE_FREQUENCY", Kind::Wrapped},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_AUTOMATIC, u"PREFERENCES_CAPTURE_FREQUENCY_AUTO", Kind::Radio},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_EVERY, u"PREFERENCES_CAPTURE_FREQUENCY_EVERY", Kind::Label},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_MINUTES, u"PREFERENCES_CAPTURE_FREQUENCY_MINUTES", Kind::Label},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_STARTUP, u"PREFERENCES_CAPTURE_FREQUENCY_STARTUP", Kind::Radio},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_MANUALLY, u"PREFERENCES_CAPTURE_FREQUENCY_MANUALLY",
     Kind::Radio},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_CALENDAR, u"PREFERENCES_CAPTURE_CALENDAR", Kind::Label},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_BEFORE, u"PREFERENCES_CAPTURE_CALENDAR_BEFORE", Kind::Label},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_AFTER, u"PREFERENCES_CAPTURE_CALENDAR_AFTER", Kind::Label},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_TASKS_HEADING, u"PREFERENCES_CAPTURE_TASKS", Kind::Label},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_TASKS_ITEMS, u"PREFERENCES_CAPTURE_TASKS_ITEMS", Kind::Label},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_EMAILS_HEADING, u"PREFERENCES_CAPTURE_EMAILS", Kind::Label},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_EMAILS_ITEMS, u"PREFERENCES_CAPTURE_EMAILS_ITEMS", Kind::Label},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_NOW, u"PREFERENCES_CAPTURE", Kind::Button},
    {IDD_CAPTURE_PAGE, IDC_CAPTURE_ABOUT, u"PREFERENCES_ABOUT", Kind::Button},
    {IDD_DATA_PAGE, IDC_DATA_TITLE, u"PREFERENCES_DATA_TITLE", Kind::Label},
    {IDD_FOLDER_PAGE, IDC_FOLDERS_TITLE, u"PREFERENCES_FOLDERS_TITLE", Kind::Label},
    {IDD_CAPTURE_PROGRESS, IDCANCEL, u"CAPTURE_PROGRESS_CANCEL", Kind::Button},
    {IDD_CAPTURE_PROGRESS, IDC_PROGRESS_EXPLANATION, u"CAPTURE_PROGRESS_NORMAL", Kind::Wrapped},
    {IDD_CAPTURE_PROGRESS, IDC_PROGRESS_EXPLANATION, u"CAPTURE_PROGRESS_SHUTDOWN", Kind::Wrapped},
    {IDD_CAPTURE_PROGRESS, IDC_PROGRESS_REMAINING, u"CAPTURE_PROGRESS_ESTIMATING", Kind::Label},
    {IDD_CAPTURE_PROGRESS, IDC_PROGRESS_REMAINING, u"CAPTURE_PROGRESS_REMAINING_MINUTES",
     Kind::Label},
    {IDD_CAPTURE_PROGRESS, IDC_PROGRESS_REMAINING, u"CAPTURE_PROGRESS_REMAINING_SECONDS",
     Kind::Label},
    {IDD_CAPTURE_PROGRESS, IDC_PROGRESS_REMAINING, u"CAPTURE_PROGRESS_REMAINING_LESSTHANTEN",
     Kind::Label},
    {IDD_ABOUTBOX, IDOK, u"PREFERENCES_OK", Kind::Button},
    {IDD_ABOUTBOX, IDC_ABOUT_PRODUCT, u"ABOUT_PRODUCT_NAME", Kind::Label},
    {IDD_ABOUTBOX, IDC_ABOUT_COPYRIGHT, u"ABOUT_COPYRIGHT", Kind::Label},
    {IDD_ABOUTBOX, IDC_ABOUT_VERSION_LABEL, u"ABOUT_VERSION", Kind::Label},
    {IDD_ABOUTBOX, IDC_ABOUT_BUILD_LABEL, u"ABOUT_BUILD", Kind::Label},
    {IDD_ABOUTBOX, IDC_ABOUT_DATE_LABEL, u"ABOUT_DATE", Kind::Label},
};

INT_PTR CALLBACK inertDialog(HWND, UINT, WPARAM, LPARAM) { return FALSE; }

struct WindowOwner {
  HWND h = nullptr;
  ~WindowOwner() {
    if (h) DestroyWindow(h);
  }
};

class LanguageFitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    parent_.h = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 600, 500, nullptr, nullptr,
                                GetModuleHandleW(nullptr), nullptr);
    if (!parent_.h) GTEST_SKIP() << "no window station to create windows in";
  }
  void TearDown() override { ResourceLoader::freeInstance(); }

  HWND dialog(int id) {
    for (auto& made : dialogs_) {
      if (made.first == id) return made.second->h;
    }
    auto owner = std::make_unique<WindowOwner>();
    owner->h = CreateDialogParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(id), parent_.h,
                                  inertDialog, 0);
    HWND made = owner->h;
    dialogs_.emplace_back(id, std::move(owner));
    return made;
  }

  // How much wider (or, wrapped, higher) than the room it has the text is,
  // in pixels; 0 or less when it fits.
  static int overflow(HWND control, const std::wstring& text, Kind kind) {
    RECT room = {};
    GetClientRect(control, &room);
    int width = room.right;
    if (kind == Kind::Radio) width -= GetSystemMetrics(SM_CXMENUCHECK) + 4;
    if (kind == Kind::Button) width -= 2 * GetSystemMetrics(SM_CXEDGE) + 4;
    HDC dc = GetDC(control);
    HGDIOBJ old =
        SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)));
    RECT needed = {0, 0, width, 0};
    UINT flags = DT_CALCRECT | DT_NOPREFIX | (kind == Kind::Wrapped ? DT_WORDBREAK : DT_SINGLELINE);
    DrawTextW(dc, text.c_str(), -1, &needed, flags);
    SelectObject(dc, old);
    ReleaseDC(control, dc);
    return kind == Kind::Wrapped ? needed.bottom - room.bottom : needed.right - width;
  }

  static std::wstring fontFace(HWND control) {
    HDC dc = GetDC(control);
    HGDIOBJ old =
        SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)));
    wchar_t face[LF_FACESIZE] = {};
    GetTextFaceW(dc, LF_FACESIZE, face);
    SelectObject(dc, old);
    ReleaseDC(control, dc);
    return face;
  }

  WindowOwner parent_;
  std::vector<std::pair<int, std::unique_ptr<WindowOwner>>> dialogs_;
};

TEST_F(LanguageFitTest, EveryShippedTextFitsItsControl) {
  HWND page = dialog(IDD_CAPTURE_PAGE);
  ASSERT_NE(page, nullptr);
  // Other fonts measure differently: the widths hold for the templates' own.
  const std::wstring face = fontFace(GetDlgItem(page, IDC_CAPTURE_BEFORE));
  if (face != L"Tahoma") {
    GTEST_SKIP() << "no Tahoma font to measure with ("
                 << toUtf8(std::u16string(face.begin(), face.end())) << " instead)";
  }
  int files = 0;
  for (const auto& file :
       std::filesystem::directory_iterator(std::filesystem::path(getDllPath() + u"Language"))) {
    ++files;
    SCOPED_TRACE(file.path().filename().string());
    ResourceLoader::freeInstance();
    ResourceLoader* strings = ResourceLoader::instance();
    strings->readResourceString(file.path().u16string());
    ASSERT_FALSE(strings->strings().empty());
    for (const Shown& shown : kShown) {
      HWND window = dialog(shown.dialog);
      ASSERT_NE(window, nullptr) << shown.dialog;
      HWND control = GetDlgItem(window, shown.control);
      ASSERT_NE(control, nullptr) << shown.control;
      std::u16string text = strReplace(strings->getStringValue(shown.key, u""), u"%1", u"99");
      EXPECT_NE(text, u"") << toUtf8(shown.key);
      EXPECT_LE(overflow(control, std::wstring(text.begin(), text.end()), shown.kind), 0)
          << toUtf8(shown.key) << ": \"" << toUtf8(text) << "\" does not fit";
    }
  }
  EXPECT_GE(files, 3);
}

}  // namespace
}  // namespace PIM
