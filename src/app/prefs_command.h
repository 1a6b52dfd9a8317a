// `ferrant prefs`: shows and changes the settings a capture follows, with the
// ranges of the preferences sheet, saving and notifying as the sheet does.
#pragma once

#include <iosfwd>

namespace PIM {

class StoreSession;

// argv after "prefs". `session` gives the default folders and the folder
// names; it may hold no store (then folders show as identifiers).
int runPrefs(int argc, char** argv, StoreSession& session, std::ostream& out, std::ostream& err);

}  // namespace PIM
