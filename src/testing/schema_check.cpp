#include "testing/schema_check.h"

#include <cstdio>
#include <memory>

#include "core/utils.h"

namespace PIM::testing {

std::optional<std::string> schemaErrors(const std::u16string& path) {
#if defined(__linux__) && defined(FERRANT_DATA_SCHEMA)
  const std::string command = std::string("xmllint --noout --schema '") + FERRANT_DATA_SCHEMA +
                              "' '" + toUtf8(path) + "' 2>&1";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  if (!pipe) return std::string("xmllint could not be started");
  std::string output;
  char buffer[512];
  while (size_t n = fread(buffer, 1, sizeof buffer, pipe.get())) output.append(buffer, n);
  const int status = pclose(pipe.release());
  // xmllint says "<file> validates" on success.
  return status == 0 ? std::string() : output;
#else
  (void)path;
  return std::nullopt;
#endif
}

}  // namespace PIM::testing
