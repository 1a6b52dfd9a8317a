// Arbitrary bytes as a language file: read line by line and built into the
// text map. Must end without a crash or a hang, and every stored pair must
// obey the line rules, whatever the signature and line ends.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "core/resource_loader.h"
#include "core/unicode_file_reader.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

bool isBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  PIM::UnicodeFileReader reader;
  reader.openBuffer(std::string(data, data + size));
  PIM::ResourceLoader* loader = PIM::ResourceLoader::instance();
  loader->readResourceString(reader);
  check(!reader.isOpen());

  for (const auto& [key, value] : loader->strings()) {
    check(!key.empty() && !value.empty());
    check(key[0] != u'#' && !isBlank(key[0]));
    check(key.find(u'=') == std::u16string::npos);
    check(key.find(u'\n') == std::u16string::npos && key.find(u'\r') == std::u16string::npos);
    // Escapes are resolved once, left to right: none survives.
    check(value.find(u"\\n") == std::u16string::npos);
    check(value.find(u"\\t") == std::u16string::npos);
    check(loader->getStringValue(key, u"") == value);
  }
  loader->isRtl();
  PIM::ResourceLoader::freeInstance();
  return 0;
}
