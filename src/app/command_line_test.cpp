// The options every store command shares.
#include "app/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace PIM::testing {
namespace {

TEST(CommonOptionsTest, ValuesAreTakenAndEmptyOnesRefused) {
  struct Case {
    std::vector<std::string> args;
    const char* error;  // null when the arguments parse
    const char* dataDir;
    size_t rest;
  } const cases[] = {
      {{"--data-dir", "/d", "--now"}, nullptr, "/d", 1},
      {{"--data-dir=/d"}, nullptr, "/d", 0},
      {{"--data-dir"}, "--data-dir needs a value", "", 0},
      // Empty text would quietly stand for the default folder.
      {{"--data-dir", ""}, "--data-dir needs a value, not empty text", "", 0},
      {{"--data-dir="}, "--data-dir needs a value, not empty text", "", 0},
      {{"--store="}, "--store needs a value, not empty text", "", 0},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = c.args;
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    CommonOptions options;
    std::string error;
    const bool parsed =
        parseCommonOptions(static_cast<int>(argv.size()), argv.data(), options, error);
    SCOPED_TRACE(c.args.front());
    EXPECT_EQ(parsed, c.error == nullptr);
    EXPECT_EQ(error, c.error ? c.error : "");
    if (parsed) {
      EXPECT_EQ(options.dataDir, c.dataDir);
      EXPECT_EQ(options.rest.size(), c.rest);
    }
  }
}

}  // namespace
}  // namespace PIM::testing
