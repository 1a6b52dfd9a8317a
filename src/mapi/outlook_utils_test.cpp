#include "mapi/outlook_utils.h"

#include <gtest/gtest.h>

#include "mapi/com_error.h"
#include "mapi/mapi_properties.h"
#include "mapi/mapi_table.h"
#include "mapi/mapi_test_util.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using namespace OutlookUtils;
using store::ScopedFaults;
using testing::WrapperTest;

class UtilsTest : public WrapperTest {
 protected:
  EntryId idOf(const std::string& key) { return EntryId(profile_->entryId(profile_->byKey(key))); }
};

TEST_F(UtilsTest, DefaultStoreAndStoresByIdentifier) {
  testing::LogCapture log;
  const EntryId defaultId = getDefaultMsgStoreId(session_.get());
  EXPECT_EQ(defaultId, EntryId(profile_->entryId(profile_->storeRef(0))));
  ComPtr<IMsgStore> store;
  ASSERT_EQ(getDefaultMsgStore(session_.get(), store), S_OK);
  EXPECT_EQ(getEntryId(store.get(), PR_ENTRYID), defaultId);
  const EntryId archiveId(profile_->entryId(profile_->storeRef(1)));
  ASSERT_EQ(getMsgStore(session_.get(), archiveId, store), S_OK);
  EXPECT_EQ(getEntryId(store.get(), PR_ENTRYID), archiveId);
  EXPECT_TRUE(log.messages().empty());

  EXPECT_TRUE(FAILED(getMsgStore(session_.get(), idOf("inbox"), store))) << "a folder is no store";
  EXPECT_FALSE(store);
  EXPECT_EQ(getMsgStore(nullptr, archiveId, store), E_INVALIDARG);
  EXPECT_FALSE(getDefaultMsgStoreId(nullptr).isValid());
}

class NoDefaultStoreTest : public UtilsTest {
  const char* json() const override {
    return R"({"stores": [{"name": "A", "root": {}}, {"name": "B", "root": {}}]})";
  }
};

TEST_F(NoDefaultStoreTest, GivesAnEmptyIdentifierQuietly) {
  testing::LogCapture log;
  EXPECT_FALSE(getDefaultMsgStoreId(session_.get()).isValid());
  EXPECT_TRUE(log.messages().empty());
  ComPtr<IMsgStore> store;
  EXPECT_TRUE(FAILED(getDefaultMsgStore(session_.get(), store)));
}

class TwoDefaultStoresTest : public UtilsTest {
  const char* json() const override {
    return R"({"stores": [{"name": "A", "default": true, "root": {}},
                          {"name": "B", "default": true, "root": {}}]})";
  }
};

TEST_F(TwoDefaultStoresTest, AssertsAndTakesTheFirst) {
  testing::LogCapture log;
  EXPECT_EQ(getDefaultMsgStoreId(session_.get()),
            EntryId(profile_->entryId(profile_->storeRef(0))));
  EXPECT_EQ(log.messages(), std::vector<std::string>{"Assertion failed"});
}

