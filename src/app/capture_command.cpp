#include "app/capture_command.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <string>

#include "addin/outlook_app.h"
#include "app/exit_codes.h"
#include "app/run_report.h"
#include "app/store_session.h"
#include "capture/data_capture.h"
#include "core/debug_logger.h"
#include "core/utils.h"
#include "data/data_file.h"
#include "platform/env.h"
#include "prefs/preferences.h"
#include "store/profile_reload.h"

namespace PIM {

namespace {

const char kCaptureUsage[] =
    "usage: ferrant capture [--store FILE] [--data-dir DIR]\n"
    "\n"
    "Captures the chosen folders once, as the toolbar's capture button does: each\n"
    "folder gets a new data file, stale files are deleted and DataDirectory.xml is\n"
    "written again. Ctrl-C cancels: the folders not yet read are left out of the\n"
    "new index (their old files go with the stale ones), and the run still cleans\n"
    "up and writes the index.\n"
    "\n"
    "  --store FILE     the store file to read (default: the bundled sample mailbox)\n"
    "  --data-dir DIR   where the files go (default: the data folder, see 'ferrant paths')\n"
    "\n"
    "Exit status: 0 done, 1 some folder could not be read, 2 usage, 3 store or data\n"
    "folder unusable, 130 cancelled.\n";

const char kWatchUsage[] =
    "usage: ferrant watch [--store FILE] [--data-dir DIR] [--now] [--poll SECONDS]\n"
    "\n"
    "Runs the capture controller as the add-in does in Outlook: captures on the\n"
    "timer of the capture mode and interval ('ferrant prefs'), and follows the store\n"
    "file as it is edited, so that a capture rewrites only the folders that changed.\n"
    "Ctrl-C or a termination request stops the timer and waits for a capture in\n"
    "progress.\n"
    "\n"
    "  --store FILE     the store file to follow (default: the bundled sample mailbox)\n"
    "  --data-dir DIR   where the files go (default: the data folder, see 'ferrant paths')\n"
    "  --now            capture once at the start too, as the capture button would\n"
    "  --poll SECONDS   how often the store file is looked at (1 to 3600, default 2)\n";

bool isHelp(const char* arg) { return !std::strcmp(arg, "--help") || !std::strcmp(arg, "-h"); }

bool stopRequested(const Console& console) { return console.interrupted && console.interrupted(); }

// The data folder the run will write, made if needed; empty with a message
// when it cannot be.
std::u16string usableDataFolder(const char* command, const Console& console) {
  const std::u16string folder = getDataFolder();
  if (folder.empty()) {
    console.err << "ferrant " << command
                << ": the data folder cannot be made (see the log: ferrant paths)\n";
  }
  return folder;
}

// Starts the action window on this thread, which then serves the
// controller's timers.
MessageLoop* startActionWindow(const char* command, const Console& console) {
  PimActionWindow& window = OutlookApp::instance()->actionWindow();
  if (!window.start()) {
    console.err << "ferrant " << command << ": the system refused the action window\n";
    return nullptr;
  }
  return window.loop();
}

std::string joined(const std::vector<std::string>& parts, const char* separator) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : separator) + part;
  return text;
}

std::string clockTime() {
  const SystemTime now = env()->localTimeNow();
  char text[32];
  std::snprintf(text, sizeof text, "%02u:%02u:%02u", unsigned(now.hour), unsigned(now.minute),
                unsigned(now.second));
  return text;
}

std::string modeText(const Preferences& prefs) {
  switch (prefs.captureMode.get()) {
    case CaptureAutomatic:
      return "capturing every " + std::to_string(std::max<uint32_t>(prefs.captureInterval, 1)) +
             " minutes";
    case CaptureAtStartup:
      return "capturing once, two minutes from now";
    default:
      return "capturing only on demand (captureMode manual)";
  }
}

}  // namespace

