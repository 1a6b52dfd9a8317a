// `ferrant capture` and `ferrant watch` on a copy of the sample mailbox, with
// the settings in memory and a data folder of the test's own.
#include "app/capture_command.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "addin/outlook_app.h"
#include "app/data_folder_lock.h"
#include "app/exit_codes.h"
#include "app/store_session.h"
#include "capture/capture_test_util.h"
#include "capture/data_capture.h"
#include "core/utils.h"
#include "data/calendar_entry.h"
#include "prefs/preferences.h"
#include "testing/memory_key_store.h"
#include "testing/test_support.h"

#ifndef _WIN32
#include "platform/posix/file_key_store.h"
#endif

namespace PIM::testing {
namespace {

// A clock that moves a second on every look, so that the watch loop looks at
// the store file on every pass without waiting; and the gate of the capture
// tests, to hold a run where the test wants it (only the capture thread: the
// command looks at the data folder too before it starts a run).
class CommandEnv : public EnvWrapper {
 public:
  CommandEnv() : EnvWrapper(env()), scoped_(this) {}
  uint32_t tickCount() override { return ticks_ += 1000; }
  bool listFolder(const std::u16string& folder, std::vector<FolderEntry>& entries) override {
    if (std::this_thread::get_id() != testThread_) gate.pass(Step::ListDataFolder);
    return target()->listFolder(folder, entries);
  }
  std::unique_ptr<WritableFile> openForWriting(const std::u16string& path) override {
    if (refuseWrites) return nullptr;
    if (!fullDiskFor.empty() && path.find(fullDiskFor) != std::u16string::npos)
      return std::make_unique<FullDiskFile>();
    return target()->openForWriting(path);
  }
  OpenAlwaysResult openAlways(const std::u16string& path) override {
    gate.pass(Step::CreateFile);
    return target()->openAlways(path);
  }
  Gate gate;
  // Set before a run only.
  bool refuseWrites = false;
  std::u16string fullDiskFor;  // files whose path holds this text find the disk full

 private:
  // Opens, then takes no byte.
  struct FullDiskFile : WritableFile {
    size_t write(const void*, size_t) override { return 0; }
    bool close() override { return false; }
  };

  std::atomic<uint32_t> ticks_{0};
  const std::thread::id testThread_ = std::this_thread::get_id();
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
    text = std::regex_replace(text, std::regex("CVTK[0-9A-Za-z]+\\.XML"), "FILE");
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
            "Index:   DATA/DataDirectory.xml\n"
            "Written: Mailbox - João Conceição/Contacts (contacts): FILE\n"
            "         Mailbox - João Conceição/Tasks (tasks): FILE\n"
            "         Mailbox - João Conceição/Calendar (calendar): FILE\n");
  EXPECT_EQ(err_.str(), "");
  ASSERT_EQ(indexedFiles().size(), 3u);
  expectFilesValid();

