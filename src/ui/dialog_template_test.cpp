#include "ui/dialog_template.h"

#include <gtest/gtest.h>

namespace PIM {
namespace {

DialogTemplate aboutLike() {
  DialogTemplate d;
  d.extended = true;
  d.style = 0x80C800C8;  // popup, caption, system menu, modal frame, DS_SETFONT
  d.cx = 197;
  d.cy = 95;
  d.caption = u"About";
  d.pointSize = 8;
  d.typeface = u"Tahoma";
  DialogTemplate::Control ok;
  ok.id = 1;
  ok.style = 0x50010001;
  ok.x = 140;
  ok.y = 74;
  ok.cx = 50;
  ok.cy = 14;
  ok.classOrdinal = 0x80;
  ok.text = u"OK";
  DialogTemplate::Control tree;
  tree.id = 241;
  tree.x = 7;
  tree.y = -3;
  tree.cx = 255;
  tree.cy = 191;
  tree.className = u"SysTreeView32";
  d.controls = {ok, tree};
  return d;
}

TEST(DialogTemplateTest, ReadsBackWhatWasWritten) {
  const DialogTemplate d = aboutLike();
  const std::vector<uint8_t> bytes = encodeDialogTemplate(d);
  DialogTemplate back;
  std::string error;
  ASSERT_TRUE(parseDialogTemplate(bytes.data(), bytes.size(), back, error)) << error;
  EXPECT_TRUE(back.extended);
  EXPECT_EQ(back.style, d.style);
  EXPECT_EQ(back.caption, u"About");
  EXPECT_EQ(back.pointSize, 8);
  EXPECT_EQ(back.typeface, u"Tahoma");
  ASSERT_EQ(back.controls.size(), 2u);
  const auto& ok = back.controls[0];
  EXPECT_EQ(std::make_tuple(ok.id, ok.x, ok.y, ok.cx, ok.cy, ok.classOrdinal, ok.text),
            std::make_tuple(1u, int16_t{140}, int16_t{74}, int16_t{50}, int16_t{14}, uint16_t{0x80},
                            std::u16string(u"OK")));
  const auto& tree = back.controls[1];
  EXPECT_EQ(tree.className, u"SysTreeView32");
  EXPECT_EQ(tree.y, -3);
  EXPECT_EQ(tree.id, 241u);
}

// The plain form, as a DIALOG statement without a font gives it: style
// first, 16-bit control ids.
TEST(DialogTemplateTest, ReadsThePlainForm) {
  const uint8_t bytes[] = {
      0x00, 0x00, 0xC8, 0x80,  // style: popup | caption | sysmenu | modal frame
      0x00, 0x00, 0x00, 0x00,  // extended style
      0x01, 0x00,              // one control
      0x0A, 0x00, 0x14, 0x00, 0x64, 0x00, 0x32, 0x00,  // 10, 20, 100 x 50
      0x00, 0x00,                                      // no menu
      0x00, 0x00,                                      // dialog class
      'H',  0,    'i',  0,    0,    0,                 // caption "Hi"
      0x00, 0x00, 0x00, 0x50,                          // control style
      0x00, 0x00, 0x00, 0x00,                          // extended style
      0x07, 0x00, 0x07, 0x00, 0x1E, 0x00, 0x08, 0x00,  // 7, 7, 30 x 8
      0xD5, 0x00,                                      // id 213
      0xFF, 0xFF, 0x82, 0x00,                          // static
      'x',  0,    0,    0,                             // text "x"
      0x00, 0x00,                                      // no creation data
  };
  DialogTemplate d;
  std::string error;
  ASSERT_TRUE(parseDialogTemplate(bytes, sizeof bytes, d, error)) << error;
  EXPECT_FALSE(d.extended);
  EXPECT_EQ(d.style, 0x80C80000u);
  EXPECT_EQ(d.caption, u"Hi");
  ASSERT_EQ(d.controls.size(), 1u);
  EXPECT_EQ(d.controls[0].id, 213u);
  EXPECT_EQ(d.controls[0].classOrdinal, 0x82);
  EXPECT_EQ(d.controls[0].cx, 30);
}

TEST(DialogTemplateTest, EveryShortenedTemplateIsRefusedWithItsPlace) {
  const std::vector<uint8_t> bytes = encodeDialogTemplate(aboutLike());
  for (size_t size = 0; size < bytes.size(); ++size) {
    DialogTemplate d;
    std::string error;
    EXPECT_FALSE(parseDialogTemplate(bytes.data(), size, d, error)) << size;
    EXPECT_NE(error.find("template ends at byte"), std::string::npos) << size;
  }
}

}  // namespace
}  // namespace PIM
