#include "addin/registrar_win32.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "addin/registry_script_testing.h"
#include "core/utils.h"
#include "platform/win32/win32_env.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using Lines = std::vector<std::string>;

const std::u16string kAppId = u"{34C2CE7C-96FF-402E-AE16-D5DB06F2A021}";

std::u16string testName() {
  return fromUtf8(::testing::UnitTest::GetInstance()->current_test_info()->name());
}

// Everything below `key`, as MemoryRegistry lists it, `path` standing for
// the key's own path.
void listTree(HKEY key, const std::string& path, Lines& lines) {
  for (DWORD i = 0;; ++i) {
    wchar_t name[16384];
    DWORD nameUnits = 16384;
    DWORD type = 0;
    BYTE data[4096];
    DWORD bytes = sizeof data;
    if (RegEnumValueW(key, i, name, &nameUnits, nullptr, &type, data, &bytes) != ERROR_SUCCESS)
      break;
    const std::string shownName = nameUnits ? " [" + toUtf8(fromWide(name)) + "]" : "";
    std::string shown;
    if (type == REG_SZ) {
      shown = "s '" +
              toUtf8(std::u16string(reinterpret_cast<const char16_t*>(data), bytes / 2 - 1)) + "'";
    } else if (type == REG_DWORD && bytes == 4) {
      shown =
          "d " + std::to_string(data[0] | data[1] << 8 | data[2] << 16 | uint32_t(data[3]) << 24);
    } else {
      shown = "type " + std::to_string(type);
    }
    lines.push_back(path + shownName + " = " + shown);
  }
  for (DWORD i = 0;; ++i) {
    wchar_t name[256];
    DWORD units = 256;
    if (RegEnumKeyExW(key, i, name, &units, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS)
      break;
    HKEY child = nullptr;
    ASSERT_EQ(RegOpenKeyExW(key, name, 0, KEY_READ, &child), ERROR_SUCCESS);
    const std::string childPath = path + "\\" + toUtf8(fromWide(name));
    lines.push_back(childPath);
    listTree(child, childPath, lines);
    RegCloseKey(child);
  }
}

Lines listing(HKEY key, const std::string& shownAs) {
  Lines lines;
  listTree(key, shownAs, lines);
  std::sort(lines.begin(), lines.end());
  return lines;
}

// A key of the test's own below HKCU\Software\FerrantRegistrarTest, made
// empty for it and deleted after it.
class RegistrarTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = u"Software\\FerrantRegistrarTest\\" + testName();
    RegDeleteTreeW(HKEY_CURRENT_USER, wide(path_));
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, wide(path_), 0, nullptr, 0, KEY_ALL_ACCESS,
                              nullptr, &key_, nullptr),
              ERROR_SUCCESS);
  }
  void TearDown() override {
    if (key_) RegCloseKey(key_);
    RegDeleteTreeW(HKEY_CURRENT_USER, wide(path_));
    RegDeleteKeyW(HKEY_CURRENT_USER, wide(path_));
  }

  // A subkey of the test's key, open for the test's whole run.
  HKEY subkey(const std::u16string& name) {
    HKEY key = nullptr;
    EXPECT_EQ(
        RegCreateKeyExW(key_, wide(name), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
        ERROR_SUCCESS);
    opened_.emplace_back(key);
    return key;
  }

  std::u16string path_;
  HKEY key_ = nullptr;

 private:
  struct Closer {
    explicit Closer(HKEY k) : key(k) {}
    ~Closer() {
      if (key) RegCloseKey(key);
    }
    Closer(Closer&& o) noexcept : key(std::exchange(o.key, nullptr)) {}
    HKEY key;
  };
  std::vector<Closer> opened_;
};

