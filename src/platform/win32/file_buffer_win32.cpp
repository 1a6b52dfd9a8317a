#include <windows.h>

#include <algorithm>
#include <cstdint>

#include "platform/file_buffer.h"
#include "platform/win32/win32_env.h"

namespace PIM {
namespace {

size_t pageSize() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwPageSize;
}

class Win32FileBuffer : public FileBuffer {
 public:
  Win32FileBuffer(char* base, size_t capacity) : base_(base), capacity_(capacity) {}
  ~Win32FileBuffer() override {
    if (base_) VirtualFree(base_, 0, MEM_RELEASE);
  }
  const char* data() const override { return base_ ? base_ : ""; }
  size_t size() const override { return size_; }
  void release(size_t offset, size_t length) override {
    size_t begin = 0, end = 0;
    if (base_ && wholePages(offset, length, size_, capacity_, pageSize(), begin, end))
      VirtualFree(base_ + begin, end - begin, MEM_DECOMMIT);
  }
  char* base_;
  size_t capacity_;
  size_t size_ = 0;
};

}  // namespace

std::unique_ptr<FileBuffer> FileBuffer::read(const std::u16string& path) {
  HANDLE file = CreateFileW(wide(path), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
  if (file == INVALID_HANDLE_VALUE) return nullptr;
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(file, &size) || size.QuadPart < 0 ||
      static_cast<unsigned long long>(size.QuadPart) > SIZE_MAX / 2) {
    CloseHandle(file);
    return nullptr;
  }
  const size_t page = pageSize();
  const size_t wanted = static_cast<size_t>(size.QuadPart);
  const size_t capacity = (wanted + page - 1) / page * page;
  char* base = nullptr;
  if (capacity) {
    base = static_cast<char*>(
        VirtualAlloc(nullptr, capacity, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    if (!base) {
      CloseHandle(file);
      return nullptr;
    }
  }
  auto buffer = std::make_unique<Win32FileBuffer>(base, capacity);
  while (buffer->size_ < wanted) {
    const DWORD chunk = static_cast<DWORD>(std::min<size_t>(wanted - buffer->size_, 1u << 30));
    DWORD got = 0;
    if (!ReadFile(file, base + buffer->size_, chunk, &got, nullptr)) {
      CloseHandle(file);
      return nullptr;
    }
    if (got == 0) break;
    buffer->size_ += got;
  }
  CloseHandle(file);
  return buffer;
}

}  // namespace PIM
