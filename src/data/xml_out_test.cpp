// The data file's UTF-8 path against the records' UTF-16 text converted by
// the platform, which it replaces: the bytes must not change.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "addin/outlook_app.h"
#include "core/utils.h"
#include "data/calendar_entry.h"
#include "data/contact.h"
#include "data/data_file.h"
#include "data/data_test_util.h"
#include "data/email.h"
#include "data/task.h"
#include "store/fixture.h"

namespace PIM::testing {
namespace {

// Everything awkward a store's text may hold.
const std::vector<std::u16string> kAwkwardTexts = {
    u"",
    u"plain ASCII",
    u"&<>\"' and &amp; already escaped",
    u"line\r\nbreaks\rand\nfeeds\ttabs",
    std::u16string{u'\x01', u'\x08', u'\x0B', u'\x1F', u'\x7F', u'\x80', u'\x9F'},
    u"\u00E9\u07FF\u0800\u4F1A\uFFFD\uFFFF",
    u"pairs \U0001F4C5 \U00010000 \U0010FFFF",
    std::u16string{u'a', char16_t(0xD83D)},                                // high at the end
    std::u16string{char16_t(0xD83D), u'x', char16_t(0xDCC5)},              // high, other, low
    std::u16string{char16_t(0xDCC5), char16_t(0xD83D)},                    // the pair reversed
    std::u16string{char16_t(0xD800), char16_t(0xD800), char16_t(0xDC00)},  // two highs
    std::u16string{u'<', char16_t(0xDFFF), u'&'},
};

TEST(XmlOutUtf8, ConvertsAndEscapesAsThePlatformDoes) {
  for (const std::u16string& text : kAwkwardTexts) {
    std::string plain;
    appendUtf8(plain, text);
    EXPECT_EQ(plain, toUtf8(text)) << toUtf8(escapeXML(text));
    std::string escaped = "kept";
    appendEscapedXmlUtf8(escaped, text);
    EXPECT_EQ(escaped, "kept" + toUtf8(escapeXML(text))) << toUtf8(escapeXML(text));
  }
  // A lone surrogate reads as U+FFFD; a NUL is copied, where toUtf8 stops.
  std::string bytes;
  appendUtf8(bytes, std::u16string{u'a', char16_t(0xDC00), u'\0', u'b'});
  EXPECT_EQ(bytes, std::string("a\xEF\xBF\xBD\0b", 6));
}

std::string envelopeOf(const std::string& lines) {
  return std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<xmlData xmlns=\"") +
         kDataSchemaUrl + "\">\r\n" + lines + "</xmlData>\r\n";
}

// The file as each record's UTF-16 text converted line by line.
template <class Record>
std::string convertedLines(const std::vector<Record>& records) {
  std::string lines;
  for (const Record& record : records) lines += toUtf8(record.toXMLString()) + "\r\n";
  return envelopeOf(lines);
}

class XmlOutFileTest : public RecordTest {
 protected:
  void TearDown() override {
    OutlookApp::instance()->setMapiSession(nullptr);
    RecordTest::TearDown();
  }
  template <class Record>
  void expectSameBytes(const std::vector<Record>& records) {
    const std::u16string path = dir_.file(u"records.xml");
    ASSERT_TRUE(writeToFile(path, records));
    EXPECT_EQ(readFileBytes(path), convertedLines(records));
  }
};

TEST_F(XmlOutFileTest, AwkwardTextsInEveryFieldGiveTheConvertedBytes) {
  LogCapture log;  // records without identifiers log that
  std::vector<Task> tasks;
  std::vector<Contact> contacts;
  std::vector<Email> emails;
  std::vector<CalendarEntry> entries;
  for (const std::u16string& text : kAwkwardTexts) {
    Task task;
    task.entryId = EntryId(std::vector<uint8_t>{0x01, 0xAB});
    task.subject = task.body = text;
    task.dueDate = 1;
    task.status = Task::Waiting;
    tasks.push_back(task);

    Contact contact;
    contact.entryId = task.entryId;
    contact.name = contact.fullname = contact.email = contact.businessNumber = text;
    contact.mobileNumber = contact.companyName = contact.title = contact.notes = text;
    contact.homeAddress = contact.businessAddress = text;
    contacts.push_back(contact);
    contact.isDistList = true;
    contact.addresses = {text, text};
    contacts.push_back(contact);

    Email email;
    email.entryId = task.entryId;
    email.subject = email.from = email.flagRequest = text;
    email.to = email.cc = email.bcc = email.attachments = {text};
    email.body = toUtf8(text) + std::string("\0\xFF", 2);
    email.date = email.flagDueBy = ~0ull;
    emails.push_back(email);

    CalendarEntry entry;
    entry.subject = entry.location = entry.organizer = entry.body = text;
    entry.sourceFolder = text;
    entry.requiredAttendees = entry.optionalAttendees = {text};
    entry.startTime = 2;
    CalendarEntry exception = entry;
    exception.baseDate = 3;
    entry.exceptions = {exception};
    entries.push_back(entry);
  }
  // A NUL ends the record's line.
  tasks.back().subject = std::u16string(u"before\0after", 12);
  expectSameBytes(tasks);
  expectSameBytes(contacts);
  expectSameBytes(emails);
  expectSameBytes(entries);
}

TEST_F(XmlOutFileTest, TheSampleMailboxGivesTheConvertedBytes) {
  session_.reset();
  profile_ = store::loadFixtureFile(fromUtf8(FERRANT_SAMPLE_MAILBOX));
  ASSERT_EQ(profile_->logon(session_.put()), S_OK);
  OutlookApp::instance()->setMapiSession(session_.get());
  for (const char* key : {"inbox", "sent"}) expectSameBytes(read<Email>(key));
  expectSameBytes(read<Contact>("contacts"));
  expectSameBytes(read<Task>("tasks"));
  const std::vector<CalendarEntry> entries = read<CalendarEntry>("calendar");
  EXPECT_FALSE(entries.empty());
  expectSameBytes(entries);
}

}  // namespace
}  // namespace PIM::testing
