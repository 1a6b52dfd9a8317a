#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <thread>

#include "platform/key_store_file.h"
#include "platform/posix/file_key_store.h"
#include "platform/posix/posix_env.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using testing::readFileBytes;
using testing::TempDir;
using testing::writeFileBytes;

std::string native(const std::u16string& path) { return nativePath(path); }

mode_t modeOf(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? st.st_mode : 0;
}

bool exists(const std::string& path) { return modeOf(path) != 0; }

// An open key that closes itself.
class Key {
 public:
  Key(KeyStore& store, KeyHandle parent, const std::u16string& name) : store_(store) {
    result_ = store.createKey(parent, name, &handle_);
  }
  ~Key() {
    if (handle_) store_.closeKey(handle_);
  }
  long result() const { return result_; }
  KeyHandle get() const { return handle_; }

 private:
  KeyStore& store_;
  KeyHandle handle_ = nullptr;
  long result_;
};

long setDword(KeyStore& store, KeyHandle key, const std::u16string& name, uint32_t value) {
  uint8_t bytes[4] = {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16),
                      uint8_t(value >> 24)};
  return store.setValue(key, name, ValueType::Dword, bytes, 4);
}

std::optional<uint32_t> dword(KeyStore& store, KeyHandle key, const std::u16string& name) {
  uint8_t bytes[4] = {};
  uint32_t size = 4;
  ValueType type = ValueType::None;
  if (store.queryValue(key, name, &type, bytes, &size) != kKeyOk || type != ValueType::Dword ||
      size != 4) {
    return std::nullopt;
  }
  return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 |
         uint32_t(bytes[3]) << 24;
}

std::u16string numbered(const std::u16string& prefix, int i) {
  std::u16string name = prefix;
  for (char c : std::to_string(i)) name += char16_t(c);
  return name;
}

// Runs `body` in a child process and returns its exit status.
template <typename Body>
int inChild(Body body) {
  pid_t pid = fork();
  if (pid == 0) {
    body();
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class FileKeyStoreTest : public ::testing::Test {
 protected:
  TempDir dir_;
  std::string path_ = native(dir_.file(u"keystore"));
};

TEST_F(FileKeyStoreTest, KeepsEveryTypeWithTheRegistrysQuerySemantics) {
  FileKeyStore store(path_);
  Key key(store, store.currentUserRoot(), u"Software\\Corvel\\CVTK");
  ASSERT_EQ(key.result(), kKeyOk);
  const uint8_t blob[] = {0, 1, 2, 0xfe, 0xff};
  const uint8_t text[] = {'h', 0, 'i', 0, 0, 0};
  const uint8_t other[] = {1, 2, 3};
  ASSERT_EQ(setDword(store, key.get(), u"Frequency", 15), kKeyOk);
  ASSERT_EQ(store.setValue(key.get(), u"Folders", ValueType::Binary, blob, sizeof blob), kKeyOk);
  ASSERT_EQ(store.setValue(key.get(), u"Name", ValueType::String, text, sizeof text), kKeyOk);
  ASSERT_EQ(store.setValue(key.get(), u"Multi", ValueType(7), other, sizeof other), kKeyOk);
  ASSERT_EQ(store.setValue(key.get(), u"Nothing", ValueType::Binary, nullptr, 0), kKeyOk);

  EXPECT_EQ(dword(store, key.get(), u"frequency"), 15u);

  // Type and size alone.
  ValueType type = ValueType::None;
  uint32_t size = 0;
  ASSERT_EQ(store.queryValue(key.get(), u"Folders", &type, nullptr, &size), kKeyOk);
  EXPECT_EQ(type, ValueType::Binary);
  EXPECT_EQ(size, sizeof blob);
  // Too small a buffer: kKeyMoreData and the size needed.
  uint8_t buffer[16] = {};
  size = 4;
  EXPECT_EQ(store.queryValue(key.get(), u"Folders", &type, buffer, &size), kKeyMoreData);
  EXPECT_EQ(size, sizeof blob);
  size = sizeof buffer;
  ASSERT_EQ(store.queryValue(key.get(), u"Folders", nullptr, buffer, &size), kKeyOk);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), size),
            std::string(reinterpret_cast<const char*>(blob), sizeof blob));
  size = sizeof buffer;
  ASSERT_EQ(store.queryValue(key.get(), u"NAME", &type, buffer, &size), kKeyOk);
  EXPECT_EQ(type, ValueType::String);
  EXPECT_EQ(size, sizeof text);
  size = sizeof buffer;
  ASSERT_EQ(store.queryValue(key.get(), u"Multi", &type, buffer, &size), kKeyOk);
  EXPECT_EQ(uint32_t(type), 7u);
  EXPECT_EQ(size, 3u);
  size = 0;
  ASSERT_EQ(store.queryValue(key.get(), u"Nothing", &type, buffer, &size), kKeyOk);
  EXPECT_EQ(size, 0u);

  EXPECT_EQ(store.queryValue(key.get(), u"Missing", &type, nullptr, &size), kKeyNotFound);
  EXPECT_EQ(store.queryValue(key.get(), u"Folders", &type, buffer, nullptr), kKeyInvalidParameter);
  EXPECT_EQ(store.setValue(key.get(), u"Bad", ValueType::Binary, nullptr, 3), kKeyInvalidParameter);
  EXPECT_EQ(setDword(store, key.get(), std::u16string(kMaxValueNameUnits + 1, u'n'), 1),
            kKeyInvalidParameter);
  EXPECT_TRUE(store.takeDiagnostics().empty());
}

