// The bundled sample mailbox: what a first capture of it relies on, read
// through MAPI as the capture reads it.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/utils.h"
#include "store/one_off_entry_id.h"
#include "store/recurrence_blob.h"
#include "store/store_test_util.h"

namespace PIM::store::testing {
namespace {

class SampleMailboxTest : public StoreTest {
 protected:
  void SetUp() override {
    buffersBefore_ = liveMapiBuffers();
    profile_ = loadFixtureFile(fromUtf8(FERRANT_SAMPLE_MAILBOX));
    ASSERT_EQ(profile_->logon(session_.put()), S_OK);
    store_ = defaultStore();
    ASSERT_TRUE(store_);
  }
  void TearDown() override {
    store_.reset();
    StoreTest::TearDown();
  }

  // Found as a capture finds it: the stores table's default flag.
  ComPtr<IMsgStore> defaultStore() {
    ComPtr<IMAPITable> stores;
    EXPECT_EQ(session_->GetMsgStoresTable(0, stores.put()), S_OK);
    setColumns(stores.get(), {PR_DEFAULT_STORE, PR_ENTRYID, PR_DISPLAY_NAME_W});
    RowSet rows;
    EXPECT_EQ(stores->QueryRows(10, 0, rows.put()), S_OK);
    EXPECT_EQ(rows.size(), 2u) << "a default store and a second one";
    ComPtr<IMsgStore> out;
    int defaults = 0;
    for (ULONG i = 0; i < rows.size(); ++i) {
      const SRow& row = rows->aRow[i];
      if (PROP_TYPE(row.lpProps[0].ulPropTag) != PT_BOOLEAN || !row.lpProps[0].Value.b) continue;
      ++defaults;
      defaultName_ = textOf(row.lpProps[2]);
      const SBinary& id = row.lpProps[1].Value.bin;
      EXPECT_EQ(session_->OpenMsgStore(0, id.cb, reinterpret_cast<LPENTRYID>(id.lpb), nullptr,
                                       MDB_NO_DIALOG | MAPI_BEST_ACCESS, out.put()),
                S_OK);
    }
    EXPECT_EQ(defaults, 1);
    return out;
  }

  static Bytes binary(IMAPIProp* object, ULONG tag, HRESULT* hr = nullptr) {
    MapiBuffer<SPropValue> value;
    const HRESULT r = HrGetOneProp(object, tag, value.put());
    if (hr) *hr = r;
    if (FAILED(r)) return {};
    return bytesOf(value->Value.bin);
  }
  static std::string text(IMAPIProp* object, ULONG tag) {
    MapiBuffer<SPropValue> value;
    if (FAILED(HrGetOneProp(object, tag, value.put()))) return "-";
    return textOf(*value);
  }
  static LONG number(IMAPIProp* object, ULONG tag) {
    MapiBuffer<SPropValue> value;
    if (FAILED(HrGetOneProp(object, tag, value.put()))) return -1;
    return value->Value.l;
  }

  ComPtr<IMAPIFolder> openFolder(const Bytes& id) { return open(store_.get(), id); }
  ComPtr<IMAPIFolder> rootFolder() {
    ComPtr<IMAPIFolder> root;
    ULONG type = 0;
    EXPECT_EQ(store_->OpenEntry(0, nullptr, nullptr, MAPI_BEST_ACCESS, &type, root.putUnknown()),
              S_OK);
    return root;
  }
  ComPtr<IMAPIFolder> defaultFolder(ULONG tag) {
    return openFolder(binary(rootFolder().get(), tag));
  }
  // All rows of a default folder's contents, with these columns.
  void readContents(ULONG folderTag, std::initializer_list<ULONG> columns, RowSet& rows,
                    SRestriction* restriction = nullptr) {
    auto folder = defaultFolder(folderTag);
    ASSERT_TRUE(folder);
    ComPtr<IMAPITable> table;
    ASSERT_EQ(folder->GetContentsTable(0, table.put()), S_OK);
    setColumns(table.get(), columns);
    if (restriction) {
      ASSERT_EQ(table->Restrict(restriction, 0), S_OK);
    }
    ASSERT_EQ(table->QueryRows(100, 0, rows.put()), S_OK);
  }
  ComPtr<IMAPIFolder> inbox() {
    ULONG size = 0;
    MapiBuffer<ENTRYID> id;
    EXPECT_EQ(store_->GetReceiveFolder(nullptr, 0, &size, id.put(), nullptr), S_OK);
    if (!id) return {};
    const auto* bytes = reinterpret_cast<const uint8_t*>(id.get());
    return openFolder(Bytes(bytes, bytes + size));
  }

