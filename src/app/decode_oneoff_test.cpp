// `ferrant decode oneoff` on the members of the sample mailbox's
// distribution lists and on values no store would write.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/decode_test_util.h"
#include "app/exit_codes.h"
#include "core/utils.h"
#include "store/fixture.h"
#include "store/profile.h"

namespace PIM {
namespace {

using Result = testing::DecodeResult;
using testing::hexOf;

Result decodeOneOff(std::vector<std::string> args) { return testing::decode("oneoff", args); }

// The members of a distribution list of the sample mailbox, as stored.
std::vector<std::vector<uint8_t>> membersOf(const std::string& key) {
  static const std::shared_ptr<store::Profile> sample =
      store::loadFixtureFile(fromUtf8(FERRANT_SAMPLE_MAILBOX));
  const std::shared_ptr<const store::Item> item = sample->itemCopy(sample->byKey(key));
  if (item)
    for (const store::Prop& prop : item->props.all())
      if (prop.type() == PT_MV_BINARY) return prop.bins();
  ADD_FAILURE() << "no members in " << key;
  return {};
}

TEST(DecodeOneOffTest, SampleMembersPrintAsTheCaptureWritesThem) {
  const std::vector<std::vector<uint8_t>> team = membersOf("dl.team");
  const std::vector<std::vector<uint8_t>> legacy = membersOf("dl.legacy");
  ASSERT_EQ(team.size(), 4u);
  ASSERT_EQ(legacy.size(), 3u);
  const struct {
    const std::vector<uint8_t>& value;
    std::string printed;
  } cases[] = {
      {team[0], "Дмитрий Соколов <dmitri.sokolov@example.ru>\n"},
      {team[2], "山田 太郎 <taro.yamada@example.jp>\n"},
      {team[3], "Renée Lefèvre\n"},                           // an Exchange member: its name alone
      {legacy[0], "José Müller <jose.muller@example.de>\n"},  // 8-bit
      {legacy[1], "Françoise Façon <francoise@example.fr>\n"},
  };
  for (const auto& c : cases) {
    const Result result = decodeOneOff({hexOf(c.value)});
    EXPECT_EQ(result.code, kExitOk) << c.printed;
    EXPECT_EQ(result.out, c.printed);
    EXPECT_EQ(result.err, "") << c.printed;
  }
  // Copied from a dump: any blanks and line breaks, over several arguments.
  const std::string hex = hexOf(team[1]);
  const Result split =
      decodeOneOff({hex.substr(0, 10),
                    hex.substr(10, 40) + "\r\n\t" + hex.substr(50, 6) + " " + hex.substr(56)});
  EXPECT_EQ(split.out, "דנה כהן <dana.cohen@example.co.il>\n");
  EXPECT_EQ(split.code, kExitOk);
}

TEST(DecodeOneOffTest, RejectedValuesPrintNothingAndTheLogsReason) {
  const std::string head = "00000000812B1FA4BEA310199D6E00DD010F54020000";
  const struct {
    std::string hex;
    std::string reason;
  } cases[] = {
      {"00000000812B1FA4BEA310199D6E00DD010F5402",
       "Data stored in the binary blob is invalid for this entry."},
      {head + "0080" + "41000000" + "00",
       "Data stored in the binary blob for this entry is either not unicode, or invalid."},
      {head + "0000" + "4100534D545000", "Invalid number of strings stored in binary blog."},
  };
  for (const auto& c : cases)
    testing::expectRejected(decodeOneOff({c.hex}), "PIM::decodeOneOffMember", c.reason);
}

}  // namespace
}  // namespace PIM