TEST_F(FileKeyStoreTest, PersistsAcrossInstancesAsReadableText) {
  {
    FileKeyStore store(path_);
    Key key(store, store.currentUserRoot(), u"Software\\Corvel\\CVTK");
    ASSERT_EQ(setDword(store, key.get(), u"Frequency", 0x1e), kKeyOk);
    ASSERT_EQ(setDword(store, key.get(), u"Frequency", 0x2d), kKeyOk);
    const uint8_t text[] = {'x', 0, 0, 0};
    ASSERT_EQ(store.setValue(key.get(), u"Name", ValueType::String, text, 4), kKeyOk);
  }
  std::string file = readFileBytes(dir_.file(u"keystore"));
  EXPECT_EQ(file.substr(file.find("\n[")),
            "\n[Software]\n"
            "\n[Software\\Corvel]\n"
            "\n[Software\\Corvel\\CVTK]\n"
            "\"Frequency\"=dword:0000002d\n"
            "\"Name\"=sz:\"x\"\n"
            "\n; end of settings\n");
  FileKeyStore again(path_);
  Key key(again, again.currentUserRoot(), u"SOFTWARE\\corvel\\cvtk");
  EXPECT_EQ(dword(again, key.get(), u"Frequency"), 0x2du);
}

TEST_F(FileKeyStoreTest, OpensKeysLikeTheRegistry) {
  FileKeyStore store(path_);
  Key software(store, store.currentUserRoot(), u"Software");
  Key corvel(store, software.get(), u"Corvel");
  // An empty name opens the same key again.
  Key same(store, corvel.get(), u"");
  ASSERT_EQ(same.result(), kKeyOk);
  ASSERT_EQ(setDword(store, same.get(), u"V", 3), kKeyOk);
  EXPECT_EQ(dword(store, corvel.get(), u"V"), 3u);
  // Names keep the spelling they were first given.
  Key upper(store, store.currentUserRoot(), u"SOFTWARE\\CORVEL");
  EXPECT_EQ(dword(store, upper.get(), u"v"), 3u);
  std::string file = readFileBytes(dir_.file(u"keystore"));
  EXPECT_NE(file.find("[Software\\Corvel]"), std::string::npos);
  EXPECT_EQ(file.find("CORVEL"), std::string::npos);

  KeyHandle out = nullptr;
  EXPECT_EQ(store.createKey(corvel.get(), u"a\\\\b", &out), kKeyInvalidParameter);
  EXPECT_EQ(store.createKey(corvel.get(), u"\\a", &out), kKeyInvalidParameter);
  EXPECT_EQ(store.createKey(corvel.get(), u"tab\t", &out), kKeyInvalidParameter);
  EXPECT_EQ(store.createKey(corvel.get(), std::u16string(256, u'k'), &out), kKeyInvalidParameter);
  EXPECT_EQ(store.createKey(corvel.get(), u"x", nullptr), kKeyInvalidParameter);
  int local = 0;
  EXPECT_EQ(store.createKey(&local, u"x", &out), kKeyInvalidHandle);
  EXPECT_EQ(out, nullptr);

  ASSERT_EQ(store.createKey(corvel.get(), u"Closed", &out), kKeyOk);
  store.closeKey(out);
  EXPECT_EQ(setDword(store, out, u"V", 1), kKeyInvalidHandle);
  store.closeKey(store.currentUserRoot());  // the root is never closed
  EXPECT_EQ(dword(store, upper.get(), u"V"), 3u);
  EXPECT_EQ(setDword(store, store.currentUserRoot(), u"AtRoot", 1), kKeyOk);
}

