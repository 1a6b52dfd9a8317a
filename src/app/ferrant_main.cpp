// ferrant: runs the system from a terminal.
#include <cstdio>
#include <cstring>
#include <string>

#include "core/debug_logger.h"
#include "core/utils.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUsage = 2;

const char kUsage[] =
    "usage: ferrant [--version] [--help] <command>\n"
    "\n"
    "commands:\n"
    "  paths     show the data, logs and module folders\n";

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
  } else {
    std::fprintf(stderr, "ferrant: unknown command '%s' (see ferrant --help)\n", argv[1]);
  }
  PIM::StackLogger::shutdown();
  PIM::DebugLogger::instance().stop();
  return result;
}
