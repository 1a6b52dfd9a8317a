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

std::u16string DataDirectoryEntry::toXMLString() const { return xmlString(*this); }

void DataDirectoryEntry::writeXML(XmlOut& out) const {
  PIM_ENTRY("PIM::DataDirectoryEntry::toXMLString");
  if (!folder.folderId.isValid()) PIM_LOG_ERR("Invalid EntryID");
  if (name.empty()) PIM_LOG_ERR("Invalid filename");
  if (type == Unspecified) PIM_LOG_ERR("Invalid file type");
  out << u"<dataFile";
  out.attribute(u"name", name);
  out.attribute(u"type", typeToStr(type));
  out.attribute(u"entryId", folder.folderId.toWstring());
  out << u"/>";
}

namespace {

// Large enough that writes cost little per record, small enough to stay in
// the cache.
constexpr size_t kWriteChunk = 256 * 1024;

bool writeAll(WritableFile& file, std::string_view bytes) {
  return file.write(bytes.data(), bytes.size()) == bytes.size();
}

}  // namespace

bool writeDataFile(const std::u16string& path, size_t count,
                   const std::function<void(size_t, XmlOut&)>& record) {
  PIM_ENTRY("PIM::writeToFile");
  std::unique_ptr<WritableFile> file = env()->openForWriting(path);
  if (!file) {
    PIM_LOG_ERR("Could not open the output file: " << toUtf8(path));
    return false;
  }
  std::string buffer;
  buffer.reserve(kWriteChunk + kWriteChunk / 4);
  buffer = std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n") + "<xmlData xmlns=\"" +
           kDataSchemaUrl + "\">\r\n";
  XmlOut out(buffer);
  bool ok = true;
  for (size_t i = 0; ok && i < count; ++i) {
    const size_t start = buffer.size();
    record(i, out);
    const size_t nul = buffer.find('\0', start);
    if (nul != std::string::npos) buffer.resize(nul);
    buffer += "\r\n";
    if (buffer.size() >= kWriteChunk) {
      ok = writeAll(*file, buffer);
      buffer.clear();
    }
  }
  // The closing tag is tried whatever happened; a file without it is not
  // whole, so its failure counts like any other. So does the close: most
  // files are smaller than the stream's buffer and reach the disk only there.
  if (ok) {
    buffer += "</xmlData>\r\n";
    ok = writeAll(*file, buffer);
  } else {
    writeAll(*file, "</xmlData>\r\n");
  }
  ok = file->close() && ok;
  if (!ok) {
    PIM_LOG_ERR("There was an error while writing to the output file: " << toUtf8(path));
    return false;
  }
  return true;
}

}  // namespace PIM
