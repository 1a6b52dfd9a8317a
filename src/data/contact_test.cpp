// Contacts and distribution lists read from the reference store through the
// capture's table reader, and the data files they make.
#include "data/contact.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "core/utils.h"
#include "data/data_test_util.h"
#include "store/fault_injector.h"

namespace PIM::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Folders: "contacts" (contacts of every kind), "lists" (distribution
// lists), "broken" (a list whose members the table could not carry).
const char* kContactsJson = R"json({
  "stores": [{
    "key": "main", "name": "Mailbox - Ana Núñez", "default": true, "ipmSubtree": "ipm",
    "root": {"folders": [{"key": "ipm", "name": "Top of Information Store", "folders": [
      {"key": "contacts", "name": "Contacts", "class": "IPF.Contact", "items": [
        {"key": "c.full", "class": "IPM.Contact", "props": [
          {"tag": "PR_DISPLAY_NAME_W", "value": "Ana Núñez"},
          {"named": {"set": "PSETID_Address", "id": "0x8005"}, "type": "PT_UNICODE", "value": "Núñez, Ana"},
          {"named": {"set": "PSETID_Address", "id": "0x8083"}, "type": "PT_UNICODE", "value": "ana@example.com"},
          {"named": {"set": "PSETID_Address", "id": "0x8080"}, "type": "PT_UNICODE", "value": "Ana Núñez (ana@example.com)"},
          {"named": {"set": "PSETID_Address", "id": "0x8084"}, "type": "PT_UNICODE", "value": "not-this@example.com"},
          {"named": {"set": "PSETID_Address", "id": "0x8082"}, "type": "PT_UNICODE", "value": "SMTP"},
          {"tag": "PR_BUSINESS_TELEPHONE_NUMBER_W", "value": "+34 91 555 0100"},
          {"tag": "PR_MOBILE_TELEPHONE_NUMBER_W", "value": "+34 600 555 101"},
          {"tag": "PR_PAGER_TELEPHONE_NUMBER_W", "value": "+34 600 555 102"},
          {"tag": "PR_HOME_TELEPHONE_NUMBER_W", "value": "+34 91 555 0103"},
          {"tag": "PR_COMPANY_NAME_W", "value": "Smith & \"Sons\" <Ltd>"},
          {"tag": "PR_BUSINESS_FAX_NUMBER_W", "value": "+34 91 555 0104"},
          {"tag": "PR_HOME_FAX_NUMBER_W", "value": "+34 91 555 0105"},
          {"tag": "PR_TITLE_W", "value": "Jefa 'de' ventas"},
          {"tag": "PR_BODY_W", "value": "Line 1\r\nUses <b> & more"},
          {"named": {"set": "PSETID_Address", "id": "0x801B"}, "type": "PT_UNICODE", "value": "Calle Mayor 1\nMadrid"},
          {"named": {"set": "PSETID_Address", "id": "0x801A"}, "type": "PT_UNICODE", "value": "Rua <A> & B"}]},
        {"key": "c.ex", "class": "IPM.Contact", "props": [
          {"tag": "PR_DISPLAY_NAME_W", "value": "Rui Costa"},
          {"named": {"set": "PSETID_Address", "id": "0x8083"}, "type": "PT_UNICODE", "value": "/o=Org/ou=Admin/cn=Recipients/cn=rcosta"},
          {"named": {"set": "PSETID_Address", "id": "0x8084"}, "type": "PT_UNICODE", "value": "rui.costa@example.pt"},
          {"named": {"set": "PSETID_Address", "id": "0x8082"}, "type": "PT_UNICODE", "value": "EX"},
          {"tag": "PR_TITLE_W", "value": "Engenheiro"}]},
        {"key": "c.bare", "class": "IPM.Contact", "props": [
          {"tag": "PR_DISPLAY_NAME_W", "value": "Solo"}]},
        {"key": "c.errors", "class": "IPM.Contact", "props": [
          {"tag": "PR_DISPLAY_NAME_W", "error": "MAPI_E_NOT_FOUND"},
          {"named": {"set": "PSETID_Address", "id": "0x8005"}, "type": "PT_UNICODE", "value": "Errors, Erin"},
          {"named": {"set": "PSETID_Address", "id": "0x8082"}, "type": "PT_UNICODE", "error": "MAPI_E_NOT_ENOUGH_MEMORY"},
          {"named": {"set": "PSETID_Address", "id": "0x8083"}, "type": "PT_UNICODE", "value": "erin@example.com"},
          {"named": {"set": "PSETID_Address", "id": "0x8084"}, "type": "PT_UNICODE", "value": "not-this@example.com"},
          {"tag": "PR_BUSINESS_TELEPHONE_NUMBER_W", "error": "MAPI_E_NOT_ENOUGH_MEMORY"},
          {"tag": "PR_COMPANY_NAME_W", "error": "MAPI_E_NOT_ENOUGH_MEMORY"},
          {"tag": "PR_BODY_W", "error": "MAPI_E_NOT_ENOUGH_MEMORY"},
          {"named": {"set": "PSETID_Address", "id": "0x801A"}, "type": "PT_UNICODE", "error": "MAPI_E_NOT_FOUND"}]},
        {"key": "c.long", "class": "IPM.Contact", "props": [
          {"tag": "PR_DISPLAY_NAME_W", "value": "Long Company"},
          {"tag": "PR_COMPANY_NAME_W", "value": {"text": "Ab&", "repeat": 100}}]}
      ]},
      {"key": "lists", "name": "Lists", "class": "IPF.Contact", "items": [
        {"key": "dl.mixed", "class": "IPM.DistList", "props": [
          {"tag": "PR_DISPLAY_NAME_W", "value": "Team & Friends"},
          {"named": {"set": "PSETID_Address", "id": "0x8005"}, "type": "PT_UNICODE", "value": "Team & Friends"},
          {"tag": "PR_BUSINESS_TELEPHONE_NUMBER_W", "value": "+1 555 0100"},
          {"tag": "PR_BODY_W", "value": "Everyone <all>"},
          {"named": {"set": "PSETID_Address", "id": "0x8054"}, "type": "PT_MV_BINARY", "value": [
            {"oneOff": {"name": "Дмитрий Соколов", "addressType": "SMTP", "address": "dmitri@example.ru"}},
            {"oneOff": {"name": "José Müller", "addressType": "SMTP", "address": "jose@example.de", "unicode": false}},
            {"oneOff": {"name": "Renée Lefèvre", "addressType": "EX", "address": "/o=Org/cn=renee"}},
            {"hex": "0000000081"},
            {"oneOff": {"name": "王芳", "addressType": "SMTP", "address": "wang.fang@example.cn", "noRichInfo": true}}]}]},
        {"key": "dl.empty", "class": "IPM.DistList", "props": [
          {"named": {"set": "PSETID_Address", "id": "0x8005"}, "type": "PT_UNICODE", "value": "Nobody yet"}]}
      ]},
      {"key": "broken", "name": "Broken", "class": "IPF.Contact", "items": [
        {"key": "dl.large", "class": "IPM.DistList", "props": [
          {"named": {"set": "PSETID_Address", "id": "0x8005"}, "type": "PT_UNICODE", "value": "Too many"},
          {"named": {"set": "PSETID_Address", "id": "0x8054"}, "type": "PT_MV_BINARY", "error": "MAPI_E_NOT_ENOUGH_MEMORY"}]}
      ]}
    ]}]}
  }]
})json";

