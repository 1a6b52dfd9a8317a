// Runs against the real registry on Windows, under a key of its own that is
// deleted afterwards, and against the file key store in a fresh folder
// elsewhere.
#include "core/registry_key.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>

#include "core/utils.h"
#include "platform/env.h"
#include "testing/test_support.h"

#ifndef _WIN32
#include "platform/posix/file_key_store.h"
#include "platform/posix/posix_env.h"
#endif

namespace PIM {
namespace {

using testing::LogCapture;

std::string stringOf(const std::vector<std::string>& lines) {
  std::string all;
  for (const auto& line : lines) all += line + "\n";
  return all;
}

// Hands out another store.
class StoreEnv : public EnvWrapper {
 public:
  explicit StoreEnv(KeyStore* store) : EnvWrapper(env()), store_(store) {}
  KeyStore& keyStore() override { return *store_; }

 private:
  KeyStore* store_;
};

// Forwards to another store, noting every key opened and closed, and
// refuses to open the level named `failing`.
class RecordingStore : public KeyStore {
 public:
  explicit RecordingStore(KeyStore& target) : target_(target) {}

  std::optional<std::u16string> failing;
  std::vector<std::string> calls;

  KeyHandle currentUserRoot() override { return target_.currentUserRoot(); }
  long createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) override {
    if (name == failing) {
      calls.push_back("refuse " + toUtf8(name));
      return kKeyAccessDenied;
    }
    long result = target_.createKey(parent, name, out);
    if (result == kKeyOk) names_[*out] = name;
    calls.push_back("open " + toUtf8(name));
    return result;
  }
  void closeKey(KeyHandle key) override {
    calls.push_back("close " + toUtf8(names_[key]));
    target_.closeKey(key);
  }
  long queryValue(KeyHandle key, const std::u16string& name, ValueType* type, uint8_t* data,
                  uint32_t* size) override {
    return target_.queryValue(key, name, type, data, size);
  }
  long setValue(KeyHandle key, const std::u16string& name, ValueType type, const uint8_t* data,
                uint32_t size) override {
    return target_.setValue(key, name, type, data, size);
  }
  long deleteTree(KeyHandle parent, const std::u16string& path) override {
    return target_.deleteTree(parent, path);
  }

 private:
  KeyStore& target_;
  std::map<KeyHandle, std::u16string> names_;
};

#ifndef _WIN32
class FileStoreEnv : public EnvWrapper {
 public:
  explicit FileStoreEnv(const std::string& path) : EnvWrapper(env()), store_(path) {}
  KeyStore& keyStore() override { return store_; }

 private:
  FileKeyStore store_;
};
#endif

class RegistryKeyTest : public ::testing::Test {
 protected:
  RegistryKeyTest() {
    std::random_device random;
    for (char c : std::to_string(random())) path_ += char16_t(c);
  }
  ~RegistryKeyTest() override { store().deleteTree(root(), path_); }

  KeyStore& store() { return env()->keyStore(); }
  KeyHandle root() { return store().currentUserRoot(); }
  std::u16string path(const std::u16string& below = {}) { return path_ + below; }

