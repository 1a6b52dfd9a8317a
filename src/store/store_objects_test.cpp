// The reference store's objects: stores and default folders, entry ids,
// named properties, streams, attachments, recipients and mail users.
#include <gtest/gtest.h>

#include "store/one_off_entry_id.h"
#include "store/store_test_util.h"

namespace PIM::store::testing {
namespace {

class ObjectsTest : public StoreTest {
 protected:
  // One property of an object, or its error type when it has none.
  Bytes binaryProp(IUnknown* object, ULONG tag) {
    ComPtr<IMAPIProp> prop;
    EXPECT_EQ(object->QueryInterface(IID_IMAPIProp, prop.putVoid()), S_OK);
    MapiBuffer<SPropValue> value;
    if (FAILED(HrGetOneProp(prop.get(), tag, value.put()))) return {};
    return bytesOf(value->Value.bin);
  }
  std::string textProp(IUnknown* object, ULONG tag) {
    ComPtr<IMAPIProp> prop;
    EXPECT_EQ(object->QueryInterface(IID_IMAPIProp, prop.putVoid()), S_OK);
    MapiBuffer<SPropValue> value;
    if (FAILED(HrGetOneProp(prop.get(), tag, value.put()))) return "-";
    return textOf(*value);
  }
  std::string readStream(IMAPIProp* object, ULONG tag, HRESULT* hr = nullptr) {
    ComPtr<IStream> stream;
    HRESULT r = object->OpenProperty(tag, &IID_IStream, STGM_READ, 0, stream.putUnknown());
    if (hr) *hr = r;
    if (FAILED(r)) return {};
    std::string out;
    char buffer[7];  // odd size: reads end mid-character
    ULONG got = 0;
    while (SUCCEEDED(stream->Read(buffer, sizeof buffer, &got)) && got) out.append(buffer, got);
    return out;
  }
};

TEST_F(ObjectsTest, StoresTableHasOneDefaultStoreAndOpensEach) {
  ComPtr<IMAPITable> stores;
  ASSERT_EQ(session_->GetMsgStoresTable(0, stores.put()), S_OK);
  setColumns(stores.get(), {PR_DISPLAY_NAME_W, PR_DEFAULT_STORE, PR_ENTRYID, PR_RESOURCE_FLAGS});
  RowSet rows;
  ASSERT_EQ(stores->QueryRows(10, 0, rows.put()), S_OK);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(textOf(rows->aRow[0].lpProps[0]), "Mailbox - Ana Núñez");
  EXPECT_EQ(rows->aRow[0].lpProps[1].Value.b, 1);
  EXPECT_EQ(rows->aRow[1].lpProps[1].Value.b, 0);
  EXPECT_EQ(rows->aRow[0].lpProps[3].Value.l, static_cast<LONG>(STATUS_DEFAULT_STORE));
  for (ULONG i = 0; i < 2; ++i) {
    const SBinary& id = rows->aRow[i].lpProps[2].Value.bin;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(session_->OpenMsgStore(0, id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr,
                                     MDB_NO_DIALOG | MAPI_BEST_ACCESS, store.put()),
              S_OK);
    // 8-bit: the archive has no Unicode.
    EXPECT_EQ(textProp(store.get(), PR_DISPLAY_NAME_A), textOf(rows->aRow[i].lpProps[0]));
    EXPECT_EQ(binaryProp(store.get(), PR_ENTRYID), bytesOf(id));
  }
  Bytes bad = profile_->entryId(profile_->storeRef(0));
  bad.back() ^= 0x55;
  ComPtr<IMsgStore> none;
  EXPECT_EQ(session_->OpenMsgStore(0, static_cast<ULONG>(bad.size()),
                                   reinterpret_cast<LPENTRYID>(bad.data()), nullptr, 0, none.put()),
            MAPI_E_NOT_FOUND);
}

TEST_F(ObjectsTest, RootInboxIpmSubtreeAndDefaultFolderIds) {
  auto store = openStore(0);
  ULONG type = 0;
  auto root = open(store.get(), {}, &type);
  EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
  EXPECT_EQ(binaryProp(root.get(), PR_IPM_APPOINTMENT_ENTRYID),
            profile_->entryId(profile_->byKey("calendar")));
  EXPECT_EQ(binaryProp(root.get(), PR_IPM_CONTACT_ENTRYID),
            profile_->entryId(profile_->byKey("contacts")));
  EXPECT_TRUE(binaryProp(root.get(), PR_IPM_TASK_ENTRYID).empty()) << "only on the inbox";
  EXPECT_EQ(binaryProp(store.get(), PR_IPM_SUBTREE_ENTRYID),
            profile_->entryId(profile_->byKey("ipm")));

  ULONG cb = 0;
  MapiBuffer<ENTRYID> inboxId;
  ASSERT_EQ(store->GetReceiveFolder(nullptr, 0, &cb, inboxId.put(), nullptr), S_OK);
  const Bytes inboxBytes(reinterpret_cast<uint8_t*>(inboxId.get()),
                         reinterpret_cast<uint8_t*>(inboxId.get()) + cb);
  EXPECT_EQ(inboxBytes, profile_->entryId(profile_->byKey("inbox")));
  auto inbox = open(store.get(), inboxBytes);
  EXPECT_EQ(textProp(inbox.get(), PR_CONTAINER_CLASS_W), "IPF.Note");
  EXPECT_EQ(binaryProp(inbox.get(), PR_IPM_TASK_ENTRYID),
            profile_->entryId(profile_->byKey("tasks")));

  // A class finds the folder of its longest prefix that has one.
  MapiBuffer<char> explicitClass;
  char reportClass[] = "IPM.Note.Report.Weekly";
  ASSERT_EQ(store->GetReceiveFolder(reinterpret_cast<LPTSTR>(reportClass), 0, &cb, inboxId.put(),
                                    reinterpret_cast<LPTSTR*>(explicitClass.put())),
            S_OK);
  EXPECT_STREQ(explicitClass.get(), "IPM.Note.Report");
  EXPECT_EQ(Bytes(reinterpret_cast<uint8_t*>(inboxId.get()),
                  reinterpret_cast<uint8_t*>(inboxId.get()) + cb),
            profile_->entryId(profile_->byKey("reports")));

  auto archive = openStore(1);
  EXPECT_EQ(archive->GetReceiveFolder(nullptr, 0, &cb, inboxId.put(), nullptr), MAPI_E_NOT_FOUND);
}

TEST_F(ObjectsTest, LongTermAndShortTermIdsDifferAndOpenTheSameObject) {
  auto archive = openStore(1);
  const Ref item = profile_->byKey("a1");
  const Bytes longTerm = profile_->entryId(item);
  const Bytes shortTerm = profile_->shortTermEntryId(item);
  EXPECT_EQ(longTerm[0], 0);
  EXPECT_NE(shortTerm[0], 0);
  EXPECT_NE(shortTerm, longTerm);

  // The archive's tables hand out short-term ids; the item itself long-term.
  ComPtr<IMAPITable> table;
  ASSERT_EQ(open(archive.get(), profile_->entryId(profile_->byKey("archive.ipm")))
                ->GetContentsTable(0, table.put()),
            S_OK);
  setColumns(table.get(), {PR_ENTRYID});
  RowSet rows;
  ASSERT_EQ(table->QueryRows(1, 0, rows.put()), S_OK);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(bytesOf(rows->aRow[0].lpProps[0].Value.bin), shortTerm);
  for (const Bytes& id : {shortTerm, longTerm}) {
    ULONG type = 0;
    auto message = open<IMessage>(archive.get(), id, &type);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_MESSAGE));
    EXPECT_EQ(binaryProp(message.get(), PR_ENTRYID), longTerm);
  }
  // The session opens store objects too.
  ComPtr<IUnknown> viaSession;
  ULONG type = 0;
  ASSERT_EQ(session_->OpenEntry(static_cast<ULONG>(shortTerm.size()),
                                reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(shortTerm.data())),
                                nullptr, 0, &type, viaSession.put()),
            S_OK);
  EXPECT_EQ(type, static_cast<ULONG>(MAPI_MESSAGE));

  // Another profile's short-term id is not valid here; its long-term id is.
  auto other = loadFixtureText(kProfileJson, "other.json");
  const Bytes foreignShort = other->shortTermEntryId(other->byKey("a1"));
  ComPtr<IUnknown> object;
  EXPECT_EQ(
      archive->OpenEntry(static_cast<ULONG>(foreignShort.size()),
                         reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(foreignShort.data())),
                         nullptr, 0, &type, object.put()),
      MAPI_E_INVALID_ENTRYID);
  EXPECT_EQ(other->entryId(other->byKey("a1")), longTerm) << "long-term ids are stable";
  // An id of the other store is not this store's.
  const Bytes mainItem = profile_->entryId(profile_->byKey("m1"));
  EXPECT_EQ(archive->OpenEntry(static_cast<ULONG>(mainItem.size()),
                               reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(mainItem.data())),
                               nullptr, 0, &type, object.put()),
            MAPI_E_INVALID_ENTRYID);
}

