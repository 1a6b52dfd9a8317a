#include "addin/action_window.h"

#include "core/debug_logger.h"

namespace PIM {

PimActionWindow::PimActionWindow() = default;

PimActionWindow::~PimActionWindow() { timers_.clear(); }

uint32_t PimActionWindow::createTimer(uint32_t intervalMs, ITimer* callback) {
  PIM_ENTRY("PIM::PimActionWindow::createTimer");
  PIM_ASSERT(callback);
  PIM_ASSERT(intervalMs >= 1);
  // Identifiers count up, so one just killed is not handed out again while
  // a late tick of it may still be queued; 0 and live ones are skipped.
  while (nextTimerId_ == 0 || timers_.count(nextTimerId_) != 0) ++nextTimerId_;
  const uint32_t timerId = nextTimerId_++;
  timers_[timerId] = callback;
  setWindowTimer(timerId, intervalMs);
  return timerId;
}

void PimActionWindow::killTimer(uint32_t timerId) {
  PIM_ENTRY("PIM::PimActionWindow::killTimer");
  PIM_ASSERT(timerId != 0);
  const auto it = timers_.find(timerId);
  if (it == timers_.end()) {
    PIM_LOG_ERR("Assertion failed");
    return;
  }
  killWindowTimer(timerId);
  timers_.erase(it);
}

void PimActionWindow::OnTimer(uint32_t timerId) {
  PIM_ENTRY("PIM::PimActionWindow::OnTimer");
  const auto it = timers_.find(timerId);
  // A timer created without a callback only logged its creation.
  if (it != timers_.end() && it->second) it->second->onTimer(timerId);
}

intptr_t PimActionWindow::onButtonPressed(uintptr_t buttonId, intptr_t /*lParam*/) {
  PIM_ENTRY("PIM::PimActionWindow::onButtonPressed");
  if (buttonId == kButtonConfigure) {
    OnConfigure();
  } else if (buttonId == kButtonCapture) {
    OnCapture();
  }
  return 0;
}

void PimActionWindow::OnConfigure() {
  PIM_ENTRY("PIM::PimActionWindow::OnConfigure");
  if (configureAction_) configureAction_();
}

void PimActionWindow::OnCapture() {
  PIM_ENTRY("PIM::PimActionWindow::OnCapture");
  if (captureAction_) captureAction_();
}

void PimActionWindow::onLoopTimer(uint32_t timerId) { OnTimer(timerId); }

intptr_t PimActionWindow::onLoopMessage(uint32_t message, uintptr_t wParam, intptr_t lParam) {
  if (message == kButtonPressedMessage) return onButtonPressed(wParam, lParam);
  return MessageWindow::onLoopMessage(message, wParam, lParam);
}

}  // namespace PIM
