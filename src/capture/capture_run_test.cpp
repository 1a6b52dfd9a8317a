// Capture runs: which folders are read, the files they leave, the clean-up of
// the data folder and the index, also when the store fails or the user
// cancels.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "capture/capture_test_util.h"
#include "mapi/com_error.h"

namespace PIM::testing {
namespace {

class CaptureRunTest : public CaptureTest {
 protected:
  void SetUp() override {
    CaptureTest::SetUp();
    addContact(u"Ana Lima");
    addTask(u"Pay rent");
    addTask(u"Water plants");
    Preferences& preferences = Preferences::instance();
    preferences.calendar.folders = {identity("calendar")};  // empty
    preferences.contacts.folders = {identity("contacts")};
    preferences.email.folders = {identity("inbox")};
    preferences.tasks.folders = {identity("tasks")};
  }

  // Contacts, tasks, calendar, mail: the calendar's file is made and
  // deleted again, so the mail gets the name after the tasks'.
  std::string firstIndex() {
    return envelope(indexLine("CVTK1000.XML", "contacts", "contacts") +
                    indexLine("CVTK1001.XML", "tasks", "tasks") +
                    indexLine("CVTK1002.XML", "email", "inbox"));
  }
};

TEST_F(CaptureRunTest, ANewFolderIsCapturedWhetherOrNotNotificationsWork) {
  for (const char* broken : {"", "HrThisThreadAdviseSink", "IMAPITable::Advise"}) {
    SCOPED_TRACE(broken);
    store::ScopedFaults faults;
    if (*broken) faults->failAlways(broken, MAPI_E_NO_SUPPORT);
    LogCapture log;
    DataCapture* capture = DataCapture::instance();
    runCapture(capture);
    EXPECT_EQ(index(), firstIndex());
    EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1000.XML", "CVTK1001.XML",
                                                           "CVTK1002.XML", "DataDirectory.xml"}));
    expectFilesValid();
    std::vector<std::string> lines = captureLines(log);
    // Without notifications each folder said so once when it was opened.
    if (*broken) lines.erase(lines.begin(), lines.begin() + 4);
    EXPECT_EQ(lines, std::vector<std::string>({"MSG> Beginning data capture process.",
                                               "MSG> Writing data directory.",
                                               "MSG> Completed data capture process."}));
    DataCapture::freeInstance();
    for (const std::string& name : dataFolderNames()) env()->removeFile(dataFile(fromUtf8(name)));
  }
}

// The summary's numbers in one line, to compare whole.
std::string summaryOf(const DataCapture::RunSummary& s) {
  std::string text = "read " + std::to_string(s.foldersRead) + ", unchanged " +
                     std::to_string(s.foldersUnchanged) + ", failed " +
                     std::to_string(s.foldersFailed) + "; records";
  for (uint32_t count : s.records) text += " " + std::to_string(count);
  text += "; written " + std::to_string(s.filesWritten) + ", deleted " +
          std::to_string(s.filesDeleted) + (s.cancelled ? ", cancelled" : "");
  return text;
}

TEST_F(CaptureRunTest, OnlyTheChangedFolderIsWrittenAgain) {
  DataCapture* capture = DataCapture::instance();
  EXPECT_EQ(summaryOf(capture->lastRunSummary()),
            "read 0, unchanged 0, failed 0; records 0 0 0 0; written 0, deleted 0");
  runCapture(capture);
  // Calendar (empty), contacts, mail, tasks.
  EXPECT_EQ(summaryOf(capture->lastRunSummary()),
            "read 4, unchanged 0, failed 0; records 0 1 4 2; written 3, deleted 0");
  const std::string contacts = readFileBytes(dataFile(u"CVTK1000.XML"));
  const std::string mail = readFileBytes(dataFile(u"CVTK1002.XML"));

  addTask(u"Call the bank");
  runCapture(capture);
  EXPECT_EQ(index(), envelope(indexLine("CVTK1000.XML", "contacts", "contacts") +
                              indexLine("CVTK1003.XML", "tasks", "tasks") +
                              indexLine("CVTK1002.XML", "email", "inbox")));
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1000.XML", "CVTK1002.XML",
                                                         "CVTK1003.XML", "DataDirectory.xml"}));
  EXPECT_EQ(readFileBytes(dataFile(u"CVTK1000.XML")), contacts);
  EXPECT_EQ(readFileBytes(dataFile(u"CVTK1002.XML")), mail);
  EXPECT_NE(readFileBytes(dataFile(u"CVTK1003.XML")).find("Call the bank"), std::string::npos);
  expectFilesValid();
  EXPECT_EQ(summaryOf(capture->lastRunSummary()),
            "read 1, unchanged 3, failed 0; records 0 0 0 3; written 1, deleted 1");

  // Nothing changed: every folder keeps its file.
  runCapture(capture);
  EXPECT_EQ(index(), envelope(indexLine("CVTK1000.XML", "contacts", "contacts") +
                              indexLine("CVTK1003.XML", "tasks", "tasks") +
                              indexLine("CVTK1002.XML", "email", "inbox")));
  expectIndexMatchesFolder();
}

