#include "ui/flip_rtl.h"

#include <gtest/gtest.h>

namespace PIM {
namespace {

// A borderless parent, so its client area is its window rectangle.
class FlipRtlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    parent_ = CreateWindowExW(0, L"STATIC", L"", WS_POPUP, kLeft, kTop, kWidth, kHeight, nullptr,
                              nullptr, GetModuleHandleW(nullptr), nullptr);
    if (!parent_) GTEST_SKIP() << "no window station to create windows in";
  }
  void TearDown() override {
    if (parent_) DestroyWindow(parent_);
  }

  HWND child(HWND parent, int x, int y, int width, int height) {
    return CreateWindowExW(0, L"STATIC", L"", WS_CHILD | WS_VISIBLE, x, y, width, height, parent,
                           nullptr, GetModuleHandleW(nullptr), nullptr);
  }

  static RECT screenRect(HWND window) {
    RECT r = {};
    GetWindowRect(window, &r);
    return r;
  }

  static constexpr int kLeft = 100;
  static constexpr int kTop = 80;
  static constexpr int kWidth = 300;
  static constexpr int kHeight = 200;
  HWND parent_ = nullptr;
};

TEST_F(FlipRtlTest, MirrorsEveryChildWithinTheParent) {
  HWND left = child(parent_, 10, 20, 50, 15);
  HWND right = child(parent_, 200, 60, 80, 25);
  ASSERT_TRUE(left && right);

  FlipRTL(parent_);

  EXPECT_EQ(GetWindowLongPtrW(parent_, GWL_EXSTYLE) & WS_EX_LAYOUTRTL, WS_EX_LAYOUTRTL);
  // On screen each child now stands as far from the right edge as it stood
  // from the left, at the same height and size.
  RECT a = screenRect(left);
  EXPECT_EQ(a.left, kLeft + kWidth - 10 - 50);
  EXPECT_EQ(a.right - a.left, 50);
  EXPECT_EQ(a.top, kTop + 20);
  EXPECT_EQ(a.bottom - a.top, 15);
  RECT b = screenRect(right);
  EXPECT_EQ(b.left, kLeft + kWidth - 200 - 80);
  EXPECT_EQ(b.right - b.left, 80);
  EXPECT_EQ(b.top, kTop + 60);
  EXPECT_EQ(GetWindowLongPtrW(left, GWL_EXSTYLE) & WS_EX_LAYOUTRTL, WS_EX_LAYOUTRTL);
}

TEST_F(FlipRtlTest, MirrorsGrandchildrenWithinTheirOwnParent) {
  HWND group = child(parent_, 20, 10, 120, 100);
  HWND inner = child(group, 5, 30, 40, 20);
  ASSERT_TRUE(group && inner);

  FlipRTL(parent_);

  RECT g = screenRect(group);
  EXPECT_EQ(g.left, kLeft + kWidth - 20 - 120);
  RECT i = screenRect(inner);
  EXPECT_EQ(i.left, g.left + 120 - 5 - 40);
  EXPECT_EQ(i.top, g.top + 30);
  EXPECT_EQ(GetWindowLongPtrW(inner, GWL_EXSTYLE) & WS_EX_LAYOUTRTL, WS_EX_LAYOUTRTL);
}

}  // namespace
}  // namespace PIM
