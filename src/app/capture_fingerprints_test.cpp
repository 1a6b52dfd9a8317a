// The fingerprint file: what the writer makes is read back whole, and
// anything else is refused whole.
#include "app/capture_fingerprints.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/utils.h"
#include "testing/test_support.h"

namespace PIM::testing {
namespace {

Fingerprints sampleFolders() {
  FolderFingerprint calendar;
  calendar.type = 1;
  calendar.folderId = "00000000a1b2";
  calendar.hash = 0x0123456789abcdefull;
  calendar.fileSize = 7699;
  calendar.fileTime = -4642118137004291197;
  calendar.fileName = u"CVTK1d00238.XML";
  FolderFingerprint empty;
  empty.type = 3;
  empty.folderId = "00ff";
  empty.hash = 7;
  Fingerprints fingerprints;
  fingerprints.run = 0xfedcba9876543210ull;
  fingerprints.folders = {calendar, empty};
  return fingerprints;
}

TEST(CaptureFingerprintsTest, WhatIsWrittenIsReadBack) {
  const std::string text = formatFingerprints(sampleFolders());
  EXPECT_EQ(text,
            "ferrant fingerprints 1\n"
            "run fedcba9876543210\n"
            "1 00000000a1b2 0123456789abcdef 7699 -4642118137004291197 CVTK1d00238.XML\n"
            "3 00ff 0000000000000007 0 0 -\n"
            "end 2\n");
  Fingerprints read;
  std::string error;
  ASSERT_TRUE(parseFingerprints(text, read, error)) << error;
  EXPECT_EQ(read, sampleFolders());
  EXPECT_EQ(formatFingerprints({}), "ferrant fingerprints 1\nrun -\nend 0\n");
  ASSERT_TRUE(parseFingerprints(formatFingerprints({}), read, error)) << error;
  EXPECT_EQ(read, Fingerprints());
}

TEST(CaptureFingerprintsTest, AnythingElseIsRefusedWhole) {
  const std::string good = formatFingerprints(sampleFolders());
  const std::string line = "1 00000000a1b2 0123456789abcdef 7699 -4642118137004291197 ";
  const struct {
    std::string text;
    const char* error;
  } cases[] = {
      {"", "line 1: the header line is missing"},
      {good.substr(0, good.size() - 1), "line 5: not ended by a line feed"},
      {good.substr(0, good.find("end")), "line 5: the end line is missing"},
      {"ferrant fingerprints 1\n", "line 2: the run line is missing"},
      {"ferrant fingerprints 1\nend 0\n", "line 2: not a run line"},
      {"ferrant fingerprints 1\nrun FEDCBA9876543210\nend 0\n", "line 2: not a run line"},
      {"ferrant fingerprints 1\nrun 1\nend 0\n", "line 2: not a run line"},
      {"ferrant fingerprints 2\nrun -\nend 0\n", "line 1: not a fingerprint file of this version"},
      {good + "1 00 0000000000000000 0 0 -\n", "line 6: text after the end line"},
      {"ferrant fingerprints 1\nrun -\nend 1\n",
       "line 3: the end line does not count the folder lines"},
      {"ferrant fingerprints 1\nrun -\n" + line + "../CVTK1.XML\nend 1\n",
       "line 3: not a folder line"},
      {"ferrant fingerprints 1\nrun -\n" + line + "a b.XML\nend 1\n", "line 3: not a folder line"},
      {"ferrant fingerprints 1\nrun -\n" + line + "\nend 1\n", "line 3: not a folder line"},
      {"ferrant fingerprints 1\nrun -\n1 00000000A1B2 0123456789abcdef 1 1 x.XML\nend 1\n",
       "line 3: not a folder line"},
      {"ferrant fingerprints 1\nrun -\n1 000 0123456789abcdef 1 1 x.XML\nend 1\n",
       "line 3: not a folder line"},
      {"ferrant fingerprints 1\nrun -\n1 00 0123456789abcde 1 1 x.XML\nend 1\n",
       "line 3: not a folder line"},
      {"ferrant fingerprints 1\nrun -\n-1 00 0123456789abcdef 1 1 x.XML\nend 1\n",
       "line 3: not a folder line"},
      {"ferrant fingerprints 1\nrun -\n1 00 0123456789abcdef +1 1 x.XML\nend 1\n",
       "line 3: not a folder line"},
      {"ferrant fingerprints 1\nrun -\n1 00 0123456789abcdef 5 0 -\nend 1\n",
       "line 3: not a folder line"},  // no file, yet a size
      {"ferrant fingerprints 1\r\nend 0\r\n", "line 1: not a fingerprint file of this version"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Fingerprints read = sampleFolders();
    std::string error;
    EXPECT_FALSE(parseFingerprints(c.text, read, error));
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(read, Fingerprints());
  }
}

TEST(CaptureFingerprintsTest, TheFileIsReplacedWholeAndAMissingOneIsEmpty) {
  TempDir folder;
  Fingerprints read = sampleFolders();
  std::string error;
  ASSERT_TRUE(readFingerprints(folder.path(), read, error)) << error;
  EXPECT_EQ(read, Fingerprints());
  ASSERT_TRUE(writeFingerprints(folder.path(), sampleFolders()));
  ASSERT_TRUE(readFingerprints(folder.path(), read, error)) << error;
  EXPECT_EQ(read, sampleFolders());
  EXPECT_FALSE(fileExists(folder.file(u".ferrant.fingerprints.new")));
  removeFingerprints(folder.path());
  EXPECT_FALSE(fileExists(folder.file(kFingerprintFileName)));
}

}  // namespace
}  // namespace PIM::testing