// Default folders are looked up on the root folder first, then on the inbox,
// and come back long-term whatever form the store keeps them in.
TEST_F(UtilsTest, InboxAndDefaultFoldersOnTheRootThenTheInbox) {
  auto store = openStore(0);
  ComPtr<IMAPIFolder> inbox;
  ASSERT_EQ(getMAPIInboxFolder(store.get(), inbox), S_OK);
  EXPECT_EQ(getEntryId(inbox.get(), PR_ENTRYID), idOf("inbox"));
  EXPECT_EQ(getMAPIInboxFolderEntryId(store.get()), idOf("inbox"));
  EXPECT_EQ(getMAPIDefaultCalendarFolderEntryId(store.get()), idOf("calendar"));
  EXPECT_EQ(getMAPIDefaultTasksFolderEntryId(store.get()), idOf("tasks")) << "from the inbox";
  const EntryId contacts = getMAPIDefaultContactsFolderEntryId(store.get());
  EXPECT_TRUE(contacts.isLongTerm());
  EXPECT_EQ(contacts, idOf("contacts"));
  EXPECT_FALSE(getMAPIDefaultFolderEntryId(store.get(), PR_IPM_JOURNAL_ENTRYID).isValid());

  ComPtr<IMAPIFolder> folder;
  ASSERT_EQ(getMAPIFolderByEntryId(store.get(), idOf("tasks"), folder), S_OK);
  EXPECT_EQ(getEntryId(folder.get(), PR_ENTRYID), idOf("tasks"));

  testing::LogCapture log;
  EXPECT_EQ(getMAPIFolderByEntryId(store.get(), idOf("long"), folder), E_NOINTERFACE);
  EXPECT_FALSE(folder);
  // The archive has no receive folder and no default folders.
  auto archive = openStore(1);
  EXPECT_EQ(getMAPIInboxFolder(archive.get(), inbox), MAPI_E_NOT_FOUND);
  EXPECT_FALSE(inbox);
  EXPECT_FALSE(getMAPIDefaultTasksFolderEntryId(archive.get()).isValid());
  EXPECT_EQ(getMAPIInboxFolder(nullptr, inbox), E_INVALIDARG);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"HR Error: 0x80004002: Failed to open the folder.",
                                      "HR Error: 0x8004010f: Failed to get the Inbox folder",
                                      "HR Error: 0x8004010f: Failed to get the Inbox folder",
                                      "HR Error: 0x80070057: Failed to open the root store item"}));
}

TEST_F(UtilsTest, EntryIdsOfObjectsAndTheirFailures) {
  ScopedFaults faults;
  auto item = message("long");
  EXPECT_EQ(getEntryId(item.get(), PR_ENTRYID), idOf("long"));
  EXPECT_FALSE(getEntryId(item.get(), PR_IPM_TASK_ENTRYID).isValid());
  testing::LogCapture log;
  EXPECT_FALSE(getEntryId(nullptr, PR_ENTRYID).isValid());
  faults->failCall("GetProps", MAPI_E_CALL_FAILED);
  EXPECT_FALSE(getEntryId(item.get(), PR_ENTRYID).isValid());
  faults->failCall("MAPIAllocateBuffer", MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_FALSE(getEntryId(item.get(), PR_ENTRYID).isValid());
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Error retrieving entry Id:0x80070057",
                                                      "Error retrieving entry Id:0x80004005",
                                                      "Unknown error retrieving entry Id."}));
}

TEST_F(UtilsTest, NamedPropertiesAreLookedUpNeverCreated) {
  ScopedFaults faults;
  std::vector<NameIdPair> pairs{{&PSETID_Task, MNID_ID, 0x8105, PT_SYSTIME, 0},
                                {&PSETID_Task, MNID_ID, 0x8101, PT_LONG, 1}};
  auto inbox = folder("inbox");
  ASSERT_EQ(getNamedPropIds(inbox.get(), pairs), S_OK);
  EXPECT_EQ(pairs[0].tag, PROP_TAG(PT_SYSTIME, 0x8000));
  EXPECT_EQ(pairs[1].tag, PROP_TAG(PT_LONG, 0)) << "the error answer's id";
  ASSERT_EQ(getNamedPropIds(inbox.get(), pairs), S_OK);
  EXPECT_EQ(pairs[1].tag, PROP_TAG(PT_LONG, 0)) << "still unknown: nothing was created";
  // No value of an item is found under an unknown name's tag.
  MAPIProperties props(message("long").get(), {pairs[1].tag, PR_IMPORTANCE});
  LONG value = 0;
  EXPECT_EQ(props.getLong(pairs[1].tag, value), E_FAIL);

  std::vector<NameIdPair> none;
  EXPECT_EQ(getNamedPropIds(nullptr, none), S_OK) << "nothing to look up";
  testing::LogCapture log;
  EXPECT_EQ(getNamedPropIds(nullptr, pairs), E_INVALIDARG);
  faults->failCall("GetIDsFromNames", MAPI_E_CALL_FAILED);
  EXPECT_EQ(getNamedPropIds(inbox.get(), pairs), MAPI_E_CALL_FAILED);
  faults->failCall("QueryInterface", E_NOINTERFACE);
  EXPECT_EQ(getNamedPropIds(inbox.get(), pairs), E_NOINTERFACE);
  EXPECT_EQ(log.messages(), (std::vector<std::string>{
                                "HR Error: 0x80070057: Invalid source folder.",
                                "HR Error: 0x80004005: Failed to retrieve mapi names.",
                                "HR Error: 0x80004002: Failed to get MAPI Properties interface."}));
}