  // --full reads every folder again and replaces every file.
  const std::vector<std::string> first = indexedFiles();
  ASSERT_EQ(run(runCapture, {"--full"}), kExitOk);
  EXPECT_NE(output().find("Files:   3 files written, 3 deleted, t s\n"), std::string::npos);
  for (const std::string& name : first) EXPECT_FALSE(fileExists(data_.file(fromUtf8(name))));
  expectFilesValid();
}

TEST_F(CaptureCommandTest, CtrlCCancelsTheRunWhichKeepsTheFilesOfTheFoldersNotRead) {
  ASSERT_EQ(run(runCapture, {}), kExitOk);
  const std::vector<std::string> before = indexedFiles();

  // The run is held after the contacts' read; Ctrl-C comes only then, since
  // a cancel during the read would drop the contacts too, and the gate opens
  // once the cancel has arrived. The new process took the earlier index's
  // files over: the tasks and the calendar keep theirs.
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
  const int result = run(runCapture, {"--full"}, [this] { return env_.gate.hasArrived(); });
  opener.join();
  EXPECT_EQ(result, kExitInterrupted);
  EXPECT_EQ(output(),
            "Folders: cancelled, 1 folder captured, 2 not read (cancelled)\n"
            "Items:   0 appointments, 9 contacts, 0 e-mails, 0 tasks\n"
            "Files:   1 file written, 1 deleted, t s\n"
            "Index:   DATA/DataDirectory.xml\n"
            "Written: Mailbox - João Conceição/Contacts (contacts): FILE\n");
  EXPECT_EQ(err_.str(), "");
  const std::vector<std::string> after = indexedFiles();
  ASSERT_EQ(after.size(), 3u);
  EXPECT_NE(after[0], before[0]) << "contacts come first and were read again";
  EXPECT_FALSE(fileExists(data_.file(fromUtf8(before[0]))));
  EXPECT_EQ(after[1], before[1]);
  EXPECT_EQ(after[2], before[2]);
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

TEST_F(CaptureCommandTest, ADamagedOrForeignIndexIsIgnoredWithAWarning) {
  const std::string header = std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n") +
                             "<xmlData xmlns=\"" + kDataSchemaUrl + "\">\r\n";
  struct Case {
    std::string index;
    const char* reason;
  } const cases[] = {
      {"{\"not\": \"xml\"}", "line 1: not the XML declaration of a data file"},
      {"<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<project>\r\n",
       "line 2: not the xmlData element of a data file"},
      {header +
           "<dataFile name=\"../../.profile\" type=\"tasks\" entryId=\"00\"/>\r\n</xmlData>\r\n",
       "line 3: not a file name"},
      {header + "<dataFile name=\"CVTK1.XML\" type=\"tasks\" entryId=\"00\"/>\r\n",
       "line 4: not a dataFile"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.reason);
    writeFileBytes(data_.file(kDataDirectoryName), c.index);
    EXPECT_EQ(run(runCapture, {}), kExitOk);
    EXPECT_EQ(err_.str(), "ferrant capture: ignoring " + toUtf8(data_.file(kDataDirectoryName)) +
                              " (" + c.reason + "); folders not captured now lose their files\n");
    EXPECT_EQ(indexedFiles().size(), 3u);
    expectFilesValid();
  }
}

TEST_F(CaptureCommandTest, WatchHoldsTheFolderOnlyForItsRunsAndTakesOverAnotherCapture) {
  DataFolderLock other(data_.path());
  std::string error;
  ASSERT_EQ(other.tryAcquire(error), DataFolderLock::Result::Acquired) << error;
  // The first run waits for the other process; between the runs the folder
  // is free, and another capture there replaces every file (new names, the
  // old ones deleted); the next run, with nothing changed in the store,
  // keeps that capture's files.
  int step = 0;
  std::vector<std::string> others;
  const auto script = [&] {
    const std::string text = out_.str();
    if (step == 0 && err_.str().find("; waiting for it to finish...") != std::string::npos) {
      EXPECT_EQ(text.find("folders captured"), std::string::npos) << "ran without the lock";
      other.release();
      step = 1;
    } else if (step == 0 && text.find("folders captured") != std::string::npos) {
      ADD_FAILURE() << "the run did not wait for the data folder";
      return true;
    } else if (step == 1 && text.find("folders captured") != std::string::npos) {
      EXPECT_EQ(other.tryAcquire(error), DataFolderLock::Result::Acquired) << "free between runs";
      std::string index = readFileBytes(data_.file(kDataDirectoryName));
      for (const std::string& name : indexedFiles()) {
        const std::string renamed = "CVTK0ther" + name.substr(4);
        writeFileBytes(data_.file(fromUtf8(renamed)), readFileBytes(data_.file(fromUtf8(name))));
        std::filesystem::remove(std::filesystem::path(data_.file(fromUtf8(name))));
        index.replace(index.find(name), name.size(), renamed);
        others.push_back(renamed);
      }
      writeFileBytes(data_.file(kDataDirectoryName), index);
      other.release();
      OutlookApp::instance()->actionWindow().OnTimer(DataCapture::instance()->getAutoTimerId());
      step = 2;
    } else if (step == 2 && text.find("3 unchanged") != std::string::npos) {
      return true;
    }
    return false;
  };
  ASSERT_EQ(run(runWatch, {"--now"}, script), kExitOk) << err_.str();
  EXPECT_EQ(step, 2);
  EXPECT_EQ(indexedFiles(), others);
  expectFilesValid();
}

TEST_F(CaptureCommandTest, WatchCapturesAWaitingStoreChangeOnExitWhenAsked) {
  for (const bool onExit : {false, true}) {
    SCOPED_TRACE(onExit ? "--capture-on-exit" : "without");
    TempDir folder;
    setDataFolder(folder.path());
    // The store file is edited once watch runs; it stops as soon as it has
    // seen the change, long before the timer's capture.
    int step = 0;
    const auto script = [&] {
      if (step == 0) {
        std::string box = readFileBytes(storePath());
        box.insert(box.find("Architecture workshop") + std::strlen("Architecture workshop"), "!");
        writeFileBytes(storePath(), box);
        step = 1;
      }
      return out_.str().find("store changed") != std::string::npos;
    };
    std::vector<std::string> args = {"--poll", "1"};
    if (onExit) args.push_back("--capture-on-exit");
    ASSERT_EQ(run(runWatch, args, script), kExitOk) << err_.str();
    const std::string text = output();
    if (onExit) {
      EXPECT_NE(text.find("Stopping: capturing the store change the timer has not yet "
                          "captured...\nhh:mm:ss on exit: 3 folders captured; "),
                std::string::npos)
          << text;
      EXPECT_EQ(text.substr(text.rfind('\n', text.size() - 2) + 1), "Stopped.\n");
      EXPECT_TRUE(fileExists(folder.file(kDataDirectoryName)));
    } else {
      EXPECT_EQ(text.substr(text.rfind('\n', text.size() - 2) + 1),
                "Stopped; the last store change was not captured (--capture-on-exit captures it "
                "on the way out).\n");
      EXPECT_FALSE(fileExists(folder.file(kDataDirectoryName)));
    }
  }
}

#ifndef _WIN32
// The settings in a file of the test's own, as `ferrant prefs set` in
// another process changes them.
class SettingsFileEnv : public EnvWrapper {
 public:
  explicit SettingsFileEnv(std::string path)
      : EnvWrapper(env()), store_(std::move(path)), scoped_(this) {}
  KeyStore& keyStore() override { return store_; }

 private:
  FileKeyStore store_;
  ScopedEnv scoped_;
};

TEST_F(CaptureCommandTest, WatchFollowsTheSettingsChangedByAnotherProcess) {
  TempDir settingsFolder;
  const std::string path = toUtf8(settingsFolder.file(u"keystore"));
  SettingsFileEnv settings(path);
  int step = 0;
  int looks = 0;
  const auto script = [&] {
    if (step == 0 && out_.str().find("Watching") != std::string::npos) {
      FileKeyStore otherProcess(path);
      KeyHandle key = otherProcess.currentUserRoot();
      for (const char16_t* name : {u"Software", u"Corvel", u"CVTK"}) {
        KeyHandle below = nullptr;
        EXPECT_EQ(otherProcess.createKey(key, name, &below), kKeyOk);
        if (key != otherProcess.currentUserRoot()) otherProcess.closeKey(key);
        key = below;
      }
      const uint32_t minutes = 30;
      EXPECT_EQ(otherProcess.setValue(key, u"captureInterval", ValueType::Dword,
                                      reinterpret_cast<const uint8_t*>(&minutes), 4),
                kKeyOk);
      otherProcess.closeKey(key);
      step = 1;
    }
    if (step == 1 && ++looks > 200) {
      ADD_FAILURE() << "the change was never seen";
      return true;
    }
    return out_.str().find("settings changed") != std::string::npos;
  };
  ASSERT_EQ(run(runWatch, {"--poll", "1"}, script), kExitOk) << err_.str();
  EXPECT_NE(output().find("hh:mm:ss settings changed: capturing every 30 minutes\n"),
            std::string::npos)
      << output();
  EXPECT_EQ(Preferences::instance().captureInterval, 30u);
}
#endif

// The exit status: 1 whenever some of the work failed, with one line on the
// error stream for each failure.

// The sample mailbox with the first recurrence blob replaced by one that
// the pattern reader rejects.
std::string withRejectedRecurrence(std::string box) {
  const size_t property = box.find("\"id\": \"0x8216\"}");
  const size_t value = box.find("\"value\": {", property);
  EXPECT_NE(value, std::string::npos);
  size_t end = value + std::strlen("\"value\": ");
  int depth = 0;
  do {
    if (box[end] == '{') ++depth;
    if (box[end] == '}') --depth;
    ++end;
  } while (depth > 0 && end < box.size());
  return box.replace(value, end - value, "\"value\": \"04300430 0A20\"");
}

TEST_F(CaptureCommandTest, FailuresMakeExitStatusOneWithALineEach) {
  // Every folder file finds the disk full.
  env_.fullDiskFor = u".XML";
  EXPECT_EQ(run(runCapture, {}), kExitRejected);
  EXPECT_NE(output().find("Files:   0 files written, 3 not written, 0 deleted, t s\n"),
            std::string::npos)
      << output();
  std::istringstream errors(err_.str());
  const std::string prefix =
      "ferrant capture: could not write " + toUtf8(data_.path() + kPathSeparator + u"CVTK");
  int lines = 0;
  for (std::string line; std::getline(errors, line); ++lines) {
    EXPECT_EQ(line.rfind(prefix, 0), 0u) << line;
    EXPECT_EQ(line.substr(line.size() - 4), ".XML") << line;
  }
  EXPECT_EQ(lines, 3);

  // The index cannot be written: the old one stays.
  env_.fullDiskFor.clear();
  ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
  const std::string index = readFileBytes(data_.file(kDataDirectoryName));
  env_.fullDiskFor = kDataDirectoryName;
  EXPECT_EQ(run(runCapture, {}), kExitRejected);
  EXPECT_NE(output().find("Index:   not written, DATA/DataDirectory.xml kept as it was\n"),
            std::string::npos)
      << output();
  EXPECT_EQ(err_.str(),
            "ferrant capture: could not write " + toUtf8(data_.file(kDataDirectoryName)) + "\n");
  EXPECT_EQ(readFileBytes(data_.file(kDataDirectoryName)), index);
  expectFilesValid();

  // A recurrence blob the capture rejects is an error line in the log.
  env_.fullDiskFor.clear();
  writeFileBytes(storePath(), withRejectedRecurrence(readFileBytes(storePath())));
  StoreSession rejecting;
  std::string error;
  ASSERT_TRUE(rejecting.open(storePath(), error)) << error;
  EXPECT_EQ(run(runCapture, {}), kExitRejected);
  EXPECT_NE(output().find("\nErrors:  1 error line in the log"), std::string::npos) << output();
  EXPECT_NE(output().find("Files:   3 files written"), std::string::npos) << output();

  // watch tells each failed run the same way, and ends with 1.
  EXPECT_EQ(run(runWatch, {"--now"},
                [this] { return out_.str().find("folders captured") != std::string::npos; }),
            kExitRejected);
  EXPECT_NE(output().find("; 1 error line in the log"), std::string::npos) << output();
}

// The data folder: a run writes only where it may delete ".xml" files, one
// process at a time, and says so when it cannot write at all.

TEST_F(CaptureCommandTest, AFolderWithOtherFilesIsRefusedUnlessForced) {
  writeFileBytes(data_.file(u"pom.xml"), "<project/>");
  writeFileBytes(data_.file(u"Report.XML"), "<report/>");
  for (const auto command : {runCapture, runWatch}) {
    EXPECT_EQ(run(command, {}, [] { return true; }), kExitUsage);
    EXPECT_NE(err_.str().find(" holds other files and no DataDirectory.xml."), std::string::npos)
        << err_.str();
    EXPECT_NE(err_.str().find("--force"), std::string::npos);
  }
  EXPECT_EQ(readFileBytes(data_.file(u"pom.xml")), "<project/>");
  EXPECT_EQ(readFileBytes(data_.file(u"Report.XML")), "<report/>");
  EXPECT_FALSE(fileExists(data_.file(u"DataDirectory.xml")));
  EXPECT_FALSE(fileExists(data_.file(kDataFolderLockName))) << "nothing left behind";

  // Insisting makes it a data folder like any other: its .xml files go.
  ASSERT_EQ(run(runCapture, {"--force"}), kExitOk) << err_.str();
  EXPECT_FALSE(fileExists(data_.file(u"pom.xml")));
  EXPECT_EQ(indexedFiles().size(), 3u);
  ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
}

TEST_F(CaptureCommandTest, EmptyFoldersAndEarlierDataFoldersAreUsed) {
  struct Case {
    const char* what;
    std::vector<std::u16string> files;  // in the data folder before the run
  } const cases[] = {
      {"empty", {}},
      {"an earlier data folder with a file of the user's", {u"DataDirectory.xml", u"notes.txt"}},
      {"a run that ended before its index", {kDataFolderLockName, u"CVTK1a.XML"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir folder;
    setDataFolder(folder.path());
    for (const std::u16string& name : c.files) writeFileBytes(folder.file(name), "");
    EXPECT_EQ(run(runCapture, {}), kExitOk) << err_.str();
    EXPECT_TRUE(fileExists(folder.file(kDataDirectoryName)));
    EXPECT_TRUE(fileExists(folder.file(kDataFolderLockName)));
    EXPECT_FALSE(fileExists(folder.file(u"CVTK1a.XML"))) << "stale";
    for (const std::u16string& name : c.files) {
      if (name == u"notes.txt") {
        EXPECT_TRUE(fileExists(folder.file(name))) << "not an .xml file";
      }
    }
  }
}

TEST_F(CaptureCommandTest, ADataFolderThatCannotBeWrittenStopsTheCommand) {
  // A file where the folder should be.
  const std::u16string file = data_.file(u"plain-file");
  writeFileBytes(file, "x");
  setDataFolder(file);
  for (const auto command : {runCapture, runWatch}) {
    EXPECT_EQ(run(command, {}, [] { return true; }), kExitStore);
    EXPECT_NE(err_.str().find(": the data folder " + toUtf8(file) +
                              " is not a folder that can be read\n"),
              std::string::npos)
        << err_.str();
    EXPECT_EQ(out_.str(), "");
  }
  EXPECT_EQ(readFileBytes(file), "x");

  // A folder where the lock can be had but no data file made.
  TempDir fresh;
  setDataFolder(fresh.path());
  env_.refuseWrites = true;
  EXPECT_EQ(run(runCapture, {}), kExitStore);
  EXPECT_EQ(err_.str(), "ferrant capture: cannot write into the data folder " +
                            toUtf8(fresh.path()) + " (no file can be made there)\n");
  EXPECT_EQ(out_.str(), "");
}

TEST_F(CaptureCommandTest, AReadOnlyDataFolderStopsTheCommand) {
  const std::u16string locked = data_.file(u"read-only");
  ASSERT_TRUE(std::filesystem::create_directory(std::filesystem::path(locked)));
  std::filesystem::permissions(
      std::filesystem::path(locked),
      std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  writeFileBytes(locked + kPathSeparator + u"probe", "");
  const bool writable = fileExists(locked + kPathSeparator + u"probe");
  if (!writable) {
    setDataFolder(locked);
    EXPECT_EQ(run(runCapture, {}), kExitStore);
    EXPECT_NE(err_.str().find("ferrant capture: cannot write into the data folder " +
                              toUtf8(locked) + " ("),
              std::string::npos)
        << err_.str();
  }
  std::filesystem::permissions(std::filesystem::path(locked), std::filesystem::perms::owner_all);
  if (writable) GTEST_SKIP() << "these tests may write into a read-only folder (root)";
}

TEST_F(CaptureCommandTest, ASecondCommandWaitsForTheFolderOrExitsWithNoWait) {
  DataFolderLock other(data_.path());
  std::string error;
  ASSERT_EQ(other.tryAcquire(error), DataFolderLock::Result::Acquired) << error;

  EXPECT_EQ(run(runCapture, {"--no-wait"}), kExitStore);
  EXPECT_EQ(err_.str(), "ferrant capture: another ferrant is writing into " + toUtf8(data_.path()) +
                            " (--no-wait: not waiting for it)\n");
  EXPECT_EQ(run(runWatch, {"--no-wait", "--now"}, [] { return true; }), kExitStore);
  EXPECT_FALSE(fileExists(data_.file(kDataDirectoryName)));

  // Ctrl-C while waiting: nothing is written.
  EXPECT_EQ(run(runCapture, {}, [] { return true; }), kExitInterrupted);
  EXPECT_FALSE(fileExists(data_.file(kDataDirectoryName)));

  // The other one finishes while this one waits: the run follows.
  const int result = run(runCapture, {}, [&] {
    if (err_.str().find("; waiting for it to finish...\n") != std::string::npos) other.release();
    return false;
  });
  EXPECT_EQ(result, kExitOk) << err_.str();
  EXPECT_EQ(err_.str(), "ferrant capture: another ferrant is writing into " + toUtf8(data_.path()) +
                            "; waiting for it to finish...\n");
  EXPECT_EQ(indexedFiles().size(), 3u);

  // And while this command runs, the folder is its own.
  EXPECT_EQ(other.tryAcquire(error), DataFolderLock::Result::Acquired) << "released at the end";
}

// Across runs: a new process rewrites only the folders whose items, settings
// or files changed since the last capture into the folder.

// Each file of the data folder with its bytes and last write.
struct FolderState {
  std::map<std::string, std::pair<std::string, std::filesystem::file_time_type>> files;
  bool operator==(const FolderState&) const = default;
};

FolderState folderState(const std::u16string& folder) {
  FolderState state;
  for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(folder))) {
    const std::string name = entry.path().filename().string();
    if (name == ".ferrant.fingerprints") continue;  // remembered anew each run
    state.files[name] = {readFileBytes(fromUtf8(entry.path().string())),
                         std::filesystem::last_write_time(entry.path())};
  }
  return state;
}

// The sample with a sixth task after the last.
std::string withAddedTask(std::string box) {
  const std::string last = "\"No due date yet.\"}\n                    ]\n                  }";
  const size_t at = box.find(last);
  EXPECT_NE(at, std::string::npos);
  box.insert(at + last.size(),
             ",\n{\"key\": \"t.added\", \"class\": \"IPM.Task\", \"props\": "
             "[{\"tag\": \"PR_SUBJECT_W\", \"value\": \"Added later\"}]}");
  return box;
}

// The first `from` after `anchor` made `to`.
std::string replaced(std::string box, const std::string& from, const std::string& to,
                     const std::string& anchor = "") {
  const size_t at = box.find(from, box.find(anchor));
  EXPECT_NE(at, std::string::npos) << from;
  if (at != std::string::npos) box.replace(at, from.size(), to);
  return box;
}

TEST_F(CaptureCommandTest, ASecondRunOverAnUnchangedStoreRewritesNothing) {
  ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
  const FolderState before = folderState(data_.path());
  ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
  EXPECT_EQ(output(),
            "Folders: 0 folders captured, 3 unchanged\n"
            "Items:   0 appointments, 0 contacts, 0 e-mails, 0 tasks\n"
            "Files:   0 files written, 0 deleted, t s\n"
            "Index:   DATA/DataDirectory.xml\n");
  EXPECT_EQ(err_.str(), "");
  EXPECT_TRUE(folderState(data_.path()) == before) << "a file was written again";
  expectFilesValid();
}

TEST_F(CaptureCommandTest, ASecondRunRewritesOnlyTheFoldersThatChanged) {
  const std::string sample = readFileBytes(storePath());
  const std::string added = withAddedTask(sample);
  enum Folder { kContacts, kTasks, kCalendar };  // the index's order
  struct Case {
    const char* what;
    std::string storeBefore, storeAfter;
    std::function<void(const std::vector<std::string>& files)> between;
    Folder rewritten;
  };
  const auto setTaskBody = [](bool on) {
    std::string why;
    ASSERT_TRUE(Preferences::instance().change(
        [on](PreferenceValues& values) {
          values.tasks.captureBody = on;
          return true;
        },
        why))
        << why;
  };
  const Case cases[] = {
      {"a changed task", sample, replaced(sample, "ترجمة الدليل", "ترجمة الدليل 2"), {}, kTasks},
      {"a changed contact",
       sample,
       replaced(sample, "\"Renée Lefèvre\"", "\"Renée Martin\"", "\"c.renee\""),
       {},
       kContacts},
      {"an added task", sample, added, {}, kTasks},
      {"a deleted task", added, sample, {}, kTasks},
      {"a changed setting", sample, sample, [&](const auto&) { setTaskBody(false); }, kTasks},
      {"a deleted file", sample, sample,
       [&](const std::vector<std::string>& files) {
         ASSERT_TRUE(env()->removeFile(data_.file(fromUtf8(files[kContacts]))));
       },
       kContacts},
      {"an edited file", sample, sample,
       [&](const std::vector<std::string>& files) {
         const std::u16string path = data_.file(fromUtf8(files[kCalendar]));
         writeFileBytes(path, readFileBytes(path) + " ");
       },
       kCalendar},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<std::string> first;
    {
      writeFileBytes(storePath(), c.storeBefore);
      StoreSession session;
      std::string error;
      ASSERT_TRUE(session.open(storePath(), error)) << error;
      ASSERT_EQ(run(runCapture, {"--full"}), kExitOk) << err_.str();
      first = indexedFiles();
      ASSERT_EQ(first.size(), 3u);
    }
    const FolderState before = folderState(data_.path());
    writeFileBytes(storePath(), c.storeAfter);
    StoreSession session;
    std::string error;
    ASSERT_TRUE(session.open(storePath(), error)) << error;
    if (c.between) c.between(first);
    ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
    setTaskBody(true);
    EXPECT_NE(output().find("Folders: 1 folder captured, 2 unchanged\n"), std::string::npos)
        << output();
    const std::vector<std::string> after = indexedFiles();
    ASSERT_EQ(after.size(), 3u);
    for (int folder : {kContacts, kTasks, kCalendar}) {
      if (folder == c.rewritten) {
        EXPECT_NE(after[folder], first[folder]) << folder;
        continue;
      }
      EXPECT_EQ(after[folder], first[folder]) << folder;
      EXPECT_TRUE(before.files.at(after[folder]) ==
                  folderState(data_.path()).files.at(after[folder]))
          << "folder " << folder << " was written again";
    }
    expectFilesValid();
  }
}

TEST_F(CaptureCommandTest, ADamagedFingerprintFileMakesAFullCapture) {
  const std::u16string fingerprints = data_.file(u".ferrant.fingerprints");
  ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
  const std::string good = readFileBytes(fingerprints);
  for (const std::string& damaged :
       {good.substr(0, good.size() - 3), std::string("ferrant fingerprints 9\nend 0\n"),
        replaced(good, " CVTK", " ../CVTK")}) {
    writeFileBytes(fingerprints, damaged);
    ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
    EXPECT_NE(output().find("Folders: 3 folders captured\n"), std::string::npos) << output();
    EXPECT_EQ(err_.str().rfind("ferrant capture: ignoring " + toUtf8(fingerprints) + " (line ", 0),
              0u)
        << err_.str();
    expectFilesValid();
  }
  // A missing one too, without a word; and a watch run forgets it.
  env()->removeFile(fingerprints);
  ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
  EXPECT_NE(output().find("Folders: 3 folders captured\n"), std::string::npos) << output();
  EXPECT_EQ(err_.str(), "");
  ASSERT_EQ(run(runWatch, {"--now"},
                [this] { return out_.str().find("folders captured") != std::string::npos; }),
            kExitOk);
  EXPECT_FALSE(fileExists(fingerprints));
}

// Options for archives: every folder of the store, and a calendar window
// counted from another day.

TEST_F(CaptureCommandTest, AllFoldersCapturesEveryFolderOfTheStoreThisRunOnly) {
  Preferences::instance().read();
  const PreferenceValues saved = Preferences::instance();
  // The sample's e-mails without an HTML body leave error lines in the log
  // (the e-mail capture looks for one first), hence 1.
  const int status = run(runCapture, {"--all-folders"});
  EXPECT_TRUE(status == kExitOk || status == kExitRejected) << status << err_.str();
  // The top of the store and Sent and Deleted Items are empty: no file.
  const std::string text = output();
  EXPECT_EQ(text.substr(0, text.find("Errors:  ")),
            "Folders: 8 folders captured\n"
            "Items:   12 appointments, 9 contacts, 7 e-mails, 5 tasks\n"
            "Files:   5 files written, 0 deleted, t s\n"
            "Index:   DATA/DataDirectory.xml\n"
            "Written: Mailbox - João Conceição/Contacts (contacts): FILE\n"
            "         Mailbox - João Conceição/Tasks (tasks): FILE\n"
            "         Mailbox - João Conceição/Calendar (calendar): FILE\n"
            "         Mailbox - João Conceição/Inbox (e-mail): FILE\n"
            "         Mailbox - João Conceição/Inbox/Recibos & فواتير (e-mail): FILE\n");
  EXPECT_EQ(indexedFiles().size(), 5u);
  expectFilesValid();
  // The saved lists are as they were; the next plain run goes back to them.
  Preferences::instance().read();
  EXPECT_EQ(Preferences::instance().email.folders, saved.email.folders);
  EXPECT_EQ(Preferences::instance().calendar.folders, saved.calendar.folders);
  ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
  EXPECT_EQ(indexedFiles().size(), 3u);
}

TEST_F(CaptureCommandTest, AsOfCountsTheCalendarWindowFromThatDay) {
  // The sample's single appointments lie around its own days: counted from
  // a day in 2004 only the recurring series are left.
  ASSERT_EQ(run(runCapture, {"--as-of", "2004-06-15"}), kExitOk) << err_.str();
  const std::string in2004 = output();
  ASSERT_EQ(run(runCapture, {"--as-of=2004-06-15"}), kExitOk) << err_.str();
  EXPECT_NE(output().find("3 unchanged"), std::string::npos) << "same day, same files";
  ASSERT_EQ(run(runCapture, {}), kExitOk) << err_.str();
  EXPECT_NE(output().find("1 folder captured, 2 unchanged"), std::string::npos)
      << "another day: the calendar again\n"
      << output();
  EXPECT_NE(in2004.find("Items:   "), std::string::npos);
  EXPECT_NE(in2004.substr(in2004.find("Items:   ")), output().substr(output().find("Items:   ")));
  EXPECT_EQ(CalendarEntry::windowDay().year, env()->systemTimeNow().year) << "for this run only";

  for (const char* bad :
       {"2004-02-30", "2004-6-15", "15.06.2004", "1600-12-31", "2004-13-01", "2004-06-15x", ""}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(run(runCapture, {"--as-of", bad}), kExitUsage);
    EXPECT_EQ(err_.str(),
              std::string("ferrant capture: --as-of takes a day as YYYY-MM-DD (1601-01-01 to "
                          "9999-12-31), not '") +
                  bad + "'\n");
  }
  EXPECT_EQ(run(runCapture, {"--as-of"}), kExitUsage);
  EXPECT_EQ(err_.str(), "ferrant capture: --as-of needs a day (YYYY-MM-DD)\n");
  EXPECT_EQ(run(runCapture, {"--as-of", "2004-02-29"}), kExitOk) << "a leap day";
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
