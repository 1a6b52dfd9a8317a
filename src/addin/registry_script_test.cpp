#include "addin/registry_script.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "addin/registry_script_testing.h"

namespace PIM {
namespace {

using testing::MemoryRegistry;
using Lines = std::vector<std::string>;

Lines sorted(Lines lines) {
  std::sort(lines.begin(), lines.end());
  return lines;
}

const ScriptSubstitutions kSubstitutions = {
    {u"MODULE", u"C:\\Program Files\\Ferrant\\Ferrant.dll"},
    {u"APPID", u"{34C2CE7C-96FF-402E-AE16-D5DB06F2A021}"},
};

RegistryScript parsed(const std::string& text, const ScriptSubstitutions& subs = kSubstitutions) {
  RegistryScript script;
  ScriptError error;
  EXPECT_TRUE(parseRegistryScript(fromUtf8(text), subs, script, error)) << error.describe() << "\n"
                                                                        << text;
  return script;
}

// The registry after applying `text` to `registry`.
Lines applied(MemoryRegistry& registry, const std::string& text, bool registering) {
  const ScriptApplyResult result = applyRegistryScript(parsed(text), registry, registering);
  EXPECT_TRUE(result.ok()) << result.where;
  EXPECT_EQ(registry.openHandles(), 0);
  return registry.listing();
}

TEST(RegistryScriptParse, WritesWhatTheScriptSays) {
  struct Case {
    const char* what;
    std::string script;
    Lines registry;
  };
  const Case cases[] = {
      {"empty script", "", {}},
      {"empty root", "HKCU { }", {}},
      {"nested keys with default values",
       "HKCU\n{\n  A = s 'text a'\n  {\n    B = d '7'\n    C\n  }\n}\n",
       {"HKCU\\A", "HKCU\\A = s 'text a'", "HKCU\\A\\B", "HKCU\\A\\B = d 7", "HKCU\\A\\C"}},
      {"long root names, keywords in any case",
       "hkey_local_machine { noremove K { VAL v = S 'x' val w = D '0x10' } }\n"
       "HKEY_CLASSES_ROOT { k2 } HKEY_CURRENT_USER { k3 }",
       {"HKCR\\k2", "HKCU\\k3", "HKLM\\K", "HKLM\\K [v] = s 'x'", "HKLM\\K [w] = d 16"}},
      {"quoted names with blanks, braces, keywords and quotes",
       "HKCU { 'a key' { 'NoRemove' = s 'it''s' val 'v x' = s '' } '{}' }",
       {"HKCU\\a key", "HKCU\\a key\\NoRemove", "HKCU\\a key\\NoRemove = s 'it's'",
        "HKCU\\a key [v x] = s ''", "HKCU\\{}"}},
      {"GUIDs as bare names, braces apart only where they open a body",
       "HKCR { {61442FFF-EB7A-4FD5-8095-0CF619BABA0D} = s 'x' {\tInprocServer32 {} } }",
       {"HKCR\\{61442FFF-EB7A-4FD5-8095-0CF619BABA0D}",
        "HKCR\\{61442FFF-EB7A-4FD5-8095-0CF619BABA0D} = s 'x'",
        "HKCR\\{61442FFF-EB7A-4FD5-8095-0CF619BABA0D}\\InprocServer32"}},
      {"names and types written against '=' and quotes",
       "HKCU { K=s 'v' { val N=d'4294967295' } }",
       {"HKCU\\K", "HKCU\\K = s 'v'", "HKCU\\K [N] = d 4294967295"}},
      {"substitutions in names and values, kept as they are",
       "HKCU { '%APPID%' = s '%MODULE%' %appid%x { val '%%' = s '100%%' } }",
       {"HKCU\\{34C2CE7C-96FF-402E-AE16-D5DB06F2A021}",
        "HKCU\\{34C2CE7C-96FF-402E-AE16-D5DB06F2A021} = s 'C:\\Program "
        "Files\\Ferrant\\Ferrant.dll'",
        "HKCU\\{34C2CE7C-96FF-402E-AE16-D5DB06F2A021}x",
        "HKCU\\{34C2CE7C-96FF-402E-AE16-D5DB06F2A021}x [%] = s '100%'"}},
  };
  for (const Case& c : cases) {
    MemoryRegistry registry;
    EXPECT_EQ(applied(registry, c.script, true), sorted(c.registry)) << c.what;
  }
}

TEST(RegistryScriptParse, SubstitutedTextIsNeverReadAsScript) {
  // A path with a quote, braces, a percent sign and blanks stays one value.
  const ScriptSubstitutions subs = {{u"MODULE", u"C:\\It's {odd} 100% = s\\F.dll"}};
  MemoryRegistry registry;
  const ScriptApplyResult result =
      applyRegistryScript(parsed("HKCU { K = s '%MODULE%' }", subs), registry, true);
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(registry.listing(), (Lines{"HKCU\\K", "HKCU\\K = s 'C:\\It's {odd} 100% = s\\F.dll'"}));
}

TEST(RegistryScriptParse, ReportsTheFirstFaultWithItsLine) {
  struct Case {
    std::string script;
    int line;
    const char* message;  // a part of the message
  };
  const Case cases[] = {
      {"HKXX { }", 1, "expected a root key"},
      {"\n\nK { }", 3, "expected a root key (HKCR, HKCU, HKLM), found 'K'"},
      {"HKCU K", 1, "expected '{' after 'HKCU', found 'K'"},
      {"HKCU {\n  A {\n  B\n", 4, "the '{' of line 2 is not closed"},
      {"HKCU {", 1, "the '{' of line 1 is not closed"},
      {"HKCU { }\n}", 2, "expected a root key (HKCR, HKCU, HKLM), found '}'"},
      {"HKCU {\n val X = s 'y' }", 2, "'val' belongs inside a key"},
      {"HKCU { A {\n val = s 'y' } }", 2, "expected a value name after 'val', found '='"},
      {"HKCU { A { val X s 'y' } }", 1, "expected '=' after the value name 'X', found 's'"},
      {"HKCU { A = b '00' }", 1, "value type 'b' is not supported"},
      {"HKCU { A = 'x' }", 1, "expected a value type (s or d) after '=', found 'x'"},
      {"HKCU { A = s }", 1, "expected the value after its type, found '}'"},
      {"HKCU { A {\n\n val X = d '12x' } }", 3, "not a 32-bit number: '12x'"},
      {"HKCU { A = d '4294967296' }", 1, "not a 32-bit number"},
      {"HKCU { A = d '0x' }", 1, "not a 32-bit number"},
      {"HKCU { A = d '' }", 1, "not a 32-bit number"},
      {"HKCU { A = d '-1' }", 1, "not a 32-bit number"},
      {"HKCU { '' }", 1, "a key name is empty"},
      {"HKCU { 'A\\B' }", 1, "a key name is one level"},
      {"HKCU { NoRemove ForceRemove A }", 1, "one of NoRemove, ForceRemove and Delete"},
      {"HKCU { NoRemove val }", 1, "a key named val must be quoted"},
      {"HKCU { NoRemove }", 1, "expected a key name, found '}'"},
      {"HKCU { A {B } }", 1, "'{' must stand apart from the name after it: '{B'"},
      {"HKCU { A { B} }", 1, "'}' must stand apart from the name before it: 'B}'"},
      {"HKCU {\n 'A\n\n", 2, "the quoted text that starts here is not closed"},
      {"HKCU {\n 'A\nB' = s 'x\ny'\n %NOPE% }", 5, "no replacement for %NOPE%"},
      {"HKCU { 'A%' }", 1, "'%' without a name and its closing '%'"},
      {"HKCU { A% B%C }", 1, "'%' without a name"},
      {"HKCU { " + std::string(256, 'k') + " }", 1, "longer than 255 characters"},
  };
  for (const Case& c : cases) {
    RegistryScript script;
    ScriptError error;
    EXPECT_FALSE(parseRegistryScript(fromUtf8(c.script), kSubstitutions, script, error))
        << c.script;
    EXPECT_EQ(error.line, c.line) << c.script << " -> " << error.describe();
    EXPECT_NE(error.message.find(c.message), std::string::npos)
        << c.script << " -> " << error.describe();
  }
}

TEST(RegistryScriptParse, RefusesNestingBeyondTheRegistrysDepth) {
  std::string deep = "HKCU {";
  for (int i = 0; i < 600; ++i) deep += " K {";
  RegistryScript script;
  ScriptError error;
  EXPECT_FALSE(parseRegistryScript(fromUtf8(deep), {}, script, error));
  EXPECT_NE(error.message.find("nested deeper than 512"), std::string::npos) << error.describe();
}

TEST(RegistryScriptDecode, AcceptsUtf8AndUtf16AndRefusesOtherBytes) {
  struct Case {
    std::string bytes;
    bool ok;
    std::u16string text;
  };
  const Case cases[] = {
      {"HKCU { }", true, u"HKCU { }"},
      {"\xEF\xBB\xBFHKCU", true, u"HKCU"},
      {"'\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80'", true, u"'\u00E9\u20AC\U0001F600'"},
      {std::string("\xFF\xFEH\0K\0\xAC\x20", 8), true, u"HK\u20AC"},
      {std::string("\xFF\xFEH\0K", 5), false, u""},
      {"caf\xE9", false, u""},           // Latin-1, not UTF-8
      {"\xC0\xAF", false, u""},          // overlong
      {"\xED\xA0\x80", false, u""},      // a surrogate
      {"\xE2\x82", false, u""},          // cut short
      {"\xF4\x90\x80\x80", false, u""},  // past U+10FFFF
  };
  for (const Case& c : cases) {
    std::u16string text = u"old";
    EXPECT_EQ(decodeRegistryScript(c.bytes, text), c.ok) << c.bytes;
    EXPECT_EQ(text, c.text) << c.bytes;
  }
}

// What was there before, the script, and what is left after its removal.
TEST(RegistryScriptApply, RemovalKeepsNoRemoveKeysAndWhatIsNotTheScripts) {
  const std::string script =
      "HKCU {\n"
      "  NoRemove Software {\n"
      "    NoRemove Shared = s 'default stays' {\n"
      "      val Mine = s 'x'\n"
      "      Ours { Deep = s 'y' }\n"
      "    }\n"
      "    Gone = s 'z'\n"
      "    Delete Stale\n"
      "    ForceRemove Fresh { Sub }\n"
      "  }\n"
      "}\n";
  MemoryRegistry registry;
  registry.putString("HKCU\\Software\\Shared", "Theirs", "kept");
  registry.putString("HKCU\\Software\\Gone\\TheirsBelowOurs", "V", "removed with ours");
  registry.make("HKCU\\Software\\Stale\\Old");
  registry.make("HKCU\\Software\\Fresh\\Leftover");
  registry.make("HKCU\\Software\\Other");

  const Lines added = applied(registry, script, true);
  EXPECT_EQ(added, sorted({
                       "HKCU\\Software",
                       "HKCU\\Software\\Fresh",
                       "HKCU\\Software\\Fresh\\Sub",
                       "HKCU\\Software\\Gone",
                       "HKCU\\Software\\Gone = s 'z'",
                       "HKCU\\Software\\Gone\\TheirsBelowOurs",
                       "HKCU\\Software\\Gone\\TheirsBelowOurs [V] = s 'removed with ours'",
                       "HKCU\\Software\\Other",
                       "HKCU\\Software\\Shared",
                       "HKCU\\Software\\Shared = s 'default stays'",
                       "HKCU\\Software\\Shared [Mine] = s 'x'",
                       "HKCU\\Software\\Shared [Theirs] = s 'kept'",
                       "HKCU\\Software\\Shared\\Ours",
                       "HKCU\\Software\\Shared\\Ours\\Deep",
                       "HKCU\\Software\\Shared\\Ours\\Deep = s 'y'",
                   }))
      << "Delete removes Stale, ForceRemove empties Fresh first";
  // Registering again changes nothing.
  EXPECT_EQ(applied(registry, script, true), added);

  const Lines removed = applied(registry, script, false);
  EXPECT_EQ(removed, sorted({
                         "HKCU\\Software",
                         "HKCU\\Software\\Other",
                         "HKCU\\Software\\Shared",
                         "HKCU\\Software\\Shared = s 'default stays'",
                         "HKCU\\Software\\Shared [Theirs] = s 'kept'",
                     }));
  // Removing again, and removing from a registry that never had it, succeed.
  EXPECT_EQ(applied(registry, script, false), removed);
  MemoryRegistry empty;
  EXPECT_EQ(applied(empty, script, false), Lines{});
}

TEST(RegistryScriptApply, AddStopsAtTheFirstFailureAndRemovalCarriesOn) {
  const std::string script = "HKCU {\n A { val V = d '1' }\n B {\n C }\n D }";
  {
    MemoryRegistry registry;
    registry.failOnce("setValue", "V", kKeyAccessDenied);
    const ScriptApplyResult r = applyRegistryScript(parsed(script), registry, true);
    EXPECT_EQ(r.error, kKeyAccessDenied);
    EXPECT_EQ(r.where, "HKCU\\A value V: could not write the value (script line 2)");
    EXPECT_EQ(registry.listing(), Lines{"HKCU\\A"});
    EXPECT_EQ(registry.openHandles(), 0);
  }
  {
    MemoryRegistry registry;
    registry.failOnce("createKey", "C", kKeyDiskFull);
    const ScriptApplyResult r = applyRegistryScript(parsed(script), registry, true);
    EXPECT_EQ(r.error, kKeyDiskFull);
    EXPECT_EQ(r.where, "HKCU\\B\\C: could not create the key (script line 4)");
    EXPECT_EQ(registry.listing(), (Lines{"HKCU\\A", "HKCU\\A [V] = d 1", "HKCU\\B"}));
    EXPECT_EQ(registry.openHandles(), 0);
  }
  {
    MemoryRegistry registry;
    ASSERT_TRUE(applyRegistryScript(parsed(script), registry, true).ok());
    registry.failOnce("deleteTree", "A", kKeyAccessDenied);
    registry.failOnce("deleteTree", "B", kKeyWriteFault);
    const ScriptApplyResult r = applyRegistryScript(parsed(script), registry, false);
    EXPECT_EQ(r.error, kKeyAccessDenied);
    EXPECT_EQ(r.where, "HKCU\\A: could not delete the key (script line 2)");
    EXPECT_EQ(registry.listing(), (Lines{"HKCU\\A", "HKCU\\A [V] = d 1", "HKCU\\B", "HKCU\\B\\C"}))
        << "D went although A and B could not";
  }
  {
    MemoryRegistry registry;
    registry.make("HKCU\\K\\Keep");
    registry.failOnce("deleteTree", "K", kKeyAccessDenied);
    const ScriptApplyResult r =
        applyRegistryScript(parsed("HKCU { ForceRemove K }"), registry, true);
    EXPECT_EQ(r.error, kKeyAccessDenied);
    EXPECT_EQ(registry.listing(), (Lines{"HKCU\\K", "HKCU\\K\\Keep"}));
  }
}

// The scripts the DLL carries, with what they must write and leave behind.
TEST(RegistryScriptApply, TheAddinScriptsRegisterAndUnregisterExactly) {
  RegistryScript appId, addin;
  ScriptError error;
  ASSERT_TRUE(parseRegistryScript(testing::addinScriptText("ferrant_appid.rgs"), kSubstitutions,
                                  appId, error))
      << error.describe();
  ASSERT_TRUE(
      parseRegistryScript(testing::addinScriptText("pim_addin.rgs"), kSubstitutions, addin, error))
      << error.describe();

  MemoryRegistry registry;
  // Other programs' entries beside ours.
  registry.putString("HKCR\\AppID\\{00000000-0000-0000-0000-000000000001}", "", "other");
  registry.putString("HKCR\\CLSID\\{00000000-0000-0000-0000-000000000002}", "", "other");
  registry.putString("HKLM\\Software\\Microsoft\\Office\\Outlook\\Addins\\Other.Addin",
                     "LoadBehavior", "3");
  const Lines before = registry.listing();

  for (int round = 0; round < 2; ++round) {  // registering twice is harmless
    ASSERT_TRUE(applyRegistryScript(appId, registry, true).ok());
    ASSERT_TRUE(applyRegistryScript(addin, registry, true).ok());
  }
  Lines expected = before;
  for (const std::string& line : testing::addinScriptLines(
           "C:\\Program Files\\Ferrant\\Ferrant.dll", "{34C2CE7C-96FF-402E-AE16-D5DB06F2A021}"))
    expected.push_back(line);
  EXPECT_EQ(registry.listing(), sorted(expected));

  for (int round = 0; round < 2; ++round) {  // removing twice is harmless
    EXPECT_TRUE(applyRegistryScript(addin, registry, false).ok());
    EXPECT_TRUE(applyRegistryScript(appId, registry, false).ok());
    EXPECT_EQ(registry.listing(), before) << "round " << round;
  }
  // On a machine where it never was, the parents made by registration stay.
  MemoryRegistry fresh;
  ASSERT_TRUE(applyRegistryScript(addin, fresh, true).ok());
  ASSERT_TRUE(applyRegistryScript(appId, fresh, true).ok());
  ASSERT_TRUE(applyRegistryScript(addin, fresh, false).ok());
  ASSERT_TRUE(applyRegistryScript(appId, fresh, false).ok());
  EXPECT_EQ(fresh.listing(), testing::addinScriptsKeptLines());
}

}  // namespace
}  // namespace PIM