TEST_F(FileKeyStoreTest, DeletesTrees) {
  FileKeyStore store(path_);
  Key test(store, store.currentUserRoot(), u"Software\\Test");
  Key deep(store, test.get(), u"A\\B");
  ASSERT_EQ(setDword(store, deep.get(), u"V", 1), kKeyOk);
  ASSERT_EQ(setDword(store, test.get(), u"W", 2), kKeyOk);

  EXPECT_EQ(store.deleteTree(test.get(), u"a"), kKeyOk);
  EXPECT_EQ(store.deleteTree(test.get(), u"A"), kKeyNotFound);
  EXPECT_EQ(setDword(store, deep.get(), u"V", 1), kKeyDeleted);
  EXPECT_EQ(store.queryValue(deep.get(), u"V", nullptr, nullptr, nullptr), kKeyDeleted);
  EXPECT_EQ(dword(store, test.get(), u"W"), 2u);

  // No path empties the key itself, like RegDeleteTree.
  Key again(store, test.get(), u"A");
  EXPECT_EQ(store.deleteTree(test.get(), u""), kKeyOk);
  EXPECT_EQ(store.queryValue(test.get(), u"W", nullptr, nullptr, nullptr), kKeyNotFound);
  EXPECT_EQ(store.deleteTree(store.currentUserRoot(), u"Software\\Test"), kKeyOk);
  EXPECT_EQ(setDword(store, test.get(), u"W", 2), kKeyDeleted);
}

TEST_F(FileKeyStoreTest, CreatesFilesAndFolderForTheOwnerOnly) {
  std::string folder = native(dir_.file(u"config")) + "/ferrant";
  std::string path = folder + "/keystore";
  mode_t old = umask(0);
  {
    FileKeyStore store(path);
    Key key(store, store.currentUserRoot(), u"Reading");
    ASSERT_EQ(key.result(), kKeyOk);
    ASSERT_EQ(setDword(store, key.get(), u"V", 1), kKeyOk);
  }
  umask(old);
  EXPECT_EQ(modeOf(native(dir_.file(u"config"))) & 0777, 0700u);
  EXPECT_EQ(modeOf(folder) & 0777, 0700u);
  EXPECT_EQ(modeOf(path) & 0777, 0600u);
  EXPECT_EQ(modeOf(path + ".lock") & 0777, 0600u);
  EXPECT_FALSE(exists(path + ".new"));
}

TEST_F(FileKeyStoreTest, ReadingDoesNotCreateAnything) {
  std::string folder = native(dir_.file(u"none"));
  FileKeyStore store(folder + "/keystore");
  ValueType type;
  uint32_t size = 0;
  EXPECT_EQ(store.queryValue(store.currentUserRoot(), u"V", &type, nullptr, &size), kKeyNotFound);
  EXPECT_FALSE(exists(folder));
}