TEST_F(ObjectsTest, OpenEntryChecksTheAskedInterface) {
  auto store = openStore(0);
  const Bytes id = profile_->entryId(profile_->byKey("m1"));
  ComPtr<IUnknown> object;
  ULONG type = 0;
  EXPECT_EQ(store->OpenEntry(static_cast<ULONG>(id.size()),
                             reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())),
                             &IID_IMAPIFolder, 0, &type, object.put()),
            MAPI_E_INTERFACE_NOT_SUPPORTED);
  ASSERT_EQ(store->OpenEntry(static_cast<ULONG>(id.size()),
                             reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())),
                             &IID_IMessage, 0, &type, object.put()),
            S_OK);
  ComPtr<IMAPIFolder> notFolder;
  EXPECT_EQ(object.queryInterface(IID_IMAPIFolder, notFolder), E_NOINTERFACE);
  profile_->deleteItem(profile_->byKey("m1"));
  EXPECT_EQ(store->OpenEntry(static_cast<ULONG>(id.size()),
                             reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())), nullptr,
                             0, &type, object.put()),
            MAPI_E_NOT_FOUND);
}

TEST_F(ObjectsTest, GetIDsFromNamesLooksUpPerStoreWithoutCreating) {
  GUID appointment = PSETID_Appointment, task = PSETID_Task;
  MAPINAMEID start{&appointment, MNID_ID, {0x820D}};
  MAPINAMEID due{&task, MNID_ID, {0x8105}};
  MAPINAMEID unknown{&task, MNID_ID, {0x8101}};
  LPMAPINAMEID names[] = {&start, &due, &unknown};

  auto inbox = folder("inbox");
  MapiBuffer<SPropTagArray> tags;
  ASSERT_EQ(inbox->GetIDsFromNames(3, names, 0, tags.put()), MAPI_W_ERRORS_RETURNED);
  ASSERT_EQ(tags->cValues, 3u);
  EXPECT_EQ(tags->aulPropTag[0], PROP_TAG(PT_UNSPECIFIED, 0x8000));
  EXPECT_EQ(tags->aulPropTag[1], PROP_TAG(PT_UNSPECIFIED, 0x8001));
  EXPECT_EQ(tags->aulPropTag[2], PROP_TAG(PT_ERROR, 0)) << "unknown names are not created";
  ASSERT_EQ(inbox->GetIDsFromNames(3, names, 0, tags.put()), MAPI_W_ERRORS_RETURNED)
      << "still unknown after a lookup";

  // The archive registered the task due date first: its own numbering.
  auto archive = openStore(1);
  ASSERT_EQ(archive->GetIDsFromNames(2, names, 0, tags.put()), MAPI_W_ERRORS_RETURNED);
  EXPECT_EQ(tags->aulPropTag[0], PROP_TAG(PT_ERROR, 0));
  EXPECT_EQ(tags->aulPropTag[1], PROP_TAG(PT_UNSPECIFIED, 0x8000));

  ASSERT_EQ(inbox->GetIDsFromNames(3, names, MAPI_CREATE, tags.put()), S_OK);
  EXPECT_EQ(tags->aulPropTag[2], PROP_TAG(PT_UNSPECIFIED, 0x8002));

  GUID mapi = PS_MAPI;
  MAPINAMEID subject{&mapi, MNID_ID, {0x0037}};
  LPMAPINAMEID one[] = {&subject};
  ASSERT_EQ(inbox->GetIDsFromNames(1, one, 0, tags.put()), S_OK);
  EXPECT_EQ(tags->aulPropTag[0], PROP_TAG(PT_UNSPECIFIED, 0x0037)) << "PS_MAPI ids are tags";
}

