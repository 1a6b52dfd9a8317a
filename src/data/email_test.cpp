#include "data/email.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "addin/outlook_app.h"
#include "core/utils.h"
#include "data/data_test_util.h"

namespace PIM::testing {
namespace {

// The default store gives short-term identifiers in its tables, so every
// record shows the conversion to long-term form.
const char* kEmailProfile = R"json({
  "stores": [
    {
      "key": "main", "name": "Mailbox - Ana Núñez", "default": true,
      "options": {"shortTermIdsInTables": true},
      "ipmSubtree": "ipm", "receiveFolder": "inbox",
      "root": {"folders": [{"key": "ipm", "name": "Top", "folders": [
        {"key": "inbox", "name": "Inbox", "class": "IPF.Note", "items": [
          {"key": "full", "class": "IPM.Note", "props": [
             {"tag": "PR_SUBJECT_W", "value": "Q&A <draft> \"v2\""},
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-11-20T09:15:00Z"},
             {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "ab.ana"}},
             {"tag": "PR_SENDER_NAME_W", "value": "Ana (from the column)"},
             {"tag": "PR_BODY_HTML_W", "value": "<p>Olá & adeus</p>"},
             {"tag": "PR_BODY_W", "value": "not this one"},
             {"tag": "PR_IMPORTANCE", "value": 2},
             {"tag": "PR_SENSITIVITY", "value": 3},
             {"tag": "PR_FLAG_STATUS", "value": 2},
             {"named": {"set": "PSETID_Common", "id": "0x8530"}, "type": "PT_UNICODE",
              "value": "Follow up"},
             {"named": {"set": "PSETID_Common", "id": "0x8560"}, "type": "PT_SYSTIME",
              "value": "2026-11-27T17:00:00Z"}],
           "recipients": [
             {"props": [{"tag": "PR_ENTRYID", "value": {"entryIdOf": "ab.renee"}},
                        {"tag": "PR_DISPLAY_NAME_W", "value": "not shown"},
                        {"tag": "PR_RECIPIENT_TYPE", "value": 1}]},
             {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Dan Ode"},
                        {"tag": "PR_SMTP_ADDRESS_W", "value": "dan@example.com"},
                        {"tag": "PR_RECIPIENT_TYPE", "value": 1}]},
             {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Eve <eve@example.com>"},
                        {"tag": "PR_SMTP_ADDRESS_W", "value": "eve@example.com"},
                        {"tag": "PR_RECIPIENT_TYPE", "value": 2}]},
             {"props": [{"tag": "PR_SMTP_ADDRESS_W", "value": "fay@example.com"},
                        {"tag": "PR_RECIPIENT_TYPE", "value": 2}]},
             {"props": [{"tag": "PR_ENTRYID", "value": {"oneOff": {
                          "name": "Zoë", "addressType": "SMTP", "address": "zoe@example.com"}}},
                        {"tag": "PR_RECIPIENT_TYPE", "value": 3}]},
             {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Gus"},
                        {"tag": "PR_RECIPIENT_TYPE", "value": 9}]},
             {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Hal & Co"},
                        {"tag": "PR_RECIPIENT_TYPE", "error": "MAPI_E_NOT_FOUND"}]}],
           "attachments": [
             {"props": [{"tag": "PR_ATTACH_LONG_FILENAME_W", "value": "plan.pdf"},
                        {"tag": "PR_ATTACH_SIZE", "value": 5120}],
              "data": {"text": "%PDF"}},
             {"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Notes <1>.txt"}],
              "data": {"text": "abc"}}]}
        ]},
        {"key": "many", "name": "Many", "class": "IPF.Note", "items": [
          {"key": "n2", "props": [{"tag": "PR_SUBJECT_W", "value": "second"},
                                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-11-02T08:00:00Z"}]},
          {"key": "n4", "props": [{"tag": "PR_SUBJECT_W", "value": "fourth"},
                                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-11-04T08:00:00Z"}]},
          {"key": "n1", "props": [{"tag": "PR_SUBJECT_W", "value": "first"},
                                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-11-01T08:00:00Z"}]},
          {"key": "n3", "props": [{"tag": "PR_SUBJECT_W", "value": "third"},
                                  {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-11-03T08:00:00Z"}]}
        ]},
        {"key": "bodies", "name": "Bodies", "class": "IPF.Note", "items": [
          {"key": "b.plus", "props": [
             {"tag": "PR_SUBJECT_W", "value": "plus"},
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-05T10:00:00Z"},
             {"tag": "PR_BODY_HTML_W", "value": "+<p>not used</p>"},
             {"tag": "PR_BODY_W", "value": "Line 1\r\n  <two> & three"}]},
          {"key": "b.converted", "props": [
             {"tag": "PR_SUBJECT_W", "value": "converted"},
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-04T10:00:00Z"},
             {"tag": "PR_BODY_HTML_W", "value":
                "<html><body><!-- Converted from text/plain format -->\r\n<P>x</P></body></html>"}]},
          {"key": "b.plain", "props": [
             {"tag": "PR_SUBJECT_W", "value": "plain"},
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-03T10:00:00Z"},
             {"tag": "PR_BODY_W", "value": "Só texto"}]},
          {"key": "b.emptyHtml", "props": [
             {"tag": "PR_SUBJECT_W", "value": "empty html"},
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-02T10:00:00Z"},
             {"tag": "PR_BODY_HTML_W", "value": ""},
             {"tag": "PR_BODY_W", "value": "Fallback"}]},
          {"key": "b.none", "props": [
             {"tag": "PR_SUBJECT_W", "value": "none"},
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-01T10:00:00Z"}]}
        ]},
        {"key": "senders", "name": "Senders", "class": "IPF.Note", "items": [
          {"key": "s.smtp", "props": [
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-08T10:00:00Z"},
             {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "ab.ana"}}]},
          {"key": "s.ex", "props": [
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-07T10:00:00Z"},
             {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "ab.renee"}}]},
          {"key": "s.exSmtp", "props": [
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-06T10:00:00Z"},
             {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "ab.bo"}}]},
          {"key": "s.noName", "props": [
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-05T10:00:00Z"},
             {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "ab.noName"}},
             {"tag": "PR_SENDER_NAME_W", "value": "Ivo Nome"}]},
          {"key": "s.notAUser", "props": [
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-04T10:00:00Z"},
             {"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "n1"}},
             {"tag": "0x6640001F", "value": "Jo Second"}]},
          {"key": "s.name", "props": [
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-03T10:00:00Z"},
             {"tag": "PR_SENDER_NAME_W", "value": "Kai Name"},
             {"tag": "0x6640001F", "value": "not this"}]},
          {"key": "s.second", "props": [
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-02T10:00:00Z"},
             {"tag": "0x6640001F", "value": "Lia Second"}]},
          {"key": "s.nobody", "props": [
             {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2026-10-01T10:00:00Z"}]}
        ]},
        {"key": "levels", "name": "Levels", "class": "IPF.Note", "items": [
          {"key": "l0", "props": [{"tag": "PR_SUBJECT_W", "value": "store 0"},
             {"tag": "PR_IMPORTANCE", "value": 0}, {"tag": "PR_SENSITIVITY", "value": 0},
             {"tag": "PR_FLAG_STATUS", "value": 0}]},
          {"key": "l1", "props": [{"tag": "PR_SUBJECT_W", "value": "store 1"},
             {"tag": "PR_IMPORTANCE", "value": 1}, {"tag": "PR_SENSITIVITY", "value": 1},
             {"tag": "PR_FLAG_STATUS", "value": 1}]},
          {"key": "l2", "props": [{"tag": "PR_SUBJECT_W", "value": "store 2"},
             {"tag": "PR_IMPORTANCE", "value": 2}, {"tag": "PR_SENSITIVITY", "value": 2},
             {"tag": "PR_FLAG_STATUS", "value": 2}]},
          {"key": "l3", "props": [{"tag": "PR_SUBJECT_W", "value": "store 3"},
             {"tag": "PR_IMPORTANCE", "value": 3}, {"tag": "PR_SENSITIVITY", "value": 3},
             {"tag": "PR_FLAG_STATUS", "value": 3}]},
          {"key": "l4", "props": [{"tag": "PR_SUBJECT_W", "value": "store 4"},
             {"tag": "PR_IMPORTANCE", "value": -1}, {"tag": "PR_SENSITIVITY", "value": 4},
             {"tag": "PR_FLAG_STATUS", "value": "0xFFFFFFFF"}]},
          {"key": "l5", "props": [{"tag": "PR_SUBJECT_W", "value": "unread"},
             {"tag": "PR_IMPORTANCE", "error": "MAPI_E_NOT_FOUND"}]}
        ]}
      ]}]}
    }
  ],
  "addressBook": [
    {"key": "ab.ana", "props": [
      {"tag": "PR_DISPLAY_NAME_W", "value": "Ana Núñez"},
      {"tag": "PR_ADDRTYPE_W", "value": "smtp"},
      {"tag": "PR_EMAIL_ADDRESS_W", "value": "ana@example.com"}]},
    {"key": "ab.renee", "props": [
      {"tag": "PR_DISPLAY_NAME_W", "value": "Renée Lefèvre"},
      {"tag": "PR_ADDRTYPE_W", "value": "EX"},
      {"tag": "PR_EMAIL_ADDRESS_W", "value": "/o=Ferrant/cn=Recipients/cn=rlefevre"}]},
    {"key": "ab.bo", "props": [
      {"tag": "PR_DISPLAY_NAME_W", "value": "Bo Berg"},
      {"tag": "PR_ADDRTYPE_W", "value": "EX"},
      {"tag": "PR_EMAIL_ADDRESS_W", "value": "/o=Ferrant/cn=Recipients/cn=bberg"},
      {"tag": "PR_SMTP_ADDRESS_W", "value": "bo@example.org"}]},
    {"key": "ab.noName", "props": [
      {"tag": "PR_ADDRTYPE_W", "value": "SMTP"},
      {"tag": "PR_EMAIL_ADDRESS_W", "value": "ivo@example.com"}]}
  ]
})json";

// Every style of the page that wraps a plain-text body, up to the text.
const std::string kPageHead =
    "<html><body><pre style=\"{"
    "white-space: -moz-pre-wrap;  /* Mozilla, supported since 1999 */"
    "white-space: -pre-wrap;      /* Opera 4 - 6 */"
    "white-space: -o-pre-wrap;    /* Opera 7 */"
    "white-space: pre-wrap;       /* CSS3 Text module, Candidate Recommendation: "
    "http://www.w3.org/TR/css3-text/ */"
    "word-wrap: break-word;       /* IE 5.5+ */"
    "}\">";
const std::string kPageTail = "</pre></body></html>";

void setAllSwitches(bool on) {
  EmailSettings& email = Preferences::instance().email;
  email.captureImportance = on;
  email.captureFlagStatus = on;
  email.captureSensitivity = on;
  email.captureFlagRequest = on;
  email.captureAttachments = on;
}

// The body element of `html`, as Base64 with the encoder's line breaks.
std::string bodyOf(const std::string& html) {
  return "  <body>" + base64Encode(html) + "</body>\r\n";
}

class EmailTest : public RecordTest {
 protected:
  void SetUp() override {
    RecordTest::SetUp();
    OutlookApp::instance()->setMapiSession(session_.get());
  }
  void TearDown() override {
    OutlookApp::instance()->setMapiSession(nullptr);
    RecordTest::TearDown();
  }
  const char* json() const override { return kEmailProfile; }

  // The long-term identifier of an object as the records write it.
  std::string idOf(const std::string& key) {
    return toUtf8(EntryId(profile_->entryId(profile_->byKey(key))).toWstring());
  }
  // "<email entryId="…"" for the item `key`.
  std::string open(const std::string& key) { return "<email entryId=\"" + idOf(key) + "\""; }
};

TEST_F(EmailTest, TheNewestMessagesUpToTheCountComeNewestFirst) {
  Preferences::instance().email.captureEmailCount = 3;
  const auto emails = read<Email>("many");
  EXPECT_EQ(fileOf(emails),
            envelope(open("n4") + " subject=\"fourth\" date=\"134382528000000000\"" +
                     " hasAttachments=\"false\">\r\n</email>\r\n" + open("n3") +
                     " subject=\"third\" date=\"134381664000000000\"" +
                     " hasAttachments=\"false\">\r\n</email>\r\n" + open("n2") +
                     " subject=\"second\" date=\"134380800000000000\"" +
                     " hasAttachments=\"false\">\r\n</email>\r\n"));
}

TEST_F(EmailTest, EverySwitchOnWritesFlagsAttachmentsAndEveryKindOfRecipient) {
  const auto emails = read<Email>("inbox");
  const std::string recipients =
      "  <to>\r\n"
      "    <address>Renée Lefèvre</address>\r\n"
      "    <address>Dan Ode &lt;dan@example.com&gt;</address>\r\n"
      "    <address>Gus</address>\r\n"
      "    <address>Hal &amp; Co</address>\r\n"
      "  </to>\r\n"
      "  <cc>\r\n"
      "    <address>Eve &lt;eve@example.com&gt;</address>\r\n"
      "    <address>fay@example.com</address>\r\n"
      "  </cc>\r\n"
      "  <bcc>\r\n"
      "    <address>Zoë &lt;zoe@example.com&gt;</address>\r\n"
      "  </bcc>\r\n";
  EXPECT_EQ(fileOf(emails),
            envelope(open("full") +
                     " subject=\"Q&amp;A &lt;draft&gt; &quot;v2&quot;\""
                     " from=\"Ana Núñez &lt;ana@example.com&gt;\" date=\"134396397000000000\""
                     " flagRequest=\"Follow up\" flagDueBy=\"134402724000000000\""
                     " flagStatus=\"Marked\" importance=\"High\" sensitivity=\"Confidential\""
                     " hasAttachments=\"true\">\r\n"
                     "  <body>PHA+T2zDoSAmIGFkZXVzPC9wPg==\r\n</body>\r\n" +
                     recipients +
                     "  <attachments>\r\n"
                     "    <attachment>plan.pdf (5 kb)</attachment>\r\n"
                     "    <attachment>Notes &lt;1&gt;.txt (0 kb)</attachment>\r\n"
                     "  </attachments>\r\n"
                     "</email>\r\n"));

  // With every switch off only the identity, the sender, the time, the body
  // and the recipients remain.
  setAllSwitches(false);
  const auto plain = read<Email>("inbox");
  EXPECT_EQ(fileOf(plain), envelope(open("full") +
                                    " subject=\"Q&amp;A &lt;draft&gt; &quot;v2&quot;\""
                                    " from=\"Ana Núñez &lt;ana@example.com&gt;\""
                                    " date=\"134396397000000000\">\r\n"
                                    "  <body>PHA+T2zDoSAmIGFkZXVzPC9wPg==\r\n</body>\r\n" +
                                    recipients + "</email>\r\n"));
  ASSERT_EQ(plain.size(), 1u);
  EXPECT_TRUE(plain[0].flagRequest.empty());
  EXPECT_TRUE(plain[0].attachments.empty()) << "attachments are not even read";
  EXPECT_EQ(plain[0].importance, Email::ImportanceUnknown);
}

TEST_F(EmailTest, ShortTermIdentifiersOfTheTableAreKeptInLongTermForm) {
  auto table = contents("many");
  store::testing::setColumns(table.get(), {PR_ENTRYID});
  RowSet rows;
  ASSERT_EQ(table->QueryRows(1, 0, rows.put()), S_OK);
  ASSERT_EQ(rows.size(), 1u);
  const EntryId fromTable(rows->aRow[0].lpProps[0].Value.bin);
  ASSERT_FALSE(fromTable.isLongTerm());

  LogCapture log;
  const auto emails = read<Email>("many");
  ASSERT_EQ(emails.size(), 4u);
  for (const Email& email : emails) EXPECT_TRUE(email.entryId.isLongTerm());
  EXPECT_EQ(toUtf8(emails[0].entryId.toWstring()), idOf("n4"));
  EXPECT_EQ(toUtf8(emails[3].entryId.toWstring()), idOf("n1"));
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>(4, "Could not get the sender name for this email.")));
}

TEST_F(EmailTest, BodiesAreTheHtmlBodyOrThePlainBodyWrappedIntoAPage) {
  setAllSwitches(false);
  const auto emails = read<Email>("bodies");
  const std::string end = ">\r\n";
  EXPECT_EQ(
      fileOf(emails),
      envelope(open("b.plus") + " subject=\"plus\" date=\"134356680000000000\"" + end +
               bodyOf(kPageHead + "Line 1\r\n  <two> & three" + kPageTail) + "</email>\r\n" +
               open("b.converted") + " subject=\"converted\" date=\"134355816000000000\"" + end +
               bodyOf("<html><body><FONT face=\"Courier New\"><!-- Converted from text/plain "
                      "format -->\r\n<P>x</P></body></html>") +
               "</email>\r\n" + open("b.plain") + " subject=\"plain\" date=\"134354952000000000\"" +
               end + bodyOf(kPageHead + "Só texto" + kPageTail) + "</email>\r\n" +
               open("b.emptyHtml") + " subject=\"empty html\" date=\"134354088000000000\"" + end +
               bodyOf(kPageHead + "Fallback" + kPageTail) + "</email>\r\n" + open("b.none") +
               " subject=\"none\" date=\"134353224000000000\"" + end + "</email>\r\n"));
}

TEST_F(EmailTest, ThePageAroundPlainTextKeepsTheTextAsItIs) {
  EXPECT_EQ(Email::toHtmlString("a < b && c\r\n\t\"d\""),
            "<html><body><pre style=\"{white-space: -moz-pre-wrap;  /* Mozilla, supported since "
            "1999 */white-space: -pre-wrap;      /* Opera 4 - 6 */white-space: -o-pre-wrap;    /* "
            "Opera 7 */white-space: pre-wrap;       /* CSS3 Text module, Candidate "
            "Recommendation: http://www.w3.org/TR/css3-text/ */word-wrap: break-word;       /* IE "
            "5.5+ */}\">a < b && c\r\n\t\"d\"</pre></body></html>");
}

TEST_F(EmailTest, TheSenderComesFromTheAddressBookThenEitherNameColumn) {
  setAllSwitches(false);
  LogCapture log;
  const auto emails = read<Email>("senders");
  const std::string end = ">\r\n</email>\r\n";
  EXPECT_EQ(
      fileOf(emails),
      envelope(open("s.smtp") + " from=\"Ana Núñez &lt;ana@example.com&gt;\"" +
               " date=\"134359272000000000\"" + end + open("s.ex") +
               " from=\"Renée Lefèvre\" date=\"134358408000000000\"" + end + open("s.exSmtp") +
               " from=\"Bo Berg &lt;bo@example.org&gt;\"" + " date=\"134357544000000000\"" + end +
               open("s.noName") + " from=\"Ivo Nome\" date=\"134356680000000000\"" + end +
               open("s.notAUser") + " from=\"Jo Second\" date=\"134355816000000000\"" + end +
               open("s.name") + " from=\"Kai Name\" date=\"134354952000000000\"" + end +
               open("s.second") + " from=\"Lia Second\" date=\"134354088000000000\"" + end +
               open("s.nobody") + " date=\"134353224000000000\"" + end));
  EXPECT_EQ(log.messages(), (std::vector<std::string>{
                                "Could not retrive a display name for this email user.",
                                "Error retrieving the IMailUser interface.",
                                "Could not get the sender name for this email.",
                            }));
}

TEST_F(EmailTest, StoreLevelsMapOntoTheRecordsNumberingAndOthersAreLeftOut) {
  Preferences::instance().email.captureFlagRequest = false;
  Preferences::instance().email.captureAttachments = false;
  const auto emails = read<Email>("levels");
  // No submit times: the sort keeps the folder's order.
  const std::string end = ">\r\n</email>\r\n";
  EXPECT_EQ(fileOf(emails),
            envelope(open("l0") +
                     " subject=\"store 0\" flagStatus=\"No flag\" importance=\"Low\""
                     " sensitivity=\"Normal\"" +
                     end + open("l1") +
                     " subject=\"store 1\" flagStatus=\"Completed\" importance=\"Normal\""
                     " sensitivity=\"Personal\"" +
                     end + open("l2") +
                     " subject=\"store 2\" flagStatus=\"Marked\" importance=\"High\""
                     " sensitivity=\"Private\"" +
                     end + open("l3") + " subject=\"store 3\" sensitivity=\"Confidential\"" + end +
                     open("l4") + " subject=\"store 4\"" + end + open("l5") +
                     " subject=\"unread\"" + end));
}

TEST(EmailTextTest, EveryEnumerationHasItsTexts) {
  EXPECT_EQ(Email::importanceToStr(Email::ImportanceUnknown), u"Unknown");
  EXPECT_EQ(Email::importanceToStr(Email::ImportanceNormal), u"Normal");
  EXPECT_EQ(Email::importanceToStr(Email::ImportanceLow), u"Low");
  EXPECT_EQ(Email::importanceToStr(Email::ImportanceHigh), u"High");
  EXPECT_EQ(Email::sensitivityToStr(Email::SensitivityUnknown), u"Unknown");
  EXPECT_EQ(Email::sensitivityToStr(Email::SensitivityNormal), u"Normal");
  EXPECT_EQ(Email::sensitivityToStr(Email::SensitivityPersonal), u"Personal");
  EXPECT_EQ(Email::sensitivityToStr(Email::SensitivityPrivate), u"Private");
  EXPECT_EQ(Email::sensitivityToStr(Email::SensitivityConfidential), u"Confidential");
  EXPECT_EQ(Email::flagStatusToStr(Email::FlagStatusUnknown), u"Unknown");
  EXPECT_EQ(Email::flagStatusToStr(Email::FlagStatusNoFlag), u"No flag");
  EXPECT_EQ(Email::flagStatusToStr(Email::FlagStatusCompleted), u"Completed");
  EXPECT_EQ(Email::flagStatusToStr(Email::FlagStatusMarked), u"Marked");
}

TEST_F(EmailTest, TheQueryIsNoFilterNewestFirstAndTheCountAsLimit) {
  Preferences::instance().email.captureEmailCount = 7;
  RecordQuery query;
  ASSERT_EQ(Email::getRestriction(query, Email::getNameIdPairs()), S_OK);
  EXPECT_EQ(query.rowLimit, 7u);
  EXPECT_FALSE(query.restriction);
  ASSERT_TRUE(query.sortOrder);
  EXPECT_EQ(query.sortOrder->cSorts, 1u);
  EXPECT_EQ(query.sortOrder->cCategories, 0u);
  EXPECT_EQ(query.sortOrder->aSort[0].ulPropTag, static_cast<ULONG>(PR_CLIENT_SUBMIT_TIME));
  EXPECT_EQ(query.sortOrder->aSort[0].ulOrder, static_cast<ULONG>(TABLE_SORT_DESCEND));

  store::ScopedFaults faults;
  faults->failCall("MAPIAllocateBuffer", MAPI_E_NOT_ENOUGH_MEMORY);
  LogCapture log;
  RecordQuery failed;
  EXPECT_EQ(Email::getRestriction(failed, Email::getNameIdPairs()), E_FAIL);
  EXPECT_FALSE(failed.sortOrder);
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"Failed to MAPI allocate buffer for sort order set."}));
}

