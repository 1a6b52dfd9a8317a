// The fixture format: value forms, and one clear error for every kind of
// malformed file.
#include "store/fixture.h"

#include <gtest/gtest.h>

#include "store/one_off_entry_id.h"
#include "store/recurrence_blob.h"
#include "store/store_test_util.h"
#include "testing/test_support.h"

namespace PIM::store::testing {
namespace {

std::string errorOf(const std::string& json) {
  try {
    loadFixtureText(json, "box.json");
  } catch (const FixtureError& e) {
    return e.what();
  }
  return "(loaded)";
}

// A one-store fixture whose inbox item has these properties.
std::string withProps(const std::string& props) {
  return R"({"stores": [{"name": "S", "root": {"folders": [{"key": "f", "name": "Inbox",
    "items": [{"key": "m", "props": [)" +
         props + "]}]}]}}]}";
}

const Prop* propOf(const Profile& profile, ULONG propId) {
  static std::shared_ptr<const Item> item;
  item = profile.itemCopy(profile.byKey("m"));
  return item ? item->props.find(propId) : nullptr;
}

TEST(FixtureErrorTest, EachMistakeGivesOneMessageWithFileAndPlace) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"{\"stores\": [",
       "box.json: line 1, column 13: invalid JSON: syntax error while parsing "
       "value - unexpected end of input; expected '[', '{', or a literal"},
      {"{\"stores\": [], \"version\": 2e9999}",
       "box.json: invalid JSON: number overflow parsing '2e9999'"},
      {"{\n  \"stores\": [],\n  \"x\": 1\n}",
       "box.json: /x: unknown member \"x\" (expected one "
       "of: format, version, stores, addressBook)"},
      {R"({"stores": []})", "box.json: /stores: a profile needs at least one store"},
      {R"({"stores": [{"root": {}}]})", "box.json: /stores/0: missing member \"name\""},
      {R"({"stores": [{"name": 5, "root": {}}]})",
       "box.json: /stores/0/name: expected a text, found an integer"},
      {withProps(R"({"tag": "PR_SUBJEKT_W", "value": "x"})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/tag: unknown property tag "
       "\"PR_SUBJEKT_W\" (a PR_ name or 0x hex tag)"},
      {withProps(R"({"tag": "PR_CLIENT_SUBMIT_TIME", "value": "March 1st"})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/value: expected a date text such as "
       "2024-03-01 or 2024-03-01T09:30:00Z, found \"March 1st\""},
      {withProps(R"({"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2024-02-30"})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/value: date out of range: "
       "\"2024-02-30\""},
      {withProps(R"({"tag": "PR_ENTRYID", "value": "0A1"})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/value: odd number of hexadecimal "
       "digits"},
      {withProps(R"({"tag": "PR_IMPORTANCE", "value": 4294967296})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/value: integer 4294967296 out of "
       "range -2147483648..4294967295"},
      {withProps(R"({"tag": "PR_SENDER_ENTRYID", "value": {"entryIdOf": "nobody"}})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/value/entryIdOf: unknown key "
       "\"nobody\" (keys of stores, folders and address-book entries, and of items defined "
       "earlier in the file)"},
      {withProps(R"({"named": {"set": "PSETID_Nope", "id": 1}, "type": "PT_LONG", "value": 1})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/named/set: unknown property set "
       "\"PSETID_Nope\" (PSETID_Appointment, PSETID_Task, PSETID_Address, PSETID_Common, "
       "PS_PUBLIC_STRINGS, PS_MAPI or a {GUID})"},
      {withProps(R"({"named": {"set": "PSETID_Task", "id": 1}, "value": 1})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0: a named property needs a \"type\""},
      {withProps(R"({"tag": "PR_SUBJECT_W", "value": "a"}, {"tag": "PR_SUBJECT_A", "value": "b"})"),
       "box.json: /stores/0/root/folders/0/items/0/props/1: property set twice"},
      {withProps(R"({"tag": "PR_BODY_W", "value": {"text": "a", "repeat": -1}})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/value/repeat: integer -1 out of "
       "range 0..100000"},
      {withProps(R"({"tag": "PR_ENTRYID", "value": {"recurrence": {"pattern": "weekly",
         "start": "2024-01-01"}}})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/value/recurrence: missing member "
       "\"days\""},
      {withProps(R"({"tag": "PR_ENTRYID", "value": {"recurrence": {"pattern": "daily",
         "start": "2024-01-09", "end": "2024-01-08"}}})"),
       "box.json: /stores/0/root/folders/0/items/0/props/0/value/recurrence: the series ends "
       "before it starts"},
      {R"({"stores": [{"name": "S", "root": {"folders": [{"key": "a", "name": "A"},
         {"key": "a", "name": "B"}]}}]})",
       "box.json: /stores/0/root/folders/1/key: key \"a\" is used twice"},
      {R"({"stores": [{"name": "S", "ipmSubtree": "m", "root": {"items": [{"key": "m"}]}}]})",
       "box.json: /stores/0/ipmSubtree: \"m\" is not the key of a folder"},
  };
  for (const auto& [json, message] : cases) EXPECT_EQ(errorOf(json), message) << json;
}

