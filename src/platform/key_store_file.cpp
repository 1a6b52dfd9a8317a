#include "platform/key_store_file.h"

#include <algorithm>

#include "platform/key_store.h"
#include "platform/utf.h"

namespace PIM::keyfile {

namespace {

using utf::appendUtf8;
using utf::isHighSurrogate;
using utf::isLowSurrogate;

constexpr std::string_view kMagic = "ferrant-keystore";
// The last line of a file of format 2 or later: a file without it was cut
// short. (Format 1 had none, so such a file ends where it ends.)
constexpr std::string_view kClosingLine = "; end of settings";
constexpr int kFirstClosedFormat = 2;
constexpr size_t kBytesPerLine = 25;

char16_t foldAscii(char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c + 32) : c; }

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void appendHex(std::string& out, uint32_t value, int digits) {
  static const char kDigits[] = "0123456789abcdef";
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) out += kDigits[(value >> shift) & 0xF];
}

// One scalar value in its shortest well-formed UTF-8 form; anything else is
// damage (a hand edit in another encoding, or a torn file).
bool decodeUtf8(std::string_view text, size_t& pos, uint32_t& c) {
  auto b0 = uint8_t(text[pos]);
  if (b0 < 0x80) {
    c = b0;
    ++pos;
    return true;
  }
  size_t length;
  uint32_t minimum;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    length = 2, minimum = 0x80, c = b0 & 0x1F;
  } else if (b0 >= 0xE0 && b0 <= 0xEF) {
    length = 3, minimum = 0x800, c = b0 & 0x0F;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    length = 4, minimum = 0x10000, c = b0 & 0x07;
  } else {
    return false;
  }
  if (text.size() - pos < length) return false;
  for (size_t k = 1; k < length; ++k) {
    auto b = uint8_t(text[pos + k]);
    if ((b & 0xC0) != 0x80) return false;
    c = (c << 6) | (b & 0x3F);
  }
  if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return false;
  pos += length;
  return true;
}

std::string utf8Name(const std::u16string& name) {
  std::string out;
  for (size_t i = 0; i < name.size(); ++i) {
    uint32_t u = name[i];
    if (isHighSurrogate(u) && i + 1 < name.size() && isLowSurrogate(name[i + 1])) {
      u = 0x10000 + ((u - 0xD800) << 10) + (name[++i] - 0xDC00);
    }
    appendUtf8(out, u);
  }
  return out;
}

void appendQuoted(std::string& out, const std::u16string& text) {
  out += '"';
  for (size_t i = 0; i < text.size(); ++i) {
    uint32_t u = text[i];
    if (isHighSurrogate(u) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
      appendUtf8(out, 0x10000 + ((u - 0xD800) << 10) + (text[++i] - 0xDC00));
    } else if (u == u'\\' || u == u'"') {
      out += '\\';
      out += char(u);
    } else if (u < 0x20 || u == 0x7F || (u >= 0xD800 && u <= 0xDFFF)) {
      out += "\\u";
      appendHex(out, u, 4);
    } else {
      appendUtf8(out, u);
    }
  }
  out += '"';
}

void appendHexList(std::string& out, const std::string& data) {
  for (size_t i = 0; i < data.size(); ++i) {
    if (i > 0) out += i % kBytesPerLine == 0 ? ",\\\n  " : ",";
    appendHex(out, uint8_t(data[i]), 2);
  }
}

// A text value the sz: form holds: whole UTF-16 units ending in one NUL.
bool isPlainText(const std::string& data) {
  return data.size() >= 2 && data.size() % 2 == 0 && data[data.size() - 2] == 0 &&
         data[data.size() - 1] == 0;
}

void appendValue(std::string& out, const KeyValue& value) {
  appendQuoted(out, value.name);
  out += '=';
  auto byteAt = [&](size_t i) { return uint32_t(uint8_t(value.data[i])); };
  if (value.type == uint32_t(ValueType::Dword) && value.data.size() == 4) {
    out += "dword:";
    appendHex(out, byteAt(0) | byteAt(1) << 8 | byteAt(2) << 16 | byteAt(3) << 24, 8);
  } else if (value.type == uint32_t(ValueType::String) && isPlainText(value.data)) {
    std::u16string text;
    for (size_t i = 0; i + 2 < value.data.size(); i += 2) {
      text += char16_t(byteAt(i) | byteAt(i + 1) << 8);
    }
    out += "sz:";
    appendQuoted(out, text);
  } else {
    if (value.type == uint32_t(ValueType::Binary)) {
      out += "hex:";
    } else {
      out += "hex(";
      std::string digits;
      appendHex(digits, value.type, 8);
      size_t first = std::min(digits.find_first_not_of('0'), size_t(7));
      out += digits.substr(first);
      out += "):";
    }
    appendHexList(out, value.data);
  }
  out += '\n';
}

