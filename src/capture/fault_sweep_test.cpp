// Every store call of a capture failed at each of its places in turn, over
// the sample mailbox: once as the add-in captures (one controller, a second
// run after a first good one) and once as the command does (a new controller
// over the data folder of an earlier one, handed its index). Whatever fails,
// the run must end with an index whose files all exist and are whole, and
// no folder may lose the file it had unless it was read again.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
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

// Places swept besides the first of each call site and the last rows of
// each folder: none where a run is slow (thread sanitizer).
#if defined(__SANITIZE_THREAD__)
constexpr unsigned kSpreadPlaces = 0;
#elif defined(__SANITIZE_ADDRESS__)
constexpr unsigned kSpreadPlaces = 40;
#else
constexpr unsigned kSpreadPlaces = 100;
#endif

// A folder's open, and its read, begin with its contents table.
constexpr char kReadStart[] = "IMAPIFolder::GetContentsTable";

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

// What happens at one store call of a run: it fails, or the user cancels
// the run while it is made. At 0: nothing.
struct Disturbance {
  enum Kind { Fail, Cancel } kind = Fail;
  unsigned at = 0;
  HRESULT result = S_OK;
};

// Holds the capture thread at the disturbed call until the test has
// cancelled the run.
class Hold {
 public:
  void arrive() {
    std::unique_lock<std::mutex> guard(lock_);
    arrived_ = true;
    changed_.notify_all();
    changed_.wait_for(guard, kRunTimeout, [this] { return released_; });
  }
  // True once the run stands at the call; false if it ended first.
  bool waitArrived(const DataCapture& capture) {
    std::unique_lock<std::mutex> guard(lock_);
    const auto deadline = std::chrono::steady_clock::now() + kRunTimeout;
    while (!arrived_ && capture.isCapturing() && std::chrono::steady_clock::now() < deadline)
      changed_.wait_for(guard, std::chrono::milliseconds(5));
    return arrived_;
  }
  void release() {
    std::lock_guard<std::mutex> guard(lock_);
    released_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  bool arrived_ = false;
  bool released_ = false;
};

// What one flow left, and what the controller said of it.
struct FlowResult {
  Snapshot before;  // the data folder the disturbed run started from
  Snapshot after;
  DataCapture::RunSummary summary;
  size_t monitored = 0;            // folders the disturbed run's controller opened
  long storeReferencesLeft = 0;    // references to the store the controller kept
  int64_t buffersLeft = 0;         // MAPI buffers it did not free
  std::vector<std::string> calls;  // the store calls made, in order
  unsigned runFirst = 0;           // the run's own calls: runFirst to runLast
  unsigned runLast = 0;
  bool cancelled = false;  // the run reached the cancel
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

  // Runs a capture as the user's thread does, meeting the disturbance if
  // the run makes that call.
  void disturbedRun(DataCapture* capture, store::ScopedFaults& faults, const Disturbance& d,
                    FlowResult& r) {
    Hold hold;
    if (d.at != 0 && d.kind == Disturbance::Fail)
      faults->failCall(store::FaultInjector::kAnyCall, d.result, d.at);
    if (d.at != 0 && d.kind == Disturbance::Cancel)
      faults->atCall(d.at, [&hold] { hold.arrive(); });
    r.runFirst = faults->totalCalls() + 1;
    capture->captureNow();
    if (d.at != 0 && d.kind == Disturbance::Cancel) {
      r.cancelled = hold.waitArrived(*capture);
      if (r.cancelled) capture->cancelCapture();
      hold.release();
    }
    ASSERT_TRUE(capture->waitForCapture(kRunTimeout));
    r.runLast = faults->totalCalls();
    r.summary = capture->lastRunSummary();
  }

 public:
  // One controller: a good run, three folders changed, then the run that
  // is disturbed.
  FlowResult addinFlow(const Disturbance& d) {
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
      faults->recordCalls();
      disturbedRun(capture, faults, d, r);
      r.calls = faults->recordedCalls();
    }
    DataCapture::freeInstance();
    r.storeReferencesLeft = profile_.use_count() - references;
    r.buffersLeft = store::liveMapiBuffers() - buffers;
    r.after = snapshot();
    return r;
  }

