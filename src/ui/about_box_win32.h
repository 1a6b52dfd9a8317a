// The about box: product name, legal notice and version, opened from the
// Capture page's About button.
//
//   AboutBox(pageWindow).DoModal();
#pragma once

#include "ui/dialog_win32.h"

namespace PIM {

class AboutBox : public Dialog {
 public:
  // The version shown, and the build date kept in the hidden row.
  static constexpr char16_t kVersion[] = u"1.00 A";
  static constexpr char16_t kBuildDate[] = u"Jan 12 2007";

  explicit AboutBox(HWND parent = nullptr);
  ~AboutBox() override;

 protected:
  BOOL OnInitDialog() override;
};

}  // namespace PIM