// A process killed while it writes leaves the previous settings, and the
// next write goes through.
TEST_F(FileKeyStoreTest, AWriterKilledMidWriteLeavesThePreviousContents) {
  {
    FileKeyStore store(path_);
    ASSERT_EQ(setDword(store, store.currentUserRoot(), u"Kept", 1), kKeyOk);
  }
  const std::string before = readFileBytes(dir_.file(u"keystore"));
  for (auto stage : {FileKeyStore::SaveStage::PartWritten, FileKeyStore::SaveStage::Written}) {
    int status = inChild([&] {
      FileKeyStore store(path_);
      store.setSaveHookForTesting([&](FileKeyStore::SaveStage at) {
        if (at == stage) _exit(42);
      });
      setDword(store, store.currentUserRoot(), u"Lost", 2);
    });
    ASSERT_EQ(status, 42);
    EXPECT_TRUE(exists(path_ + ".new"));
    EXPECT_EQ(readFileBytes(dir_.file(u"keystore")), before);

    FileKeyStore store(path_);
    EXPECT_EQ(dword(store, store.currentUserRoot(), u"Kept"), 1u);
    EXPECT_EQ(dword(store, store.currentUserRoot(), u"Lost"), std::nullopt);
    ASSERT_EQ(setDword(store, store.currentUserRoot(), u"Later", 3), kKeyOk);
    EXPECT_FALSE(exists(path_ + ".new"));
    EXPECT_EQ(dword(store, store.currentUserRoot(), u"Later"), 3u);
    EXPECT_TRUE(store.takeDiagnostics().empty());
    store.deleteTree(store.currentUserRoot(), u"");
    ASSERT_EQ(setDword(store, store.currentUserRoot(), u"Kept", 1), kKeyOk);
  }
}

TEST_F(FileKeyStoreTest, AFailedWriteKeepsTheOldContentsAndSaysWhy) {
  FileKeyStore store(path_);
  ASSERT_EQ(setDword(store, store.currentUserRoot(), u"Kept", 1), kKeyOk);
  const std::string before = readFileBytes(dir_.file(u"keystore"));
  // A folder where the new text would go: the write cannot even start.
  ASSERT_EQ(mkdir((path_ + ".new").c_str(), 0700), 0);
  ASSERT_EQ(mkdir((path_ + ".new/x").c_str(), 0700), 0);
  EXPECT_EQ(setDword(store, store.currentUserRoot(), u"Kept", 2), kKeyWriteFault);
  EXPECT_EQ(readFileBytes(dir_.file(u"keystore")), before);
  EXPECT_EQ(dword(store, store.currentUserRoot(), u"Kept"), 1u);
  std::vector<std::string> notes = store.takeDiagnostics();
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_EQ(notes[0], "Could not save the settings file " + path_ +
                          " (clearing): " + std::generic_category().message(EISDIR));
}

TEST_F(FileKeyStoreTest, WritersInSeveralProcessesAndThreadsLoseNothing) {
  constexpr int kEach = 25;
  // The number of writes that failed.
  auto writeMany = [&](FileKeyStore& store, const std::u16string& prefix) {
    Key key(store, store.currentUserRoot(), u"Shared");
    int failed = 0;
    for (int i = 0; i < kEach; ++i) {
      failed += setDword(store, key.get(), numbered(prefix, i), uint32_t(i)) != kKeyOk;
    }
    return failed;
  };
  pid_t children[2];
  for (int c = 0; c < 2; ++c) {
    children[c] = fork();
    if (children[c] == 0) {
      FileKeyStore own(path_);
      _exit(writeMany(own, c == 0 ? u"p" : u"q"));
    }
  }
  // Two threads share one store; a third has a store of its own.
  FileKeyStore shared(path_);
  FileKeyStore own(path_);
  int threadFailures[3] = {};
  std::thread first([&] { threadFailures[0] = writeMany(shared, u"t"); });
  std::thread second([&] { threadFailures[1] = writeMany(shared, u"u"); });
  std::thread third([&] { threadFailures[2] = writeMany(own, u"v"); });
  first.join();
  second.join();
  third.join();
  EXPECT_EQ(threadFailures[0] + threadFailures[1] + threadFailures[2], 0);
  for (pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
  }

  FileKeyStore store(path_);
  Key key(store, store.currentUserRoot(), u"Shared");
  for (const char16_t* prefix : {u"p", u"q", u"t", u"u", u"v"}) {
    for (int i = 0; i < kEach; ++i) {
      EXPECT_EQ(dword(store, key.get(), numbered(prefix, i)), uint32_t(i));
    }
  }
  keyfile::ParsedStore parsed = keyfile::parseStoreText(readFileBytes(dir_.file(u"keystore")));
  EXPECT_TRUE(parsed.problems.empty());
  EXPECT_EQ(parsed.root.subkey(0).values().size(), 5u * kEach);
}

