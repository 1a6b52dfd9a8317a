// Shared by the store's tests: a small two-store profile and helpers that
// read tables through MAPI.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "core/utils.h"
#include "mapi/mapi_ptr.h"
#include "store/fault_injector.h"
#include "store/fixture.h"
#include "store/mapi_runtime.h"

namespace PIM::store::testing {

// Stores: 0 "Mailbox - Ana Núñez" (default) and 1 "Archive" (8-bit only,
// short-term ids in tables). Keys name every folder and some items.
inline const char* kProfileJson = R"json({
  "stores": [
    {
      "key": "main", "name": "Mailbox - Ana Núñez", "default": true,
      "namedProperties": [
        {"set": "PSETID_Appointment", "id": "0x820D"},
        {"set": "PSETID_Task", "id": "0x8105"}
      ],
      "ipmSubtree": "ipm", "receiveFolder": "inbox",
      "receiveFolders": {"IPM.Note.Report": "reports"},
      "root": {
        "key": "root",
        "props": [
          {"tag": "PR_IPM_APPOINTMENT_ENTRYID", "value": {"entryIdOf": "calendar"}},
          {"tag": "PR_IPM_CONTACT_ENTRYID", "value": {"entryIdOf": "contacts"}}
        ],
        "folders": [
          {"key": "ipm", "name": "Top of Information Store", "folders": [
            {"key": "inbox", "name": "Inbox", "class": "IPF.Note",
             "props": [{"tag": "PR_IPM_TASK_ENTRYID", "value": {"entryIdOf": "tasks"}}],
             "folders": [{"key": "reports", "name": "Reports", "class": "IPF.Note"}],
             "items": [
               {"key": "m1", "class": "IPM.Note", "props": [
                  {"tag": "PR_SUBJECT_W", "value": "Budget"},
                  {"tag": "PR_IMPORTANCE", "value": 2},
                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2024-03-01T09:00:00Z"},
                  {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "ab.bob"}},
                  {"tag": "PR_BODY_W", "value": {"text": "Zeile ", "repeat": 100}}],
                "recipients": [
                  {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Bob"},
                             {"tag": "PR_RECIPIENT_TYPE", "value": 1}]},
                  {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Олег"},
                             {"tag": "PR_RECIPIENT_TYPE", "value": 2}]}],
                "attachments": [
                  {"props": [{"tag": "PR_ATTACH_LONG_FILENAME_W", "value": "report.pdf"}],
                   "data": {"text": "%PDF-1.4 tiny"}},
                  {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Forwarded"}],
                   "embedded": {"class": "IPM.Note",
                                "props": [{"tag": "PR_SUBJECT_W", "value": "Inner"}]}}]},
               {"key": "m2", "class": "IPM.Note", "props": [
                  {"tag": "PR_SUBJECT_W", "value": "apples"},
                  {"tag": "PR_IMPORTANCE", "value": 0},
                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2024-03-03T09:00:00Z"}]},
               {"key": "m3", "class": "IPM.Note", "props": [
                  {"tag": "PR_SUBJECT_W", "value": "Café ÉTÉ"},
                  {"tag": "PR_IMPORTANCE", "value": 1},
                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2024-03-02T09:00:00Z"}]},
               {"key": "m4", "class": "IPM.Note.Report", "props": [
                  {"tag": "PR_IMPORTANCE", "value": 1}]}
             ]},
            {"key": "calendar", "name": "Calendar", "class": "IPF.Appointment"},
            {"key": "contacts", "name": "Contacts", "class": "IPF.Contact"},
            {"key": "tasks", "name": "Tasks", "class": "IPF.Task"}
          ]}
        ]
      }
    },
    {
      "key": "archive", "name": "Archive",
      "options": {"unicode": false, "shortTermIdsInTables": true},
      "namedProperties": [{"set": "PSETID_Task", "id": "0x8105"}],
      "ipmSubtree": "archive.ipm",
      "root": {"folders": [{"key": "archive.ipm", "name": "Top", "items": [
        {"key": "a1", "props": [{"tag": "PR_SUBJECT_W", "value": "Old"}]}]}]}
    }
  ],
  "addressBook": [
    {"key": "ab.bob", "props": [
      {"tag": "PR_DISPLAY_NAME_W", "value": "Bob Stone"},
      {"tag": "PR_ADDRTYPE_W", "value": "SMTP"},
      {"tag": "PR_EMAIL_ADDRESS_W", "value": "bob@example.com"}]}
  ]
})json";

