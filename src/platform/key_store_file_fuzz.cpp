// Any bytes parse without a crash, and what the parser kept is written so
// that it reads back as the same tree, without problems, and writes the
// same text again.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/key_store_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace PIM::keyfile;
  ParsedStore first = parseStoreText(std::string_view(reinterpret_cast<const char*>(data), size));
  if (first.newerFormat) return 0;
  std::string text = storeText(first.root);
  ParsedStore second = parseStoreText(text);
  if (!second.problems.empty() || second.newerFormat || second.version != kFormatVersion ||
      !(second.root == first.root) || storeText(second.root) != text) {
    std::abort();
  }
  return 0;
}
