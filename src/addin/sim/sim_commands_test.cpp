// The stand-in's command language: settings, commands in order with the log
// and time limit in force where they stand, scripts, and usage errors.
#include "addin/sim/sim_commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace Sim {
namespace {

using ::testing::HasSubstr;

std::map<std::string, std::string> scripts;

bool readScript(const std::string& path, std::string& text) {
  auto it = scripts.find(path);
  if (it == scripts.end()) return false;
  text = it->second;
  return true;
}

std::optional<Options> parse(std::vector<std::string> words, std::string* error = nullptr) {
  std::string why;
  std::optional<Options> o = parseCommands(words, readScript, why);
  if (error) *error = why;
  return o;
}

TEST(SimCommands, SettingsAndCommandsInOrderWithTheLogAndTimeoutWhereTheyStand) {
  std::optional<Options> o = parse({"--mode",
                                    "after",
                                    "--bars",
                                    "Standard,Web:3",
                                    "--fail-item",
                                    "2",
                                    "--fail-advise",
                                    "--pump",
                                    "50",
                                    "--click",
                                    "Capture",
                                    "--log",
                                    "a.log",
                                    "--timeout",
                                    "2.5",
                                    "--wait-log",
                                    "Capture finished",
                                    "--click",
                                    "#2",
                                    "--log",
                                    "b.log",
                                    "--wait-log",
                                    "done",
                                    "--wait-file",
                                    "x.txt",
                                    "--shutdown",
                                    "--pump",
                                    "0"});
  ASSERT_TRUE(o);
  EXPECT_EQ(o->mode, Mode::After);
  EXPECT_EQ(o->bars, (std::vector<Bar>{{"Standard", 0}, {"Web", 3}}));
  EXPECT_EQ(o->failItem, 2);
  EXPECT_TRUE(o->failAdvise);
  EXPECT_FALSE(o->failQi);
  using K = Command::Kind;
  ASSERT_EQ(o->commands.size(), 8u);
  EXPECT_EQ(o->commands[0].kind, K::Pump);
  EXPECT_EQ(o->commands[0].number, 50);
  EXPECT_EQ(o->commands[1].text, "Capture");
  EXPECT_EQ(o->commands[1].number, 0);
  EXPECT_EQ(o->commands[2].kind, K::WaitLog);
  EXPECT_EQ(o->commands[2].log, "a.log");
  EXPECT_EQ(o->commands[2].timeoutS, 2.5);
  EXPECT_EQ(o->commands[3].number, 2);
  EXPECT_EQ(o->commands[4].log, "b.log");
  EXPECT_EQ(o->commands[5].kind, K::WaitFile);
  EXPECT_EQ(o->commands[5].timeoutS, 2.5);
  EXPECT_EQ(o->commands[6].kind, K::Shutdown);

  std::optional<Options> none = parse({"--bars", "none"});
  ASSERT_TRUE(none);
  EXPECT_TRUE(none->bars.empty());
  EXPECT_EQ(parse({})->bars, (std::vector<Bar>{{"Standard", 0}}));
}

TEST(SimCommands, ScriptsGiveOneCommandALineWithOrWithoutDashes) {
  scripts["run.txt"] =
      "\xEF\xBB\xBF# a start-up capture\r\n"
      "fail-qi\r\n"
      "--log C:\\logs\\CVTK_DBG.log\n"
      "\n"
      "wait-log   Capture finished  \n"
      "click Capture now\n";
  std::optional<Options> o = parse({"--mode", "startup", "--script", "run.txt", "--shutdown"});
  ASSERT_TRUE(o);
  EXPECT_TRUE(o->failQi);
  ASSERT_EQ(o->commands.size(), 3u);
  EXPECT_EQ(o->commands[0].text, "Capture finished");
  EXPECT_EQ(o->commands[0].log, "C:\\logs\\CVTK_DBG.log");
  EXPECT_EQ(o->commands[1].text, "Capture now");
  EXPECT_EQ(o->commands[2].kind, Command::Kind::Shutdown);
}

// Each dialog command with what it carries: the control, the text, the page,
// and the time limit in force where it stands.
TEST(SimCommands, DialogCommandsCarryTheirTargetAndTimeLimit) {
  scripts["sheet.txt"] =
      "timeout 4\n"
      "dialog Data Capture Preferences\n"
      "set-text 217=30 minutes\n"
      "press ok\n";
  std::optional<Options> o = parse({"--click",
                                    "Configure data capture",
                                    "--script",
                                    "sheet.txt",
                                    "--set-text",
                                    "218=",
                                    "--press",
                                    "cancel",
                                    "--press",
                                    "help",
                                    "--press",
                                    "1001",
                                    "--select-page",
                                    "3",
                                    "--print-texts",
                                    "--timeout",
                                    "0.5",
                                    "--dialog",
                                    "#2",
                                    "--wait-closed"});
  ASSERT_TRUE(o);
  using K = Command::Kind;
  struct Expected {
    K kind;
    std::string text;
    int number;
    double timeoutS;
  };
  const Expected expected[] = {
      {K::Click, "Configure data capture", 0, 30.0},
      {K::Dialog, "Data Capture Preferences", 0, 4.0},
      {K::SetText, "30 minutes", 217, 30.0},
      {K::Press, "ok", 1, 30.0},
      {K::SetText, "", 218, 30.0},
      {K::Press, "cancel", 2, 30.0},
      {K::Press, "help", 9, 30.0},
      {K::Press, "1001", 1001, 30.0},
      {K::SelectPage, "", 3, 30.0},
      {K::PrintTexts, "", 0, 4.0},
      {K::Dialog, "#2", 2, 0.5},
      {K::WaitClosed, "", 0, 0.5},
  };
  ASSERT_EQ(o->commands.size(), std::size(expected));
  for (size_t i = 0; i < std::size(expected); ++i) {
    const Command& c = o->commands[i];
    EXPECT_EQ(c.kind, expected[i].kind) << i;
    EXPECT_EQ(c.text, expected[i].text) << i;
    EXPECT_EQ(c.number, expected[i].number) << i;
    if (c.kind == K::Dialog || c.kind == K::WaitClosed) {
      EXPECT_EQ(c.timeoutS, expected[i].timeoutS) << i;
    }
  }
}

TEST(SimCommands, UsageErrorsSayWhatIsWrong) {
  scripts["nested.txt"] = "script nested.txt\n";
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"--mode", "later"}, "--mode"},
      {{"--bars", "Standard,"}, "empty bar name"},
      {{"--bars", "Standard:x"}, "control count"},
      {{"--fail-item", "0"}, "--fail-item"},
      {{"--pump"}, "needs a value"},
      {{"--pump", "-5"}, "--pump"},
      {{"--click", "#0"}, "#N"},
      {{"--wait-log", "x"}, "needs a --log"},
      {{"--timeout", "soon"}, "--timeout"},
      {{"--script", "missing.txt"}, "cannot read"},
      {{"--script", "nested.txt"}, "inside a script"},
      {{"--frobnicate"}, "unknown command"},
      {{"click"}, "unexpected argument"},
      {{"--dialog", ""}, "--dialog"},
      {{"--dialog", "#0"}, "#N counts dialogs"},
      {{"--set-text", "217"}, "ID=TEXT"},
      {{"--set-text", "=30"}, "ID=TEXT"},
      {{"--set-text", "x=30"}, "ID=TEXT"},
      {{"--set-text", "70000=1"}, "ID=TEXT"},
      {{"--press", "okay"}, "--press"},
      {{"--press", "-1"}, "--press"},
      {{"--select-page", "0"}, "--select-page"},
      {{"--select-page"}, "needs a value"},
  };
  for (const auto& [words, expected] : cases) {
    std::string error;
    EXPECT_FALSE(parse(words, &error)) << words[0];
    EXPECT_THAT(error, HasSubstr(expected)) << words[0];
  }
}

}  // namespace
}  // namespace Sim
