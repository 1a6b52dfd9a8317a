// The hidden window on the host's main thread through which toolbar clicks
// and every timer of the system arrive: a click is posted to it as a message
// and handled after the host's own click handling has returned, and timers
// are the window's timers, so every ITimer is called on that thread.
//
// On Windows it is a message-only window served by the host's message loop.
// Elsewhere the same contract is kept by a small event loop owned by one
// thread: whoever starts the window runs the loop.
//
//   uint32_t id = OutlookApp::instance()->actionWindow().createTimer(60000, this);
//   ...  // this->onTimer(id) once a minute, on the window's thread
//   OutlookApp::instance()->actionWindow().killTimer(id);
//
// Threads: everything but posting belongs to the thread that started the
// window; the timer table has no lock.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

#include "addin/message_window.h"

namespace PIM {

class ITimer {
 public:
  // Called on the window's thread each time the timer `timerId` fires.
  virtual void onTimer(uint32_t timerId) = 0;

 protected:
  ~ITimer() = default;
};

// The button identifiers of the toolbar and of the posted button message.
inline constexpr uint32_t kButtonConfigure = 9000;
inline constexpr uint32_t kButtonCapture = 9001;
// WM_USER + 1: the message a click posts, wParam = button identifier.
inline constexpr uint32_t kButtonPressedMessage = 0x401;

class PimActionWindow : public MessageWindow {
 public:
  PimActionWindow();
  // Forgets the timers without killing them one by one: the window's end
  // ends them.
  ~PimActionWindow() override;

  // A new timer of `intervalMs` whose ticks go to `callback`; never 0 and
  // never the identifier of a live timer. Before start() the timer is only
  // noted.
  uint32_t createTimer(uint32_t intervalMs, ITimer* callback);
  // Stops a live timer; an unknown identifier is logged and nothing changes.
  void killTimer(uint32_t timerId);
  // A tick of the window timer `timerId` (WM_TIMER); unknown ones are dropped.
  // Tests call it to make a timer fire without waiting.
  void OnTimer(uint32_t timerId);
  // Message 1025: 9000 opens the preferences, 9001 captures now; always 0.
  intptr_t onButtonPressed(uintptr_t buttonId, intptr_t lParam);

  void OnConfigure();
  void OnCapture();

  // What the two buttons do, set by the host once the preferences sheet and
  // the capture controller exist; until then a click does nothing.
  void setConfigureAction(std::function<void()> action) { configureAction_ = std::move(action); }
  void setCaptureAction(std::function<void()> action) { captureAction_ = std::move(action); }

 protected:
  void onLoopTimer(uint32_t timerId) override;
  intptr_t onLoopMessage(uint32_t message, uintptr_t wParam, intptr_t lParam) override;

 private:
  std::map<uint32_t, ITimer*> timers_;
  // The identifier tried first by the next createTimer.
  uint32_t nextTimerId_ = 1;
  std::function<void()> configureAction_;
  std::function<void()> captureAction_;
};

}  // namespace PIM
