#include "data/data_file.h"

#include <memory>
#include <string>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "data/record.h"
#include "platform/env.h"

namespace PIM {

std::u16string DataDirectoryEntry::typeToStr(int32_t type) {
  PIM_ENTRY("PIM::DataDirectoryEntry::typeToStr");
  return enumText(PIM_LOG_SITE, type,
                  {u"unspecified", u"calendar", u"contacts", u"email", u"tasks"});
}

std::u16string DataDirectoryEntry::toXMLString() const {
  PIM_ENTRY("PIM::DataDirectoryEntry::toXMLString");
  if (!folder.folderId.isValid()) PIM_LOG_ERR("Invalid EntryID");
  if (name.empty()) PIM_LOG_ERR("Invalid filename");
  if (type == Unspecified) PIM_LOG_ERR("Invalid file type");
  std::u16string line = u"<dataFile";
  appendAttribute(line, u"name", name);
  appendAttribute(line, u"type", typeToStr(type));
  appendAttribute(line, u"entryId", folder.folderId.toWstring());
  line += u"/>";
  return line;
}

namespace {

bool writeAll(WritableFile& file, const std::string& bytes) {
  return file.write(bytes.data(), bytes.size()) == bytes.size();
}

}  // namespace

bool writeDataFile(const std::u16string& path, size_t count,
                   const std::function<std::u16string(size_t)>& line) {
  PIM_ENTRY("PIM::writeToFile");
  std::unique_ptr<WritableFile> file = env()->openForWriting(path);
  if (!file) {
    PIM_LOG_ERR("Could not open the output file: " << toUtf8(path));
    return false;
  }
  const std::string header = std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n") +
                             "<xmlData xmlns=\"" + kDataSchemaUrl + "\">\r\n";
  bool ok = writeAll(*file, header);
  for (size_t i = 0; ok && i < count; ++i) ok = writeAll(*file, toUtf8(line(i)) + "\r\n");
  // The closing tag is tried whatever happened; a file without it is not
  // whole, so its failure counts like any other. So does the close: most
  // files are smaller than the stream's buffer and reach the disk only there.
  ok = writeAll(*file, "</xmlData>\r\n") && ok;
  ok = file->close() && ok;
  if (!ok) {
    PIM_LOG_ERR("There was an error while writing to the output file: " << toUtf8(path));
    return false;
  }
  return true;
}

}  // namespace PIM