void appendKey(std::string& out, const KeyNode& key, const std::string& parentPath) {
  std::string path =
      parentPath.empty() ? utf8Name(key.name()) : parentPath + '\\' + utf8Name(key.name());
  out += "\n[";
  out += path;
  out += "]\n";
  for (const auto& value : key.values()) appendValue(out, value);
  for (size_t i = 0; i < key.subkeyCount(); ++i) appendKey(out, key.subkey(i), path);
}

// ---------------------------------------------------------------------------
// Reading

std::string_view trim(std::string_view line) {
  size_t begin = line.find_first_not_of(" \t\r");
  if (begin == std::string_view::npos) return {};
  size_t end = line.find_last_not_of(" \t\r");
  return line.substr(begin, end - begin + 1);
}

// The text's lines, without their line ends.
class Lines {
 public:
  explicit Lines(std::string_view text) : text_(text) {}
  bool atEnd() const { return pos_ > text_.size(); }
  size_t number() const { return number_; }  // of the line last taken
  std::string_view take() {
    size_t end = text_.find('\n', pos_);
    if (end == std::string_view::npos) end = text_.size();
    std::string_view line = text_.substr(pos_, end - pos_);
    pos_ = end + 1;
    ++number_;
    return trim(line);
  }

 private:
  std::string_view text_;
  size_t pos_ = 0;
  size_t number_ = 0;
};

bool fail(std::string& error, const char* reason) {
  error = reason;
  return false;
}

// Reads one item of a line; every read checks what is left first.
class Cursor {
 public:
  explicit Cursor(std::string_view line) : line_(line) {}
  bool atEnd() const { return pos_ >= line_.size(); }
  char peek() const { return atEnd() ? '\0' : line_[pos_]; }
  bool eat(char c) {
    if (peek() != c || atEnd()) return false;
    ++pos_;
    return true;
  }
  bool eat(std::string_view word) {
    if (line_.substr(pos_).substr(0, word.size()) != word) return false;
    pos_ += word.size();
    return true;
  }
  void skipBlanks() {
    while (!atEnd() && (line_[pos_] == ' ' || line_[pos_] == '\t')) ++pos_;
  }
  // `digits` hexadecimal digits at most (and at least one); -1 when none.
  int64_t hexNumber(size_t minDigits, size_t maxDigits) {
    uint64_t value = 0;
    size_t count = 0;
    while (count < maxDigits && !atEnd() && hexDigit(line_[pos_]) >= 0) {
      value = value << 4 | uint64_t(hexDigit(line_[pos_++]));
      ++count;
    }
    return count >= minDigits ? int64_t(value) : -1;
  }
  // A double-quoted text with its escapes; false with `error` set if bad.
  bool quoted(std::u16string& out, std::string& error) {
    if (!eat('"')) return fail(error, "expected a double quote");
    for (;;) {
      if (atEnd()) return fail(error, "a text has no closing double quote");
      char c = line_[pos_];
      if (c == '"') {
        ++pos_;
        return true;
      }
      if (c == '\\') {
        ++pos_;
        if (eat('\\')) {
          out += u'\\';
        } else if (eat('"')) {
          out += u'"';
        } else if (eat('u')) {
          int64_t unit = hexNumber(4, 4);
          if (unit < 0) return fail(error, "\\u needs four hexadecimal digits");
          out += char16_t(unit);
        } else {
          return fail(error, "unknown escape in a text");
        }
        continue;
      }
      uint32_t scalar;
      if (!decodeUtf8(line_, pos_, scalar)) return fail(error, "text is not UTF-8");
      utf::appendUtf16(out, scalar);
    }
  }

 private:
  std::string_view line_;
  size_t pos_ = 0;
};

// Bytes as "01,02,...", going on in the next line after ",\".
bool readHexList(Cursor& cursor, Lines& lines, std::string& out, std::string& error) {
  cursor.skipBlanks();
  if (cursor.atEnd()) return true;
  for (;;) {
    int64_t byte = cursor.hexNumber(2, 2);
    if (byte < 0) return fail(error, "expected two hexadecimal digits");
    out += char(byte);
    cursor.skipBlanks();
    if (cursor.atEnd()) return true;
    if (!cursor.eat(',')) return fail(error, "expected a comma between bytes");
    cursor.skipBlanks();
    if (cursor.eat('\\')) {
      cursor.skipBlanks();
      if (!cursor.atEnd()) return fail(error, "text after a line continuation");
      if (lines.atEnd()) return fail(error, "the file ends inside a value");
      cursor = Cursor(lines.take());
    }
  }
}

