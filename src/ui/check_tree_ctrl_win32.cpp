#include "ui/check_tree_ctrl_win32.h"

#include <windowsx.h>

#include "core/debug_logger.h"
#include "core/resource_loader.h"
#include "core/stack_logger.h"
#include "ui/check_state.h"
#include "ui/dialog_win32.h"
#include "ui/ui_resources.h"

namespace PIM {

namespace {

// The subclass's number on the tree window: one per tree.
constexpr UINT_PTR kSubclassId = 0xC7EE;
constexpr UINT kStateMask = 0xF000;
constexpr wchar_t kTakenProperty[] = L"Ferrant.CheckTreeCtrl";

}  // namespace

CheckTreeCtrl::~CheckTreeCtrl() {
  // A tree that outlives its control must not draw from the freed pictures.
  if (tree_) TreeView_SetImageList(tree_, nullptr, TVSIL_STATE);
  detach();
  if (stateImages_) ImageList_Destroy(stateImages_);
}

bool CheckTreeCtrl::attach(HWND tree) {
  PIM_ENTRY("CheckTreeCtrl::attach");
  if (!tree || tree_) return false;
  // The window remembers its control, so that a second one is refused.
  if (GetPropW(tree, kTakenProperty)) return false;
  tree_ = tree;
  PreSubclassWindow();
  if (!SetWindowSubclass(tree, &CheckTreeCtrl::subclassProc, kSubclassId,
                         reinterpret_cast<DWORD_PTR>(this))) {
    tree_ = nullptr;
    return false;
  }
  SetPropW(tree, kTakenProperty, reinterpret_cast<HANDLE>(this));
  return true;
}

void CheckTreeCtrl::detach() {
  if (!tree_) return;
  RemoveWindowSubclass(tree_, &CheckTreeCtrl::subclassProc, kSubclassId);
  RemovePropW(tree_, kTakenProperty);
  tree_ = nullptr;
}

void CheckTreeCtrl::PreSubclassWindow() {
  PIM_ENTRY("CheckTreeCtrl::PreSubclassWindow");
  if (!stateImages_) {
    // Four 16 x 16 pictures, white showing the tree through, room for 4 more.
    stateImages_ = ImageList_LoadImageW(uiModule(), MAKEINTRESOURCEW(IDB_CHECK_STATES), 16, 4,
                                        RGB(255, 255, 255), IMAGE_BITMAP, LR_CREATEDIBSECTION);
  }
  if (!stateImages_) PIM_LOG_ERR("Could not load the check box images.");
  TreeView_SetImageList(tree_, stateImages_, TVSIL_STATE);
}

void CheckTreeCtrl::setImageList(HIMAGELIST imageList) {
  PIM_ENTRY("CheckTreeCtrl::setImageList");
  TreeView_SetImageList(tree_, imageList, TVSIL_NORMAL);
  // Setting the normal list may measure the items anew; the state list is
  // put back so that the boxes keep their place.
  TreeView_SetImageList(tree_, stateImages_, TVSIL_STATE);
}

void CheckTreeCtrl::setCheckState(HTREEITEM item, int state) {
  PIM_ENTRY("CheckTreeCtrl::setCheckState");
  PIM_ASSERT(item != nullptr);
  TVITEMW tv = {};
  tv.mask = TVIF_STATE | TVIF_HANDLE;
  tv.hItem = item;
  tv.stateMask = kStateMask;
  tv.state = INDEXTOSTATEIMAGEMASK(static_cast<UINT>(state));
  TreeView_SetItem(tree_, &tv);
}

int CheckTreeCtrl::getCheckState(HTREEITEM item) const {
  PIM_ENTRY("CheckTreeCtrl::getCheckState");
  PIM_ASSERT(item != nullptr);
  UINT state = TreeView_GetItemState(tree_, item, kStateMask);
  int index = static_cast<int>((state & kStateMask) >> 12);
  PIM_ASSERT(index < 4);
  return index;
}

HTREEITEM CheckTreeCtrl::insertItem(const std::u16string& key, int state, HTREEITEM parent,
                                    int image, LPARAM data) {
  PIM_ENTRY("CheckTreeCtrl::insertItem");
  std::u16string text = ResourceLoader::instance()->getStringValue(key, key);
  TVINSERTSTRUCTW insert = {};
  insert.hParent = parent;
  insert.hInsertAfter = TVI_LAST;
  insert.item.mask = TVIF_TEXT | TVIF_PARAM;
  insert.item.pszText = const_cast<wchar_t*>(reinterpret_cast<const wchar_t*>(text.c_str()));
  insert.item.lParam = data;
  HTREEITEM item = TreeView_InsertItem(tree_, &insert);
  if (!item) return nullptr;
  setCheckState(item, state);
  if (image != 0) {
    TVITEMW tv = {};
    tv.mask = TVIF_IMAGE | TVIF_SELECTEDIMAGE | TVIF_HANDLE;
    tv.hItem = item;
    tv.iImage = image;
    tv.iSelectedImage = image;
    TreeView_SetItem(tree_, &tv);
  }
  return item;
}

bool CheckTreeCtrl::handleIconClick(UINT /*flags*/, int x, int y) {
  PIM_ENTRY("CheckTreeCtrl::handleIconClick");
  TVHITTESTINFO hit = {};
  hit.pt = {x, y};
  HTREEITEM item = TreeView_HitTest(tree_, &hit);
  if (!item || !(hit.flags & TVHT_ONITEMSTATEICON)) return false;
  CheckOutcome outcome = checkTreeInput(CheckInput::IconClick, getCheckState(item));
  if (outcome.passOn) return false;
  setCheckState(item, outcome.state);
  return true;
}

bool CheckTreeCtrl::OnLButtonDown(UINT flags, POINT point) {
  PIM_ENTRY("CheckTreeCtrl::OnLButtonDown");
  return handleIconClick(flags, point.x, point.y);
}

bool CheckTreeCtrl::OnLButtonDblClk(UINT flags, POINT point) {
  PIM_ENTRY("CheckTreeCtrl::OnLButtonDblClk");
  return handleIconClick(flags, point.x, point.y);
}

bool CheckTreeCtrl::OnKeyDown(UINT key, UINT /*repeat*/, UINT /*flags*/) {
  PIM_ENTRY("CheckTreeCtrl::OnKeyDown");
  HTREEITEM selected = TreeView_GetSelection(tree_);
  if (!selected || key != VK_SPACE) return false;
  const int state = getCheckState(selected);
  CheckOutcome outcome = checkTreeInput(CheckInput::Space, state);
  if (outcome.state != state) setCheckState(selected, outcome.state);
  return !outcome.passOn;
}

LRESULT CALLBACK CheckTreeCtrl::subclassProc(HWND window, UINT message, WPARAM wParam,
                                             LPARAM lParam, UINT_PTR /*id*/, DWORD_PTR data) {
  auto* self = reinterpret_cast<CheckTreeCtrl*>(data);
  switch (message) {
    case WM_LBUTTONDOWN:
      if (self->OnLButtonDown(static_cast<UINT>(wParam),
                              {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)})) {
        return 0;
      }
      break;
    case WM_LBUTTONDBLCLK:
      if (self->OnLButtonDblClk(static_cast<UINT>(wParam),
                                {GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)})) {
        return 0;
      }
      break;
    case WM_KEYDOWN:
      if (self->OnKeyDown(static_cast<UINT>(wParam), LOWORD(lParam), HIWORD(lParam))) return 0;
      break;
    case WM_NCDESTROY:
      self->detach();
      break;
    default:
      break;
  }
  return DefSubclassProc(window, message, wParam, lParam);
}

}  // namespace PIM
