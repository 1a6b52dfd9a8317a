// A file's bytes read into memory at once, for readers that go through a
// large file in order: the parts they are done with can be handed back, so
// the file and what is built from it do not weigh on memory together.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace PIM {

class FileBuffer {
 public:
  // Null when the file cannot be opened or read.
  static std::unique_ptr<FileBuffer> read(const std::u16string& path);
  virtual ~FileBuffer() = default;
  virtual const char* data() const = 0;
  virtual size_t size() const = 0;
  // The bytes of [offset, offset + length) will not be read again: the
  // memory of the whole pages among them is given back.
  virtual void release(size_t offset, size_t length) = 0;
};

// The whole pages inside [offset, offset + length) of a file of `size` bytes
// held in `capacity` bytes of pages (to the end of them when the range reaches
// the file's end), as [begin, end); false when there is none.
inline bool wholePages(size_t offset, size_t length, size_t size, size_t capacity, size_t page,
                       size_t& begin, size_t& end) {
  if (offset >= size) return false;
  begin = (offset + page - 1) / page * page;
  end = length >= size - offset ? capacity : (offset + length) / page * page;
  return end > begin;
}

}  // namespace PIM