TEST_F(EmailTest, ColumnsFollowTheSwitches) {
  auto pairs = Email::getNameIdPairs();
  pairs[Email::kFlagRequest].tag = 0x8001001F;
  pairs[Email::kFlagDueBy].tag = 0x80020040;
  auto tagsOf = [](const PropTagArray& array) {
    std::vector<ULONG> tags;
    for (ULONG i = 0; i < array.size(); ++i) tags.push_back(array.getAt(i));
    return tags;
  };
  const std::vector<ULONG> always = {0x0FFF0102, 0x0C190102, 0x0C1A001F,
                                     0x6640001F, 0x0037001F, 0x00390040};
  std::vector<ULONG> all = always;
  all.insert(all.end(), {0x00170003, 0x10900003, 0x00360003, 0x8001001F, 0x80020040, 0x0E1B000B});
  EXPECT_EQ(tagsOf(Email::getPropIds(pairs)), all);
  setAllSwitches(false);
  EXPECT_EQ(tagsOf(Email::getPropIds(pairs)), always);
  Preferences::instance().email.captureFlagRequest = true;
  pairs.pop_back();
  std::vector<ULONG> requestOnly = always;
  requestOnly.push_back(0x8001001F);
  EXPECT_EQ(tagsOf(Email::getPropIds(pairs)), requestOnly) << "only the pairs there are";
}

