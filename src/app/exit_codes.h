// The exit codes of the ferrant command.
#pragma once

namespace PIM {

inline constexpr int kExitOk = 0;
// Some of the work failed: a blob was rejected, a folder could not be read.
inline constexpr int kExitRejected = 1;
inline constexpr int kExitUsage = 2;
// The store could not be opened or read at all, or the data folder made.
inline constexpr int kExitStore = 3;
// Ctrl-C cancelled the work (128 + SIGINT, as shells report it).
inline constexpr int kExitInterrupted = 130;

}  // namespace PIM
