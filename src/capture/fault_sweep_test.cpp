// Every store call of a capture failed at each of its places in turn, over
// the sample mailbox: once as the add-in captures (one controller, a second
// run after a first good one) and once as the command does (a new controller
// over the data folder of an earlier one, handed its index). Whatever fails,
// the run must end with an index whose files all exist and are whole, and
// no folder may lose the file it had unless it was read again.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "capture/capture_test_util.h"
#include "capture/data_folder_check.h"
#include "store/mapi_runtime.h"

namespace PIM::testing {
namespace {

const char* sampleMailbox() {
  static const std::string text = readFileBytes(fromUtf8(FERRANT_SAMPLE_MAILBOX));
  return text.c_str();
}

// Places swept besides the first of each call site: none where a run is
// slow (thread sanitizer, Wine).
#if defined(_WIN32) || defined(__SANITIZE_THREAD__)
constexpr unsigned kSpreadPlaces = 0;
#elif defined(__SANITIZE_ADDRESS__)
constexpr unsigned kSpreadPlaces = 40;
#else
constexpr unsigned kSpreadPlaces = 100;
#endif

// The folders captured, in the controller's order, and the ones the add-in's
// second run finds changed.
const char* const kFolders[] = {"contacts", "tasks", "calendar", "inbox"};
const std::set<std::string> kTouched = {"contacts", "calendar", "inbox"};

// A data folder as the sweep compares it.
struct Snapshot : DataFolderState {
  std::map<std::string, std::string> fileOf;  // folder key -> indexed file name
};

// How a folder's file came out of a run.
enum class Outcome {
  New,      // a new file with the full content
  Partial,  // a new, whole file with less or other content
  Kept,     // the previous name and bytes
  Missing,  // no file, no index line
  Broken,   // anything else: a kept name with other bytes, a file not whole
};

std::vector<uint8_t> hexBytes(const std::string& text) {
  std::vector<uint8_t> out;
  for (size_t i = 0; i + 1 < text.size(); i += 2)
    out.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  return out;
}

// What one flow left, and what the controller said of it.
struct FlowResult {
  Snapshot before;  // the data folder the faulty run started from
  Snapshot after;
  DataCapture::RunSummary summary;
  size_t monitored = 0;            // folders the faulty run's controller opened
  long storeReferencesLeft = 0;    // references to the store the controller kept
  int64_t buffersLeft = 0;         // MAPI buffers it did not free
  std::vector<std::string> calls;  // of a run without fault
};

class FaultSweepTest : public CaptureTest {
 protected:
  const char* json() const override { return sampleMailbox(); }

  void SetUp() override {
    CaptureTest::SetUp();
    Preferences& preferences = Preferences::instance();
    preferences.calendar.folders = {identity("calendar")};
    preferences.contacts.folders = {identity("contacts")};
    preferences.email.folders = {identity("inbox")};
    preferences.tasks.folders = {identity("tasks")};
  }

  std::string folderKeyOf(const std::string& entryId) {
    for (const char* key : kFolders)
      if (toUtf8(identity(key).folderId.toWstring()) == entryId) return key;
    return "";
  }

  Snapshot snapshot() {
    Snapshot s;
    static_cast<DataFolderState&>(s) = readDataFolder(data_.path());
    for (const IndexLine& line : s.lines) {
      const std::string key = folderKeyOf(line.entryId);
      if (key.empty()) s.problems.push_back("an index line of no captured folder: " + line.name);
      if (s.fileOf.count(key)) s.problems.push_back("two index lines for " + key);
      s.fileOf[key] = line.name;
    }
    return s;
  }

  // The index as the command reads it back.
  std::vector<DataDirectoryEntry> indexEntries(const Snapshot& s) {
    static const std::map<std::string, int32_t> kTypes = {
        {"calendar", DataDirectoryEntry::Calendar},
        {"contacts", DataDirectoryEntry::Contacts},
        {"email", DataDirectoryEntry::Email},
        {"tasks", DataDirectoryEntry::Tasks}};
    std::vector<DataDirectoryEntry> out;
    for (const IndexLine& line : s.lines) {
      DataDirectoryEntry entry;
      entry.name = fromUtf8(line.name);
      entry.type = kTypes.count(line.type) ? kTypes.at(line.type) : DataDirectoryEntry::Unspecified;
      entry.folder.folderId = EntryId(hexBytes(line.entryId));
      out.push_back(entry);
    }
    return out;
  }

