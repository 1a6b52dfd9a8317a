// Loading a data file against libpff's own read of every item's properties
// (folders, items, recipients, attachments, embedded messages): the loader
// should cost no more than twice that read. Run on the sample data files
// beside the repository; skipped without them.
// First: its MAPI headers define WINAPI, which keeps libpff.h from asking
// for libbfio's headers, which Debian does not ship.
#include "store/pst/pst_store.h"

#include <benchmark/benchmark.h>
#include <libpff.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

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

void BM_LibpffReadsEveryItem(benchmark::State& state, const char* name) {
  const std::string path = samplePath(name);
  if (path.empty()) return state.SkipWithError("no sample data files");
  size_t items = 0, bytes = 0;
  for (auto _ : state) {
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
  }
  state.counters["items"] = static_cast<double>(items);
  state.counters["propertyBytes"] = static_cast<double>(bytes);
  state.counters["perItem"] =
      benchmark::Counter(static_cast<double>(items), benchmark::Counter::kIsIterationInvariantRate |
                                                         benchmark::Counter::kInvert);
}

void BM_LoaderLoadsTheFile(benchmark::State& state, const char* name) {
  const std::string path = samplePath(name);
  if (path.empty()) return state.SkipWithError("no sample data files");
  const std::u16string wide(path.begin(), path.end());
  for (auto _ : state) benchmark::DoNotOptimize(PIM::store::loadPstFile(wide));
}

BENCHMARK_CAPTURE(BM_LibpffReadsEveryItem, hughbe, "hughbe_Outlook.pst")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LoaderLoadsTheFile, hughbe, "hughbe_Outlook.pst")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LibpffReadsEveryItem, dist_list, "dist-list.pst")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_LoaderLoadsTheFile, dist_list, "dist-list.pst")->Unit(benchmark::kMillisecond);

}  // namespace
