#include "mapi/mapi_properties.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "mapi/com_error.h"
#include "mapi/mapi_table.h"
#include "mapi/mapi_test_util.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using store::Bytes;
using store::ScopedFaults;
using store::testing::bytesOf;
using testing::WrapperTest;

HRESULT thrownBy(const std::function<void()>& f) {
  try {
    f();
  } catch (const ComError& error) {
    return error.hr();
  }
  return S_OK;
}

TEST(EntryIdTest, TextFormLongTermAndBytewiseEquality) {
  const EntryId id(std::vector<uint8_t>{0x00, 0x00, 0x00, 0x00, 0xA1, 0xB2});
  EXPECT_EQ(id.toWstring(), u"00000000a1b2");
  EXPECT_TRUE(id.isLongTerm());
  EXPECT_EQ(id.size(), 6u);
  const EntryId shortTerm(std::vector<uint8_t>{0x01, 0x00, 0x00, 0x00, 0xA1, 0xB2});
  EXPECT_FALSE(shortTerm.isLongTerm());
  EXPECT_NE(id, shortTerm);
  EXPECT_NE(id, EntryId(std::vector<uint8_t>{0x00, 0x00, 0x00, 0x00, 0xA1}));

  const BYTE raw[] = {0x0F, 0xF0};
  EXPECT_EQ(EntryId(2, raw).toWstring(), u"0ff0");
  EXPECT_FALSE(EntryId(2, nullptr).isValid());
  EXPECT_FALSE(EntryId(0, raw).isValid());
  const EntryId empty;
  EXPECT_EQ(empty, EntryId(0, raw)) << "two empty identifiers are equal";
  EXPECT_EQ(empty.getPtr(), nullptr);
  EXPECT_FALSE(empty.isLongTerm());
  EXPECT_EQ(empty.toWstring(), u"");

  const OutlookFolder a{id, shortTerm};
  EXPECT_EQ(a, (OutlookFolder{id, shortTerm}));
  EXPECT_NE(a, (OutlookFolder{id, id}));
  EXPECT_NE(a, (OutlookFolder{shortTerm, shortTerm}));
}

