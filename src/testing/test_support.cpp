#include "testing/test_support.h"

#include <atomic>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <random>

#include "core/debug_logger.h"

namespace PIM::testing {

LogCapture::LogCapture() { DebugLogger::instance().redirectForTesting(&sink_); }
LogCapture::~LogCapture() { DebugLogger::instance().redirectForTesting(nullptr); }

std::vector<std::string> LogCapture::lines() const {
  std::vector<std::string> out;
  std::istringstream in(sink_.str());
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    auto end = line.find("] ");
    out.push_back(line.compare(0, 1, "[") == 0 && end != std::string::npos ? line.substr(end + 2)
                                                                           : line);
  }
  return out;
}

std::vector<std::string> LogCapture::messages() const {
  std::vector<std::string> out;
  for (const auto& line : lines()) {
    for (const char* marker : {" ERR> ", " MSG> "}) {
      auto at = line.find(marker);
      if (at != std::string::npos) {
        out.push_back(line.substr(at + 6));
        break;
      }
    }
  }
  return out;
}

bool LogCapture::contains(const std::string& text) const {
  return sink_.str().find(text) != std::string::npos;
}

TempDir::TempDir() {
  static std::atomic<unsigned> counter{0};
  std::random_device random;
  auto base = std::filesystem::temp_directory_path();
  for (;;) {
    auto candidate =
        base / ("ferrant-test-" + std::to_string(random()) + "-" + std::to_string(counter++));
    std::error_code ec;
    if (std::filesystem::create_directory(candidate, ec)) {
      path_ = candidate.u16string();
      return;
    }
  }
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(std::filesystem::path(path_), ec);
}

std::string readFileBytes(const std::u16string& path) {
  std::ifstream in(std::filesystem::path(path), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFileBytes(const std::u16string& path, const std::string& bytes) {
  std::ofstream out(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), std::streamsize(bytes.size()));
}

std::string sharedTestData() {
  std::error_code ec;
  std::filesystem::path dir(FERRANT_SHARED_TESTDATA);
  return std::filesystem::is_directory(dir, ec) ? dir.string() : std::string();
}

std::vector<uint8_t> sharedBlob(const std::string& fileName) {
  const std::string dir = sharedTestData();
  std::error_code ec;
  const std::filesystem::path path = std::filesystem::path(dir) / "mapi-blobs" / fileName;
  if (dir.empty() || !std::filesystem::exists(path, ec)) return {};
  std::string digits;
  for (char c : readFileBytes(path.u16string()))
    if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  return bytes;
}

}  // namespace PIM::testing