int runCapture(int argc, char** argv, StoreSession& /*session*/, const Console& console) {
  PIM_ENTRY("ferrant::runCapture");
  if (argc >= 1 && isHelp(argv[0])) {
    console.out << kCaptureUsage;
    return kExitOk;
  }
  if (argc >= 1) {
    console.err << "ferrant capture: unexpected argument '" << argv[0]
                << "' (see ferrant capture --help)\n";
    return kExitUsage;
  }
  Preferences::instance().load();
  const std::u16string dataFolder = usableDataFolder("capture", console);
  if (dataFolder.empty()) return kExitStore;
  MessageLoop* loop = startActionWindow("capture", console);
  if (!loop) return kExitStore;

  DataCapture* capture = DataCapture::instance();
  capture->captureNow();
  ProgressLine line(console.out);
  bool cancelled = false;
  while (!capture->waitForCapture(console.poll)) {
    if (!cancelled && stopRequested(console)) {
      capture->cancelCapture();
      cancelled = true;
    }
    if (console.progressLine) line.draw(capture->progress(), env()->tickCount());
    loop->processPending();
  }
  line.clear();
  const DataCapture::RunSummary summary = capture->lastRunSummary();
  DataCapture::freeInstance();

  const std::vector<std::string> parts = describeRun(summary);
  console.out << "Folders: " << parts[0] << "\n"
              << "Items:   " << parts[1] << "\n"
              << "Files:   " << parts[2] << "\n"
              << "Index:   " << toUtf8(dataFolder + kPathSeparator + kDataDirectoryName) << "\n";
  if (summary.cancelled) return kExitInterrupted;
  return summary.foldersFailed != 0 ? kExitRejected : kExitOk;
}

int runWatch(int argc, char** argv, StoreSession& session, const Console& console) {
  PIM_ENTRY("ferrant::runWatch");
  bool captureAtStart = false;
  uint32_t pollSeconds = 2;
  for (int i = 0; i < argc; ++i) {
    if (isHelp(argv[i])) {
      console.out << kWatchUsage;
      return kExitOk;
    }
    if (!std::strcmp(argv[i], "--now")) {
      captureAtStart = true;
    } else if (!std::strcmp(argv[i], "--poll") && i + 1 < argc) {
      char* end = nullptr;
      const long seconds = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || seconds < 1 || seconds > 3600) {
        console.err << "ferrant watch: --poll takes 1 to 3600 seconds, not '" << argv[i] << "'\n";
        return kExitUsage;
      }
      pollSeconds = static_cast<uint32_t>(seconds);
    } else {
      console.err << "ferrant watch: unexpected argument '" << argv[i]
                  << "' (see ferrant watch --help)\n";
      return kExitUsage;
    }
  }
  Preferences& prefs = Preferences::instance();
  prefs.load();
  const std::u16string dataFolder = usableDataFolder("watch", console);
  if (dataFolder.empty()) return kExitStore;
  MessageLoop* loop = startActionWindow("watch", console);
  if (!loop) return kExitStore;

  store::FixtureWatcher watcher(session.profile(), session.path());
  DataCapture* capture = DataCapture::instance();
  console.out << "Watching " << toUtf8(session.path()) << ", " << modeText(prefs) << ", into "
              << toUtf8(dataFolder) << ". Ctrl-C stops.\n"
              << std::flush;
  capture->enableCapturing(true);
  if (captureAtStart) capture->captureNow();

  uint32_t reported = 0;  // the last run told about
  const auto reportRun = [&] {
    const DataCapture::RunSummary summary = capture->lastRunSummary();
    if (summary.run == reported || capture->isCapturing()) return;
    reported = summary.run;
    console.out << clockTime() << " " << joined(describeRun(summary), "; ") << "\n" << std::flush;
  };
  const uint32_t pollMs = pollSeconds * 1000;
  uint32_t lastLook = env()->tickCount();
  while (!stopRequested(console)) {
    loop->runUntil([&] { return stopRequested(console); }, console.poll);
    reportRun();
    if (env()->tickCount() - lastLook < pollMs) continue;
    lastLook = env()->tickCount();
    const store::ReloadResult result = watcher.check();
    switch (result.status) {
      case store::ReloadResult::Status::Applied: {
        std::string folders;
        for (const store::ChangedFolder& folder : result.folders)
          folders += (folders.empty() ? "" : ", ") + toUtf8(folder.path);
        console.out << clockTime() << " store changed: " << folders << "\n" << std::flush;
        break;
      }
      case store::ReloadResult::Status::RestartNeeded:
        console.err << "ferrant watch: " << result.error
                    << "; the running store keeps its old content until ferrant watch is "
                       "started again\n";
        break;
      case store::ReloadResult::Status::LoadFailed:
        console.err << "ferrant watch: the store file does not load: " << result.error << "\n";
        break;
      default:
        break;
    }
  }

  // As Outlook shuts down: the timer stops, a run in progress is waited for.
  capture->enableCapturing(false);
  if (capture->isCapturing()) {
    console.out << "Stopping: waiting for the capture in progress to finish...\n" << std::flush;
  }
  capture->waitForCapture(std::chrono::hours(24));
  reportRun();
  DataCapture::freeInstance();
  console.out << "Stopped.\n";
  return kExitOk;
}

}  // namespace PIM