const char kInvalidMember[] = "Data stored in the binary blob is invalid for this entry.";
const std::string kMakeDataRow = "contact.cpp : PIM::Contact::makeDataRow() > ERR> ";

class ContactTest : public RecordTest {
 protected:
  const char* json() const override { return kContactsJson; }

  // The long-term entry id of an item as the file writes it.
  std::string id(const std::string& key) {
    static const char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (uint8_t b : profile_->entryId(profile_->byKey(key))) {
      hex += kDigits[b >> 4];
      hex += kDigits[b & 15];
    }
    return hex;
  }

  static void setAll(bool on) {
    ContactSettings& s = Preferences::instance().contacts;
    for (auto flag : kFlags) s.*flag = on;
  }

  static constexpr Setting<bool> ContactSettings::*kFlags[] = {
      &ContactSettings::captureCellularNumber, &ContactSettings::capturePagerNumber,
      &ContactSettings::captureHomeNumber,     &ContactSettings::captureCompanyName,
      &ContactSettings::captureBusinessFax,    &ContactSettings::captureBusinessAddress,
      &ContactSettings::captureHomeAddress,    &ContactSettings::captureHomeFax,
      &ContactSettings::captureNotes,          &ContactSettings::captureTitle};

  std::string fullContact() {
    return "<contact entryId=\"" + id("c.full") +
           "\" name=\"Núñez, Ana\" fullname=\"Ana Núñez\" email=\"ana@example.com\""
           " businessNumber=\"+34 91 555 0100\" mobileNumber=\"+34 600 555 101\""
           " pagerNumber=\"+34 600 555 102\" homeNumber=\"+34 91 555 0103\""
           " companyName=\"Smith &amp; &quot;Sons&quot; &lt;Ltd&gt;\""
           " businessFax=\"+34 91 555 0104\" homeFax=\"+34 91 555 0105\""
           " title=\"Jefa &apos;de&apos; ventas\">\r\n"
           "  <notes>Line 1\r\nUses &lt;b&gt; &amp; more</notes>\r\n"
           "  <homeAddress>Rua &lt;A&gt; &amp; B</homeAddress>\r\n"
           "  <businessAddress>Calle Mayor 1\nMadrid</businessAddress>\r\n"
           "</contact>";
  }
  static std::string longCompany() {
    std::string text;
    for (int i = 0; i < 100; ++i) text += "Ab&amp;";
    return text;
  }
};

