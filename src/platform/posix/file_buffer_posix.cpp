#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/file_buffer.h"
#include "platform/posix/posix_env.h"

namespace PIM {
namespace {

size_t pageSize() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

// Anonymous pages, so that released ones really leave the process.
class PosixFileBuffer : public FileBuffer {
 public:
  PosixFileBuffer(char* base, size_t capacity) : base_(base), capacity_(capacity) {}
  ~PosixFileBuffer() override {
    if (base_) munmap(base_, capacity_);
  }
  const char* data() const override { return base_ ? base_ : ""; }
  size_t size() const override { return size_; }
  void release(size_t offset, size_t length) override {
    size_t begin = 0, end = 0;
    if (base_ && wholePages(offset, length, size_, capacity_, pageSize(), begin, end))
      madvise(base_ + begin, end - begin, MADV_DONTNEED);
  }
  char* base_;
  size_t capacity_;
  size_t size_ = 0;
};

}  // namespace

std::unique_ptr<FileBuffer> FileBuffer::read(const std::u16string& path) {
  const int fd = ::open(nativePath(path).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st {};
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    close(fd);
    return nullptr;
  }
  const size_t page = pageSize();
  const size_t wanted = static_cast<size_t>(st.st_size);
  const size_t capacity = (wanted + page - 1) / page * page;
  char* base = nullptr;
  if (capacity) {
    void* p = mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
      close(fd);
      return nullptr;
    }
    base = static_cast<char*>(p);
  }
  auto buffer = std::make_unique<PosixFileBuffer>(base, capacity);
  // A file that shrinks meanwhile gives what it still holds.
  while (buffer->size_ < wanted) {
    const ssize_t n = ::read(fd, base + buffer->size_, wanted - buffer->size_);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      close(fd);
      return nullptr;
    }
    if (n == 0) break;
    buffer->size_ += static_cast<size_t>(n);
  }
  close(fd);
  return buffer;
}

}  // namespace PIM