// Failures of the recipient table and of the address book are logged, and
// the record is still written with what could be read.
TEST_F(EmailTest, RecipientTableFailuresLeaveTheListsEmpty) {
  setAllSwitches(false);
  struct Case {
    HRESULT injected;
    const char* logged;
  };
  for (const Case& c : {Case{MAPI_E_NO_ACCESS, "Failed to get recipients table:0x80070005"},
                        Case{E_OUTOFMEMORY, "Unknown error. Failed to get recipients table."}}) {
    store::ScopedFaults faults;
    faults->failCall("IMessage::GetRecipientTable", c.injected);
    LogCapture log;
    const auto emails = read<Email>("inbox");
    EXPECT_EQ(fileOf(emails),
              envelope(open("full") + " subject=\"Q&amp;A &lt;draft&gt; &quot;v2&quot;\""
                                      " from=\"Ana Núñez &lt;ana@example.com&gt;\""
                                      " date=\"134396397000000000\">\r\n"
                                      "  <body>PHA+T2zDoSAmIGFkZXVzPC9wPg==\r\n</body>\r\n"
                                      "</email>\r\n"));
    EXPECT_EQ(log.messages(), (std::vector<std::string>{c.logged}));
  }
}

TEST_F(EmailTest, MailUserFailuresAreLoggedAndGiveNoText) {
  const EntryId ana(profile_->entryId(profile_->byKey("ab.ana")));
  EXPECT_EQ(Email::getEmailAddress(ana), u"Ana Núñez <ana@example.com>");
  struct Case {
    const char* call;
    HRESULT injected;
    const char* logged;
  };
  for (const Case& c : {
           Case{"IMAPISession::OpenEntry", MAPI_E_NOT_FOUND,
                "Error retrieving the entry from the mail folder."},
           Case{"IMailUser::QueryInterface", E_NOINTERFACE,
                "Error retrieving the IMailUser interface."},
           Case{"IMailUser::GetProps", MAPI_E_CALL_FAILED,
                "Error retrieving mail user properties:0x80004005"},
           Case{"IMailUser::GetProps", E_OUTOFMEMORY,
                "Unknown error retrieving mail user properties."},
       }) {
    SCOPED_TRACE(c.call);
    store::ScopedFaults faults;
    faults->failCall(c.call, c.injected);
    LogCapture log;
    EXPECT_EQ(Email::getEmailAddress(ana), u"");
    EXPECT_EQ(log.messages(), (std::vector<std::string>{c.logged}));
  }

  // End to end: the sender falls back to the name column, each address-book
  // recipient to its row.
  store::ScopedFaults faults;
  faults->failAlways("IMailUser::GetProps", MAPI_E_CALL_FAILED);
  LogCapture log;
  const auto emails = read<Email>("inbox");
  ASSERT_EQ(emails.size(), 1u);
  EXPECT_EQ(emails[0].from, u"Ana (from the column)");
  EXPECT_EQ(emails[0].to, (std::vector<std::u16string>{u"not shown", u"Dan Ode <dan@example.com>",
                                                       u"Gus", u"Hal & Co"}));
  EXPECT_EQ(emails[0].bcc, std::vector<std::u16string>{u""}) << "a one-off row has no name";
  EXPECT_EQ(log.messages(), std::vector<std::string>(3,
                                                     "Error retrieving mail user properties:"
                                                     "0x80004005"));
}

