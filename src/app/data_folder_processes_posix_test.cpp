// The data folder as separate processes meet it: the program on a disk that
// fills up, and the folder's lock when its holder is killed.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

#include "app/data_folder_lock.h"
#include "core/utils.h"
#include "testing/test_support.h"

namespace PIM::testing {
namespace {

std::string quoted(const std::string& text) { return "'" + text + "'"; }

TEST(DataFolderProcessesTest, AFullDiskGivesExitOneWithEachFileNotWritten) {
  if (std::system("unshare -rm true >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "no private mount namespace here (unshare -rm), so no small disk to fill";
  TempDir dir;
  const std::string root = toUtf8(dir.path());
  ASSERT_TRUE(std::filesystem::create_directory(std::filesystem::path(dir.file(u"data"))));
  // Two pages: the smallest folder file fits, the larger ones and the
  // index do not.
  const std::string script = "mount -t tmpfs -o size=8k tmpfs " + quoted(root + "/data") +
                             " || exit 99; " + "FERRANT_KEYSTORE=" + quoted(root + "/keys") +
                             " XDG_DATA_HOME=" + quoted(root) + " " + quoted(FERRANT_PROGRAM) +
                             " capture --store " + quoted(FERRANT_SAMPLE_MAILBOX) + " --data-dir " +
                             quoted(root + "/data") + " >" + quoted(root + "/out") + " 2>" +
                             quoted(root + "/err") + "; echo $? >" + quoted(root + "/status") +
                             "; ls -A " + quoted(root + "/data") + " >" + quoted(root + "/listing");
  const int shell = std::system(("unshare -rm sh -c " + quoted(script)).c_str());
  ASSERT_EQ(shell, 0) << readFileBytes(dir.file(u"err"));

  EXPECT_EQ(readFileBytes(dir.file(u"status")), "1\n");
  const std::string out = readFileBytes(dir.file(u"out"));
  EXPECT_NE(out.find("Index:   not written\n"), std::string::npos) << out;
  EXPECT_NE(out.find("Errors:  "), std::string::npos) << out;
  const size_t notWritten = out.find(" not written, ");
  ASSERT_NE(notWritten, std::string::npos) << out;
  const size_t count = std::stoul(out.substr(out.rfind(' ', notWritten - 1) + 1));
  // One line for each file, the index last.
  std::istringstream err(readFileBytes(dir.file(u"err")));
  const std::string prefix = "ferrant capture: could not write " + root + "/data/";
  std::string line;
  size_t files = 0;
  while (std::getline(err, line) && line != prefix + "DataDirectory.xml") {
    EXPECT_EQ(line.rfind(prefix + "CVTK", 0), 0u) << line;
    ++files;
  }
  EXPECT_EQ(line, prefix + "DataDirectory.xml");
  EXPECT_EQ(files, count);
  EXPECT_GE(count, 1u);
  EXPECT_EQ(readFileBytes(dir.file(u"listing")).find("DataDirectory.xml"), std::string::npos);
}

TEST(DataFolderProcessesTest, TheLockOfAKilledHolderIsFree) {
  TempDir dir;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t holder = fork();
  if (holder == 0) {
    DataFolderLock lock(dir.path());
    std::string error;
    const char state = lock.tryAcquire(error) == DataFolderLock::Result::Acquired ? 'y' : 'n';
    if (write(ready[1], &state, 1) != 1) _exit(1);
    pause();  // killed here, the lock still held
    _exit(0);
  }
  char state = 0;
  ASSERT_EQ(read(ready[0], &state, 1), 1);
  EXPECT_EQ(state, 'y');
  DataFolderLock lock(dir.path());
  std::string error;
  EXPECT_EQ(lock.tryAcquire(error), DataFolderLock::Result::Busy);
  kill(holder, SIGKILL);
  int status = 0;
  waitpid(holder, &status, 0);
  EXPECT_EQ(lock.tryAcquire(error), DataFolderLock::Result::Acquired) << error;
  close(ready[0]);
  close(ready[1]);
}

}  // namespace
}  // namespace PIM::testing
