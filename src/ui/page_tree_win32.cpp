#include "ui/page_tree_win32.h"

#include "ui/dialog_win32.h"
#include "ui/ui_resources.h"

namespace PIM {

FolderImages::FolderImages() {
  list_ = ImageList_Create(16, 16, ILC_COLOR24 | ILC_MASK, 8, 8);
  if (!list_) return;
  HBITMAP strip = static_cast<HBITMAP>(LoadImageW(uiModule(), MAKEINTRESOURCEW(IDB_FOLDER_IMAGES),
                                                  IMAGE_BITMAP, 0, 0, LR_CREATEDIBSECTION));
  if (!strip) return;
  ImageList_AddMasked(list_, strip, RGB(255, 255, 255));
  DeleteObject(strip);
}

FolderImages::~FolderImages() {
  if (list_) ImageList_Destroy(list_);
}

}  // namespace PIM
