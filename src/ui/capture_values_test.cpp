// The Capture page's rules: the five numbers, their ranges, one message for
// every bad value, and the capture mode behind the radio buttons.
#include "ui/capture_values.h"

#include <gtest/gtest.h>

#include "core/resource_loader.h"
#include "core/utils.h"
#include "platform/env.h"

namespace PIM {
namespace {

class CaptureValuesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResourceLoader::freeInstance();
    ResourceLoader::instance()->readResourceString(getDllPath() + u"Language" + kPathSeparator +
                                                   u"strings.ENU");
    ASSERT_FALSE(text(u"ERROR_BAD_CAPTURE_PREFERENCES").empty());
  }
  void TearDown() override { ResourceLoader::freeInstance(); }
  static std::u16string text(const char16_t* key) {
    return ResourceLoader::instance()->getStringValue(key, u"");
  }
  // The line of a field's error with its bounds in place.
  static std::u16string errorLine(const char16_t* key, const char16_t* low, const char16_t* high) {
    return strReplace(strReplace(text(key), u"%1", low), u"%2", high);
  }
};

TEST_F(CaptureValuesTest, ParsesTheEditTextAsASignedDecimal) {
  struct Case {
    std::u16string text;
    std::optional<int32_t> value;
  };
  const Case cases[] = {
      {u"15", 15},
      {u"0", 0},
      {u"-3", -3},
      {u"+7", 7},
      {u"  42 ", 42},
      {u"007", 7},
      {u"2147483647", 2147483647},
      {u"-2147483648", INT32_MIN},
      {u"2147483648", {}},
      {u"-2147483649", {}},
      {u"99999999999999999999", {}},
      {u"", {}},
      {u"  ", {}},
      {u"-", {}},
      {u"12abc", {}},
      {u"abc", {}},
      {u"1 2", {}},
      {u"1.5", {}},
      {u"\u0661", {}},  // Arabic-Indic one: not an ASCII digit
  };
  for (const Case& c : cases) {
    EXPECT_EQ(parseCaptureNumber(c.text), c.value) << toUtf8(c.text);
  }
}

TEST_F(CaptureValuesTest, EachBadValueIsClampedToItsNearerBoundAndListedInTableOrder) {
  const std::u16string heading = text(u"ERROR_BAD_CAPTURE_PREFERENCES") + u"\n";
  const std::u16string interval = errorLine(u"ERROR_BAD_CAPTURE_INTERVAL", u"1", u"120");
  const std::u16string before = errorLine(u"ERROR_BAD_CAPTURE_DAYS_BEFORE", u"0", u"180");
  const std::u16string after = errorLine(u"ERROR_BAD_CAPTURE_DAYS_AFTER", u"0", u"180");
  const std::u16string tasks = errorLine(u"ERROR_BAD_TASK_CAPTURE", u"1", u"50");
  const std::u16string emails = errorLine(u"ERROR_BAD_EMAIL_CAPTURE", u"1", u"1000");
  struct Case {
    const char* what;
    CaptureTexts texts;  // interval, before, after, tasks, e-mails
    CaptureNumbers values;
    std::u16string message;  // empty: accepted
  };
  const Case cases[] = {
      {"all good", {u"15", u"45", u"45", u"25", u"500"}, {15, 45, 45, 25, 500}, u""},
      {"every bound itself", {u"1", u"0", u"0", u"1", u"1"}, {1, 0, 0, 1, 1}, u""},
      {"every upper bound",
       {u"120", u"180", u"180", u"50", u"1000"},
       {120, 180, 180, 50, 1000},
       u""},
      {"interval 0",
       {u"0", u"45", u"45", u"25", u"500"},
       {1, 45, 45, 25, 500},
       heading + u"\n" + interval},
      {"interval 500",
       {u"500", u"45", u"45", u"25", u"500"},
       {120, 45, 45, 25, 500},
       heading + u"\n" + interval},
      {"negative days and 181",
       {u"15", u"-1", u"181", u"25", u"500"},
       {15, 0, 180, 25, 500},
       heading + u"\n" + before + u"\n" + after},
      {"tasks and e-mails both ends",
       {u"15", u"45", u"45", u"51", u"0"},
       {15, 45, 45, 50, 1},
       heading + u"\n" + tasks + u"\n" + emails},
      {"every value bad, listed in table order",
       {u"121", u"181", u"-5", u"0", u"1001"},
       {120, 180, 0, 1, 1000},
       heading + u"\n" + interval + u"\n" + before + u"\n" + after + u"\n" + tasks + u"\n" +
           emails},
      {"no number is below the range",
       {u"", u"x", u"45", u"1e3", u"500"},
       {1, 0, 45, 1, 500},
       heading + u"\n" + interval + u"\n" + before + u"\n" + tasks},
      {"far beyond 32 bits",
       {u"15", u"45", u"45", u"25", u"99999999999"},
       {15, 45, 45, 25, 1},
       heading + u"\n" + emails},
  };
  for (const Case& c : cases) {
    const CaptureCheck check = checkCaptureTexts(c.texts);
    EXPECT_EQ(check.accepted, c.message.empty()) << c.what;
    EXPECT_EQ(check.values, c.values) << c.what;
    EXPECT_EQ(toUtf8(check.message), toUtf8(c.message)) << c.what;
  }
}

TEST_F(CaptureValuesTest, TheFieldsAreTheTemplatesEditsInCheckingOrder) {
  const int edits[] = {217, 218, 228, 219, 220};
  for (size_t i = 0; i < kCaptureFieldCount; ++i) EXPECT_EQ(kCaptureFields[i].editId, edits[i]);
}

TEST_F(CaptureValuesTest, NumbersGoToTheirOwnPreferences) {
  PreferenceValues values;
  storeCaptureNumbers({7, 11, 13, 17, 19}, values);
  EXPECT_EQ(values.captureInterval.get(), 7u);
  EXPECT_EQ(values.calendar.captureDaysBefore.get(), 11u);
  EXPECT_EQ(values.calendar.captureDaysAfter.get(), 13u);
  EXPECT_EQ(values.tasks.maxTaskCapture.get(), 17u);
  EXPECT_EQ(values.email.captureEmailCount.get(), 19u);
  EXPECT_EQ(captureNumbersOf(values), (CaptureNumbers{7, 11, 13, 17, 19}));
  EXPECT_EQ(captureNumbersOf(PreferenceValues()), (CaptureNumbers{15, 45, 45, 25, 500}));
}

TEST_F(CaptureValuesTest, ModeAndRadioButtons) {
  struct ToRadio {
    uint32_t mode;
    int radio;
  };
  for (const ToRadio& c : {ToRadio{0, 215}, ToRadio{1, 216}, ToRadio{2, 214}, ToRadio{3, 214},
                           ToRadio{0xFFFFFFFF, 214}}) {
    EXPECT_EQ(radioOfCaptureMode(c.mode), c.radio) << c.mode;
  }
  struct FromRadios {
    bool manual, startup, automatic;
    std::optional<uint32_t> mode;
  };
  // Tested manual, start-up, automatic: the first checked one wins.
  const FromRadios cases[] = {
      {true, false, false, 0u}, {false, true, false, 1u}, {false, false, true, 2u},
      {true, true, true, 0u},   {false, true, true, 1u},  {false, false, false, {}},
  };
  for (const FromRadios& c : cases) {
    EXPECT_EQ(captureModeOfRadios(c.manual, c.startup, c.automatic), c.mode)
        << c.manual << c.startup << c.automatic;
  }
}

}  // namespace
}  // namespace PIM