TEST_F(CaptureRunTest, AnEmptiedFolderLosesItsFileAndIndexLine) {
  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  for (const char* mail : {"m1", "m2", "m3", "m4"}) profile_->deleteItem(profile_->byKey(mail));
  runCapture(capture);
  EXPECT_EQ(index(), envelope(indexLine("CVTK1000.XML", "contacts", "contacts") +
                              indexLine("CVTK1001.XML", "tasks", "tasks")));
  EXPECT_EQ(dataFolderNames(),
            std::vector<std::string>({"CVTK1000.XML", "CVTK1001.XML", "DataDirectory.xml"}));
}

TEST_F(CaptureRunTest, ReadOnlyFilesFoldersAndOtherFilesSurviveTheCleanUp) {
  writeFileBytes(dataFile(u"old.xml"), "x");
  writeFileBytes(dataFile(u"Notes.XML"), "x");
  writeFileBytes(dataFile(u"keep.xml"), "x");
  writeFileBytes(dataFile(u"readme.txt"), "x");
  ASSERT_TRUE(env()->makeDirectory(dataFile(u"folder.xml")));
  const std::filesystem::path locked(dataFile(u"keep.xml"));
  const auto writable = std::filesystem::perms::owner_write | std::filesystem::perms::group_write |
                        std::filesystem::perms::others_write;
  std::filesystem::permissions(locked, writable, std::filesystem::perm_options::remove);

  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  EXPECT_EQ(index(), firstIndex());
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1000.XML", "CVTK1001.XML",
                                                         "CVTK1002.XML", "DataDirectory.xml",
                                                         "folder.xml", "keep.xml", "readme.txt"}));
  EXPECT_EQ(capture->lastRunSummary().filesDeleted, 2u) << "old.xml and Notes.XML";
  std::filesystem::permissions(locked, writable, std::filesystem::perm_options::add);
}

#ifndef _WIN32
// Off Windows names that differ in letter case are different files: only the
// folder's own file is kept.
TEST_F(CaptureRunTest, AFileNamedLikeAFoldersFileButInAnotherCaseIsDeleted) {
  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  writeFileBytes(dataFile(u"cvtk1001.xml"), "x");
  runCapture(capture);
  EXPECT_EQ(index(), firstIndex());
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1000.XML", "CVTK1001.XML",
                                                         "CVTK1002.XML", "DataDirectory.xml"}));
}
#endif

TEST_F(CaptureRunTest, WithoutFoldersTheRunEmptiesTheDataFolderAndWritesAnEmptyIndex) {
  Preferences::instance().resetToDefaults();
  writeFileBytes(dataFile(u"CVTK0042.XML"), "x");
  writeFileBytes(dataFile(u"DataDirectory.xml"), "x");
  DataCapture* capture = DataCapture::instance();
  EXPECT_EQ(capture->getFolderCount(), 0u);
  runCapture(capture);
  EXPECT_EQ(index(), envelope(""));
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"DataDirectory.xml"}));
  expectValidDataFile(dataFile(kDataDirectoryName));
}