TEST_F(ContactTest, ContactsWithEverySwitchOn) {
  LogCapture log;
  const std::vector<Contact> contacts = read<Contact>("contacts");
  ASSERT_EQ(contacts.size(), 5u);
  EXPECT_EQ(contacts[4].companyName.size(), 300u) << "re-read past the table's cut";
  const std::string empties =
      "  <notes></notes>\r\n  <homeAddress></homeAddress>\r\n"
      "  <businessAddress></businessAddress>\r\n";
  EXPECT_EQ(fileOf(contacts),
            envelope(fullContact() + "\r\n" +
                     // An Exchange address gives way to the one the user typed.
                     "<contact entryId=\"" + id("c.ex") +
                     "\" fullname=\"Rui Costa\" email=\"rui.costa@example.pt\""
                     " title=\"Engenheiro\">\r\n" +
                     empties + "</contact>\r\n" +
                     // No address type at all: the plain address is taken.
                     "<contact entryId=\"" + id("c.bare") + "\" fullname=\"Solo\">\r\n" + empties +
                     "</contact>\r\n" +
                     // Values the store gave as errors are left out; a type
                     // that could not be read is not "EX".
                     "<contact entryId=\"" + id("c.errors") +
                     "\" name=\"Errors, Erin\" email=\"erin@example.com\">\r\n" + empties +
                     "</contact>\r\n" + "<contact entryId=\"" + id("c.long") +
                     "\" fullname=\"Long Company\" companyName=\"" + longCompany() + "\">\r\n" +
                     empties + "</contact>\r\n"));
  EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(ContactTest, ContactsWithEverySwitchOffKeepTheirFourFields) {
  setAll(false);
  const std::vector<Contact> contacts = read<Contact>("contacts");
  EXPECT_EQ(contacts[4].companyName, u"") << "an unwanted column is not even asked for";
  EXPECT_EQ(fileOf(contacts),
            envelope("<contact entryId=\"" + id("c.full") +
                     "\" name=\"Núñez, Ana\" fullname=\"Ana Núñez\" email=\"ana@example.com\""
                     " businessNumber=\"+34 91 555 0100\">\r\n</contact>\r\n"
                     "<contact entryId=\"" +
                     id("c.ex") +
                     "\" fullname=\"Rui Costa\" email=\"rui.costa@example.pt\">\r\n</contact>\r\n"
                     "<contact entryId=\"" +
                     id("c.bare") +
                     "\" fullname=\"Solo\">\r\n</contact>\r\n"
                     "<contact entryId=\"" +
                     id("c.errors") +
                     "\" name=\"Errors, Erin\" email=\"erin@example.com\">\r\n</contact>\r\n"
                     "<contact entryId=\"" +
                     id("c.long") + "\" fullname=\"Long Company\">\r\n</contact>\r\n"));
}

TEST_F(ContactTest, EachSwitchGovernsOneFieldAlone) {
  struct Case {
    Setting<bool> ContactSettings::*flag;
    std::u16string Contact::*field;
    std::string written;  // what the switch adds to the element
  } cases[] = {
      {&ContactSettings::captureCellularNumber, &Contact::mobileNumber,
       " mobileNumber=\"+34 600 555 101\""},
      {&ContactSettings::capturePagerNumber, &Contact::pagerNumber,
       " pagerNumber=\"+34 600 555 102\""},
      {&ContactSettings::captureHomeNumber, &Contact::homeNumber,
       " homeNumber=\"+34 91 555 0103\""},
      {&ContactSettings::captureCompanyName, &Contact::companyName,
       " companyName=\"Smith &amp; &quot;Sons&quot; &lt;Ltd&gt;\""},
      {&ContactSettings::captureBusinessFax, &Contact::businessFax,
       " businessFax=\"+34 91 555 0104\""},
      {&ContactSettings::captureHomeFax, &Contact::homeFax, " homeFax=\"+34 91 555 0105\""},
      {&ContactSettings::captureTitle, &Contact::title, " title=\"Jefa &apos;de&apos; ventas\""},
      {&ContactSettings::captureNotes, &Contact::notes,
       "  <notes>Line 1\r\nUses &lt;b&gt; &amp; more</notes>\r\n"},
      {&ContactSettings::captureHomeAddress, &Contact::homeAddress,
       "  <homeAddress>Rua &lt;A&gt; &amp; B</homeAddress>\r\n"},
      {&ContactSettings::captureBusinessAddress, &Contact::businessAddress,
       "  <businessAddress>Calle Mayor 1\nMadrid</businessAddress>\r\n"},
  };
  ASSERT_EQ(std::size(cases), std::size(kFlags));
  const std::vector<Contact> readWithAllOn = read<Contact>("contacts");
  ASSERT_FALSE(readWithAllOn.empty());
  const std::string all = fullContact();
  for (const Case& c : cases) {
    setAll(true);
    Preferences::instance().contacts.*c.flag = false;
    std::string expected = all;
    const size_t at = expected.find(c.written);
    ASSERT_NE(at, std::string::npos) << c.written;
    expected.erase(at, c.written.size());
    // The switch counts when the element is written...
    EXPECT_EQ(toUtf8(readWithAllOn[0].toXMLString()), expected);
    // ...and the column is not even read.
    const std::vector<Contact> contacts = read<Contact>("contacts");
    ASSERT_FALSE(contacts.empty());
    EXPECT_EQ(contacts[0].*c.field, u"") << c.written;
    EXPECT_EQ(toUtf8(contacts[0].toXMLString()), expected);
  }
}

TEST_F(ContactTest, DistributionListsCarryTheirMembers) {
  LogCapture log;
  const std::vector<Contact> lists = read<Contact>("lists");
  ASSERT_EQ(lists.size(), 2u);
  EXPECT_TRUE(lists[0].isDistList);
  const std::string head =
      "<contact entryId=\"" + id("dl.mixed") + "\" name=\"Team &amp; Friends\">\r\n";
  const std::string notes = "  <notes>Everyone &lt;all&gt;</notes>\r\n";
  const std::string rest =
      "  <addresses>\r\n"
      "    <address>Дмитрий Соколов &lt;dmitri@example.ru&gt;</address>\r\n"
      "    <address>José Müller &lt;jose@example.de&gt;</address>\r\n"
      "    <address>Renée Lefèvre</address>\r\n"
      "    <address>王芳 &lt;wang.fang@example.cn&gt;</address>\r\n"
      "  </addresses>\r\n"
      "</contact>\r\n"
      // An empty list still has its addresses wrapper.
      "<contact entryId=\"" +
      id("dl.empty") +
      "\" name=\"Nobody yet\">\r\n"
      "  <addresses>\r\n"
      "  </addresses>\r\n"
      "</contact>\r\n";
  EXPECT_EQ(fileOf(lists), envelope(head + notes + rest));
  EXPECT_THAT(writers(log), ElementsAre(kMakeDataRow + kInvalidMember));

  setAll(false);
  EXPECT_EQ(fileOf(lists), envelope(head + rest));
}

TEST_F(ContactTest, MembersTheTableCouldNotCarryAreReadFromTheItem) {
  const std::string expected = envelope("<contact entryId=\"" + id("dl.large") +
                                        "\" name=\"Too many\">\r\n"
                                        "  <addresses>\r\n"
                                        "  </addresses>\r\n"
                                        "</contact>\r\n");
  struct Case {
    HRESULT fault;
    std::vector<std::string> log;
  } cases[] = {
      // The item cannot deliver them either: nothing to show, nothing wrong.
      {S_OK, {}},
      {MAPI_E_NO_ACCESS, {kMakeDataRow + "Error retrieving distribution list property:0x80070005"}},
      {E_OUTOFMEMORY, {kMakeDataRow + "Unknown error retrieving distribution list property."}},
  };
  for (const Case& c : cases) {
    store::ScopedFaults faults;
    if (c.fault != S_OK) faults->failAlways("IMAPIFolder::OpenEntry", c.fault);
    LogCapture log;
    const std::vector<Contact> lists = read<Contact>("broken");
    EXPECT_EQ(faults->callCount("IMAPIFolder::OpenEntry"), 1u);
    EXPECT_EQ(writers(log), c.log);
    EXPECT_EQ(fileOf(lists), expected) << "the list is kept";
  }
}

TEST_F(ContactTest, ARecordWithoutEntryIdIsWrittenAnyway) {
  LogCapture log;
  std::vector<NameIdPair> pairs = Contact::getNameIdPairs();
  Contact contact;
  EXPECT_EQ(Contact::makeDataRow(pairs, MAPIProperties(), nullptr, contact), S_OK);
  setAll(false);
  EXPECT_EQ(toUtf8(contact.toXMLString()), "<contact entryId=\"\">\r\n</contact>");
  contact.isDistList = true;
  EXPECT_EQ(toUtf8(contact.toXMLString()),
            "<contact entryId=\"\">\r\n  <addresses>\r\n  </addresses>\r\n</contact>");
  EXPECT_THAT(
      writers(log),
      ElementsAre(kMakeDataRow + "Failed to retrieve entry id",
                  "contact.cpp : PIM::Contact::toXMLString() > ERR> Invalid EntryID",
                  "contact.cpp : PIM::Contact::distListToXMLString() > ERR> Invalid EntryID"));
}

TEST_F(ContactTest, ColumnsAndQuery) {
  std::vector<NameIdPair> p = Contact::getNameIdPairs();
  ASSERT_EQ(OutlookUtils::getNamedPropIds(folder("contacts").get(), p), S_OK);
  const std::vector<LONG> dispIds = {0x8083, 0x8080, 0x8084, 0x8082,
                                     0x8005, 0x801B, 0x801A, 0x8054};
  ASSERT_EQ(p.size(), dispIds.size());
  for (size_t i = 0; i < p.size(); ++i) {
    EXPECT_EQ(p[i].dispId, dispIds[i]) << i;
    EXPECT_TRUE(*p[i].propSet == PSETID_Address) << i;
    EXPECT_EQ(PROP_TYPE(p[i].tag),
              i == Contact::kOneOffMembers ? ULONG(PT_MV_BINARY) : ULONG(PT_UNICODE))
        << i;
    EXPECT_GE(PROP_ID(p[i].tag), 0x8000u) << "resolved";
  }
  auto tagsOf = [](const PropTagArray& array) {
    std::vector<ULONG> tags;
    for (ULONG i = 0; i < array.size(); ++i) tags.push_back(array.getAt(i));
    return tags;
  };
  const std::vector<ULONG> always = {
      PR_ENTRYID,         p[4].tag, PR_DISPLAY_NAME_W, PR_BUSINESS_TELEPHONE_NUMBER_W,
      p[0].tag,           p[1].tag, p[2].tag,          p[3].tag,
      PR_MESSAGE_CLASS_W, p[7].tag};
  std::vector<ULONG> all = always;
  for (ULONG tag : {ULONG(PR_MOBILE_TELEPHONE_NUMBER_W), ULONG(PR_PAGER_TELEPHONE_NUMBER_W),
                    ULONG(PR_HOME_TELEPHONE_NUMBER_W), ULONG(PR_COMPANY_NAME_W),
                    ULONG(PR_BUSINESS_FAX_NUMBER_W), p[5].tag, p[6].tag,
                    ULONG(PR_HOME_FAX_NUMBER_W), ULONG(PR_TITLE_W), ULONG(PR_BODY_W)})
    all.push_back(tag);
  EXPECT_EQ(tagsOf(Contact::getPropIds(p)), all);
  setAll(false);
  EXPECT_EQ(tagsOf(Contact::getPropIds(p)), always);

  RecordQuery query;
  EXPECT_EQ(Contact::getRestriction(query, p), S_OK);
  EXPECT_EQ(query.rowLimit, RecordQuery::kNoLimit);
  EXPECT_FALSE(query.restriction);
  EXPECT_FALSE(query.sortOrder);
}

// The bundled sample mailbox, as a capture of its contacts folder sees it.
class ContactSampleTest : public ContactTest {
 protected:
  const char* json() const override {
    static const std::string text = readFileBytes(fromUtf8(FERRANT_SAMPLE_MAILBOX));
    return text.c_str();
  }
};

TEST_F(ContactSampleTest, SampleMailboxListsAndExchangeContacts) {
  LogCapture log;
  const std::vector<Contact> contacts = read<Contact>("contacts");
  std::vector<std::vector<std::u16string>> lists;
  for (const Contact& c : contacts)
    if (c.isDistList) lists.push_back(c.addresses);
  EXPECT_THAT(lists,
              ElementsAre(ElementsAre(u"Дмитрий Соколов <dmitri.sokolov@example.ru>",
                                      u"דנה כהן <dana.cohen@example.co.il>",
                                      u"山田 太郎 <taro.yamada@example.jp>", u"Renée Lefèvre"),
                          ElementsAre(u"José Müller <jose.muller@example.de>",
                                      u"Françoise Façon <francoise@example.fr>",
                                      u"王芳 <wang.fang@example.cn>")));
  std::vector<std::u16string> emails;
  for (const Contact& c : contacts)
    if (!c.isDistList) emails.push_back(c.email);
  EXPECT_THAT(emails, ElementsAre(u"renee.lefevre@example.fr", u"dmitri.sokolov@example.ru",
                                  u"dana.cohen@example.co.il", u"ahmed.alfarsi@example.ae",
                                  u"taro.yamada@example.jp", u"wang.fang@example.cn",
                                  u"zoe.muller@example.no"));
  const std::string file = fileOf(contacts);
  EXPECT_NE(file.find("    <address>Renée Lefèvre</address>\r\n"), std::string::npos);
  EXPECT_THAT(log.messages(), IsEmpty());
}

}  // namespace
}  // namespace PIM::testing
