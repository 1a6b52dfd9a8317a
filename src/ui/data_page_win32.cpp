#include "ui/data_page_win32.h"

#include "core/debug_logger.h"
#include "prefs/preferences.h"
#include "ui/page_controls.h"
#include "ui/ui_resources.h"

namespace PIM {

DataPage::DataPage() : PropertyPage(IDD_DATA_PAGE) {}

BOOL DataPage::OnInitDialog() {
  PIM_ENTRY("PIM::DataPage::OnInitDialog");
  setItemString(IDC_DATA_TITLE, u"PREFERENCES_DATA_TITLE");
  tree_.attach(item(IDC_DATA_TREE));
  // The roots show the kinds' pictures of the folder tree.
  tree_.setImageList(images_.get());
  CheckTreeCtrlSink sink(tree_);
  items_ = fillDataTree(sink, Preferences::instance());
  SendMessageW(tree_.hwnd(), TVM_SELECTITEM, TVGN_FIRSTVISIBLE,
               reinterpret_cast<LPARAM>(items_.roots[0]));
  return TRUE;
}

void DataPage::OnOK() {
  PIM_ENTRY("PIM::DataPage::OnOK");
  CheckTreeCtrlSink sink(tree_);
  readDataTree(sink, items_, Preferences::instance());
}

}  // namespace PIM