TEST_F(EmailTest, WithoutASessionTheAddressBookIsNotAsked) {
  OutlookApp::instance()->setMapiSession(nullptr);
  LogCapture log;
  EXPECT_EQ(Email::getEmailAddress(EntryId(profile_->entryId(profile_->byKey("ab.ana")))), u"");
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Assertion failed"}));
}

TEST_F(EmailTest, AFailedAttachmentListIsLoggedAndWrittenAsNone) {
  store::ScopedFaults faults;
  faults->failCall("IMessage::GetAttachmentTable", MAPI_E_NO_ACCESS);
  LogCapture log;
  const auto emails = read<Email>("inbox");
  ASSERT_EQ(emails.size(), 1u);
  EXPECT_TRUE(emails[0].attachments.empty());
  EXPECT_NE(toUtf8(emails[0].toXMLString()).find(" hasAttachments=\"false\">\r\n"),
            std::string::npos);
  EXPECT_EQ(writers(log), (std::vector<std::string>{
                              "outlook_utils.cpp : PIM::OutlookUtils::getAttachmentList() > ERR> "
                              "Failed to get attachments:0x80070005",
                              "email.cpp : PIM::Email::makeDataRow() > ERR> "
                              "HR Error: 0x80070005Failed to get attachment list.",
                          }));
}

