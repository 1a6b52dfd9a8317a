// Checks a written data file or index against the published schema.
#pragma once

#include <optional>
#include <string>

namespace PIM::testing {

// Runs xmllint against XMLDataSchema.xsd: the empty string when the file is
// valid, else what xmllint said. Off Linux the check is not available and
// answers std::nullopt.
std::optional<std::string> schemaErrors(const std::u16string& path);

}  // namespace PIM::testing
