#include "addin/registrar_win32.h"

#include <vector>

#include "core/debug_logger.h"
#include "core/utils.h"
#include "mapi/com_error.h"
#include "platform/win32/win32_env.h"

namespace PIM {

namespace {

// A 64-bit server registers in the 64-bit view even when the handle it is
// given came from somewhere else; a 32-bit one stays in the view the system
// redirects it to, where 32-bit Outlook looks for it.
#ifdef _WIN64
constexpr REGSAM kView = KEY_WOW64_64KEY;
#else
constexpr REGSAM kView = 0;
#endif

HKEY toKey(KeyHandle key) { return static_cast<HKEY>(key); }

// The value name Win32 wants: null for the key's default value.
const wchar_t* valueName(const std::u16string& name) { return name.empty() ? nullptr : wide(name); }

std::string modeText(bool registering) { return registering ? "registering" : "unregistering"; }

}  // namespace

void Win32Registry::redirect(RegistryRoot root, HKEY key) { roots_[int(root)] = key; }

KeyHandle Win32Registry::root(RegistryRoot root) { return roots_[int(root)]; }

long Win32Registry::createKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) {
  HKEY key = nullptr;
  const LONG r = RegCreateKeyExW(toKey(parent), wide(name), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                 KEY_ALL_ACCESS | kView, nullptr, &key, nullptr);
  *out = r == ERROR_SUCCESS ? key : nullptr;
  return r;
}

long Win32Registry::openKey(KeyHandle parent, const std::u16string& name, KeyHandle* out) {
  HKEY key = nullptr;
  const LONG r = RegOpenKeyExW(toKey(parent), wide(name), 0, KEY_ALL_ACCESS | kView, &key);
  *out = r == ERROR_SUCCESS ? key : nullptr;
  return r;
}

void Win32Registry::closeKey(KeyHandle key) { RegCloseKey(toKey(key)); }

long Win32Registry::setString(KeyHandle key, const std::u16string& name,
                              const std::u16string& text) {
  const DWORD bytes = DWORD((text.size() + 1) * sizeof(char16_t));  // with the NUL
  return RegSetValueExW(toKey(key), valueName(name), 0, REG_SZ,
                        reinterpret_cast<const BYTE*>(text.c_str()), bytes);
}

long Win32Registry::setDword(KeyHandle key, const std::u16string& name, uint32_t value) {
  const BYTE bytes[4] = {BYTE(value), BYTE(value >> 8), BYTE(value >> 16), BYTE(value >> 24)};
  return RegSetValueExW(toKey(key), valueName(name), 0, REG_DWORD, bytes, sizeof bytes);
}

long Win32Registry::deleteValue(KeyHandle key, const std::u16string& name) {
  return RegDeleteValueW(toKey(key), valueName(name));
}

long Win32Registry::deleteTree(KeyHandle parent, const std::u16string& name) {
  // Emptied through a handle of the right view, then deleted in that view:
  // RegDeleteTree given the name would open it in the default view.
  KeyHandle key = nullptr;
  const long opened = openKey(parent, name, &key);
  if (opened != ERROR_SUCCESS) return opened;
  const LONG emptied = RegDeleteTreeW(toKey(key), nullptr);
  RegCloseKey(toKey(key));
  if (emptied != ERROR_SUCCESS) return emptied;
  return RegDeleteKeyExW(toKey(parent), wide(name), kView, 0);
}

HRESULT loadRegistryScript(HMODULE module, int resourceId, std::u16string& text) {
  text.clear();
  HRSRC found = FindResourceW(module, MAKEINTRESOURCEW(resourceId), L"REGISTRY");
  if (!found) {
    const DWORD error = GetLastError();
    return HRESULT_FROM_WIN32(error ? error : ERROR_RESOURCE_NAME_NOT_FOUND);
  }
  HGLOBAL loaded = LoadResource(module, found);
  const void* bytes = loaded ? LockResource(loaded) : nullptr;
  if (!bytes) {
    const DWORD error = GetLastError();
    return HRESULT_FROM_WIN32(error ? error : ERROR_RESOURCE_DATA_NOT_FOUND);
  }
  const std::string_view data(static_cast<const char*>(bytes), SizeofResource(module, found));
  if (!decodeRegistryScript(data, text)) return HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
  return S_OK;
}

HRESULT applyRegistryText(const std::u16string& text, const ScriptSubstitutions& substitutions,
                          RegistryTarget& target, bool registering, const std::string& scriptName) {
  PIM_ENTRY("PIM::applyRegistryText");
  RegistryScript script;
  ScriptError error;
  if (!parseRegistryScript(text, substitutions, script, error)) {
    const HRESULT hr = HRESULT_FROM_WIN32(ERROR_INVALID_DATA);
    PIM_LOG_HR(hr, "Registration script " << scriptName << " " << error.describe());
    return hr;
  }
  const ScriptApplyResult result = applyRegistryScript(script, target, registering);
  if (result.ok()) return S_OK;
  const HRESULT hr = HRESULT_FROM_WIN32(result.error);
  PIM_LOG_HR(hr, "Registration script " << scriptName << ", " << modeText(registering) << ": "
                                        << result.where);
  return hr;
}

HRESULT applyRegistryResource(HMODULE module, int resourceId, bool registering,
                              const std::u16string& appId) {
  PIM_ENTRY("PIM::applyRegistryResource");
  const std::string scriptName = std::to_string(resourceId);
  std::u16string text;
  HRESULT hr = loadRegistryScript(module, resourceId, text);
  if (FAILED(hr)) {
    PIM_LOG_HR(hr, "Could not load the registration script " << scriptName);
    return hr;
  }
  // Paths may be longer than MAX_PATH; the call cuts them short silently
  // when the buffer is too small, so grow it until the whole path fits.
  std::vector<wchar_t> path(MAX_PATH);
  for (;;) {
    const DWORD length = GetModuleFileNameW(module, path.data(), DWORD(path.size()));
    if (length == 0) {
      hr = HRESULT_FROM_WIN32(GetLastError());
      if (SUCCEEDED(hr)) hr = E_FAIL;
      PIM_LOG_HR(hr,
                 "Could not tell the path of the module for registration script " << scriptName);
      return hr;
    }
    if (length < path.size()) {
      path.resize(length);
      break;
    }
    path.resize(path.size() * 2);
  }
  const std::u16string modulePath(reinterpret_cast<const char16_t*>(path.data()), path.size());
  Win32Registry registry;
  return applyRegistryText(text, {{u"MODULE", modulePath}, {u"APPID", appId}}, registry,
                           registering, scriptName);
}

}  // namespace PIM
