// A WritableFile over a C stream, shared by both platforms' Env: only the
// open call differs between them.
#pragma once

#include <cstdio>
#include <memory>

#include "platform/env.h"

namespace PIM {

class StdioWritableFile : public WritableFile {
 public:
  // Takes the stream; null gives null.
  static std::unique_ptr<WritableFile> adopt(std::FILE* stream);
  ~StdioWritableFile() override;
  size_t write(const void* data, size_t size) override;
  bool close() override;

 private:
  explicit StdioWritableFile(std::FILE* stream) : stream_(stream) {}
  std::FILE* stream_;
};

}  // namespace PIM
