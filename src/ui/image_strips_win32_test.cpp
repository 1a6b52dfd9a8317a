// The trees' image strips as the module carries them: the sizes and colour
// depths the image lists are made for.
#include <gtest/gtest.h>

#include "ui/dialog_win32.h"
#include "ui/ui_resources.h"

namespace PIM {
namespace {

TEST(ImageStripTest, ImageStrips) {
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