  // A controller writes the data folder and goes (once; later sweeps put
  // its files back); a new one, handed the index, opens the folders, runs
  // into the disturbance and goes.
  FlowResult commandFlow(const Disturbance& d) {
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
      faults->recordCalls();
      // Failures reach the folders' opening too; cancels only the run.
      if (d.kind == Disturbance::Fail && d.at != 0)
        faults->failCall(store::FaultInjector::kAnyCall, d.result, d.at);
      DataCapture* capture = DataCapture::instance();
      r.monitored = capture->getFolderCount();
      capture->adoptPreviousFiles(indexEntries(r.before));
      disturbedRun(capture, faults, d.kind == Disturbance::Cancel ? d : Disturbance{}, r);
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

  using Flow = FlowResult (FaultSweepTest::*)(const Disturbance&);
  using Faults = std::map<std::string, std::vector<std::string>>;  // what -> where
  using Outcomes = std::vector<std::pair<std::string, Outcome>>;   // folder key -> outcome

  // What is wrong with the folders' files after a run that one call
  // failed: at most one folder may differ from a clean run, and only by
  // keeping its previous file or by a partial read (a row the record
  // cannot make is skipped; counted in `partial`).
  void judgeFailure(const FlowResult& r, const Outcomes& reads, const std::string& call,
                    std::map<std::string, unsigned>& partial,
                    const std::function<void(const std::string&)>& fault) {
    const bool allMonitored = r.monitored == std::size(kFolders);
    unsigned kept = 0;
    unsigned deviations = 0;
    for (const auto& [folder, o] : reads) {
      if (o != Outcome::New) ++deviations;
      if (o == Outcome::Kept) ++kept;
      if (o == Outcome::Partial) ++partial[call];
      if (o == Outcome::Broken) fault(folder + "'s file is not whole or changed in place");
      // A folder the new controller could not open is not monitored: its
      // file may go with the clean-up.
      if (o == Outcome::Missing && allMonitored) fault(folder + " lost its file");
    }
    if (deviations > 1) fault("one failed call changed the outcome of several folders");
    if (allMonitored && r.summary.foldersFailed != kept)
      fault("the run counted other folders failed than those that kept their files");
  }

  // After a cancel at call `at`: the folders read before it have their new
  // files; the one being read keeps its previous file, unless the cancel
  // came with its table's last answer (lastAnswers[i], of the i-th folder
  // read), when its read is complete and kept; the later ones keep theirs.
  void judgeCancel(const FlowResult& r, const Outcomes& reads,
                   const std::vector<unsigned>& lastAnswers, unsigned at,
                   const std::function<void(const std::string&)>& fault) {
    if (!r.cancelled) return fault("the run ended before the call");
    if (!r.summary.cancelled) fault("the run did not say it was cancelled");
    unsigned kept = 0;
    for (size_t i = 0; i < reads.size(); ++i) {
      const auto& [folder, o] = reads[i];
      const Outcome expected =
          i < lastAnswers.size() && at >= lastAnswers[i] ? Outcome::New : Outcome::Kept;
      if (o == Outcome::Kept) ++kept;
      if (o != expected) {
        fault(folder + (expected == Outcome::New ? " lost a read the cancel came after"
                                                 : " was not kept though its read was cancelled"));
      }
    }
    if (r.summary.foldersFailed != kept)
      fault("the run counted other folders failed or cancelled than those that kept their files");
  }

  // Sweeps one flow: every chosen store call fails, or is where the user
  // cancels, in turn. `unchanged` are the tracked folders the run must
  // leave alone.
  void sweep(Flow flow, Disturbance::Kind kind, const std::set<std::string>& unchanged) {
    const FlowResult clean = (this->*flow)(Disturbance{});
    ASSERT_TRUE(clean.after.problems.empty()) << clean.after.problems.front();
    std::map<std::string, std::string> full;  // folder key -> its file's bytes
    for (const char* key : kFolders) {
      ASSERT_TRUE(clean.after.fileOf.count(key)) << key << " has no file after a clean run";
      full[key] = clean.after.files.at(clean.after.fileOf.at(key));
    }
    ASSERT_GT(clean.calls.size(), 100u);

    // Each folder's read begins with its contents table and ends with the
    // table's last answer, that it has no more rows.
    std::vector<unsigned> lastAnswers;
    for (unsigned i = clean.runFirst; i <= clean.runLast; ++i) {
      if (clean.calls[i - 1] == kReadStart) lastAnswers.push_back(0);
      if (clean.calls[i - 1] == "IMAPITable::QueryRows" && !lastAnswers.empty())
        lastAnswers.back() = i;
    }
    // A cancel needs a call on the capture thread.
    const std::vector<unsigned> positions =
        kind == Disturbance::Fail ? sweepPositions(clean.calls, 1, clean.calls.size())
                                  : sweepPositions(clean.calls, clean.runFirst, clean.runLast);
    Faults wrong;
    std::map<std::string, unsigned> partial;
    const auto started = std::chrono::steady_clock::now();
    for (unsigned at : positions) {
      const std::string& call = clean.calls[at - 1];
      const HRESULT result =
          call.rfind("MAPIAllocate", 0) == 0 ? MAPI_E_NOT_ENOUGH_MEMORY : MAPI_E_CALL_FAILED;
      const FlowResult r = (this->*flow)(Disturbance{kind, at, result});
      if (HasFatalFailure()) return;
      const std::string place = std::to_string(at) + " " + call;
      auto fault = [&](const std::string& what) { wrong[what].push_back(place); };
      for (const std::string& problem : r.after.problems) fault(problem);
      if (r.storeReferencesLeft != 0) fault("the controller kept store objects");
      if (r.buffersLeft != 0) fault("MAPI buffers leaked");
      if (!r.summary.indexWritten) fault("the run did not write the index");
      // The folders the run reads, in its order; the others must keep
      // their files whatever happens.
      Outcomes reads;
      for (const char* key : kFolders) {
        const Outcome o = outcome(r, key, full);
        if (!unchanged.count(key))
          reads.emplace_back(key, o);
        else if (o != Outcome::Kept)
          fault(std::string(key) + ", unchanged, did not keep its file");
      }
      if (kind == Disturbance::Fail)
        judgeFailure(r, reads, call, partial, fault);
      else
        judgeCancel(r, reads, lastAnswers, at, fault);
    }
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started);
    std::string partials;
    for (const auto& [call, times] : partial) partials += " " + call + " x" + std::to_string(times);
    std::printf("%s sweep: %zu of %zu calls in %.1f s%s%s\n",
                kind == Disturbance::Fail ? "fault" : "cancel", positions.size(),
                clean.calls.size(), seconds.count(),
                partials.empty() ? "" : "; partial reads after:", partials.c_str());
    for (const auto& [what, places] : wrong) {
      std::string list;
      for (size_t i = 0; i < places.size() && i < 12; ++i) list += "\n  call " + places[i];
      if (places.size() > 12) list += "\n  ...";
      ADD_FAILURE() << what << ", at one of these " << places.size() << " calls:" << list;
    }
  }

