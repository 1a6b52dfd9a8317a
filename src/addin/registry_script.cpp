#include "addin/registry_script.h"

#include <array>

#include "core/utils.h"

namespace PIM {

namespace {

struct RootName {
  const char16_t* name;
  RegistryRoot root;
};
constexpr std::array<RootName, 6> kRootNames{{
    {u"HKCR", RegistryRoot::ClassesRoot},
    {u"HKCU", RegistryRoot::CurrentUser},
    {u"HKLM", RegistryRoot::LocalMachine},
    {u"HKEY_CLASSES_ROOT", RegistryRoot::ClassesRoot},
    {u"HKEY_CURRENT_USER", RegistryRoot::CurrentUser},
    {u"HKEY_LOCAL_MACHINE", RegistryRoot::LocalMachine},
}};

char16_t asciiLower(char16_t c) { return c >= u'A' && c <= u'Z' ? char16_t(c - u'A' + u'a') : c; }

bool sameIgnoringCase(std::u16string_view a, std::u16string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  return true;
}

bool isBlank(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == u'\v' || c == u'\f';
}

bool isNameChar(char16_t c) {
  return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || (c >= u'0' && c <= u'9') ||
         c == u'_';
}

// Text of the script for an error message, cut short.
std::string quote(std::u16string_view text) {
  constexpr size_t kShown = 40;
  std::string shown = toUtf8(std::u16string(text.substr(0, kShown)));
  if (text.size() > kShown) shown += "...";
  return "'" + shown + "'";
}

struct Token {
  enum Kind { End, Open, Close, Equals, Word, Quoted };
  Kind kind = End;
  std::u16string text;  // Word and Quoted, with substitutions made
  int line = 1;
};

// Thrown inside the parser only, caught by parseRegistryScript.
struct ParseFault {
  int line;
  std::string message;
};

class Lexer {
 public:
  Lexer(std::u16string_view text, const ScriptSubstitutions& substitutions)
      : text_(text), substitutions_(substitutions) {}

  const Token& peek() {
    if (!peeked_) {
      next_ = read();
      peeked_ = true;
    }
    return next_;
  }

  Token take() {
    peek();
    peeked_ = false;
    return std::move(next_);
  }

 private:
  Token read() {
    while (pos_ < text_.size() && isBlank(text_[pos_])) {
      if (text_[pos_] == u'\n') ++line_;
      ++pos_;
    }
    Token token;
    token.line = line_;
    if (pos_ == text_.size()) return token;
    const char16_t c = text_[pos_];
    if (c == u'}' || c == u'=') {
      ++pos_;
      token.kind = c == u'}' ? Token::Close : Token::Equals;
      return token;
    }
    if (c == u'{' &&
        (pos_ + 1 == text_.size() || isBlank(text_[pos_ + 1]) || text_[pos_ + 1] == u'}')) {
      ++pos_;
      token.kind = Token::Open;
      return token;
    }
    if (c == u'\'') {
      token.kind = Token::Quoted;
      ++pos_;
      for (;;) {
        if (pos_ == text_.size())
          throw ParseFault{token.line, "the quoted text that starts here is not closed"};
        const char16_t q = text_[pos_];
        if (q == u'\'') {
          // Two quotes stand for one inside quoted text.
          if (pos_ + 1 < text_.size() && text_[pos_ + 1] == u'\'') {
            token.text += u'\'';
            pos_ += 2;
            continue;
          }
          ++pos_;
          return token;
        }
        if (q == u'%') {
          substitute(token.text);
          continue;
        }
        if (q == u'\n') ++line_;
        token.text += q;
        ++pos_;
      }
    }
    token.kind = Token::Word;
    const size_t start = pos_;
    while (pos_ < text_.size() && !isBlank(text_[pos_]) && text_[pos_] != u'=' &&
           text_[pos_] != u'\'') {
      if (text_[pos_] == u'%') {
        substitute(token.text);
      } else {
        token.text += text_[pos_++];
      }
    }
    // A GUID in braces is a name; any other brace touching a name is a
    // body's brace written without its blank, which would silently become
    // part of the name. Only the script's own braces count, not replacements.
    const std::u16string_view raw = text_.substr(start, pos_ - start);
    if (!raw.empty() && raw.front() == u'{' && raw.back() != u'}')
      throw ParseFault{token.line, "'{' must stand apart from the name after it: " + quote(raw)};
    if (!raw.empty() && raw.back() == u'}' && raw.front() != u'{')
      throw ParseFault{token.line, "'}' must stand apart from the name before it: " + quote(raw)};
    return token;
  }