TEST_F(FileKeyStoreTest, KeepsADamagedFileAsideAndTheReadableSettingsInUse) {
  static const char kDamaged[] =
      "ferrant-keystore 1\n"
      "[Software\\Corvel\\CVTK]\n"
      "\"Frequency\"=dword:0000000f\n"
      "\"Torn\"=dword:00\x00\x00\x17\n"
      "\"Folders\"=hex:01,02\n";
  const std::string damaged(kDamaged, sizeof kDamaged - 1);
  writeFileBytes(dir_.file(u"keystore"), damaged);
  FileKeyStore store(path_);
  Key key(store, store.currentUserRoot(), u"Software\\Corvel\\CVTK");
  ASSERT_EQ(key.result(), kKeyOk);
  EXPECT_EQ(dword(store, key.get(), u"Frequency"), 15u);
  uint32_t size = 0;
  EXPECT_EQ(store.queryValue(key.get(), u"Folders", nullptr, nullptr, &size), kKeyOk);
  EXPECT_EQ(size, 2u);

  std::vector<std::string> notes = store.takeDiagnostics();
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_EQ(notes[0], "The settings file " + path_ +
                          " is damaged: 1 unreadable line(s), the first at line 4 (dword: needs "
                          "eight hexadecimal digits). It was kept as " +
                          path_ + ".damaged-1; the readable settings were kept.");
  EXPECT_EQ(readFileBytes(dir_.file(u"keystore.damaged-1")), damaged);
  EXPECT_EQ(modeOf(path_ + ".damaged-1") & 0777, 0600u);
  // The file was rewritten clean: the damage is reported once.
  keyfile::ParsedStore now = keyfile::parseStoreText(readFileBytes(dir_.file(u"keystore")));
  EXPECT_TRUE(now.problems.empty());
  EXPECT_EQ(dword(store, key.get(), u"Frequency"), 15u);
  EXPECT_TRUE(store.takeDiagnostics().empty());

  // A second damage is kept beside the first.
  writeFileBytes(dir_.file(u"keystore"), "garbage");
  EXPECT_EQ(dword(store, key.get(), u"Frequency"), std::nullopt);
  EXPECT_EQ(store.queryValue(key.get(), u"Frequency", nullptr, nullptr, &size), kKeyDeleted);
  EXPECT_EQ(readFileBytes(dir_.file(u"keystore.damaged-2")), "garbage");
  EXPECT_EQ(readFileBytes(dir_.file(u"keystore.damaged-1")), damaged);
  EXPECT_EQ(store.takeDiagnostics().size(), 1u);
}

TEST_F(FileKeyStoreTest, LeavesAFileOfANewerFormatAlone) {
  const std::string newer = "ferrant-keystore 3\nwhatever comes next\n";
  writeFileBytes(dir_.file(u"keystore"), newer);
  FileKeyStore store(path_);
  KeyHandle out = nullptr;
  EXPECT_EQ(store.createKey(store.currentUserRoot(), u"Software", &out), kKeyAccessDenied);
  EXPECT_EQ(setDword(store, store.currentUserRoot(), u"V", 1), kKeyAccessDenied);
  EXPECT_EQ(dword(store, store.currentUserRoot(), u"V"), std::nullopt);
  EXPECT_EQ(readFileBytes(dir_.file(u"keystore")), newer);
  std::vector<std::string> notes = store.takeDiagnostics();
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_EQ(notes[0], "The settings file " + path_ +
                          " is of format 3, newer than this program reads; it is left as it is "
                          "and no setting is saved.");
}

