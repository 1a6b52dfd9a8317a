// Folder listings with their attribute bits, and file deletion.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "platform/env.h"
#include "testing/test_support.h"

namespace PIM {
namespace {

using testing::TempDir;

std::vector<FolderEntry> sortedListing(const std::u16string& folder) {
  std::vector<FolderEntry> entries;
  EXPECT_TRUE(env()->listFolder(folder, entries));
  std::sort(entries.begin(), entries.end(),
            [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
  return entries;
}

TEST(FolderListingTest, ListsFilesAndFoldersWithTheirReadOnlyAndDirectoryBits) {
  TempDir dir;
  testing::writeFileBytes(dir.file(u"a.xml"), "a");
  testing::writeFileBytes(dir.file(u"B\u00e9.XML"), "b");
  testing::writeFileBytes(dir.file(u"locked.xml"), "c");
  ASSERT_TRUE(env()->makeDirectory(dir.file(u"sub.xml")));
  const std::filesystem::path locked(dir.file(u"locked.xml"));
  std::filesystem::permissions(locked,
                               std::filesystem::perms::owner_write |
                                   std::filesystem::perms::group_write |
                                   std::filesystem::perms::others_write,
                               std::filesystem::perm_options::remove);

  const std::vector<FolderEntry> entries = sortedListing(dir.path());
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0].name, u"B\u00e9.XML");
  EXPECT_EQ(entries[0].attributes & 0x11, 0u);
  EXPECT_EQ(entries[1].name, u"a.xml");
  EXPECT_EQ(entries[1].attributes & 0x11, 0u);
  EXPECT_EQ(entries[2].name, u"locked.xml");
  EXPECT_EQ(entries[2].attributes & 0x11, kFileAttributeReadOnly);
  EXPECT_EQ(entries[3].name, u"sub.xml");
  EXPECT_EQ(entries[3].attributes & 0x11, kFileAttributeDirectory);

  std::filesystem::permissions(locked, std::filesystem::perms::owner_write,
                               std::filesystem::perm_options::add);
}

TEST(FolderListingTest, AnEmptyFolderListsNothingAndAMissingOneFails) {
  TempDir dir;
  EXPECT_TRUE(sortedListing(dir.path()).empty());
  std::vector<FolderEntry> entries;
  EXPECT_FALSE(env()->listFolder(dir.file(u"missing"), entries));
  EXPECT_TRUE(entries.empty());
}

TEST(FolderListingTest, RemoveFileDeletesOneFileOnly) {
  TempDir dir;
  testing::writeFileBytes(dir.file(u"gone.xml"), "x");
  testing::writeFileBytes(dir.file(u"kept.xml"), "y");
  EXPECT_TRUE(env()->removeFile(dir.file(u"gone.xml")));
  EXPECT_FALSE(env()->pathStatus(dir.file(u"gone.xml")));
  EXPECT_TRUE(env()->pathStatus(dir.file(u"kept.xml")));
  EXPECT_FALSE(env()->removeFile(dir.file(u"gone.xml"))) << "already gone";
}

}  // namespace
}  // namespace PIM
