// Arbitrary bytes as a store file, captured whole: every folder of the store
// (up to eight, of the kind its class names, mail otherwise) is chosen, one
// capture run writes the data folder, and the controller goes. Besides never
// crashing, hanging or leaking:
//   - the run ends and writes an index that is whole, names only files that
//     exist and are whole, each once, with no other file beside them;
//   - every index line is one of the chosen folders, once, as its kind.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "addin/outlook_app.h"
#include "capture/data_capture.h"
#include "capture/data_folder_check.h"
#include "mapi/mapi_ptr.h"
#include "prefs/preferences.h"
#include "store/fixture.h"
#include "store/mapi_runtime.h"
#include "store/props.h"

namespace {

using namespace PIM;

void check(bool condition) {
  if (!condition) std::abort();
}

constexpr size_t kMostFolders = 8;

// A clock that stands still, so that an input captures the same way every
// time it is run.
class FixedClock : public EnvWrapper {
 public:
  FixedClock() : EnvWrapper(Env::platformDefault()) {}
  SystemTime systemTimeNow() override { return {2026, 11, 0, 22, 10, 30, 0, 0}; }
  SystemTime localTimeNow() override { return systemTimeNow(); }
  TimeZoneInfo timeZone() override { return {}; }
};

// The data folder of this process, made once.
const std::u16string& dataFolder() {
  static const std::u16string folder = [] {
    static FixedClock clock;
    setEnv(&clock);
    static const std::filesystem::path path =
        std::filesystem::temp_directory_path() /
        ("ferrant-capture-fuzz-" + std::to_string(std::random_device()()));
    std::filesystem::create_directories(path);
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    });
    const std::u16string made = path.u16string();
    setDataFolder(made);
    return made;
  }();
  return folder;
}

void emptyDataFolder() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(store::nativePath(dataFolder())))
    std::filesystem::remove_all(entry.path(), error);
}

struct Chosen {
  OutlookFolder identity;
  const char* indexType;
};

// Each folder of the store by its class: the index's name of its kind and
// the preference list it goes to.
void choose(store::Profile& profile, size_t storeIndex, const store::Folder& folder,
            std::vector<Chosen>& chosen) {
  if (chosen.size() == kMostFolders) return;
  const store::Ref ref{store::Ref::Kind::Folder, storeIndex, folder.nid};
  const store::Prop* cls = folder.props.find(PROP_ID(PR_CONTAINER_CLASS_W));
  const std::u16string containerClass = cls ? store::textOf(*cls) : u"";
  Preferences& preferences = Preferences::instance();
  auto kind = [&](const std::u16string& prefix) { return containerClass.rfind(prefix, 0) == 0; };
  const OutlookFolder identity{EntryId(profile.entryId(ref)),
                               EntryId(profile.entryId(profile.storeRef(storeIndex)))};
  if (kind(u"IPF.Appointment")) {
    preferences.calendar.folders.push_back(identity);
    chosen.push_back({identity, "calendar"});
  } else if (kind(u"IPF.Contact")) {
    preferences.contacts.folders.push_back(identity);
    chosen.push_back({identity, "contacts"});
  } else if (kind(u"IPF.Task")) {
    preferences.tasks.folders.push_back(identity);
    chosen.push_back({identity, "tasks"});
  } else {
    preferences.email.folders.push_back(identity);
    chosen.push_back({identity, "email"});
  }
  for (const auto& child : folder.folders) choose(profile, storeIndex, *child, chosen);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::u16string& folder = dataFolder();
  emptyDataFolder();
  std::shared_ptr<store::Profile> profile;
  try {
    profile =
        store::loadFixtureText(std::string(reinterpret_cast<const char*>(data), size), "fuzz.json");
  } catch (const store::FixtureError&) {
    return 0;
  }

  const int64_t buffersBefore = store::liveMapiBuffers();
  std::vector<Chosen> chosen;
  {
    ComPtr<IMAPISession> session;
    check(profile->logon(session.put()) == S_OK);
    OutlookApp::instance()->setMapiSession(session.get());
    Preferences::instance().resetToDefaults();
    for (size_t s = 0; s < profile->storeCount(); ++s) {
      std::shared_ptr<store::Folder> root;
      {
        std::lock_guard<std::recursive_mutex> guard(profile->mutex());
        root = profile->storeAt(s)->root;
      }
      choose(*profile, s, *root, chosen);
    }

    DataCapture* capture = DataCapture::instance();
    capture->captureNow();
    check(capture->waitForCapture(std::chrono::seconds(60)));
    check(capture->lastRunSummary().indexWritten);
    DataCapture::freeInstance();
    OutlookApp::instance()->setMapiSession(nullptr);
    Preferences::instance().resetToDefaults();
  }
  check(store::liveMapiBuffers() == buffersBefore);

  const testing::DataFolderState state = testing::readDataFolder(folder);
  check(state.problems.empty());
  std::map<std::string, int> seen;
  for (const testing::IndexLine& line : state.lines) {
    bool known = false;
    for (const Chosen& c : chosen)
      known = known ||
              (toUtf8(c.identity.folderId.toWstring()) == line.entryId && line.type == c.indexType);
    check(known);
    check(++seen[line.entryId] == 1);
  }
  return 0;
}