TEST_F(CaptureRunTest, CancellingKeepsThePreviousFilesOfTheFoldersNotYetRead) {
  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  capture->updateCaptureFolders();  // every folder modified

  // Held after the contacts were read, as their new file is made.
  env_.gate.arm(Step::CreateFile);
  LogCapture log;
  capture->captureNow();
  ASSERT_TRUE(env_.gate.waitArrived());
  capture->cancelCapture();
  EXPECT_TRUE(capture->progress().cancelRequested);
  env_.gate.open();
  ASSERT_TRUE(capture->waitForCapture(kRunTimeout));

  EXPECT_EQ(index(), envelope(indexLine("CVTK1003.XML", "contacts", "contacts") +
                              indexLine("CVTK1001.XML", "tasks", "tasks") +
                              indexLine("CVTK1002.XML", "email", "inbox")));
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1001.XML", "CVTK1002.XML",
                                                         "CVTK1003.XML", "DataDirectory.xml"}));
  EXPECT_EQ(capture->getFoldersDone(), 4u) << "every folder counts";
  EXPECT_EQ(summaryOf(capture->lastRunSummary()),
            "read 1, unchanged 0, failed 3; records 0 1 0 0; written 1, deleted 1, cancelled");

  // The update the cancel arranged rebuilds the list but starts no run.
  const uint32_t retry = capture->getFolderRetryTimerId();
  ASSERT_NE(retry, 0u);
  actionWindow().OnTimer(retry);
  EXPECT_EQ(capture->getFolderRetryTimerId(), 0u);
  EXPECT_FALSE(capture->isCapturing());
  EXPECT_EQ(captureLines(log), std::vector<std::string>({"MSG> Beginning data capture process.",
                                                         "MSG> Writing data directory.",
                                                         "MSG> Completed data capture process."}));
}

// Every store call the run makes, failed in turn: the run ends, the thread
// survives, and the index names exactly the folder files that exist.
TEST_F(CaptureRunTest, StoreFailuresNeverLeaveTheIndexNamingAMissingFile) {
  std::vector<std::string> calls;
  {
    store::ScopedFaults faults;
    DataCapture* capture = DataCapture::instance();
    runCapture(capture);
    calls = faults->calledNames();
    DataCapture::freeInstance();
  }
  ASSERT_GT(calls.size(), 10u);
  for (const std::string& call : calls) {
    for (int when = 0; when < 3; ++when) {
      SCOPED_TRACE(call + (when == 0   ? " always, from the start"
                           : when == 1 ? " always, after a first run"
                                       : " once, the second time"));
      for (const std::string& name : dataFolderNames()) env()->removeFile(dataFile(fromUtf8(name)));
      store::ScopedFaults faults;
      if (when == 0) faults->failAlways(call, MAPI_E_CALL_FAILED);
      DataCapture* capture = DataCapture::instance();
      runCapture(capture);
      if (when > 0) {
        if (when == 1) faults->failAlways(call, MAPI_E_CALL_FAILED);
        if (when == 2) faults->failCall(call, MAPI_E_CALL_FAILED, 2);
        profile_->touchFolder(profile_->byKey("contacts"));
        addTask(u"Another");
        capture->updateCaptureFolders();
        runCapture(capture);
      }
      faults->clear();
      expectIndexMatchesFolder();
      DataCapture::freeInstance();
      if (HasFailure()) return;
    }
  }
}

// A record type that lets a test act while a row is made.
struct Probe {
  static inline ULONG limit = RecordQuery::kNoLimit;
  static inline std::function<void(size_t)> onRow;  // given the row's number, from 1
  static inline size_t rows = 0;

  static std::vector<NameIdPair> getNameIdPairs() { return {}; }
  static PropTagArray getPropIds(const std::vector<NameIdPair>&) {
    return PropTagArray(std::vector<ULONG>{PR_SUBJECT_W});
  }
  static HRESULT getRestriction(RecordQuery& query, const std::vector<NameIdPair>&) {
    query.rowLimit = limit;
    return S_OK;
  }
  static HRESULT makeDataRow(const std::vector<NameIdPair>&, const MAPIProperties&, IMAPIFolder*,
                             Probe&) {
    if (onRow) onRow(++rows);
    return S_OK;
  }
};

