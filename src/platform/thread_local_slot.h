// One thread-local pointer, as cheap as the platform makes it: a read and a
// write are one call each, with no allocation.
#pragma once

#include <cstdint>

namespace PIM {

class ThreadLocalSlot {
 public:
  ThreadLocalSlot();   // allocates the slot; valid() says whether it worked
  ~ThreadLocalSlot();  // frees it
  ThreadLocalSlot(const ThreadLocalSlot&) = delete;
  ThreadLocalSlot& operator=(const ThreadLocalSlot&) = delete;

  bool valid() const { return valid_; }
  void* get() const;
  void set(void* value);

 private:
  unsigned long key_ = 0;
  bool valid_ = false;
};

// The calling thread's identifier as the OS numbers it (for log texts).
uint32_t currentThreadId();

}  // namespace PIM
