// The settings as they are loaded from and saved to the key store.
#include "prefs/preferences.h"

#include <gtest/gtest.h>

#include "addin/outlook_app.h"
#include "core/registry_key.h"
#include "core/utils.h"
#include "store/store_test_util.h"
#include "testing/memory_key_store.h"
#include "testing/test_support.h"

namespace PIM::testing {
namespace {

class CountingListener : public IPreferencesListener {
 public:
  explicit CountingListener(std::vector<int>* calls, int id) : calls_(calls), id_(id) {}
  void onPreferencesChanged() override { calls_->push_back(id_); }

 private:
  std::vector<int>* calls_;
  int id_;
};

// The store profile of the store tests: its default store has a calendar,
// contacts and task folder.
class PreferencesTest : public store::testing::StoreTest {
 protected:
  void SetUp() override {
    store::testing::StoreTest::SetUp();
    prefs().resetToDefaults();
    OutlookApp::instance()->setMapiSession(session_.get());
  }
  void TearDown() override {
    OutlookApp::instance()->setMapiSession(nullptr);
    prefs().resetToDefaults();
    store::testing::StoreTest::TearDown();
  }
  static Preferences& prefs() { return Preferences::instance(); }
  OutlookFolder defaultFolder(const std::string& key) {
    return {EntryId(profile_->entryId(profile_->byKey(key))),
            EntryId(profile_->entryId(profile_->storeRef(0)))};
  }
  RegistryKey key(const std::u16string& below = {}) {
    return RegistryKey(env()->keyStore().currentUserRoot(), u"Software\\Corvel\\CVTK" + below);
  }

  // The store's text without its heading, comments and closing line, long
  // values on one line.
  static std::string values(const std::string& text) {
    std::string out = text.substr(text.find("\n[") + 1);
    for (size_t at; (at = out.find(",\\\n  ")) != std::string::npos;) out.replace(at, 5, ",");
    const std::string closing = "\n; end of settings\n";
    if (out.ends_with(closing)) out.resize(out.size() - closing.size());
    return out;
  }

