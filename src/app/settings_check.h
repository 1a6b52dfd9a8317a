// Whether a command may run on the user's settings: a capture on settings
// that were damaged or cannot be read would drop the chosen folders and
// delete their data files without a word.
#pragma once

#include <iosfwd>

namespace PIM {

// True when the settings can be relied on. Otherwise tells why on `err`
// (for a damaged file, where its copy was kept) and the command should stop
// with kExitStore; the damage is told once, and the next run goes on with
// what could be read.
bool settingsUsable(std::ostream& err);

}  // namespace PIM
