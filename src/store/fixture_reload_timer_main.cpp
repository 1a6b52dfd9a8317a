// ferrant-reload-time ORIGINAL CHANGED: how long the reference store takes to
// load a fixture and to take in an edited version of it, with a contents
// table advised on every folder that has items, as a running watch keeps
// them. Prints one line: load_s=... reload_s=... status=... folders=...
// notifications=...
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "core/utils.h"
#include "mapi/mapi_ptr.h"
#include "store/counting_sink.h"
#include "store/fixture.h"
#include "store/profile_reload.h"

namespace {

using PIM::ComPtr;
using namespace PIM::store;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

const char* statusName(ReloadResult::Status status) {
  switch (status) {
    case ReloadResult::Status::Unchanged:
      return "unchanged";
    case ReloadResult::Status::Pending:
      return "pending";
    case ReloadResult::Status::Applied:
      return "applied";
    case ReloadResult::Status::RestartNeeded:
      return "restart-needed";
    case ReloadResult::Status::LoadFailed:
      return "load-failed";
  }
  return "?";
}

// Opens the contents table of every keyed folder the store has and advises
// the sink on it; the tables stay open while `tables` lives.
bool adviseFolders(Profile& profile, IMAPISession* session, CountingSink& sink,
                   std::vector<ComPtr<IMAPITable>>& tables) {
  for (const auto& [key, ref] : profile.keys()) {
    if (ref.kind != Ref::Kind::Folder) continue;
    const Bytes storeId = profile.entryId(profile.storeRef(ref.store));
    ComPtr<IMsgStore> store;
    if (session->OpenMsgStore(0, static_cast<ULONG>(storeId.size()),
                              reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(storeId.data())),
                              nullptr, MDB_NO_DIALOG | MAPI_BEST_ACCESS, store.put()) != S_OK)
      return false;
    const Bytes id = profile.entryId(ref);
    ComPtr<IMAPIFolder> folder;
    ULONG type = 0;
    if (store->OpenEntry(static_cast<ULONG>(id.size()),
                         reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())), nullptr,
                         MAPI_BEST_ACCESS, &type, folder.putUnknown()) != S_OK)
      return false;
    ComPtr<IMAPITable> table;
    ULONG connection = 0;
    if (folder->GetContentsTable(0, table.put()) != S_OK ||
        table->Advise(fnevTableModified, &sink, &connection) != S_OK)
      return false;
    tables.push_back(std::move(table));
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: ferrant-reload-time ORIGINAL.json CHANGED.json\n");
    return 2;
  }
  try {
    auto start = std::chrono::steady_clock::now();
    auto live = loadFixtureFile(PIM::fromUtf8(argv[1]));
    const double load = secondsSince(start);

    CountingSink sink;
    ComPtr<IMAPISession> session;
    std::vector<ComPtr<IMAPITable>> tables;
    if (live->logon(session.put()) != S_OK || !adviseFolders(*live, session.get(), sink, tables)) {
      std::fprintf(stderr, "ferrant-reload-time: cannot open the folders' tables\n");
      return 1;
    }
    start = std::chrono::steady_clock::now();
    const ReloadResult result = reloadFixtureFile(*live, PIM::fromUtf8(argv[2]));
    const double reload = secondsSince(start);
    std::printf("load_s=%.3f reload_s=%.3f built=%zu status=%s folders=%zu notifications=%llu\n",
                load, reload, result.itemsBuilt, statusName(result.status), result.folders.size(),
                sink.events);
    if (result.status != ReloadResult::Status::Applied) {
      std::fprintf(
          stderr, "ferrant-reload-time: %s\n",
          result.error.empty() ? "the two files hold the same items" : result.error.c_str());
      return 1;
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "ferrant-reload-time: %s\n", e.what());
    return 1;
  }
  return 0;
}