TEST(FixtureErrorTest, DeepNestingAndMissingFilesAreErrorsToo) {
  std::string deep = R"({"stores": [{"name": "S", "root": {"folders": [)";
  for (int i = 0; i < 40; ++i) deep += R"({"name": "f", "folders": [)";
  for (int i = 0; i < 40; ++i) deep += "]}";
  deep += "]}}]}";
  EXPECT_NE(errorOf(deep).find("folders nested deeper than 32"), std::string::npos);
  try {
    loadFixtureFile(u"/nonexistent/box.json");
    FAIL() << "loaded";
  } catch (const FixtureError& e) {
    EXPECT_STREQ(e.what(), "/nonexistent/box.json: cannot be opened");
  }
}

TEST(FixtureValueTest, ValueFormsBecomeTheRightBytesAndNumbers) {
  auto profile = loadFixtureText(withProps(R"(
      {"tag": "PR_CLIENT_SUBMIT_TIME", "value": "2024-03-01T09:30:15.250Z"},
      {"tag": "PR_MESSAGE_DELIVERY_TIME", "value": "1601-01-02"},
      {"tag": "PR_RECORD_KEY", "value": "0a 0B:ff"},
      {"tag": "0x00170003", "value": "0xFFFFFFFF"},
      {"tag": "PR_BODY_A", "value": {"text": "ab", "repeat": 3}},
      {"tag": "PR_SUBJECT_W", "value": "Ünïcødé 😀"},
      {"tag": "PR_TITLE_W", "error": "MAPI_E_NOT_ENOUGH_MEMORY"},
      {"tag": "0x6800001F", "type": "PT_MV_UNICODE", "value": ["a", "b"]},
      {"named": {"set": "PSETID_Common", "name": "Flag"}, "type": "PT_BOOLEAN", "value": true},
      {"tag": "PR_SENDER_ENTRYID", "value": {"oneOff": {"name": "Zoë", "addressType": "SMTP",
        "address": "zoe@example.com", "unicode": false}}})"),
                                 "box.json");
  // 2024-03-01 09:30:15.25 UTC in 100 ns ticks since 1601.
  EXPECT_EQ(propOf(*profile, 0x0039)->num(), 133537590152500000ll);
  EXPECT_EQ(propOf(*profile, 0x0E06)->num(), 864000000000ll);
  EXPECT_EQ(propOf(*profile, 0x0FF9)->bin(), Bytes({0x0A, 0x0B, 0xFF}));
  EXPECT_EQ(propOf(*profile, 0x0017)->num(), -1) << "hex gives the 32-bit pattern";
  EXPECT_EQ(propOf(*profile, 0x1000)->str(), "ababab");
  EXPECT_EQ(propOf(*profile, 0x0037)->text(), u"Ünïcødé 😀");
  EXPECT_EQ(propOf(*profile, 0x3A17)->tag, PROP_TAG(PT_ERROR, 0x3A17));
  EXPECT_EQ(propOf(*profile, 0x3A17)->num(), MAPI_E_NOT_ENOUGH_MEMORY);
  EXPECT_EQ(propOf(*profile, 0x6800)->texts(), std::vector<std::u16string>({u"a", u"b"}));
  PropName flag;
  flag.set = PSETID_Common;
  flag.kind = MNID_STRING;
  flag.name = u"Flag";
  const ULONG flagId = profile->namedPropId(0, flag);
  EXPECT_EQ(flagId, 0x8000u) << "named ids start at 0x8000";
  EXPECT_EQ(propOf(*profile, flagId)->num(), 1);
  OneOffEntryId zoe{u"Zoë", u"SMTP", u"zoe@example.com", false};
  EXPECT_EQ(propOf(*profile, 0x0C19)->bin(), encodeOneOffEntryId(zoe));
}