  // Every place from `first` to `last` when FERRANT_SWEEP_ALL is set.
  // Otherwise the first place of every call site -- a kind of call within
  // one folder's open or read, each of which begins with the folder's
  // contents table --, the calls around each table's last answer, and
  // where the build is fast enough an even spread of further places.
  static std::vector<unsigned> sweepPositions(const std::vector<std::string>& calls, size_t first,
                                              size_t last) {
    std::set<unsigned> chosen;
    if (std::getenv("FERRANT_SWEEP_ALL")) {
      for (size_t i = first; i <= last; ++i) chosen.insert(static_cast<unsigned>(i));
      return {chosen.begin(), chosen.end()};
    }
    std::set<std::pair<unsigned, std::string>> sites;
    std::map<unsigned, size_t> lastRows;  // folder -> its last QueryRows
    unsigned folder = 0;
    for (size_t i = 1; i <= last; ++i) {
      if (calls[i - 1] == kReadStart) ++folder;
      if (i >= first && sites.emplace(folder, calls[i - 1]).second)
        chosen.insert(static_cast<unsigned>(i));
      // A folder's last rows, and the calls around them.
      if (i >= first && calls[i - 1] == "IMAPITable::QueryRows") lastRows[folder] = i;
    }
    for (const auto& [f, at] : lastRows) {
      for (size_t i = std::max(first, at - 1); i <= std::min(last, at + 1); ++i)
        chosen.insert(static_cast<unsigned>(i));
    }
    if (kSpreadPlaces != 0) {
      const size_t step = std::max<size_t>(1, (last - first + 1) / std::max(kSpreadPlaces, 1u));
      for (size_t i = first; i <= last; i += step) chosen.insert(static_cast<unsigned>(i));
    }
    return {chosen.begin(), chosen.end()};
  }

  Snapshot earlier_;  // the command's data folder before the run
};

TEST_F(FaultSweepTest, TheAddInsSecondRunSurvivesEveryStoreCallFailing) {
  sweep(&FaultSweepTest::addinFlow, Disturbance::Fail, {"tasks"});
}

TEST_F(FaultSweepTest, ANewControllerOverAnEarlierDataFolderSurvivesEveryStoreCallFailing) {
  sweep(&FaultSweepTest::commandFlow, Disturbance::Fail, {});
}

TEST_F(FaultSweepTest, TheAddInsSecondRunCancelledAtAnyStoreCallKeepsWhatItDidNotRead) {
  sweep(&FaultSweepTest::addinFlow, Disturbance::Cancel, {"tasks"});
}

TEST_F(FaultSweepTest, ANewControllerCancelledAtAnyStoreCallKeepsTheFilesItWasHanded) {
  sweep(&FaultSweepTest::commandFlow, Disturbance::Cancel, {});
}

}  // namespace
}  // namespace PIM::testing