// Only a read that the cancel cut short is a cancelled read, and a store
// that stops giving rows is not the table's end.
TEST_F(CaptureRunTest, TheTableReadTellsACompleteReadFromACutOne) {
  const struct {
    const char* what;
    ULONG limit;
    size_t cancelAtRow;  // 0: no cancel
    bool failRows;
    HRESULT result;
    size_t records;
  } cases[] = {
      {"cancel once the limit is reached", 2, 2, false, S_OK, 2},
      {"cancel with rows left", RecordQuery::kNoLimit, 1, false, E_ABORT, 1},
      {"no cancel", RecordQuery::kNoLimit, 0, false, S_OK, 2},
      {"the store fails to give rows", RecordQuery::kNoLimit, 0, true, E_FAIL, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    CancelFlag cancel{false};
    Probe::limit = c.limit;
    Probe::rows = 0;
    Probe::onRow = [&](size_t row) {
      if (row == c.cancelAtRow) cancel = true;
    };
    store::ScopedFaults faults;
    if (c.failRows) faults->failCall("IMAPITable::QueryRows", MAPI_E_CALL_FAILED);
    std::vector<Probe> records;
    EXPECT_EQ(getDataList(folder("tasks").get(), &records, cancel), c.result);
    EXPECT_EQ(records.size(), c.records);
  }
  Probe::onRow = nullptr;
}

// Whatever the run has done to the data folder when it is killed, the index
// there is whole and names only whole files that exist.
class DataFolderSnapshots : public EnvWrapper {
 public:
  explicit DataFolderSnapshots(std::function<void(const std::string& after)> check)
      : EnvWrapper(env()), check_(std::move(check)), scoped_(this) {}
  std::unique_ptr<WritableFile> openForWriting(const std::u16string& path) override {
    class File : public WritableFile {
     public:
      File(std::unique_ptr<WritableFile> file, DataFolderSnapshots& owner, std::string name)
          : file_(std::move(file)), owner_(owner), name_(std::move(name)) {}
      size_t write(const void* data, size_t size) override { return file_->write(data, size); }
      bool close() override {
        const bool ok = file_->close();
        owner_.check_("writing " + name_);
        return ok;
      }

     private:
      std::unique_ptr<WritableFile> file_;
      DataFolderSnapshots& owner_;
      std::string name_;
    };
    check_("opening " + toUtf8(path));
    auto file = target()->openForWriting(path);
    return file ? std::make_unique<File>(std::move(file), *this, toUtf8(path)) : nullptr;
  }
  bool removeFile(const std::u16string& path) override {
    const bool ok = target()->removeFile(path);
    check_("deleting " + toUtf8(path));
    return ok;
  }
  bool replaceFile(const std::u16string& from, const std::u16string& to) override {
    const bool ok = target()->replaceFile(from, to);
    check_("renaming " + toUtf8(from));
    return ok;
  }

 private:
  std::function<void(const std::string&)> check_;
  ScopedEnv scoped_;
};

TEST_F(CaptureRunTest, AKillAtAnyStepLeavesAWholeIndexOfWholeFiles) {
  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  const std::string footer = "</xmlData>\r\n";
  auto whole = [&](const std::u16string& path) {
    const std::string bytes = readFileBytes(path);
    return bytes.size() >= footer.size() &&
           bytes.compare(bytes.size() - footer.size(), footer.size(), footer) == 0;
  };
  size_t checks = 0;
  DataFolderSnapshots snapshots([&](const std::string& after) {
    ++checks;
    ASSERT_TRUE(whole(dataFile(kDataDirectoryName))) << "no whole index after " << after;
    for (const std::string& name : indexedNames())
      EXPECT_TRUE(whole(dataFile(fromUtf8(name)))) << name << " after " << after;
  });
  // Every folder written again, one emptied, one no longer monitored.
  for (const char* mail : {"m1", "m2", "m3", "m4"}) profile_->deleteItem(profile_->byKey(mail));
  Preferences::instance().contacts.folders.clear();
  capture->updateCaptureFolders();
  runCapture(capture);
  EXPECT_GE(checks, 6u) << "files written, old ones deleted and the index replaced";
  EXPECT_TRUE(capture->lastRunSummary().indexWritten);
  expectIndexMatchesFolder();
}

// A file that cannot be written whole is told in the run's summary; an
// index that cannot be leaves the old one and every file it names.
TEST_F(CaptureRunTest, WriteFailuresAreReportedAndNeverCostTheOldIndex) {
  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  const std::string before = index();

  class FailingDisk : public EnvWrapper {
   public:
    FailingDisk() : EnvWrapper(env()), scoped_(this) {}
    std::unique_ptr<WritableFile> openForWriting(const std::u16string& path) override {
      // The disk takes the bytes but fails them at the close, as a full one
      // does with a small file.
      class File : public WritableFile {
       public:
        explicit File(std::unique_ptr<WritableFile> file) : file_(std::move(file)) {}
        size_t write(const void* data, size_t size) override { return file_->write(data, size); }
        bool close() override { return file_->close() && false; }

       private:
        std::unique_ptr<WritableFile> file_;
      };
      auto file = target()->openForWriting(path);
      return file ? std::make_unique<File>(std::move(file)) : nullptr;
    }

   private:
    ScopedEnv scoped_;
  };
  {
    FailingDisk disk;
    capture->updateCaptureFolders();
    runCapture(capture);
  }
  const DataCapture::RunSummary summary = capture->lastRunSummary();
  EXPECT_EQ(summaryOf(summary),
            "read 4, unchanged 0, failed 0; records 0 1 4 2; written 0, deleted 0");
  EXPECT_EQ(summary.filesFailed, 3u);
  EXPECT_FALSE(summary.indexWritten);
  ASSERT_EQ(summary.failures.size(), 4u);
  EXPECT_EQ(summary.failures[0], "could not write " + toUtf8(dataFile(u"CVTK1003.XML")));
  EXPECT_EQ(summary.failures[3], "could not write " + toUtf8(dataFile(kDataDirectoryName)));
  EXPECT_GT(summary.errorsLogged, 0u);
  EXPECT_EQ(index(), before) << "the old index stays";
  for (const std::string& name : indexedNames())
    EXPECT_NE(readFileBytes(dataFile(fromUtf8(name))), "") << name << " stays";

  // The next run with a sound disk cleans up after it.
  capture->updateCaptureFolders();
  runCapture(capture);
  EXPECT_TRUE(capture->lastRunSummary().indexWritten);
  EXPECT_TRUE(capture->lastRunSummary().failures.empty());
  expectIndexMatchesFolder();
}

// A new controller over an earlier capture (the command line's every start)
// takes over the files the index names, so a run cancelled before a folder
// was read keeps that folder's file and line; names it cannot trust are
// left alone.
TEST_F(CaptureRunTest, ANewControllerTakesOverTheFilesOfAnEarlierIndex) {
  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  const std::string first = index();
  ASSERT_EQ(first, firstIndex());
  DataCapture::freeInstance();

  auto entry = [&](const std::u16string& name, int32_t type, const std::string& folderKey) {
    return DataDirectoryEntry{name, type, identity(folderKey)};
  };
  writeFileBytes(dataFile(u"Report.txt"), "mine");
  capture = DataCapture::instance();
  capture->adoptPreviousFiles({
      entry(u"../CVTK1000.XML", DataDirectoryEntry::Contacts, "contacts"),    // not a bare name
      entry(u"DataDirectory.xml", DataDirectoryEntry::Contacts, "contacts"),  // the index
      entry(u"CVTK1001.XML", DataDirectoryEntry::Contacts, "tasks"),          // another kind
      entry(u"CVTK9999.XML", DataDirectoryEntry::Contacts, "contacts"),       // missing
      entry(u"CVTK1000.XML", DataDirectoryEntry::Contacts, "contacts"),
      entry(u"CVTK1001.XML", DataDirectoryEntry::Tasks, "tasks"),
      entry(u"CVTK1002.XML", DataDirectoryEntry::Email, "inbox"),
  });
  // Cancelled as soon as it starts: no folder is read.
  env_.gate.arm(Step::ListDataFolder);
  capture->captureNow();
  ASSERT_TRUE(env_.gate.waitArrived());
  capture->cancelCapture();
  env_.gate.open();
  ASSERT_TRUE(capture->waitForCapture(kRunTimeout));
  EXPECT_EQ(index(), first);
  EXPECT_EQ(dataFolderNames(),
            std::vector<std::string>({"CVTK1000.XML", "CVTK1001.XML", "CVTK1002.XML",
                                      "DataDirectory.xml", "Report.txt"}));
}

// A controller that lives on (ferrant watch) takes over the index another
// capture left between its runs. A folder that index no longer names, its
// file gone with it, is read again: the next index must not name the file
// the other capture deleted.
TEST_F(CaptureRunTest, AFolderTheAdoptedIndexLeftOutIsCapturedAgain) {
  DataCapture* capture = DataCapture::instance();
  runCapture(capture);
  ASSERT_EQ(index(), firstIndex());
  // The other capture: the tasks folder's file deleted, the index without it.
  ASSERT_TRUE(env()->removeFile(dataFile(u"CVTK1001.XML")));
  capture->adoptPreviousFiles({
      DataDirectoryEntry{u"CVTK1000.XML", DataDirectoryEntry::Contacts, identity("contacts")},
      DataDirectoryEntry{u"CVTK1002.XML", DataDirectoryEntry::Email, identity("inbox")},
  });
  runCapture(capture);
  EXPECT_TRUE(capture->lastRunSummary().indexWritten);
  expectIndexMatchesFolder();
  EXPECT_EQ(indexedNames().size(), 3u) << index();
}

}  // namespace
}  // namespace PIM::testing
