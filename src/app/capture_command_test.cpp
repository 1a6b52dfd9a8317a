// `ferrant capture` and `ferrant watch` on a copy of the sample mailbox, with
// the settings in memory and a data folder of the test's own.
#include "app/capture_command.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "addin/outlook_app.h"
#include "app/exit_codes.h"
#include "app/store_session.h"
#include "capture/capture_test_util.h"
#include "capture/data_capture.h"
#include "core/utils.h"
#include "prefs/preferences.h"
#include "testing/memory_key_store.h"
#include "testing/test_support.h"

namespace PIM::testing {
namespace {

// A clock that moves a second on every look, so that the watch loop looks at
// the store file on every pass without waiting; and the gate of the capture
// tests, to hold a run where the test wants it.
class CommandEnv : public EnvWrapper {
 public:
  CommandEnv() : EnvWrapper(env()), scoped_(this) {}
  uint32_t tickCount() override { return ticks_ += 1000; }
  bool listFolder(const std::u16string& folder, std::vector<FolderEntry>& entries) override {
    gate.pass(Step::ListDataFolder);
    return target()->listFolder(folder, entries);
  }
  OpenAlwaysResult openAlways(const std::u16string& path) override {
    gate.pass(Step::CreateFile);
    return target()->openAlways(path);
  }
  Gate gate;

 private:
  std::atomic<uint32_t> ticks_{0};
  ScopedEnv scoped_;
};

class CaptureCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Preferences::instance().resetToDefaults();
    setDataFolder(data_.path());
    writeFileBytes(storePath(), readFileBytes(fromUtf8(FERRANT_SAMPLE_MAILBOX)));
    std::string error;
    ASSERT_TRUE(session_.open(storePath(), error)) << error;
  }
  void TearDown() override {
    DataCapture::freeInstance();
    setDataFolder(u"");
    Preferences::instance().resetToDefaults();
  }

  std::u16string storePath() const { return store_.file(u"box.json"); }

  int run(int (*command)(int, char**, StoreSession&, const Console&), std::vector<std::string> args,
          std::function<bool()> interrupted = {}) {
    out_.str("");
    err_.str("");
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    const Console console{out_, err_, false, std::move(interrupted), std::chrono::milliseconds(5)};
    return command(static_cast<int>(argv.size()), argv.data(), session_, console);
  }

  // The output with the data folder as "DATA" (and its separator as "/"), clock times as "hh:mm:ss"
  // and run times as "t s".
  std::string output() const {
    std::string text = out_.str();
    for (const auto& [folder, shown] :
         {std::pair(data_.path() + kPathSeparator, "DATA/"), std::pair(data_.path(), "DATA")}) {
      const std::string bytes = toUtf8(folder);
      for (size_t at; (at = text.find(bytes)) != std::string::npos;)
        text.replace(at, bytes.size(), shown);
    }
    text = std::regex_replace(text, std::regex("\\d\\d:\\d\\d:\\d\\d "), "hh:mm:ss ");
    return std::regex_replace(text, std::regex("\\d+\\.\\d s"), "t s");
  }

  // The data files the index names, in its order.
  std::vector<std::string> indexedFiles() const {
    const std::string index = readFileBytes(data_.file(u"DataDirectory.xml"));
    std::vector<std::string> names;
    static const std::regex kName("<dataFile name=\"([^\"]*)\"");
    for (auto it = std::sregex_iterator(index.begin(), index.end(), kName);
         it != std::sregex_iterator(); ++it)
      names.push_back((*it)[1]);
    return names;
  }

  void expectFilesValid() const {
    expectValidDataFile(data_.file(u"DataDirectory.xml"));
    for (const std::string& name : indexedFiles()) expectValidDataFile(data_.file(fromUtf8(name)));
  }

  MemoryKeyStoreEnv keys_;
  CommandEnv env_;
  TempDir data_, store_;
  StoreSession session_;
  std::ostringstream out_, err_;
};

TEST_F(CaptureCommandTest, CaptureRunsOnceAndSumsUp) {
  ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
  EXPECT_EQ(output(),
            "Folders: 3 folders captured\n"
            "Items:   12 appointments, 9 contacts, 0 e-mails, 5 tasks\n"
            "Files:   3 files written, 0 deleted, t s\n"
            "Index:   DATA/DataDirectory.xml\n");
  EXPECT_EQ(err_.str(), "");
  ASSERT_EQ(indexedFiles().size(), 3u);
  expectFilesValid();

  // A second run in a new process reads every folder again and replaces
  // every file.
  const std::vector<std::string> first = indexedFiles();
  ASSERT_EQ(run(runCapture, {}), kExitOk);
  EXPECT_NE(output().find("Files:   3 files written, 3 deleted, t s\n"), std::string::npos);
  for (const std::string& name : first) EXPECT_FALSE(fileExists(data_.file(fromUtf8(name))));
  expectFilesValid();
}