// Loads kProfileJson (or `json`) and logs on; checks that every MAPI buffer
// the test allocated was freed.
class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    buffersBefore_ = liveMapiBuffers();
    profile_ = loadFixtureText(json(), "test.json");
    ASSERT_EQ(profile_->logon(session_.put()), S_OK);
  }
  void TearDown() override {
    session_.reset();
    EXPECT_EQ(liveMapiBuffers(), buffersBefore_) << "MAPI buffers leaked";
  }
  virtual const char* json() const { return kProfileJson; }

  ComPtr<IMsgStore> openStore(size_t index) {
    const Bytes id = profile_->entryId(profile_->storeRef(index));
    ComPtr<IMsgStore> store;
    EXPECT_EQ(session_->OpenMsgStore(0, static_cast<ULONG>(id.size()),
                                     reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())),
                                     nullptr, MDB_NO_DIALOG | MAPI_BEST_ACCESS, store.put()),
              S_OK);
    return store;
  }
  template <class T = IMAPIFolder>
  ComPtr<T> open(IMsgStore* store, const Bytes& id, ULONG* type = nullptr) {
    ComPtr<T> out;
    ULONG objType = 0;
    EXPECT_EQ(store->OpenEntry(static_cast<ULONG>(id.size()),
                               reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())),
                               nullptr, MAPI_BEST_ACCESS, &objType, out.putUnknown()),
              S_OK);
    if (type) *type = objType;
    return out;
  }
  ComPtr<IMAPIFolder> folder(const std::string& key) {
    const Ref ref = profile_->byKey(key);
    auto store = openStore(ref.store);
    return open(store.get(), profile_->entryId(ref));
  }
  ComPtr<IMAPITable> contents(const std::string& folderKey) {
    ComPtr<IMAPITable> table;
    EXPECT_EQ(folder(folderKey)->GetContentsTable(0, table.put()), S_OK);
    return table;
  }

  std::shared_ptr<Profile> profile_;
  ComPtr<IMAPISession> session_;
  int64_t buffersBefore_ = 0;
};

inline Bytes bytesOf(const SBinary& b) { return Bytes(b.lpb, b.lpb + b.cb); }

inline std::string textOf(const SPropValue& v) {
  if (PROP_TYPE(v.ulPropTag) == PT_UNICODE) return toUtf8(u16FromMapi(v.Value.lpszW));
  if (PROP_TYPE(v.ulPropTag) == PT_STRING8) return v.Value.lpszA;
  return "<" + std::to_string(PROP_TYPE(v.ulPropTag)) + ">";
}

// The first column of every row from the cursor on, read 2 rows at a time.
inline std::vector<std::string> firstColumn(IMAPITable* table) {
  std::vector<std::string> out;
  for (;;) {
    RowSet rows;
    if (FAILED(table->QueryRows(2, 0, rows.put())) || rows.size() == 0) break;
    for (ULONG i = 0; i < rows->cRows; ++i) {
      const SPropValue& v = rows->aRow[i].lpProps[0];
      out.push_back(PROP_TYPE(v.ulPropTag) == PT_ERROR ? "-" : textOf(v));
    }
  }
  return out;
}

// Records every table notification it receives.
class RecordingSink final : public IMAPIAdviseSink {
 public:
  struct Event {
    ULONG type;
    Bytes index;
    Bytes prior;
    std::vector<std::string> row;  // text columns of the row
    std::thread::id thread;        // where it was delivered
  };
  std::vector<Event> events;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (iid != IID_IUnknown && iid != IID_IMAPIAdviseSink) return E_NOINTERFACE;
    *out = this;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
  ULONG STDMETHODCALLTYPE Release() override { return --refs; }
  ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION n) override {
    for (ULONG i = 0; i < count; ++i) {
      EXPECT_EQ(n[i].ulEventType, static_cast<ULONG>(fnevTableModified));
      const TABLE_NOTIFICATION& t = n[i].info.tab;
      Event e{t.ulTableEvent, {}, {}, {}, std::this_thread::get_id()};
      if (t.propIndex.ulPropTag == PR_INSTANCE_KEY) e.index = bytesOf(t.propIndex.Value.bin);
      if (t.propPrior.ulPropTag == PR_INSTANCE_KEY) e.prior = bytesOf(t.propPrior.Value.bin);
      for (ULONG c = 0; c < t.row.cValues; ++c)
        if (PROP_TYPE(t.row.lpProps[c].ulPropTag) == PT_UNICODE)
          e.row.push_back(textOf(t.row.lpProps[c]));
      events.push_back(std::move(e));
    }
    return 0;
  }
  std::atomic<ULONG> refs{1};
};

inline void setColumns(IMAPITable* table, std::initializer_list<ULONG> tags) {
  std::vector<ULONG> buffer(1 + tags.size());
  buffer[0] = static_cast<ULONG>(tags.size());
  std::copy(tags.begin(), tags.end(), buffer.begin() + 1);
  ASSERT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(buffer.data()), 0), S_OK);
}

// A contents table of a folder of `profile`, opened through MAPI.
inline ComPtr<IMAPITable> contentsOf(IMAPISession* session, Profile& profile,
                                     const Ref& folderRef) {
  const Bytes storeId = profile.entryId(profile.storeRef(folderRef.store));
  const Bytes folderId = profile.entryId(folderRef);
  ComPtr<IMsgStore> store;
  ComPtr<IMAPIFolder> folder;
  ComPtr<IMAPITable> table;
  ULONG type = 0;
  EXPECT_EQ(session->OpenMsgStore(0, static_cast<ULONG>(storeId.size()),
                                  reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(storeId.data())),
                                  nullptr, MDB_NO_DIALOG, store.put()),
            S_OK);
  EXPECT_EQ(store->OpenEntry(static_cast<ULONG>(folderId.size()),
                             reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(folderId.data())),
                             nullptr, 0, &type, folder.putUnknown()),
            S_OK);
  EXPECT_EQ(folder->GetContentsTable(0, table.put()), S_OK);
  setColumns(table.get(), {PR_SUBJECT_W, PR_INSTANCE_KEY});
  return table;
}

}  // namespace PIM::store::testing
