// The third page of the preferences: the default store's folders in a check
// tree, read on a thread of their own while the tree shows a "loading"
// item; OK writes the ticked folders into the preferences' folder lists.
#pragma once

#include "ui/check_tree_ctrl_win32.h"
#include "ui/dialog_win32.h"
#include "ui/folder_tree.h"
#include "ui/page_tree_win32.h"
#include "ui/validate.h"

namespace PIM {

class FolderPage : public PropertyPage, public IValidate {
 public:
  // Posted to the page by the load thread when it has finished.
  static constexpr UINT kLoadCompleted = WM_USER + 100;

  FolderPage();
  ~FolderPage() override;

  bool validate() override { return validatePage(); }
  bool validatePage() { return true; }
  // After a completed load the folder lists become the ticked folders;
  // before it they stay. The load is stopped either way.
  void OnOK() override;
  void OnCancel() override;

  // For tests: whether the load has completed and the tree was built.
  bool isLoaded() const { return model_.loaded; }

 protected:
  BOOL OnInitDialog() override;
  bool OnMessage(UINT message, WPARAM wParam, LPARAM lParam, INT_PTR& result) override;

 private:
  static DWORD WINAPI _loadFolderThread(void* page);
  void onLoadCompleted();
  // Asks the load to stop and waits for the thread's end.
  void stopThread();

  FolderTree model_;
  HANDLE thread_ = nullptr;
  HWND window_ = nullptr;  // the page, for the load thread's message
  FolderImages images_;
  CheckTreeCtrl tree_;
};

}  // namespace PIM
