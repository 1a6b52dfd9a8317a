#include "ui/about_box_win32.h"

#include "core/resource_loader.h"
#include "core/stack_logger.h"
#include "ui/dialog_controls.h"
#include "ui/flip_rtl.h"
#include "ui/ui_resources.h"

namespace PIM {

AboutBox::AboutBox(HWND parent) : Dialog(IDD_ABOUTBOX, parent) {
  PIM_ENTRY("PIM::AboutBox::AboutBox");
}

AboutBox::~AboutBox() { PIM_ENTRY("PIM::AboutBox::~AboutBox"); }

BOOL AboutBox::OnInitDialog() {
  PIM_ENTRY("PIM::AboutBox::OnInitDialog");
  const BOOL result = Dialog::OnInitDialog();
  // Mirrored first, so that no text is ever drawn the wrong way round.
  if (ResourceLoader::instance()->isRtl()) FlipRTL(hwnd());
  setWindowString(u"ABOUT_DIALOG_TITLE");
  setItemString(IDC_ABOUT_PRODUCT, u"ABOUT_PRODUCT_NAME");
  setItemString(IDC_ABOUT_COPYRIGHT, u"ABOUT_COPYRIGHT");
  setItemString(IDC_ABOUT_VERSION_LABEL, u"ABOUT_VERSION");
  setItemString(IDC_ABOUT_BUILD_LABEL, u"ABOUT_BUILD");
  setItemString(IDC_ABOUT_DATE_LABEL, u"ABOUT_DATE");
  setItemString(IDOK, u"PREFERENCES_OK");
  // The build rows are filled but stay hidden, as the template made them.
  setItemText(IDC_ABOUT_VERSION, kVersion);
  setItemText(IDC_ABOUT_BUILD, u"");
  setItemText(IDC_ABOUT_DATE, kBuildDate);
  return result;
}

}  // namespace PIM
