// The Outlook stand-in's host: starts OLE and MAPI as Outlook does, loads the
// add-ins the registry lists with LoadBehavior 3, connects them to an Office
// model, runs the commands with a message loop in between, shuts down, and
// prints one fact per line on the way (see outlook_sim_main.cpp).
#pragma once

#include "addin/sim/sim_commands.h"

namespace Sim {

// Exit statuses of the stand-in.
enum Exit : int { kExitOk = 0, kExitFailed = 1, kExitUsage = 2, kExitNoAddin = 3 };

// Runs the whole session on the calling thread; returns the exit status.
int runHost(const Options& options);

}  // namespace Sim
