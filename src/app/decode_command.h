// `ferrant decode`: turns a blob copied from a store (as hexadecimal) into
// what the capture would write of it, for support work.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace PIM {

// Hexadecimal digits with any blanks and line breaks between them; nothing
// when a character is not a digit or the count of digits is odd.
std::optional<std::vector<uint8_t>> parseHex(const std::string& text);

// argv after "decode". Writes the result to `out` and the log's error lines
// and usage errors to `err`; returns the process exit code.
int runDecode(int argc, char** argv, std::ostream& out, std::ostream& err);

}  // namespace PIM