TEST_F(CaptureCommandTest, CtrlCCancelsTheRunWhichStillWritesTheIndex) {
  ASSERT_EQ(run(runCapture, {}), kExitOk);
  const std::vector<std::string> before = indexedFiles();

  // The run is held after the contacts' read; Ctrl-C comes only then, since
  // a cancel during the read would drop the contacts too, and the gate opens
  // once the cancel has arrived. A new controller knows no earlier files: the
  // folders it did not read have none, so their old files go as stale ones
  // and the index lists the contacts only.
  env_.gate.arm(Step::CreateFile);
  std::thread opener([this] {
    ASSERT_TRUE(env_.gate.waitArrived());
    DataCapture* capture = DataCapture::instance();
    const auto deadline = std::chrono::steady_clock::now() + kRunTimeout;
    while (!capture->isCancelRequested() && std::chrono::steady_clock::now() < deadline)
      std::this_thread::yield();
    EXPECT_TRUE(capture->isCancelRequested()) << "Ctrl-C never reached the run";
    env_.gate.open();
  });
  const int result = run(runCapture, {}, [this] { return env_.gate.hasArrived(); });
  opener.join();
  EXPECT_EQ(result, kExitInterrupted);
  EXPECT_EQ(output(),
            "Folders: cancelled, 1 folder captured, 2 not read (cancelled)\n"
            "Items:   0 appointments, 9 contacts, 0 e-mails, 0 tasks\n"
            "Files:   1 file written, 3 deleted, t s\n"
            "Index:   DATA/DataDirectory.xml\n");
  const std::vector<std::string> after = indexedFiles();
  ASSERT_EQ(after.size(), 1u);
  EXPECT_NE(after[0], before[0]) << "contacts come first and were read again";
  for (const std::string& name : before) EXPECT_FALSE(fileExists(data_.file(fromUtf8(name))));
  expectFilesValid();
}

TEST_F(CaptureCommandTest, WatchRewritesOnlyTheFolderChangedInTheStoreFile) {
  // The script runs between the loop's waits: after the start-up capture
  // the file is edited; once the change is seen the capture timer fires;
  // after that run the watch stops.
  int step = 0;
  std::vector<std::string> afterFirstRun;
  const auto script = [&] {
    const std::string text = out_.str();
    if (step == 0 && text.find("folders captured") != std::string::npos) {
      afterFirstRun = indexedFiles();
      std::string box = readFileBytes(storePath());
      const size_t at = box.find("Architecture workshop");
      EXPECT_NE(at, std::string::npos);
      box.insert(at + std::strlen("Architecture workshop"), " (moved)");
      writeFileBytes(storePath(), box);
      step = 1;
    } else if (step == 1 && text.find("store changed") != std::string::npos) {
      DataCapture* capture = DataCapture::instance();
      EXPECT_NE(capture->getAutoTimerId(), 0u) << "automatic mode";
      OutlookApp::instance()->actionWindow().OnTimer(capture->getAutoTimerId());
      step = 2;
    } else if (step == 2 && text.find("1 folder captured") != std::string::npos) {
      return true;
    }
    return false;
  };
  ASSERT_EQ(run(runWatch, {"--now", "--poll", "1"}, script), kExitOk) << err_.str();
  EXPECT_EQ(output(),
            "Watching " + toUtf8(storePath()) +
                ", capturing every 15 minutes, into DATA. Ctrl-C stops.\n"
                "hh:mm:ss 3 folders captured; 12 appointments, 9 contacts, 0 e-mails, 5 tasks; "
                "3 files written, 0 deleted, t s\n"
                "hh:mm:ss store changed: Top of Information Store/Calendar\n"
                "hh:mm:ss 1 folder captured, 2 unchanged; 12 appointments, 0 contacts, "
                "0 e-mails, 0 tasks; 1 file written, 1 deleted, t s\n"
                "Stopped.\n");
  // Contacts, tasks, calendar: only the calendar's file is new.
  const std::vector<std::string> files = indexedFiles();
  ASSERT_EQ(files.size(), 3u);
  ASSERT_EQ(afterFirstRun.size(), 3u);
  EXPECT_EQ(files[0], afterFirstRun[0]);
  EXPECT_EQ(files[1], afterFirstRun[1]);
  EXPECT_NE(files[2], afterFirstRun[2]);
  EXPECT_NE(readFileBytes(data_.file(fromUtf8(files[2]))).find("Architecture workshop (moved)"),
            std::string::npos);
  expectFilesValid();
  EXPECT_EQ(DataCapture::instance()->getAutoTimerId(), 0u) << "a new controller, never enabled";
}

TEST_F(CaptureCommandTest, WatchStopsOnlyOnceTheRunInProgressHasEnded) {
  // The start-up run is held at its start until the stop was asked for.
  env_.gate.arm(Step::ListDataFolder);
  std::atomic<bool> stopAsked{false};
  std::thread opener([&] {
    ASSERT_TRUE(env_.gate.waitArrived());
    while (!stopAsked) std::this_thread::yield();
    env_.gate.open();
  });
  const int result = run(runWatch, {"--now"}, [&] { return stopAsked = true; });
  opener.join();
  EXPECT_EQ(result, kExitOk);
  const std::string text = output();
  const size_t report = text.find("hh:mm:ss 3 folders captured;");
  ASSERT_NE(report, std::string::npos) << text;
  EXPECT_EQ(text.substr(text.find('\n', report) + 1), "Stopped.\n");
  EXPECT_EQ(indexedFiles().size(), 3u);
  expectFilesValid();
}

TEST_F(CaptureCommandTest, BadArgumentsAreUsageErrors) {
  EXPECT_EQ(run(runCapture, {"now"}), kExitUsage);
  EXPECT_EQ(err_.str(),
            "ferrant capture: unexpected argument 'now' (see ferrant capture --help)\n");
  EXPECT_EQ(run(runWatch, {"--poll", "0"}), kExitUsage);
  EXPECT_EQ(err_.str(), "ferrant watch: --poll takes 1 to 3600 seconds, not '0'\n");
  EXPECT_EQ(run(runWatch, {"--poll"}), kExitUsage);
  EXPECT_EQ(run(runCapture, {"--help"}), kExitOk);
  EXPECT_EQ(out_.str().rfind("usage: ferrant capture", 0), 0u);
  EXPECT_FALSE(fileExists(data_.file(u"DataDirectory.xml"))) << "nothing ran";
}

}  // namespace
}  // namespace PIM::testing
