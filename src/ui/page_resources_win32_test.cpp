// The preferences pages' templates as the module carries them, control by
// control: numbers, kinds, places, sizes and states.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ui/dialog_template.h"
#include "ui/dialog_testing_win32.h"
#include "ui/dialog_win32.h"
#include "ui/page_controls.h"
#include "ui/ui_resources.h"

namespace PIM {
namespace {

std::u16string lower(std::u16string text) {
  for (char16_t& c : text)
    if (c >= u'A' && c <= u'Z') c = char16_t(c - u'A' + u'a');
  return text;
}

enum Kind { Static, Radio, GroupRadio, Edit, Push, Tree };

struct Expected {
  uint32_t id;
  Kind kind;
  int16_t x, y, cx, cy;
  bool enabled;
};

void expectPage(UINT id, const char16_t* caption, const std::vector<Expected>& controls) {
  DialogTemplate page;
  std::string error;
  ASSERT_TRUE(testing::loadDialogTemplate(id, page, error)) << error;
  EXPECT_EQ(page.style & (WS_CHILD | WS_CAPTION | WS_POPUP), uint32_t(WS_CHILD | WS_CAPTION));
  EXPECT_EQ(page.cx, 269);
  EXPECT_EQ(page.cy, 218);
  EXPECT_EQ(page.caption, caption);
  EXPECT_EQ(page.pointSize, 8);
  EXPECT_EQ(page.typeface, u"Tahoma");
  ASSERT_EQ(page.controls.size(), controls.size());
  for (size_t i = 0; i < controls.size(); ++i) {
    const Expected& e = controls[i];
    const DialogTemplate::Control& c = page.controls[i];
    SCOPED_TRACE("control " + std::to_string(e.id));
    EXPECT_EQ(c.id, e.id);
    EXPECT_EQ(c.x, e.x);
    EXPECT_EQ(c.y, e.y);
    EXPECT_EQ(c.cx, e.cx);
    EXPECT_EQ(c.cy, e.cy);
    EXPECT_TRUE(c.style & WS_VISIBLE);
    EXPECT_EQ((c.style & WS_DISABLED) == 0, e.enabled);
    const uint32_t type = c.style & BS_TYPEMASK;
    switch (e.kind) {
      case Static:
        EXPECT_EQ(c.classOrdinal, 0x82);
        break;
      case Radio:
      case GroupRadio:
        // A CONTROL statement names the class; the window system takes the
        // name as the ordinal.
        EXPECT_TRUE(c.classOrdinal == 0x80 || lower(c.className) == u"button") << c.classOrdinal;
        EXPECT_EQ(type, uint32_t(BS_AUTORADIOBUTTON));
        EXPECT_EQ((c.style & WS_GROUP) != 0, e.kind == GroupRadio);
        break;
      case Edit:
        EXPECT_EQ(c.classOrdinal, 0x81);
        break;
      case Push:
        EXPECT_EQ(c.classOrdinal, 0x80);
        EXPECT_EQ(type, uint32_t(BS_PUSHBUTTON));
        break;
      case Tree:
        EXPECT_EQ(lower(c.className), u"systreeview32");
        break;
    }
  }
}

TEST(PageResourcesTest, CapturePage) {
  expectPage(IDD_CAPTURE_PAGE, u"CAPTURE_TAB",
             {
                 {223, Static, 7, 7, 255, 17, true},   {214, GroupRadio, 21, 25, 241, 10, true},
                 {224, Static, 32, 42, 30, 8, false},  {217, Edit, 63, 39, 27, 14, false},
                 {225, Static, 94, 42, 168, 8, false}, {216, Radio, 21, 56, 241, 10, true},
                 {215, Radio, 21, 68, 241, 10, true},  {226, Static, 7, 84, 255, 10, true},
                 {218, Edit, 21, 97, 27, 14, true},    {227, Static, 52, 100, 207, 8, true},
                 {228, Edit, 21, 114, 27, 14, true},   {229, Static, 52, 117, 207, 8, true},
                 {230, Static, 7, 131, 255, 10, true}, {219, Edit, 21, 144, 27, 14, true},
                 {231, Static, 52, 147, 207, 8, true}, {232, Static, 7, 167, 255, 10, true},
                 {220, Edit, 21, 180, 27, 14, true},   {233, Static, 52, 183, 207, 8, true},
                 {221, Push, 4, 200, 78, 14, true},    {222, Push, 211, 200, 54, 14, true},
             });
}

TEST(PageResourcesTest, TreePages) {
  expectPage(IDD_DATA_PAGE, u"DATA_TAB",
             {{IDC_DATA_TITLE, Static, 7, 7, 255, 10, true},
              {IDC_DATA_TREE, Tree, 7, 20, 255, 191, true}});
  expectPage(IDD_FOLDER_PAGE, u"FOLDERS_TAB",
             {{IDC_FOLDERS_TITLE, Static, 7, 7, 255, 10, true},
              {IDC_FOLDERS_TREE, Tree, 7, 20, 255, 191, true}});
}

}  // namespace
}  // namespace PIM
