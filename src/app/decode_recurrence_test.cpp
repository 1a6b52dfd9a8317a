// `ferrant decode recurrence` on the sample mailbox's series and on blobs no
// store would write.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/decode_test_util.h"
#include "app/exit_codes.h"
#include "core/utils.h"
#include "prefs/preferences.h"
#include "store/fixture.h"
#include "store/profile.h"
#include "store/recurrence_blob.h"
#include "testing/memory_key_store.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using testing::decode;
using testing::DecodeResult;
using testing::hexOf;

// Times are printed in UTC; the series are written in local time.
class UtcEnv : public EnvWrapper {
 public:
  UtcEnv() : EnvWrapper(Env::platformDefault()) {}
  TimeZoneInfo timeZone() override { return {}; }
};

class DecodeRecurrenceTest : public ::testing::Test {
 protected:
  void SetUp() override { Preferences::instance().resetToDefaults(); }
  void TearDown() override { Preferences::instance().resetToDefaults(); }

  // The recurrence blob of a series of the sample mailbox, as stored.
  static std::vector<uint8_t> sampleBlob(const std::string& key) {
    static const std::shared_ptr<store::Profile> sample =
        store::loadFixtureFile(fromUtf8(FERRANT_SAMPLE_MAILBOX));
    const store::Ref ref = sample->byKey(key);
    const ULONG id = sample->namedPropId(ref.store, {PSETID_Appointment, MNID_ID, 0x8216, u""});
    const std::shared_ptr<const store::Item> item = sample->itemCopy(ref);
    if (item)
      for (const store::Prop& prop : item->props.all())
        if (prop.tag == PROP_TAG(PT_BINARY, id)) return prop.bin();
    ADD_FAILURE() << "no recurrence in " << key;
    return {};
  }

  UtcEnv utc_;
  testing::ScopedEnv scopedUtc_{&utc_};
  testing::MemoryKeyStoreEnv keys_;  // over the UTC clock
};

TEST_F(DecodeRecurrenceTest, TheUsersCalendarWindowIsWrittenAndNothingIsSaved) {
  Preferences& preferences = Preferences::instance();
  preferences.calendar.captureDaysBefore = 7;
  preferences.calendar.captureDaysAfter = 120;
  preferences.save();
  const std::string saved = keys_.store().text();
  preferences.resetToDefaults();

  const DecodeResult daily = decode("recurrence", {hexOf(sampleBlob("cal.daily"))});
  EXPECT_EQ(daily.code, kExitOk);
  EXPECT_EQ(daily.out.rfind("<recurrence maxDaysBefore=\"7\" maxDaysAfter=\"120\" ", 0), 0u)
      << daily.out;
  EXPECT_EQ(keys_.store().text(), saved);
}

TEST_F(DecodeRecurrenceTest, SampleSeriesPrintTheirWholeElement) {
  const DecodeResult daily = decode("recurrence", {hexOf(sampleBlob("cal.daily"))});
  EXPECT_EQ(daily.code, kExitOk);
  EXPECT_EQ(daily.err, "");
  // Every third day from 2 November 2026 08:00 to 29 November 08:30.
  EXPECT_EQ(daily.out,
            "<recurrence maxDaysBefore=\"45\" maxDaysAfter=\"45\" startDate=\"134380800000000000\" "
            "endDate=\"134404146000000000\" occurrenceCount=\"10\">\r\n<Daily every=\"3\" />\r\n"
            "</recurrence>\r\n");

  // Each of the other six kinds: its pattern line.
  const struct {
    const char* key;
    std::string line;
  } series[] = {
      {"cal.weekdays", "<DailyWeekly />"},
      {"cal.weekly", "<Weekly onDays=\"monday\" every=\"2\" />"},
      {"cal.monthly", "<MonthlySpecific day=\"15\" every=\"1\" />"},
      {"cal.monthlynth", "<MonthlyFuzzy occurrence=\"2\" dayName=\"tuesday\" every=\"1\" />"},
      {"cal.yearly", "<YearlySpecific month=\"2\" day=\"3\" />"},
      {"cal.yearlynth", "<YearlyFuzzy occurrence=\"4\" dayName=\"thursday\" month=\"10\" />"},
  };
  for (const auto& s : series) {
    const DecodeResult result = decode("recurrence", {hexOf(sampleBlob(s.key))});
    EXPECT_EQ(result.code, kExitOk) << s.key;
    EXPECT_EQ(result.err, "") << s.key;
    EXPECT_EQ(result.out.rfind("<recurrence maxDaysBefore=\"45\" maxDaysAfter=\"45\" ", 0), 0u)
        << result.out;
    EXPECT_NE(result.out.find(">\r\n" + s.line + "\r\n</recurrence>\r\n"), std::string::npos)
        << s.key << ": " << result.out;
  }

  // Copied from a dump: any blanks and line breaks, over several arguments.
  const std::string hex = hexOf(sampleBlob("cal.daily"));
  const DecodeResult split = decode(
      "recurrence", {hex.substr(0, 10), hex.substr(10, 40) + "\r\n\t" + hex.substr(50, 6) + "  \n" +
                                            hex.substr(56, 30) + " " + hex.substr(86)});
  EXPECT_EQ(split.code, kExitOk);
  EXPECT_EQ(split.out, daily.out);
}

TEST_F(DecodeRecurrenceTest, RejectedBlobsPrintNothingAndTheLogsReason) {
  store::AppointmentRecurrence never;
  never.pattern.frequency = store::kRecurWeekly;
  never.pattern.patternType = store::kPatternWeek;
  never.pattern.dayMask = 0x02;
  never.pattern.period = 1;
  never.pattern.endType = 0xFFFFFFFF;
  std::vector<uint8_t> shortBlob = store::encodeAppointmentRecurrence(never);
  shortBlob.resize(67);
  const struct {
    std::string hex;
    std::string reason;
  } cases[] = {
      {hexOf(store::encodeAppointmentRecurrence(never)), "Invalid termination type."},
      {hexOf(shortBlob), "Invalid recurrence data."},
  };
  for (const auto& c : cases)
    testing::expectRejected(decode("recurrence", {c.hex}), "PIM::MAPIRecurrence::parse", c.reason);
}

TEST_F(DecodeRecurrenceTest, TextThatIsNoHexIsAUsageError) {
  for (const char* text : {"0430043", "0x3004", "04 30 0g 30", "04300430,0B20"}) {
    const DecodeResult result = decode("recurrence", {text});
    EXPECT_EQ(result.code, kExitUsage) << text;
    EXPECT_EQ(result.out, "") << text;
    EXPECT_NE(result.err, "") << text;
  }
}

}  // namespace
}  // namespace PIM
