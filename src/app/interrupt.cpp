#include "app/interrupt.h"

#include <csignal>

namespace PIM {

namespace {

volatile std::sig_atomic_t g_raised = 0;

using Handler = void (*)(int);
Handler g_previousInt = SIG_DFL;
Handler g_previousTerm = SIG_DFL;

extern "C" void noteSignal(int signal) {
  g_raised = 1;
  // Some C libraries reset the handler before calling it.
  std::signal(signal, noteSignal);
}

}  // namespace

InterruptSignals::InterruptSignals() {
  g_raised = 0;
  g_previousInt = std::signal(SIGINT, noteSignal);
  g_previousTerm = std::signal(SIGTERM, noteSignal);
}

InterruptSignals::~InterruptSignals() {
  std::signal(SIGINT, g_previousInt == SIG_ERR ? SIG_DFL : g_previousInt);
  std::signal(SIGTERM, g_previousTerm == SIG_ERR ? SIG_DFL : g_previousTerm);
}

bool InterruptSignals::raised() { return g_raised != 0; }

}  // namespace PIM
