// ferrant: runs the system from a terminal.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "app/decode_command.h"
#include "app/exit_codes.h"
#include "core/debug_logger.h"
#include "core/utils.h"

namespace {

using PIM::kExitOk;
using PIM::kExitUsage;

const char kUsage[] =
    "usage: ferrant [--version] [--help] <command> [<args>]\n"
    "\n"
    "commands:\n"
    "  paths     show the data, logs and module folders\n"
    "  decode    show what a capture writes of a recurrence or member blob\n"
    "\n"
    "'ferrant <command> --help' tells more of a command.\n";

int showPaths() {
  PIM_ENTRY("ferrant::showPaths");
  std::printf("data folder: %s\n", PIM::toUtf8(PIM::getDataFolder()).c_str());
  std::printf("logs folder: %s\n", PIM::toUtf8(PIM::getLogsFolder()).c_str());
  std::printf("log file:    %s\n", PIM::toUtf8(PIM::DebugLogger::instance().path()).c_str());
  std::printf("module:      %s\n", PIM::toUtf8(PIM::getDllPath()).c_str());
  return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  PIM::DebugLogger::instance().start();
  PIM::StackLogger::initialise();
  int result = kExitUsage;
  if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
    std::fputs(kUsage, argc < 2 ? stderr : stdout);
    result = argc < 2 ? kExitUsage : kExitOk;
  } else if (!std::strcmp(argv[1], "--version")) {
    std::printf("ferrant %s\n", FERRANT_VERSION);
    result = kExitOk;
  } else if (!std::strcmp(argv[1], "paths")) {
    result = showPaths();
  } else if (!std::strcmp(argv[1], "decode")) {
    result = PIM::runDecode(argc - 2, argv + 2, std::cout, std::cerr);
  } else {
    std::fprintf(stderr, "ferrant: unknown command '%s' (see ferrant --help)\n", argv[1]);
  }
  PIM::StackLogger::shutdown();
  PIM::DebugLogger::instance().stop();
  return result;
}