  // Named properties are numbered per store; unknown names fail here.
  ULONG named(const GUID& set, LONG id, ULONG type) {
    GUID guid = set;
    MAPINAMEID name{&guid, MNID_ID, {id}};
    LPMAPINAMEID names[] = {&name};
    MapiBuffer<SPropTagArray> tags;
    EXPECT_EQ(store_->GetIDsFromNames(1, names, 0, tags.put()), S_OK);
    return tags ? CHANGE_PROP_TYPE(tags->aulPropTag[0], type) : 0;
  }

  ComPtr<IMsgStore> store_;
  std::string defaultName_;
};

ULONG contentCount(IMAPIProp* folder) {
  MapiBuffer<SPropValue> value;
  EXPECT_EQ(HrGetOneProp(folder, PR_CONTENT_COUNT, value.put()), S_OK);
  return value ? value->Value.l : 0;
}

TEST_F(SampleMailboxTest, DefaultStoreAndItsFourStartingFolders) {
  EXPECT_EQ(defaultName_, "Mailbox - João Conceição");

  auto root = rootFolder();
  ASSERT_TRUE(root);
  auto calendar = openFolder(binary(root.get(), PR_IPM_APPOINTMENT_ENTRYID));
  auto contacts = openFolder(binary(root.get(), PR_IPM_CONTACT_ENTRYID));
  // As in many real stores the tasks folder is named on the inbox only.
  HRESULT hr = S_OK;
  binary(root.get(), PR_IPM_TASK_ENTRYID, &hr);
  EXPECT_EQ(hr, MAPI_E_NOT_FOUND);
  auto in = inbox();
  ASSERT_TRUE(in && calendar && contacts);
  auto tasks = openFolder(binary(in.get(), PR_IPM_TASK_ENTRYID));
  ASSERT_TRUE(tasks);
  EXPECT_EQ(binary(in.get(), PR_IPM_APPOINTMENT_ENTRYID),
            binary(root.get(), PR_IPM_APPOINTMENT_ENTRYID));

  const std::vector<std::pair<IMAPIFolder*, std::pair<std::string, ULONG>>> expected = {
      {in.get(), {"IPF.Note", 5}},
      {calendar.get(), {"IPF.Appointment", 14}},
      {contacts.get(), {"IPF.Contact", 9}},
      {tasks.get(), {"IPF.Task", 6}}};
  for (const auto& [folder, want] : expected) {
    EXPECT_EQ(text(folder, PR_CONTAINER_CLASS_W), want.first);
    EXPECT_EQ(contentCount(folder), want.second) << want.first;
  }

  // The inbox's subfolder, and the second store's IPM subtree.
  ComPtr<IMAPITable> hierarchy;
  ASSERT_EQ(in->GetHierarchyTable(0, hierarchy.put()), S_OK);
  setColumns(hierarchy.get(), {PR_DISPLAY_NAME_W, PR_CONTENT_COUNT});
  RowSet rows;
  ASSERT_EQ(hierarchy->QueryRows(10, 0, rows.put()), S_OK);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(textOf(rows->aRow[0].lpProps[0]), "Recibos & فواتير");
  EXPECT_EQ(rows->aRow[0].lpProps[1].Value.l, 2);

  auto archive = openStore(1);
  auto archiveTop = open(archive.get(), binary(archive.get(), PR_IPM_SUBTREE_ENTRYID));
  ASSERT_TRUE(archiveTop);
  EXPECT_EQ(text(archiveTop.get(), PR_DISPLAY_NAME_W), "Top of Personal Folders");
}

TEST_F(SampleMailboxTest, CalendarWindowKeepsEverySeriesAndFiveSingleAppointments) {
  const ULONG start = named(PSETID_Appointment, 0x820D, PT_SYSTIME);
  const ULONG recurring = named(PSETID_Appointment, 0x8223, PT_BOOLEAN);

  // 45 days either side of 22 November 2026, as FILETIME ticks (UTC).
  const uint64_t day = 864000000000ULL;
  const uint64_t nov22 = 134397792000000000ULL;
  auto filetime = [](uint64_t ticks) {
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(ticks);
    ft.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return ft;
  };
  SPropValue yes{}, from{}, to{};
  yes.ulPropTag = recurring, yes.Value.b = 1;
  from.ulPropTag = start, from.Value.ft = filetime(nov22 - 45 * day);
  to.ulPropTag = start, to.Value.ft = filetime(nov22 + 46 * day - 10000000);
  SRestriction series[2]{}, window[2]{}, either[2]{}, all{};
  series[0].rt = RES_EXIST, series[0].res.resExist = {0, recurring, 0};
  series[1].rt = RES_PROPERTY, series[1].res.resProperty = {RELOP_EQ, recurring, &yes};
  window[0].rt = RES_PROPERTY, window[0].res.resProperty = {RELOP_GE, start, &from};
  window[1].rt = RES_PROPERTY, window[1].res.resProperty = {RELOP_LE, start, &to};
  either[0].rt = RES_AND, either[0].res.resAnd = {2, series};
  either[1].rt = RES_AND, either[1].res.resAnd = {2, window};
  all.rt = RES_OR, all.res.resOr = {2, either};

  RowSet rows;
  readContents(PR_IPM_APPOINTMENT_ENTRYID, {PR_SUBJECT_W, recurring}, rows, &all);
  if (HasFatalFailure()) return;
  int recurringRows = 0;
  for (ULONG i = 0; i < rows.size(); ++i) {
    const SPropValue& flag = rows->aRow[i].lpProps[1];
    if (PROP_TYPE(flag.ulPropTag) == PT_BOOLEAN && flag.Value.b) ++recurringRows;
  }
  EXPECT_EQ(recurringRows, 7);
  EXPECT_EQ(rows.size(), 12u) << "two single appointments lie outside the window";
}

// RecurFrequency and PatternType, and the deleted and modified instance
// counts, read at their published offsets.
struct Pattern {
  uint16_t frequency = 0, type = 0;
  uint32_t deleted = 0, modified = 0;
};
bool readPattern(const Bytes& blob, Pattern& out) {
  auto u16 = [&](size_t at) { return static_cast<uint16_t>(blob[at] | blob[at + 1] << 8); };
  auto u32 = [&](size_t at) { return static_cast<uint32_t>(u16(at) | u16(at + 2) << 16); };
  if (blob.size() < 22) return false;
  out.frequency = u16(4), out.type = u16(6);
  const size_t specific = out.type == kPatternDay ? 0 : out.type == kPatternMonthNth ? 8 : 4;
  const size_t deletedAt = 22 + specific + 12;
  if (blob.size() < deletedAt + 4) return false;
  out.deleted = u32(deletedAt);
  const size_t modifiedAt = deletedAt + 4 + 4 * size_t{out.deleted};
  if (blob.size() < modifiedAt + 4) return false;
  out.modified = u32(modifiedAt);
  return true;
}

TEST_F(SampleMailboxTest, SeriesCoverAllSevenPatternsWithTheirExceptions) {
  const ULONG recur = named(PSETID_Appointment, 0x8216, PT_BINARY);
  const ULONG replaceTime = named(PSETID_Appointment, 0x8228, PT_SYSTIME);
  RowSet rows;
  readContents(PR_IPM_APPOINTMENT_ENTRYID, {PR_ENTRYID, recur, PR_SUBJECT_W}, rows);
  if (HasFatalFailure()) return;

  std::set<std::pair<uint16_t, uint16_t>> kinds;
  for (ULONG i = 0; i < rows.size(); ++i) {
    const SRow& row = rows->aRow[i];
    if (PROP_TYPE(row.lpProps[1].ulPropTag) != PT_BINARY) continue;
    const std::string subject = textOf(row.lpProps[2]);
    Pattern pattern;
    ASSERT_TRUE(readPattern(bytesOf(row.lpProps[1].Value.bin), pattern)) << subject;
    kinds.insert({pattern.frequency, pattern.type});
    // Every exception deletes its original date too.
    EXPECT_GT(pattern.deleted, pattern.modified) << subject;
    EXPECT_GE(pattern.modified, 1u) << subject;

    // Each modified occurrence is an embedded message that names the start
    // it replaces.
    auto item = open<IMessage>(store_.get(), bytesOf(row.lpProps[0].Value.bin));
    ComPtr<IMAPITable> attachments;
    ASSERT_EQ(item->GetAttachmentTable(0, attachments.put()), S_OK);
    setColumns(attachments.get(), {PR_ATTACH_NUM});
    RowSet atts;
    ASSERT_EQ(attachments->QueryRows(100, 0, atts.put()), S_OK);
    ASSERT_EQ(atts.size(), pattern.modified) << subject;
    for (ULONG a = 0; a < atts.size(); ++a) {
      ComPtr<IAttach> attach;
      ASSERT_EQ(item->OpenAttach(atts->aRow[a].lpProps[0].Value.l, nullptr, MAPI_BEST_ACCESS,
                                 attach.put()),
                S_OK);
      ComPtr<IMessage> exception;
      ASSERT_EQ(attach->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0,
                                     MAPI_MODIFY | MAPI_DEFERRED_ERRORS, exception.putUnknown()),
                S_OK)
          << subject;
      MapiBuffer<SPropValue> replaced;
      EXPECT_EQ(HrGetOneProp(exception.get(), replaceTime, replaced.put()), S_OK) << subject;
    }
  }
  const std::set<std::pair<uint16_t, uint16_t>> all = {
      {kRecurDaily, kPatternDay},        {kRecurDaily, kPatternWeek},
      {kRecurWeekly, kPatternWeek},      {kRecurMonthly, kPatternMonth},
      {kRecurMonthly, kPatternMonthNth}, {kRecurYearly, kPatternMonth},
      {kRecurYearly, kPatternMonthNth}};
  EXPECT_EQ(kinds, all);
}

TEST_F(SampleMailboxTest, DistributionListsHoldUnicodeAndEightBitMembers) {
  const ULONG members = named(PSETID_Address, 0x8054, PT_MV_BINARY);
  const ULONG addressType = named(PSETID_Address, 0x8082, PT_UNICODE);
  RowSet rows;
  readContents(PR_IPM_CONTACT_ENTRYID, {PR_MESSAGE_CLASS_W, members, addressType}, rows);
  if (HasFatalFailure()) return;

  std::set<std::string> addressTypes, unicodeMembers, eightBitMembers;
  for (ULONG i = 0; i < rows.size(); ++i) {
    const SRow& row = rows->aRow[i];
    if (textOf(row.lpProps[0]) != "IPM.DistList") {
      addressTypes.insert(textOf(row.lpProps[2]));
      continue;
    }
    ASSERT_EQ(PROP_TYPE(row.lpProps[1].ulPropTag), PT_MV_BINARY);
    const SBinaryArray& list = row.lpProps[1].Value.MVbin;
    for (ULONG m = 0; m < list.cValues; ++m) {
      OneOffEntryId member;
      ASSERT_TRUE(decodeOneOffEntryId(list.lpbin[m].lpb, list.lpbin[m].cb, member));
      const std::string name = toUtf8(member.displayName) + " <" + toUtf8(member.address) + ">";
      (member.unicode ? unicodeMembers : eightBitMembers).insert(name);
    }
  }
  EXPECT_EQ(addressTypes, (std::set<std::string>{"EX", "SMTP"}));
  EXPECT_TRUE(unicodeMembers.count("Дмитрий Соколов <dmitri.sokolov@example.ru>"));
  // Windows-1252 bytes in the store, the same letters once decoded.
  EXPECT_TRUE(eightBitMembers.count("José Müller <jose.muller@example.de>"));
}

}  // namespace
}  // namespace PIM::store::testing
