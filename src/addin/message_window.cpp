#include "addin/message_window.h"

#include "core/debug_logger.h"

namespace PIM {

MessageWindow::MessageWindow() = default;

MessageWindow::~MessageWindow() = default;

bool MessageWindow::start() {
  PIM_ENTRY("PIM::MessageWindow::start");
  if (loop_) return true;
  loop_ = MessageLoop::create(this);
  if (!loop_) PIM_LOG_ERR("Could not create the message window.");
  return loop_ != nullptr;
}

bool MessageWindow::postMessage(uint32_t message, uintptr_t wParam, intptr_t lParam) {
  return loop_ && loop_->post(message, wParam, lParam);
}

bool MessageWindow::setWindowTimer(uint32_t timerId, uint32_t intervalMs) {
  return loop_ && loop_->setTimer(timerId, intervalMs);
}

bool MessageWindow::killWindowTimer(uint32_t timerId) { return loop_ && loop_->killTimer(timerId); }

}  // namespace PIM
