// The store's mapi32.dll as a host sees it: imported through the toolchain's
// mapi32 import library, loaded from beside this program (Wine told to prefer
// it), one process with one shared profile. Each test sets the environment,
// counts the process in with MAPIInitialize and out again at the end.
#include <initguid.h>
#include <windows.h>
#define USES_IID_IMAPIAdviseSink
#define USES_IID_IMAPIFolder
#define USES_IID_IMsgStore
#include <gtest/gtest.h>
#include <mapiguid.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "mapi/mapi.h"
#include "mapi/mapi_ptr.h"

namespace {

using PIM::ComPtr;
using PIM::MapiBuffer;
using PIM::RowSet;
using namespace std::chrono_literals;

const std::string kFixture = R"({
  "stores": [{
    "key": "main", "name": "Mailbox - Test", "default": true,
    "ipmSubtree": "ipm", "receiveFolder": "inbox",
    "root": {"folders": [
      {"key": "ipm", "name": "Top of Information Store", "folders": [
        {"key": "inbox", "name": "Inbox", "class": "IPF.Note", "items": [
          {"key": "m1", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "Budget"}]},
          {"key": "m2", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "Lunch"}]}]},
        {"key": "calendar", "name": "Calendar", "class": "IPF.Appointment"}]}]}
  }]
})";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  text.replace(text.find(from), from.size(), to);
  return text;
}

// Delivers the thread's messages until `done` holds or the deadline passes.
bool pumpUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
    if (done()) return true;
    if (std::chrono::steady_clock::now() > deadline) return false;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
  }
}

// Waits for `done` without delivering any message.
bool waitWithoutPumping(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(5ms);
  }
  return true;
}

// Remembers what it heard and on which thread.
class RecordingSink final : public IMAPIAdviseSink {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (iid != IID_IUnknown && iid != IID_IMAPIAdviseSink) {
      *out = nullptr;
      return E_NOINTERFACE;
    }
    *out = static_cast<IMAPIAdviseSink*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override {
    for (ULONG i = 0; i < count; ++i) {
      const NOTIFICATION& n = notifications[i];
      if (n.ulEventType != fnevTableModified) continue;
      lastEvent = n.info.tab.ulTableEvent;
      for (ULONG c = 0; c < n.info.tab.row.cValues; ++c)
        if (n.info.tab.row.lpProps[c].ulPropTag == PR_SUBJECT_W)
          lastSubject = n.info.tab.row.lpProps[c].Value.lpszW;
    }
    thread = GetCurrentThreadId();
    events += count;
    return 0;
  }
  std::atomic<ULONG> refs{1};
  std::atomic<int> events{0};
  std::atomic<DWORD> thread{0};
  ULONG lastEvent = 0;
  std::wstring lastSubject;
};

