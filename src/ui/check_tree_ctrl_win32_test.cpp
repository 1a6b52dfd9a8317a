#include "ui/check_tree_ctrl_win32.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "core/utils.h"
#include "testing/test_support.h"
#include "ui/dialog_testing_win32.h"
#include "ui/dialog_win32.h"
#include "ui/ui_resources.h"

namespace PIM {
namespace {

using testing::LogCapture;

// A tree in a popup, taken over by a CheckTreeCtrl. Below the control's own
// hook sits a recorder: the mouse and key messages that the control passes
// on to the tree reach it, those it keeps do not.
class CheckTreeCtrlTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::canCreateWindows()) GTEST_SKIP() << "no window station to create windows in";
    INITCOMMONCONTROLSEX classes = {sizeof classes, ICC_TREEVIEW_CLASSES};
    InitCommonControlsEx(&classes);
    testing::useLanguageText(u"GROUP=Calendar\r\nFIELD=Subject \u05D0\r\n");
    parent_ = CreateWindowExW(0, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 50, 50, 320, 240, nullptr,
                              nullptr, GetModuleHandleW(nullptr), nullptr);
    tree_ = CreateWindowExW(
        0, WC_TREEVIEWW, L"",
        WS_CHILD | WS_VISIBLE | TVS_HASBUTTONS | TVS_HASLINES | TVS_LINESATROOT | TVS_SHOWSELALWAYS,
        0, 0, 320, 240, parent_, nullptr, GetModuleHandleW(nullptr), nullptr);
    ASSERT_NE(tree_, nullptr);
    SetWindowSubclass(tree_, &record, 1, reinterpret_cast<DWORD_PTR>(&passedOn_));
    ASSERT_TRUE(ctrl_.attach(tree_));
  }
  void TearDown() override {
    if (parent_) DestroyWindow(parent_);
    ResourceLoader::freeInstance();
  }

  static LRESULT CALLBACK record(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR,
                                 DWORD_PTR data) {
    if (message == WM_LBUTTONDOWN || message == WM_LBUTTONDBLCLK || message == WM_KEYDOWN) {
      reinterpret_cast<std::vector<UINT>*>(data)->push_back(message);
    }
    if (message == WM_NCDESTROY) RemoveWindowSubclass(window, &record, 1);
    return DefSubclassProc(window, message, wParam, lParam);
  }

  POINT stateIconPoint(HTREEITEM item) { return testing::stateIconPoint(tree_, item); }

  // The left of the item's text, where a state icon would end.
  POINT besideText(HTREEITEM item) {
    RECT r = {};
    *reinterpret_cast<HTREEITEM*>(&r) = item;
    SendMessageW(tree_, TVM_GETITEMRECT, TRUE, reinterpret_cast<LPARAM>(&r));
    return {r.left - 6, (r.top + r.bottom) / 2};
  }

  void mouse(UINT message, POINT at) {
    // The tree follows a press with a loop of its own until the button is
    // released; the release waits for it in the queue.
    PostMessageW(tree_, WM_LBUTTONUP, 0, MAKELPARAM(at.x, at.y));
    SendMessageW(tree_, message, MK_LBUTTON, MAKELPARAM(at.x, at.y));
    drain();
  }

  void key(UINT vk) {
    SendMessageW(tree_, WM_KEYDOWN, vk, 1);
    drain();
  }

  void drain() {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
  }

  std::u16string itemText(HTREEITEM item) {
    wchar_t buffer[64] = {};
    TVITEMW tv = {};
    tv.mask = TVIF_TEXT | TVIF_HANDLE;
    tv.hItem = item;
    tv.pszText = buffer;
    tv.cchTextMax = 64;
    TreeView_GetItem(tree_, &tv);
    return reinterpret_cast<const char16_t*>(buffer);
  }

  HWND parent_ = nullptr;
  HWND tree_ = nullptr;
  std::vector<UINT> passedOn_;
  CheckTreeCtrl ctrl_;
};