TEST_F(RegistrarTest, ScriptUnderTheCurrentUserAddsAndRemovesInTheRealRegistry) {
  Win32Registry registry;
  const std::u16string script =
      u"HKCU { NoRemove Software { NoRemove FerrantRegistrarTest { NoRemove '" + testName() +
      u"' {\n"
      u"  val Mine = d '4294967295'\n"
      u"  Server = s '%MODULE%' { val ThreadingModel = s 'Apartment' }\n"
      u"  ForceRemove Fresh { Sub = d '0x10' }\n"
      u"  Delete Stale\n"
      u"  Empty\n"
      u"} } } }\n";
  const ScriptSubstitutions subs = {{u"MODULE", u"C:\\It's 100%\\F.dll"}};
  // What was there before: a value and keys of someone else, a stale key
  // for Delete and a leftover under the ForceRemove key.
  ASSERT_EQ(RegSetValueExW(key_, L"Theirs", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"kept"), 10),
            ERROR_SUCCESS);
  subkey(u"Stale\\Old");
  subkey(u"Fresh\\Leftover");
  subkey(u"Other");

  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(applyRegistryText(script, subs, registry, true, "test"), S_OK) << round;
    EXPECT_EQ(listing(key_, "T"), (Lines{
                                      "T [Mine] = d 4294967295",
                                      "T [Theirs] = s 'kept'",
                                      "T\\Empty",
                                      "T\\Fresh",
                                      "T\\Fresh\\Sub",
                                      "T\\Fresh\\Sub = d 16",
                                      "T\\Other",
                                      "T\\Server",
                                      "T\\Server = s 'C:\\It's 100%\\F.dll'",
                                      "T\\Server [ThreadingModel] = s 'Apartment'",
                                  }))
        << "round " << round;
  }
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(applyRegistryText(script, subs, registry, false, "test"), S_OK) << round;
    EXPECT_EQ(listing(key_, "T"), (Lines{"T [Theirs] = s 'kept'", "T\\Other"})) << round;
  }
}

TEST_F(RegistrarTest, TheAddinScriptsWriteTheirKeysValueByValueAndRemovalLeavesTheRoots) {
  // The scripts' roots sent below the test's key: the machine's own CLSID and
  // Addins keys stay untouched, whatever else runs in this Wine prefix.
  Win32Registry registry;
  HKEY classes = subkey(u"HKCR");
  HKEY machine = subkey(u"HKLM");
  registry.redirect(RegistryRoot::ClassesRoot, classes);
  registry.redirect(RegistryRoot::LocalMachine, machine);
  // Other programs' entries beside ours.
  subkey(u"HKCR\\AppID\\{00000000-0000-0000-0000-000000000001}");
  subkey(u"HKCR\\CLSID\\{00000000-0000-0000-0000-000000000002}\\InprocServer32");
  subkey(u"HKLM\\Software\\Microsoft\\Office\\Outlook\\Addins\\Other.Addin");
  auto both = [&] {
    Lines lines = listing(classes, "HKCR");
    for (const std::string& line : listing(machine, "HKLM")) lines.push_back(line);
    std::sort(lines.begin(), lines.end());
    return lines;
  };
  const Lines before = both();

  const std::u16string module = u"C:\\Fake Folder\\Ferrant.dll";
  const ScriptSubstitutions subs = {{u"MODULE", module}, {u"APPID", kAppId}};
  const std::u16string appIdScript = testing::addinScriptText("ferrant_appid.rgs");
  const std::u16string addinScript = testing::addinScriptText("pim_addin.rgs");
  ASSERT_FALSE(appIdScript.empty());
  ASSERT_FALSE(addinScript.empty());
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(applyRegistryText(appIdScript, subs, registry, true, "appid"), S_OK);
    ASSERT_EQ(applyRegistryText(addinScript, subs, registry, true, "addin"), S_OK);
  }
  Lines expected = before;
  for (const std::string& line : testing::addinScriptLines(toUtf8(module), toUtf8(kAppId)))
    expected.push_back(line);
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(both(), expected);

  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(applyRegistryText(addinScript, subs, registry, false, "addin"), S_OK);
    ASSERT_EQ(applyRegistryText(appIdScript, subs, registry, false, "appid"), S_OK);
    EXPECT_EQ(both(), before) << "round " << round;
  }

  // Where nothing was before, the keys registration made that removal
  // leaves are the AppID and CLSID roots and the Addins key's parents.
  HKEY freshClasses = subkey(u"Fresh\\HKCR");
  HKEY freshMachine = subkey(u"Fresh\\HKLM");
  registry.redirect(RegistryRoot::ClassesRoot, freshClasses);
  registry.redirect(RegistryRoot::LocalMachine, freshMachine);
  ASSERT_EQ(applyRegistryText(appIdScript, subs, registry, true, "appid"), S_OK);
  ASSERT_EQ(applyRegistryText(addinScript, subs, registry, true, "addin"), S_OK);
  ASSERT_EQ(applyRegistryText(addinScript, subs, registry, false, "addin"), S_OK);
  ASSERT_EQ(applyRegistryText(appIdScript, subs, registry, false, "appid"), S_OK);
  Lines kept = listing(freshClasses, "HKCR");
  for (const std::string& line : listing(freshMachine, "HKLM")) kept.push_back(line);
  EXPECT_EQ(kept, testing::addinScriptsKeptLines());
}

