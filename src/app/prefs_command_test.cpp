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

TEST_F(PrefsCommandTest, AFolderIsChosenOnlyForItsKindAndOnlyOnce) {
  const std::string box = "Mailbox - João Conceição/";
  const struct {
    std::vector<std::string> args;
    int exit;
    std::string error;
  } cases[] = {
      {{"email", "add", box + "Tasks"},
       kExitUsage,
       "ferrant prefs: '" + box + "Tasks' is for tasks, not for email: choose it with 'ferrant " +
           "prefs folders tasks add'\n"},
      {{"contacts", "add", box + "Sent Items"},
       kExitUsage,
       "ferrant prefs: '" + box + "Sent Items' is for email, not for contacts: choose it with " +
           "'ferrant prefs folders email add'\n"},
      {{"calendar", "add", "Archive 2025 — Архив/Correio 2025"},
       kExitUsage,
       "ferrant prefs: 'Archive 2025 — Архив/Correio 2025' is for email, not for calendar: "
       "choose it with 'ferrant prefs folders email add'\n"},
      // The default folders are chosen at the first start.
      {{"tasks", "add", box + "Tasks"},
       kExitUsage,
       "ferrant prefs: '" + box + "Tasks' is chosen already\n"},
      {{"email", "add", box + "Inbox", box + "INBOX"},
       kExitUsage,
       "ferrant prefs: '" + box + "Inbox' is chosen already\n"},
      {{"calendar", "add", "Archive 2025 — Архив/Calendário 2025"}, kExitOk, ""},
      {{"email", "add", box + "Inbox", box + "Inbox/Recibos & فواتير"}, kExitOk, ""},
  };
  ASSERT_EQ(run({}), kExitOk);  // opens, and so makes, the keys
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args[0] + " " + c.args.back());
    const std::string before = keys_.store().text();
    std::vector<std::string> args = {"folders"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    EXPECT_EQ(run(args), c.exit);
    EXPECT_EQ(err_.str(), c.error);
    // A refused change writes nothing, not even the folders before the bad one.
    if (c.exit != kExitOk) {
      EXPECT_EQ(keys_.store().text(), before);
    }
  }
  EXPECT_EQ(stored(u"\\Calendar", u"captureFolderCount"), 2u);
  EXPECT_EQ(stored(u"\\Email", u"captureFolderCount"), 2u);

  // Settings chosen before kinds were checked: the show marks the folder,
  // and it cannot be chosen for its own kind until removed from the other.
  std::string why;
  ASSERT_TRUE(Preferences::instance().change(
      [](PreferenceValues& values) {
        values.email.folders.push_back(values.tasks.folders.at(0));
        values.tasks.folders.clear();
        return true;
      },
      why));
  ASSERT_EQ(run({}), kExitOk);
  EXPECT_NE(out_.str().find("email folders:\n  " + box + "Inbox\n  " + box +
                            "Inbox/Recibos & فواتير\n  " + box + "Tasks  (for tasks)\n"),
            std::string::npos)
      << out_.str();
  EXPECT_EQ(run({"folders", "tasks", "add", box + "Tasks"}), kExitUsage);
  EXPECT_EQ(err_.str(), "ferrant prefs: '" + box + "Tasks' is chosen already for email\n");
  EXPECT_EQ(run({"folders", "email", "remove", box + "Tasks"}), kExitOk);
  EXPECT_EQ(run({"folders", "tasks", "add", box + "Tasks"}), kExitOk);

  // Listings show only the folders of their kind.
  ASSERT_EQ(run({"folders", "email", "list"}), kExitOk);
  EXPECT_EQ(out_.str().find("Tasks"), std::string::npos);
  EXPECT_NE(out_.str().find("* " + box + "Inbox\n"), std::string::npos);
}

// Several commands at once each re-read what they change: a show writes no
// value and a set writes its value alone.
TEST_F(PrefsCommandTest, ShowWritesNothingAndSetWritesItsValueAlone) {
  ASSERT_EQ(run({}), kExitOk);
  ASSERT_EQ(run({"folders", "email", "list"}), kExitOk);
  const std::string text = keys_.store().text();
  EXPECT_EQ(text.find("\"=", text.find("\n[")), std::string::npos) << text;

  // Another process saved an interval after this one loaded its settings.
  Preferences::instance().captureInterval = 15;
  RegistryKey(env()->keyStore().currentUserRoot(), u"Software\\Corvel\\CVTK")
      .writeDword(u"captureInterval", 46);
  ASSERT_EQ(run({"set", "calendar.captureDaysAfter", "143"}), kExitOk);
  EXPECT_EQ(stored(u"", u"captureInterval"), 46u);
  EXPECT_EQ(stored(u"\\Calendar", u"captureDaysAfter"), 143u);
  EXPECT_EQ(stored(u"\\Calendar", u"captureDaysBefore"), 12345u);
  EXPECT_EQ(stored(u"\\Calendar", u"captureFolderCount"), 12345u);
  EXPECT_EQ(stored(u"", u"autoCaptureInterval"), 12345u);
}

TEST_F(PrefsCommandTest, ChangesThatCannotBeSavedExitWithTheStoreError) {
  keys_.store().refuseWrites(kKeyDiskFull);
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"set", "captureInterval", "46"},
        {"folders", "email", "add", "Mailbox - João Conceição/Inbox"},
        {"folders", "tasks", "clear"}}) {
    SCOPED_TRACE(args[1]);
    EXPECT_EQ(run(args), kExitStore);
    EXPECT_EQ(err_.str().rfind("ferrant prefs: the settings were not saved: ", 0), 0u)
        << err_.str();
  }
  // Nothing to change is no failure.
  EXPECT_EQ(run({"set", "captureInterval", "15"}), kExitOk);
}

}  // namespace
}  // namespace PIM::testing
