#include "ui/help_file.h"

#include <gtest/gtest.h>

#include <set>

#include "testing/test_support.h"

namespace PIM {
namespace {

constexpr char kDefaultShown[] =
    "No help file installed for the current language, default shown instead.";
constexpr char kNoDefault[] =
    "No help file installed for the current language, and there is no default.";

struct HelpCase {
  const char* what;
  std::set<std::u16string> installed;
  std::u16string fullCode;
  std::u16string simpleCode;
  std::u16string opened;
  const char* logLine;  // null: none
};

TEST(HelpFileTest, FullCodeThenTwoLettersThenEnglish) {
  const HelpCase cases[] = {
      {"full code first",
       {u"HELP_DEA.chm", u"HELP_DE.chm", u"HELP_ENU.chm"},
       u"DEA",
       u"DEU",
       u"HELP_DEA.chm",
       nullptr},
      {"two letters of the primary code",
       {u"HELP_DE.chm", u"HELP_ENU.chm"},
       u"DEA",
       u"DEU",
       u"HELP_DE.chm",
       nullptr},
      {"the primary code itself is never tried",
       {u"HELP_DEU.chm", u"HELP_ENU.chm"},
       u"DEA",
       u"DEU",
       u"HELP_ENU.chm",
       kDefaultShown},
      {"English is the language's own",
       {u"HELP_ENU.chm"},
       u"ENU",
       u"ENU",
       u"HELP_ENU.chm",
       nullptr},
      {"English when nothing else",
       {u"HELP_ENU.chm"},
       u"HEB",
       u"HEB",
       u"HELP_ENU.chm",
       kDefaultShown},
      {"unknown language", {u"HELP_ENU.chm"}, u"", u"", u"HELP_ENU.chm", kDefaultShown},
      {"nothing installed", {}, u"DEU", u"DEU", u"", kNoDefault},
  };
  for (const HelpCase& c : cases) {
    SCOPED_TRACE(c.what);
    testing::LogCapture log;
    std::vector<std::u16string> tried;
    const std::u16string found = findHelpFile(
        u"C:\\Ferrant\\Help\\", c.fullCode, c.simpleCode, [&](const std::u16string& path) {
          tried.push_back(path);
          const std::u16string prefix = u"C:\\Ferrant\\Help\\";
          return path.rfind(prefix, 0) == 0 && c.installed.count(path.substr(prefix.size())) > 0;
        });
    EXPECT_EQ(found, c.opened.empty() ? u"" : u"C:\\Ferrant\\Help\\" + c.opened);
    std::vector<std::string> expected;
    if (c.logLine) expected.push_back(c.logLine);
    EXPECT_EQ(log.messages(), expected);
    EXPECT_LE(tried.size(), 3u);
  }
}

}  // namespace
}  // namespace PIM