// The machine's own roots, with keys no one else uses.
TEST(RegistrarRoots, WritesAndRemovesBelowTheClassesRootAndTheLocalMachine) {
  const wchar_t* clsid = L"CLSID\\{F0E1D2C3-B4A5-4697-8899-46455252414E}";
  const wchar_t* machine = L"Software\\FerrantRegistrarTest\\RealRoots";
  const std::u16string script =
      u"HKCR { NoRemove CLSID { ForceRemove {F0E1D2C3-B4A5-4697-8899-46455252414E} = s 'Test' {\n"
      u"  InprocServer32 = s '%MODULE%' { val ThreadingModel = s 'Apartment' } } } }\n"
      u"HKEY_LOCAL_MACHINE { NoRemove Software { NoRemove FerrantRegistrarTest {\n"
      u"  RealRoots { val LoadBehavior = d '3' } } } }\n";
  const ScriptSubstitutions subs = {{u"MODULE", u"C:\\Fake\\Ferrant.dll"}};
  Win32Registry registry;
  auto opened = [](HKEY root, const wchar_t* path) {
    HKEY key = nullptr;
    const LONG r = RegOpenKeyExW(root, path, 0, KEY_READ | KEY_WOW64_64KEY, &key);
    Lines lines;
    if (r == ERROR_SUCCESS) {
      lines = listing(key, "K");
      lines.insert(lines.begin(), "exists");
      RegCloseKey(key);
    }
    return lines;
  };
  ASSERT_EQ(applyRegistryText(script, subs, registry, true, "roots"), S_OK);
  EXPECT_EQ(opened(HKEY_CLASSES_ROOT, clsid),
            (Lines{"exists", "K = s 'Test'", "K\\InprocServer32",
                   "K\\InprocServer32 = s 'C:\\Fake\\Ferrant.dll'",
                   "K\\InprocServer32 [ThreadingModel] = s 'Apartment'"}));
  EXPECT_EQ(opened(HKEY_LOCAL_MACHINE, machine), (Lines{"exists", "K [LoadBehavior] = d 3"}));

  ASSERT_EQ(applyRegistryText(script, subs, registry, false, "roots"), S_OK);
  EXPECT_EQ(opened(HKEY_CLASSES_ROOT, clsid), Lines{});
  EXPECT_EQ(opened(HKEY_LOCAL_MACHINE, machine), Lines{});
  auto exists = [](HKEY root, const wchar_t* path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, path, 0, KEY_READ | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS)
      return false;
    RegCloseKey(key);
    return true;
  };
  EXPECT_TRUE(exists(HKEY_CLASSES_ROOT, L"CLSID"));
  EXPECT_TRUE(exists(HKEY_LOCAL_MACHINE, L"Software\\FerrantRegistrarTest"));
  RegDeleteKeyExW(HKEY_LOCAL_MACHINE, L"Software\\FerrantRegistrarTest", KEY_WOW64_64KEY, 0);
}

TEST_F(RegistrarTest, ABadScriptChangesNothingAndIsLoggedWithItsLine) {
  testing::LogCapture log;
  Win32Registry registry;
  const std::u16string script = u"HKCU { NoRemove Software { NoRemove FerrantRegistrarTest {\n'" +
                                testName() + u"' { Written }\n Bad { val X = q '1' } } } }";
  EXPECT_EQ(applyRegistryText(script, {}, registry, true, "42"),
            HRESULT_FROM_WIN32(ERROR_INVALID_DATA));
  EXPECT_EQ(listing(key_, "T"), Lines{});
  EXPECT_TRUE(log.contains("HR Error: 0x8007000d: Registration script 42 line 3: value type 'q'"))
      << ::testing::PrintToString(log.lines());
}

TEST_F(RegistrarTest, AFailingRegistryCallIsReturnedAndLogged) {
  testing::LogCapture log;
  Win32Registry registry;
  // A root that is not an open key fails the first call made below it.
  registry.redirect(RegistryRoot::LocalMachine, reinterpret_cast<HKEY>(uintptr_t(0x1234)));
  const HRESULT hr =
      applyRegistryText(u"HKLM { NoRemove Software { K } }", {}, registry, true, "7");
  EXPECT_EQ(hr, HRESULT_FROM_WIN32(ERROR_INVALID_HANDLE));
  EXPECT_TRUE(
      log.contains("Registration script 7, registering: HKLM\\Software: could not "
                   "create the key"))
      << ::testing::PrintToString(log.lines());
}