TEST_F(FileKeyStoreTest, WritesThroughASymbolicLink) {
  std::string real = native(dir_.file(u"real"));
  ASSERT_EQ(mkdir(real.c_str(), 0700), 0);
  ASSERT_EQ(symlink("real/keystore", path_.c_str()), 0);
  FileKeyStore store(path_);
  ASSERT_EQ(setDword(store, store.currentUserRoot(), u"V", 5), kKeyOk);
  EXPECT_TRUE(S_ISLNK(modeOf(path_)));
  EXPECT_NE(readFileBytes(dir_.file(u"real/keystore")).find("\"V\"=dword:00000005"),
            std::string::npos);
  EXPECT_EQ(dword(store, store.currentUserRoot(), u"V"), 5u);
}

TEST_F(FileKeyStoreTest, WithoutAPlaceForTheFileEveryCallFails) {
  FileKeyStore store("");
  KeyHandle out = nullptr;
  EXPECT_EQ(store.createKey(store.currentUserRoot(), u"Software", &out), kKeyAccessDenied);
  EXPECT_EQ(setDword(store, store.currentUserRoot(), u"V", 1), kKeyAccessDenied);
  EXPECT_EQ(store.takeDiagnostics(),
            std::vector<std::string>{
                "No place for the settings file: neither FERRANT_KEYSTORE nor HOME is set, and "
                "the user database gives no home folder."});
}