TEST_F(CheckTreeCtrlTest, AttachingInstallsTheFourCheckPictures) {
  HIMAGELIST states = TreeView_GetImageList(tree_, TVSIL_STATE);
  ASSERT_NE(states, nullptr);
  EXPECT_EQ(ImageList_GetImageCount(states), 4);
  int cx = 0, cy = 0;
  ImageList_GetIconSize(states, &cx, &cy);
  EXPECT_EQ(cx, 16);
  EXPECT_EQ(cy, 16);
  // One control per tree.
  CheckTreeCtrl second;
  EXPECT_FALSE(second.attach(tree_));
  EXPECT_FALSE(second.attach(nullptr));
}

TEST_F(CheckTreeCtrlTest, InsertedItemsCarryTextStateImageAndData) {
  HIMAGELIST folders = ImageList_LoadImageW(uiModule(), MAKEINTRESOURCEW(IDB_FOLDER_IMAGES), 16, 0,
                                            RGB(255, 255, 255), IMAGE_BITMAP, LR_CREATEDIBSECTION);
  ASSERT_NE(folders, nullptr);
  EXPECT_EQ(ImageList_GetImageCount(folders), 9);
  ctrl_.setImageList(folders);

  struct Case {
    const char16_t* key;
    int state;
    bool child;
    int image;
    LPARAM data;
    const char16_t* text;
  };
  const Case cases[] = {
      {u"GROUP", 0, false, 2, 11, u"Calendar"},
      {u"FIELD", 3, true, 1, 12, u"Subject \u05D0"},
      // A folder's name is no key: it stands as it is.
      {u"Inbox", 2, true, 0, 13, u"Inbox"},
      {u"Drafts", 1, true, 8, 14, u"Drafts"},
  };
  HTREEITEM root = nullptr;
  std::vector<HTREEITEM> children;
  for (const Case& c : cases) {
    SCOPED_TRACE(toUtf8(c.key));
    HTREEITEM item = ctrl_.insertItem(c.key, c.state, c.child ? root : TVI_ROOT, c.image, c.data);
    ASSERT_NE(item, nullptr);
    if (!c.child) root = item;
    if (c.child) children.push_back(item);
    TVITEMW tv = {};
    tv.mask = TVIF_HANDLE | TVIF_PARAM | TVIF_IMAGE | TVIF_SELECTEDIMAGE | TVIF_STATE;
    tv.hItem = item;
    tv.stateMask = TVIS_STATEIMAGEMASK;
    ASSERT_TRUE(TreeView_GetItem(tree_, &tv));
    EXPECT_EQ(itemText(item), c.text);
    EXPECT_EQ(tv.lParam, c.data);
    EXPECT_EQ(tv.iImage, c.image);
    EXPECT_EQ(tv.iSelectedImage, c.image);
    EXPECT_EQ(ctrl_.getCheckState(item), c.state);
    EXPECT_EQ(TreeView_GetParent(tree_, item), c.child ? root : nullptr);
  }
  // Each child went last.
  std::vector<HTREEITEM> order;
  for (HTREEITEM i = TreeView_GetChild(tree_, root); i; i = TreeView_GetNextSibling(tree_, i)) {
    order.push_back(i);
  }
  EXPECT_EQ(order, children);
  // The normal pictures came in beside the boxes, not in their place.
  EXPECT_EQ(TreeView_GetImageList(tree_, TVSIL_NORMAL), folders);
  HIMAGELIST states = TreeView_GetImageList(tree_, TVSIL_STATE);
  ASSERT_NE(states, nullptr);
  EXPECT_EQ(ImageList_GetImageCount(states), 4);
  TreeView_Expand(tree_, root, TVE_EXPAND);
  EXPECT_NE(stateIconPoint(children[1]).x, -1);
  ctrl_.setImageList(nullptr);
  EXPECT_EQ(TreeView_GetImageList(tree_, TVSIL_STATE), states);
  ImageList_Destroy(folders);
}