TEST(PropTagArrayTest, OwnsCountAndTagsAndChecksIndexes) {
  ScopedFaults faults;
  const PropTagArray tags({PR_SUBJECT_W, PR_IMPORTANCE});
  ASSERT_NE(tags.get(), nullptr);
  EXPECT_EQ(tags.get()->cValues, 2u);
  EXPECT_EQ(tags.getAt(0), static_cast<ULONG>(PR_SUBJECT_W));
  EXPECT_EQ(tags.getAt(1), static_cast<ULONG>(PR_IMPORTANCE));
  EXPECT_EQ(thrownBy([&] { (void)tags.getAt(2); }), E_INVALIDARG);

  const PropTagArray none(std::vector<ULONG>{});
  EXPECT_NE(none.get(), nullptr);
  EXPECT_EQ(none.size(), 0u);
  EXPECT_EQ(thrownBy([&] { (void)none.getAt(0); }), E_INVALIDARG);
  EXPECT_EQ(PropTagArray().size(), 0u);

  PropTagArray held({PR_ENTRYID});
  SPropTagArray* other = nullptr;
  ASSERT_EQ(MAPIAllocateBuffer(CbNewSPropTagArray(0), reinterpret_cast<void**>(&other)), S_OK);
  MapiBuffer<SPropTagArray> otherOwner(other);
  EXPECT_EQ(thrownBy([&] { held.attach(other); }), E_FAIL);
  PropTagArray adopted(otherOwner.detach());
  EXPECT_EQ(adopted.get(), other);

  faults->failCall("MAPIAllocateBuffer", MAPI_E_CALL_FAILED);
  EXPECT_EQ(thrownBy([] { PropTagArray failed({PR_ENTRYID}); }), MAPI_E_CALL_FAILED);
  faults->failCall("MAPIAllocateBuffer", MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_THROW(PropTagArray({PR_ENTRYID}), std::bad_alloc);
}

TEST_F(WrapperTest, TypedGettersReadOnlyTheirOwnType) {
  auto item = message("long");
  MAPIProperties props(item.get(), {PR_IMPORTANCE, PR_HASATTACH, PR_CLIENT_SUBMIT_TIME,
                                    PROP_TAG(PT_MV_BINARY, 0x6801), PR_ENTRYID, PR_SUBJECT_W});
  LONG importance = 7;
  EXPECT_EQ(props.getLong(PR_IMPORTANCE, importance), S_OK);
  EXPECT_EQ(importance, 0);
  bool flag = false;
  EXPECT_EQ(props.getBool(PR_HASATTACH, flag), S_OK);
  EXPECT_TRUE(flag);
  // A long of 0 is not a boolean, and the output stays as it was.
  flag = true;
  EXPECT_EQ(props.getBool(PROP_TAG(PT_BOOLEAN, PROP_ID(PR_IMPORTANCE)), flag), E_FAIL);
  EXPECT_EQ(props.getBool(PR_IMPORTANCE, flag), E_FAIL);
  EXPECT_TRUE(flag);
  LONG unchanged = 42;
  EXPECT_EQ(props.getLong(PR_HASATTACH, unchanged), E_FAIL);
  EXPECT_EQ(unchanged, 42);

  uint64_t sent = 0;
  EXPECT_EQ(props.getSystime(PR_CLIENT_SUBMIT_TIME, sent), S_OK);
  EXPECT_EQ(sent, 133540452000000000ull);

  std::vector<std::vector<uint8_t>> blobs{{1}};
  EXPECT_EQ(props.getMvBinary(PROP_TAG(PT_MV_BINARY, 0x6801), blobs), S_OK);
  EXPECT_EQ(blobs, (std::vector<std::vector<uint8_t>>{{0x0A, 0x0B}, {0x0C}}))
      << "empty elements are skipped";

  EntryId id;
  EXPECT_EQ(props.getEntryId(PR_ENTRYID, id), S_OK);
  EXPECT_EQ(id.getVector(), profile_->entryId(profile_->byKey("long")));
  std::vector<uint8_t> bytes{9, 9};
  EXPECT_EQ(props.getBinary(PR_ENTRYID, bytes), S_OK);
  EXPECT_EQ(bytes, id.getVector());
  EXPECT_EQ(props.getBinary(PR_IMPORTANCE, bytes), E_FAIL);

  // The 8-bit twin was asked for too.
  EXPECT_NE(props.getPropValue(PR_SUBJECT_A), nullptr);
  EXPECT_EQ(props.getPropValue(0), nullptr);
  std::u16string subject;
  EXPECT_EQ(props.getWstring(PR_SUBJECT_W, subject), S_OK);
  EXPECT_EQ(subject, std::u16string(300, u'\u00e9')) << "GetProps gives the whole text";

  // Moving hands over the values; the buffer is freed once (the fixture
  // checks for leaks).
  MAPIProperties moved(std::move(props));
  EXPECT_EQ(props.count(), 0u);
  EXPECT_EQ(props.getPropValue(PR_IMPORTANCE), nullptr);
  EXPECT_EQ(moved.getLong(PR_IMPORTANCE, importance), S_OK);
  MAPIProperties other(item.get(), {PR_ENTRYID});
  other = std::move(moved);
  EXPECT_EQ(other.getLong(PR_IMPORTANCE, importance), S_OK);
  EXPECT_EQ(moved.count(), 0u);
}

TEST_F(WrapperTest, ErrorValuesAndEightBitStores) {
  MAPIProperties broken(message("broken").get(), {PR_SUBJECT_W, PR_IMPORTANCE});
  std::u16string subject = u"kept";
  EXPECT_EQ(broken.getWstring(PR_SUBJECT_W, subject), E_FAIL);
  EXPECT_EQ(subject, u"kept");
  EXPECT_EQ(broken.getPropValue(PR_SUBJECT_W), nullptr);
  const SPropValue* error = broken.getPropValue(PROP_TAG(PT_ERROR, PROP_ID(PR_SUBJECT)));
  ASSERT_NE(error, nullptr) << "error values are kept under their own tags";
  EXPECT_EQ(error->Value.err, MAPI_E_CORRUPT_DATA);
  LONG importance = 0;
  EXPECT_EQ(broken.getLong(PR_IMPORTANCE, importance), S_OK);
  EXPECT_EQ(importance, 1);

  // The archive has no Unicode: the UTF-8 twin answers for the wide tag.
  MAPIProperties old(message("a1").get(), {PR_SUBJECT_W});
  EXPECT_EQ(old.getWstring(PR_SUBJECT_W, subject), S_OK);
  EXPECT_EQ(subject, u"Alt und \u00fcbel");
  EXPECT_EQ(old.getWstring(PR_SUBJECT_A, subject), S_OK);
}

TEST_F(WrapperTest, AttachRejectsBadArgumentsAndConstructorsThrow) {
  ScopedFaults faults;
  MAPIProperties props;
  EXPECT_EQ(props.attach(nullptr, {PR_SUBJECT_W}), E_INVALIDARG);
  auto item = message("long");
  EXPECT_EQ(props.attach(item.get(), {}), E_INVALIDARG);
  EXPECT_EQ(props.attach(nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(thrownBy([] { MAPIProperties p(nullptr, {PR_SUBJECT_W}); }), E_INVALIDARG);

  faults->failCall("IMessage::GetProps", MAPI_E_CALL_FAILED);
  EXPECT_EQ(thrownBy([&] { MAPIProperties p(item.get(), {PR_SUBJECT_W}); }), MAPI_E_CALL_FAILED);
  EXPECT_EQ(props.count(), 0u);

  // Re-reading through a folder: a message is no folder, an unknown id fails.
  const EntryId longId(profile_->entryId(profile_->byKey("long")));
  EXPECT_EQ(thrownBy([&] { MAPIProperties p(item.get(), longId, {PR_SUBJECT_W}); }), E_NOINTERFACE);
  auto inbox = folder("inbox");
  MAPIProperties reread(inbox.get(), longId, {PR_IMPORTANCE});
  EXPECT_EQ(reread.count(), 1u);
  faults->failCall("OpenEntry", MAPI_E_NOT_FOUND);
  EXPECT_EQ(thrownBy([&] { MAPIProperties p(inbox.get(), longId, {PR_SUBJECT_W}); }),
            MAPI_E_NOT_FOUND);
}

// Table rows cut strings at 255 characters; the full text is read from the
// item only for texts of exactly that length.
TEST_F(WrapperTest, CutTableStringsAreReadAgainFromTheItem) {
  ScopedFaults faults;
  auto inbox = folder("inbox");
  ComPtr<IMAPITable> contents;
  ASSERT_EQ(inbox->GetContentsTable(0, contents.put()), S_OK);
  MAPITable table(contents.get());
  ASSERT_EQ(table.setColumns({PR_ENTRYID, PR_SUBJECT_W}), S_OK);

  MAPIProperties* row = table.getNextRow();
  ASSERT_NE(row, nullptr);
  std::u16string subject;
  ASSERT_EQ(row->getWstring(PR_SUBJECT_W, subject), S_OK);
  EXPECT_EQ(subject.size(), 255u) << "the table cuts";
  ASSERT_EQ(row->getWstring(PR_SUBJECT_W, subject, inbox.get()), S_OK);
  EXPECT_EQ(subject, std::u16string(300, u'\u00e9'));

  {
    // A failed re-read keeps the cut text and says why.
    testing::LogCapture log;
    faults->failCall("IMAPIFolder::OpenEntry", MAPI_E_CALL_FAILED);
    ASSERT_EQ(row->getWstring(PR_SUBJECT_W, subject, inbox.get()), S_OK);
    EXPECT_EQ(subject.size(), 255u);
    EXPECT_EQ(log.messages(),
              std::vector<std::string>{"Error retrieving string property:0x80004005"});
  }

  row = table.getNextRow();
  ASSERT_NE(row, nullptr);
  const unsigned opens = faults->callCount("OpenEntry");
  ASSERT_EQ(row->getWstring(PR_SUBJECT_W, subject, inbox.get()), S_OK);
  EXPECT_EQ(subject, std::u16string(254, u'a'));
  EXPECT_EQ(faults->callCount("OpenEntry"), opens) << "254 characters are not re-read";
}

TEST_F(WrapperTest, ShortTermIdsBecomeLongTerm) {
  ScopedFaults faults;
  auto archive = openStore(1);
  const Bytes longTerm = profile_->entryId(profile_->byKey("a1"));
  EntryId id(profile_->shortTermEntryId(profile_->byKey("a1")));
  ASSERT_FALSE(id.isLongTerm());
  EXPECT_FALSE(id.convertToLongTerm(archive.get())) << "false after every conversion";
  EXPECT_EQ(id.getVector(), longTerm);
  EXPECT_TRUE(id.convertToLongTerm(archive.get()));
  EXPECT_EQ(id.getVector(), longTerm);
  EntryId empty;
  EXPECT_FALSE(empty.convertToLongTerm(archive.get()));

  testing::LogCapture log;
  EntryId stale(profile_->shortTermEntryId(profile_->byKey("a1")));
  faults->failCall("IMsgStore::OpenEntry", MAPI_E_NOT_FOUND);
  EXPECT_EQ(thrownBy([&] { stale.convertToLongTerm(archive.get()); }), E_INVALIDARG);
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{
                "HR Error: 0x8004010f: Failed to retrieve longterm entry id for this entry."});
}

}  // namespace
}  // namespace PIM
