// The data files: one per captured folder plus the index "DataDirectory.xml".
// Every file is UTF-8 without a byte-order mark, with CR LF line ends: an
// XML declaration, the <xmlData> element, one record per line, and the
// closing tag. The reader finds folder files only through the index.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "data/record.h"
#include "mapi/entry_id.h"

namespace PIM {

// The namespace of every data file; the schema is published under the same
// path in the repository (XMLDataSchema.xsd).
inline constexpr char kDataSchemaUrl[] = "http://schemas.ferrant.example/XMLDataSchema.xsd";
inline constexpr char16_t kDataDirectoryName[] = u"DataDirectory.xml";
// The next index, written whole beside the old one before it takes its
// place. Not an ".xml" name, so no reader or clean-up takes it for data.
inline constexpr char16_t kDataDirectoryNewName[] = u"DataDirectory.xml.new";
// Folder files are named prefix + hex tick count + extension.
inline constexpr char16_t kDataFilePrefix[] = u"CVTK";
inline constexpr char16_t kDataFileExtension[] = u".XML";

// One line of the index.
class DataDirectoryEntry {
 public:
  // The index's own numbering, distinct from the capture's folder types.
  enum Type : int32_t { Unspecified = 0, Calendar = 1, Contacts = 2, Email = 3, Tasks = 4 };

  std::u16string name;  // the bare file name
  int32_t type = Unspecified;
  OutlookFolder folder;  // only the folder's own identifier is written

  static std::u16string typeToStr(int32_t type);
  // <dataFile name="…" type="…" entryId="…"/>; a missing identifier, name or
  // type is logged and written as it is.
  void writeXML(XmlOut& out) const;
  std::u16string toXMLString() const;
};

// Writes the envelope around `count` records, record(i, out) writing each
// one's element. The file fills in large writes from one reused buffer; a
// record's line ends at its first NUL, as a converted C string would. False,
// with a log line, when the file cannot be opened or any byte does not reach
// it (a short write, the closing tag, the final flush or close); records
// after a short write are not written, the closing tag is still tried and
// the partial file stays.
bool writeDataFile(const std::u16string& path, size_t count,
                   const std::function<void(size_t, XmlOut&)>& record);

// Any record type with writeXML(XmlOut&), or else toXMLString().
template <class Record>
bool writeToFile(const std::u16string& path, const std::vector<Record>& records) {
  return writeDataFile(path, records.size(), [&](size_t i, XmlOut& out) {
    if constexpr (requires { records[i].writeXML(out); }) {
      records[i].writeXML(out);
    } else {
      out << records[i].toXMLString();
    }
  });
}

}  // namespace PIM