class StoreDll : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("mapi32-dll-" + std::to_string(GetCurrentProcessId()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
    fixture_ = dir_ / "box.json";
    writeFixture(kFixture);
    setEnv(L"FERRANT_STORE", fixture_.wstring().c_str());
    setEnv(L"FERRANT_STORE_POLL_MS", L"20");
    setEnv(L"FERRANT_STORE_FAIL", nullptr);
  }
  void TearDown() override {
    while (inits_ > 0) uninitialize();
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
  }

  static void setEnv(const wchar_t* name, const wchar_t* value) {
    SetEnvironmentVariableW(name, value);
  }
  void writeFixture(const std::string& text) {
    std::ofstream out(fixture_, std::ios::binary | std::ios::trunc);
    out << text;
  }
  void initialize() {
    ASSERT_EQ(MAPIInitialize(nullptr), S_OK);
    ++inits_;
  }
  void uninitialize() {
    MAPIUninitialize();
    --inits_;
  }
  static HRESULT logon(ComPtr<IMAPISession>& session) {
    return MAPILogonEx(0, nullptr, nullptr, MAPI_EXTENDED | MAPI_USE_DEFAULT, session.put());
  }

  // The default store's receive folder (the inbox) and its contents table
  // showing the subject.
  static ComPtr<IMAPITable> inboxTable(IMAPISession* session) {
    ComPtr<IMAPITable> stores;
    EXPECT_EQ(session->GetMsgStoresTable(0, stores.put()), S_OK);
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_DEFAULT_STORE}};
    RowSet rows;
    EXPECT_EQ(HrQueryAllRows(stores.get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr,
                             nullptr, 0, rows.put()),
              S_OK);
    ComPtr<IMsgStore> store;
    for (ULONG i = 0; rows && i < rows->cRows; ++i) {
      const SRow& row = rows->aRow[i];
      if (row.lpProps[1].ulPropTag != PR_DEFAULT_STORE || !row.lpProps[1].Value.b) continue;
      EXPECT_EQ(session->OpenMsgStore(0, row.lpProps[0].Value.bin.cb,
                                      reinterpret_cast<LPENTRYID>(row.lpProps[0].Value.bin.lpb),
                                      nullptr, MDB_NO_DIALOG, store.put()),
                S_OK);
    }
    if (!store) return {};
    ULONG idSize = 0;
    MapiBuffer<ENTRYID> id;
    EXPECT_EQ(store->GetReceiveFolder(nullptr, 0, &idSize, id.put(), nullptr), S_OK);
    ULONG type = 0;
    ComPtr<IMAPIFolder> inbox;
    EXPECT_EQ(store->OpenEntry(idSize, id.get(), &IID_IMAPIFolder, 0, &type, inbox.putUnknown()),
              S_OK);
    if (!inbox) return {};
    ComPtr<IMAPITable> table;
    EXPECT_EQ(inbox->GetContentsTable(MAPI_UNICODE, table.put()), S_OK);
    SizedSPropTagArray(1, subject) = {1, {PR_SUBJECT_W}};
    EXPECT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&subject), 0), S_OK);
    return table;
  }

  static std::wstring subjects(IMAPITable* table) {
    RowSet rows;
    if (FAILED(HrQueryAllRows(table, nullptr, nullptr, nullptr, 0, rows.put()))) return L"?";
    std::wstring text;
    for (ULONG i = 0; i < rows->cRows; ++i) {
      const SPropValue& v = rows->aRow[i].lpProps[0];
      text += (i ? L"," : L"") + std::wstring(v.ulPropTag == PR_SUBJECT_W ? v.Value.lpszW : L"-");
    }
    return text;
  }

  std::filesystem::path dir_;
  std::filesystem::path fixture_;
  int inits_ = 0;
};

