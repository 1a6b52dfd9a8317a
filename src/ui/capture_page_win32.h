// The first page of the preferences: when captures happen, how many days of
// calendar entries and how many tasks and e-mails, and the capture-now and
// about buttons.
#pragma once

#include "ui/dialog_win32.h"
#include "ui/validate.h"

namespace PIM {

class CapturePage : public PropertyPage, public IValidate {
 public:
  CapturePage();

  bool validate() override { return validatePage(); }
  // False, after telling the user and showing the corrected values, when a
  // value is out of its range; false without a word when no mode is chosen.
  bool validatePage();
  // The mode and the five values into the preferences (saved by the sheet).
  void OnOK() override;

 protected:
  BOOL OnInitDialog() override;
  bool OnCommand(int id, int code) override;

 private:
  void OnFrequencyRadio(int id);
  void EnableCaptureFrequencyEdit(bool enable);
  void onCapture();
  void onAbout();
};

}  // namespace PIM
