// Registration scripts from arbitrary bytes: decoding and parsing never
// crash, and whatever parses applies to an in-memory registry in both modes
// with every handle closed, removal twice leaving the same keys.
#include <cstdint>
#include <cstdlib>

#include "addin/registry_script.h"
#include "addin/registry_script_testing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::u16string text;
  if (!PIM::decodeRegistryScript(std::string_view(reinterpret_cast<const char*>(data), size), text))
    return 0;
  const PIM::ScriptSubstitutions substitutions = {
      {u"MODULE", u"C:\\It's 100%\\F.dll"}, {u"APPID", u"{34C2CE7C-96FF-402E-AE16-D5DB06F2A021}"}};
  PIM::RegistryScript script;
  PIM::ScriptError error;
  if (!PIM::parseRegistryScript(text, substitutions, script, error)) {
    if (error.line < 1 || error.message.empty()) abort();
    return 0;
  }
  PIM::testing::MemoryRegistry registry;
  if (!PIM::applyRegistryScript(script, registry, true).ok()) abort();
  if (!PIM::applyRegistryScript(script, registry, false).ok()) abort();
  const auto removed = registry.listing();
  if (!PIM::applyRegistryScript(script, registry, false).ok()) abort();
  if (registry.listing() != removed || registry.openHandles() != 0) abort();
  return 0;
}
