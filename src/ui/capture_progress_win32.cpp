#include "ui/capture_progress_win32.h"

#include "capture/data_capture.h"
#include "core/resource_loader.h"
#include "core/stack_logger.h"
#include "platform/env.h"
#include "ui/dialog_controls.h"
#include "ui/flip_rtl.h"
#include "ui/ui_resources.h"

namespace PIM {

CaptureProgress::CaptureProgress(bool shutdownMode, HWND parent)
    : Dialog(IDD_CAPTURE_PROGRESS, parent), shutdownMode(shutdownMode) {}

BOOL CaptureProgress::OnInitDialog() {
  PIM_ENTRY("PIM::CaptureProgress::OnInitDialog");
  const BOOL result = Dialog::OnInitDialog();
  if (ResourceLoader::instance()->isRtl()) FlipRTL(hwnd());
  SendDlgItemMessageW(hwnd(), IDC_PROGRESS_BAR, PBM_SETRANGE32, 0, 100);
  SendDlgItemMessageW(hwnd(), IDC_PROGRESS_BAR, PBM_SETPOS, 0, 0);
  setItemString(IDC_PROGRESS_REMAINING, ProgressEstimate::kEstimating);
  setItemString(IDC_PROGRESS_EXPLANATION,
                shutdownMode ? u"CAPTURE_PROGRESS_SHUTDOWN" : u"CAPTURE_PROGRESS_NORMAL");
  setWindowString(u"CAPTURE_PROGRESS_DIALOG_TITLE");
  setItemString(IDCANCEL, u"CAPTURE_PROGRESS_CANCEL");
  SetTimer(hwnd(), kTimerId, kTimerMs, nullptr);
  return result;
}

void CaptureProgress::OnTimer(UINT_PTR timerId) {
  PIM_ENTRY("PIM::CaptureProgress::OnTimer");
  if (timerId != kTimerId) return;
  DataCapture* capture = DataCapture::instance();
  // The tick that finds the run ended still shows where it ended.
  if (!capture->isCapturing()) EndDialog(IDOK);
  const uint32_t total = capture->getTotalFolders();
  const uint32_t done = capture->getFoldersDone();
  SendDlgItemMessageW(hwnd(), IDC_PROGRESS_BAR, PBM_SETPOS,
                      static_cast<WPARAM>(ProgressEstimate::percent(total, done)), 0);
  ProgressEstimate::Text remaining;
  if (estimate_.update(total, done, capture->getStartTicks(), env()->tickCount(), remaining)) {
    setItemText(IDC_PROGRESS_REMAINING, ProgressEstimate::format(remaining));
  }
}

void CaptureProgress::OnCancel() {
  PIM_ENTRY("PIM::CaptureProgress::OnCancel");
  DataCapture* capture = DataCapture::instance();
  if (!capture->isCapturing()) {
    EndDialog(IDCANCEL);
    return;
  }
  capture->cancelCapture();
  enableItem(IDCANCEL, false);
}

}  // namespace PIM