TEST_F(CheckTreeCtrlTest, ClickOnTheBoxTogglesOnlyUncheckedAndChecked) {
  struct Case {
    int state;
    int after;
    bool passedOn;  // the tree saw the press
  };
  const Case cases[] = {
      {1, 2, false}, {2, 1, false}, {3, 3, true}, {0, 0, true}, {4, 4, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "state " << c.state);
    TreeView_DeleteAllItems(tree_);
    HTREEITEM other = ctrl_.insertItem(u"GROUP", 1);
    HTREEITEM item = ctrl_.insertItem(u"FIELD", 1);
    ASSERT_TRUE(other && item);
    POINT box = stateIconPoint(item);
    ASSERT_NE(box.x, -1);
    // State 0 has no box: the press lands where the box of the others is.
    ctrl_.setCheckState(item, c.state);
    TreeView_SelectItem(tree_, other);
    passedOn_.clear();
    LogCapture log;

    mouse(WM_LBUTTONDOWN, box);

    EXPECT_EQ(ctrl_.getCheckState(item), c.after);
    EXPECT_EQ(!passedOn_.empty(), c.passedOn);
    // What the tree does with a press it gets is its own (Windows selects
    // the item, Wine's tree leaves a state icon's press alone); one kept
    // from it must not select.
    if (!c.passedOn) {
      EXPECT_EQ(TreeView_GetSelection(tree_), other);
    }
  }
}

TEST_F(CheckTreeCtrlTest, DoubleClickOnTheBoxTogglesTwice) {
  HTREEITEM item = ctrl_.insertItem(u"FIELD", 1);
  HTREEITEM child = ctrl_.insertItem(u"GROUP", 2, item);
  ASSERT_TRUE(item && child);
  POINT box = stateIconPoint(item);
  ASSERT_NE(box.x, -1);
  struct Step {
    UINT message;
    int after;
  };
  const Step steps[] = {
      {WM_LBUTTONDOWN, 2}, {WM_LBUTTONDBLCLK, 1}, {WM_LBUTTONDOWN, 2}, {WM_LBUTTONDBLCLK, 1}};
  for (const Step& s : steps) {
    mouse(s.message, box);
    EXPECT_EQ(ctrl_.getCheckState(item), s.after);
  }
  // None reached the tree: the item neither opened nor was selected.
  EXPECT_TRUE(passedOn_.empty());
  EXPECT_FALSE(TreeView_GetItemState(tree_, item, TVIS_EXPANDED) & TVIS_EXPANDED);
}

TEST_F(CheckTreeCtrlTest, ClickOnTheTextIsTheTreesOwn) {
  HTREEITEM other = ctrl_.insertItem(u"GROUP", 1);
  HTREEITEM item = ctrl_.insertItem(u"FIELD", 1);
  TreeView_SelectItem(tree_, other);
  RECT r = {};
  *reinterpret_cast<HTREEITEM*>(&r) = item;
  SendMessageW(tree_, TVM_GETITEMRECT, TRUE, reinterpret_cast<LPARAM>(&r));
  mouse(WM_LBUTTONDOWN, {r.left + 3, (r.top + r.bottom) / 2});
  EXPECT_EQ(ctrl_.getCheckState(item), 1);
  EXPECT_EQ(passedOn_, std::vector<UINT>{WM_LBUTTONDOWN});
  EXPECT_EQ(TreeView_GetSelection(tree_), item);
}

TEST_F(CheckTreeCtrlTest, SpaceTogglesTheSelectedItemAndIsAlwaysKept) {
  struct Case {
    int state;
    int after;
  };
  const Case cases[] = {{1, 2}, {2, 1}, {0, 0}, {3, 3}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << "state " << c.state);
    TreeView_DeleteAllItems(tree_);
    HTREEITEM item = ctrl_.insertItem(u"FIELD", c.state);
    TreeView_SelectItem(tree_, item);
    passedOn_.clear();
    key(VK_SPACE);
    EXPECT_EQ(ctrl_.getCheckState(item), c.after);
    EXPECT_TRUE(passedOn_.empty());
  }
}