  // Stores a value the way another program might, past RegistryKey's typed
  // writes.
  void setRaw(const std::u16string& name, ValueType type, const std::string& bytes) {
    KeyHandle key = nullptr;
    ASSERT_EQ(store().createKey(root(), path_, &key), kKeyOk);
    EXPECT_EQ(store().setValue(key, name, type, reinterpret_cast<const uint8_t*>(bytes.data()),
                               uint32_t(bytes.size())),
              kKeyOk);
    store().closeKey(key);
  }

#ifndef _WIN32
  testing::TempDir dir_;
  FileStoreEnv env_{nativePath(dir_.file(u"keystore"))};
  testing::ScopedEnv scoped_{&env_};
#endif
  std::u16string path_ = u"Software\\Corvel\\CVTK-test-";
};

TEST_F(RegistryKeyTest, WritesAndReadsBackEveryKindOfValue) {
  LogCapture log;
  {
    RegistryKey key(root(), path());
    ASSERT_TRUE(key.isValid());
    EXPECT_TRUE(key.writeDword(u"Frequency", 0xfedcba98));
    EXPECT_TRUE(key.writeBool(u"On", true));
    EXPECT_TRUE(key.writeBool(u"Off", false));
    EXPECT_TRUE(key.writeBinary(u"Folders", {0, 1, 0xff, 0x80}));
  }
  RegistryKey key(root(), path());
  EXPECT_EQ(key.readDword(u"frequency", 7), 0xfedcba98u);
  EXPECT_TRUE(key.readBool(u"On", false));
  EXPECT_FALSE(key.readBool(u"Off", true));
  EXPECT_EQ(key.readDword(u"On", 7), 1u);
  std::vector<uint8_t> out = {9, 9, 9, 9, 9, 9};
  EXPECT_TRUE(key.readBinary(u"Folders", out));
  EXPECT_EQ(out, (std::vector<uint8_t>{0, 1, 0xff, 0x80}));
  EXPECT_EQ(stringOf(log.messages()), "");
}

TEST_F(RegistryKeyTest, FirstRunReadsLogOneLinePerValueAndGiveTheDefaults) {
  LogCapture log;
  RegistryKey key(root(), path(u"\\Fresh"));
  ASSERT_TRUE(key.isValid());
  std::vector<uint8_t> out = {5};
  EXPECT_EQ(key.readDword(u"Frequency", 15), 15u);
  EXPECT_TRUE(key.readBool(u"Stra\u00dfe", true));
  EXPECT_FALSE(key.readBinary(u"Folders", out));
  EXPECT_EQ(out, std::vector<uint8_t>{5});
  std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 3u);
  const std::string header = "src/core/registry_key.cpp(";
  EXPECT_EQ(lines[0].substr(0, header.size()), header);
  auto tail = [](const std::string& line) { return line.substr(line.find(") : ") + 4); };
  EXPECT_EQ(tail(lines[0]),
            "PIM::RegistryKey::readDword() > ERR> Could not read from the registry key: Frequency");
  EXPECT_EQ(tail(lines[1]),
            "PIM::RegistryKey::readDword() > ERR> Could not read from the registry key: "
            "Stra\xC3\x9F"
            "e");
  EXPECT_EQ(tail(lines[2]),
            "PIM::RegistryKey::readBinary() > ERR> Could not read from the registry key: Folders");
}

TEST_F(RegistryKeyTest, EmptyLevelsOpenTheSameKeyAgain) {
  LogCapture log;
  {
    RegistryKey doubled(root(), path(u"\\\\Sub\\"));
    ASSERT_TRUE(doubled.isValid());
    EXPECT_TRUE(doubled.writeDword(u"V", 3));
  }
  RegistryKey plain(root(), path(u"\\Sub"));
  EXPECT_EQ(plain.readDword(u"V", 0), 3u);
  EXPECT_EQ(stringOf(log.messages()), "");
}

// A four-byte buffer decides: a longer text fails as a read, a text of
// exactly four bytes is read and then refused for its type.
TEST_F(RegistryKeyTest, ValuesOfAnotherTypeGiveTheDefaultAndATypeLine) {
  setRaw(u"Long text", ValueType::String, std::string("a\0b\0c\0\0\0", 8));
  setRaw(u"Short text", ValueType::String, std::string("a\0\0\0", 4));
  setRaw(u"Four bytes", ValueType::Binary, std::string("\1\0\0\0", 4));
  setRaw(u"Number", ValueType::Dword, std::string("\2\0\0\0", 4));
  LogCapture log;
  RegistryKey key(root(), path());
  std::vector<uint8_t> out = {7};
  EXPECT_EQ(key.readDword(u"Long text", 11), 11u);
  EXPECT_EQ(key.readDword(u"Short text", 12), 12u);
  EXPECT_FALSE(key.readBool(u"Four bytes", false));
  EXPECT_FALSE(key.readBinary(u"Number", out));
  EXPECT_FALSE(key.readBinary(u"Short text", out));
  EXPECT_EQ(out, std::vector<uint8_t>{7});
  EXPECT_EQ(stringOf(log.messages()),
            "Could not read from the registry key: Long text\n"
            "Registry key is not a valid type. Short text\n"
            "Registry key is not a valid type. Four bytes\n"
            "Registry key is not a valid type. Number\n"
            "Registry key is not a valid type. Short text\n");
}

TEST_F(RegistryKeyTest, AnyStoredNumberButZeroIsTrue) {
  RegistryKey key(root(), path());
  ASSERT_TRUE(key.writeDword(u"Two", 2));
  ASSERT_TRUE(key.writeDword(u"Zero", 0));
  EXPECT_TRUE(key.readBool(u"Two", false));
  EXPECT_FALSE(key.readBool(u"Zero", true));
}