  MemoryKeyStoreEnv keys_;
};

TEST_F(PreferencesTest, FirstLoadWritesEveryDefault) {
  std::vector<int> calls;
  CountingListener listener(&calls, 1);
  prefs().addListener(&listener);
  prefs().load();
  prefs().removeListener(&listener);
  EXPECT_EQ(calls, std::vector<int>{1});

  EXPECT_EQ(prefs().captureMode, CaptureAutomatic);
  EXPECT_EQ(prefs().calendar.folders, std::vector<OutlookFolder>{defaultFolder("calendar")});
  EXPECT_EQ(prefs().contacts.folders, std::vector<OutlookFolder>{defaultFolder("contacts")});
  EXPECT_EQ(prefs().tasks.folders, std::vector<OutlookFolder>{defaultFolder("tasks")});
  EXPECT_TRUE(prefs().email.folders.empty());

  auto folderValue = [&](const std::string& key) {
    std::string hex;
    for (uint8_t b : Preferences::toKeyData(defaultFolder(key))) {
      char digits[4];
      std::snprintf(digits, sizeof digits, "%02x,", b);
      hex += digits;
    }
    hex.pop_back();
    return hex;
  };
  const std::string text = keys_.store().text();
  // Every value under its exact name, numbers as DWORDs, switches as 1.
  EXPECT_EQ(values(text),
            "[Software]\n\n[Software\\Corvel]\n\n[Software\\Corvel\\CVTK]\n"
            "\"captureInterval\"=dword:0000000f\n"
            "\"autoCaptureInterval\"=dword:00000002\n"
            "\n[Software\\Corvel\\CVTK\\Calendar]\n"
            "\"captureDaysBefore\"=dword:0000002d\n"
            "\"captureDaysAfter\"=dword:0000002d\n"
            "\"captureBody\"=dword:00000001\n"
            "\"captureOrganizer\"=dword:00000001\n"
            "\"captureRequiredAttendees\"=dword:00000001\n"
            "\"captureOptionalAttendees\"=dword:00000001\n"
            "\"captureBusyStatus\"=dword:00000001\n"
            "\"capturePriority\"=dword:00000001\n"
            "\"captureFolderCount\"=dword:00000001\n"
            "\"captureFolders0\"=hex:" +
                folderValue("calendar") +
                "\n"
                "\n[Software\\Corvel\\CVTK\\Contacts]\n"
                "\"captureCellularNumber\"=dword:00000001\n"
                "\"capturePagerNumber\"=dword:00000001\n"
                "\"captureHomeNumber\"=dword:00000001\n"
                "\"captureCompanyName\"=dword:00000001\n"
                "\"captureBusinessFax\"=dword:00000001\n"
                "\"captureBusinessAddress\"=dword:00000001\n"
                "\"captureHomeAddress\"=dword:00000001\n"
                "\"captureHomeFax\"=dword:00000001\n"
                "\"captureNotes\"=dword:00000001\n"
                "\"captureTitle\"=dword:00000001\n"
                "\"captureFolderCount\"=dword:00000001\n"
                "\"captureFolders0\"=hex:" +
                folderValue("contacts") +
                "\n"
                "\n[Software\\Corvel\\CVTK\\Email]\n"
                "\"captureEmailCount\"=dword:000001f4\n"
                "\"captureImportance\"=dword:00000001\n"
                "\"captureFlagStatus\"=dword:00000001\n"
                "\"captureSensitivity\"=dword:00000001\n"
                "\"captureFlagRequest\"=dword:00000001\n"
                "\"captureAttachments\"=dword:00000001\n"
                "\"captureFolderCount\"=dword:00000000\n"
                "\n[Software\\Corvel\\CVTK\\Tasks]\n"
                "\"maxTaskCapture\"=dword:00000019\n"
                "\"captureStatus\"=dword:00000001\n"
                "\"capturePriority\"=dword:00000001\n"
                "\"captureBody\"=dword:00000001\n"
                "\"captureFolderCount\"=dword:00000001\n"
                "\"captureFolders0\"=hex:" +
                folderValue("tasks") + "\n");

  // A second load reads back what the first wrote, and writes it unchanged.
  prefs().resetToDefaults();
  prefs().load();
  EXPECT_EQ(keys_.store().text(), text);
  EXPECT_EQ(prefs().tasks.folders, std::vector<OutlookFolder>{defaultFolder("tasks")});
}

TEST_F(PreferencesTest, StoredValuesWinAndABadModeBecomesAutomatic) {
  {
    RegistryKey main = key();
    main.writeDword(u"autoCaptureInterval", 7);
    main.writeDword(u"captureInterval", 0);
    RegistryKey calendar = key(u"\\Calendar");
    calendar.writeDword(u"captureDaysBefore", 3);
    calendar.writeBool(u"captureBody", false);
    calendar.writeDword(u"captureFolderCount", 0);
  }
  LogCapture log;
  prefs().load();
  EXPECT_EQ(prefs().captureMode, CaptureAutomatic);
  EXPECT_EQ(prefs().captureInterval, 0u);
  EXPECT_EQ(prefs().calendar.captureDaysBefore, 3u);
  EXPECT_FALSE(prefs().calendar.captureBody);
  EXPECT_TRUE(prefs().calendar.captureOrganizer);
  // A saved count of 0 is an empty list, not the default folder.
  EXPECT_TRUE(prefs().calendar.folders.empty());
  const std::vector<std::string> lines = log.messages();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "Assertion failed"), 1);
  EXPECT_EQ(key().readDword(u"autoCaptureInterval", 0), 2u);
}

TEST_F(PreferencesTest, UnreadableFolderValuesAreSkipped) {
  const OutlookFolder a = defaultFolder("calendar");
  const OutlookFolder b = {EntryId(std::vector<uint8_t>{0, 1, 2}),
                           EntryId(std::vector<uint8_t>{9})};
  {
    RegistryKey calendar = key(u"\\Calendar");
    calendar.writeDword(u"captureFolderCount", 6);
    calendar.writeBinary(u"captureFolders0", Preferences::toKeyData(a));
    calendar.writeBinary(u"captureFolders1", {1, 0, 0});           // too short for a length
    calendar.writeBinary(u"captureFolders2", {9, 0, 0, 0, 1, 2});  // folder id runs past the end
    calendar.writeBinary(u"captureFolders3", Preferences::toKeyData(a));  // the same folder again
    std::vector<uint8_t> tail = Preferences::toKeyData(b);
    tail.push_back(0xEE);  // bytes after both identifiers are ignored
    calendar.writeBinary(u"captureFolders4", tail);
    // captureFolders5 is missing.
  }
  LogCapture log;
  prefs().load();
  EXPECT_EQ(prefs().calendar.folders, (std::vector<OutlookFolder>{a, b}));
  const std::vector<std::string> lines = log.messages();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "Invalid key data stored in registry."), 2);
}