  void emptyDataFolder() {
    for (const std::string& name : dataFolderNames()) env()->removeFile(dataFile(fromUtf8(name)));
  }

  // Arms the fault (position 0: none) and records the calls.
  static void arm(store::ScopedFaults& faults, unsigned failAt, HRESULT result) {
    faults->recordCalls();
    if (failAt != 0) faults->failCall(store::FaultInjector::kAnyCall, result, failAt);
  }

 public:
  // One controller: a good run, three folders changed, then the run that
  // meets the fault.
  FlowResult addinFlow(unsigned failAt, HRESULT result) {
    FlowResult r;
    emptyDataFolder();
    const long references = profile_.use_count();
    const int64_t buffers = store::liveMapiBuffers();
    DataCapture* capture = DataCapture::instance();
    runCapture(capture);
    r.before = snapshot();
    for (const std::string& key : kTouched) profile_->touchFolder(profile_->byKey(key));
    r.monitored = capture->getFolderCount();
    {
      store::ScopedFaults faults;
      arm(faults, failAt, result);
      runCapture(capture);
      r.calls = faults->recordedCalls();
    }
    r.summary = capture->lastRunSummary();
    DataCapture::freeInstance();
    r.storeReferencesLeft = profile_.use_count() - references;
    r.buffersLeft = store::liveMapiBuffers() - buffers;
    r.after = snapshot();
    return r;
  }

  // A controller writes the data folder and goes (once; later sweeps put
  // its files back); a new one, handed the index, opens the folders, meets
  // the fault, runs and goes.
  FlowResult commandFlow(unsigned failAt, HRESULT result) {
    FlowResult r;
    emptyDataFolder();
    if (earlier_.files.empty()) {
      runCapture(DataCapture::instance());
      DataCapture::freeInstance();
      earlier_ = snapshot();
    }
    for (const auto& [name, bytes] : earlier_.files)
      writeFileBytes(dataFile(fromUtf8(name)), bytes);
    r.before = earlier_;
    const long references = profile_.use_count();
    const int64_t buffers = store::liveMapiBuffers();
    {
      store::ScopedFaults faults;
      arm(faults, failAt, result);
      DataCapture* capture = DataCapture::instance();
      r.monitored = capture->getFolderCount();
      capture->adoptPreviousFiles(indexEntries(r.before));
      runCapture(capture);
      r.summary = capture->lastRunSummary();
      DataCapture::freeInstance();
      r.calls = faults->recordedCalls();
    }
    r.storeReferencesLeft = profile_.use_count() - references;
    r.buffersLeft = store::liveMapiBuffers() - buffers;
    r.after = snapshot();
    return r;
  }

 protected:
  Outcome outcome(const FlowResult& r, const std::string& key,
                  const std::map<std::string, std::string>& full) {
    auto now = r.after.fileOf.find(key);
    if (now == r.after.fileOf.end()) return Outcome::Missing;
    auto bytes = r.after.files.find(now->second);
    if (bytes == r.after.files.end() || !isWholeDataFile(bytes->second)) return Outcome::Broken;
    auto was = r.before.fileOf.find(key);
    if (was != r.before.fileOf.end() && was->second == now->second)
      return r.before.files.at(was->second) == bytes->second ? Outcome::Kept : Outcome::Broken;
    return bytes->second == full.at(key) ? Outcome::New : Outcome::Partial;
  }

  using Flow = FlowResult (FaultSweepTest::*)(unsigned, HRESULT);