TEST_F(ObjectsTest, GetPropsReportsMissingAndErrorValues) {
  profile_->modifyItem(profile_->byKey("m2"),
                       {Prop::ofError(PROP_ID(PR_SUBJECT), MAPI_E_CORRUPT_DATA)});
  auto store = openStore(0);
  auto message = open<IMessage>(store.get(), profile_->entryId(profile_->byKey("m2")));
  SizedSPropTagArray(4, tags) = {4, {PR_SUBJECT_W, PR_IMPORTANCE, PR_TITLE_W, PR_SUBJECT_A}};
  ULONG count = 0;
  MapiBuffer<SPropValue> values;
  ASSERT_EQ(message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.put()),
            MAPI_W_ERRORS_RETURNED);
  ASSERT_EQ(count, 4u);
  EXPECT_EQ(values.get()[0].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_SUBJECT)));
  EXPECT_EQ(values.get()[0].Value.err, MAPI_E_CORRUPT_DATA);
  EXPECT_EQ(values.get()[1].ulPropTag, static_cast<ULONG>(PR_IMPORTANCE));
  EXPECT_EQ(values.get()[1].Value.l, 0);
  EXPECT_EQ(values.get()[2].ulPropTag, PROP_TAG(PT_ERROR, PROP_ID(PR_TITLE)));
  EXPECT_EQ(values.get()[2].Value.err, MAPI_E_NOT_FOUND);

  // A store without Unicode answers the 8-bit form only.
  auto archive = openStore(1);
  auto old = open<IMessage>(archive.get(), profile_->entryId(profile_->byKey("a1")));
  SizedSPropTagArray(2, both) = {2, {PR_SUBJECT_W, PR_SUBJECT_A}};
  ASSERT_EQ(old->GetProps(reinterpret_cast<LPSPropTagArray>(&both), 0, &count, values.put()),
            MAPI_W_ERRORS_RETURNED);
  EXPECT_EQ(PROP_TYPE(values.get()[0].ulPropTag), PT_ERROR);
  EXPECT_STREQ(values.get()[1].Value.lpszA, "Old");
}