  // At a '%': appends its replacement and moves past it.
  void substitute(std::u16string& out) {
    size_t end = pos_ + 1;
    while (end < text_.size() && isNameChar(text_[end])) ++end;
    if (end == text_.size() || text_[end] != u'%')
      throw ParseFault{line_, "'%' without a name and its closing '%'"};
    const std::u16string_view name = text_.substr(pos_ + 1, end - pos_ - 1);
    pos_ = end + 1;
    if (name.empty()) {
      out += u'%';
      return;
    }
    for (const auto& [key, value] : substitutions_) {
      if (sameIgnoringCase(key, name)) {
        out += value;
        return;
      }
    }
    throw ParseFault{line_, "no replacement for %" + toUtf8(std::u16string(name)) + "%"};
  }

  std::u16string_view text_;
  const ScriptSubstitutions& substitutions_;
  size_t pos_ = 0;
  int line_ = 1;
  Token next_;
  bool peeked_ = false;
};

bool isKeyword(const Token& token, std::u16string_view keyword) {
  return token.kind == Token::Word && sameIgnoringCase(token.text, keyword);
}

class Parser {
 public:
  explicit Parser(Lexer& lexer) : lexer_(lexer) {}

  void script(RegistryScript& out) {
    while (lexer_.peek().kind != Token::End) {
      Token name = lexer_.take();
      ScriptRoot root;
      root.line = name.line;
      if (!rootOf(name, root.root))
        throw ParseFault{name.line,
                         "expected a root key (HKCR, HKCU, HKLM), found " + describe(name)};
      expectOpen(name);
      body(root.keys, nullptr, name.line);
      out.roots.push_back(std::move(root));
    }
  }

 private:
  static bool rootOf(const Token& token, RegistryRoot& root) {
    if (token.kind != Token::Word) return false;
    for (const RootName& r : kRootNames) {
      if (sameIgnoringCase(token.text, r.name)) {
        root = r.root;
        return true;
      }
    }
    return false;
  }

  static std::string describe(const Token& token) {
    switch (token.kind) {
      case Token::End:
        return "the end of the script";
      case Token::Open:
        return "'{'";
      case Token::Close:
        return "'}'";
      case Token::Equals:
        return "'='";
      case Token::Word:
      case Token::Quoted:
        return quote(token.text);
    }
    return {};
  }

  void expectOpen(const Token& after) {
    Token open = lexer_.take();
    if (open.kind != Token::Open)
      throw ParseFault{open.line,
                       "expected '{' after " + quote(after.text) + ", found " + describe(open)};
  }

  // Keys (and, inside a key, `val` lines) up to the closing brace of a
  // block opened on `openLine`.
  void body(std::vector<ScriptKey>& keys, ScriptKey* owner, int openLine) {
    for (;;) {
      const Token& next = lexer_.peek();
      if (next.kind == Token::Close) {
        lexer_.take();
        return;
      }
      if (next.kind == Token::End)
        throw ParseFault{next.line,
                         "the '{' of line " + std::to_string(openLine) + " is not closed"};
      if (isKeyword(next, u"val")) {
        const int line = lexer_.take().line;
        if (!owner) throw ParseFault{line, "'val' belongs inside a key, not directly in a root"};
        owner->values.push_back(namedValue(line));
        continue;
      }
      keys.push_back(key());
    }
  }

