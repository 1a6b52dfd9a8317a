// The about box's and the progress dialog's templates as the module carries
// them, control by control, and the trees' image strips.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ui/dialog_controls.h"
#include "ui/dialog_template.h"
#include "ui/dialog_testing_win32.h"
#include "ui/dialog_win32.h"
#include "ui/ui_resources.h"

namespace PIM {
namespace {

constexpr uint16_t kButton = 0x80;
constexpr uint16_t kStatic = 0x82;

struct Expected {
  uint32_t id;
  uint16_t classOrdinal;  // 0: by name
  const char16_t* className;
  int16_t x, y, cx, cy;
  bool visible;
  bool enabled;
};

void expectTemplate(UINT id, int16_t cx, int16_t cy, const std::vector<Expected>& controls) {
  DialogTemplate dialog;
  std::string error;
  ASSERT_TRUE(testing::loadDialogTemplate(id, dialog, error)) << error;
  EXPECT_EQ(dialog.style & (DS_MODALFRAME | WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_CHILD),
            static_cast<uint32_t>(DS_MODALFRAME | WS_POPUP | WS_CAPTION | WS_SYSMENU));
  EXPECT_EQ(dialog.cx, cx);
  EXPECT_EQ(dialog.cy, cy);
  EXPECT_EQ(dialog.pointSize, 8);
  EXPECT_EQ(dialog.typeface, u"Tahoma");
  ASSERT_EQ(dialog.controls.size(), controls.size());
  for (size_t i = 0; i < controls.size(); ++i) {
    const Expected& e = controls[i];
    const DialogTemplate::Control& c = dialog.controls[i];
    SCOPED_TRACE("control " + std::to_string(e.id));
    EXPECT_EQ(c.id, e.id);
    EXPECT_EQ(c.classOrdinal, e.classOrdinal);
    if (!e.classOrdinal) {
      EXPECT_EQ(c.className, e.className);
    }
    EXPECT_EQ(c.x, e.x);
    EXPECT_EQ(c.y, e.y);
    EXPECT_EQ(c.cx, e.cx);
    EXPECT_EQ(c.cy, e.cy);
    EXPECT_EQ((c.style & WS_VISIBLE) != 0, e.visible);
    EXPECT_EQ((c.style & WS_DISABLED) == 0, e.enabled);
  }
}

TEST(DialogResourcesTest, AboutBoxTemplate) {
  expectTemplate(IDD_ABOUTBOX, 197, 95,
                 {
                     {IDOK, kButton, nullptr, 140, 74, 50, 14, true, true},
                     {IDC_ABOUT_PRODUCT, kStatic, nullptr, 7, 20, 183, 8, true, true},
                     {IDC_ABOUT_COPYRIGHT, kStatic, nullptr, 7, 30, 183, 8, true, true},
                     {IDC_ABOUT_VERSION_LABEL, kStatic, nullptr, 7, 48, 61, 8, true, true},
                     {IDC_ABOUT_BUILD_LABEL, kStatic, nullptr, 7, 56, 61, 8, false, true},
                     {IDC_ABOUT_DATE_LABEL, kStatic, nullptr, 7, 64, 61, 8, false, true},
                     {IDC_ABOUT_VERSION, kStatic, nullptr, 75, 48, 115, 8, true, true},
                     {IDC_ABOUT_BUILD, kStatic, nullptr, 75, 56, 115, 8, false, true},
                     {IDC_ABOUT_DATE, kStatic, nullptr, 75, 64, 115, 8, false, true},
                 });
}

TEST(DialogResourcesTest, CaptureProgressTemplate) {
  expectTemplate(IDD_CAPTURE_PROGRESS, 222, 70,
                 {
                     {IDCANCEL, kButton, nullptr, 165, 48, 50, 14, true, true},
                     {IDOK, kButton, nullptr, 7, 48, 50, 14, false, false},
                     {IDC_PROGRESS_EXPLANATION, kStatic, nullptr, 7, 7, 208, 25, true, true},
                     {IDC_PROGRESS_REMAINING, kStatic, nullptr, 7, 36, 208, 8, true, true},
                     // The resource compiler stores class names in capitals; the window
                     // system compares them without case.
                     {IDC_PROGRESS_BAR, 0, u"MSCTLS_PROGRESS32", 7, 50, 154, 11, true, true},
                 });
}

TEST(DialogResourcesTest, ImageStrips) {
  struct Strip {
    UINT id;
    int width;
    int bits;
  };
  for (const Strip& s : {Strip{IDB_CHECK_STATES, 64, 4}, Strip{IDB_FOLDER_IMAGES, 144, 24}}) {
    SCOPED_TRACE(s.id);
    HRSRC found = FindResourceW(uiModule(), MAKEINTRESOURCEW(s.id), MAKEINTRESOURCEW(2));
    ASSERT_NE(found, nullptr);
    const auto* info =
        static_cast<const BITMAPINFOHEADER*>(LockResource(LoadResource(uiModule(), found)));
    ASSERT_NE(info, nullptr);
    ASSERT_GE(SizeofResource(uiModule(), found), sizeof *info);
    EXPECT_EQ(info->biWidth, s.width);
    EXPECT_EQ(info->biHeight, 16);
    EXPECT_EQ(info->biBitCount, s.bits);
  }
}

}  // namespace
}  // namespace PIM
