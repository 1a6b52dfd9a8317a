#include "store/pst/compressed_rtf.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "core/utils.h"

namespace PIM::store {

namespace {

constexpr uint32_t kCompressed = 0x75465A4C;    // "LZFu"
constexpr uint32_t kUncompressed = 0x414C454D;  // "MELA"
constexpr size_t kHeader = 16;
constexpr size_t kDictionary = 4096;
// What a writer's dictionary holds before the first byte.
constexpr char kPrologue[] =
    "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss "
    "\\fmodern \\fscript \\fdecor MS Sans SerifSymbolArialTimes New RomanCourier"
    "{\\colortbl\\red0\\green0\\blue0\r\n\\par \\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx";
// Never more than this, whatever the header claims.
constexpr uint32_t kMaxRaw = 64u << 20;

uint32_t le32(const uint8_t* p) {
  return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

uint32_t crc32(const uint8_t* p, size_t n) {
  static const std::array<uint32_t, 256> table = [] {
    std::array<uint32_t, 256> t{};
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      t[i] = c;
    }
    return t;
  }();
  uint32_t crc = 0;
  for (size_t i = 0; i < n; ++i) crc = table[(crc ^ p[i]) & 0xFF] ^ (crc >> 8);
  return crc;
}

}  // namespace

bool decompressRtf(const uint8_t* data, size_t size, std::string& rtf, std::string& error) {
  rtf.clear();
  if (size < kHeader) {
    error = "compressed RTF shorter than its header";
    return false;
  }
  const uint32_t compSize = le32(data);
  const uint32_t rawSize = le32(data + 4);
  const uint32_t kind = le32(data + 8);
  const uint32_t crc = le32(data + 12);
  // compSize counts everything after itself.
  if (compSize < kHeader - 4 || compSize - (kHeader - 4) > size - kHeader) {
    error = "compressed RTF size beyond the value";
    return false;
  }
  const uint8_t* in = data + kHeader;
  const size_t inSize = compSize - (kHeader - 4);
  if (rawSize > kMaxRaw) {
    error = "compressed RTF claims an unreasonable size";
    return false;
  }
  if (kind == kUncompressed) {
    if (rawSize > inSize) {
      error = "uncompressed RTF shorter than its size";
      return false;
    }
    rtf.assign(reinterpret_cast<const char*>(in), rawSize);
    return true;
  }
  if (kind != kCompressed) {
    error = "unknown compressed RTF kind";
    return false;
  }
  if (crc32(in, inSize) != crc) {
    error = "compressed RTF checksum does not match";
    return false;
  }
  std::array<uint8_t, kDictionary> dict{};
  const size_t prologue = sizeof kPrologue - 1;
  std::memcpy(dict.data(), kPrologue, prologue);
  size_t write = prologue;
  rtf.reserve(std::min<size_t>(rawSize, inSize * 16));
  size_t pos = 0;
  while (pos < inSize) {
    const uint8_t control = in[pos++];
    for (int bit = 0; bit < 8; ++bit) {
      if (pos >= inSize) break;
      if (!(control & (1u << bit))) {
        const uint8_t c = in[pos++];
        rtf.push_back(static_cast<char>(c));
        dict[write] = c;
        write = (write + 1) % kDictionary;
      } else {
        if (pos + 2 > inSize) {
          error = "compressed RTF ends inside a reference";
          return false;
        }
        const uint16_t ref = static_cast<uint16_t>(in[pos] << 8 | in[pos + 1]);
        pos += 2;
        size_t offset = ref >> 4;
        const size_t length = (ref & 0xF) + 2;
        // A reference to the write position itself ends the stream.
        if (offset == write) return true;
        for (size_t i = 0; i < length; ++i) {
          const uint8_t c = dict[offset];
          offset = (offset + 1) % kDictionary;
          rtf.push_back(static_cast<char>(c));
          dict[write] = c;
          write = (write + 1) % kDictionary;
        }
      }
      if (rtf.size() > rawSize + 16u) {
        error = "compressed RTF longer than its size";
        return false;
      }
    }
  }
  // Writers end with the end marker; a stream cut just after its last run
  // still gives its text.
  return true;
}

namespace {

// Destinations whose contents are not text a reader sees.
bool hiddenDestination(const std::string& word) {
  static const char* const kHidden[] = {"fonttbl",
                                        "colortbl",
                                        "stylesheet",
                                        "info",
                                        "pict",
                                        "object",
                                        "header",
                                        "footer",
                                        "headerl",
                                        "headerr",
                                        "headerf",
                                        "footerl",
                                        "footerr",
                                        "footerf",
                                        "themedata",
                                        "colorschememapping",
                                        "latentstyles",
                                        "datastore",
                                        "xmlnstbl",
                                        "listtable",
                                        "listoverridetable",
                                        "rsidtbl",
                                        "generator",
                                        "filetbl",
                                        "revtbl"};
  for (const char* h : kHidden)
    if (word == h) return true;
  return false;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

class RtfText {
 public:
  explicit RtfText(const std::string& rtf) : s_(rtf) {}

  std::u16string run() {
    struct Group {
      bool hidden;
      int uc;
    };
    std::vector<Group> stack;
    Group g{false, 1};
    int skip = 0;  // characters still to skip after \uN
    size_t i = 0;
    while (i < s_.size()) {
      const char c = s_[i];
      if (c == '{') {
        stack.push_back(g);
        ++i;
        // "{\*" marks a destination a reader that does not know it skips.
        if (i + 1 < s_.size() && s_[i] == '\\' && s_[i + 1] == '*') {
          g.hidden = true;
          i += 2;
        }
        continue;
      }
      if (c == '}') {
        if (!stack.empty()) {
          g = stack.back();
          stack.pop_back();
        }
        ++i;
        continue;
      }
      if (c == '\\') {
        ++i;
        if (i >= s_.size()) break;
        const char n = s_[i];
        if (n == '\'') {
          if (i + 2 < s_.size() + 0 && hexDigit(s_[i + 1]) >= 0 && hexDigit(s_[i + 2]) >= 0) {
            const char byte = static_cast<char>(hexDigit(s_[i + 1]) * 16 + hexDigit(s_[i + 2]));
            i += 3;
            if (skip > 0) {
              --skip;
            } else if (!g.hidden) {
              pending_.push_back(byte);
            }
          } else {
            ++i;
          }
          continue;
        }
        if (!isalpha(static_cast<unsigned char>(n))) {
          // Control symbols: escaped braces and backslash are text.
          if ((n == '\\' || n == '{' || n == '}') && !g.hidden) {
            if (skip > 0)
              --skip;
            else
              pending_.push_back(n);
          } else if (n == '~' && !g.hidden) {
            pending_.push_back(' ');
          }
          ++i;
          continue;
        }
        std::string word;
        while (i < s_.size() && isalpha(static_cast<unsigned char>(s_[i]))) word += s_[i++];
        bool hasParam = false;
        bool negative = false;
        long param = 0;
        if (i < s_.size() && s_[i] == '-') {
          negative = true;
          ++i;
        }
        while (i < s_.size() && isdigit(static_cast<unsigned char>(s_[i]))) {
          hasParam = true;
          if (param < 1000000) param = param * 10 + (s_[i] - '0');
          ++i;
        }
        if (negative) param = -param;
        if (i < s_.size() && s_[i] == ' ') ++i;
        if (word == "ansicpg" && hasParam && param > 0) {
          codePage_ = static_cast<uint32_t>(param);
        } else if (hiddenDestination(word)) {
          g.hidden = true;
        } else if (g.hidden) {
          continue;
        } else if (word == "par" || word == "line") {
          text(u"\r\n");
        } else if (word == "tab") {
          text(u"\t");
        } else if (word == "uc" && hasParam) {
          g.uc = static_cast<int>(std::clamp(param, 0L, 10L));
        } else if (word == "u" && hasParam) {
          flush();
          out_.push_back(static_cast<char16_t>(param < 0 ? param + 65536 : param));
          skip = g.uc;
        }
        continue;
      }
      ++i;
      if (c == '\r' || c == '\n' || g.hidden) continue;
      if (skip > 0) {
        --skip;
        continue;
      }
      pending_.push_back(c);
    }
    flush();
    return out_;
  }

 private:
  void text(const std::u16string& t) {
    flush();
    out_ += t;
  }
  void flush() {
    if (pending_.empty()) return;
    out_ += fromCodePage(codePage_, pending_);
    pending_.clear();
  }

  const std::string& s_;
  std::u16string out_;
  std::string pending_;
  uint32_t codePage_ = 1252;
};

}  // namespace

std::u16string rtfToText(const std::string& rtf) { return RtfText(rtf).run(); }

}  // namespace PIM::store
