// Members of a distribution list, kept as one-off entry identifiers: 4 bytes
// of flags, the one-off provider's 16-byte UID, a 16-bit version, a 16-bit
// flags word (bit 15 = Unicode), then the display name, address type and
// address, each ending in NUL.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "data/record.h"

namespace PIM {

// The member's text: "name <address>" for an SMTP member, else the name.
// False, with the log line that says why written at `site`, when the value is
// not a one-off identifier of three strings.
bool decodeOneOffMember(const LogSite& site, const std::vector<uint8_t>& value,
                        std::u16string& member);
// The same as an operation of its own, for a member decoded outside a capture.
bool decodeOneOffMember(const std::vector<uint8_t>& value, std::u16string& member);

// The pieces of a buffer cut at each terminating NUL (a 16-bit zero in the
// first form, a zero byte in the second), empty pieces included; text after
// the last NUL is dropped. 8-bit pieces are converted with the system's code
// page.
std::vector<std::u16string> getStrings(const std::vector<char16_t>& units);
std::vector<std::u16string> getStrings(const std::vector<char>& bytes);

}  // namespace PIM
