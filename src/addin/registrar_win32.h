// The registrar: the registration scripts compiled into the DLL as
// "REGISTRY" resources, applied to the Windows registry.
//
//   STDAPI DllRegisterServer() {
//     HRESULT hr = PIM::applyRegistryResource(module, PIM::kAppIdScriptResource, true, appId);
//     ...
//
// 64-bit builds write the 64-bit view; 32-bit builds write the view the
// system gives 32-bit programs, which is where 32-bit Outlook reads.
#pragma once

// Resource numbers of the scripts; registry_scripts.rc reads them too.
#define FERRANT_IDR_APPID_SCRIPT 101
#define FERRANT_IDR_ADDIN_SCRIPT 102

#ifndef RC_INVOKED

#include <windows.h>

#include <string>

#include "addin/registry_script.h"

namespace PIM {

// The AppID script: HKCR\AppID\%APPID% and HKCR\AppID\Ferrant.DLL.
inline constexpr int kAppIdScriptResource = FERRANT_IDR_APPID_SCRIPT;
// The class and Outlook script: the ProgIDs, the CLSID and the Addins entry.
inline constexpr int kAddinScriptResource = FERRANT_IDR_ADDIN_SCRIPT;

// The registry through the Win32 calls. Each root may be sent to another
// open key instead (tests point them below a key of their own); the key
// stays the caller's.
class Win32Registry final : public RegistryTarget {
 public:
  void redirect(RegistryRoot root, HKEY key);

  KeyHandle root(RegistryRoot root) override;
  long createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) override;
  long openKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) override;
  void closeKey(KeyHandle key) override;
  long setString(KeyHandle key, const std::u16string& name, const std::u16string& text) override;
  long setDword(KeyHandle key, const std::u16string& name, uint32_t value) override;
  long deleteValue(KeyHandle key, const std::u16string& name) override;
  long deleteTree(KeyHandle parent, const std::u16string& name) override;

 private:
  HKEY roots_[3] = {HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE};
};

// The text of the "REGISTRY" resource `resourceId` of `module` (a module
// loaded as a data file will do). Fails with the system's code when there is
// none, and with HRESULT_FROM_WIN32(ERROR_INVALID_DATA) for bytes that are
// not UTF-8 or UTF-16 text.
[[nodiscard]] HRESULT loadRegistryScript(HMODULE module, int resourceId, std::u16string& text);

// Parses `text` with `substitutions` and applies it to `target`. A script
// that does not parse gives HRESULT_FROM_WIN32(ERROR_INVALID_DATA) and
// changes nothing; a failing registry call its code as an HRESULT. Every
// failure is one error line in the diagnostic log, naming `scriptName`.
[[nodiscard]] HRESULT applyRegistryText(const std::u16string& text,
                                        const ScriptSubstitutions& substitutions,
                                        RegistryTarget& target, bool registering,
                                        const std::string& scriptName);

// What DllRegisterServer and DllUnregisterServer call: applies the
// "REGISTRY" resource `resourceId` of `module` to the registry, with
// %MODULE% the module's full path and %APPID% `appId` (in braces, as the
// scripts write it). Returns S_OK or the first failing HRESULT.
[[nodiscard]] HRESULT applyRegistryResource(HMODULE module, int resourceId, bool registering,
                                            const std::u16string& appId);

}  // namespace PIM

#endif  // RC_INVOKED