  ScriptKey key() {
    ScriptKey key;
    Token name = lexer_.take();
    key.line = name.line;
    static constexpr std::array<std::pair<const char16_t*, ScriptKey::Flag>, 3> kFlags{{
        {u"NoRemove", ScriptKey::Flag::NoRemove},
        {u"ForceRemove", ScriptKey::Flag::ForceRemove},
        {u"Delete", ScriptKey::Flag::Delete},
    }};
    for (const auto& [word, flag] : kFlags) {
      if (isKeyword(name, word)) {
        key.flag = flag;
        name = lexer_.take();
        break;
      }
    }
    if (key.flag != ScriptKey::Flag::None) {
      for (const auto& [word, flag] : kFlags)
        if (isKeyword(name, word))
          throw ParseFault{name.line,
                           "a key takes one of NoRemove, ForceRemove and Delete, not two"};
    }
    if (isKeyword(name, u"val"))
      throw ParseFault{name.line, "'val' after a flag: a key named val must be quoted"};
    key.name = keyName(name);
    if (lexer_.peek().kind == Token::Equals) {
      const int line = lexer_.take().line;
      key.defaultValue = typedValue(u"", line);
    }
    if (lexer_.peek().kind == Token::Open) {
      const int line = lexer_.take().line;
      // The registry's own limit, and a bound on this parser's recursion.
      if (++depth_ >= kMaxKeyDepth)
        throw ParseFault{line,
                         "keys nested deeper than " + std::to_string(kMaxKeyDepth) + " levels"};
      body(key.subkeys, &key, line);
      --depth_;
    }
    return key;
  }

  static std::u16string keyName(const Token& name) {
    if (name.kind != Token::Word && name.kind != Token::Quoted)
      throw ParseFault{name.line, "expected a key name, found " + describe(name)};
    if (name.text.empty()) throw ParseFault{name.line, "a key name is empty"};
    if (name.text.find(u'\\') != std::u16string::npos)
      throw ParseFault{name.line, "a key name is one level, without '\\': " + quote(name.text)};
    if (name.text.size() > kMaxKeyNameUnits)
      throw ParseFault{name.line, "a key name is longer than " + std::to_string(kMaxKeyNameUnits) +
                                      " characters"};
    return name.text;
  }

  // `NAME = s|d 'VALUE'` after `val`.
  ScriptValue namedValue(int line) {
    Token name = lexer_.take();
    if (name.kind != Token::Word && name.kind != Token::Quoted)
      throw ParseFault{name.line, "expected a value name after 'val', found " + describe(name)};
    if (name.text.empty()) throw ParseFault{name.line, "a value name after 'val' is empty"};
    if (name.text.size() > kMaxValueNameUnits)
      throw ParseFault{name.line, "a value name is too long"};
    Token equals = lexer_.take();
    if (equals.kind != Token::Equals)
      throw ParseFault{equals.line, "expected '=' after the value name " + quote(name.text) +
                                        ", found " + describe(equals)};
    return typedValue(name.text, line);
  }

  // `s 'TEXT'` or `d 'NUMBER'` after an '='.
  ScriptValue typedValue(const std::u16string& name, int line) {
    ScriptValue value;
    value.name = name;
    value.line = line;
    Token type = lexer_.take();
    if (isKeyword(type, u"s")) {
      value.type = ScriptValue::Type::String;
    } else if (isKeyword(type, u"d")) {
      value.type = ScriptValue::Type::Dword;
    } else if (type.kind == Token::Word && type.text.size() == 1) {
      throw ParseFault{type.line, "value type " + quote(type.text) +
                                      " is not supported (s for text, d for a number)"};
    } else {
      throw ParseFault{type.line,
                       "expected a value type (s or d) after '=', found " + describe(type)};
    }
    Token data = lexer_.take();
    if (data.kind != Token::Quoted && data.kind != Token::Word)
      throw ParseFault{data.line, "expected the value after its type, found " + describe(data)};
    if (value.type == ScriptValue::Type::String) {
      value.text = data.text;
    } else if (!parseNumber(data.text, value.number)) {
      throw ParseFault{data.line, "not a 32-bit number: " + quote(data.text)};
    }
    return value;
  }

