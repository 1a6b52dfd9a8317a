// The data file envelope, its failures, and the index line.
#include "data/data_file.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "data/data_test_util.h"
#include "testing/test_support.h"

namespace PIM::testing {
namespace {

struct Line {
  std::u16string text;
  std::u16string toXMLString() const { return text; }
};

std::string header() {
  return std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<xmlData xmlns=\"") +
         kDataSchemaUrl + "\">\r\n";
}

// A disk that fills after `room` bytes.
class FullDiskEnv : public EnvWrapper {
 public:
  explicit FullDiskEnv(size_t room) : EnvWrapper(Env::platformDefault()), room_(room) {}
  std::unique_ptr<WritableFile> openForWriting(const std::u16string& path) override {
    class File : public WritableFile {
     public:
      File(std::unique_ptr<WritableFile> file, size_t& room)
          : file_(std::move(file)), room_(room) {}
      size_t write(const void* data, size_t size) override {
        const size_t n = std::min(size, room_);
        room_ -= n;
        return file_->write(data, n);
      }
      bool close() override { return file_->close(); }

     private:
      std::unique_ptr<WritableFile> file_;
      size_t& room_;
    };
    auto file = target()->openForWriting(path);
    return file ? std::make_unique<File>(std::move(file), room_) : nullptr;
  }

 private:
  size_t room_;
};

TEST(DataFile, RecordsStandOnTheirOwnLinesInUtf8) {
  TempDir dir;
  const std::u16string path = dir.file(u"CVTK1a2f3c4.XML");
  EXPECT_TRUE(writeToFile(path, std::vector<Line>{{u"<a x=\"Ωμέγα\"/>"}, {u"<b>\r\n</b>"}}));
  EXPECT_EQ(
      readFileBytes(path),
      header() +
          "<a x=\"\xCE\xA9\xCE\xBC\xCE\xAD\xCE\xB3\xCE\xB1\"/>\r\n<b>\r\n</b>\r\n</xmlData>\r\n");

  // Writing again replaces the file; no records leave just the envelope.
  EXPECT_TRUE(writeToFile(path, std::vector<Line>{}));
  EXPECT_EQ(readFileBytes(path), header() + "</xmlData>\r\n");
}

TEST(DataFile, FullDiskStopsAfterTheLastWholeRecord) {
  TempDir dir;
  const std::u16string path = dir.file(u"full.xml");
  FullDiskEnv disk(header().size() + 6);
  ScopedEnv scoped(&disk);
  LogCapture log;
  EXPECT_FALSE(writeToFile(path, std::vector<Line>{{u"<one/>"}, {u"<two/>"}, {u"<three/>"}}));
  // "<one/>" fits, its line break does not; nothing after it is tried but
  // the footer, which finds the disk full too.
  EXPECT_EQ(readFileBytes(path), header() + "<one/>");
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{"There was an error while writing to the output file: " +
                                     toUtf8(path)});
}

// Most files are smaller than the stream's buffer: every write "succeeds"
// and the full disk shows only when the buffer is flushed.
TEST(DataFile, FullDiskFoundAtTheCloseIsAFailure) {
  if (kPathSeparator != u'/' || !env()->pathStatus(u"/dev/full")) {
    GTEST_SKIP() << "needs /dev/full";
  }
  LogCapture log;
  EXPECT_FALSE(writeToFile(u"/dev/full", std::vector<Line>{{u"<one/>"}}));
  EXPECT_EQ(log.messages(), std::vector<std::string>{
                                "There was an error while writing to the output file: /dev/full"});
}

TEST(DataFile, UnopenablePathIsLogged) {
  TempDir dir;
  const std::u16string path = dir.file(u"missing") + kPathSeparator + u"x.xml";
  LogCapture log;
  EXPECT_FALSE(writeToFile(path, std::vector<Line>{{u"<a/>"}}));
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{"Could not open the output file: " + toUtf8(path)});
}

TEST(DataDirectory, IndexLinesAreEscapedAndChecked) {
  DataDirectoryEntry entry;
  entry.name = u"CVTK1a2f3c4.XML";
  entry.type = DataDirectoryEntry::Contacts;
  entry.folder = {EntryId(std::vector<uint8_t>{0x00, 0xAB, 0x3c}),
                  EntryId(std::vector<uint8_t>{1})};
  LogCapture log;
  EXPECT_EQ(entry.toXMLString(),
            u"<dataFile name=\"CVTK1a2f3c4.XML\" type=\"contacts\" entryId=\"00ab3c\"/>");
  entry.name = u"a&b<\"c\">.xml";
  EXPECT_EQ(entry.toXMLString(),
            u"<dataFile name=\"a&amp;b&lt;&quot;c&quot;&gt;.xml\" type=\"contacts\" "
            u"entryId=\"00ab3c\"/>");
  EXPECT_TRUE(log.messages().empty());

  // Whatever slips through is written as it is, with a line per fault.
  DataDirectoryEntry empty;
  EXPECT_EQ(empty.toXMLString(), u"<dataFile name=\"\" type=\"unspecified\" entryId=\"\"/>");
  EXPECT_EQ(log.messages(),
            (std::vector<std::string>{"Invalid EntryID", "Invalid filename", "Invalid file type"}));
}

TEST(DataDirectory, TypeTexts) {
  LogCapture log;
  std::vector<std::u16string> texts;
  for (int32_t type = -1; type <= 5; ++type) texts.push_back(DataDirectoryEntry::typeToStr(type));
  EXPECT_EQ(texts, (std::vector<std::u16string>{u"invalid", u"unspecified", u"calendar",
                                                u"contacts", u"email", u"tasks", u"invalid"}));
  EXPECT_EQ(writers(log), std::vector<std::string>(2,
                                                   "data_file.cpp : "
                                                   "PIM::DataDirectoryEntry::typeToStr() > "
                                                   "ERR> Invalid data type."));
}

TEST(DataDirectory, IndexValidatesAgainstTheSchema) {
  TempDir dir;
  // Lines that slip through with a type the writer does not know are
  // written too, and must not make the index invalid.
  std::vector<DataDirectoryEntry> index(3);
  index[0] = {
      u"CVTK10.XML", DataDirectoryEntry::Calendar, {EntryId(std::vector<uint8_t>{0, 1}), {}}};
  index[1] = {u"CVTK11.XML", DataDirectoryEntry::Tasks, {EntryId(std::vector<uint8_t>{0, 2}), {}}};
  index[2] = {u"CVTK12.XML", 9, {EntryId(std::vector<uint8_t>{0, 3}), {}}};
  const std::u16string path = dir.file(kDataDirectoryName);
  LogCapture log;
  ASSERT_TRUE(writeToFile(path, index));
  EXPECT_EQ(readFileBytes(path),
            header() +
                "<dataFile name=\"CVTK10.XML\" type=\"calendar\" entryId=\"0001\"/>\r\n"
                "<dataFile name=\"CVTK11.XML\" type=\"tasks\" entryId=\"0002\"/>\r\n"
                "<dataFile name=\"CVTK12.XML\" type=\"invalid\" entryId=\"0003\"/>\r\n"
                "</xmlData>\r\n");
  expectValidDataFile(path);
}

}  // namespace
}  // namespace PIM::testing