// A message that cannot be opened has no recipients, body or attachments;
// the recipients and, when they are captured, the attachments say why.
TEST_F(EmailTest, AMessageThatCannotBeOpenedIsWrittenFromItsRow) {
  const std::string head =
      open("full") +
      " subject=\"Q&amp;A &lt;draft&gt; &quot;v2&quot;\""
      " from=\"Ana Núñez &lt;ana@example.com&gt;\" date=\"134396397000000000\""
      " flagRequest=\"Follow up\" flagDueBy=\"134402724000000000\""
      " flagStatus=\"Marked\" importance=\"High\" sensitivity=\"Confidential\"";
  const std::string recipientsLine =
      "email.cpp : PIM::Email::getRecipients() > ERR> Failed to get recipients table:0x8004010f";
  const std::string attachmentsLine =
      "email.cpp : PIM::Email::makeDataRow() > ERR> HR Error: 0x8004010fFailed to get attachment "
      "list.";
  struct Case {
    bool attachments;
    std::string xml;
    std::vector<std::string> log;
  };
  const Case cases[] = {
      {true,
       head + " hasAttachments=\"false\">\r\n</email>\r\n",
       {recipientsLine, attachmentsLine}},
      {false, head + ">\r\n</email>\r\n", {recipientsLine}},
  };
  for (const Case& c : cases) {
    Preferences::instance().email.captureAttachments = c.attachments;
    store::ScopedFaults faults;
    faults->failAlways("IMAPIFolder::OpenEntry", MAPI_E_NOT_FOUND);
    LogCapture log;
    const auto emails = read<Email>("inbox");
    EXPECT_GT(faults->callCount("IMAPIFolder::OpenEntry"), 0u);
    EXPECT_EQ(fileOf(emails), envelope(c.xml));
    EXPECT_EQ(writers(log), c.log);
  }
}

