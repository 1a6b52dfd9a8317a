#include "data/one_off_member.h"

#include <cstddef>

#include "core/debug_logger.h"
#include "core/utils.h"

namespace PIM {

namespace {

// 8-bit member strings are in the code page of the machine that saved them,
// which the store does not record; the system's ANSI code page is the best
// guess. The POSIX env knows no CP_ACP (0 fails there), so off Windows the
// Western code page stands in for it, as on most machines that save 8-bit
// members.
#ifdef _WIN32
constexpr uint32_t kAnsiCodePage = 0;  // CP_ACP
#else
constexpr uint32_t kAnsiCodePage = 1252;
#endif

constexpr size_t kStringsOffset = 24;
constexpr size_t kFlagsOffset = 22;
constexpr uint16_t kUnicodeFlag = 0x8000;

// Reads little-endian fields off a byte array; every read checks the length
// first and fails instead of running past the end.
class BlobReader {
 public:
  explicit BlobReader(const std::vector<uint8_t>& bytes) : bytes_(bytes) {}

  size_t remaining() const { return bytes_.size() - at_; }
  bool seek(size_t offset) {
    if (offset > bytes_.size()) return false;
    at_ = offset;
    return true;
  }
  bool readUint16(uint16_t& out) {
    if (remaining() < 2) return false;
    out = static_cast<uint16_t>(bytes_[at_] | bytes_[at_ + 1] << 8);
    at_ += 2;
    return true;
  }
  // The rest as 16-bit units; false when an odd byte would be left over.
  bool readUnits(std::vector<char16_t>& out) {
    if (remaining() % 2 != 0) return false;
    out.reserve(remaining() / 2);
    uint16_t unit = 0;
    while (readUint16(unit)) out.push_back(static_cast<char16_t>(unit));
    return true;
  }
  void readBytes(std::vector<char>& out) {
    out.reserve(remaining());
    for (; at_ < bytes_.size(); ++at_) out.push_back(static_cast<char>(bytes_[at_]));
  }

 private:
  const std::vector<uint8_t>& bytes_;
  size_t at_ = 0;
};

// The pieces of `text` ending in a zero; what follows the last zero is
// dropped.
template <class Char>
std::vector<std::basic_string<Char>> splitAtNul(const std::vector<Char>& text) {
  std::vector<std::basic_string<Char>> pieces;
  std::basic_string<Char> piece;
  for (Char c : text) {
    if (c == 0) {
      pieces.push_back(std::move(piece));
      piece.clear();
    } else {
      piece.push_back(c);
    }
  }
  return pieces;
}

}  // namespace

std::vector<std::u16string> getStrings(const std::vector<char16_t>& units) {
  PIM_ENTRY("PIM::getStrings");
  return splitAtNul(units);
}

std::vector<std::u16string> getStrings(const std::vector<char>& bytes) {
  PIM_ENTRY("PIM::getStrings");
  std::vector<std::u16string> strings;
  for (const std::string& piece : splitAtNul(bytes))
    strings.push_back(fromCodePage(kAnsiCodePage, piece));
  return strings;
}

bool decodeOneOffMember(const std::vector<uint8_t>& value, std::u16string& member) {
  PIM_ENTRY("PIM::decodeOneOffMember");
  return decodeOneOffMember(PIM_LOG_SITE, value, member);
}

bool decodeOneOffMember(const LogSite& site, const std::vector<uint8_t>& value,
                        std::u16string& member) {
  BlobReader reader(value);
  uint16_t flags = 0;
  if (value.size() < kStringsOffset || !reader.seek(kFlagsOffset) || !reader.readUint16(flags)) {
    logErrorAt(site, "Data stored in the binary blob is invalid for this entry.");
    return false;
  }
  std::vector<std::u16string> strings;
  if (flags & kUnicodeFlag) {
    std::vector<char16_t> units;
    if (!reader.readUnits(units)) {
      logErrorAt(
          site, "Data stored in the binary blob for this entry is either not unicode, or invalid.");
      return false;
    }
    strings = getStrings(units);
  } else {
    std::vector<char> bytes;
    reader.readBytes(bytes);
    strings = getStrings(bytes);
  }
  if (strings.size() != 3) {
    logErrorAt(site, "Invalid number of strings stored in binary blog.");
    return false;
  }
  const std::u16string& displayName = strings[0];
  const std::u16string& addressType = strings[1];
  const std::u16string& address = strings[2];
  member = addressType == u"SMTP" ? displayName + u" <" + address + u">" : displayName;
  return true;
}

}  // namespace PIM
