// Capture runs: which folders are read, the files they leave, the clean-up of
// the data folder and the index, also when the store fails or the user
// cancels.
#include <gtest/gtest.h>

#include <filesystem>

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

}  // namespace
}  // namespace PIM::testing
