// Reading back the index a run wrote: everything the writer makes comes
// back as it was; anything else is refused whole, with the line at fault.
#include "app/data_index_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/utils.h"
#include "testing/test_support.h"

namespace PIM::testing {
namespace {

DataDirectoryEntry entry(std::u16string name, int32_t type, std::vector<uint8_t> id) {
  DataDirectoryEntry e;
  e.name = std::move(name);
  e.type = type;
  e.folder.folderId = EntryId(std::move(id));
  return e;
}

const std::string kHeader = std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n") +
                            "<xmlData xmlns=\"" + kDataSchemaUrl + "\">\r\n";
const std::string kFooter = "</xmlData>\r\n";

TEST(DataIndexReaderTest, WhatTheWriterWritesComesBack) {
  TempDir dir;
  std::vector<DataDirectoryEntry> entries;
  std::string error;
  EXPECT_TRUE(readDataDirectory(dir.path(), entries, error)) << "no index is no error";
  EXPECT_TRUE(entries.empty());

  const std::vector<DataDirectoryEntry> written = {
      entry(u"CVTK1a2f3c4.XML", DataDirectoryEntry::Contacts, {0x00, 0x01, 0xab}),
      entry(u"a&b <c> \"d\" 'e' ção.XML", DataDirectoryEntry::Tasks, {0xff}),
      entry(u"CVTK5.XML", DataDirectoryEntry::Calendar, {0x10, 0x20}),
      entry(u"CVTK6.XML", DataDirectoryEntry::Email, {0x7f}),
  };
  for (size_t count : {size_t{0}, written.size()}) {
    const std::vector<DataDirectoryEntry> some(written.begin(), written.begin() + count);
    ASSERT_TRUE(writeToFile(dir.file(kDataDirectoryName), some));
    ASSERT_TRUE(readDataDirectory(dir.path(), entries, error)) << error;
    ASSERT_EQ(entries.size(), count);
    for (size_t i = 0; i < count; ++i) {
      EXPECT_EQ(entries[i].name, some[i].name);
      EXPECT_EQ(entries[i].type, some[i].type);
      EXPECT_EQ(entries[i].folder.folderId, some[i].folder.folderId);
    }
  }
}

TEST(DataIndexReaderTest, AnythingElseIsRefusedWithItsLine) {
  const std::string line = "<dataFile name=\"CVTK1.XML\" type=\"tasks\" entryId=\"0a\"/>\r\n";
  struct Case {
    std::string bytes;
    const char* error;
  } const cases[] = {
      {"", "line 1: not the XML declaration of a data file"},
      {"\xEF\xBB\xBF" + kHeader + kFooter, "line 1: not the XML declaration of a data file"},
      {"<?xml version=\"1.0\" encoding=\"utf-8\"?>\n",
       "line 1: not the XML declaration of a data file"},
      {"<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<xmlData>\r\n" + kFooter,
       "line 2: not the xmlData element of a data file"},
      {kHeader, "line 3: not a dataFile"},
      {kHeader + line, "line 4: not a dataFile"},
      {kHeader + kFooter + "\r\n", "line 4: text after the closing tag"},
      {kHeader + "<dataFile type=\"tasks\" name=\"x.XML\" entryId=\"0a\"/>\r\n" + kFooter,
       "line 3: no name"},
      {kHeader + "<dataFile name=\"\" type=\"tasks\" entryId=\"0a\"/>\r\n" + kFooter,
       "line 3: not a file name"},
      {kHeader + "<dataFile name=\"sub/x.XML\" type=\"tasks\" entryId=\"0a\"/>\r\n" + kFooter,
       "line 3: not a file name"},
      {kHeader + "<dataFile name=\"..\" type=\"tasks\" entryId=\"0a\"/>\r\n" + kFooter,
       "line 3: not a file name"},
      {kHeader + "<dataFile name=\"C:x.XML\" type=\"tasks\" entryId=\"0a\"/>\r\n" + kFooter,
       "line 3: not a file name"},
      {kHeader + "<dataFile name=\"a&nbsp;b\" type=\"tasks\" entryId=\"0a\"/>\r\n" + kFooter,
       "line 3: not a file name"},
      {kHeader + "<dataFile name=\"a'b\" type=\"tasks\" entryId=\"0a\"/>\r\n" + kFooter,
       "line 3: not a file name"},
      {kHeader + "<dataFile name=\"\xC3(.XML\" type=\"tasks\" entryId=\"0a\"/>\r\n" + kFooter,
       "line 3: not a file name"},
      {kHeader + "<dataFile name=\"x.XML\" type=\"unspecified\" entryId=\"0a\"/>\r\n" + kFooter,
       "line 3: unknown type"},
      {kHeader + "<dataFile name=\"x.XML\" type=\"tasks\" entryId=\"0A\"/>\r\n" + kFooter,
       "line 3: entry id not hexadecimal"},
      {kHeader + "<dataFile name=\"x.XML\" type=\"tasks\" entryId=\"0a0\"/>\r\n" + kFooter,
       "line 3: entry id not hexadecimal"},
      {kHeader + "<dataFile name=\"x.XML\" type=\"tasks\" entryId=\"\"/>\r\n" + kFooter,
       "line 3: entry id not hexadecimal"},
      {kHeader + "<dataFile name=\"x.XML\" type=\"tasks\" entryId=\"0a\" />\r\n" + kFooter,
       "line 3: more than a dataFile element"},
      {kHeader + "<dataFile name=\"x.XML\" type=\"tasks\" entryId=\"0a\"/>\n" + kFooter,
       "line 3: no line end after the element"},
      {kHeader + line + "<dataFile name=\"x.XML" + kFooter, "line 4: no name"},  // cut off
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.error);
    std::vector<DataDirectoryEntry> entries;
    std::string error;
    EXPECT_FALSE(parseDataDirectory(c.bytes, entries, error));
    EXPECT_EQ(error, c.error);
    EXPECT_TRUE(entries.empty()) << "refused whole";
  }
}

TEST(DataIndexReaderTest, AFileTooLargeForAnIndexIsNotRead) {
  TempDir dir;
  writeFileBytes(dir.file(kDataDirectoryName), kHeader + std::string(kMaxDataDirectoryBytes, ' '));
  std::vector<DataDirectoryEntry> entries;
  std::string error;
  EXPECT_FALSE(readDataDirectory(dir.path(), entries, error));
  EXPECT_EQ(error.rfind("too large for an index (", 0), 0u) << error;
}

}  // namespace
}  // namespace PIM::testing
