// The store DLL's own allocator for C++ objects. The store is millions of
// small blocks (every property of every item, every row of every table),
// made and freed in waves. Wine's heap keeps one free list for all but the
// smallest sizes and walks it on every allocation, so that opening a folder
// of 20,000 contacts took minutes there, against a fraction of a second on
// Windows or Linux. Blocks up to 4 KB come from per-size free lists here,
// carved out of large chunks; larger ones go to the heap as before.
//
// The memory of small blocks goes back to their free lists, never to the
// system: this DLL is a test store, and its peak is what it keeps.
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace {

constexpr size_t kGrain = 16;
constexpr size_t kLargest = 4096;
constexpr size_t kClasses = kLargest / kGrain;
constexpr size_t kChunk = 1 << 20;

// Before every block: its size class (0 = from the heap). 16 bytes keep the
// block aligned as operator new must.
struct alignas(16) Header {
  size_t sizeClass;
  size_t reserved;
};

struct FreeBlock {
  FreeBlock* next;
};

SRWLOCK g_lock = SRWLOCK_INIT;
FreeBlock* g_free[kClasses + 1] = {};
char* g_chunk = nullptr;
size_t g_chunkLeft = 0;

void* fromHeap(size_t size) {
  auto* header = static_cast<Header*>(HeapAlloc(GetProcessHeap(), 0, sizeof(Header) + size));
  if (!header) return nullptr;
  header->sizeClass = 0;
  return header + 1;
}

void* allocate(size_t size) {
  if (size == 0) size = 1;
  if (size > kLargest) return fromHeap(size);
  const size_t sizeClass = (size + kGrain - 1) / kGrain;
  const size_t blockSize = sizeof(Header) + sizeClass * kGrain;
  AcquireSRWLockExclusive(&g_lock);
  void* block = g_free[sizeClass];
  if (block) {
    g_free[sizeClass] = g_free[sizeClass]->next;
  } else {
    if (g_chunkLeft < blockSize) {
      g_chunk = static_cast<char*>(
          VirtualAlloc(nullptr, kChunk, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
      g_chunkLeft = g_chunk ? kChunk : 0;
    }
    if (g_chunk) {
      block = g_chunk;
      g_chunk += blockSize;
      g_chunkLeft -= blockSize;
    }
  }
  ReleaseSRWLockExclusive(&g_lock);
  if (!block) return nullptr;
  auto* header = static_cast<Header*>(block);
  header->sizeClass = sizeClass;
  return header + 1;
}

void release(void* p) noexcept {
  if (!p) return;
  Header* header = static_cast<Header*>(p) - 1;
  const size_t sizeClass = header->sizeClass;
  if (sizeClass == 0) {
    HeapFree(GetProcessHeap(), 0, header);
    return;
  }
  auto* block = reinterpret_cast<FreeBlock*>(header);
  AcquireSRWLockExclusive(&g_lock);
  block->next = g_free[sizeClass];
  g_free[sizeClass] = block;
  ReleaseSRWLockExclusive(&g_lock);
}

void* allocateOrThrow(size_t size) {
  void* p = allocate(size);
  if (!p) throw std::bad_alloc();
  return p;
}

}  // namespace

void* operator new(size_t size) { return allocateOrThrow(size); }
void* operator new[](size_t size) { return allocateOrThrow(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, size_t) noexcept { release(p); }
void operator delete[](void* p, size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }
