// The remaining-time estimate of the progress display.
#include "capture/progress_estimate.h"

#include <gtest/gtest.h>

#include <string>

namespace PIM {
namespace {

std::string show(const ProgressEstimate::Text& text) {
  std::string key;
  for (const char16_t* c = text.key; *c; ++c) key += static_cast<char>(*c);
  return key.substr(key.rfind('_') + 1) + " " + std::to_string(text.number);
}

TEST(ProgressEstimate, NothingUntilTheFirstFolderIsDone) {
  ProgressEstimate estimate;
  ProgressEstimate::Text text{};
  EXPECT_FALSE(estimate.update(4, 0, 1000, 50000, text));
  EXPECT_EQ(ProgressEstimate::percent(4, 0), 0);
  EXPECT_EQ(ProgressEstimate::percent(0, 0), 0);
  EXPECT_EQ(ProgressEstimate::percent(3, 2), 66);
}

TEST(ProgressEstimate, StepsAndCountdownBetweenChanges) {
  ProgressEstimate estimate;
  ProgressEstimate::Text text{};
  // One of 10 folders after 20 s: 9 × 20 s = 180 s, three whole minutes.
  ASSERT_TRUE(estimate.update(10, 1, 0, 20000, text));
  EXPECT_EQ(show(text), "MINUTES 3");
  // 61..119 s show one minute.
  ASSERT_TRUE(estimate.update(10, 1, 0, 20000 + 100000, text));
  EXPECT_EQ(show(text), "MINUTES 1");
  // Below a minute the estimate rounds up to 60, 30 or 15 seconds.
  ASSERT_TRUE(estimate.update(10, 1, 0, 20000 + 125000, text));
  EXPECT_EQ(show(text), "SECONDS 60");
  ASSERT_TRUE(estimate.update(10, 1, 0, 20000 + 155000, text));
  EXPECT_EQ(show(text), "SECONDS 30");
  ASSERT_TRUE(estimate.update(10, 1, 0, 20000 + 166000, text));
  EXPECT_EQ(show(text), "SECONDS 15");
  // A long folder: the estimate runs out and stays at less than ten.
  ASSERT_TRUE(estimate.update(10, 1, 0, 20000 + 175000, text));
  EXPECT_EQ(show(text), "LESSTHANTEN 0");
  ASSERT_TRUE(estimate.update(10, 1, 0, 20000 + 900000, text));
  EXPECT_EQ(show(text), "LESSTHANTEN 0");
  // The next change starts a new average: 9 folders in 920 s, one to go.
  ASSERT_TRUE(estimate.update(10, 9, 0, 920000, text));
  EXPECT_EQ(show(text), "MINUTES 1");
}

TEST(ProgressEstimate, FormatsFromTheLanguageStrings) {
  // Without language strings the key itself stands in for the text.
  EXPECT_EQ(ProgressEstimate::format({u"NO_SUCH_KEY_%1", 7}), u"NO_SUCH_KEY_7");
}

}  // namespace
}  // namespace PIM
