// The data file loader on the public sample files beside the repository
// (their README lists what each holds; the expectations below are those
// facts), and on damaged copies of them.
#include "store/pst/pst_store.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "core/utils.h"
#include "mapi/outlook_utils.h"
#include "store/one_off_entry_id.h"
#include "store/profile_reload.h"
#include "store/pst/compressed_rtf.h"
#include "testing/test_support.h"

namespace PIM::store {
namespace {

using PIM::testing::readFileBytes;
using PIM::testing::TempDir;
using PIM::testing::writeFileBytes;

std::u16string sample(const std::string& name) {
  const std::string dir = PIM::testing::sharedTestData();
  if (dir.empty()) return {};
  const std::filesystem::path p = std::filesystem::path(dir) / "pst" / name;
  return std::filesystem::exists(p) ? p.u16string() : std::u16string();
}

#define LOAD_SAMPLE(var, name)                                  \
  const std::u16string var##Path = sample(name);                \
  if (var##Path.empty()) GTEST_SKIP() << "no shared test data"; \
  const std::shared_ptr<Profile> var = loadPstFile(var##Path)

std::shared_ptr<Folder> folderAt(Profile& p, const std::u16string& path) {
  const Ref ref = p.findFolder(0, path);
  std::lock_guard<std::recursive_mutex> guard(p.mutex());
  return ref.valid() ? p.folder(ref.store, ref.id) : nullptr;
}

std::vector<std::shared_ptr<Item>> itemsOf(Profile& p, const std::u16string& path,
                                           bool associated = false) {
  std::vector<std::shared_ptr<Item>> out;
  auto f = folderAt(p, path);
  if (!f) return out;
  std::lock_guard<std::recursive_mutex> guard(p.mutex());
  for (const auto& item : f->items)
    if (item->associated == associated) out.push_back(item);
  return out;
}

std::u16string text(const PropList& props, ULONG tag) {
  const Prop* p = props.find(PROP_ID(tag));
  return p && p->type() == PT_UNICODE ? p->text() : u"<absent>";
}

int64_t number(const PropList& props, ULONG tag) {
  const Prop* p = props.find(PROP_ID(tag));
  return p ? p->num() : -1;
}

// FILETIME ticks of a UTC time.
uint64_t ticks(int y, int mo, int d, int h, int mi) {
  const int a = (14 - mo) / 12, yy = y + 4800 - a, m = mo + 12 * a - 3;
  const int64_t jdn = d + (153 * m + 2) / 5 + 365 * yy + yy / 4 - yy / 100 + yy / 400 - 32045;
  const int64_t days1601 = jdn - 2305814;  // JDN of 1601-01-01
  return static_cast<uint64_t>((days1601 * 86400 + h * 3600 + mi * 60)) * 10000000ull;
}

// The data of a picture from its signature to its end chunk.
bool wholePng(const Bytes& data) {
  const Bytes head = {0x89, 'P', 'N', 'G'};
  const Bytes tail = {'I', 'E', 'N', 'D', 0xAE, 0x42, 0x60, 0x82};
  return data.size() > 12 && std::equal(head.begin(), head.end(), data.begin()) &&
         std::equal(tail.begin(), tail.end(), data.end() - 8);
}

ULONG named(Profile& p, const GUID& set, LONG id, ULONG type) {
  PropName name;
  name.set = set;
  name.id = id;
  return PROP_TAG(type, p.namedPropId(0, name));
}

// ---- What each file holds --------------------------------------------------------------
struct FolderCount {
  const char* file;
  const char16_t* folder;
  size_t items;
  size_t hidden;
};

TEST(PstStore, EachFolderHoldsTheItemsOfTheFile) {
  const FolderCount cases[] = {
      {"dist-list.pst", u"Top of Personal Folders/Calendar", 1, 0},
      {"dist-list.pst", u"Top of Personal Folders/Contacts", 2, 0},
      {"dist-list.pst", u"Freebusy Data", 1, 0},
      {"hughbe_Outlook.pst", u"Top of Personal Folders/Inbox", 0, 3},
      {"hughbe_Outlook.pst", u"Top of Personal Folders/Calendar", 1, 4},
      {"hughbe_Outlook.pst", u"Top of Personal Folders/Journal", 1, 1},
      {"hughbe_Outlook.pst", u"Top of Personal Folders/Tasks", 1, 0},
      {"hughbe_Outlook.pst", u"Top of Personal Folders/Drafts", 1, 0},
      {"multiple_to_cc.pst", u"Top of Outlook data file/Inbox", 1, 2},
      {"test_ansi.pst", u"Top of Personal Folders/Folder", 1, 0},
      {"test_unicode.pst", u"Top of Personal Folders", 1, 0},
      {"test_unicode.pst", u"Top of Personal Folders/Folder", 1, 0},
      {"msgInMsg.pst", u"Outlook データ ファイルのトップ", 1, 0},
      {"attachAndInline.pst", u"Outlook データ ファイルのトップ", 1, 0},
      {"sample.pst", u"Top of Personal Folders/Calendar", 1, 0},
  };
  for (const FolderCount& c : cases) {
    SCOPED_TRACE(std::string(c.file) + " " + toUtf8(c.folder));
    LOAD_SAMPLE(p, c.file);
    ASSERT_TRUE(folderAt(*p, c.folder));
    EXPECT_EQ(itemsOf(*p, c.folder).size(), c.items);
    EXPECT_EQ(itemsOf(*p, c.folder, true).size(), c.hidden);
  }
}

// ---- Default folders, found through MAPI as the capture finds them -----------------------
struct Defaults {
  const char* file;
  const char16_t* subtree;
  const char16_t* inbox;  // null: none
  const char16_t* calendar;
  const char16_t* contacts;
  const char16_t* tasks;
};

TEST(PstStore, DefaultFoldersAreFoundAsOutlookFindsThem) {
  const Defaults cases[] = {
      // Ids in the root folder and the Inbox.
      {"dist-list.pst", u"Top of Personal Folders", u"Top of Personal Folders/Inbox",
       u"Top of Personal Folders/Calendar", u"Top of Personal Folders/Contacts",
       u"Top of Personal Folders/Tasks"},
      // An IMAP Inbox, and no other default folder.
      {"multiple_to_cc.pst", u"Top of Outlook data file", u"Top of Outlook data file/Inbox",
       nullptr, nullptr, nullptr},
      // No ids at all: the calendar by its container class.
      {"sample.pst", u"Top of Personal Folders", nullptr, u"Top of Personal Folders/Calendar",
       nullptr, nullptr},
  };
  for (const Defaults& c : cases) {
    SCOPED_TRACE(c.file);
    LOAD_SAMPLE(p, c.file);
    ComPtr<IMAPISession> session;
    ASSERT_EQ(p->logon(session.put()), S_OK);
    ComPtr<IMsgStore> store;
    ASSERT_EQ(OutlookUtils::getDefaultMsgStore(session.get(), store), S_OK);
    const auto idOf = [&](const char16_t* path) {
      return path ? EntryId(p->entryId(p->findFolder(0, path))) : EntryId();
    };
    EXPECT_EQ(OutlookUtils::getEntryId(store.get(), PR_IPM_SUBTREE_ENTRYID), idOf(c.subtree));
    EXPECT_EQ(OutlookUtils::getMAPIInboxFolderEntryId(store.get()), idOf(c.inbox));
    EXPECT_EQ(OutlookUtils::getMAPIDefaultCalendarFolderEntryId(store.get()), idOf(c.calendar));
    EXPECT_EQ(OutlookUtils::getMAPIDefaultContactsFolderEntryId(store.get()), idOf(c.contacts));
    EXPECT_EQ(OutlookUtils::getMAPIDefaultTasksFolderEntryId(store.get()), idOf(c.tasks));
  }
}

// ---- Subjects, 8-bit text ---------------------------------------------------------------
struct Subject {
  const char* file;
  const char16_t* folder;
  const char16_t* subject;
  const char16_t* sender;  // PR_SENDER_NAME
};

TEST(PstStore, SubjectsAndSendersReadAsOutlookShowsThem) {
  const Subject cases[] = {
      // Stored with a 9-character prefix after the marker, in an ANSI file.
      {"sample.pst", u"Top of Personal Folders/Calendar",
       u"Updated: Olympus training for new hires", u"Cyndy Foulkrod"},
      // Stored without the marker.
      {"multiple_to_cc.pst", u"Top of Outlook data file/Inbox", u"Multiple recipients",
       u"John Doe"},
      {"dist-list.pst", u"Top of Personal Folders/Calendar", u"Test appointment", nullptr},
      {"test_ansi.pst", u"Top of Personal Folders/Folder", u"Post", u"Terry Mahaffey"},
      {"test_unicode.pst", u"Top of Personal Folders", u"Test", u"Terry Mahaffey"},
      {"hughbe_Outlook.pst", u"Top of Personal Folders/Drafts", u"", nullptr},
  };
  for (const Subject& c : cases) {
    SCOPED_TRACE(c.file);
    LOAD_SAMPLE(p, c.file);
    const auto items = itemsOf(*p, c.folder);
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(toUtf8(text(items[0]->props, PR_SUBJECT_W)), toUtf8(c.subject));
    if (c.sender) {
      EXPECT_EQ(toUtf8(text(items[0]->props, PR_SENDER_NAME_W)), toUtf8(c.sender));
    }
  }
}

TEST(PstStore, EightBitStringsAreDeliveredAsUnicode) {
  LOAD_SAMPLE(p, "sample.pst");
  const auto items = itemsOf(*p, u"Top of Personal Folders/Calendar");
  ASSERT_EQ(items.size(), 1u);
  for (const Prop& prop : items[0]->props.all()) {
    EXPECT_NE(prop.type(), ULONG(PT_STRING8)) << std::hex << prop.tag;
    EXPECT_NE(prop.type(), ULONG(PT_MV_STRING8)) << std::hex << prop.tag;
  }
  EXPECT_EQ(text(items[0]->props, PR_MESSAGE_CLASS_W), u"IPM.Appointment");
  // 4 To and 3 CC attendees, all Exchange addresses.
  ASSERT_EQ(items[0]->recipients.size(), 7u);
  size_t to = 0, cc = 0;
  for (const Recipient& r : items[0]->recipients) {
    to += number(r.props, PR_RECIPIENT_TYPE) == MAPI_TO;
    cc += number(r.props, PR_RECIPIENT_TYPE) == MAPI_CC;
    EXPECT_EQ(text(r.props, PR_ADDRTYPE_W), u"EX");
  }
  EXPECT_EQ(to, 4u);
  EXPECT_EQ(cc, 3u);
  EXPECT_EQ(text(items[0]->recipients[0].props, PR_EMAIL_ADDRESS_W)
                .rfind(u"/O=INRS/OU=FIRST ADMINISTRATIVE GROUP/CN=RECIPIENTS/CN=", 0),
            0u);
}

// ---- Named properties, recurrence and exceptions -----------------------------------------
TEST(PstStore, RecurringAppointmentKeepsItsBlobAndExceptions) {
  LOAD_SAMPLE(p, "dist-list.pst");
  const auto items = itemsOf(*p, u"Top of Personal Folders/Calendar");
  ASSERT_EQ(items.size(), 1u);
  const Item& appt = *items[0];
  const Prop* recur = appt.props.find(PROP_ID(named(*p, PSETID_Appointment, 0x8216, PT_BINARY)));
  ASSERT_TRUE(recur);
  ASSERT_EQ(recur->type(), ULONG(PT_BINARY));
  // Reader and writer version 0x3004, weekly (0x200B).
  ASSERT_GE(recur->bin().size(), 6u);
  EXPECT_EQ(recur->bin()[0] | recur->bin()[1] << 8, 0x3004);
  EXPECT_EQ(recur->bin()[4] | recur->bin()[5] << 8, 0x200B);
  EXPECT_EQ(number(appt.props, named(*p, PSETID_Appointment, 0x820D, PT_SYSTIME)),
            static_cast<int64_t>(ticks(2016, 8, 2, 15, 0)));
  EXPECT_EQ(number(appt.props, named(*p, PSETID_Appointment, 0x8223, PT_BOOLEAN)), 1);

  // Two modified occurrences, each an embedded message without a subject.
  const ULONG replace = named(*p, PSETID_Appointment, 0x8228, PT_SYSTIME);
  const ULONG start = named(*p, PSETID_Appointment, 0x820D, PT_SYSTIME);
  std::vector<std::pair<uint64_t, uint64_t>> exceptions;
  for (const Attachment& a : appt.attachments) {
    EXPECT_EQ(number(a.props, PR_ATTACH_METHOD), ATTACH_EMBEDDED_MSG);
    ASSERT_TRUE(a.embedded);
    EXPECT_EQ(a.embedded->props.find(PROP_ID(PR_SUBJECT_W)), nullptr);
    exceptions.emplace_back(number(a.embedded->props, replace), number(a.embedded->props, start));
  }
  const std::vector<std::pair<uint64_t, uint64_t>> expected = {
      {ticks(2016, 8, 23, 15, 0), ticks(2016, 8, 23, 16, 0)},
      {ticks(2016, 8, 30, 15, 0), ticks(2016, 8, 30, 17, 0)}};
  EXPECT_EQ(exceptions, expected);
}

struct Members {
  const char* file;
  std::vector<std::u16string> names;
  std::vector<std::u16string> addresses;
};

TEST(PstStore, DistributionListsKeepTheirMembers) {
  const Members cases[] = {
      {"dist-list.pst",
       {u"contact name 1", u"dist name 1", u"dist name 2"},
       {u"contact1@rjohnson.id.au", u"dist1@rjohnson.id.au", u"dist2@rjohnson.id.au"}},
      {"hughbe_Outlook.pst", {u"Distribution List Member"}, {u"email@gmail.com"}},
  };
  for (const Members& c : cases) {
    SCOPED_TRACE(c.file);
    LOAD_SAMPLE(p, c.file);
    const ULONG oneOffs = named(*p, PSETID_Address, 0x8054, PT_MV_BINARY);
    const ULONG members = named(*p, PSETID_Address, 0x8055, PT_MV_BINARY);
    std::shared_ptr<Item> list;
    for (const auto& item : itemsOf(*p, u"Top of Personal Folders/Contacts"))
      if (text(item->props, PR_MESSAGE_CLASS_W) == u"IPM.DistList") list = item;
    ASSERT_TRUE(list);
    const Prop* off = list->props.find(PROP_ID(oneOffs));
    const Prop* wrapped = list->props.find(PROP_ID(members));
    ASSERT_TRUE(off && wrapped);
    ASSERT_EQ(off->type(), ULONG(PT_MV_BINARY));
    EXPECT_EQ(wrapped->bins().size(), c.names.size());
    std::vector<std::u16string> names, addresses;
    for (const Bytes& b : off->bins()) {
      OneOffEntryId entry;
      ASSERT_TRUE(decodeOneOffEntryId(b.data(), b.size(), entry));
      EXPECT_EQ(entry.addressType, u"SMTP");
      names.push_back(entry.displayName);
      addresses.push_back(entry.address);
    }
    EXPECT_EQ(names, c.names);
    EXPECT_EQ(addresses, c.addresses);
  }
}

TEST(PstStore, WrappedListMembersOpenTheFilesContacts) {
  LOAD_SAMPLE(p, "dist-list.pst");
  const ULONG members = named(*p, PSETID_Address, 0x8055, PT_MV_BINARY);
  std::shared_ptr<Item> list;
  for (const auto& item : itemsOf(*p, u"Top of Personal Folders/Contacts"))
    if (text(item->props, PR_MESSAGE_CLASS_W) == u"IPM.DistList") list = item;
  ASSERT_TRUE(list);
  const Prop* wrapped = list->props.find(PROP_ID(members));
  ASSERT_TRUE(wrapped);
  ASSERT_EQ(wrapped->bins().size(), 3u);
  // The first member wraps (type 0xC3, a contact) the contact of the file.
  const Bytes first = wrapped->bins()[0];
  ASSERT_GT(first.size(), 21u);
  EXPECT_EQ(first[20], 0xC3);
  const Bytes embedded(first.begin() + 21, first.end());
  // The contact is node 0x200064 of the file.
  const Ref contactRef = p->byKey("pst:200064");
  ASSERT_TRUE(contactRef.valid());
  EXPECT_EQ(text(p->itemCopy(contactRef)->props, PR_DISPLAY_NAME_W), u"contact name 1");
  EXPECT_EQ(embedded, p->entryId(contactRef));
  ComPtr<IMAPISession> session;
  ASSERT_EQ(p->logon(session.put()), S_OK);
  ComPtr<IUnknown> opened;
  ULONG type = 0;
  EXPECT_EQ(session->OpenEntry(static_cast<ULONG>(embedded.size()),
                               reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(embedded.data())),
                               nullptr, 0, &type, opened.putUnknown()),
            S_OK);
  EXPECT_EQ(type, ULONG(MAPI_MESSAGE));
}

// A wrapped entry id of a contact (type 0xC3) of the store with record key `key`.
Bytes wrappedId(uint8_t key, uint32_t nid) {
  Bytes id = {0,    0,    0,    0,    0xC0, 0x91, 0xAD, 0xD3, 0x51, 0x9D, 0xCF, 0x11, 0xA4,
              0xA9, 0x00, 0xAA, 0x00, 0x47, 0xFA, 0xA4, 0xC3, 0,    0,    0,    0};
  id.insert(id.end(), 16, key);
  for (int i = 0; i < 4; ++i) id.push_back(static_cast<uint8_t>(nid >> (8 * i)));
  return id;
}

Bytes oneOff(const std::u16string& name, const std::u16string& address) {
  OneOffEntryId entry;
  entry.displayName = name;
  entry.addressType = u"SMTP";
  entry.address = address;
  return encodeOneOffEntryId(entry);
}

struct MemberCase {
  const char* what;
  Bytes recordKey;
  std::vector<Bytes> wrapped;
  std::vector<Bytes> oneOffs;
  std::vector<std::u16string> expected;  // "name <address>", "?" for no one-off entry
};

TEST(PstStore, MembersOnlyWrappedBecomeOneOffsOfTheirContacts) {
  const Bytes key(16, 0x11);
  Bytes cut = wrappedId(0x11, 0x200064);
  cut.pop_back();
  const Bytes garbage = {1, 2, 3};
  const MemberCase cases[] = {
      {"a member with a one-off keeps it",
       key,
       {wrappedId(0x11, 0x200064)},
       {oneOff(u"Old", u"old@example.org")},
       {u"Old <old@example.org>"}},
      {"no one-off list: the contact's",
       key,
       {wrappedId(0x11, 0x200064)},
       {},
       {u"Ann <ann@example.org>"}},
      {"a value that is no one-off is replaced at its place",
       key,
       {wrappedId(0x11, 0x200064), wrappedId(0x11, 0x200084)},
       {garbage, oneOff(u"B", u"b@example.org")},
       {u"Ann <ann@example.org>", u"B <b@example.org>"}},
      {"a shorter one-off list gets it after the others",
       key,
       {wrappedId(0x11, 0x200084), wrappedId(0x11, 0x200064)},
       {oneOff(u"List", u"list@example.org")},
       {u"List <list@example.org>", u"Ann <ann@example.org>"}},
      {"a node that is no contact is left out", key, {wrappedId(0x11, 0x200084)}, {}, {}},
      {"an unknown node is left out", key, {wrappedId(0x11, 0x2000A4)}, {}, {}},
      {"another store's member is left out", key, {wrappedId(0x22, 0x200064)}, {}, {}},
      {"without the store's key any store's",
       {},
       {wrappedId(0x22, 0x200064)},
       {},
       {u"Ann <ann@example.org>"}},
      {"a cut id is no member", key, {cut}, {garbage}, {u"?"}},
      {"a one-off in the member list is no wrapped id",
       key,
       {oneOff(u"C", u"c@example.org")},
       {},
       {}},
  };
  // The file's contact 0x200064; 0x200084 is a list.
  const auto contact = [](uint32_t nid, OneOffEntryId& member) {
    if (nid != 0x200064) return false;
    member.displayName = u"Ann";
    member.addressType = u"SMTP";
    member.address = u"ann@example.org";
    return true;
  };
  for (const MemberCase& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<std::u16string> got;
    for (const Bytes& b : completeOneOffMembers(c.wrapped, c.oneOffs, c.recordKey, contact)) {
      OneOffEntryId entry;
      got.push_back(decodeOneOffEntryId(b.data(), b.size(), entry)
                        ? entry.displayName + u" <" + entry.address + u">"
                        : u"?");
    }
    EXPECT_EQ(got, c.expected);
  }
}

// ---- E-mails ----------------------------------------------------------------------------
TEST(PstStore, MailKeepsItsRecipientsAndHtmlBody) {
  LOAD_SAMPLE(p, "multiple_to_cc.pst");
  const auto items = itemsOf(*p, u"Top of Outlook data file/Inbox");
  ASSERT_EQ(items.size(), 1u);
  const Item& mail = *items[0];
  std::vector<std::pair<int64_t, std::u16string>> recipients;
  for (const Recipient& r : mail.recipients)
    recipients.emplace_back(number(r.props, PR_RECIPIENT_TYPE), text(r.props, PR_DISPLAY_NAME_W));
  ASSERT_EQ(recipients.size(), 4u);
  EXPECT_EQ(recipients[0], std::make_pair(int64_t{MAPI_TO}, std::u16string(u"John Doe")));
  EXPECT_EQ(recipients[1], std::make_pair(int64_t{MAPI_TO}, std::u16string(u"Jane Doe")));
  EXPECT_EQ(recipients[2].first, MAPI_CC);
  EXPECT_EQ(recipients[3].first, MAPI_CC);
  EXPECT_EQ(text(mail.recipients[2].props, PR_EMAIL_ADDRESS_W), u"pst-test-3@aranetic.com");
  EXPECT_EQ(text(mail.recipients[3].props, PR_EMAIL_ADDRESS_W), u"pst-test-4@aranetic.com");
  EXPECT_EQ(number(mail.props, PR_CLIENT_SUBMIT_TIME),
            static_cast<int64_t>(ticks(2010, 6, 27, 17, 44) + 43 * 10000000ull));
  const std::u16string html = text(mail.props, PR_BODY_HTML_W);
  EXPECT_NE(html.find(u"<html"), std::u16string::npos) << toUtf8(html);
  EXPECT_TRUE(mail.attachments.empty());
}

TEST(PstStore, MailWithoutHtmlSaysSoAndKeepsItsAttachments) {
  PIM::testing::LogCapture log;
  LOAD_SAMPLE(p, "msgInMsg.pst");
  const auto items = itemsOf(*p, u"Outlook データ ファイルのトップ");
  ASSERT_EQ(items.size(), 1u);
  const Item& mail = *items[0];
  EXPECT_EQ(text(mail.props, PR_SUBJECT_W), u"I have attachments!");
  EXPECT_EQ(mail.props.find(PROP_ID(PR_BODY_HTML_W)), nullptr);
  EXPECT_EQ(text(mail.props, PR_BODY_W), u"I have attachments!\r\n");
  EXPECT_TRUE(log.contains("\"I have attachments!\": the HTML part was not present"));
  // The RTF, made from HTML in code page 932, holds the same text.
  const Prop* rtf = mail.props.find(0x1009);
  ASSERT_TRUE(rtf);
  std::string decompressed, error;
  ASSERT_TRUE(decompressRtf(rtf->bin().data(), rtf->bin().size(), decompressed, error)) << error;
  EXPECT_EQ(decompressed.rfind("{\\rtf1", 0), 0u);
  EXPECT_NE(decompressed.find("\\fromhtml1"), std::string::npos);
  EXPECT_NE(decompressed.find("\\ansicpg932"), std::string::npos);
  EXPECT_NE(rtfToText(decompressed).find(u"I have attachments!"), std::u16string::npos);

  // An embedded mail and a picture.
  ASSERT_EQ(mail.attachments.size(), 2u);
  const Attachment& inner = mail.attachments[0];
  ASSERT_TRUE(inner.embedded);
  EXPECT_EQ(text(inner.embedded->props, PR_SUBJECT_W), u"Microsoft Outlook テスト メッセージ");
  EXPECT_EQ(text(inner.embedded->props, PR_SENDER_NAME_W), u"Microsoft Outlook");
  EXPECT_EQ(inner.embedded->recipients.size(), 1u);
  EXPECT_EQ(number(inner.props, PR_ATTACH_SIZE), 7906);
  EXPECT_EQ(text(mail.attachments[1].props, PR_ATTACH_LONG_FILENAME_W), u"green.png");
  EXPECT_EQ(number(mail.attachments[1].props, PR_ATTACH_SIZE), 3770);
  EXPECT_TRUE(wholePng(mail.attachments[1].data));
}

TEST(PstStore, AttachmentsKeepNamesSizesAndHiddenFlag) {
  LOAD_SAMPLE(p, "attachAndInline.pst");
  const auto items = itemsOf(*p, u"Outlook データ ファイルのトップ");
  ASSERT_EQ(items.size(), 1u);
  const Item& mail = *items[0];
  ASSERT_EQ(mail.recipients.size(), 1u);
  EXPECT_EQ(text(mail.recipients[0].props, PR_EMAIL_ADDRESS_W), u"xmailuser@xmailserver.test");
  ASSERT_EQ(mail.attachments.size(), 2u);
  EXPECT_EQ(text(mail.attachments[0].props, PR_ATTACH_LONG_FILENAME_W), u"attach.png");
  EXPECT_EQ(number(mail.attachments[0].props, PR_ATTACH_SIZE), 5200);
  EXPECT_TRUE(wholePng(mail.attachments[0].data));
  EXPECT_EQ(text(mail.attachments[1].props, PR_ATTACH_LONG_FILENAME_W), u"image001.png");
  EXPECT_EQ(number(mail.attachments[1].props, PR_ATTACH_SIZE), 1013);
  EXPECT_TRUE(wholePng(mail.attachments[1].data));
  EXPECT_EQ(number(mail.attachments[1].props, PROP_TAG(PT_BOOLEAN, 0x7FFE)), 1);
  EXPECT_EQ(text(mail.attachments[1].props, PROP_TAG(PT_UNICODE, 0x3712)),
            u"image001.png@01D78380.EF6DC500");
}

// ---- Damaged and foreign files -------------------------------------------------------------
TEST(PstStore, DamagedOrForeignFilesFailInOneLine) {
  const std::u16string good = sample("dist-list.pst");
  if (good.empty()) GTEST_SKIP() << "no shared test data";
  const std::string bytes = readFileBytes(good);
  TempDir dir;
  struct Case {
    const char16_t* name;
    std::string content;
  };
  std::string zeroed = bytes;
  std::fill(zeroed.begin() + 4, zeroed.end(), '\0');
  std::string badCrc = bytes;
  badCrc[0x10] ^= 0x55;
  const Case cases[] = {
      {u"empty.pst", ""},
      {u"signature-only.pst", "!BDN"},
      {u"header.pst", bytes.substr(0, 512)},
      {u"half.pst", bytes.substr(0, bytes.size() / 2)},
      // Everything libpff reads is there; the end is not.
      {u"most.pst", bytes.substr(0, bytes.size() - 4096)},
      {u"zeroed.pst", zeroed},
      {u"header-crc.pst", badCrc},
      {u"mail.json", "{\"stores\": []}"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(toUtf8(c.name));
    const std::u16string path = dir.file(c.name);
    writeFileBytes(path, c.content);
    EXPECT_EQ(isPstFile(path), c.content.rfind("!BDN", 0) == 0);
    try {
      loadPstFile(path);
      // Some damage leaves a readable file: then it must still hold a store.
      ADD_FAILURE() << "loaded";
    } catch (const PstError& e) {
      const std::string what = e.what();
      EXPECT_EQ(what.rfind(toUtf8(path) + ": ", 0), 0u) << what;
      EXPECT_EQ(what.find('\n'), std::string::npos) << what;
    }
  }
}

TEST(PstStore, TheFileIsNeverWritten) {
  const std::u16string good = sample("hughbe_Outlook.pst");
  if (good.empty()) GTEST_SKIP() << "no shared test data";
  TempDir dir;
  const std::u16string copy = dir.file(u"copy.pst");
  writeFileBytes(copy, readFileBytes(good));
  std::filesystem::permissions(std::filesystem::path(copy), std::filesystem::perms::owner_read);
  const auto before = std::filesystem::last_write_time(std::filesystem::path(copy));
  EXPECT_NO_THROW(loadPstFile(copy));
  EXPECT_EQ(readFileBytes(copy), readFileBytes(good));
  EXPECT_EQ(std::filesystem::last_write_time(std::filesystem::path(copy)), before);
}

// ---- Following the file ---------------------------------------------------------------
TEST(PstStore, AWatcherReloadsTheFileByItsNodeIds) {
  const std::u16string good = sample("dist-list.pst");
  if (good.empty()) GTEST_SKIP() << "no shared test data";
  TempDir dir;
  const std::u16string path = dir.file(u"box.pst");
  const std::string bytes = readFileBytes(good);
  writeFileBytes(path, bytes);
  auto live = loadPstFile(path);
  EXPECT_TRUE(live->byKey("pst:8122").valid());  // the Calendar folder's node
  FixtureWatcher watcher(live, path, [](const std::u16string& p) { return loadPstFile(p); });
  // The same file saved again: nothing to tell.
  writeFileBytes(path, bytes + std::string(512, '\0'));
  EXPECT_EQ(watcher.check().status, ReloadResult::Status::Unchanged);
  // Half-written: waited for once, then reported.
  writeFileBytes(path, bytes.substr(0, 4096));
  EXPECT_EQ(watcher.check().status, ReloadResult::Status::Pending);
  const ReloadResult failed = watcher.check();
  EXPECT_EQ(failed.status, ReloadResult::Status::LoadFailed);
  EXPECT_NE(failed.error.find("box.pst"), std::string::npos) << failed.error;
  // Another file in its place: what the live store cannot follow.
  writeFileBytes(path, readFileBytes(sample("hughbe_Outlook.pst")));
  EXPECT_NE(watcher.check().status, ReloadResult::Status::Applied);
}

// ---- Raw values -----------------------------------------------------------------------------
struct Raw {
  ULONG tag;
  Bytes data;
  uint32_t codePage;
  bool ok;
  Prop expected;
};

TEST(PstStore, RawValuesDecodeByType) {
  const ULONG t = 0x6001;
  const Raw cases[] = {
      {PROP_TAG(PT_LONG, t),
       {0xFE, 0xFF, 0xFF, 0xFF},
       1252,
       true,
       Prop::ofLong(PROP_TAG(PT_LONG, t), -2)},
      {PROP_TAG(PT_LONG, t), {0x01, 0x02}, 1252, false, {}},
      {PROP_TAG(PT_BOOLEAN, t), {0x01}, 1252, true, Prop::ofBool(PROP_TAG(PT_BOOLEAN, t), true)},
      {PROP_TAG(PT_SYSTIME, t),
       {0, 0x40, 0x5E, 0x53, 0x3D, 0xCE, 0xD1, 0x01},
       1252,
       true,
       Prop::ofTime(PROP_TAG(PT_SYSTIME, t), 0x01D1CE3D535E4000ull)},
      {PROP_TAG(PT_UNICODE, t),
       {'h', 0, 'i', 0, 0, 0},
       1252,
       true,
       Prop::ofText(PROP_TAG(PT_UNICODE, t), u"hi")},
      // 8-bit text in the item's code page, delivered as Unicode.
      {PROP_TAG(PT_STRING8, t),
       {'c', 'a', 'f', 0xE9},
       1252,
       true,
       Prop::ofText(PROP_TAG(PT_UNICODE, t), u"café")},
      {PROP_TAG(PT_STRING8, t),
       {0x82, 0xA0},
       932,
       true,
       Prop::ofText(PROP_TAG(PT_UNICODE, t), u"あ")},
      {PROP_TAG(PT_MV_LONG, t),
       {1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF},
       1252,
       true,
       Prop::ofMvNum(PROP_TAG(PT_MV_LONG, t), {1, -1})},
      {PROP_TAG(PT_MV_LONG, t), {1, 0, 0}, 1252, false, {}},
      // Count, offsets from the start, values.
      {PROP_TAG(PT_MV_UNICODE, t),
       {2, 0, 0, 0, 12, 0, 0, 0, 14, 0, 0, 0, 'a', 0, 'b', 0, 'c', 0},
       1252,
       true,
       Prop::ofMvText(PROP_TAG(PT_MV_UNICODE, t), {u"a", u"bc"})},
      {PROP_TAG(PT_MV_BINARY, t),
       {2, 0, 0, 0, 12, 0, 0, 0, 12, 0, 0, 0, 0xAB},
       1252,
       true,
       Prop::ofMvBinary(PROP_TAG(PT_MV_BINARY, t), {{}, {0xAB}})},
      {PROP_TAG(PT_MV_STRING8, t),
       {1, 0, 0, 0, 8, 0, 0, 0, 0xE9},
       1252,
       true,
       Prop::ofMvText(PROP_TAG(PT_MV_UNICODE, t), {u"é"})},
      // Offsets before the table, backwards, past the end; counts past the end.
      {PROP_TAG(PT_MV_BINARY, t), {1, 0, 0, 0, 2, 0, 0, 0, 0xAB}, 1252, false, {}},
      {PROP_TAG(PT_MV_BINARY, t), {2, 0, 0, 0, 13, 0, 0, 0, 12, 0, 0, 0, 0xAB}, 1252, false, {}},
      {PROP_TAG(PT_MV_BINARY, t), {1, 0, 0, 0, 9, 0, 0, 0}, 1252, false, {}},
      {PROP_TAG(PT_MV_BINARY, t), {0xFF, 0xFF, 0xFF, 0x7F, 8, 0, 0, 0}, 1252, false, {}},
      {PROP_TAG(PT_CLSID, t), Bytes(15, 1), 1252, false, {}},
      {PROP_TAG(PT_OBJECT, t), {}, 1252, false, {}},
  };
  for (const Raw& c : cases) {
    SCOPED_TRACE(std::to_string(&c - cases));
    Prop out;
    EXPECT_EQ(decodePstValue(c.tag, c.data.data(), c.data.size(), c.codePage, out), c.ok);
    if (c.ok) {
      EXPECT_EQ(out, c.expected);
    }
  }
}

TEST(PstStore, NameMapTellsSetsApartByAllSixteenBytes) {
  // Two sets that differ in their last byte only.
  Bytes guids(32, 0x11);
  guids[31] = 0x12;
  const auto entry = [](uint32_t value, uint16_t guid, bool isString, uint16_t index) {
    const uint16_t g = static_cast<uint16_t>(guid << 1 | (isString ? 1 : 0));
    return Bytes{uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24),
                 uint8_t(g),     uint8_t(g >> 8),     uint8_t(index),       uint8_t(index >> 8)};
  };
  Bytes entries;
  for (const Bytes& e : {entry(0x001A, 3, false, 0),  // an id equal to an ordinary tag's
                         entry(0x001A, 4, false, 1),  // the same id in the other set
                         entry(0, 2, true, 2),        // "Keywords" in the public strings
                         entry(0x8501, 1, false, 3),  // in MAPI's own set
                         entry(0x8502, 5, false, 4),  // a set past the stream
                         entry(12, 2, true, 5)})      // a name past the stream
    entries.insert(entries.end(), e.begin(), e.end());
  const Bytes names = {16, 0, 0, 0, 'K', 0, 'e', 0, 'y', 0, 'w', 0, 'o', 0, 'r', 0, 'd', 0, 's', 0};
  const std::map<ULONG, PropName> map = decodePstNameMap(guids, entries, names);
  ASSERT_EQ(map.size(), 4u);
  const auto guidBytes = [](const GUID& g) {
    Bytes b(16);
    std::memcpy(b.data(), &g, 16);
    return b;
  };
  EXPECT_EQ(guidBytes(map.at(0x8000).set), Bytes(guids.begin(), guids.begin() + 16));
  EXPECT_EQ(guidBytes(map.at(0x8001).set), Bytes(guids.begin() + 16, guids.end()));
  EXPECT_EQ(map.at(0x8000).id, 0x1A);
  EXPECT_EQ(map.at(0x8001).id, 0x1A);
  EXPECT_TRUE(map.at(0x8000) < map.at(0x8001) || map.at(0x8001) < map.at(0x8000));
  EXPECT_EQ(map.at(0x8002).kind, ULONG(MNID_STRING));
  EXPECT_EQ(map.at(0x8002).name, u"Keywords");
  EXPECT_EQ(guidBytes(map.at(0x8002).set)[0], 0x29);  // PS_PUBLIC_STRINGS
  EXPECT_EQ(guidBytes(map.at(0x8003).set)[0], 0x28);  // PS_MAPI
  EXPECT_EQ(map.at(0x8003).id, 0x8501);
}

TEST(PstStore, SubjectMarkerIsStripped) {
  EXPECT_EQ(stripSubjectMarker(u"\x01\x01Hello"), u"Hello");
  EXPECT_EQ(stripSubjectMarker(u"\x01\x05RE: Hello"), u"RE: Hello");
  EXPECT_EQ(stripSubjectMarker(u"Hello"), u"Hello");
  EXPECT_EQ(stripSubjectMarker(u"\x01"), u"\x01");
}

}  // namespace
}  // namespace PIM::store
