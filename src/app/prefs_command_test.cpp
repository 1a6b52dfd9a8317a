// `ferrant prefs` against the sample mailbox, with the settings in memory.
#include "app/prefs_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "app/exit_codes.h"
#include "app/store_session.h"
#include "core/registry_key.h"
#include "core/utils.h"
#include "prefs/preferences.h"
#include "testing/memory_key_store.h"

namespace PIM::testing {
namespace {

class PrefsCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Preferences::instance().resetToDefaults();
    std::string error;
    ASSERT_TRUE(session_.open(fromUtf8(FERRANT_SAMPLE_MAILBOX), error)) << error;
  }
  void TearDown() override { Preferences::instance().resetToDefaults(); }

  int run(std::vector<std::string> args) {
    out_.str("");
    err_.str("");
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    return runPrefs(static_cast<int>(argv.size()), argv.data(), session_, out_, err_);
  }
  uint32_t stored(const std::u16string& key, const std::u16string& name) {
    return RegistryKey(env()->keyStore().currentUserRoot(), u"Software\\Corvel\\CVTK" + key)
        .readDword(name, 12345);
  }

  MemoryKeyStoreEnv keys_;
  StoreSession session_;
  std::ostringstream out_, err_;
};

TEST_F(PrefsCommandTest, ShowsEverySettingAndTheDefaultFolders) {
  ASSERT_EQ(run({}), kExitOk);
  const std::string shown = out_.str();
  EXPECT_NE(shown.find("captureMode                         automatic\n"), std::string::npos);
  EXPECT_NE(shown.find("email.captureEmailCount             500\n"), std::string::npos);
  EXPECT_NE(shown.find("calendar folders:\n  Mailbox - João Conceição/Calendar\n"),
            std::string::npos);
  EXPECT_NE(shown.find("email folders: none\n"), std::string::npos);
  // 30 settings and 4 folder headings, 3 default folders.
  EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 37);
}

TEST_F(PrefsCommandTest, NumbersAreClampedToTheSheetsRangesAndSaved) {
  EXPECT_EQ(run({"set", "captureInterval", "0"}), kExitOk);
  EXPECT_EQ(stored(u"", u"captureInterval"), 1u);
  EXPECT_EQ(out_.str(), "ERROR_BAD_CAPTURE_PREFERENCES\nERROR_BAD_CAPTURE_INTERVAL\n");
  EXPECT_EQ(run({"set", "calendar.captureDaysBefore", "-3"}), kExitOk);
  EXPECT_EQ(stored(u"\\Calendar", u"captureDaysBefore"), 0u);
  EXPECT_EQ(run({"set", "email.captureEmailCount", "1001"}), kExitOk);
  EXPECT_EQ(stored(u"\\Email", u"captureEmailCount"), 1000u);
  EXPECT_EQ(run({"set", "tasks.maxTaskCapture", "50"}), kExitOk);
  EXPECT_EQ(out_.str(), "");
  EXPECT_EQ(run({"set", "captureMode", "startup"}), kExitOk);
  EXPECT_EQ(stored(u"", u"autoCaptureInterval"), 1u);
  EXPECT_EQ(run({"set", "contacts.captureTitle", "off"}), kExitOk);
  EXPECT_EQ(stored(u"\\Contacts", u"captureTitle"), 0u);

  EXPECT_EQ(run({"set", "contacts.captureTitle", "maybe"}), kExitUsage);
  EXPECT_EQ(run({"set", "captureInterval", "12x"}), kExitUsage);
  EXPECT_EQ(run({"set", "noSuchSetting", "1"}), kExitUsage);
  EXPECT_EQ(err_.str(), "ferrant prefs: unknown setting 'noSuchSetting' (see 'ferrant prefs')\n");
}

TEST_F(PrefsCommandTest, FoldersAreChosenByPath) {
  EXPECT_EQ(run({"folders", "email", "add", "mailbox - joão conceição/inbox",
                 "Archive 2025 — Архив/Correio 2025"}),
            kExitOk);
  EXPECT_EQ(Preferences::instance().email.folders.size(), 2u);
  EXPECT_EQ(stored(u"\\Email", u"captureFolderCount"), 2u);
  ASSERT_EQ(run({"folders", "email", "list"}), kExitOk);
  EXPECT_NE(out_.str().find("* Mailbox - João Conceição/Inbox\n"), std::string::npos);
  EXPECT_NE(out_.str().find("  Mailbox - João Conceição/Sent Items\n"), std::string::npos);

  EXPECT_EQ(run({"folders", "email", "remove", "Mailbox - João Conceição/Inbox"}), kExitOk);
  EXPECT_EQ(stored(u"\\Email", u"captureFolderCount"), 1u);
  EXPECT_EQ(run({"folders", "tasks", "clear"}), kExitOk);
  EXPECT_EQ(stored(u"\\Tasks", u"captureFolderCount"), 0u);

  EXPECT_EQ(run({"folders", "email", "add", "Mailbox - João Conceição/Nowhere"}), kExitUsage);
  EXPECT_EQ(run({"folders", "notes", "list"}), kExitUsage);
}

}  // namespace
}  // namespace PIM::testing