  // Decimal, or hexadecimal after 0x.
  static bool parseNumber(std::u16string_view text, uint32_t& out) {
    unsigned base = 10;
    if (text.size() > 2 && text[0] == u'0' && (text[1] == u'x' || text[1] == u'X')) {
      base = 16;
      text.remove_prefix(2);
    }
    if (text.empty()) return false;
    uint64_t n = 0;
    for (char16_t c : text) {
      unsigned digit;
      if (c >= u'0' && c <= u'9') {
        digit = c - u'0';
      } else if (base == 16 && asciiLower(c) >= u'a' && asciiLower(c) <= u'f') {
        digit = asciiLower(c) - u'a' + 10;
      } else {
        return false;
      }
      if (digit >= base) return false;
      n = n * base + digit;
      if (n > 0xFFFFFFFFu) return false;
    }
    out = uint32_t(n);
    return true;
  }

  Lexer& lexer_;
  size_t depth_ = 0;
};

// A handle the applier opened, closed when it goes.
class OpenKey {
 public:
  OpenKey(RegistryTarget& target, KeyHandle key) : target_(target), key_(key) {}
  ~OpenKey() {
    if (key_) target_.closeKey(key_);
  }
  OpenKey(const OpenKey&) = delete;
  OpenKey& operator=(const OpenKey&) = delete;

 private:
  RegistryTarget& target_;
  KeyHandle key_;
};

class Applier {
 public:
  Applier(RegistryTarget& target, bool registering) : target_(target), registering_(registering) {}

  void run(const RegistryScript& script) {
    for (const ScriptRoot& root : script.roots) {
      const std::string path = registryRootName(root.root);
      if (registering_) {
        if (!addAll(target_.root(root.root), path, root.keys)) return;
      } else {
        removeAll(target_.root(root.root), path, root.keys);
      }
    }
  }

  ScriptApplyResult result;

 private:
  bool fail(long error, const std::string& path, const char* what, int line) {
    if (result.ok()) {
      result.error = error;
      result.where = path + ": " + what + " (script line " + std::to_string(line) + ")";
    }
    return false;
  }

  static std::string below(const std::string& parent, const std::u16string& name) {
    return parent + "\\" + toUtf8(name);
  }

  bool addAll(KeyHandle parent, const std::string& parentPath, const std::vector<ScriptKey>& keys) {
    for (const ScriptKey& key : keys)
      if (!add(parent, below(parentPath, key.name), key)) return false;
    return true;
  }

  bool add(KeyHandle parent, const std::string& path, const ScriptKey& key) {
    if (key.flag == ScriptKey::Flag::Delete || key.flag == ScriptKey::Flag::ForceRemove) {
      const long r = target_.deleteTree(parent, key.name);
      if (r != kKeyOk && r != kKeyNotFound)
        return fail(r, path, "could not delete the key", key.line);
      if (key.flag == ScriptKey::Flag::Delete) return true;
    }
    KeyHandle handle = nullptr;
    const long r = target_.createKey(parent, key.name, &handle);
    if (r != kKeyOk) return fail(r, path, "could not create the key", key.line);
    OpenKey owner(target_, handle);
    if (key.defaultValue && !set(handle, path, *key.defaultValue)) return false;
    for (const ScriptValue& value : key.values)
      if (!set(handle, path, value)) return false;
    return addAll(handle, path, key.subkeys);
  }

  bool set(KeyHandle key, const std::string& path, const ScriptValue& value) {
    const long r = value.type == ScriptValue::Type::String
                       ? target_.setString(key, value.name, value.text)
                       : target_.setDword(key, value.name, value.number);
    if (r == kKeyOk) return true;
    const std::string where = value.name.empty() ? path : path + " value " + toUtf8(value.name);
    return fail(r, where, "could not write the value", value.line);
  }

  void removeAll(KeyHandle parent, const std::string& parentPath,
                 const std::vector<ScriptKey>& keys) {
    for (const ScriptKey& key : keys) remove(parent, below(parentPath, key.name), key);
  }

