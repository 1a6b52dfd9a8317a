// The second page of the preferences: every field a capture can write, in a
// check tree under one root per kind of item; the user ticks the optional
// ones.
#pragma once

#include "ui/check_tree_ctrl_win32.h"
#include "ui/data_fields.h"
#include "ui/dialog_win32.h"
#include "ui/page_tree_win32.h"
#include "ui/validate.h"

namespace PIM {

class DataPage : public PropertyPage, public IValidate {
 public:
  DataPage();

  bool validate() override { return validatePage(); }
  // Nothing on this page can be wrong.
  bool validatePage() { return true; }
  // Each optional field's switch on exactly when its item is ticked.
  void OnOK() override;

 protected:
  BOOL OnInitDialog() override;

 private:
  // Destroyed after the tree lets its window go.
  FolderImages images_;
  CheckTreeCtrl tree_;
  DataTreeItems items_;
};

}  // namespace PIM