TEST_F(CheckTreeCtrlTest, OtherKeysAndSpaceWithoutSelectionGoToTheTree) {
  HTREEITEM first = ctrl_.insertItem(u"GROUP", 1);
  HTREEITEM second = ctrl_.insertItem(u"FIELD", 1);
  key(VK_SPACE);
  EXPECT_EQ(passedOn_, std::vector<UINT>{WM_KEYDOWN});
  EXPECT_EQ(ctrl_.getCheckState(first), 1);
  TreeView_SelectItem(tree_, first);
  passedOn_.clear();
  key(VK_DOWN);
  EXPECT_EQ(passedOn_, std::vector<UINT>{WM_KEYDOWN});
  EXPECT_EQ(TreeView_GetSelection(tree_), second);
  EXPECT_EQ(ctrl_.getCheckState(first), 1);
  EXPECT_EQ(ctrl_.getCheckState(second), 1);
}

TEST_F(CheckTreeCtrlTest, InvalidStatesAndNullItemsAreLogged) {
  HTREEITEM item = ctrl_.insertItem(u"FIELD", 1);
  struct Case {
    const char* what;
    std::function<int()> act;
    int result;  // -1: none
    std::vector<std::string> messages;
  };
  const Case cases[] = {
      {"state 5 read back",
       [&] {
         ctrl_.setCheckState(item, 5);
         return ctrl_.getCheckState(item);
       },
       5,
       {"Assertion failed"}},
      {"state 15 read back",
       [&] {
         ctrl_.setCheckState(item, 15);
         return ctrl_.getCheckState(item);
       },
       15,
       {"Assertion failed"}},
      {"state 3 is valid",
       [&] {
         ctrl_.setCheckState(item, 3);
         return ctrl_.getCheckState(item);
       },
       3,
       {}},
      {"null item set",
       [&] {
         ctrl_.setCheckState(nullptr, 2);
         return -1;
       },
       -1,
       {"Assertion failed"}},
      {"null item read",
       [&] { return ctrl_.getCheckState(nullptr) < 4 ? -1 : -2; },
       -1,
       {"Assertion failed"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    LogCapture log;
    EXPECT_EQ(c.act(), c.result);
    EXPECT_EQ(log.messages(), c.messages);
  }
}

TEST_F(CheckTreeCtrlTest, LetsGoWhenTheTreeIsDestroyed) {
  EXPECT_EQ(ctrl_.hwnd(), tree_);
  DestroyWindow(tree_);
  EXPECT_EQ(ctrl_.hwnd(), nullptr);
  // A new tree can be taken over by the same control.
  HWND again = CreateWindowExW(0, WC_TREEVIEWW, L"", WS_CHILD | WS_VISIBLE, 0, 0, 100, 100, parent_,
                               nullptr, GetModuleHandleW(nullptr), nullptr);
  EXPECT_TRUE(ctrl_.attach(again));
  EXPECT_NE(TreeView_GetImageList(again, TVSIL_STATE), nullptr);
}

TEST_F(CheckTreeCtrlTest, ATreeThatOutlivesItsControlIsItsOwnAgain) {
  HWND tree = CreateWindowExW(0, WC_TREEVIEWW, L"", WS_CHILD | WS_VISIBLE, 0, 0, 100, 100, parent_,
                              nullptr, GetModuleHandleW(nullptr), nullptr);
  ASSERT_NE(tree, nullptr);
  std::vector<UINT> passedOn;
  SetWindowSubclass(tree, &record, 1, reinterpret_cast<DWORD_PTR>(&passedOn));
  HTREEITEM item = nullptr;
  {
    CheckTreeCtrl shortLived;
    ASSERT_TRUE(shortLived.attach(tree));
    item = shortLived.insertItem(u"FIELD", 1);
    TreeView_SelectItem(tree, item);
  }
  // No pictures left that went with the control, and keys reach the tree.
  EXPECT_EQ(TreeView_GetImageList(tree, TVSIL_STATE), nullptr);
  SendMessageW(tree, WM_KEYDOWN, VK_SPACE, 1);
  EXPECT_EQ(passedOn, std::vector<UINT>{WM_KEYDOWN});
  CheckTreeCtrl again;
  EXPECT_TRUE(again.attach(tree));
  EXPECT_EQ(again.getCheckState(item), 1);
}

}  // namespace
}  // namespace PIM
