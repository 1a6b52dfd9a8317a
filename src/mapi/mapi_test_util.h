// The profile the wrapper tests read: a default Unicode store whose calendar
// id sits on the root folder and tasks id on the inbox only, and an 8-bit
// archive whose tables hand out short-term ids.
#pragma once

#include "store/store_test_util.h"

namespace PIM::testing {

inline const char* kWrapperProfileJson = R"json({
  "stores": [
    {
      "key": "main", "name": "Mailbox", "default": true,
      "namedProperties": [{"set": "PSETID_Task", "id": "0x8105"}],
      "ipmSubtree": "ipm", "receiveFolder": "inbox",
      "root": {
        "key": "root",
        "props": [{"tag": "PR_IPM_APPOINTMENT_ENTRYID", "value": {"entryIdOf": "calendar"}},
                  {"tag": "PR_IPM_CONTACT_ENTRYID", "value": {"shortTermEntryIdOf": "contacts"}}],
        "folders": [
          {"key": "ipm", "name": "Top", "folders": [
            {"key": "inbox", "name": "Inbox", "class": "IPF.Note",
             "props": [{"tag": "PR_IPM_TASK_ENTRYID", "value": {"entryIdOf": "tasks"}}],
             "items": [
               {"key": "long", "props": [
                  {"tag": "PR_SUBJECT_W", "value": {"text": "\u00e9", "repeat": 300}},
                  {"tag": "PR_IMPORTANCE", "value": 0},
                  {"tag": "PR_HASATTACH", "value": true},
                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": 133540452000000000},
                  {"tag": "0x68011102", "value": ["0A0B", "", "0C"]},
                  {"tag": "PR_BODY_W", "value": {"text": "Zeile \u00fc ", "repeat": 2000}}],
                "attachments": [
                  {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Plan"},
                             {"tag": "PR_ATTACH_LONG_FILENAME_W", "value": "plan.pdf"}],
                   "data": {"hex": "00"}},
                  {"props": [{"tag": "PR_ATTACH_LONG_FILENAME_W", "value": "notes.txt"},
                             {"tag": "PR_ATTACH_SIZE", "value": 1023}]},
                  {"props": [{"tag": "PR_ATTACH_FILENAME_W", "value": "DATA~1.BIN"},
                             {"tag": "PR_ATTACH_SIZE", "value": 5000}]}]},
               {"key": "exact", "props": [
                  {"tag": "PR_SUBJECT_W", "value": {"text": "a", "repeat": 254}}],
                "attachments": [
                  {"props": [{"tag": "PR_ATTACH_METHOD", "value": 1}]},
                  {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Kept"}]}]},
               {"key": "broken", "props": [
                  {"tag": "PR_SUBJECT_W", "error": "MAPI_E_CORRUPT_DATA"},
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
      "options": {"unicode": false, "shortTermIdsInTables": true, "streamTerminator": true},
      "root": {"folders": [{"key": "old", "name": "Old", "items": [
        {"key": "a1", "props": [{"tag": "PR_SUBJECT_W", "value": "Alt und \u00fcbel"},
                 {"tag": "PR_BODY_W", "value": "Gr\u00fc\u00dfe"}]}]}]}
    }
  ]
})json";

class WrapperTest : public store::testing::StoreTest {
 protected:
  const char* json() const override { return kWrapperProfileJson; }
  ComPtr<IMessage> message(const std::string& key) {
    const store::Ref ref = profile_->byKey(key);
    auto store = openStore(ref.store);
    return open<IMessage>(store.get(), profile_->entryId(ref));
  }
};

}  // namespace PIM::testing