TEST_F(UtilsTest, AttachmentListsNameAndSizeInKilobytes) {
  ScopedFaults faults;
  std::vector<std::u16string> names{u"old"};
  ASSERT_EQ(getAttachmentList(message("long").get(), names), S_OK);
  EXPECT_EQ(names, (std::vector<std::u16string>{u"Plan (0 kb)", u"notes.txt (0 kb)",
                                                u"DATA~1.BIN (4 kb)"}));
  ASSERT_EQ(getAttachmentList(message("broken").get(), names), S_OK);
  EXPECT_TRUE(names.empty());

  testing::LogCapture log;
  ASSERT_EQ(getAttachmentList(message("exact").get(), names), S_OK);
  EXPECT_EQ(names, (std::vector<std::u16string>{u"Kept (0 kb)"}));
  EXPECT_EQ(getAttachmentList(nullptr, names), E_INVALIDARG);
  faults->failCall("GetAttachmentTable", MAPI_E_NO_ACCESS);
  EXPECT_EQ(getAttachmentList(message("long").get(), names), MAPI_E_NO_ACCESS);
  EXPECT_TRUE(names.empty());
  faults->failCall("MAPIAllocateBuffer", MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(getAttachmentList(message("long").get(), names), E_FAIL);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"HR Error: 0x80004005: Could not add attachment entry.",
                                      "Failed to get attachments:0x80070057",
                                      "Failed to get attachments:0x80070005",
                                      "Unknown error. Failed to get attachments."}));
}

TEST_F(UtilsTest, LongTextsAreReadWholeThroughStreams) {
  ScopedFaults faults;
  std::u16string expected;
  for (int i = 0; i < 2000; ++i) expected += u"Zeile \u00fc ";
  auto item = message("long");
  std::u16string text;
  ASSERT_EQ(getEntryStringProperty(item.get(), PR_BODY_W, text), S_OK);
  EXPECT_EQ(text, expected);
  std::string utf8;
  ASSERT_EQ(getEntryStringProperty(item.get(), PR_BODY_A, utf8), S_OK);
  EXPECT_EQ(utf8, toUtf8(expected));
  auto inbox = folder("inbox");
  utf8.clear();
  ASSERT_EQ(getEntryStringProperty(inbox.get(), idOf("long"), PR_BODY_W, utf8), S_OK);
  EXPECT_EQ(utf8, toUtf8(expected));
  // The archive ends its streams with a NUL, which is no part of the text.
  ASSERT_EQ(getEntryStringProperty(message("a1").get(), PR_BODY_A, text), S_OK);
  EXPECT_EQ(text, u"Gr\u00fc\u00dfe");

  testing::LogCapture log;
  // An absent property is an answer and logs nothing; a store that cannot
  // open the stream is a fault.
  EXPECT_EQ(getEntryStringProperty(item.get(), PR_TITLE_W, text), MAPI_E_NOT_FOUND);
  faults->failCall("OpenProperty", MAPI_E_NO_ACCESS);
  EXPECT_EQ(getEntryStringProperty(item.get(), PR_BODY_W, text), MAPI_E_NO_ACCESS);
  faults->failCall("Read", MAPI_E_CALL_FAILED, 2);
  EXPECT_EQ(getEntryStringProperty(item.get(), PR_BODY_W, text), MAPI_E_CALL_FAILED);
  EXPECT_EQ(getEntryStringProperty(inbox.get(), idOf("a1"), PR_BODY_W, utf8),
            MAPI_E_INVALID_ENTRYID);
  EXPECT_EQ(getEntryStringProperty(nullptr, PR_BODY_W, text), E_INVALIDARG);
  EXPECT_EQ(getEntryStringProperty(folder("inbox").get(), PR_BODY_W, text), E_NOINTERFACE);
  EXPECT_EQ(text, u"Gr\u00fc\u00dfe") << "failures leave the output alone";
  // Every line is the operation's own, whichever step failed.
  std::vector<std::string> written;
  for (const std::string& line : log.lines()) written.push_back(line.substr(line.find(" : ") + 3));
  const std::string op = "PIM::OutlookUtils::getEntryStringProperty() > ERR> HR Error: ";
  EXPECT_EQ(written,
            (std::vector<std::string>{op + "0x80070005: Failed to open the property stream.",
                                      op + "0x80004005: Failed to read the property stream.",
                                      op + "0x80040107: Failed to open the item.",
                                      op + "0x80070057: Invalid object.",
                                      op + "0x80004002: Failed to get the message interface."}));
}

