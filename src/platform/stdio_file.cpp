#include "platform/stdio_file.h"

namespace PIM {

std::unique_ptr<WritableFile> StdioWritableFile::adopt(std::FILE* stream) {
  if (!stream) return nullptr;
  return std::unique_ptr<WritableFile>(new StdioWritableFile(stream));
}

StdioWritableFile::~StdioWritableFile() { std::fclose(stream_); }

size_t StdioWritableFile::write(const void* data, size_t size) {
  if (size == 0) return 0;
  return std::fwrite(data, 1, size, stream_);
}

}  // namespace PIM
