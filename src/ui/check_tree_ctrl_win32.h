// A tree view whose items carry a check box drawn from the tree's state
// image list (bitmap IDB_CHECK_STATES). The check state of an item is its
// state-image index: 0 no box, 1 unchecked, 2 checked, 3 fixed. A click on
// the box or the space bar swaps 1 and 2; checks do not spread between
// parents and children.
//
//   CheckTreeCtrl tree;
//   tree.attach(GetDlgItem(page, IDC_DATA_TREE));   // in OnInitDialog
//   HTREEITEM root = tree.insertItem(u"PREFERENCES_DATA_CALENDAR", 0);
//   tree.insertItem(u"PREFERENCES_DATA_CALENDAR_BODY", 2, root, 0);
//
// Threads: the thread of the tree's window.
#pragma once

// windows.h first: the common controls' header builds on it.
#include <windows.h>

#include <commctrl.h>

#include <string>

namespace PIM {

class CheckTreeCtrl {
 public:
  CheckTreeCtrl() = default;
  // Lets go of the tree (which may already be gone) and frees the images.
  ~CheckTreeCtrl();
  CheckTreeCtrl(const CheckTreeCtrl&) = delete;
  CheckTreeCtrl& operator=(const CheckTreeCtrl&) = delete;

  // Takes over the tree control `tree` (a dialog's control): its mouse and
  // key messages come here first. False when `tree` is null or the
  // control is already taken over. The object lets go when the window is
  // destroyed.
  bool attach(HWND tree);
  HWND hwnd() const { return tree_; }

  // `imageList` (may be null) as the tree's normal images; the state
  // images stay. The caller keeps owning `imageList`.
  void setImageList(HIMAGELIST imageList);
  void setCheckState(HTREEITEM item, int state);
  int getCheckState(HTREEITEM item) const;
  // A last child of `parent` (TVI_ROOT: a top-level item) whose text is the
  // language string of `key` (the key itself when the language has none),
  // with check state `state`, parameter `data` and, unless 0, the normal
  // and selected image `image`. Null when the tree refused it.
  HTREEITEM insertItem(const std::u16string& key, int state, HTREEITEM parent = TVI_ROOT,
                       int image = 0, LPARAM data = 0);

  // True, with the item's box swapped, when (x, y) in the tree's client
  // area is on the state icon of an unchecked or checked item.
  bool handleIconClick(UINT flags, int x, int y);

 protected:
  // What attaching does before the messages come here (the framework's
  // PreSubclassWindow): the state images made and installed.
  void PreSubclassWindow();
  // True when the tree's own handling is to be skipped.
  bool OnLButtonDown(UINT flags, POINT point);
  bool OnLButtonDblClk(UINT flags, POINT point);
  bool OnKeyDown(UINT key, UINT repeat, UINT flags);

 private:
  static LRESULT CALLBACK subclassProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam,
                                       UINT_PTR id, DWORD_PTR data);
  void detach();

  HWND tree_ = nullptr;
  HIMAGELIST stateImages_ = nullptr;
};

}  // namespace PIM