TEST_F(ObjectsTest, LongTextThroughStreams) {
  auto store = openStore(0);
  auto message = open<IMessage>(store.get(), profile_->entryId(profile_->byKey("m1")));
  std::string expected;
  for (int i = 0; i < 100; ++i) expected += "Zeile ";
  EXPECT_EQ(readStream(message.get(), PR_BODY_A), expected);
  const std::string wide = readStream(message.get(), PR_BODY_W);
  ASSERT_EQ(wide.size(), expected.size() * 2) << "UTF-16 without a terminator";
  EXPECT_EQ(wide.substr(0, 4), std::string("Z\0e\0", 4));
  HRESULT hr = S_OK;
  readStream(message.get(), PR_TITLE_W, &hr);
  EXPECT_EQ(hr, MAPI_E_NOT_FOUND);
  ComPtr<IUnknown> notStream;
  EXPECT_EQ(message->OpenProperty(PR_BODY_W, &IID_IMAPITable, 0, 0, notStream.put()),
            MAPI_E_INTERFACE_NOT_SUPPORTED);

  ComPtr<IStream> stream;
  ASSERT_EQ(message->OpenProperty(PR_BODY_A, &IID_IStream, 0, 0, stream.putUnknown()), S_OK);
  STATSTG stat{};
  ASSERT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
  EXPECT_EQ(stat.cbSize.QuadPart, expected.size());
  LARGE_INTEGER back{};
  back.QuadPart = -6;
  ULARGE_INTEGER at{};
  ASSERT_EQ(stream->Seek(back, STREAM_SEEK_END, &at), S_OK);
  EXPECT_EQ(at.QuadPart, expected.size() - 6);
  char tail[8] = {};
  ULONG got = 0;
  ASSERT_EQ(stream->Read(tail, 8, &got), S_OK);
  EXPECT_EQ(std::string(tail, got), "Zeile ");
  EXPECT_EQ(stream->Write("x", 1, &got), STG_E_ACCESSDENIED);
}