TEST_F(EmailTest, AnInvalidIdentifierIsAnAssertionAndTheElementIsStillWritten) {
  Email email;
  email.subject = u"x";
  setAllSwitches(false);
  LogCapture log;
  EXPECT_EQ(email.toXMLString(), u"<email entryId=\"\" subject=\"x\">\r\n</email>");
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Assertion failed"}));
}

TEST_F(EmailTest, TheSampleMailboxInboxMakesAValidFile) {
  OutlookApp::instance()->setMapiSession(nullptr);
  session_.reset();
  profile_ = store::loadFixtureFile(fromUtf8(FERRANT_SAMPLE_MAILBOX));
  ASSERT_EQ(profile_->logon(session_.put()), S_OK);
  OutlookApp::instance()->setMapiSession(session_.get());

  const auto emails = read<Email>("inbox");
  ASSERT_EQ(emails.size(), 5u);
  EXPECT_TRUE(std::is_sorted(emails.begin(), emails.end(),
                             [](const Email& a, const Email& b) { return a.date > b.date; }));
  const std::string file = fileOf(emails);
  EXPECT_NE(file.find(" subject=\"Orçamento 2027 — versão final\""
                      " from=\"Renée Lefèvre &lt;renee.lefevre@example.fr&gt;\""),
            std::string::npos);
  EXPECT_NE(file.find("    <address>Дмитрий Соколов &lt;dmitri.sokolov@example.ru&gt;</address>"),
            std::string::npos);
}

}  // namespace
}  // namespace PIM::testing
