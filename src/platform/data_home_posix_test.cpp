// Where the data and the log go off Windows: $XDG_DATA_HOME or
// ~/.local/share, made when missing, and the user database's home folder
// when HOME is unset.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "core/utils.h"
#include "testing/test_support.h"

namespace PIM::testing {
namespace {

// Sets or unsets variables for the life of the object.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    if (value) {
      setenv(name, value, 1);
    } else {
      unsetenv(name);
    }
  }
  ~ScopedVariable() {
    if (old_) {
      setenv(name_, old_->c_str(), 1);
    } else {
      unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

bool isFolder(const std::u16string& path) {
  std::vector<FolderEntry> entries;
  return env()->listFolder(path, entries);
}

TEST(DataHomeTest, AMissingDataHomeIsMadeWithTheFoldersBelowIt) {
  TempDir dir;
  const std::string root = toUtf8(dir.path());
  struct Case {
    const char* what;
    std::string xdg, home;  // "-" unsets
    std::string expected;
  } const cases[] = {
      {"missing XDG_DATA_HOME, two levels deep", root + "/x/share", "-", root + "/x/share"},
      {"relative XDG_DATA_HOME is ignored", "rel", root + "/home", root + "/home/.local/share"},
      {"new home folder", "-", root + "/new-home", root + "/new-home/.local/share"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ScopedVariable xdg("XDG_DATA_HOME", c.xdg == "-" ? nullptr : c.xdg.c_str());
    ScopedVariable home("HOME", c.home == "-" ? nullptr : c.home.c_str());
    EXPECT_EQ(toUtf8(env()->specialFolder(kCsidlLocalAppData)), c.expected);
    EXPECT_EQ(toUtf8(getDataFolder()), c.expected + "/Corvel/CVTK_Data");
    EXPECT_TRUE(isFolder(fromUtf8(c.expected + "/Corvel/CVTK_Data")));
    EXPECT_EQ(toUtf8(getLogsFolder()), c.expected + "/Corvel/CVTK_Logs");
  }
}

TEST(DataHomeTest, WithoutHomeTheUserDatabaseSaysWhereHomeIs) {
  const struct passwd* user = getpwuid(getuid());
  if (!user || !user->pw_dir || !user->pw_dir[0]) GTEST_SKIP() << "no home in the user database";
  const std::string expected = std::string(user->pw_dir) + "/.local/share";
  ScopedVariable xdg("XDG_DATA_HOME", nullptr);
  for (const char* home : {static_cast<const char*>(nullptr), ""}) {
    ScopedVariable unset("HOME", home);
    EXPECT_EQ(toUtf8(env()->specialFolder(kCsidlLocalAppData)), expected);
    EXPECT_EQ(toUtf8(getLogsFolder()), expected + "/Corvel/CVTK_Logs");
  }
}

}  // namespace
}  // namespace PIM::testing
