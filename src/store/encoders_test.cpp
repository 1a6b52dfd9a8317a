// The blob encoders against hand-made layouts and real captured blobs.
#include <gtest/gtest.h>

#include <filesystem>

#include "store/one_off_entry_id.h"
#include "store/recurrence_blob.h"
#include "testing/test_support.h"

namespace PIM::store {
namespace {

Bytes fromHex(const std::string& hex) {
  Bytes out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    out.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  return out;
}

// A captured blob (hex text), or empty when the shared test data is absent.
Bytes captured(const std::string& name) {
  const std::string dir = PIM::testing::sharedTestData();
  if (dir.empty()) return {};
  const std::filesystem::path path = std::filesystem::path(dir) / "mapi-blobs" / name;
  if (!std::filesystem::exists(path)) return {};
  std::string text = PIM::testing::readFileBytes(path.u16string());
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return fromHex(text);
}

uint32_t u32At(const Bytes& b, size_t at) {
  return static_cast<uint32_t>(b.at(at)) | static_cast<uint32_t>(b.at(at + 1)) << 8 |
         static_cast<uint32_t>(b.at(at + 2)) << 16 | static_cast<uint32_t>(b.at(at + 3)) << 24;
}

TEST(OneOffEntryIdTest, UnicodeAndEightBitLayouts) {
  OneOffEntryId wide{u"Zoë", u"SMTP", u"z@x", true, true};
  const Bytes w = encodeOneOffEntryId(wide);
  EXPECT_EQ(w, fromHex("00000000812B1FA4BEA310199D6E00DD010F5402"
                       "0000"
                       "0180"
                       "5A006F00EB000000"
                       "53004D00540050000000"
                       "7A00400078000000"));
  OneOffEntryId narrow{u"Zoë", u"SMTP", u"z@x", false};
  EXPECT_EQ(encodeOneOffEntryId(narrow), fromHex("00000000812B1FA4BEA310199D6E00DD010F5402"
                                                 "0000"
                                                 "0000"
                                                 "5A6FEB00"
                                                 "534D545000"
                                                 "7A407800"));
}

TEST(OneOffEntryIdTest, ReproducesCapturedIdentifiers) {
  const Bytes eight = captured("ENTRYID-17.dat");
  const Bytes wide = captured("ENTRYID-40.dat");
  if (eight.empty() || wide.empty()) GTEST_SKIP() << "no shared test data";
  OneOffEntryId admin{u"'admin@example.com'", u"SMTP", u"admin@example.com", false, true};
  admin.otherFlags = 0x1000;
  EXPECT_EQ(encodeOneOffEntryId(admin), eight);
  OneOffEntryId nobody{u"nobody_@microsoft.com", u"SMTP", u"nobody_@microsoft.com", true, true};
  EXPECT_EQ(encodeOneOffEntryId(nobody), wide);
}

TEST(RecurrenceBlobTest, FirstDateTimeFollowsThePublishedRules) {
  RecurrencePattern daily;
  daily.period = 2880;
  daily.startDate = minutesSince1601(2024, 1, 1);
  EXPECT_EQ(firstDateTimeFor(daily), daily.startDate % 2880);

  RecurrencePattern yearly;
  yearly.frequency = kRecurYearly;
  yearly.patternType = kPatternMonth;
  yearly.period = 12;
  yearly.startDate = minutesSince1601(2024, 3, 10);
  EXPECT_EQ(firstDateTimeFor(yearly), 59u * 1440) << "1 March 1601";

  RecurrencePattern monthly = yearly;
  monthly.frequency = kRecurMonthly;
  monthly.period = 3;
  monthly.startDate = minutesSince1601(2024, 5, 20);  // 5080 months after January 1601
  EXPECT_EQ(firstDateTimeFor(monthly), 31u * 1440) << "1 February 1601";

  // Weekly, from captured blobs: every 2 weeks, weeks starting on Sunday.
  RecurrencePattern weekly;
  weekly.frequency = kRecurWeekly;
  weekly.patternType = kPatternWeek;
  weekly.period = 2;
  weekly.startDate = 0x0CD8F480;
  EXPECT_EQ(firstDateTimeFor(weekly), 0x21C0u);
  weekly.startDate = 0x0CD78140;
  EXPECT_EQ(firstDateTimeFor(weekly), 0x4920u);
}

TEST(RecurrenceBlobTest, FieldsSitAtTheirPublishedOffsets) {
  // Monthly on the last Friday (8 pattern bytes), 2 deleted, 1 modified.
  AppointmentRecurrence r;
  r.pattern.frequency = kRecurMonthly;
  r.pattern.patternType = kPatternMonthNth;
  r.pattern.period = 1;
  r.pattern.dayMask = 0x20;
  r.pattern.nth = 5;
  r.pattern.endType = kEndAfterCount;
  r.pattern.occurrenceCount = 12;
  r.pattern.startDate = minutesSince1601(2024, 1, 26);
  r.pattern.endDate = minutesSince1601(2024, 12, 27);
  r.pattern.deleted = {minutesSince1601(2024, 3, 29)};
  r.startTimeOffset = 600;
  r.endTimeOffset = 660;
  RecurrenceException e;
  e.originalStart = minutesSince1601(2024, 2, 23, 10, 0);
  e.start = minutesSince1601(2024, 2, 22, 10, 0);
  e.end = minutesSince1601(2024, 2, 22, 11, 0);
  e.location = u"Room 2";
  r.exceptions = {e};
  const Bytes b = encodeAppointmentRecurrence(r);
  const size_t S = 8, D = 2, M = 1;
  EXPECT_EQ(u32At(b, 0), 0x30043004u);
  EXPECT_EQ(b[4], 0x0C);
  EXPECT_EQ(b[5], 0x20);
  EXPECT_EQ(b[6], 3);
  EXPECT_EQ(u32At(b, 14), 1u);
  EXPECT_EQ(u32At(b, 22), 0x20u);
  EXPECT_EQ(u32At(b, 26), 5u);
  EXPECT_EQ(u32At(b, 22 + S), kEndAfterCount);
  EXPECT_EQ(u32At(b, 26 + S), 12u);
  EXPECT_EQ(u32At(b, 34 + S), D);
  EXPECT_EQ(u32At(b, 38 + S), minutesSince1601(2024, 2, 23)) << "sorted, the original first";
  EXPECT_EQ(u32At(b, 42 + S), minutesSince1601(2024, 3, 29));
  EXPECT_EQ(u32At(b, 38 + S + 4 * D), M);
  EXPECT_EQ(u32At(b, 42 + S + 4 * D), minutesSince1601(2024, 2, 22));
  EXPECT_EQ(u32At(b, 42 + S + 4 * D + 4 * M), r.pattern.startDate);
  EXPECT_EQ(u32At(b, 46 + S + 4 * D + 4 * M), r.pattern.endDate);
  EXPECT_EQ(u32At(b, 50 + S + 4 * D + 4 * M), 0x3006u);
  EXPECT_EQ(u32At(b, 54 + S + 4 * D + 4 * M), 0x3009u);
  EXPECT_EQ(u32At(b, 58 + S + 4 * D + 4 * M), 600u);
  EXPECT_EQ(u32At(b, 62 + S + 4 * D + 4 * M), 660u);
  const size_t exceptions = 66 + S + 4 * D + 4 * M;
  EXPECT_EQ(b[exceptions], 1);
  EXPECT_EQ(b[exceptions + 1], 0);
  // ExceptionInfo: times, override flags 0x0010, 8-bit location with both lengths.
  EXPECT_EQ(u32At(b, exceptions + 2), e.start);
  EXPECT_EQ(u32At(b, exceptions + 10), e.originalStart);
  EXPECT_EQ(b[exceptions + 14], 0x10);
  EXPECT_EQ(b[exceptions + 16], 7);
  EXPECT_EQ(b[exceptions + 18], 6);
  EXPECT_EQ(std::string(b.begin() + static_cast<long>(exceptions) + 20,
                        b.begin() + static_cast<long>(exceptions) + 26),
            "Room 2");
  // Then ReservedBlock1Size, the extended exception with the wide location,
  // and ReservedBlock2Size.
  const size_t extended = exceptions + 26 + 4;
  EXPECT_EQ(u32At(b, extended), 4u);
  EXPECT_EQ(u32At(b, extended + 12), e.start);
  EXPECT_EQ(b[extended + 24], 6);
  EXPECT_EQ(b.size(), extended + 24 + 2 + 12 + 4 + 4);
}

TEST(RecurrenceBlobTest, ReproducesCapturedBlobs) {
  const Bytes appointment = captured("APPOINTMENTRECURRENCEPATTERN-1.dat");
  const Bytes pattern = captured("RECURRENCEPATTERN-2.dat");
  if (appointment.empty() || pattern.empty()) GTEST_SKIP() << "no shared test data";

  AppointmentRecurrence r;
  r.pattern.frequency = kRecurWeekly;
  r.pattern.patternType = kPatternWeek;
  r.pattern.period = 2;
  r.pattern.dayMask = 0x10;
  r.pattern.endType = kEndAfterDate;
  r.pattern.occurrenceCount = 18;
  r.pattern.deleted = {0x0CDBB940, 0x0CDC0800, 0x0CDC56C0};
  r.pattern.startDate = 0x0CD8F480;
  r.pattern.endDate = 0x0CDE56A0;
  r.startTimeOffset = 870;
  r.endTimeOffset = 930;
  RecurrenceException e;
  e.start = e.originalStart = 0x0CDB6DE6;
  e.end = 0x0CDB6E22;
  e.meetingType = 1;
  e.subType = 0;
  e.exceptionalBody = true;
  e.changeHighlight = 0x180;
  r.exceptions = {e};
  EXPECT_EQ(encodeAppointmentRecurrence(r), appointment);

  RecurrencePattern p;
  p.frequency = kRecurWeekly;
  p.patternType = kPatternWeek;
  p.period = 2;
  p.dayMask = 0x02;
  p.endType = kEndAfterDate;
  p.occurrenceCount = 6;
  p.startDate = 0x0CD78140;
  p.endDate = 0x0CD90B00;
  EXPECT_EQ(encodeRecurrencePattern(p), pattern);
}

}  // namespace
}  // namespace PIM::store
