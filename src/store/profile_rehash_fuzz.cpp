// Two store files from one input (split at the first NUL byte; without one
// the second is the first again). The first is loaded twice; the second is
// written to a file and taken into one copy by reloadFixtureFile (which
// leaves the items the copy vouches for unbuilt), and into the other from a
// whole load. Both must end alike: the same result, the same items in the
// same places with the same contents, the same keys.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "core/utils.h"
#include "store/fixture.h"
#include "store/mapi_runtime.h"
#include "store/profile_reload.h"

namespace {

using namespace PIM::store;

void check(bool condition) {
  if (!condition) std::abort();
}

std::shared_ptr<Profile> load(const std::string& text, const KnownItems* known) {
  try {
    return loadFixtureText(text, "fuzz.json", known, nullptr);
  } catch (const FixtureError&) {
    return nullptr;
  }
}

bool sameItem(const Item& a, const Item& b) {
  if (a.nid != b.nid || a.associated != b.associated || a.props.all() != b.props.all() ||
      a.recipients.size() != b.recipients.size() || a.attachments.size() != b.attachments.size())
    return false;
  for (size_t i = 0; i < a.recipients.size(); ++i)
    if (a.recipients[i].props.all() != b.recipients[i].props.all()) return false;
  for (size_t i = 0; i < a.attachments.size(); ++i) {
    const Attachment& x = a.attachments[i];
    const Attachment& y = b.attachments[i];
    if (x.num != y.num || x.props.all() != y.props.all() || x.data != y.data ||
        !x.embedded != !y.embedded || (x.embedded && !sameItem(*x.embedded, *y.embedded)))
      return false;
  }
  return true;
}

bool sameFolder(const Folder& a, const Folder& b) {
  if (a.nid != b.nid || a.props.all() != b.props.all() || a.items.size() != b.items.size() ||
      a.folders.size() != b.folders.size())
    return false;
  for (size_t i = 0; i < a.items.size(); ++i)
    if (!sameItem(*a.items[i], *b.items[i])) return false;
  for (size_t i = 0; i < a.folders.size(); ++i)
    if (!sameFolder(*a.folders[i], *b.folders[i])) return false;
  return true;
}

bool same(Profile& a, Profile& b) {
  std::scoped_lock guard(a.mutex(), b.mutex());
  if (a.storeCount() != b.storeCount() || a.keys() != b.keys()) return false;
  for (size_t s = 0; s < a.storeCount(); ++s)
    if (!sameFolder(*a.storeAt(s)->root, *b.storeAt(s)->root)) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const void* nul = std::memchr(data, 0, size);
  const size_t split = nul ? static_cast<size_t>(static_cast<const uint8_t*>(nul) - data) : size;
  const std::string first(text, split);
  const std::string second = nul ? std::string(text + split + 1, size - split - 1) : first;

  const int64_t buffersBefore = liveMapiBuffers();
  {
    std::shared_ptr<Profile> byHash = load(first, nullptr);
    if (!byHash) return 0;
    std::shared_ptr<Profile> whole = load(first, nullptr);
    check(whole != nullptr);
    // The scratch folder fuzz.sh gives each run.
    const std::filesystem::path file =
        std::filesystem::temp_directory_path() / "profile_rehash_fuzz.json";
    {
      std::ofstream out(file, std::ios::binary | std::ios::trunc);
      out.write(second.data(), static_cast<std::streamsize>(second.size()));
      check(out.good());
    }
    const std::string name = file.string();
    const ReloadResult a = reloadFixtureFile(*byHash, PIM::fromUtf8(name));
    std::shared_ptr<Profile> wholeFresh;
    std::string loadError;
    try {
      wholeFresh = loadFixtureText(second, name);
    } catch (const FixtureError& e) {
      loadError = e.what();
    }
    if (!wholeFresh) {
      check(a.status == ReloadResult::Status::LoadFailed && a.error == loadError);
      check(same(*byHash, *whole));
      return 0;
    }
    const ReloadResult b = reloadProfile(*whole, *wholeFresh);
    check(a.status == b.status && a.error == b.error && a.folders.size() == b.folders.size());
    for (size_t i = 0; i < a.folders.size(); ++i)
      check(a.folders[i].folder == b.folders[i].folder && a.folders[i].path == b.folders[i].path);
    check(same(*byHash, *whole));
  }
  check(liveMapiBuffers() == buffersBefore);
  return 0;
}