class TerminatedStreamTest : public ObjectsTest {
  const char* json() const override {
    return R"({"stores": [{"name": "S", "default": true, "options": {"streamTerminator": true},
      "root": {"items": [{"key": "m", "props": [{"tag": "PR_BODY_W", "value": "Hi"}]}]}}]})";
  }
};

TEST_F(TerminatedStreamTest, StreamsMayEndInANul) {
  auto store = openStore(0);
  auto message = open<IMessage>(store.get(), profile_->entryId(profile_->byKey("m")));
  EXPECT_EQ(readStream(message.get(), PR_BODY_W), std::string("H\0i\0\0\0", 6));
  EXPECT_EQ(readStream(message.get(), PR_BODY_A), std::string("Hi\0", 3));
}

TEST_F(ObjectsTest, AttachmentsEmbeddedMessagesAndRecipients) {
  auto store = openStore(0);
  auto message = open<IMessage>(store.get(), profile_->entryId(profile_->byKey("m1")));
  ComPtr<IMAPITable> attachments;
  ASSERT_EQ(message->GetAttachmentTable(0, attachments.put()), S_OK);
  setColumns(attachments.get(), {PR_ATTACH_NUM, PR_ATTACH_SIZE, PR_ATTACH_METHOD,
                                 PR_ATTACH_LONG_FILENAME_W, PR_DISPLAY_NAME_W});
  RowSet rows;
  ASSERT_EQ(attachments->QueryRows(10, 0, rows.put()), S_OK);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows->aRow[0].lpProps[1].Value.l, 13) << "size of the data";
  EXPECT_EQ(rows->aRow[0].lpProps[2].Value.l, static_cast<LONG>(ATTACH_BY_VALUE));
  EXPECT_EQ(textOf(rows->aRow[0].lpProps[3]), "report.pdf");
  EXPECT_EQ(rows->aRow[1].lpProps[2].Value.l, static_cast<LONG>(ATTACH_EMBEDDED_MSG));
  EXPECT_EQ(textOf(rows->aRow[1].lpProps[4]), "Forwarded");

  ComPtr<IAttach> file;
  ASSERT_EQ(message->OpenAttach(static_cast<ULONG>(rows->aRow[0].lpProps[0].Value.l), nullptr, 0,
                                file.put()),
            S_OK);
  EXPECT_EQ(readStream(file.get(), PR_ATTACH_DATA_BIN), "%PDF-1.4 tiny");

  ComPtr<IAttach> embedded;
  ASSERT_EQ(message->OpenAttach(static_cast<ULONG>(rows->aRow[1].lpProps[0].Value.l), nullptr, 0,
                                embedded.put()),
            S_OK);
  ComPtr<IMessage> inner;
  ASSERT_EQ(embedded->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0,
                                   MAPI_MODIFY | MAPI_DEFERRED_ERRORS, inner.putUnknown()),
            S_OK);
  EXPECT_EQ(textProp(inner.get(), PR_SUBJECT_W), "Inner");
  EXPECT_TRUE(binaryProp(inner.get(), PR_ENTRYID).empty()) << "embedded messages have no id";
  ComPtr<IMessage> none;
  EXPECT_EQ(file->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, none.putUnknown()),
            MAPI_E_NOT_FOUND);
  ComPtr<IAttach> missing;
  EXPECT_EQ(message->OpenAttach(7, nullptr, 0, missing.put()), MAPI_E_NOT_FOUND);

  ComPtr<IMAPITable> recipients;
  ASSERT_EQ(message->GetRecipientTable(0, recipients.put()), S_OK);
  setColumns(recipients.get(), {PR_DISPLAY_NAME_W, PR_RECIPIENT_TYPE});
  ASSERT_EQ(recipients->QueryRows(10, 0, rows.put()), S_OK);
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(textOf(rows->aRow[1].lpProps[0]), "Олег");
  EXPECT_EQ(rows->aRow[1].lpProps[1].Value.l, MAPI_CC);
  EXPECT_EQ(textProp(message.get(), PR_DISPLAY_TO_W), "Bob");
  EXPECT_EQ(textProp(message.get(), PR_DISPLAY_CC_W), "Олег");
}

