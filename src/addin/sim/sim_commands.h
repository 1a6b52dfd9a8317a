// The Outlook stand-in's command language: the words of its command line, or
// of a script file with one command a line (the same words, the leading "--"
// optional, the rest of the line the argument; blank lines and lines starting
// with '#' are skipped).
//
// Settings (anywhere, the last one wins):
//   --mode startup|after     connect as at Outlook's start-up (1) or later (0)
//   --bars A,B:3,...|none    the command bars, each optionally with the number
//                            of controls it already holds
//   --fail-item N  --fail-qi  --fail-add  --fail-advise  --null-app
//   --no-mapi                go on without MAPI when it cannot be started
//   --addin PROGID           load only this add-in of the registry's
//   --expect-connect-fail    a failed OnConnection is the expected outcome
//   --log FILE  --timeout S  the log and time limit of the waits that follow
//   --script FILE            read more words from FILE (no nesting)
// Commands (run in order after start-up, from a timer of the stand-in's
// thread, so they go on inside any modal loop the add-in enters):
//   --pump MS  --click CAPTION|#N  --wait-log TEXT  --wait-file PATH  --shutdown
// Dialogs of the stand-in's thread (a property sheet, a message box):
//   --dialog TITLE|#N        wait for the dialog so captioned (or the N-th
//                            from the front) and act on it from now on
//   --set-text ID=TEXT       set a control's text (of the sheet's current page
//                            when it has the control, else of the dialog)
//   --press ID|ok|cancel|help  press a button (a sheet's own by PSM_PRESSBUTTON)
//   --select-page N          show a property sheet's N-th page (from 1)
//   --print-texts            print the texts of the dialog and its current page
//   --wait-closed            wait until the dialog is gone
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Sim {

enum class Mode { Startup, After };

struct Bar {
  std::string name;
  int existingControls = 0;
  bool operator==(const Bar&) const = default;
};

struct Command {
  enum class Kind {
    Pump,
    Click,
    WaitLog,
    WaitFile,
    Shutdown,
    Dialog,
    SetText,
    Press,
    SelectPage,
    PrintTexts,
    WaitClosed
  };
  Kind kind = Kind::Pump;
  // Click's caption, WaitLog's text, WaitFile's path, Dialog's title, SetText's text
  std::string text;
  // Pump's milliseconds; Click's or Dialog's number when given as #N;
  // SetText's and Press's control ID; SelectPage's page
  int number = 0;
  std::string log;         // WaitLog: the file to watch
  double timeoutS = 30.0;  // WaitLog, WaitFile, Dialog, WaitClosed
};

struct Options {
  Mode mode = Mode::Startup;
  std::vector<Bar> bars{{"Standard", 0}};
  int failItem = 0;
  bool failQi = false;
  bool failAdd = false;
  bool failAdvise = false;
  bool nullApp = false;
  bool noMapi = false;
  bool expectConnectFail = false;
  // After start-up, also reach the add-in through IDispatch as a late-bound
  // host would: its type information and OnAddInsUpdate by name.
  bool dispatch = false;
  std::string addin;  // empty: every add-in with LoadBehavior 3
  std::vector<Command> commands;
};

// Reads a script file into `text`; false when it cannot be read.
using ScriptReader = std::function<bool(const std::string& path, std::string& text)>;

// Parses the words (UTF-8, without the program name). On a usage error
// returns nothing and says why in `error`.
std::optional<Options> parseCommands(const std::vector<std::string>& words,
                                     const ScriptReader& read, std::string& error);

// Splits a script into words: per line the command and, if any, its argument.
std::vector<std::string> scriptWords(const std::string& text);

}  // namespace Sim
