// Feeds arbitrary bytes to the fixture loader: it must load or throw one
// FixtureError, never crash, hang or leak.
#include <cstddef>
#include <cstdint>
#include <string>

#include "mapi/mapi_ptr.h"
#include "store/fixture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    auto profile = PIM::store::loadFixtureText(text, "fuzz.json");
    // Walk what loaded through MAPI once.
    PIM::ComPtr<IMAPISession> session;
    if (profile->logon(session.put()) == S_OK) {
      PIM::ComPtr<IMAPITable> stores;
      if (session->GetMsgStoresTable(0, stores.put()) == S_OK) {
        PIM::RowSet rows;
        (void)HrQueryAllRows(stores.get(), nullptr, nullptr, nullptr, 0, rows.put());
      }
    }
  } catch (const PIM::store::FixtureError&) {
  }
  return 0;
}