  // Sweeps one flow; `unchanged` are the tracked folders its faulty run
  // must leave alone.
  void sweep(Flow flow, const std::set<std::string>& unchanged) {
    const FlowResult clean = (this->*flow)(0, S_OK);
    ASSERT_TRUE(clean.after.problems.empty()) << clean.after.problems.front();
    std::map<std::string, std::string> full;  // folder key -> its file's bytes
    for (const char* key : kFolders) {
      ASSERT_TRUE(clean.after.fileOf.count(key)) << key << " has no file after a clean run";
      full[key] = clean.after.files.at(clean.after.fileOf.at(key));
    }
    ASSERT_GT(clean.calls.size(), 100u);

    const std::vector<unsigned> positions = sweepPositions(clean.calls);
    // What went wrong -> the calls whose failure did it; partial reads are
    // allowed (a row the record cannot make is skipped) and only counted.
    std::map<std::string, std::vector<std::string>> wrong;
    std::map<std::string, unsigned> partial;
    const auto started = std::chrono::steady_clock::now();
    for (unsigned at : positions) {
      const std::string& call = clean.calls[at - 1];
      const HRESULT result =
          call.rfind("MAPIAllocate", 0) == 0 ? MAPI_E_NOT_ENOUGH_MEMORY : MAPI_E_CALL_FAILED;
      const FlowResult r = (this->*flow)(at, result);
      if (HasFatalFailure()) return;
      const std::string place = std::to_string(at) + " " + call;
      auto fault = [&](const std::string& what) { wrong[what].push_back(place); };
      for (const std::string& problem : r.after.problems) fault(problem);
      if (r.storeReferencesLeft != 0) fault("the controller kept store objects");
      if (r.buffersLeft != 0) fault("MAPI buffers leaked");
      if (!r.summary.indexWritten) fault("the run did not write the index");

      const bool allMonitored = r.monitored == std::size(kFolders);
      unsigned failedFolders = 0;
      unsigned deviations = 0;
      for (const char* key : kFolders) {
        const Outcome o = outcome(r, key, full);
        const std::string folder = key;
        if (unchanged.count(key)) {
          if (o != Outcome::Kept) fault(folder + ", unchanged, did not keep its file");
          continue;
        }
        if (o != Outcome::New) ++deviations;
        if (o == Outcome::Kept) ++failedFolders;
        if (o == Outcome::Partial) ++partial[call];
        if (o == Outcome::Broken) fault(folder + "'s file is not whole or changed in place");
        // A folder the new controller could not open is not monitored: its
        // file may go with the clean-up.
        if (o == Outcome::Missing && allMonitored) fault(folder + " lost its file");
      }
      if (deviations > 1) fault("one failed call changed the outcome of several folders");
      if (allMonitored && r.summary.foldersFailed != failedFolders)
        fault("the run counted other folders failed than those that kept their files");
    }
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started);
    std::string partials;
    for (const auto& [call, times] : partial) partials += " " + call + " x" + std::to_string(times);
    std::printf("fault sweep: %zu of %zu calls failed in turn in %.1f s; partial reads after:%s\n",
                positions.size(), clean.calls.size(), seconds.count(), partials.c_str());
    for (const auto& [what, places] : wrong) {
      std::string list;
      for (size_t i = 0; i < places.size() && i < 12; ++i) list += "\n  call " + places[i];
      if (places.size() > 12) list += "\n  ...";
      ADD_FAILURE() << what << ", when one of these " << places.size() << " calls failed:" << list;
    }
  }

  // Every place when FERRANT_SWEEP_ALL is set. Otherwise the first place
  // of every call site -- a kind of call within one folder's open or read,
  // each of which begins with the folder's contents table -- and, where the
  // build is fast enough, an even spread of further places.
  static std::vector<unsigned> sweepPositions(const std::vector<std::string>& calls) {
    const unsigned total = static_cast<unsigned>(calls.size());
    std::set<unsigned> chosen;
    if (std::getenv("FERRANT_SWEEP_ALL")) {
      for (unsigned i = 1; i <= total; ++i) chosen.insert(i);
      return {chosen.begin(), chosen.end()};
    }
    std::set<std::pair<unsigned, std::string>> sites;
    unsigned folder = 0;
    for (unsigned i = 1; i <= total; ++i) {
      if (calls[i - 1] == "IMAPIFolder::GetContentsTable") ++folder;
      if (sites.emplace(folder, calls[i - 1]).second) chosen.insert(i);
    }
    if (kSpreadPlaces != 0) {
      for (unsigned i = 1; i <= total; i += std::max(1u, total / kSpreadPlaces)) chosen.insert(i);
    }
    return {chosen.begin(), chosen.end()};
  }

  Snapshot earlier_;  // the command's data folder before the run
};

TEST_F(FaultSweepTest, TheAddInsSecondRunSurvivesEveryStoreCallFailing) {
  sweep(&FaultSweepTest::addinFlow, {"tasks"});
}

TEST_F(FaultSweepTest, ANewControllerOverAnEarlierDataFolderSurvivesEveryStoreCallFailing) {
  sweep(&FaultSweepTest::commandFlow, {});
}

}  // namespace
}  // namespace PIM::testing
