// Arbitrary bytes as an entry id of the reference store. Besides never
// crashing or reading past the bytes:
//   - an id is read as one of its kinds only when the store's own writer of
//     that kind gives back exactly these bytes;
//   - opening it through the session, through a store and as a message
//     store, and comparing it, answer an error or an object and leak
//     nothing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "mapi/mapi_ptr.h"
#include "store/entry_ids.h"
#include "store/fixture.h"
#include "store/mapi_runtime.h"
#include "store/one_off_entry_id.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

// Two stores (the second's tables hand out short-term ids), folders, items
// and an address book, so that real ids lead somewhere.
constexpr char kProfile[] = R"json({"stores": [
  {"name": "Main", "default": true, "ipmSubtree": "ipm", "root": {"folders": [
    {"key": "ipm", "name": "Top", "folders": [
      {"key": "inbox", "name": "Inbox", "class": "IPF.Note", "items": [
        {"key": "m1", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "One"}]},
        {"key": "m2", "class": "IPM.Note", "props": [{"tag": "PR_SUBJECT_W", "value": "Two"}]}]}]}]}},
  {"name": "Archive", "options": {"unicode": false, "shortTermIdsInTables": true},
   "root": {"folders": [{"name": "Old", "items": [{"props": [{"tag": "PR_SUBJECT_W", "value": "Three"}]}]}]}}],
  "addressBook": [{"props": [{"tag": "PR_DISPLAY_NAME_W", "value": "Bob"},
                             {"tag": "PR_ADDRTYPE_W", "value": "SMTP"},
                             {"tag": "PR_EMAIL_ADDRESS_W", "value": "bob@example.com"}]}]})json";

struct Session {
  std::shared_ptr<PIM::store::Profile> profile;
  PIM::ComPtr<IMAPISession> session;
  PIM::ComPtr<IMsgStore> stores[2];
};

Session& session() {
  static Session* s = [] {
    auto* made = new Session;
    made->profile = PIM::store::loadFixtureText(kProfile, "entryids.json");
    check(made->profile->logon(made->session.put()) == S_OK);
    for (size_t i = 0; i < 2; ++i) {
      const PIM::store::Bytes id = made->profile->entryId(made->profile->storeRef(i));
      check(
          made->session->OpenMsgStore(0, static_cast<ULONG>(id.size()),
                                      reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(id.data())),
                                      nullptr, MDB_NO_DIALOG, made->stores[i].put()) == S_OK);
    }
    return made;
  }();
  return *s;
}

void expectOpened(HRESULT hr, const PIM::ComPtr<IUnknown>& object) {
  check(SUCCEEDED(hr) == (object.get() != nullptr));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace PIM::store;
  // A copy of exactly `size` bytes, so that a read past them is caught.
  std::unique_ptr<uint8_t[]> bytes(new uint8_t[size ? size : 1]);
  if (size) std::memcpy(bytes.get(), data, size);
  const Bytes input(data, data + size);
  const ParsedId id = parseEntryId(bytes.get(), size);
  switch (id.kind) {
    case IdKind::Object:
      check(id.storeUid.size() == 16);
      check((id.shortTerm ? shortTermEntryId(id.storeUid, id.nid, id.session)
                          : objectEntryId(id.storeUid, id.nid)) == input);
      break;
    case IdKind::Store:
      check(storeEntryId(id.storeUid) == input);
      break;
    case IdKind::AddressBook:
      check(abEntryId(id.index) == input);
      break;
    case IdKind::OneOff: {
      check(size >= 20 && std::memcmp(data + 4, kOneOffProviderUid, 16) == 0);
      OneOffEntryId entry;
      if (decodeOneOffEntryId(bytes.get(), size, entry) && encodeOneOffEntryId(entry) == input) {
        OneOffEntryId again;
        check(decodeOneOffEntryId(input.data(), input.size(), again));
      }
      break;
    }
    case IdKind::Invalid:
      break;
  }

  const int64_t buffersBefore = liveMapiBuffers();
  {
    Session& s = session();
    auto* entry = reinterpret_cast<LPENTRYID>(bytes.get());
    const ULONG cb = static_cast<ULONG>(size);
    ULONG type = 0;
    PIM::ComPtr<IUnknown> opened;
    expectOpened(s.session->OpenEntry(cb, entry, nullptr, 0, &type, opened.put()), opened);
    for (PIM::ComPtr<IMsgStore>& store : s.stores) {
      PIM::ComPtr<IUnknown> inStore;
      expectOpened(store->OpenEntry(cb, entry, nullptr, 0, &type, inStore.put()), inStore);
      ULONG same = 0;
      const PIM::store::Bytes root = s.profile->entryId(s.profile->byKey("inbox"));
      (void)store->CompareEntryIDs(cb, entry, static_cast<ULONG>(root.size()),
                                   reinterpret_cast<LPENTRYID>(const_cast<uint8_t*>(root.data())),
                                   0, &same);
    }
    PIM::ComPtr<IMsgStore> asStore;
    const HRESULT hr = s.session->OpenMsgStore(0, cb, entry, nullptr, MDB_NO_DIALOG, asStore.put());
    check(SUCCEEDED(hr) == (asStore.get() != nullptr));
    if (SUCCEEDED(hr)) check(id.kind == IdKind::Store);
  }
  check(liveMapiBuffers() == buffersBefore);
  return 0;
}
