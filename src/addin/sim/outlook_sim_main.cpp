// outlook-sim: a test-only stand-in for Outlook that loads the add-ins the
// registry lists, connects them to a small Office object model and drives
// them with a command language (sim_commands.h). It prints one fact a line:
//
//   registry hive=HKLM progid=Ferrant.PimAddin LoadBehavior=3 load=1
//   addin Ferrant.PimAddin clsid={...} path=...
//   call OnConnection mode=1 hr=0x00000000 ms=3.10
//   office CommandBars.Item(1) hr=0x00000000 -> VT_DISPATCH   (what the add-in did)
//   timing class_object_ms=.. create_ms=.. connect_ms=.. startup_complete_ms=.. total_ms=..
//   button bar="Standard" index=1 caption="..." faceid=4 style=1 visible=-1 temporary=1
//          tooltip="..." description="..." picture=16x16 mask=16x16 number=1 sinks=1
//   click caption="..." number=1 sinks=1 hr=0x00000000 ms=0.05
//   dialog "Data Capture Preferences" found ms=60
//   texts title="..." page=1      (then one "text where=dialog|page id=.. class=.. text=".."")
//   call OnBeginShutdown hr=0x00000000 ms=12.30
//   DllCanUnloadNow hr=0x00000000
//   loop max_blocked_ms=.. messages=..
//   exit 0
// ("-" stands for a property never set.) Exit status: 0 all went as
// expected, 1 a command or expectation failed, 2 bad usage, 3 no add-in.
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "addin/sim/office_model.h"
#include "addin/sim/sim_commands.h"
#include "addin/sim/sim_host_win32.h"

namespace {

constexpr char kUsage[] =
    "usage: outlook-sim [--mode startup|after] [--bars NAME[:N],...|none] [--fail-item N]\n"
    "         [--fail-qi] [--fail-add] [--fail-advise] [--null-app] [--no-mapi]\n"
    "         [--addin PROGID] [--expect-connect-fail] [--dispatch] [--script FILE]\n"
    "         [--log FILE] [--timeout S] commands...\n"
    "commands, run in order: --pump MS  --click CAPTION|#N  --wait-log TEXT\n"
    "                        --wait-file PATH  --shutdown\n"
    "on a dialog of the stand-in's thread: --dialog TITLE|#N  --set-text ID=TEXT\n"
    "                        --press ID|ok|cancel|help  --select-page N  --print-texts\n"
    "                        --wait-closed\n";

bool readScript(const std::string& path, std::string& text) {
  std::ifstream in(std::filesystem::path(OfficeModel::fromUtf8(path)), std::ios::binary);
  if (!in) return false;
  std::ostringstream all;
  all << in.rdbuf();
  text = all.str();
  return true;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) words.push_back(OfficeModel::toUtf8(argv[i]));
  if (words.size() == 1 && (words[0] == "--help" || words[0] == "-h")) {
    std::fputs(kUsage, stdout);
    return Sim::kExitOk;
  }
  std::string error;
  std::optional<Sim::Options> options = Sim::parseCommands(words, readScript, error);
  if (!options) {
    std::fprintf(stderr, "outlook-sim: %s\n%s", error.c_str(), kUsage);
    return Sim::kExitUsage;
  }
  return Sim::runHost(*options);
}
