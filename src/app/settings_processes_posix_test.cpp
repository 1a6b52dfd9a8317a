// The ferrant program itself, in processes of its own, on a settings file of
// the test's own: commands at once, and settings that cannot be relied on.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "app/exit_codes.h"
#include "core/utils.h"
#include "testing/test_support.h"

extern char** environ;

namespace PIM::testing {
namespace {

class SettingsProcessesTest : public ::testing::Test {
 protected:
  struct Run {
    pid_t pid = -1;
    std::u16string out, err;  // files
  };

  // Starts the program with FERRANT_KEYSTORE, XDG_DATA_HOME and the store
  // file the test's own; a program that hangs is ended after a minute.
  Run start(const std::vector<std::string>& args) {
    Run run;
    const std::string n = std::to_string(runs_++);
    run.out = dir_.file(fromUtf8("out" + n));
    run.err = dir_.file(fromUtf8("err" + n));
    std::vector<std::string> strings = {FERRANT_PROGRAM};
    strings.insert(strings.end(), args.begin(), args.end());
    if (args[0] != "paths") {
      strings.insert(strings.begin() + 2, {"--store", FERRANT_SAMPLE_MAILBOX});
    }
    std::vector<std::string> variables = {"FERRANT_KEYSTORE=" + settings(),
                                          "XDG_DATA_HOME=" + toUtf8(dir_.path())};
    for (char** v = environ; *v; ++v) {
      const std::string variable = *v;
      if (variable.rfind("FERRANT_KEYSTORE=", 0) && variable.rfind("XDG_DATA_HOME=", 0))
        variables.push_back(variable);
    }
    std::vector<char*> argv, envp;
    for (std::string& s : strings) argv.push_back(s.data());
    for (std::string& s : variables) envp.push_back(s.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    const std::string out = toUtf8(run.out), err = toUtf8(run.err);
    run.pid = fork();
    if (run.pid == 0) {
      alarm(60);
      int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (o < 0 || e < 0 || dup2(o, 1) < 0 || dup2(e, 2) < 0) _exit(126);
      execve(argv[0], argv.data(), envp.data());
      _exit(127);
    }
    return run;
  }
  // The exit status; -1 when the program was killed.
  int finish(const Run& run) {
    int status = 0;
    if (waitpid(run.pid, &status, 0) != run.pid) return -2;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  int run(const std::vector<std::string>& args, std::string* out = nullptr,
          std::string* err = nullptr) {
    const Run started = start(args);
    const int exit = finish(started);
    if (out) *out = readFileBytes(started.out);
    if (err) *err = readFileBytes(started.err);
    return exit;
  }
  std::string settings() const { return toUtf8(dir_.file(u"keystore")); }
  std::string shown(const std::string& name) {
    std::string out;
    EXPECT_EQ(run({"prefs"}, &out), kExitOk);
    const size_t at = out.find("\n" + name + " ");
    if (at == std::string::npos) return "";
    const size_t value = out.find_first_not_of(' ', at + name.size() + 1);
    return out.substr(value, out.find('\n', value) - value);
  }
  // The data files and the index.
  std::vector<std::string> dataFiles() {
    std::vector<std::string> names;
    std::vector<FolderEntry> entries;
    if (env()->listFolder(dir_.file(u"data"), entries)) {
      for (const FolderEntry& entry : entries) {
        const std::string name = toUtf8(entry.name);
        if (name.size() > 4 && (name.ends_with(".XML") || name.ends_with(".xml")))
          names.push_back(name);
      }
    }
    return names;
  }

  TempDir dir_;
  int runs_ = 0;
};

// Each command changes only its own value, under the settings' lock; a show
// beside them writes nothing.
TEST_F(SettingsProcessesTest, CommandsAtOnceLoseNoSetting) {
  for (int round = 0; round < 20; ++round) {
    const std::string interval = std::to_string(20 + round);
    const std::string after = std::to_string(100 + round);
    const Run a = start({"prefs", "set", "captureInterval", interval});
    const Run b = start({"prefs", "set", "calendar.captureDaysAfter", after});
    const Run show = start({"prefs"});
    const Run c = start({"prefs", "folders", "email", "add", "Mailbox - João Conceição/Inbox"});
    EXPECT_EQ(finish(a), kExitOk);
    EXPECT_EQ(finish(b), kExitOk);
    EXPECT_EQ(finish(show), kExitOk);
    EXPECT_EQ(finish(c), round == 0 ? kExitOk : kExitUsage);  // chosen already
    ASSERT_EQ(shown("captureInterval"), interval) << "round " << round;
    ASSERT_EQ(shown("calendar.captureDaysAfter"), after) << "round " << round;
  }
  std::string out;
  ASSERT_EQ(run({"prefs"}, &out), kExitOk);
  EXPECT_NE(out.find("email folders:\n  Mailbox - João Conceição/Inbox\ntasks"), std::string::npos)
      << out;
}

// A settings file torn in the calendar's folder: the run stops before it
// captures, so the calendar's data file is not deleted for want of the folder.
TEST_F(SettingsProcessesTest, ADamagedSettingsFileStopsTheRunAndTellsWhereItsCopyIs) {
  const std::string dataDir = toUtf8(dir_.file(u"data"));
  // A capture writes no settings: the calendar is stored once chosen anew.
  const std::string calendar = "Mailbox - João Conceição/Calendar";
  ASSERT_EQ(run({"prefs", "folders", "calendar", "remove", calendar}), kExitOk);
  ASSERT_EQ(run({"prefs", "folders", "calendar", "add", calendar}), kExitOk);
  ASSERT_EQ(run({"capture", "--data-dir", dataDir}), kExitOk);
  const std::vector<std::string> files = dataFiles();
  ASSERT_EQ(files.size(), 4u);  // calendar, contacts, tasks and the index
  const std::string whole = readFileBytes(dir_.file(u"keystore"));
  const size_t calendarFolder = whole.find("\"captureFolders0\"");
  ASSERT_NE(calendarFolder, std::string::npos);
  const std::string torn = whole.substr(0, calendarFolder + 30);

  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"capture", "--data-dir", dataDir},
        {"watch", "--now", "--data-dir", dataDir},
        {"prefs", "set", "captureInterval", "30"}}) {
    SCOPED_TRACE(command[0]);
    writeFileBytes(dir_.file(u"keystore"), torn);
    std::string err;
    EXPECT_EQ(run(command, nullptr, &err), kExitStore);
    EXPECT_NE(err.find("ferrant: The settings file " + settings() + " is damaged"),
              std::string::npos)
        << err;
    EXPECT_NE(err.find(" It was kept as " + settings() + ".damaged-"), std::string::npos) << err;
    EXPECT_EQ(dataFiles(), files);
    EXPECT_EQ(shown("captureInterval"), "15");
  }
  EXPECT_EQ(readFileBytes(dir_.file(u"keystore.damaged-3")), torn);
  // Told once: the next run goes on with what could be read.
  EXPECT_EQ(run({"prefs", "set", "captureInterval", "30"}), kExitOk);
  EXPECT_EQ(shown("captureInterval"), "30");
}

TEST_F(SettingsProcessesTest, SettingsThatCannotBeReadStopEveryCommand) {
  const std::string newer = "ferrant-keystore 9\nwhat a later program writes\n";
  const struct {
    bool folder;
    const char* reason;
  } cases[] = {
      {false, "is of format 9, newer than this program reads"},
      {true, "Is a directory"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    if (!c.folder) {
      writeFileBytes(dir_.file(u"keystore"), newer);
    } else {
      ASSERT_EQ(unlink(settings().c_str()), 0);
      ASSERT_EQ(mkdir(settings().c_str(), 0700), 0);
    }
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"prefs", "set", "captureInterval", "30"},
          {"prefs", "folders", "email", "add", "Mailbox - João Conceição/Inbox"},
          {"prefs"},
          {"capture", "--data-dir", toUtf8(dir_.file(u"data"))}}) {
      std::string err;
      EXPECT_EQ(run(command, nullptr, &err), kExitStore) << command[0];
      EXPECT_EQ(err.rfind("ferrant: the settings cannot be read, so nothing was done: ", 0), 0u)
          << err;
      EXPECT_NE(err.find(c.reason), std::string::npos) << err;
    }
    EXPECT_TRUE(dataFiles().empty());
  }
  EXPECT_EQ(rmdir(settings().c_str()), 0);
}

}  // namespace
}  // namespace PIM::testing
