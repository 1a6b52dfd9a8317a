// Loading a data file against libpff's own read of every item's properties
// (folders, items, recipients, attachments, embedded messages): the loader
// should cost no more than twice that read, and its peak heap no more than
// three times the property bytes it holds. Run on the sample data files
// beside the repository; skipped without them.
// First: its MAPI headers define WINAPI, which keeps libpff.h from asking
// for libbfio's headers, which Debian does not ship.
#include "store/pst/pst_store.h"

#include <benchmark/benchmark.h>
#include <libpff.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "store/profile.h"

// Peak heap: this program's own malloc family counts the usable size of every
// block, so libpff's allocations (plain malloc) are seen as well as the
// model's (operator new ends in malloc). glibc's entry points do the work.
// Sanitizers bring their own allocator: no counters under them.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define FERRANT_BENCH_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || \
    defined(FERRANT_BENCH_SANITIZED)
#define FERRANT_BENCH_HEAP 0
#else
#define FERRANT_BENCH_HEAP 1
#endif

#if FERRANT_BENCH_HEAP
extern "C" {
void* __libc_malloc(size_t size);
void __libc_free(void* p);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* p, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
size_t malloc_usable_size(void* p);
}

namespace {

std::atomic<long long> gLive{0};
std::atomic<long long> gPeak{0};

void grow(long long bytes) {
  const long long live = gLive.fetch_add(bytes, std::memory_order_relaxed) + bytes;
  long long peak = gPeak.load(std::memory_order_relaxed);
  while (live > peak && !gPeak.compare_exchange_weak(peak, live, std::memory_order_relaxed)) {
  }
}

void* counted(void* p) {
  if (p) grow(static_cast<long long>(malloc_usable_size(p)));
  return p;
}

}  // namespace

