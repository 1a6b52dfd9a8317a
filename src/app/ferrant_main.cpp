// ferrant: runs the system from a terminal.
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <string>

#include "app/capture_command.h"
#include "app/command_line.h"
#include "app/decode_command.h"
#include "app/exit_codes.h"
#include "app/interrupt.h"
#include "app/prefs_command.h"
#include "app/settings_check.h"
#include "app/store_session.h"
#include "core/debug_logger.h"
#include "core/resource_loader.h"
#include "core/utils.h"
#include "platform/env.h"

namespace {

using PIM::kExitOk;
using PIM::kExitUsage;

const char kUsage[] =
    "usage: ferrant [--version] [--help] <command> [<args>]\n"
    "\n"
    "commands:\n"
    "  capture   capture the chosen folders once, with progress and a summary\n"
    "  watch     capture on the preferences' timer as the store file changes\n"
    "  paths     show the data, logs and module folders\n"
    "  prefs     show or change the settings a capture follows\n"
    "  decode    show what a capture writes of a recurrence or member blob\n"
    "\n"
    "'ferrant <command> --help' tells more of a command.\n";

const char kPathsUsage[] =
    "usage: ferrant paths\n"
    "\n"
    "Shows where the data files and DataDirectory.xml, the diagnostic log and the\n"
    "program are.\n";

int showPaths(int argc, char** argv) {
  if (argc >= 1 && (!std::strcmp(argv[0], "--help") || !std::strcmp(argv[0], "-h"))) {
    std::fputs(kPathsUsage, stdout);
    return kExitOk;
  }
  if (argc >= 1) {
    std::fprintf(stderr, "ferrant paths: unexpected argument '%s'\n", argv[0]);
    return kExitUsage;
  }
  PIM_ENTRY("ferrant::showPaths");
  std::printf("data folder: %s\n", PIM::toUtf8(PIM::getDataFolder()).c_str());
  std::printf("logs folder: %s\n", PIM::toUtf8(PIM::getLogsFolder()).c_str());
  std::printf("log file:    %s\n", PIM::toUtf8(PIM::DebugLogger::instance().path()).c_str());
  std::printf("module:      %s\n", PIM::toUtf8(PIM::getDllPath()).c_str());
  return kExitOk;
}

// Runs a command that works on a store: takes the shared options, opens the
// store and hands the rest of the arguments on.
// `beforeLoad`, when given, may answer for the command before the store is
// loaded (an answer of -1 lets it load).
template <class Command>
int withStore(int argc, char** argv, Command command,
              const std::function<int(int, char**, const std::u16string&)>& beforeLoad = {}) {
  PIM::CommonOptions options;
  std::string error;
  if (!PIM::parseCommonOptions(argc, argv, options, error)) {
    std::fprintf(stderr, "ferrant: %s\n", error.c_str());
    return kExitUsage;
  }
  for (char* arg : options.rest) {
    if (!std::strcmp(arg, "--help") || !std::strcmp(arg, "-h")) {
      PIM::StoreSession none;
      return command(static_cast<int>(options.rest.size()), options.rest.data(), none);
    }
  }
  if (!PIM::settingsUsable(std::cerr)) return PIM::kExitStore;
  if (!options.dataDir.empty()) PIM::setDataFolder(PIM::fromUtf8(options.dataDir));
  const std::u16string path =
      options.store.empty() ? PIM::StoreSession::defaultStorePath() : PIM::fromUtf8(options.store);
  if (path.empty()) {
    std::fputs("ferrant: no store file given and no sample mailbox installed (use --store FILE)\n",
               stderr);
    return PIM::kExitStore;
  }
  if (beforeLoad) {
    const int status = beforeLoad(static_cast<int>(options.rest.size()), options.rest.data(), path);
    if (status != -1) return status;
  }
  PIM::StoreSession session;
  if (!session.open(path, error)) {
    std::fprintf(stderr, "ferrant: %s\n", error.c_str());
    return PIM::kExitStore;
  }
  return command(static_cast<int>(options.rest.size()), options.rest.data(), session);
}

}  // namespace

int main(int argc, char** argv) {
  PIM::DebugLogger::instance().start();
  PIM::StackLogger::initialise();
  PIM::ResourceLoader::instance()->loadResource();
  int result = kExitUsage;
  if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
    std::fputs(kUsage, argc < 2 ? stderr : stdout);
    result = argc < 2 ? kExitUsage : kExitOk;
  } else if (!std::strcmp(argv[1], "--version")) {
    std::printf("ferrant %s\n", FERRANT_VERSION);
    result = kExitOk;
  } else if (!std::strcmp(argv[1], "paths")) {
    result = showPaths(argc - 2, argv + 2);
  } else if (!std::strcmp(argv[1], "capture") || !std::strcmp(argv[1], "watch")) {
    const bool watch = argv[1][0] == 'w';
    const PIM::Console console{std::cout, std::cerr, PIM::env()->stdoutIsTerminal(),
                               &PIM::InterruptSignals::raised};
    result = withStore(
        argc - 2, argv + 2,
        [watch, &console](int n, char** args, PIM::StoreSession& session) {
          PIM::InterruptSignals signals;
          return watch ? PIM::runWatch(n, args, session, console)
                       : PIM::runCapture(n, args, session, console);
        },
        [watch, &console](int n, char** args, const std::u16string& path) {
          PIM::InterruptSignals signals;
          return watch ? -1 : PIM::captureIfStoreChanged(n, args, path, console);
        });
  } else if (!std::strcmp(argv[1], "prefs")) {
    result = withStore(argc - 2, argv + 2, [](int n, char** args, PIM::StoreSession& session) {
      return PIM::runPrefs(n, args, session, std::cout, std::cerr);
    });
  } else if (!std::strcmp(argv[1], "decode")) {
    result = PIM::runDecode(argc - 2, argv + 2, std::cout, std::cerr);
  } else {
    std::fprintf(stderr, "ferrant: unknown command '%s' (see ferrant --help)\n", argv[1]);
  }
  PIM::ResourceLoader::freeInstance();
  PIM::StackLogger::shutdown();
  PIM::DebugLogger::instance().stop();
  return result;
}
