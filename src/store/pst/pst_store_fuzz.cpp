// Feeds whole data files to the loader: it must load or throw one PstError,
// never crash, hang or leak. libpff reads files by name, so each input is
// written to a file in the temporary folder first.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "mapi/mapi_ptr.h"
#include "store/pst/pst_store.h"

// libpff 20180714 loses a table's column definitions when a damaged table
// fails to read; the loader cannot free them. Only that allocation is
// excused: items the loader itself failed to free would still be reported.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libpff_column_definition_initialize\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::filesystem::path file =
      std::filesystem::temp_directory_path() /
      ("pst_store_fuzz_" + std::to_string(std::random_device{}()) + ".pst");
  {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  try {
    auto profile = PIM::store::loadPstFile(file.u16string());
    // Walk what loaded through MAPI once.
    PIM::ComPtr<IMAPISession> session;
    if (profile->logon(session.put()) == S_OK) {
      PIM::ComPtr<IMAPITable> stores;
      if (session->GetMsgStoresTable(0, stores.put()) == S_OK) {
        PIM::RowSet rows;
        (void)HrQueryAllRows(stores.get(), nullptr, nullptr, nullptr, 0, rows.put());
      }
    }
  } catch (const PIM::store::PstError&) {
  }
  return 0;
}