extern "C" {
void* malloc(size_t size) { return counted(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) { return counted(__libc_calloc(count, size)); }
void free(void* p) {
  if (p) grow(-static_cast<long long>(malloc_usable_size(p)));
  __libc_free(p);
}
void* realloc(void* p, size_t size) {
  const long long before = p ? static_cast<long long>(malloc_usable_size(p)) : 0;
  void* q = __libc_realloc(p, size);
  if (q)
    grow(static_cast<long long>(malloc_usable_size(q)) - before);
  else if (size == 0)
    grow(-before);  // freed
  return q;
}
void* memalign(size_t alignment, size_t size) { return counted(__libc_memalign(alignment, size)); }
void* aligned_alloc(size_t alignment, size_t size) {
  return counted(__libc_memalign(alignment, size));
}
int posix_memalign(void** out, size_t alignment, size_t size) {
  void* p = counted(__libc_memalign(alignment, size));
  if (!p) return 12;  // ENOMEM
  *out = p;
  return 0;
}
}
#endif

namespace {

// Heap bytes above the level at construction: at the peak so far, and now.
class HeapWatch {
 public:
  HeapWatch() {
#if FERRANT_BENCH_HEAP
    base_ = gLive.load();
    gPeak.store(base_);
#endif
  }
  double peak() const {
#if FERRANT_BENCH_HEAP
    return static_cast<double>(gPeak.load() - base_);
#else
    return 0;
#endif
  }
  double live() const {
#if FERRANT_BENCH_HEAP
    return static_cast<double>(gLive.load() - base_);
#else
    return 0;
#endif
  }

 private:
  [[maybe_unused]] long long base_ = 0;
};

// The payload of a value as held: the bytes of texts, binaries and
// multi-valued values, the size of a scalar.
size_t payload(const PIM::store::Prop& p) {
  switch (p.type()) {
    case PT_I2:
      return 2;
    case PT_LONG:
    case PT_R4:
    case PT_ERROR:
      return 4;
    case PT_BOOLEAN:
      return 1;
    case PT_DOUBLE:
    case PT_APPTIME:
    case PT_CURRENCY:
    case PT_SYSTIME:
    case PT_I8:
      return 8;
    default:
      return p.bytes().size();
  }
}

size_t propBytes(const PIM::store::PropList& props) {
  size_t n = 0;
  for (const PIM::store::Prop& p : props.all()) n += payload(p);
  return n;
}

size_t itemBytes(const PIM::store::Item& item) {
  size_t n = propBytes(item.props);
  for (const PIM::store::Recipient& r : item.recipients) n += propBytes(r.props);
  for (const PIM::store::Attachment& a : item.attachments) {
    n += propBytes(a.props) + a.data.size();
    if (a.embedded) n += itemBytes(*a.embedded);
  }
  return n;
}

size_t folderBytes(const PIM::store::Folder& folder) {
  size_t n = propBytes(folder.props);
  for (const auto& item : folder.items) n += itemBytes(*item);
  for (const auto& sub : folder.folders) n += folderBytes(*sub);
  return n;
}

// Property bytes the profile holds: of every folder, item, recipient,
// attachment and embedded item.
size_t heldPropertyBytes(PIM::store::Profile& profile) {
  std::lock_guard<std::recursive_mutex> lock(profile.mutex());
  size_t n = 0;
  for (size_t i = 0; i < profile.storeCount(); ++i)
    if (const PIM::store::Store* store = profile.storeAt(i); store && store->root)
      n += folderBytes(*store->root);
  return n;
}

std::string samplePath(const char* name) {
  const std::filesystem::path p = std::filesystem::path(FERRANT_PST_SAMPLES) / name;
  return std::filesystem::exists(p) ? p.string() : std::string();
}

// Every value of one item, read as the loader reads it.
size_t readItem(libpff_item_t* item, int depth);

size_t readSets(libpff_item_t* item) {
  size_t bytes = 0;
  int sets = 0;
  libpff_item_get_number_of_record_sets(item, &sets, nullptr);
  std::vector<uint8_t> data;
  for (int s = 0; s < sets; ++s) {
    libpff_record_set_t* set = nullptr;
    if (libpff_item_get_record_set_by_index(item, s, &set, nullptr) != 1) continue;
    int count = 0;
    libpff_record_set_get_number_of_entries(set, &count, nullptr);
    for (int i = 0; i < count; ++i) {
      libpff_record_entry_t* entry = nullptr;
      if (libpff_record_set_get_entry_by_index(set, i, &entry, nullptr) != 1) continue;
      size_t size = 0;
      if (libpff_record_entry_get_data_size(entry, &size, nullptr) == 1 && size > 0) {
        data.resize(size);
        libpff_record_entry_get_data(entry, data.data(), size, nullptr);
        bytes += size;
      }
      libpff_record_entry_free(&entry, nullptr);
    }
    libpff_record_set_free(&set, nullptr);
  }
  return bytes;
}

size_t readItem(libpff_item_t* item, int depth) {
  size_t bytes = readSets(item);
  libpff_item_t* recipients = nullptr;
  if (libpff_message_get_recipients(item, &recipients, nullptr) == 1 && recipients) {
    bytes += readSets(recipients);
    libpff_item_free(&recipients, nullptr);
  }
  int attachments = 0;
  libpff_message_get_number_of_attachments(item, &attachments, nullptr);
  for (int i = 0; i < attachments; ++i) {
    libpff_item_t* a = nullptr;
    if (libpff_message_get_attachment(item, i, &a, nullptr) != 1) continue;
    bytes += readSets(a);
    libpff_item_t* embedded = nullptr;
    if (depth < 32 && libpff_attachment_get_item(a, &embedded, nullptr) == 1 && embedded) {
      bytes += readItem(embedded, depth + 1);
      libpff_item_free(&embedded, nullptr);
    }
    libpff_item_free(&a, nullptr);
  }
  return bytes;
}

size_t readFolder(libpff_item_t* folder, size_t& items) {
  size_t bytes = readSets(folder);
  int n = 0;
  libpff_folder_get_number_of_sub_messages(folder, &n, nullptr);
  for (int i = 0; i < n; ++i) {
    libpff_item_t* m = nullptr;
    if (libpff_folder_get_sub_message(folder, i, &m, nullptr) != 1) continue;
    bytes += readItem(m, 0);
    ++items;
    libpff_item_free(&m, nullptr);
  }
  libpff_folder_get_number_of_sub_associated_contents(folder, &n, nullptr);
  for (int i = 0; i < n; ++i) {
    libpff_item_t* m = nullptr;
    if (libpff_folder_get_sub_associated_content(folder, i, &m, nullptr) != 1) continue;
    bytes += readItem(m, 0);
    ++items;
    libpff_item_free(&m, nullptr);
  }
  libpff_folder_get_number_of_sub_folders(folder, &n, nullptr);
  for (int i = 0; i < n; ++i) {
    libpff_item_t* f = nullptr;
    if (libpff_folder_get_sub_folder(folder, i, &f, nullptr) != 1) continue;
    bytes += readFolder(f, items);
    libpff_item_free(&f, nullptr);
  }
  return bytes;
}

// libpff's read of the whole file: the property bytes it hands out.
size_t readFile(const std::string& path, size_t& items) {
  size_t bytes = 0;
  libpff_file_t* file = nullptr;
  libpff_file_initialize(&file, nullptr);
  libpff_file_open(file, path.c_str(), libpff_get_access_flags_read(), nullptr);
  libpff_item_t* root = nullptr;
  items = 0;
  if (libpff_file_get_root_folder(file, &root, nullptr) == 1) {
    bytes = readFolder(root, items);
    libpff_item_free(&root, nullptr);
  }
  libpff_file_close(file, nullptr);
  libpff_file_free(&file, nullptr);
  return bytes;
}

void BM_LibpffReadsEveryItem(benchmark::State& state, const char* name) {
  const std::string path = samplePath(name);
  if (path.empty()) return state.SkipWithError("no sample data files");
  size_t items = 0, bytes = 0;
  double peak = 0;
  for (auto _ : state) {
    const HeapWatch heap;
    bytes = readFile(path, items);
    peak = heap.peak();
  }
  state.counters["items"] = static_cast<double>(items);
  state.counters["propertyBytes"] = static_cast<double>(bytes);
  if (FERRANT_BENCH_HEAP) state.counters["peakHeap"] = peak;
  state.counters["perItem"] =
      benchmark::Counter(static_cast<double>(items), benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

void BM_LoaderLoadsTheFile(benchmark::State& state, const char* name) {
  const std::string path = samplePath(name);
  if (path.empty()) return state.SkipWithError("no sample data files");
  const std::u16string wide(path.begin(), path.end());
  for (auto _ : state) benchmark::DoNotOptimize(PIM::store::loadPstFile(wide));
  // Once more, outside the timing: the heap at its peak during the load and
  // what the loaded profile keeps, per byte of the properties the file holds
  // (as libpff hands them out: the model may hold them in less room, or in
  // more). libpff's own read reaches most of the peak (its caches of the
  // file's blocks): what the load needs above it is the loader's share.
  const HeapWatch heap;
  const std::shared_ptr<PIM::store::Profile> profile = PIM::store::loadPstFile(wide);
  const double held = heap.live();
  const double peak = heap.peak();
  state.counters["heldPropertyBytes"] = static_cast<double>(heldPropertyBytes(*profile));
  const HeapWatch libpff;
  size_t items = 0;
  const double bytes = static_cast<double>(readFile(path, items));
  state.counters["propertyBytes"] = bytes;
  if (FERRANT_BENCH_HEAP && bytes > 0) {
    state.counters["peakHeap"] = peak;
    state.counters["peakPerPropertyByte"] = peak / bytes;
    state.counters["aboveLibpffPerPropertyByte"] = (peak - libpff.peak()) / bytes;
    state.counters["heldPerPropertyByte"] = held / bytes;
  }
}

// Every sample, each read both ways.
const bool kRegistered = [] {
  for (const char* name :
       {"hughbe_Outlook.pst", "dist-list.pst", "attachAndInline.pst", "msgInMsg.pst",
        "multiple_to_cc.pst", "test_ansi.pst", "test_unicode.pst", "sample.pst"}) {
    benchmark::RegisterBenchmark((std::string("BM_LibpffReadsEveryItem/") + name).c_str(),
                                 BM_LibpffReadsEveryItem, name)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((std::string("BM_LoaderLoadsTheFile/") + name).c_str(),
                                 BM_LoaderLoadsTheFile, name)
        ->Unit(benchmark::kMillisecond);
  }
  return true;
}();

}  // namespace