// A copy of this test program with REGISTRY resources added, loaded as data
// or as an image whose code never runs.
class ResourceModule {
 public:
  ResourceModule(const testing::TempDir& dir,
                 const std::vector<std::pair<int, std::string>>& resources,
                 DWORD loadFlags = LOAD_LIBRARY_AS_DATAFILE) {
    wchar_t self[MAX_PATH];
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    path_ = dir.file(u"resources.dll");
    EXPECT_TRUE(CopyFileW(self, wide(path_), FALSE));
    HANDLE update = BeginUpdateResourceW(wide(path_), FALSE);
    EXPECT_NE(update, nullptr);
    for (const auto& [id, bytes] : resources) {
      EXPECT_TRUE(UpdateResourceW(update, L"REGISTRY", MAKEINTRESOURCEW(id),
                                  MAKELANGID(LANG_NEUTRAL, SUBLANG_NEUTRAL),
                                  const_cast<char*>(bytes.data()), DWORD(bytes.size())));
    }
    EXPECT_TRUE(EndUpdateResourceW(update, FALSE));
    module_ = LoadLibraryExW(wide(path_), nullptr, loadFlags);
    EXPECT_NE(module_, nullptr);
  }
  ~ResourceModule() {
    if (module_) FreeLibrary(module_);
  }
  ResourceModule(const ResourceModule&) = delete;
  ResourceModule& operator=(const ResourceModule&) = delete;
  HMODULE get() const { return module_; }

 private:
  std::u16string path_;
  HMODULE module_ = nullptr;
};

TEST(RegistrarResource, LoadsTheScriptTextOfAResource) {
  testing::TempDir dir;
  const std::string utf8 = "HKCU { 'caf\xC3\xA9' }";
  const std::string utf16("\xFF\xFEH\0K\0", 6);
  ResourceModule module(dir, {{101, utf8}, {102, utf16}, {103, "caf\xE9"}});
  ASSERT_NE(module.get(), nullptr);
  struct Case {
    int id;
    HRESULT hr;
    std::u16string text;
  };
  const Case cases[] = {
      {101, S_OK, u"HKCU { 'caf\u00E9' }"},
      {102, S_OK, u"HK"},
      {103, HRESULT_FROM_WIN32(ERROR_INVALID_DATA), u""},
      {104, HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND), u""},
  };
  for (const Case& c : cases) {
    std::u16string text = u"old";
    EXPECT_EQ(loadRegistryScript(module.get(), c.id, text), c.hr) << c.id;
    EXPECT_EQ(text, c.text) << c.id;
  }
}

TEST(RegistrarResource, AMissingResourceFailsRegistrationWithALogLine) {
  testing::TempDir dir;
  ResourceModule module(dir, {{kAppIdScriptResource, "HKCU { }"}}, DONT_RESOLVE_DLL_REFERENCES);
  ASSERT_NE(module.get(), nullptr);
  testing::LogCapture log;
  EXPECT_EQ(applyRegistryResource(module.get(), 4242, true, kAppId),
            HRESULT_FROM_WIN32(ERROR_RESOURCE_NAME_NOT_FOUND));
  EXPECT_TRUE(log.contains("Could not load the registration script 4242"))
      << ::testing::PrintToString(log.lines());
}

TEST_F(RegistrarTest, ResourceRegistersWithTheModulesPathAndTheAppId) {
  testing::TempDir dir;
  const std::string script =
      "HKCU { NoRemove Software { NoRemove FerrantRegistrarTest { NoRemove '" + toUtf8(testName()) +
      "' { Entry { val Module = s '%MODULE%' val AppID = s '%APPID%' } } } } }";
  ResourceModule module(dir, {{kAddinScriptResource, script}}, DONT_RESOLVE_DLL_REFERENCES);
  ASSERT_NE(module.get(), nullptr);
  wchar_t path[MAX_PATH];
  ASSERT_NE(GetModuleFileNameW(module.get(), path, MAX_PATH), 0u);
  const std::string modulePath = toUtf8(fromWide(path));
  ASSERT_NE(modulePath.find("resources.dll"), std::string::npos) << modulePath;

  ASSERT_EQ(applyRegistryResource(module.get(), kAddinScriptResource, true, kAppId), S_OK);
  EXPECT_EQ(listing(key_, "T"), (Lines{"T\\Entry", "T\\Entry [AppID] = s '" + toUtf8(kAppId) + "'",
                                       "T\\Entry [Module] = s '" + modulePath + "'"}));
  ASSERT_EQ(applyRegistryResource(module.get(), kAddinScriptResource, false, kAppId), S_OK);
  EXPECT_EQ(listing(key_, "T"), Lines{});
}

}  // namespace
}  // namespace PIM
