// Shared by the capture tests: the reference store's session in OutlookApp,
// preferences in memory, a data folder of the test's own, file names from a
// fixed tick count, and gates that hold a run at a chosen step so that the
// test can act while it is in progress.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

#include "addin/outlook_app.h"
#include "capture/data_capture.h"
#include "core/utils.h"
#include "data/data_test_util.h"
#include "prefs/preferences.h"
#include "testing/memory_key_store.h"

namespace PIM::testing {

// Long enough for any run on a loaded machine, and shorter than a test's
// time limit, so that a run that never comes fails with a message instead of
// being killed; waits end as soon as the condition holds.
inline constexpr std::chrono::seconds kRunTimeout{60};

// Where a run can be held: listing the data folder (before the folder-list
// lock) or creating a folder's new file (inside it, after that folder's
// read).
enum class Step { ListDataFolder, CreateFile };

// Holds the capture thread at one step until the test lets it go.
class Gate {
 public:
  // The next time the run reaches `step` it waits there.
  void arm(Step step) {
    std::lock_guard<std::mutex> guard(lock_);
    armed_ = true;
    step_ = step;
    arrived_ = false;
    open_ = false;
  }
  // Waits until the run stands at the gate.
  bool waitArrived() {
    std::unique_lock<std::mutex> guard(lock_);
    return changed_.wait_for(guard, kRunTimeout, [this] { return arrived_; });
  }
  bool hasArrived() {
    std::lock_guard<std::mutex> guard(lock_);
    return arrived_;
  }
  void open() {
    {
      std::lock_guard<std::mutex> guard(lock_);
      open_ = true;
    }
    changed_.notify_all();
  }
  // The run's side.
  void pass(Step step) {
    std::unique_lock<std::mutex> guard(lock_);
    if (!armed_ || step_ != step) return;
    armed_ = false;
    arrived_ = true;
    changed_.notify_all();
    changed_.wait_for(guard, kRunTimeout, [this] { return open_; });
  }

 private:
  std::mutex lock_;
  std::condition_variable changed_;
  bool armed_ = false;
  Step step_ = Step::ListDataFolder;
  bool arrived_ = false;
  bool open_ = false;
};

// Data file names from a tick count that stands still (CVTK1000.XML,
// CVTK1001.XML, ...), and the gate.
class CaptureEnv : public EnvWrapper {
 public:
  static constexpr uint32_t kTicks = 0x1000;
  CaptureEnv() : EnvWrapper(env()), scoped_(this) {}
  uint32_t tickCount() override { return kTicks; }
  bool listFolder(const std::u16string& folder, std::vector<FolderEntry>& entries) override {
    gate.pass(Step::ListDataFolder);
    return target()->listFolder(folder, entries);
  }
  OpenAlwaysResult openAlways(const std::u16string& path) override {
    gate.pass(Step::CreateFile);
    return target()->openAlways(path);
  }
  Gate gate;

 private:
  ScopedEnv scoped_;
};

class CaptureTest : public RecordTest {
 protected:
  void SetUp() override {
    RecordTest::SetUp();
    OutlookApp::instance()->setMapiSession(session_.get());
    setDataFolder(data_.path());
  }
  void TearDown() override {
    DataCapture::freeInstance();
    setDataFolder(u"");
    OutlookApp::instance()->setMapiSession(nullptr);
    RecordTest::TearDown();
  }

  OutlookFolder identity(const std::string& key) {
    const store::Ref ref = profile_->byKey(key);
    return {EntryId(profile_->entryId(ref)),
            EntryId(profile_->entryId(profile_->storeRef(ref.store)))};
  }

  store::Item item(const std::u16string& messageClass, const std::u16string& subject) {
    store::Item made;
    made.props.set(store::Prop::ofText(PR_MESSAGE_CLASS_W, messageClass));
    made.props.set(store::Prop::ofText(PR_SUBJECT_W, subject));
    made.props.set(store::Prop::ofText(PR_DISPLAY_NAME_W, subject));
    return made;
  }
  store::Ref addTask(const std::u16string& subject) {
    return profile_->addItem(profile_->byKey("tasks"), item(u"IPM.Task", subject));
  }
  store::Ref addContact(const std::u16string& name) {
    return profile_->addItem(profile_->byKey("contacts"), item(u"IPM.Contact", name));
  }

  // Runs one capture to its end.
  void runCapture(DataCapture* capture) {
    capture->captureNow();
    ASSERT_TRUE(capture->waitForCapture(kRunTimeout));
    ASSERT_FALSE(capture->isCapturing());
  }

  std::u16string dataFile(const std::u16string& name) const { return data_.file(name); }
  std::string index() const { return readFileBytes(dataFile(kDataDirectoryName)); }

  // The index line of a folder file.
  std::string indexLine(const std::string& name, const std::string& type,
                        const std::string& folderKey) {
    return "<dataFile name=\"" + name + "\" type=\"" + type + "\" entryId=\"" +
           toUtf8(identity(folderKey).folderId.toWstring()) + "\"/>\r\n";
  }

  // The names of the files in the data folder, sorted.
  std::vector<std::string> dataFolderNames() const {
    std::vector<FolderEntry> entries;
    EXPECT_TRUE(env()->listFolder(data_.path(), entries));
    std::vector<std::string> names;
    for (const FolderEntry& entry : entries) names.push_back(toUtf8(entry.name));
    std::sort(names.begin(), names.end());
    return names;
  }

  // The file names the index lists, in its order.
  std::vector<std::string> indexedNames() const {
    std::vector<std::string> names;
    const std::string text = index();
    static const std::regex kName("<dataFile name=\"([^\"]*)\"");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), kName);
         it != std::sregex_iterator(); ++it)
      names.push_back((*it)[1]);
    return names;
  }

  void expectFilesValid() {
    expectValidDataFile(dataFile(kDataDirectoryName));
    for (const std::string& name : indexedNames()) expectValidDataFile(dataFile(fromUtf8(name)));
  }

  // Every file the index names exists, and every folder file in the data
  // folder is named by the index.
  void expectIndexMatchesFolder() {
    std::vector<std::string> expected = indexedNames();
    expected.push_back("DataDirectory.xml");
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(dataFolderNames(), expected);
  }

  // The lines the controller and the run wrote, as "MSG> text" or
  // "ERR> text".
  static std::vector<std::string> captureLines(const LogCapture& log) {
    std::vector<std::string> out;
    for (const std::string& line : log.lines()) {
      if (line.find("PIM::DataCapture::") == std::string::npos &&
          line.find("PIM::MonitoredFolder::") == std::string::npos)
        continue;
      for (const char* marker : {" ERR> ", " MSG> "}) {
        const size_t at = line.find(marker);
        if (at != std::string::npos) {
          out.push_back(line.substr(at + 1));
          break;
        }
      }
    }
    return out;
  }

  static void savePreferences() { Preferences::instance().save(); }
  static PimActionWindow& actionWindow() { return OutlookApp::instance()->actionWindow(); }

  MemoryKeyStoreEnv keys_;
  CaptureEnv env_;
  TempDir data_;
};

}  // namespace PIM::testing
