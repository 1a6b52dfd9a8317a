#include "app/data_index_reader.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "core/utils.h"

namespace PIM {

namespace {

constexpr std::string_view kLineEnd = "\r\n";

// Walks the bytes front to back; every read checks what is left first.
class Cursor {
 public:
  explicit Cursor(std::string_view bytes) : rest_(bytes) {}
  bool atEnd() const { return rest_.empty(); }
  bool startsWith(std::string_view text) const { return rest_.substr(0, text.size()) == text; }
  // Takes `text` if the bytes continue with it.
  bool take(std::string_view text) {
    if (!startsWith(text)) return false;
    rest_.remove_prefix(text.size());
    return true;
  }
  // Takes the bytes up to the next double quote, and the quote.
  bool takeQuoted(std::string_view& value) {
    const size_t end = rest_.find('"');
    if (end == std::string_view::npos) return false;
    value = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    return true;
  }

 private:
  std::string_view rest_;
};

// escapeXML undone: the five entities it writes, nothing else; none of
// the characters it replaces ever stands bare in its output.
bool unescape(std::string_view text, std::string& out) {
  static constexpr std::pair<std::string_view, char> kEntities[] = {
      {"&quot;", '"'}, {"&amp;", '&'}, {"&apos;", '\''}, {"&lt;", '<'}, {"&gt;", '>'}};
  out.clear();
  size_t at = 0;
  while (at < text.size()) {
    const char c = text[at];
    if (c == '<' || c == '>' || c == '\'') return false;
    if (c != '&') {
      out += c;
      ++at;
      continue;
    }
    bool known = false;
    for (const auto& [entity, character] : kEntities) {
      if (text.substr(at, entity.size()) == entity) {
        out += character;
        at += entity.size();
        known = true;
        break;
      }
    }
    if (!known) return false;
  }
  return true;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// EntryId::toWstring's form: two lower-case digits a byte, at least one.
bool parseEntryId(std::string_view text, EntryId& id) {
  if (text.empty() || text.size() % 2 != 0) return false;
  std::vector<uint8_t> bytes;
  bytes.reserve(text.size() / 2);
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = hexDigit(text[i]);
    const int low = hexDigit(text[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes.push_back(static_cast<uint8_t>(high << 4 | low));
  }
  id = EntryId(std::move(bytes));
  return true;
}

// The folder types an index line can carry; "unspecified" and "invalid"
// are written only by mistake and name no folder.
bool parseType(std::string_view text, int32_t& type) {
  for (int32_t candidate : {DataDirectoryEntry::Calendar, DataDirectoryEntry::Contacts,
                            DataDirectoryEntry::Email, DataDirectoryEntry::Tasks}) {
    if (toUtf8(DataDirectoryEntry::typeToStr(candidate)) == text) {
      type = candidate;
      return true;
    }
  }
  return false;
}

// A file directly in the data folder: no separator of either system, no
// way up, well-formed UTF-8 with no control characters.
bool parseName(const std::string& text, std::u16string& name) {
  if (text.empty() || text == "." || text == "..") return false;
  for (unsigned char c : text) {
    if (c < 0x20 || c == '/' || c == '\\' || c == ':') return false;
  }
  name = fromUtf8(text);
  return toUtf8(name) == text;
}

// One line after "<dataFile", up to and without its line end.
const char* parseEntry(Cursor& cursor, DataDirectoryEntry& entry) {
  std::string_view raw;
  std::string text;
  if (!cursor.take(" name=\"") || !cursor.takeQuoted(raw)) return "no name";
  if (!unescape(raw, text) || !parseName(text, entry.name)) return "not a file name";
  if (!cursor.take(" type=\"") || !cursor.takeQuoted(raw)) return "no type";
  if (!parseType(raw, entry.type)) return "unknown type";
  if (!cursor.take(" entryId=\"") || !cursor.takeQuoted(raw)) return "no entry id";
  if (!parseEntryId(raw, entry.folder.folderId)) return "entry id not hexadecimal";
  if (!cursor.take("/>")) return "more than a dataFile element";
  return nullptr;
}

}  // namespace

bool parseDataDirectory(std::string_view bytes, std::vector<DataDirectoryEntry>& entries,
                        std::string& error) {
  entries.clear();
  const std::string declaration = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n";
  const std::string root = std::string("<xmlData xmlns=\"") + kDataSchemaUrl + "\">\r\n";
  Cursor cursor(bytes);
  if (!cursor.take(declaration)) {
    error = "line 1: not the XML declaration of a data file";
    return false;
  }
  if (!cursor.take(root)) {
    error = "line 2: not the xmlData element of a data file";
    return false;
  }
  for (size_t line = 3;; ++line) {
    if (cursor.take("</xmlData>\r\n")) {
      if (cursor.atEnd()) return true;
      error = "line " + std::to_string(line + 1) + ": text after the closing tag";
      break;
    }
    DataDirectoryEntry entry;
    const char* problem = cursor.take("<dataFile") ? parseEntry(cursor, entry) : "not a dataFile";
    if (!problem && !cursor.take(kLineEnd)) problem = "no line end after the element";
    if (problem) {
      error = "line " + std::to_string(line) + ": " + problem;
      break;
    }
    entries.push_back(std::move(entry));
  }
  entries.clear();
  return false;
}

bool readSmallFile(const std::u16string& path, size_t maxBytes, const char* kind,
                   std::string& bytes, bool& found, std::string& error) {
  bytes.clear();
  const std::filesystem::path file(path);
  std::error_code code;
  found = std::filesystem::exists(file, code);
  if (!found) return true;
  const auto size = std::filesystem::file_size(file, code);
  if (code) {
    error = "cannot be read: " + code.message();
    return false;
  }
  if (size > maxBytes) {
    error = std::string("too large for ") + kind + " (" + std::to_string(size) + " bytes)";
    return false;
  }
  std::ifstream in(file, std::ios::binary);
  bytes.assign(static_cast<size_t>(size), '\0');
  if (!in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
    error = "cannot be read";
    return false;
  }
  return true;
}

bool readDataDirectory(const std::u16string& folder, std::vector<DataDirectoryEntry>& entries,
                       std::string& error) {
  entries.clear();
  std::string bytes;
  bool found = false;
  if (!readSmallFile(folder + kPathSeparator + kDataDirectoryName, kMaxDataDirectoryBytes,
                     "an index", bytes, found, error))
    return false;
  return !found || parseDataDirectory(bytes, entries, error);
}

}  // namespace PIM