TEST(FixtureValueTest, RecurrenceInReadableFormMatchesTheEncoder) {
  auto profile = loadFixtureText(withProps(R"(
      {"named": {"set": "PSETID_Appointment", "id": "0x8216"}, "type": "PT_BINARY",
       "value": {"recurrence": {"pattern": "weekly", "every": 2, "days": ["monday", "friday"],
         "start": "2024-01-01", "end": "2024-06-28", "startTime": "09:00", "endTime": "09:30",
         "deleted": ["2024-01-05"],
         "exceptions": [{"original": "2024-01-15T09:00", "start": "2024-01-16T10:00",
                         "end": "2024-01-16T10:30", "subject": "Moved"}]}}})"),
                                 "box.json");
  AppointmentRecurrence r;
  r.pattern.frequency = kRecurWeekly;
  r.pattern.patternType = kPatternWeek;
  r.pattern.period = 2;
  r.pattern.dayMask = 0x22;
  r.pattern.endType = kEndAfterDate;
  r.pattern.occurrenceCount = 0;
  r.pattern.startDate = minutesSince1601(2024, 1, 1);
  r.pattern.endDate = minutesSince1601(2024, 6, 28);
  r.pattern.deleted = {minutesSince1601(2024, 1, 5)};
  r.startTimeOffset = 540;
  r.endTimeOffset = 570;
  RecurrenceException moved;
  moved.originalStart = minutesSince1601(2024, 1, 15, 9, 0);
  moved.start = minutesSince1601(2024, 1, 16, 10, 0);
  moved.end = minutesSince1601(2024, 1, 16, 10, 30);
  moved.subject = u"Moved";
  r.exceptions = {moved};
  EXPECT_EQ(propOf(*profile, 0x8000)->bin(), encodeAppointmentRecurrence(r));
}

TEST(FixtureFileTest, LoadsFromAFileAndKeepsIdsStable) {
  PIM::testing::TempDir dir;
  const std::u16string path = dir.file(u"box.json");
  PIM::testing::writeFileBytes(path, kProfileJson);
  auto a = loadFixtureFile(path);
  auto b = loadFixtureFile(path);
  EXPECT_EQ(a->storeCount(), 2u);
  EXPECT_EQ(a->entryId(a->byKey("m3")), b->entryId(b->byKey("m3")));
  EXPECT_NE(a->shortTermEntryId(a->byKey("m3")), b->shortTermEntryId(b->byKey("m3")))
      << "short-term ids belong to one session";
  EXPECT_EQ(a->findFolder(0, u"Top of Information Store/Inbox/Reports"), a->byKey("reports"));
  EXPECT_FALSE(a->findFolder(0, u"Top of Information Store/Outbox").valid());
}

TEST(FixtureFileTest, ALargeFileLoadsAsItsTextWhileReadPartsAreHandedBack) {
  // Several megabytes over three folders, so that the loader hands back the
  // text of items already built many times, across folder boundaries.
  std::string json = R"({"stores": [{"name": "S", "root": {"folders": [)";
  for (int f = 0; f < 3; ++f) {
    json += std::string(f ? "," : "") + R"({"name": "F)" + std::to_string(f) + R"(", "items": [)";
    for (int i = 0; i < 2500; ++i) {
      const std::string n = std::to_string(f * 10000 + i);
      json += std::string(i ? "," : "") + R"({"key": "m)" + n +
              R"(", "props": [{"tag": "PR_SUBJECT_W", "value": "Zoë )" + n +
              R"("}, {"tag": "PR_BODY_W", "value": ")" + std::string(400, 'a' + i % 26) +
              R"("}, {"tag": "PR_IMPORTANCE", "value": )" + std::to_string(i % 3) + "}]}";
    }
    json += "]}";
  }
  json += "]}}]}";
  ASSERT_GT(json.size(), 3u << 20);
  PIM::testing::TempDir dir;
  const std::u16string path = dir.file(u"large.json");
  PIM::testing::writeFileBytes(path, json);
  auto fromFile = loadFixtureFile(path);
  auto fromText = loadFixtureText(json, "large.json");
  for (int f = 0; f < 3; ++f)
    for (int i = 0; i < 2500; i += 7) {
      const std::string key = "m" + std::to_string(f * 10000 + i);
      auto a = fromFile->itemCopy(fromFile->byKey(key));
      auto b = fromText->itemCopy(fromText->byKey(key));
      ASSERT_TRUE(a && b) << key;
      EXPECT_EQ(a->props.all(), b->props.all()) << key;
      EXPECT_EQ(a->props.find(PROP_ID(PR_SUBJECT_W))->text(),
                u"Zoë " + fromUtf8(std::to_string(f * 10000 + i)));
    }
}

}  // namespace
}  // namespace PIM::store::testing