// Every store call failing, each in turn and always, with an error, a busy
// answer or out of memory: every operation returns a failure or an empty
// result, nothing escapes and no buffer leaks.
TEST_F(UtilsTest, StoreFailuresOnEveryCallNeverEscape) {
  const char* calls[] = {"QueryInterface",
                         "GetMsgStoresTable",
                         "OpenMsgStore",
                         "OpenEntry",
                         "GetProps",
                         "GetReceiveFolder",
                         "SetColumns",
                         "Restrict",
                         "SortTable",
                         "QueryRows",
                         "GetRowCount",
                         "SeekRow",
                         "WaitForCompletion",
                         "GetIDsFromNames",
                         "GetAttachmentTable",
                         "OpenProperty",
                         "Read",
                         "Stat",
                         "MAPIAllocateBuffer",
                         "MAPIAllocateMore",
                         "FindRow",
                         "QueryColumns"};
  const HRESULT answers[] = {MAPI_E_CALL_FAILED, MAPI_E_BUSY, MAPI_E_NOT_ENOUGH_MEMORY};
  auto store = openStore(0);
  auto inbox = folder("inbox");
  auto item = message("long");
  const EntryId shortTermId(profile_->shortTermEntryId(profile_->byKey("long")));
  testing::LogCapture quiet;
  for (const char* call : calls) {
    for (HRESULT answer : answers) {
      SCOPED_TRACE(std::string(call) + " " + hrText(answer));
      ScopedFaults faults;
      faults->failAlways(call, answer);
      auto useUtils = [&] {
        ComPtr<IMsgStore> opened;
        (void)getDefaultMsgStore(session_.get(), opened);
        ComPtr<IMAPIFolder> folder;
        (void)getMAPIInboxFolder(store.get(), folder);
        (void)getMAPIDefaultTasksFolderEntryId(store.get());
        (void)getMAPIDefaultContactsFolderEntryId(store.get());
        (void)getMAPIInboxFolderEntryId(store.get());
        (void)getMAPIFolderByEntryId(store.get(), idOf("tasks"), folder);
        std::vector<NameIdPair> pairs{{&PSETID_Task, MNID_ID, 0x8105, PT_SYSTIME, 0}};
        (void)getNamedPropIds(inbox.get(), pairs);
        std::vector<std::u16string> names;
        (void)getAttachmentList(item.get(), names);
        std::string body;
        (void)getEntryStringProperty(inbox.get(), idOf("long"), PR_BODY_W, body);
      };
      EXPECT_NO_THROW(useUtils());
      // The wrappers themselves throw only their own error or bad_alloc.
      try {
        ComPtr<IMAPITable> contents;
        if (SUCCEEDED(inbox->GetContentsTable(0, contents.put()))) {
          MAPITable rows(contents.get());
          (void)rows.setColumns({PR_ENTRYID, PR_SUBJECT_W});
          while (MAPIProperties* row = rows.getNextRow()) {
            std::u16string subject;
            (void)row->getWstring(PR_SUBJECT_W, subject, inbox.get());
          }
        }
        EntryId id = shortTermId;
        (void)id.convertToLongTerm(store.get());
      } catch (const ComError&) {
      } catch (const std::bad_alloc&) {
      }
    }
  }
  // The sweep really reached the store.
  ScopedFaults counted;
  std::vector<std::u16string> names;
  ASSERT_EQ(getAttachmentList(item.get(), names), S_OK);
  EXPECT_EQ(names.size(), 3u);
}

}  // namespace
}  // namespace PIM