// Read-modify-write cycles of several processes, each inside one change,
// lose no increment; a change whose body fails keeps nothing of it.
TEST_F(FileKeyStoreTest, ChangesMadeTogetherAreWholeAndLoseNothing) {
  constexpr int kEach = 60;
  auto increment = [&](FileKeyStore& store) {
    std::string why;
    return store.changeTogether(
        [&] {
          Key key(store, store.currentUserRoot(), u"Shared");
          uint32_t now = dword(store, key.get(), u"Count").value_or(0);
          return setDword(store, key.get(), u"Count", now + 1);
        },
        why);
  };
  pid_t children[2];
  for (pid_t& child : children) {
    child = fork();
    if (child == 0) {
      FileKeyStore own(path_);
      int failed = 0;
      for (int i = 0; i < kEach; ++i) failed += increment(own) != kKeyOk;
      _exit(failed);
    }
  }
  FileKeyStore store(path_);
  for (int i = 0; i < kEach; ++i) EXPECT_EQ(increment(store), kKeyOk);
  for (pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  Key key(store, store.currentUserRoot(), u"Shared");
  EXPECT_EQ(dword(store, key.get(), u"Count"), uint32_t(3 * kEach));

  const std::string before = readFileBytes(dir_.file(u"keystore"));
  std::string why;
  EXPECT_EQ(store.changeTogether(
                [&] {
                  setDword(store, key.get(), u"Count", 0);
                  // Nested: part of the same change.
                  store.changeTogether([&] { return setDword(store, key.get(), u"New", 1); }, why);
                  EXPECT_EQ(dword(store, key.get(), u"New"), 1u);
                  return kKeyWriteFault;
                },
                why),
            kKeyWriteFault);
  EXPECT_EQ(readFileBytes(dir_.file(u"keystore")), before);
  EXPECT_EQ(dword(store, key.get(), u"Count"), uint32_t(3 * kEach));
  EXPECT_EQ(dword(store, key.get(), u"New"), std::nullopt);
}

TEST_F(FileKeyStoreTest, TellsWhetherTheSettingsCanBeReliedOn) {
  const std::string damaged = "ferrant-keystore 1\n[Software]\n\"A\"=dword:00000001\n\"B\"=dwo";
  const struct {
    const char* what;
    std::optional<std::string> contents;  // none: no file, or a folder
    bool folder;
    KeyStoreState::Health health;
    std::function<std::string(const std::string& path)> message;
  } cases[] = {
      {"no file yet", {}, false, KeyStoreState::Usable, [](auto&) { return ""; }},
      {"a sound file", "ferrant-keystore 1\n", false, KeyStoreState::Usable,
       [](auto&) { return ""; }},
      {"a damaged file", damaged, false, KeyStoreState::Damaged,
       [](const std::string& path) {
         return "The settings file " + path +
                " is damaged: 1 unreadable line(s), the first at line 4 (unknown value type). "
                "It was kept as " +
                path + ".damaged-1; the readable settings were kept.";
       }},
      {"a newer format", "ferrant-keystore 9\n", false, KeyStoreState::Unreadable,
       [](const std::string& path) {
         return "The settings file " + path +
                " is of format 9, newer than this program reads; it is left as it is and no "
                "setting is saved.";
       }},
      {"a folder",
       {},
       true,
       KeyStoreState::Unreadable,
       [](const std::string& path) {
         return "Could not read the settings file " + path + ": " +
                std::generic_category().message(EISDIR);
       }},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::u16string folder = dir_.file(u"case" + std::u16string(1, char16_t(u'0' + n++)));
    ASSERT_EQ(mkdir(native(folder).c_str(), 0700), 0);
    const std::u16string file = folder + u"/keystore";
    const std::string path = native(file);
    if (c.contents) writeFileBytes(file, *c.contents);
    if (c.folder) {
      ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    }
    FileKeyStore store(path);
    KeyStoreState state = store.checkState();
    EXPECT_EQ(state.health, c.health);
    EXPECT_EQ(state.message, c.message(path));
    // A damage is told for as long as the store lives, though the file was
    // rewritten clean at once.
    EXPECT_EQ(store.checkState().health, c.health);
    if (c.health == KeyStoreState::Damaged) {
      EXPECT_EQ(readFileBytes(file + u".damaged-1"), damaged);
      EXPECT_EQ(FileKeyStore(path).checkState().health, KeyStoreState::Usable);
    }
    if (c.health == KeyStoreState::Unreadable) {
      std::string why;
      EXPECT_NE(store.changeTogether([] { return kKeyOk; }, why), kKeyOk);
      EXPECT_EQ(why, c.message(path));
    }
  }
}

TEST(FileKeyStorePathTest, FollowsTheEnvironment) {
  struct Saved {
    const char* name;
    std::optional<std::string> value;
  };
  Saved saved[] = {{"FERRANT_KEYSTORE", {}}, {"XDG_CONFIG_HOME", {}}, {"HOME", {}}};
  for (auto& s : saved) {
    if (const char* v = std::getenv(s.name)) s.value = v;
  }
  setenv("HOME", "/home/someone", 1);
  unsetenv("XDG_CONFIG_HOME");
  unsetenv("FERRANT_KEYSTORE");
  EXPECT_EQ(FileKeyStore::defaultPath(), "/home/someone/.config/ferrant/keystore");
  setenv("XDG_CONFIG_HOME", "relative", 1);  // ignored: it must be absolute
  EXPECT_EQ(FileKeyStore::defaultPath(), "/home/someone/.config/ferrant/keystore");
  setenv("XDG_CONFIG_HOME", "/xdg", 1);
  EXPECT_EQ(FileKeyStore::defaultPath(), "/xdg/ferrant/keystore");
  setenv("FERRANT_KEYSTORE", "/elsewhere/settings", 1);
  EXPECT_EQ(FileKeyStore::defaultPath(), "/elsewhere/settings");
  // Without HOME, the user database's home folder, as for the data folder.
  unsetenv("FERRANT_KEYSTORE");
  unsetenv("XDG_CONFIG_HOME");
  unsetenv("HOME");
  const struct passwd* user = getpwuid(getuid());
  ASSERT_NE(user, nullptr);
  EXPECT_EQ(FileKeyStore::defaultPath(), std::string(user->pw_dir) + "/.config/ferrant/keystore");
  setenv("HOME", "", 1);
  EXPECT_EQ(FileKeyStore::defaultPath(), std::string(user->pw_dir) + "/.config/ferrant/keystore");
  for (auto& s : saved) {
    if (s.value) {
      setenv(s.name, s.value->c_str(), 1);
    } else {
      unsetenv(s.name);
    }
  }
  char cwd[4096];
  ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
  EXPECT_EQ(FileKeyStore("relative/file").path(), std::string(cwd) + "/relative/file");
}

}  // namespace
}  // namespace PIM