bool readValue(std::string_view line, Lines& lines, KeyValue& value, std::string& error) {
  Cursor cursor(line);
  if (!cursor.quoted(value.name, error)) return false;
  if (value.name.size() > kMaxValueNameUnits) return fail(error, "value name too long");
  cursor.skipBlanks();
  if (!cursor.eat('=')) return fail(error, "expected = after the value name");
  cursor.skipBlanks();
  if (cursor.eat("dword:")) {
    int64_t number = cursor.hexNumber(8, 8);
    if (number < 0) return fail(error, "dword: needs eight hexadecimal digits");
    value.type = uint32_t(ValueType::Dword);
    for (int shift = 0; shift < 32; shift += 8) value.data += char(uint64_t(number) >> shift);
  } else if (cursor.eat("sz:")) {
    std::u16string text;
    if (!cursor.quoted(text, error)) return false;
    value.type = uint32_t(ValueType::String);
    for (char16_t unit : text) {
      value.data += char(unit & 0xFF);
      value.data += char(unit >> 8);
    }
    value.data.append(2, '\0');
  } else if (cursor.eat("hex:")) {
    value.type = uint32_t(ValueType::Binary);
    if (!readHexList(cursor, lines, value.data, error)) return false;
    return true;
  } else if (cursor.eat("hex(")) {
    int64_t type = cursor.hexNumber(1, 8);
    if (type < 0 || !cursor.eat("):")) return fail(error, "hex( needs a type number and ):");
    value.type = uint32_t(type);
    return readHexList(cursor, lines, value.data, error);
  } else {
    return fail(error, "unknown value type");
  }
  cursor.skipBlanks();
  if (!cursor.atEnd()) return fail(error, "text after the value");
  return true;
}

bool readKeyPath(std::string_view line, std::vector<std::u16string>& path, std::string& error) {
  if (line.size() < 2 || line.back() != ']') return fail(error, "a key line must end in ]");
  std::string_view inner = line.substr(1, line.size() - 2);
  size_t pos = 0;
  std::u16string name;
  for (;;) {
    if (pos == inner.size() || inner[pos] == '\\') {
      if (!isValidKeyName(name)) return fail(error, "invalid key name");
      path.push_back(std::move(name));
      name.clear();
      if (path.size() > kMaxKeyDepth) return fail(error, "keys nested too deep");
      if (pos == inner.size()) return true;
      ++pos;
      continue;
    }
    uint32_t scalar;
    if (!decodeUtf8(inner, pos, scalar)) return fail(error, "key name is not UTF-8");
    utf::appendUtf16(name, scalar);
  }
}

// The version in a first line "ferrant-keystore <n>", or -1.
int readVersion(std::string_view line) {
  Cursor cursor(line);
  if (!cursor.eat(kMagic)) return -1;
  if (cursor.peek() != ' ' && cursor.peek() != '\t') return -1;
  cursor.skipBlanks();
  int version = 0;
  size_t digits = 0;
  for (; !cursor.atEnd() && cursor.peek() >= '0' && cursor.peek() <= '9'; ++digits) {
    if (digits == 9) return -1;
    version = version * 10 + (cursor.peek() - '0');
    cursor.eat(cursor.peek());
  }
  return digits > 0 && cursor.atEnd() && version > 0 ? version : -1;
}

}  // namespace

bool sameName(const std::u16string& a, const std::u16string& b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(),
                    [](char16_t x, char16_t y) { return foldAscii(x) == foldAscii(y); });
}

bool isValidKeyName(const std::u16string& name) {
  if (name.empty() || name.size() > kMaxKeyNameUnits) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    char16_t u = name[i];
    if (u == u'\\' || u < 0x20 || u == 0x7F) return false;
    if (isHighSurrogate(u) && i + 1 < name.size() && isLowSurrogate(name[i + 1])) {
      ++i;
    } else if (isHighSurrogate(u) || isLowSurrogate(u)) {
      return false;
    }
  }
  return true;
}

KeyNode* KeyNode::findSubkey(const std::u16string& name) {
  for (auto& key : subkeys_) {
    if (sameName(key->name_, name)) return key.get();
  }
  return nullptr;
}

const KeyNode* KeyNode::findSubkey(const std::u16string& name) const {
  return const_cast<KeyNode*>(this)->findSubkey(name);
}

KeyNode& KeyNode::addSubkey(const std::u16string& name) {
  if (KeyNode* existing = findSubkey(name)) return *existing;
  subkeys_.push_back(std::make_unique<KeyNode>(name));
  return *subkeys_.back();
}