TEST_F(RegistryKeyTest, AnEmptyBinaryValueLeavesTheCallersArray) {
  LogCapture log;
  RegistryKey key(root(), path());
  ASSERT_TRUE(key.writeBinary(u"Empty", {}));
  std::vector<uint8_t> out = {1, 2, 3};
  EXPECT_TRUE(key.readBinary(u"Empty", out));
  EXPECT_EQ(out, (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_EQ(stringOf(log.messages()), "");
}

TEST_F(RegistryKeyTest, WithoutABaseKeyOnlyTheOpeningIsLogged) {
  LogCapture log;
  RegistryKey key(nullptr, path());
  EXPECT_FALSE(key.isValid());
  std::vector<uint8_t> out = {4};
  EXPECT_EQ(key.readDword(u"V", 9), 9u);
  EXPECT_TRUE(key.readBool(u"V", true));
  EXPECT_FALSE(key.readBinary(u"V", out));
  EXPECT_FALSE(key.writeDword(u"V", 1));
  EXPECT_FALSE(key.writeBool(u"V", true));
  EXPECT_FALSE(key.writeBinary(u"V", {1}));
  EXPECT_EQ(out, std::vector<uint8_t>{4});
  std::vector<std::string> lines = log.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].substr(lines[0].find(") : ") + 4),
            "PIM::RegistryKey::RegistryKey() > ERR> Invalid base registry key value.");
}

TEST_F(RegistryKeyTest, ALevelThatCannotBeOpenedLeavesTheKeyInvalid) {
  RecordingStore recording(store());
  recording.failing = u"B";
  StoreEnv recordingEnv(&recording);
  testing::ScopedEnv scoped(&recordingEnv);
  std::u16string bad = path(u"\\A\\B\\C");
  LogCapture log;
  {
    RegistryKey key(root(), bad);
    EXPECT_FALSE(key.isValid());
    EXPECT_FALSE(key.writeDword(u"V", 1));
    EXPECT_EQ(key.readDword(u"V", 9), 9u);
  }
  EXPECT_EQ(stringOf(log.messages()), "Could not acess key at " + toUtf8(bad) + "\n");
  // The levels opened before stay open until the end, then close deepest
  // first.
  const std::string test = toUtf8(path_.substr(path_.rfind(u'\\') + 1));
  EXPECT_EQ(stringOf(recording.calls), "open Software\nopen Corvel\nopen " + test +
                                           "\nopen A\nrefuse B\nclose A\nclose " + test +
                                           "\nclose Corvel\nclose Software\n");
}

TEST_F(RegistryKeyTest, ClosesEveryHandleItOpenedDeepestFirst) {
  RecordingStore recording(store());
  StoreEnv recordingEnv(&recording);
  testing::ScopedEnv scoped(&recordingEnv);
  { RegistryKey key(root(), path(u"\\\\Deep\\")); }
  const std::string test = toUtf8(path_.substr(path_.rfind(u'\\') + 1));
  EXPECT_EQ(stringOf(recording.calls), "open Software\nopen Corvel\nopen " + test +
                                           "\nopen \nopen Deep\nopen \nclose \nclose Deep\n"
                                           "close \nclose " +
                                           test + "\nclose Corvel\nclose Software\n");
}

TEST_F(RegistryKeyTest, WritesToADeletedKeyFailWithTheirLines) {
  RegistryKey key(root(), path(u"\\Gone"));
  ASSERT_TRUE(key.isValid());
  ASSERT_EQ(store().deleteTree(root(), path(u"\\Gone")), kKeyOk);
  LogCapture log;
  EXPECT_FALSE(key.writeDword(u"Count", 4000000000u));
  EXPECT_FALSE(key.writeBool(u"Flag", true));
  EXPECT_FALSE(key.writeBinary(u"Blob", {1, 2}));
  EXPECT_EQ(stringOf(log.messages()),
            "Could not write 4000000000 to the registry key: Count\n"
            "Could not write 1 to the registry key: Flag\n"
            "Could not write binary data to the registry key: Blob\n");
}

#ifndef _WIN32
TEST_F(RegistryKeyTest, TheStoresOwnProblemsReachTheLog) {
  testing::writeFileBytes(dir_.file(u"keystore"),
                          "ferrant-keystore 1\n[Software]\n\"V\"=dword:zz\n");
  LogCapture log;
  RegistryKey key(root(), path());
  EXPECT_TRUE(key.isValid());
  std::vector<std::string> messages = log.messages();
  ASSERT_EQ(messages.size(), 1u);
  EXPECT_EQ(messages[0].substr(0, 18), "The settings file ");
  EXPECT_NE(messages[0].find(" is damaged: 1 unreadable line(s), the first at line 3"),
            std::string::npos);
}
#endif

}  // namespace
}  // namespace PIM
