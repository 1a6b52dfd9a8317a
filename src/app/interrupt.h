// Ctrl-C and termination requests for the long-running commands: a signal
// handler only notes them, and the command's loop polls the note between
// its waits, so the capture is cancelled or the controller shut down from
// the main thread, never from inside the handler.
//
//   InterruptSignals signals;   // for as long as the command runs
//   while (!InterruptSignals::raised()) loop->runUntil({}, kPoll);
#pragma once

namespace PIM {

class InterruptSignals {
 public:
  // Notes SIGINT and SIGTERM from now on; pressing Ctrl-C again only notes
  // it again, so that the clean-up is never cut short.
  InterruptSignals();
  // Puts the previous handlers back.
  ~InterruptSignals();
  InterruptSignals(const InterruptSignals&) = delete;
  InterruptSignals& operator=(const InterruptSignals&) = delete;

  // Whether a signal arrived since the handlers were installed.
  static bool raised();
};

}  // namespace PIM