  void remove(KeyHandle parent, const std::string& path, const ScriptKey& key) {
    if (key.flag != ScriptKey::Flag::NoRemove) {
      const long r = target_.deleteTree(parent, key.name);
      if (r != kKeyOk && r != kKeyNotFound) fail(r, path, "could not delete the key", key.line);
      return;
    }
    KeyHandle handle = nullptr;
    const long r = target_.openKey(parent, key.name, &handle);
    if (r == kKeyNotFound) return;  // nothing of ours can be below it
    if (r != kKeyOk) {
      fail(r, path, "could not open the key", key.line);
      return;
    }
    OpenKey owner(target_, handle);
    for (const ScriptValue& value : key.values) {
      const long d = target_.deleteValue(handle, value.name);
      if (d != kKeyOk && d != kKeyNotFound)
        fail(d, path + " value " + toUtf8(value.name), "could not delete the value", value.line);
    }
    removeAll(handle, path, key.subkeys);
  }

  RegistryTarget& target_;
  const bool registering_;
};

// Appends the decoded text; false at the first fault.
bool decodeScriptBytes(std::string_view bytes, std::u16string& text) {
  if (bytes.size() >= 2 && uint8_t(bytes[0]) == 0xFF && uint8_t(bytes[1]) == 0xFE) {
    bytes.remove_prefix(2);
    if (bytes.size() % 2) return false;
    text.reserve(bytes.size() / 2);
    for (size_t i = 0; i < bytes.size(); i += 2)
      text += char16_t(uint8_t(bytes[i]) | uint8_t(bytes[i + 1]) << 8);
    return true;
  }
  if (bytes.size() >= 3 && bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
  // Strict: a script in some other code page must not register garbled names.
  size_t i = 0;
  while (i < bytes.size()) {
    const uint8_t b = uint8_t(bytes[i]);
    uint32_t c;
    size_t extra;
    if (b < 0x80) {
      c = b;
      extra = 0;
    } else if (b >= 0xC2 && b <= 0xDF) {
      c = b & 0x1F;
      extra = 1;
    } else if (b >= 0xE0 && b <= 0xEF) {
      c = b & 0x0F;
      extra = 2;
    } else if (b >= 0xF0 && b <= 0xF4) {
      c = b & 0x07;
      extra = 3;
    } else {
      return false;
    }
    if (bytes.size() - i <= extra) return false;
    for (size_t k = 1; k <= extra; ++k) {
      const uint8_t t = uint8_t(bytes[i + k]);
      if ((t & 0xC0) != 0x80) return false;
      c = c << 6 | (t & 0x3F);
    }
    // Overlong forms, surrogates and values past U+10FFFF.
    if ((extra == 2 && c < 0x800) || (extra == 3 && (c < 0x10000 || c > 0x10FFFF)) ||
        (c >= 0xD800 && c <= 0xDFFF))
      return false;
    if (c >= 0x10000) {
      text += char16_t(0xD800 + ((c - 0x10000) >> 10));
      text += char16_t(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      text += char16_t(c);
    }
    i += extra + 1;
  }
  return true;
}

}  // namespace

const char* registryRootName(RegistryRoot root) {
  switch (root) {
    case RegistryRoot::ClassesRoot:
      return "HKCR";
    case RegistryRoot::CurrentUser:
      return "HKCU";
    case RegistryRoot::LocalMachine:
      return "HKLM";
  }
  return "?";
}

std::string ScriptError::describe() const {
  return "line " + std::to_string(line) + ": " + message;
}

bool parseRegistryScript(std::u16string_view text, const ScriptSubstitutions& substitutions,
                         RegistryScript& out, ScriptError& error) {
  out = {};
  Lexer lexer(text, substitutions);
  Parser parser(lexer);
  try {
    parser.script(out);
  } catch (const ParseFault& fault) {
    error.line = fault.line;
    error.message = fault.message;
    return false;
  }
  return true;
}

bool decodeRegistryScript(std::string_view bytes, std::u16string& text) {
  text.clear();
  if (decodeScriptBytes(bytes, text)) return true;
  text.clear();
  return false;
}

ScriptApplyResult applyRegistryScript(const RegistryScript& script, RegistryTarget& target,
                                      bool registering) {
  Applier applier(target, registering);
  applier.run(script);
  return applier.result;
}

}  // namespace PIM
