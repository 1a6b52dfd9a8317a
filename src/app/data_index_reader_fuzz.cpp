// Any bytes are read without a crash, and an index the reader accepts is
// exactly what the writer makes of the entries it read.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "app/data_index_reader.h"
#include "core/utils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace PIM;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::vector<DataDirectoryEntry> entries;
  std::string error;
  if (!parseDataDirectory(bytes, entries, error)) {
    if (error.empty() || !entries.empty()) std::abort();
    return 0;
  }
  std::string written = std::string("<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n") +
                        "<xmlData xmlns=\"" + kDataSchemaUrl + "\">\r\n";
  for (const DataDirectoryEntry& entry : entries) written += toUtf8(entry.toXMLString()) + "\r\n";
  written += "</xmlData>\r\n";
  if (written != bytes) std::abort();
  return 0;
}
