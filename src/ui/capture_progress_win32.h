// The modal dialog that shows how far a capture run has got, roughly how
// long it still needs, and lets the user ask for cancellation. It closes by
// itself on the first tick after the run has ended, and never before:
// shown while the add-in ends, it holds the host until the data are
// consistent.
//
//   CaptureProgress(/*shutdownMode=*/false).DoModal();
//
// Threads: the user-interface thread; it polls DataCapture::instance().
#pragma once

#include "capture/progress_estimate.h"
#include "ui/dialog_win32.h"

namespace PIM {

class CaptureProgress : public Dialog {
 public:
  static constexpr UINT_PTR kTimerId = 0;
  static constexpr UINT kTimerMs = 200;

  // `shutdownMode` chooses the explanation: the add-in is ending and waits
  // for the run, or the user asked for a capture.
  explicit CaptureProgress(bool shutdownMode, HWND parent = nullptr);

 protected:
  BOOL OnInitDialog() override;
  void OnTimer(UINT_PTR timerId) override;
  // Enter: the OK button is hidden and unused; the dialog ends with the run.
  void OnOK() override {}
  // Cancel, Escape or the close box: asks the run to stop and waits for it.
  void OnCancel() override;

 private:
  bool shutdownMode;
  // The time of the last change of the done-count, and that count.
  ProgressEstimate estimate_;
};

}  // namespace PIM