TEST_F(StoreDll, LogonBeforeInitializeFailsAndAfterTheLastUninitializeAgain) {
  ComPtr<IMAPISession> session;
  EXPECT_EQ(logon(session), MAPI_E_NOT_INITIALIZED);
  EXPECT_FALSE(session);
  initialize();
  initialize();
  uninitialize();
  EXPECT_EQ(logon(session), S_OK) << "one MAPIInitialize still counts";
  session.reset();
  uninitialize();
  EXPECT_EQ(logon(session), MAPI_E_NOT_INITIALIZED);
  EXPECT_EQ(MAPILogonEx(0, nullptr, nullptr, 0, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(StoreDll, LogonOpensTheFixtureAndRowsCrossTheDllBoundary) {
  initialize();
  ComPtr<IMAPISession> session;
  ASSERT_EQ(logon(session), S_OK);
  ComPtr<IMAPITable> table = inboxTable(session.get());
  ASSERT_TRUE(table);
  // Rows the DLL allocated, freed here by FreeProws through the import.
  EXPECT_EQ(subjects(table.get()), L"Budget,Lunch");
  MapiBuffer<SPropValue> name;
  ComPtr<IMAPITable> stores;
  ASSERT_EQ(session->GetMsgStoresTable(0, stores.put()), S_OK);
  RowSet rows;
  SizedSPropTagArray(1, columns) = {1, {PR_DISPLAY_NAME_W}};
  ASSERT_EQ(HrQueryAllRows(stores.get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr,
                           nullptr, 1, rows.put()),
            S_OK);
  ASSERT_EQ(rows->cRows, 1u);
  EXPECT_STREQ(rows->aRow[0].lpProps[0].Value.lpszW, L"Mailbox - Test");
  EXPECT_EQ(HrQueryAllRows(table.get(), nullptr, nullptr, nullptr, 1, rows.put()),
            MAPI_E_TABLE_TOO_BIG);
}

TEST_F(StoreDll, WithoutFerrantStoreTheBundledSampleMailboxOpens) {
  setEnv(L"FERRANT_STORE", nullptr);
  initialize();
  ComPtr<IMAPISession> session;
  ASSERT_EQ(logon(session), S_OK);
  ComPtr<IMAPITable> stores;
  ASSERT_EQ(session->GetMsgStoresTable(0, stores.put()), S_OK);
  SizedSPropTagArray(1, columns) = {1, {PR_DISPLAY_NAME_W}};
  RowSet rows;
  ASSERT_EQ(HrQueryAllRows(stores.get(), reinterpret_cast<LPSPropTagArray>(&columns), nullptr,
                           nullptr, 0, rows.put()),
            S_OK);
  ASSERT_EQ(rows->cRows, 2u);
  EXPECT_STREQ(rows->aRow[0].lpProps[0].Value.lpszW, L"Mailbox - Jo\u00e3o Concei\u00e7\u00e3o");
}

TEST_F(StoreDll, AllLogonsShareTheProfileLoadedFirst) {
  initialize();
  ComPtr<IMAPISession> first;
  ASSERT_EQ(logon(first), S_OK);
  // The file is read once: a later logon neither reloads nor looks again.
  setEnv(L"FERRANT_STORE", (dir_ / "elsewhere.json").wstring().c_str());
  ComPtr<IMAPISession> second;
  ASSERT_EQ(logon(second), S_OK);
  ComPtr<IMAPITable> firstTable = inboxTable(first.get());
  ComPtr<IMAPITable> secondTable = inboxTable(second.get());
  ASSERT_TRUE(firstTable && secondTable);
  RecordingSink firstSink, secondSink;
  ComPtr<IMAPIAdviseSink> firstWrapper, secondWrapper;
  ASSERT_EQ(HrThisThreadAdviseSink(&firstSink, firstWrapper.put()), S_OK);
  ASSERT_EQ(HrThisThreadAdviseSink(&secondSink, secondWrapper.put()), S_OK);
  ULONG c1 = 0, c2 = 0;
  ASSERT_EQ(firstTable->Advise(fnevTableModified, firstWrapper.get(), &c1), S_OK);
  ASSERT_EQ(secondTable->Advise(fnevTableModified, secondWrapper.get(), &c2), S_OK);

  // One edit of the one file reaches the tables of both sessions.
  writeFixture(replaced(kFixture, "\"Lunch\"", "\"Lunch at noon\""));
  EXPECT_TRUE(pumpUntil([&] { return firstSink.events > 0 && secondSink.events > 0; }, 10s));
  EXPECT_EQ(subjects(secondTable.get()), L"Budget,Lunch at noon");
  firstTable->Unadvise(c1);
  secondTable->Unadvise(c2);
}

TEST_F(StoreDll, AnEditOnDiskReachesTheAdvisingThreadOnlyWhenItPumps) {
  initialize();
  ComPtr<IMAPISession> session;
  ASSERT_EQ(logon(session), S_OK);
  ComPtr<IMAPITable> table = inboxTable(session.get());
  ASSERT_TRUE(table);
  RecordingSink sink;
  ComPtr<IMAPIAdviseSink> wrapper;
  ASSERT_EQ(HrThisThreadAdviseSink(&sink, wrapper.put()), S_OK);
  ULONG connection = 0;
  ASSERT_EQ(table->Advise(fnevTableModified, wrapper.get(), &connection), S_OK);

  writeFixture(replaced(kFixture, "\"Budget\"", "\"Budget for 2025\""));
  // The watcher thread takes the edit in; the table shows it at once...
  ASSERT_TRUE(
      waitWithoutPumping([&] { return subjects(table.get()) == L"Budget for 2025,Lunch"; }, 10s));
  // ...but the notification waits for this thread's message loop.
  EXPECT_EQ(sink.events, 0);
  ASSERT_TRUE(pumpUntil([&] { return sink.events > 0; }, 10s));
  EXPECT_EQ(sink.thread, GetCurrentThreadId());
  EXPECT_EQ(sink.lastEvent, static_cast<ULONG>(TABLE_ROW_MODIFIED));
  // The row was copied for this thread: the watcher freed its own long ago.
  EXPECT_EQ(sink.lastSubject, L"Budget for 2025");
  EXPECT_EQ(table->Unadvise(connection), S_OK);
}

TEST_F(StoreDll, SessionsOutliveTheLastUninitializeWithoutReloading) {
  initialize();
  ComPtr<IMAPISession> session;
  ASSERT_EQ(logon(session), S_OK);
  ComPtr<IMAPITable> table = inboxTable(session.get());
  ASSERT_TRUE(table);
  uninitialize();
  // The watcher is stopped: edits are no longer taken in, the session still works.
  writeFixture(replaced(kFixture, "\"Lunch\"", "\"Lunch moved\""));
  EXPECT_FALSE(waitWithoutPumping([&] { return subjects(table.get()) != L"Budget,Lunch"; }, 300ms));
  EXPECT_EQ(subjects(table.get()), L"Budget,Lunch");
}

TEST_F(StoreDll, LogonFailsCleanlyWhenToldToOrWhenTheStoreIsBad) {
  struct Case {
    const char* name;
    const wchar_t* fail;
    std::string text;  // empty: no file at all
  };
  const Case cases[] = {
      {"told to fail", L"MAPILogonEx", kFixture},
      {"told among others", L"IMAPITable::Restrict, MAPILogonEx", kFixture},
      {"corrupt JSON", nullptr, kFixture.substr(0, kFixture.size() / 2)},
      {"unknown tag", nullptr, replaced(kFixture, "PR_SUBJECT_W", "PR_SUBJEKT_W")},
      {"missing file", nullptr, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    setEnv(L"FERRANT_STORE_FAIL", c.fail);
    if (c.text.empty())
      std::filesystem::remove(fixture_);
    else
      writeFixture(c.text);
    initialize();
    ComPtr<IMAPISession> session;
    EXPECT_EQ(logon(session), MAPI_E_LOGON_FAILED);
    EXPECT_FALSE(session);
    // A load that failed is tried again at the next logon.
    if (!c.fail) {
      writeFixture(kFixture);
      EXPECT_EQ(logon(session), S_OK);
      session.reset();
    }
    uninitialize();
  }
}

TEST_F(StoreDll, NamedStoreCallsFailAsTold) {
  setEnv(L"FERRANT_STORE_FAIL", L"HrThisThreadAdviseSink");
  initialize();
  RecordingSink sink;
  ComPtr<IMAPIAdviseSink> wrapper;
  EXPECT_EQ(HrThisThreadAdviseSink(&sink, wrapper.put()), MAPI_E_CALL_FAILED);
  EXPECT_FALSE(wrapper);
  uninitialize();
  setEnv(L"FERRANT_STORE_FAIL", nullptr);
  initialize();
  EXPECT_EQ(HrThisThreadAdviseSink(&sink, wrapper.put()), S_OK) << "rules end with the last count";
}

TEST_F(StoreDll, BuffersAndPropertyUtilitiesWork) {
  MapiBuffer<SPropValue> props;
  ASSERT_EQ(MAPIAllocateBuffer(2 * sizeof(SPropValue), props.putVoid()), S_OK);
  props.get()[0].ulPropTag = PR_SUBJECT_W;
  props.get()[1].ulPropTag = PR_IMPORTANCE;
  void* more = nullptr;
  ASSERT_EQ(MAPIAllocateMore(64, props.get(), &more), S_OK);
  EXPECT_EQ(PpropFindProp(props.get(), 2, PR_IMPORTANCE), &props.get()[1]);
  EXPECT_EQ(PpropFindProp(props.get(), 2, PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_SUBJECT_W))),
            &props.get()[0]);
  EXPECT_EQ(PpropFindProp(props.get(), 2, PR_BODY_W), nullptr);
  // A block hung off another is not a root: the DLL refuses to free it alone.
  EXPECT_EQ(MAPIFreeBuffer(more), static_cast<ULONG>(MAPI_E_INVALID_PARAMETER));
}

}  // namespace