bool KeyNode::removeSubkey(const std::u16string& name) {
  auto it = std::find_if(subkeys_.begin(), subkeys_.end(),
                         [&](const auto& key) { return sameName(key->name_, name); });
  if (it == subkeys_.end()) return false;
  subkeys_.erase(it);
  return true;
}

const KeyValue* KeyNode::findValue(const std::u16string& name) const {
  for (const auto& value : values_) {
    if (sameName(value.name, name)) return &value;
  }
  return nullptr;
}

bool KeyNode::setValue(const std::u16string& name, uint32_t type, std::string data) {
  for (auto& value : values_) {
    if (!sameName(value.name, name)) continue;
    if (value.type == type && value.data == data) return false;
    value.type = type;
    value.data = std::move(data);
    return true;
  }
  values_.push_back(KeyValue{name, type, std::move(data)});
  return true;
}

void KeyNode::clear() {
  values_.clear();
  subkeys_.clear();
}

bool KeyNode::operator==(const KeyNode& other) const {
  if (name_ != other.name_ || values_ != other.values_ || subkeys_.size() != other.subkeys_.size())
    return false;
  for (size_t i = 0; i < subkeys_.size(); ++i) {
    if (!(*subkeys_[i] == *other.subkeys_[i])) return false;
  }
  return true;
}

KeyNode* findPath(KeyNode& root, const std::vector<std::u16string>& path) {
  KeyNode* key = &root;
  for (const auto& name : path) {
    key = key->findSubkey(name);
    if (!key) return nullptr;
  }
  return key;
}

const KeyNode* findPath(const KeyNode& root, const std::vector<std::u16string>& path) {
  return findPath(const_cast<KeyNode&>(root), path);
}

ParsedStore parseStoreText(std::string_view text) {
  ParsedStore result;
  if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) return result;
  // Editors on some systems put a byte-order mark in front.
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);

  Lines lines(text);
  auto problem = [&](size_t line, std::string reason) {
    result.problems.push_back(ParseProblem{line, std::move(reason)});
  };

  Lines peek = lines;
  std::string_view first = peek.take();
  if (first.substr(0, kMagic.size()) == kMagic) {
    lines.take();
    result.version = readVersion(first);
    if (result.version > kFormatVersion) {
      result.newerFormat = true;
      return result;
    }
    if (result.version < 0) {
      result.version = 0;
      problem(1,
              "the first line is not \"ferrant-keystore " + std::to_string(kFormatVersion) + "\"");
    }
  } else {
    problem(1, "the file does not start with \"ferrant-keystore " + std::to_string(kFormatVersion) +
                   "\"");
  }

  KeyNode* current = &result.root;
  std::string_view last;
  size_t lastNumber = 1;
  while (!lines.atEnd()) {
    std::string_view line = lines.take();
    size_t number = lines.number();
    if (!line.empty()) {
      last = line;
      lastNumber = number;
    }
    if (line.empty() || line[0] == ';') continue;
    std::string error;
    if (line[0] == '[') {
      std::vector<std::u16string> path;
      if (!readKeyPath(line, path, error)) {
        problem(number, error + "; the values below it were skipped");
        current = nullptr;
        continue;
      }
      current = &result.root;
      for (const auto& name : path) current = &current->addSubkey(name);
    } else if (line[0] == '"') {
      KeyValue value;
      if (!readValue(line, lines, value, error)) {
        problem(number, error);
      } else if (current) {
        if (current->findValue(value.name)) {
          problem(number, "a value given twice; the later one was kept");
        }
        current->setValue(value.name, value.type, std::move(value.data));
      }
    } else {
      problem(number, "not a key, a value or a comment");
    }
  }
  if (result.version >= kFirstClosedFormat && last != kClosingLine) {
    problem(lastNumber + 1, "the file ends before its closing line: it was cut short");
  }
  return result;
}

std::string storeText(const KeyNode& root) {
  std::string out;
  out += kMagic;
  out += ' ';
  out += std::to_string(kFormatVersion);
  out +=
      "\n"
      "; Settings of the Ferrant programs for this user. [a\\b] starts the key a\\b;\n"
      "; its values follow, one a line: \"name\"=dword:0000000f, \"name\"=hex:01,02,\n"
      "; \"name\"=sz:\"text\" or \"name\"=hex(<type>):01,02. The last line closes\n"
      "; the file: a file without it was cut short.\n";
  for (const auto& value : root.values()) appendValue(out, value);
  for (size_t i = 0; i < root.subkeyCount(); ++i) appendKey(out, root.subkey(i), {});
  out += "\n";
  out += kClosingLine;
  out += "\n";
  return out;
}

}  // namespace PIM::keyfile