TEST_F(ObjectsTest, AddressBookEntriesOpenFromTheSessionAsMailUsers) {
  auto store = openStore(0);
  auto message = open<IMessage>(store.get(), profile_->entryId(profile_->byKey("m1")));
  const Bytes sender = binaryProp(message.get(), PR_SENDER_ENTRYID);
  ASSERT_FALSE(sender.empty());
  ComPtr<IUnknown> object;
  ULONG type = 0;
  ASSERT_EQ(session_->OpenEntry(static_cast<ULONG>(sender.size()),
                                reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(sender.data())),
                                nullptr, 0, &type, object.put()),
            S_OK);
  EXPECT_EQ(type, static_cast<ULONG>(MAPI_MAILUSER));
  ComPtr<IMailUser> user;
  ASSERT_EQ(object.queryInterface(IID_IMailUser, user), S_OK);
  EXPECT_EQ(textProp(user.get(), PR_DISPLAY_NAME_W), "Bob Stone");
  EXPECT_EQ(textProp(user.get(), PR_EMAIL_ADDRESS_W), "bob@example.com");
  EXPECT_EQ(textProp(user.get(), PR_ADDRTYPE_A), "SMTP");
  Bytes unknown = sender;
  unknown[20] = 9;
  EXPECT_EQ(session_->OpenEntry(static_cast<ULONG>(unknown.size()),
                                reinterpret_cast<LPENTRYID>(unknown.data()), nullptr, 0, &type,
                                object.put()),
            MAPI_E_NOT_FOUND);
}

TEST_F(ObjectsTest, OneOffIdsOpenAsMailUsersWithWhatTheyCarry) {
  for (bool unicode : {true, false}) {
    OneOffEntryId zoe{u"Zoë Ödegaard", u"SMTP", u"zoe@example.com", unicode};
    Bytes id = encodeOneOffEntryId(zoe);
    ComPtr<IUnknown> object;
    ULONG type = 0;
    ASSERT_EQ(
        session_->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                            &IID_IMailUser, 0, &type, object.put()),
        S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_MAILUSER));
    EXPECT_EQ(textProp(object.get(), PR_DISPLAY_NAME_W), "Zoë Ödegaard");
    EXPECT_EQ(textProp(object.get(), PR_SMTP_ADDRESS_W), "zoe@example.com");
    EXPECT_EQ(binaryProp(object.get(), PR_ENTRYID), id);
    id.resize(id.size() - 1);  // the last terminator cut off
    EXPECT_EQ(
        session_->OpenEntry(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                            nullptr, 0, &type, object.put()),
        MAPI_E_INVALID_ENTRYID);
  }
}

TEST_F(ObjectsTest, HierarchyTablesShowSubfoldersAndTheirClasses) {
  ComPtr<IMAPITable> table;
  ASSERT_EQ(folder("ipm")->GetHierarchyTable(MAPI_UNICODE | MAPI_DEFERRED_ERRORS, table.put()),
            S_OK);
  setColumns(table.get(), {PR_DISPLAY_NAME_W, PR_CONTAINER_CLASS_W, PR_SUBFOLDERS,
                           PR_LONGTERM_ENTRYID_FROM_TABLE});
  RowSet rows;
  ASSERT_EQ(table->QueryRows(10, 0, rows.put()), S_OK);
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ(textOf(rows->aRow[0].lpProps[0]), "Inbox");
  EXPECT_EQ(rows->aRow[0].lpProps[2].Value.b, 1);
  EXPECT_EQ(textOf(rows->aRow[3].lpProps[1]), "IPF.Task");
  EXPECT_EQ(bytesOf(rows->aRow[3].lpProps[3].Value.bin),
            profile_->entryId(profile_->byKey("tasks")));

  ASSERT_EQ(folder("ipm")->GetHierarchyTable(CONVENIENT_DEPTH, table.put()), S_OK);
  setColumns(table.get(), {PR_DISPLAY_NAME_W, PR_DEPTH});
  EXPECT_EQ(firstColumn(table.get()),
            std::vector<std::string>({"Inbox", "Reports", "Calendar", "Contacts", "Tasks"}));
}

}  // namespace
}  // namespace PIM::store::testing
