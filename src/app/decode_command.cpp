#include "app/decode_command.h"

#include <cstring>
#include <ostream>
#include <sstream>

#include "app/exit_codes.h"
#include "core/debug_logger.h"
#include "core/utils.h"
#include "data/mapi_recurrence.h"
#include "data/one_off_member.h"
#include "prefs/preferences.h"

namespace PIM {

namespace {

const char kDecodeUsage[] =
    "usage: ferrant decode recurrence HEX...\n"
    "       ferrant decode oneoff HEX...\n"
    "\n"
    "Prints what a capture writes of the blob: the <recurrence> element of an\n"
    "appointment's recurrence pattern (nothing when the pattern is dropped), or\n"
    "the text of a distribution-list member. HEX may hold blanks and line breaks.\n"
    "Why a blob is rejected is printed on standard error as the log writes it.\n";

// Sends the diagnostic log's lines to a buffer while it lives, so that the
// reason for a rejection can be shown to the person at the terminal.
class LogToBuffer {
 public:
  LogToBuffer() { DebugLogger::instance().redirectForTesting(&lines_); }
  ~LogToBuffer() { DebugLogger::instance().redirectForTesting(nullptr); }
  // The error lines, each ending in a line break.
  std::string errorLines() const {
    std::istringstream in(lines_.str());
    std::string result;
    for (std::string line; std::getline(in, line);)
      if (line.find(" ERR> ") != std::string::npos) result += line + "\n";
    return result;
  }

 private:
  std::ostringstream lines_;
};

}  // namespace

std::optional<std::vector<uint8_t>> parseHex(const std::string& text) {
  std::vector<uint8_t> bytes;
  int high = -1;
  for (char c : text) {
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      return std::nullopt;
    }
    if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
      high = -1;
    }
  }
  if (high >= 0) return std::nullopt;
  return bytes;
}

int runDecode(int argc, char** argv, std::ostream& out, std::ostream& err) {
  PIM_ENTRY("ferrant::runDecode");
  if (argc >= 1 && (!std::strcmp(argv[0], "--help") || !std::strcmp(argv[0], "-h"))) {
    out << kDecodeUsage;
    return kExitOk;
  }
  if (argc < 2) {
    err << kDecodeUsage;
    return kExitUsage;
  }
  const std::string kind = argv[0];
  if (kind != "recurrence" && kind != "oneoff") {
    err << "ferrant decode: unknown blob kind '" << kind << "' (recurrence or oneoff)\n";
    return kExitUsage;
  }
  std::string hex;
  for (int i = 1; i < argc; ++i) hex += std::string(argv[i]) + " ";
  const std::optional<std::vector<uint8_t>> bytes = parseHex(hex);
  if (!bytes) {
    err << "ferrant decode: HEX must be pairs of hexadecimal digits\n";
    return kExitUsage;
  }

  // The limits the user set, as a capture would write them; values never
  // saved are logged as missing, which is no fault of the blob.
  if (kind == "recurrence") Preferences::instance().loadCalendarWindow();
  LogToBuffer log;
  if (kind == "recurrence") {
    MAPIRecurrence recurrence;
    recurrence.reset(*bytes);
    out << toUtf8(recurrence.toXml());
    err << log.errorLines();
    return recurrence.type == MAPIRecurrence::None ? kExitRejected : kExitOk;
  }
  std::u16string member;
  const bool ok = decodeOneOffMember(*bytes, member);
  if (ok) out << toUtf8(member) << "\n";
  err << log.errorLines();
  return ok ? kExitOk : kExitRejected;
}

}  // namespace PIM
