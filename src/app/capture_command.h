// `ferrant capture` and `ferrant watch`: the capture controller hosted by a
// terminal program, as the add-in hosts it in Outlook.
//
// capture: one run, as the toolbar's capture button starts it, with the
// progress dialog's content on a terminal line and a summary at the end.
// watch: the controller with the timers of the preferences, following the
// store file as it is edited, until Ctrl-C or a termination request shuts it
// down the way Outlook's shut-down does.
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <string>

namespace PIM {

class StoreSession;

// Where a command talks to the user and how it learns that it should stop.
struct Console {
  std::ostream& out;
  std::ostream& err;
  // Redraw a progress line in place (only on a terminal).
  bool progressLine = false;
  // Whether the user asked to stop; polled between waits.
  std::function<bool()> interrupted;
  // How long the commands wait before they look again.
  std::chrono::milliseconds poll{200};
};

// argv after "capture".
int runCapture(int argc, char** argv, StoreSession& session, const Console& console);

// Before the store is loaded, with the same arguments: when the store file,
// the settings file and the data folder are as the last `ferrant capture`
// into that folder left them, says so as a run that found every folder
// unchanged would and returns the exit status; -1 when the store has to be
// read (runCapture then does the rest, usage errors included).
int captureIfStoreChanged(int argc, char** argv, const std::u16string& storePath,
                          const Console& console);

// argv after "watch".
int runWatch(int argc, char** argv, StoreSession& session, const Console& console);

}  // namespace PIM