TEST_F(PreferencesTest, AShorterListLeavesStaleValuesThatAreIgnored) {
  const OutlookFolder a = defaultFolder("calendar");
  const OutlookFolder b = defaultFolder("contacts");
  prefs().load();
  prefs().tasks.folders = {a, b};
  prefs().save();
  prefs().tasks.folders = {b};
  prefs().save();
  std::vector<uint8_t> stale;
  EXPECT_TRUE(key(u"\\Tasks").readBinary(u"captureFolders1", stale));
  prefs().load();
  EXPECT_EQ(prefs().tasks.folders, std::vector<OutlookFolder>{b});
}

TEST_F(PreferencesTest, NoSessionMeansNoDefaultFolders) {
  OutlookApp::instance()->setMapiSession(nullptr);
  prefs().load();
  EXPECT_TRUE(prefs().calendar.folders.empty());
  EXPECT_EQ(key(u"\\Calendar").readDword(u"captureFolderCount", 99), 0u);
}

TEST_F(PreferencesTest, MissingValuesLoadAsDefaultsWhateverWasInMemory) {
  const PreferenceValues defaults;
  const OutlookFolder stray = {EntryId(std::vector<uint8_t>{1}), EntryId(std::vector<uint8_t>{2})};
  auto scribble = [&] {
    prefs().captureInterval = 77;
    prefs().captureMode = CaptureManual;
    prefs().calendar.captureDaysBefore = 3;
    prefs().calendar.captureDaysAfter = 4;
    prefs().calendar.captureBody = false;
    prefs().contacts.captureTitle = false;
    prefs().tasks.maxTaskCapture = 9;
    prefs().email.folders = {stray};
    prefs().calendar.folders = {stray};
  };
  scribble();
  prefs().loadCalendarWindow();
  EXPECT_EQ(prefs().calendar.captureDaysBefore, defaults.calendar.captureDaysBefore);
  EXPECT_EQ(prefs().calendar.captureDaysAfter, defaults.calendar.captureDaysAfter);

  key(u"\\Email").writeDword(u"captureEmailCount", 7);
  scribble();
  prefs().load();
  EXPECT_EQ(prefs().captureInterval, defaults.captureInterval);
  EXPECT_EQ(prefs().captureMode, defaults.captureMode);
  EXPECT_EQ(prefs().calendar.captureDaysBefore, defaults.calendar.captureDaysBefore);
  EXPECT_TRUE(prefs().calendar.captureBody);
  EXPECT_TRUE(prefs().contacts.captureTitle);
  EXPECT_EQ(prefs().tasks.maxTaskCapture, defaults.tasks.maxTaskCapture);
  EXPECT_EQ(prefs().email.captureEmailCount, 7u);
  EXPECT_TRUE(prefs().email.folders.empty());
  EXPECT_EQ(prefs().calendar.folders, std::vector<OutlookFolder>{defaultFolder("calendar")});
}

TEST_F(PreferencesTest, ReadingWritesNothing) {
  prefs().read();
  EXPECT_EQ(prefs().calendar.folders, std::vector<OutlookFolder>{defaultFolder("calendar")});
  // Opening the keys may create them, as the registry does, but no value is
  // written.
  EXPECT_EQ(values(keys_.store().text()).find('='), std::string::npos);
}

