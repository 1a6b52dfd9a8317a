// `ferrant capture` run after run as separate processes: a store file and
// settings left as they were need no load of the store at all, and any
// change to either brings the folders' own fingerprints back into play.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <utility>

#include "core/utils.h"
#include "testing/test_support.h"

namespace PIM::testing {
namespace {

std::string quoted(const std::string& text) { return "'" + text + "'"; }

size_t occurrences(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

class CaptureProcessesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFileBytes(dir_.file(u"box.json"), readFileBytes(fromUtf8(FERRANT_SAMPLE_MAILBOX)));
  }
  std::string root() const { return toUtf8(dir_.path()); }

  // The program's standard output; its status must be 0.
  std::string ferrant(const std::string& args) {
    const std::string command = "FERRANT_KEYSTORE=" + quoted(root() + "/keys") +
                                " XDG_DATA_HOME=" + quoted(root()) + " " + quoted(FERRANT_PROGRAM) +
                                " " + args + " >" + quoted(root() + "/out") + " 2>" +
                                quoted(root() + "/err");
    EXPECT_EQ(std::system(command.c_str()), 0) << readFileBytes(dir_.file(u"err"));
    return readFileBytes(dir_.file(u"out"));
  }
  std::string capture() {
    return ferrant("capture --store " + quoted(root() + "/box.json") + " --data-dir " +
                   quoted(root() + "/data"));
  }
  // How many capture runs the log has seen.
  size_t runsLogged() const {
    return occurrences(readFileBytes(dir_.file(u"Corvel/CVTK_Logs/CVTK_DBG.log")),
                       "Beginning data capture process.");
  }
  std::map<std::string, std::pair<std::string, std::filesystem::file_time_type>> dataFiles() {
    std::map<std::string, std::pair<std::string, std::filesystem::file_time_type>> files;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(root() + "/data"))) {
      if (entry.path().extension() != ".XML" && entry.path().extension() != ".xml") continue;
      files[entry.path().filename().string()] = {readFileBytes(fromUtf8(entry.path().string())),
                                                 std::filesystem::last_write_time(entry.path())};
    }
    return files;
  }

  TempDir dir_;
};

TEST_F(CaptureProcessesTest, AnUntouchedStoreIsNotEvenLoadedAndAnyChangeIsSeen) {
  EXPECT_NE(capture().find("Folders: 3 folders captured\n"), std::string::npos);
  const auto files = dataFiles();
  const size_t runs = runsLogged();
  ASSERT_EQ(runs, 1u);

  const std::string unchanged =
      "Folders: 0 folders captured, 3 unchanged\n"
      "Items:   0 appointments, 0 contacts, 0 e-mails, 0 tasks\n"
      "Files:   0 files written, 0 deleted, 0.0 s\n"
      "Index:   " +
      root() + "/data/DataDirectory.xml\n";
  EXPECT_EQ(capture(), unchanged);
  EXPECT_EQ(runsLogged(), runs) << "no capture run: the store was left unloaded";
  EXPECT_TRUE(dataFiles() == files);

  // A store file written again, even with the same content, is loaded.
  writeFileBytes(dir_.file(u"box.json"), readFileBytes(dir_.file(u"box.json")));
  EXPECT_EQ(capture(), unchanged);
  EXPECT_EQ(runsLogged(), runs + 1);
  EXPECT_TRUE(dataFiles() == files);
  EXPECT_EQ(capture(), unchanged);
  EXPECT_EQ(runsLogged(), runs + 1) << "and then left alone again";

  // Changed settings: the tasks are written again.
  ferrant("prefs --store " + quoted(root() + "/box.json") + " set tasks.captureBody off");
  EXPECT_NE(capture().find("Folders: 1 folder captured, 2 unchanged\n"), std::string::npos);
  EXPECT_EQ(runsLogged(), runs + 2);
  EXPECT_EQ(capture(), unchanged);
  EXPECT_EQ(runsLogged(), runs + 2) << "the new settings left alone in turn";

  // A data file deleted meanwhile is not overlooked.
  const auto before = dataFiles();
  ASSERT_FALSE(before.empty());
  std::filesystem::remove(std::filesystem::path(root() + "/data/" + before.begin()->first));
  EXPECT_NE(capture().find("Folders: 1 folder captured, 2 unchanged\n"), std::string::npos);
  EXPECT_EQ(runsLogged(), runs + 3);

  // --full always loads and reads.
  EXPECT_NE(ferrant("capture --full --store " + quoted(root() + "/box.json") + " --data-dir " +
                    quoted(root() + "/data"))
                .find("Folders: 3 folders captured\n"),
            std::string::npos);
  EXPECT_EQ(runsLogged(), runs + 4);
}

}  // namespace
}  // namespace PIM::testing
