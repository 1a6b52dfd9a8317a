// A strict JSON reader for fixture files: it reads one value at a time from
// the file's bytes, so a large mailbox is never held as one tree. Values are
// small trees (JsonValue); the "items" arrays of folders can be left in the
// text (checked, not built) and read element by element later.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace PIM::store {

// A malformed document. `byte` is 1 + the offset of the offending byte
// (0: the message names no place).
struct JsonError : std::runtime_error {
  JsonError(size_t byte, const std::string& what) : std::runtime_error(what), byte(byte) {}
  size_t byte;
};

class JsonValue {
 public:
  enum class Kind : uint8_t { Null, Object, Array, String, Boolean, Unsigned, Integer, Float };
  struct Member;

  Kind kind() const { return kind_; }
  bool isObject() const { return kind_ == Kind::Object; }
  bool isArray() const { return kind_ == Kind::Array; }
  bool isString() const { return kind_ == Kind::String; }
  bool isBoolean() const { return kind_ == Kind::Boolean; }
  // Integers: Unsigned (not negative) and Integer (negative).
  bool isInteger() const { return kind_ == Kind::Unsigned || kind_ == Kind::Integer; }
  bool isUnsigned() const { return kind_ == Kind::Unsigned; }
  bool isNumber() const { return isInteger() || kind_ == Kind::Float; }

  const std::string& str() const { return text_; }
  bool boolean() const { return scalar_.b; }
  int64_t int64() const;
  uint64_t uint64() const { return scalar_.u; }
  double number() const;

  // Elements of an array, members of an object (sorted by key, one per key:
  // a repeated key keeps its last value).
  size_t size() const;
  bool empty() const { return size() == 0; }
  const JsonValue& operator[](size_t index) const { return elements_[index]; }
  const std::vector<Member>& members() const { return members_; }
  const JsonValue* find(std::string_view key) const;
  bool contains(std::string_view key) const { return find(key) != nullptr; }
  // The member, or null when absent.
  const JsonValue& operator[](std::string_view key) const;

  // An array left in the text: its bytes are [begin, end) of the document.
  bool deferred() const { return deferred_; }
  size_t begin() const { return begin_; }

  static JsonValue arrayOf(JsonValue element);

 private:
  friend class JsonReader;
  Kind kind_ = Kind::Null;
  bool deferred_ = false;
  union {
    bool b;
    int64_t i;
    uint64_t u;
    double d;
  } scalar_{};
  std::string text_;
  std::vector<JsonValue> elements_;
  std::vector<Member> members_;
  size_t begin_ = 0;
};

struct JsonValue::Member {
  std::string key;
  JsonValue value;
};

class JsonReader {
 public:
  // `text` must outlive the reader.
  explicit JsonReader(std::string_view text) : text_(text) {}

  // The whole document. With `deferItems`, arrays that are the value of an
  // "items" member are checked and left in the text.
  JsonValue document(bool deferItems);

  // Reads the elements of the deferred array starting at byte `begin`, one
  // at a time: start, then next() until it returns false.
  void startArray(size_t begin);
  bool next(JsonValue& out);
  // The byte after the last element read.
  size_t position() const { return pos_; }

 private:
  [[noreturn]] void syntax(size_t at, const char* context, const std::string& detail,
                           const char* expected) const;
  [[noreturn]] void unexpected(const char* context, const char* expected) const;
  void skipSpace();
  void value(JsonValue& out, int depth, bool deferItems);
  void skip(int depth);
  // Reads a string at pos_ (the opening quote); appends its text to `out`
  // when given.
  void string(std::string* out, const char* context);
  void number(JsonValue* out);
  void literal(const char* word, size_t length);
  std::string tokenName() const;
  size_t tokenEnd() const;
  size_t literalEnd() const;

  std::string_view text_;
  size_t pos_ = 0;
  bool firstElement_ = true;
};

}  // namespace PIM::store
