#include "ui/folder_page_win32.h"

#include "addin/outlook_app.h"
#include "core/debug_logger.h"
#include "prefs/preferences.h"
#include "ui/page_controls.h"
#include "ui/ui_resources.h"

namespace PIM {

FolderPage::FolderPage() : PropertyPage(IDD_FOLDER_PAGE) {}

FolderPage::~FolderPage() {
  // A sheet that ended without OK or Cancel reaching the page still must not
  // leave the thread reading into a page that is gone.
  stopThread();
}

BOOL FolderPage::OnInitDialog() {
  PIM_ENTRY("PIM::FolderPage::OnInitDialog");
  setItemString(IDC_FOLDERS_TITLE, u"PREFERENCES_FOLDERS_TITLE");
  tree_.attach(item(IDC_FOLDERS_TREE));
  tree_.setImageList(images_.get());
  if (FAILED(model_.findDefaultStore(OutlookApp::instance()->getMapiSession()))) return TRUE;
  tree_.insertItem(u"PREFERENCES_FOLDERS_LOADING", kCheckNone, TVI_ROOT, kLoadingImage);
  window_ = hwnd();
  model_.stop = false;
  thread_ =
      CreateThread(nullptr, 0, &FolderPage::_loadFolderThread, this, CREATE_SUSPENDED, nullptr);
  if (!thread_) {
    PIM_LOG_ERR("Assertion failed");
    return TRUE;
  }
  SetThreadPriority(thread_, THREAD_PRIORITY_BELOW_NORMAL);
  ResumeThread(thread_);
  return TRUE;
}

DWORD WINAPI FolderPage::_loadFolderThread(void* data) {
  PIM_ENTRY("PIM::FolderPage::_loadFolderThread");
  auto* page = static_cast<FolderPage*>(data);
  if (!page) {
    PIM_LOG_ERR("Assertion failed");
    return 0;
  }
  page->model_.buildFolderList(OutlookApp::instance()->getMapiSession());
  if (!page->model_.stop) PostMessageW(page->window_, kLoadCompleted, 0, 0);
  return 0;
}

bool FolderPage::OnMessage(UINT message, WPARAM, LPARAM, INT_PTR& result) {
  if (message != kLoadCompleted) return false;
  // A message posted just before OK or Cancel stopped the load comes too
  // late to be shown.
  if (!model_.stop) onLoadCompleted();
  result = TRUE;
  return true;
}

void FolderPage::onLoadCompleted() {
  PIM_ENTRY("PIM::FolderPage::onLoadCompleted");
  model_.loaded = true;
  stopThread();  // the thread has ended: only reaps it
  model_.stop = false;
  TreeView_DeleteAllItems(tree_.hwnd());
  CheckTreeCtrlSink sink(tree_);
  model_.buildTree(sink, nullptr, model_.roots, Preferences::instance());
}

void FolderPage::stopThread() {
  PIM_ENTRY("PIM::FolderPage::stopThread");
  model_.stop = true;
  if (!thread_) return;
  // The user's thread keeps its place in the queue of runnable threads
  // while the load finishes its current row.
  for (;;) {
    const DWORD waited = WaitForSingleObject(thread_, 0);
    if (waited == WAIT_OBJECT_0) break;
    if (waited != WAIT_TIMEOUT) {
      PIM_LOG_ERR("Assertion failed");
      if (waited == WAIT_FAILED) break;
    }
    SwitchToThread();
  }
  CloseHandle(thread_);
  thread_ = nullptr;
}

void FolderPage::OnOK() {
  PIM_ENTRY("PIM::FolderPage::OnOK");
  CheckTreeCtrlSink sink(tree_);
  model_.applyTo(sink, Preferences::instance());
  stopThread();
}

void FolderPage::OnCancel() {
  PIM_ENTRY("PIM::FolderPage::OnCancel");
  stopThread();
}

}  // namespace PIM
