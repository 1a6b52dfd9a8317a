// What the Data and Folders pages share of their trees: the check tree seen
// through the portable rules' interface, and the image strip of kinds of
// folders.
#pragma once

#include <windows.h>

#include <commctrl.h>

#include "ui/check_tree_ctrl_win32.h"
#include "ui/check_tree_sink.h"

namespace PIM {

class CheckTreeCtrlSink : public CheckTreeSink {
 public:
  explicit CheckTreeCtrlSink(CheckTreeCtrl& tree) : tree_(tree) {}
  Item insertItem(const std::u16string& key, int state, Item parent, int image) override {
    return tree_.insertItem(key, state, parent ? static_cast<HTREEITEM>(parent) : TVI_ROOT, image);
  }
  int getCheckState(Item item) const override {
    return tree_.getCheckState(static_cast<HTREEITEM>(item));
  }
  void expand(Item item) override {
    SendMessageW(tree_.hwnd(), TVM_EXPAND, TVE_EXPAND, reinterpret_cast<LPARAM>(item));
  }

 private:
  CheckTreeCtrl& tree_;
};

// The nine 16 x 16 images of bitmap IDB_FOLDER_IMAGES (white transparent):
// calendar 2, contacts 3, e-mail 4, tasks 5, store 6, loading 7, other 8.
class FolderImages {
 public:
  FolderImages();
  ~FolderImages();
  FolderImages(const FolderImages&) = delete;
  FolderImages& operator=(const FolderImages&) = delete;
  HIMAGELIST get() const { return list_; }

 private:
  HIMAGELIST list_ = nullptr;
};

}  // namespace PIM
