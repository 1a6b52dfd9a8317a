#include "platform/stdio_file.h"

namespace PIM {

std::unique_ptr<WritableFile> StdioWritableFile::adopt(std::FILE* stream) {
  if (!stream) return nullptr;
  return std::unique_ptr<WritableFile>(new StdioWritableFile(stream));
}

StdioWritableFile::~StdioWritableFile() { close(); }

size_t StdioWritableFile::write(const void* data, size_t size) {
  if (size == 0 || !stream_) return 0;
  return std::fwrite(data, 1, size, stream_);
}

bool StdioWritableFile::close() {
  if (!stream_) return false;
  // fwrite only fills the buffer; the bytes meet the disk in fflush, and
  // ferror remembers a failure of any earlier implicit flush.
  bool ok = std::fflush(stream_) == 0;
  ok = !std::ferror(stream_) && ok;
  ok = std::fclose(stream_) == 0 && ok;
  stream_ = nullptr;
  return ok;
}

}  // namespace PIM
