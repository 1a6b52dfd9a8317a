#include "core/unicode_file_reader.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/debug_logger.h"
#include "core/utils.h"

namespace PIM {

namespace {
constexpr char16_t kCarriageReturn = 13;
constexpr char16_t kLineFeed = 10;

bool isLineEnd(char16_t unit) { return unit == kCarriageReturn || unit == kLineFeed; }
}  // namespace

UnicodeFileReader::UnicodeFileReader() = default;

UnicodeFileReader::~UnicodeFileReader() { close(); }

bool UnicodeFileReader::open(const std::u16string& path) {
  PIM_ENTRY("PIM::UnicodeFileReader::open");
  close();
  auto file = std::make_unique<std::ifstream>(std::filesystem::path(path), std::ios::binary);
  if (!file->is_open()) {
    PIM_LOG_ERR("Could not open the specified file.");
    return false;
  }
  start(std::move(file));
  return true;
}

bool UnicodeFileReader::openBuffer(const std::string& bytes) {
  PIM_ENTRY("PIM::UnicodeFileReader::openBuffer");
  close();
  start(std::make_unique<std::istringstream>(bytes, std::ios::in | std::ios::binary));
  return true;
}

void UnicodeFileReader::start(std::unique_ptr<std::istream> stream) {
  PIM_ENTRY("PIM::UnicodeFileReader::start");
  stream_ = std::move(stream);
  littleEndian_ = true;
  singleByte_ = false;
  unsigned char low = 0;
  unsigned char high = 0;
  bool haveSignature = readByte(low) && readByte(high);
  uint16_t signature = uint16_t(low | (high << 8));
  if (haveSignature && signature == 0xFEFF) return;
  if (haveSignature && signature == 0xFFFE) {
    littleEndian_ = false;
    return;
  }
  PIM_LOG_ERR("Possibly invalid resource file. No UNICODE signature found. Reading as ASCII.");
  singleByte_ = true;
  stream_->clear();
  stream_->seekg(0);
}

bool UnicodeFileReader::isOpen() const { return stream_ != nullptr; }

void UnicodeFileReader::close() { stream_.reset(); }

bool UnicodeFileReader::readByte(unsigned char& byte) {
  char c = 0;
  if (!stream_->get(c)) return false;
  byte = static_cast<unsigned char>(c);
  return true;
}

bool UnicodeFileReader::readUnit(char16_t& unit) {
  unsigned char first = 0;
  unsigned char second = 0;
  if (!readByte(first) || !readByte(second)) return false;
  unit = littleEndian_ ? char16_t(first | (second << 8)) : char16_t((first << 8) | second);
  return true;
}

// Only ever called straight after a successful read, so the stream is good.
void UnicodeFileReader::stepBackOneByte() { stream_->seekg(-1, std::ios::cur); }

bool UnicodeFileReader::getLine(std::u16string& line) {
  PIM_ENTRY("PIM::UnicodeFileReader::getLine");
  if (!stream_) return false;
  if (singleByte_) return getLineUtf8(line);
  line.clear();
  char16_t unit = 0;
  for (;;) {
    if (!readUnit(unit)) return false;  // an unfinished last line is dropped
    if (isLineEnd(unit)) break;
    line.push_back(unit);
  }
  // Swallows the LF of a CR LF pair. Anything else is given back by one
  // byte, not one unit: files with other line ends lose their alignment, as
  // they always have.
  if (readUnit(unit) && !isLineEnd(unit)) stepBackOneByte();
  return true;
}

bool UnicodeFileReader::getLineUtf8(std::u16string& line) {
  PIM_ENTRY("PIM::UnicodeFileReader::getLineUtf8");
  if (!stream_) return false;
  std::string bytes;
  unsigned char byte = 0;
  for (;;) {
    if (!readByte(byte)) return false;
    if (isLineEnd(byte)) break;
    bytes.push_back(static_cast<char>(byte));
  }
  if (readByte(byte) && !isLineEnd(byte)) stepBackOneByte();
  line = fromUtf8(bytes);
  return true;
}

}  // namespace PIM