// A change re-reads the store, so that what another process saved since this
// one read is kept, and writes only what the edit changed.
TEST_F(PreferencesTest, AChangeWritesOnlyWhatItEdits) {
  prefs().read();  // then another process changes two values
  {
    RegistryKey main = key();
    main.writeDword(u"captureInterval", 46);
    RegistryKey calendar = key(u"\\Calendar");
    calendar.writeDword(u"captureDaysAfter", 143);
  }
  const std::string before = keys_.store().text();
  std::string why;
  int calls = 0;
  ASSERT_TRUE(prefs().change(
      [&](PreferenceValues& values) {
        ++calls;
        EXPECT_EQ(values.captureInterval, 46u);
        values.calendar.captureDaysBefore = 12;
        return true;
      },
      why));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(prefs().captureInterval, 46u);
  EXPECT_EQ(prefs().calendar.captureDaysAfter, 143u);
  EXPECT_EQ(prefs().calendar.captureDaysBefore, 12u);
  EXPECT_EQ(values(keys_.store().text()),
            "[Software]\n\n[Software\\Corvel]\n\n[Software\\Corvel\\CVTK]\n"
            "\"captureInterval\"=dword:0000002e\n"
            "\n[Software\\Corvel\\CVTK\\Calendar]\n"
            "\"captureDaysAfter\"=dword:0000008f\n"
            "\"captureDaysBefore\"=dword:0000000c\n"
            "\n[Software\\Corvel\\CVTK\\Contacts]\n"
            "\n[Software\\Corvel\\CVTK\\Email]\n"
            "\n[Software\\Corvel\\CVTK\\Tasks]\n");

  // A folder list is written whole, and only its kind's.
  const OutlookFolder a = defaultFolder("calendar");
  ASSERT_TRUE(prefs().change(
      [&](PreferenceValues& values) {
        values.email.folders.push_back(a);
        return true;
      },
      why));
  EXPECT_EQ(key(u"\\Email").readDword(u"captureFolderCount", 99), 1u);
  EXPECT_EQ(key(u"\\Calendar").readDword(u"captureFolderCount", 99), 99u);
  EXPECT_EQ(key(u"\\Email").readDword(u"captureEmailCount", 99), 99u);

  // An edit that gives up writes nothing.
  const std::string kept = keys_.store().text();
  ASSERT_TRUE(prefs().change(
      [&](PreferenceValues& values) {
        values.captureInterval = 5;
        return false;
      },
      why));
  EXPECT_EQ(keys_.store().text(), kept);
  EXPECT_NE(before, kept);
}

TEST_F(PreferencesTest, AChangeThatCannotBeWrittenSaysSo) {
  keys_.store().refuseWrites(kKeyAccessDenied);
  std::string why;
  EXPECT_FALSE(prefs().change(
      [](PreferenceValues& values) {
        values.captureInterval = 5;
        return true;
      },
      why));
  EXPECT_NE(why, "");
  EXPECT_EQ(prefs().captureInterval, 15u);
}

TEST(PreferencesListeners, ToldInOrderAndKeptOnce) {
  std::vector<int> calls;
  CountingListener one(&calls, 1), two(&calls, 2);
  Preferences& prefs = Preferences::instance();
  LogCapture log;
  prefs.addListener(&one);
  prefs.addListener(&two);
  prefs.addListener(&one);
  prefs.notifyListeners();
  prefs.removeListener(&one);
  prefs.removeListener(&one);
  prefs.notifyListeners();
  prefs.removeListener(&two);
  EXPECT_EQ(calls, (std::vector<int>{1, 2, 2}));
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Assertion failed", "Assertion failed"}));
}

TEST(PreferencesKeyData, LayoutIsTwoCountedIdentifiers) {
  const OutlookFolder folder = {EntryId(std::vector<uint8_t>{0xAA, 0xBB}),
                                EntryId(std::vector<uint8_t>{0xCC})};
  EXPECT_EQ(Preferences::toKeyData(folder),
            (std::vector<uint8_t>{2, 0, 0, 0, 0xAA, 0xBB, 1, 0, 0, 0, 0xCC}));
  OutlookFolder back;
  EXPECT_TRUE(Preferences::fromKeyData(Preferences::toKeyData(folder), back));
  EXPECT_EQ(back, folder);
  // Store length pointing one byte past the end.
  LogCapture log;
  EXPECT_FALSE(Preferences::fromKeyData({2, 0, 0, 0, 0xAA, 0xBB, 2, 0, 0, 0, 0xCC}, back));
  EXPECT_FALSE(Preferences::fromKeyData({0xFF, 0xFF, 0xFF, 0xFF, 0}, back));
  EXPECT_EQ(log.messages().size(), 2u);
}

}  // namespace
}  // namespace PIM::testing
