// Monitored folders: opening, change notifications, the reference count, and
// one folder's capture into its data file.
#include "capture/monitored_folder.h"

#include <gtest/gtest.h>

#include "capture/capture_test_util.h"
#include "data/email.h"
#include "data/task.h"
#include "mapi/com_error.h"

namespace PIM::testing {
namespace {

class MonitoredFolderTest : public CaptureTest {
 protected:
  FolderRef open(const std::string& key, uint32_t type) {
    return MonitoredFolder::open(identity(key), type);
  }

  template <class Record>
  HRESULT capture(MonitoredFolder& folder, size_t* count = nullptr) {
    std::vector<Record> records;
    CancelFlag cancel{false};
    const HRESULT hr = folder.captureFolder(data_.path(), records, cancel);
    if (count) *count = records.size();
    return hr;
  }
};

TEST_F(MonitoredFolderTest, OpensTheFolderAndListensToItsTable) {
  FolderRef folder = open("inbox", kFolderEmail);
  ASSERT_TRUE(folder);
  EXPECT_TRUE(folder->isTracking());
  EXPECT_EQ(folder->getFolderType(), uint32_t(kFolderEmail));
  EXPECT_EQ(folder->getFolder(), identity("inbox"));
  EXPECT_NE(folder->getMapiFolder(), nullptr);
  EXPECT_EQ(folder->getFileName(), u"");

  // Ours and the notification wrapper's; stopping the notifications lets the
  // wrapper's go, so that dropping ours frees the folder.
  EXPECT_EQ(folder->AddRef(), 3u);
  EXPECT_EQ(folder->Release(), 2u);
  folder->stopNotifications();
  EXPECT_EQ(folder->AddRef(), 2u);
  EXPECT_EQ(folder->Release(), 1u);
}

// The table holds the notification wrapper, which holds the folder: a store
// that refuses the Unadvise must not keep the folder, and through it the
// whole store, alive.
TEST_F(MonitoredFolderTest, AFailedUnadviseStillFreesTheFolder) {
  FolderRef folder = open("inbox", kFolderEmail);
  store::ScopedFaults faults;
  faults->failAlways("IMAPITable::Unadvise", MAPI_E_CALL_FAILED);
  folder->stopNotifications();
  EXPECT_EQ(faults->callCount("IMAPITable::Unadvise"), 1u);
  EXPECT_EQ(folder->AddRef(), 2u) << "only ours is left";
  EXPECT_EQ(folder->Release(), 1u);
}

TEST_F(MonitoredFolderTest, AnswersOnlyTheSinkInterfaces) {
  FolderRef folder = open("tasks", kFolderTasks);
  void* out = reinterpret_cast<void*>(1);
  EXPECT_EQ(folder->QueryInterface(IID_IMAPITable, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(folder->QueryInterface(IID_IMAPIAdviseSink, nullptr), E_INVALIDARG);
  for (const IID* iid : {&IID_IUnknown, &IID_IMAPIAdviseSink}) {
    ASSERT_EQ(folder->QueryInterface(*iid, &out), S_OK);
    EXPECT_EQ(out, static_cast<IMAPIAdviseSink*>(folder.get()));
    static_cast<IMAPIAdviseSink*>(out)->Release();
  }
}

TEST_F(MonitoredFolderTest, OnlyAChangeNotificationMakesATrackedFolderReadAgain) {
  addTask(u"Pay rent");
  FolderRef folder = open("tasks", kFolderTasks);
  size_t count = 0;
  ASSERT_EQ(capture<Task>(*folder, &count), S_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(folder->getFileName(), u"CVTK1000.XML");
  expectValidDataFile(dataFile(u"CVTK1000.XML"));

  // Unchanged: not read, same file.
  ASSERT_EQ(capture<Task>(*folder, &count), S_FALSE);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(folder->getFileName(), u"CVTK1000.XML");
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1000.XML"}));

  // Any notification counts, also one that changes no item.
  profile_->touchFolder(profile_->byKey("tasks"));
  ASSERT_EQ(capture<Task>(*folder, &count), S_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(folder->getFileName(), u"CVTK1001.XML") << "a new file; the run deletes the old";

  addTask(u"Water plants");
  ASSERT_EQ(capture<Task>(*folder, &count), S_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(folder->getFileName(), u"CVTK1002.XML");
}

TEST_F(MonitoredFolderTest, AFolderThatBecameEmptyLosesItsFileName) {
  const store::Ref task = addTask(u"Pay rent");
  FolderRef folder = open("tasks", kFolderTasks);
  ASSERT_EQ(capture<Task>(*folder), S_OK);
  ASSERT_EQ(folder->getFileName(), u"CVTK1000.XML");
  profile_->deleteItem(task);
  ASSERT_EQ(capture<Task>(*folder), S_OK);
  EXPECT_EQ(folder->getFileName(), u"");
  // The file made for the empty folder is gone again; the old one is the
  // run's to delete.
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1000.XML"}));
}

// An e-mail record that asks to cancel as soon as it has been read: the read
// stops after the first row.
struct CancellingEmail : Email {
  static inline CancelFlag* cancel = nullptr;
  static HRESULT makeDataRow(const std::vector<NameIdPair>& pairs, const MAPIProperties& row,
                             IUnknown* source, CancellingEmail& email) {
    *cancel = true;
    return Email::makeDataRow(pairs, row, source, email);
  }
};

TEST_F(MonitoredFolderTest, ACancelledReadKeepsThePreviousFile) {
  FolderRef folder = open("inbox", kFolderEmail);
  ASSERT_EQ(capture<Email>(*folder), S_OK);
  ASSERT_EQ(folder->getFileName(), u"CVTK1000.XML");
  const std::string before = readFileBytes(dataFile(u"CVTK1000.XML"));

  folder->setIsModified();
  std::vector<CancellingEmail> records;
  CancelFlag cancel{false};
  CancellingEmail::cancel = &cancel;
  EXPECT_EQ(folder->captureFolder(data_.path(), records, cancel), E_ABORT);
  EXPECT_EQ(records.size(), 1u) << "stopped in the middle of the folder";
  EXPECT_EQ(folder->getFileName(), u"CVTK1000.XML");
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1000.XML"}));
  EXPECT_EQ(readFileBytes(dataFile(u"CVTK1000.XML")), before);

  // The flag was taken: the next run leaves the folder alone until it
  // changes again.
  size_t count = 0;
  EXPECT_EQ(capture<Email>(*folder, &count), S_FALSE);
  EXPECT_EQ(count, 0u);
}

TEST_F(MonitoredFolderTest, AFailedTableCallIsLoggedAndKeepsThePreviousFile) {
  addTask(u"Pay rent");
  FolderRef folder = open("tasks", kFolderTasks);
  ASSERT_EQ(capture<Task>(*folder), S_OK);
  store::ScopedFaults faults;
  faults->failCall("IMAPITable::SortTable", MAPI_E_CALL_FAILED);
  folder->setIsModified();
  LogCapture log;
  EXPECT_EQ(capture<Task>(*folder), E_FAIL);
  EXPECT_EQ(captureLines(log),
            std::vector<std::string>({"ERR> Failed to retrieve data from the data table: " +
                                      hrText(MAPI_E_CALL_FAILED)}));
  EXPECT_EQ(folder->getFileName(), u"CVTK1000.XML");
  EXPECT_EQ(dataFolderNames(), std::vector<std::string>({"CVTK1000.XML"}));
}

TEST_F(MonitoredFolderTest, AStoreFolderOrTableThatCannotBeOpenedIsThrownAfterItsLine) {
  const struct {
    const char* call;
    const char* line;
  } cases[] = {
      {"IMAPISession::OpenMsgStore", "ERR> Failed to get selected message store"},
      {"IMsgStore::OpenEntry", "ERR> Failed to get folder"},
      {"IMAPIFolder::GetContentsTable", "ERR> Failed to get table"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.call);
    store::ScopedFaults faults;
    faults->failAlways(c.call, MAPI_E_NO_ACCESS);
    LogCapture log;
    try {
      open("tasks", kFolderTasks);
      ADD_FAILURE() << "opened";
    } catch (const ComError& e) {
      EXPECT_EQ(e.hr(), MAPI_E_NO_ACCESS);
    }
    EXPECT_EQ(captureLines(log), std::vector<std::string>({c.line}));
  }
}

TEST_F(MonitoredFolderTest, AStoreThatFailsTheLineSpeedReadIsNotMonitored) {
  store::ScopedFaults faults;
  // A store without the property still gives a tracked folder...
  EXPECT_TRUE(open("tasks", kFolderTasks)->isTracking());
  // ...but any other failure of the read ends the opening, and the folder
  // lets go of the registration it had made.
  const unsigned advised = faults->callCount("IMAPITable::Advise");
  const unsigned unadvised = faults->callCount("IMAPITable::Unadvise");
  faults->failAlways("IMsgStore::GetProps", MAPI_E_CALL_FAILED);
  EXPECT_THROW(open("tasks", kFolderTasks), ComError);
  EXPECT_EQ(faults->callCount("IMAPITable::Advise"), advised + 1);
  EXPECT_EQ(faults->callCount("IMAPITable::Unadvise"), unadvised + 1);
}

TEST_F(MonitoredFolderTest, WithoutNotificationsAFolderIsReadOnlyWhenMarked) {
  const struct {
    const char* call;
    const char* line;
  } cases[] = {
      {"HrThisThreadAdviseSink",
       "ERR> Non-fatal error - failed to create thread safe sink - this table will always be "
       "marked as modified."},
      {"IMAPITable::Advise",
       "ERR> Non-fatal error - failed to advise table - this table will always be marked as "
       "modified."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.call);
    store::ScopedFaults faults;
    faults->failCall(c.call, MAPI_E_NO_SUPPORT);
    LogCapture log;
    FolderRef folder = open("inbox", kFolderEmail);
    EXPECT_EQ(captureLines(log), std::vector<std::string>({c.line}));
    EXPECT_TRUE(folder->isTracking());
    size_t count = 0;
    ASSERT_EQ(capture<Email>(*folder, &count), S_OK);
    EXPECT_EQ(count, 4u) << "a new folder is read";
    const std::u16string first = folder->getFileName();

    // Deaf to changes: read again only once the folder list marks it.
    profile_->touchFolder(profile_->byKey("inbox"));
    ASSERT_EQ(capture<Email>(*folder, &count), S_FALSE);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(folder->getFileName(), first);
    folder->setIsModified();
    ASSERT_EQ(capture<Email>(*folder, &count), S_OK);
    EXPECT_EQ(count, 4u);
    EXPECT_NE(folder->getFileName(), first);
    folder.reset();
    for (const std::string& name : dataFolderNames()) env()->removeFile(dataFile(fromUtf8(name)));
  }
}

TEST_F(MonitoredFolderTest, AFolderWhoseColumnsCannotBeSetIsReadOnEveryRun) {
  store::ScopedFaults faults;
  faults->failCall("IMAPITable::QueryColumns", MAPI_E_CALL_FAILED);
  FolderRef folder = open("inbox", kFolderEmail);
  EXPECT_FALSE(folder->isTracking());
  size_t count = 0;
  ASSERT_EQ(capture<Email>(*folder, &count), S_OK);
  EXPECT_EQ(count, 4u);
  ASSERT_EQ(capture<Email>(*folder, &count), S_OK);
  EXPECT_EQ(count, 4u) << "unchanged, read all the same";
}

}  // namespace
}  // namespace PIM::testing
