#include "store/json_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace PIM::store {
namespace {

constexpr int kMaxNesting = 512;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

void appendUtf8(std::string& out, uint32_t cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

// Length of the well-formed UTF-8 sequence at p (n bytes left), or 0 with
// `bad` set to the offset of the first byte that breaks it (the ranges of
// RFC 3629: no overlong forms or surrogates).
size_t utf8Length(const unsigned char* p, size_t n, size_t& bad) {
  const unsigned char c = p[0];
  size_t len = 0;
  unsigned char lo = 0x80, hi = 0xBF;  // the second byte's range
  if (c >= 0xC2 && c <= 0xDF) {
    len = 2;
  } else if (c >= 0xE0 && c <= 0xEF) {
    len = 3;
    if (c == 0xE0) lo = 0xA0;
    if (c == 0xED) hi = 0x9F;
  } else if (c >= 0xF0 && c <= 0xF4) {
    len = 4;
    if (c == 0xF0) lo = 0x90;
    if (c == 0xF4) hi = 0x8F;
  } else {
    bad = 0;
    return 0;
  }
  for (size_t k = 1; k < len; ++k) {
    const bool ok = k < n && (k == 1 ? p[k] >= lo && p[k] <= hi : (p[k] & 0xC0) == 0x80);
    if (!ok) {
      bad = k;
      return 0;
    }
  }
  return len;
}

// Whether any of the 8 bytes in x is a control character, a quote, a
// backslash or not ASCII.
bool needsLook(uint64_t x) {
  constexpr uint64_t ones = 0x0101010101010101ull, highs = 0x8080808080808080ull;
  auto zeroByte = [&](uint64_t v) { return (v - ones) & ~v & highs; };
  const uint64_t control = (x - ones * 0x20) & ~x & highs;
  return (x & highs) || control || zeroByte(x ^ (ones * '"')) || zeroByte(x ^ (ones * '\\'));
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

// ---- JsonValue ---------------------------------------------------------------
int64_t JsonValue::int64() const {
  switch (kind_) {
    case Kind::Unsigned:
      return static_cast<int64_t>(scalar_.u);
    case Kind::Integer:
      return scalar_.i;
    case Kind::Float:
      return static_cast<int64_t>(scalar_.d);
    default:
      return 0;
  }
}

double JsonValue::number() const {
  switch (kind_) {
    case Kind::Unsigned:
      return static_cast<double>(scalar_.u);
    case Kind::Integer:
      return static_cast<double>(scalar_.i);
    case Kind::Float:
      return scalar_.d;
    default:
      return 0;
  }
}

size_t JsonValue::size() const {
  if (kind_ == Kind::Array) return elements_.size();
  if (kind_ == Kind::Object) return members_.size();
  return 0;
}

const JsonValue* JsonValue::find(std::string_view key) const {
  for (const Member& m : members_)
    if (m.key == key) return &m.value;
  return nullptr;
}

const JsonValue& JsonValue::operator[](std::string_view key) const {
  static const JsonValue null;
  const JsonValue* v = find(key);
  return v ? *v : null;
}

JsonValue JsonValue::arrayOf(JsonValue element) {
  JsonValue a;
  a.kind_ = Kind::Array;
  a.elements_.push_back(std::move(element));
  return a;
}

// ---- JsonReader ----------------------------------------------------------------
void JsonReader::syntax(size_t at, const char* context, const std::string& detail,
                        const char* expected) const {
  std::string what = std::string("syntax error while parsing ") + context + " - " + detail;
  if (expected) what += std::string("; expected ") + expected;
  throw JsonError(at + 1, what);
}

std::string JsonReader::tokenName() const {
  if (pos_ >= text_.size()) return "end of input";
  const char c = text_[pos_];
  switch (c) {
    case '{':
    case '}':
    case '[':
    case ']':
    case ',':
    case ':':
      return std::string("'") + c + "'";
    case '"':
      return "string literal";
    case 't':
    case 'f':
    case 'n': {
      for (const char* word : {"true", "false", "null"})
        if (text_.substr(pos_, std::char_traits<char>::length(word)) == word)
          return std::string(word) + " literal";
      return "";
    }
    default:
      return c == '-' || isDigit(c) ? "number literal" : "";
  }
}

// Where the token at pos_ ends (its last byte): errors point there.
size_t JsonReader::tokenEnd() const {
  const size_t n = text_.size();
  if (pos_ >= n) return n;
  const char c = text_[pos_];
  size_t at = pos_;
  if (c == '"') {
    for (++at; at < n && text_[at] != '"'; ++at)
      if (text_[at] == '\\') ++at;
    return std::min(at, n);
  }
  if (c == '-' || isDigit(c)) {
    while (at + 1 < n && (isDigit(text_[at + 1]) || text_[at + 1] == '.' || text_[at + 1] == 'e' ||
                          text_[at + 1] == 'E' || text_[at + 1] == '+' || text_[at + 1] == '-'))
      ++at;
    return at;
  }
  for (const char* word : {"true", "false", "null"}) {
    const size_t length = std::char_traits<char>::length(word);
    if (text_.substr(pos_, length) == word) return pos_ + length - 1;
  }
  return at;
}

void JsonReader::unexpected(const char* context, const char* expected) const {
  const std::string token = tokenName();
  if (token.empty()) syntax(literalEnd(), context, "invalid literal", nullptr);
  syntax(tokenEnd(), context, "unexpected " + token, expected);
}

// The first byte at pos_ that no literal continues with.
size_t JsonReader::literalEnd() const {
  size_t best = pos_;
  for (const char* word : {"true", "false", "null"}) {
    size_t k = 0;
    while (word[k] && pos_ + k < text_.size() && text_[pos_ + k] == word[k]) ++k;
    best = std::max(best, pos_ + k);
  }
  return best;
}

void JsonReader::skipSpace() {
  while (pos_ < text_.size()) {
    const char c = text_[pos_];
    if (c != ' ' && c != '\n' && c != '\r' && c != '\t') return;
    ++pos_;
  }
}

void JsonReader::literal(const char* word, size_t length) {
  if (text_.substr(pos_, length) != std::string_view(word, length))
    syntax(literalEnd(), "value", "invalid literal", nullptr);
  pos_ += length;
}

void JsonReader::string(std::string* out, const char* context) {
  const auto* p = reinterpret_cast<const unsigned char*>(text_.data());
  const size_t n = text_.size();
  ++pos_;  // the opening quote
  size_t start = pos_;
  while (true) {
    // Plain ASCII runs first, 8 bytes at a time: they are most of a
    // fixture's text.
    while (n - pos_ >= 8) {
      uint64_t x;
      std::memcpy(&x, p + pos_, 8);
      if (needsLook(x)) break;
      pos_ += 8;
    }
    while (pos_ < n && p[pos_] >= 0x20 && p[pos_] < 0x80 && p[pos_] != '"' && p[pos_] != '\\')
      ++pos_;
    if (pos_ >= n) syntax(n, context, "invalid string: missing closing quote", nullptr);
    const unsigned char c = p[pos_];
    if (c == '"') {
      if (out) out->append(text_.data() + start, pos_ - start);
      ++pos_;
      return;
    }
    if (c >= 0x80) {
      size_t bad = 0;
      const size_t len = utf8Length(p + pos_, n - pos_, bad);
      if (!len) syntax(pos_ + bad, context, "invalid string: ill-formed UTF-8 byte", nullptr);
      pos_ += len;
      continue;
    }
    if (c < 0x20) {
      char code[8];
      std::snprintf(code, sizeof code, "%04X", c);
      syntax(pos_, context,
             std::string("invalid string: control character U+") + code + " must be escaped",
             nullptr);
    }
    // A backslash escape.
    if (out) out->append(text_.data() + start, pos_ - start);
    if (++pos_ >= n) syntax(n, context, "invalid string: missing closing quote", nullptr);
    const char e = text_[pos_++];
    char plain = 0;
    switch (e) {
      case '"':
      case '\\':
      case '/':
        plain = e;
        break;
      case 'b':
        plain = '\b';
        break;
      case 'f':
        plain = '\f';
        break;
      case 'n':
        plain = '\n';
        break;
      case 'r':
        plain = '\r';
        break;
      case 't':
        plain = '\t';
        break;
      case 'u': {
        auto hex4 = [&]() {
          uint32_t v = 0;
          for (int k = 0; k < 4; ++k) {
            const int d = pos_ < n ? hexDigit(text_[pos_]) : -1;
            if (d < 0)
              syntax(pos_, context, "invalid string: '\\u' must be followed by 4 hex digits",
                     nullptr);
            v = v * 16 + static_cast<uint32_t>(d);
            ++pos_;
          }
          return v;
        };
        uint32_t cp = hex4();
        if (cp >= 0xDC00 && cp <= 0xDFFF)
          syntax(pos_ - 1, context,
                 "invalid string: surrogate U+DC00..U+DFFF must follow U+D800..U+DBFF", nullptr);
        if (cp >= 0xD800 && cp <= 0xDBFF) {
          if (n - pos_ < 2 || text_[pos_] != '\\' || text_[pos_ + 1] != 'u')
            syntax(pos_, context,
                   "invalid string: surrogate U+D800..U+DBFF must be followed by U+DC00..U+DFFF",
                   nullptr);
          pos_ += 2;
          const uint32_t low = hex4();
          if (low < 0xDC00 || low > 0xDFFF)
            syntax(pos_ - 1, context,
                   "invalid string: surrogate U+D800..U+DBFF must be followed by U+DC00..U+DFFF",
                   nullptr);
          cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        }
        if (out) appendUtf8(*out, cp);
        break;
      }
      default:
        syntax(pos_ - 1, context, "invalid string: forbidden character after backslash", nullptr);
    }
    if (plain && out) out->push_back(plain);
    start = pos_;
  }
}

void JsonReader::number(JsonValue* out) {
  const size_t n = text_.size();
  const size_t start = pos_;
  const bool negative = text_[pos_] == '-';
  if (negative) ++pos_;
  if (pos_ >= n || !isDigit(text_[pos_]))
    syntax(pos_, "value", "invalid number; expected digit after '-'", nullptr);
  if (text_[pos_] == '0') {
    ++pos_;
  } else {
    while (pos_ < n && isDigit(text_[pos_])) ++pos_;
  }
  bool isFloat = false;
  if (pos_ < n && text_[pos_] == '.') {
    isFloat = true;
    if (++pos_ >= n || !isDigit(text_[pos_]))
      syntax(pos_, "value", "invalid number; expected digit after '.'", nullptr);
    while (pos_ < n && isDigit(text_[pos_])) ++pos_;
  }
  if (pos_ < n && (text_[pos_] == 'e' || text_[pos_] == 'E')) {
    isFloat = true;
    ++pos_;
    if (pos_ < n && (text_[pos_] == '+' || text_[pos_] == '-')) ++pos_;
    if (pos_ >= n || !isDigit(text_[pos_]))
      syntax(pos_, "value", "invalid number; expected '+', '-', or digit after exponent", nullptr);
    while (pos_ < n && isDigit(text_[pos_])) ++pos_;
  }
  const std::string_view token = text_.substr(start, pos_ - start);
  if (!isFloat) {
    uint64_t magnitude = 0;
    bool overflow = false;
    for (size_t i = negative ? 1 : 0; i < token.size() && !overflow; ++i) {
      const uint64_t d = static_cast<uint64_t>(token[i] - '0');
      if (magnitude > (UINT64_MAX - d) / 10)
        overflow = true;
      else
        magnitude = magnitude * 10 + d;
    }
    if (negative && magnitude > (uint64_t{1} << 63)) overflow = true;
    if (!overflow) {
      if (out && negative) {
        out->kind_ = JsonValue::Kind::Integer;
        out->scalar_.i = static_cast<int64_t>(0 - magnitude);
      } else if (out) {
        out->kind_ = JsonValue::Kind::Unsigned;
        out->scalar_.u = magnitude;
      }
      return;
    }
    // Integers beyond 64 bits are read as doubles.
  }
  double value = 0;
  const auto result = std::from_chars(token.data(), token.data() + token.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    // Too small reads as (almost) zero; too large is an error.
    value = std::strtod(std::string(token).c_str(), nullptr);
    if (!std::isfinite(value))
      throw JsonError(0, "number overflow parsing '" + std::string(token) + "'");
  }
  if (out) {
    out->kind_ = JsonValue::Kind::Float;
    out->scalar_.d = value;
  }
}

void JsonReader::value(JsonValue& out, int depth, bool deferItems) {
  skipSpace();
  if (pos_ >= text_.size()) unexpected("value", "'[', '{', or a literal");
  switch (text_[pos_]) {
    case '{': {
      if (++depth > kMaxNesting) syntax(pos_, "value", "nested deeper than 512", nullptr);
      out.kind_ = JsonValue::Kind::Object;
      ++pos_;
      skipSpace();
      if (pos_ < text_.size() && text_[pos_] == '}') {
        ++pos_;
        return;
      }
      auto& members = out.members_;
      while (true) {
        skipSpace();
        if (pos_ >= text_.size() || text_[pos_] != '"') unexpected("object key", "string literal");
        JsonValue::Member m;
        string(&m.key, "object key");
        skipSpace();
        if (pos_ >= text_.size() || text_[pos_] != ':') unexpected("object separator", "':'");
        ++pos_;
        skipSpace();
        if (deferItems && m.key == "items" && pos_ < text_.size() && text_[pos_] == '[') {
          m.value.kind_ = JsonValue::Kind::Array;
          m.value.deferred_ = true;
          m.value.begin_ = pos_;
          skip(depth);
        } else {
          value(m.value, depth, deferItems);
        }
        members.push_back(std::move(m));
        skipSpace();
        if (pos_ < text_.size() && text_[pos_] == ',') {
          ++pos_;
          continue;
        }
        if (pos_ < text_.size() && text_[pos_] == '}') {
          ++pos_;
          break;
        }
        unexpected("object", "'}'");
      }
      // One value per key, in key order; a repeated key keeps its last value.
      bool sorted = true;
      for (size_t i = 1; i < members.size() && sorted; ++i)
        sorted = members[i - 1].key < members[i].key;
      if (!sorted) {
        // Objects are small: a stable insertion sort, then the last of each key.
        for (size_t i = 1; i < members.size(); ++i)
          for (size_t k = i; k > 0 && members[k].key < members[k - 1].key; --k)
            std::swap(members[k], members[k - 1]);
        size_t kept = 0;
        for (size_t i = 0; i < members.size(); ++i) {
          if (kept && members[kept - 1].key == members[i].key)
            members[kept - 1] = std::move(members[i]);
          else if (kept++ != i)
            members[kept - 1] = std::move(members[i]);
        }
        members.resize(kept);
      }
      return;
    }
    case '[': {
      if (++depth > kMaxNesting) syntax(pos_, "value", "nested deeper than 512", nullptr);
      out.kind_ = JsonValue::Kind::Array;
      ++pos_;
      skipSpace();
      if (pos_ < text_.size() && text_[pos_] == ']') {
        ++pos_;
        return;
      }
      while (true) {
        out.elements_.emplace_back();
        value(out.elements_.back(), depth, deferItems);
        skipSpace();
        if (pos_ < text_.size() && text_[pos_] == ',') {
          ++pos_;
          continue;
        }
        if (pos_ < text_.size() && text_[pos_] == ']') {
          ++pos_;
          return;
        }
        unexpected("array", "']'");
      }
    }
    case '"':
      out.kind_ = JsonValue::Kind::String;
      string(&out.text_, "value");
      return;
    case 't':
      literal("true", 4);
      out.kind_ = JsonValue::Kind::Boolean;
      out.scalar_.b = true;
      return;
    case 'f':
      literal("false", 5);
      out.kind_ = JsonValue::Kind::Boolean;
      out.scalar_.b = false;
      return;
    case 'n':
      literal("null", 4);
      out.kind_ = JsonValue::Kind::Null;
      return;
    default:
      if (text_[pos_] == '-' || isDigit(text_[pos_])) {
        number(&out);
        return;
      }
      unexpected("value", "'[', '{', or a literal");
  }
}

// Checks a value as value() does, building nothing.
void JsonReader::skip(int depth) {
  skipSpace();
  if (pos_ >= text_.size()) unexpected("value", "'[', '{', or a literal");
  const char c = text_[pos_];
  if (c == '{' || c == '[') {
    if (++depth > kMaxNesting) syntax(pos_, "value", "nested deeper than 512", nullptr);
    const bool object = c == '{';
    const char close = object ? '}' : ']';
    ++pos_;
    skipSpace();
    if (pos_ < text_.size() && text_[pos_] == close) {
      ++pos_;
      return;
    }
    while (true) {
      if (object) {
        skipSpace();
        if (pos_ >= text_.size() || text_[pos_] != '"') unexpected("object key", "string literal");
        string(nullptr, "object key");
        skipSpace();
        if (pos_ >= text_.size() || text_[pos_] != ':') unexpected("object separator", "':'");
        ++pos_;
      }
      skip(depth);
      skipSpace();
      if (pos_ < text_.size() && text_[pos_] == ',') {
        ++pos_;
        continue;
      }
      if (pos_ < text_.size() && text_[pos_] == close) {
        ++pos_;
        return;
      }
      unexpected(object ? "object" : "array", object ? "'}'" : "']'");
    }
  }
  switch (c) {
    case '"':
      string(nullptr, "value");
      return;
    case 't':
      literal("true", 4);
      return;
    case 'f':
      literal("false", 5);
      return;
    case 'n':
      literal("null", 4);
      return;
    default:
      if (c == '-' || isDigit(c)) {
        number(nullptr);
        return;
      }
      unexpected("value", "'[', '{', or a literal");
  }
}

JsonValue JsonReader::document(bool deferItems) {
  pos_ = 0;
  if (text_.substr(0, 3) == "\xEF\xBB\xBF") pos_ = 3;
  JsonValue doc;
  value(doc, 0, deferItems);
  skipSpace();
  if (pos_ < text_.size()) unexpected("value", "end of input");
  return doc;
}

void JsonReader::startArray(size_t begin) {
  pos_ = begin + 1;  // past the '[' the first pass saw
  firstElement_ = true;
}

bool JsonReader::next(JsonValue& out) {
  out = JsonValue();
  skipSpace();
  if (pos_ < text_.size() && text_[pos_] == ']') {
    ++pos_;
    return false;
  }
  if (!firstElement_) ++pos_;  // the ',' the first pass checked
  firstElement_ = false;
  value(out, 0, false);
  return true;
}

}  // namespace PIM::store
