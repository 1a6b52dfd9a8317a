// The fixture reader: values as written, and one placed message for each
// kind of malformed text.
#include "store/json_reader.h"

#include <gtest/gtest.h>

#include "store/fixture.h"

namespace PIM::store {
namespace {

std::string errorOf(const std::string& json) {
  try {
    JsonReader(json).document(true);
  } catch (const JsonError& e) {
    return std::to_string(e.byte) + ": " + e.what();
  }
  return "(read)";
}

TEST(JsonReaderTest, EachMalformedTextGivesOnePlacedMessage) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"",
       "1: syntax error while parsing value - unexpected end of input; expected '[', '{', or "
       "a literal"},
      {"[1,]",
       "4: syntax error while parsing value - unexpected ']'; expected '[', '{', or a "
       "literal"},
      {"{\"a\":1,}",
       "8: syntax error while parsing object key - unexpected '}'; expected string "
       "literal"},
      {"{\"a\" 1}",
       "6: syntax error while parsing object separator - unexpected number literal; "
       "expected ':'"},
      {"{\"a\":1 \"b\":2}",
       "10: syntax error while parsing object - unexpected string literal; "
       "expected '}'"},
      {"[true false]",
       "11: syntax error while parsing array - unexpected false literal; expected "
       "']'"},
      {"[1]x", "4: syntax error while parsing value - invalid literal"},
      {"{\"a\":tx}", "7: syntax error while parsing value - invalid literal"},
      {"\"abc", "5: syntax error while parsing value - invalid string: missing closing quote"},
      {"\"a\x01\"",
       "3: syntax error while parsing value - invalid string: control character "
       "U+0001 must be escaped"},
      {"\"\\x\"",
       "3: syntax error while parsing value - invalid string: forbidden character "
       "after backslash"},
      {"\"\\u12\"",
       "6: syntax error while parsing value - invalid string: '\\u' must be "
       "followed by 4 hex digits"},
      {"\"\\uD800\"",
       "8: syntax error while parsing value - invalid string: surrogate "
       "U+D800..U+DBFF must be followed by U+DC00..U+DFFF"},
      {"\"\\uDC00\"",
       "7: syntax error while parsing value - invalid string: surrogate "
       "U+DC00..U+DFFF must follow U+D800..U+DBFF"},
      {"\"\xC3\"", "3: syntax error while parsing value - invalid string: ill-formed UTF-8 byte"},
      {"\"\xED\xA0\x80\"",
       "3: syntax error while parsing value - invalid string: ill-formed "
       "UTF-8 byte"},
      {"-", "2: syntax error while parsing value - invalid number; expected digit after '-'"},
      {"1.", "3: syntax error while parsing value - invalid number; expected digit after '.'"},
      {"[2e9999]", "0: number overflow parsing '2e9999'"},
      // Checked inside the items a first reading leaves in the text, too.
      {"{\"items\": [{\"a\": [1,]}]}",
       "21: syntax error while parsing value - unexpected ']'; "
       "expected '[', '{', or a literal"},
      {std::string(600, '[') + std::string(600, ']'),
       "513: syntax error while parsing value - nested deeper than 512"},
  };
  for (const auto& [json, message] : cases) EXPECT_EQ(errorOf(json), message) << json;
}

TEST(JsonReaderTest, ValuesReadAsWritten) {
  const std::string text =
      "\xEF\xBB\xBF{\"s\": \"a\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00e9\\ud83d\\ude00\\u0000z\", "
      "\"u\": 18446744073709551615, \"i\": -9223372036854775808, \"big\": 1e2, "
      "\"huge\": 123456789012345678901, \"tiny\": 1e-400, \"b\": false, \"n\": null, "
      "\"k\": 1, \"k\": 2, \"a\": [1, \"x\", {}]}";
  const JsonValue doc = JsonReader(text).document(false);
  ASSERT_TRUE(doc.isObject());
  EXPECT_EQ(doc["s"].str(), std::string("a\"\\/\b\f\n\r\t\xC3\xA9\xF0\x9F\x98\x80\0z", 17));
  EXPECT_TRUE(doc["u"].isUnsigned());
  EXPECT_EQ(doc["u"].uint64(), 18446744073709551615ull);
  EXPECT_EQ(doc["i"].kind(), JsonValue::Kind::Integer);
  EXPECT_EQ(doc["i"].int64(), INT64_MIN);
  EXPECT_EQ(doc["big"].kind(), JsonValue::Kind::Float);
  EXPECT_EQ(doc["huge"].kind(), JsonValue::Kind::Float) << "beyond 64 bits: a double";
  EXPECT_DOUBLE_EQ(doc["huge"].number(), 123456789012345678901.0);
  EXPECT_EQ(doc["tiny"].number(), 0.0);
  EXPECT_TRUE(doc["b"].isBoolean());
  EXPECT_EQ(doc["n"].kind(), JsonValue::Kind::Null);
  EXPECT_EQ(doc["k"].int64(), 2) << "a repeated key keeps its last value";
  std::string keys;
  for (const auto& m : doc.members()) keys += m.key + " ";
  EXPECT_EQ(keys, "a b big huge i k n s tiny u ") << "members in key order, once each";
  ASSERT_EQ(doc["a"].size(), 3u);
  EXPECT_EQ(doc["a"][1].str(), "x");
  EXPECT_FALSE(doc.contains("missing"));
}

TEST(JsonReaderTest, DeferredItemsReadOneAtATimeAsAWholeReadingGivesThem) {
  const std::string text =
      R"({"folders": [{"items": [{"key": "a", "props": [1, 2]}, {"key": "b"}  ,{}]}],
          "items": []})";
  const JsonValue whole = JsonReader(text).document(false);
  const JsonValue skeleton = JsonReader(text).document(true);
  const JsonValue& deferred = skeleton["folders"][0]["items"];
  ASSERT_TRUE(deferred.deferred());
  EXPECT_TRUE(deferred.isArray());
  JsonReader reader(text);
  reader.startArray(deferred.begin());
  JsonValue one;
  std::vector<std::string> keys;
  while (reader.next(one)) keys.push_back(one.contains("key") ? one["key"].str() : "-");
  EXPECT_EQ(keys, (std::vector<std::string>{"a", "b", "-"}));
  EXPECT_EQ(whole["folders"][0]["items"].size(), 3u);

  reader.startArray(skeleton["items"].begin());
  EXPECT_FALSE(reader.next(one)) << "an empty array has no elements";
}

TEST(JsonReaderTest, FixtureErrorsNameLineAndColumn) {
  try {
    loadFixtureText("{\n  \"stores\": [\n    {\"name\": \"S\" \"root\": {}}]}", "box.json");
    FAIL() << "loaded";
  } catch (const FixtureError& e) {
    EXPECT_STREQ(e.what(),
                 "box.json: line 3, column 23: invalid JSON: syntax error while parsing object - "
                 "unexpected string literal; expected '}'");
  }
}

}  // namespace
}  // namespace PIM::store
