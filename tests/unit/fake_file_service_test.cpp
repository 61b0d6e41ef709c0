// The in-memory file service keeps the rules that logic tests rely on.
#include "fake_file_service.h"

#include <gtest/gtest.h>

namespace tessel::platform {
namespace {

TEST(FakeFileService, KeepsTheLinuxBackendsRules) {
  FakeFileService fs;
  fs.addFile("/d/a", "abc").fork = "rf";
  fs.addFile("/d/sub/b", "b");
  fs.addLink("/d/l", "a");

  std::vector<FolderEntry> entries;
  ASSERT_TRUE(fs.listFolder("/d/", entries));
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].name, "a");
  EXPECT_EQ(entries[1].kind, FileKind::Link);
  EXPECT_EQ(entries[2].kind, FileKind::Folder);
  EXPECT_EQ(fs.info("/d/l")->size, 3u);  // followed to its target

  // Locks refuse removal, renaming and replacement with EPERM; copies leave the lock behind.
  ASSERT_TRUE(fs.setLocked("/d/a", true));
  EXPECT_FALSE(fs.removeFile("/d/a"));
  EXPECT_EQ(fs.lastError(), EPERM);
  EXPECT_FALSE(fs.rename("/d/sub/b", "/d/a"));
  EXPECT_EQ(fs.lastError(), EPERM);
  EXPECT_FALSE(fs.copyFile("/d/sub/b", "/d/a"));
  EXPECT_EQ(fs.lastError(), EPERM);
  ASSERT_TRUE(fs.copyFile("/d/a", "/d/c"));
  EXPECT_FALSE(fs.isLocked("/d/c"));
  EXPECT_EQ(fs.resourceFork("/d/c"), "rf");
  EXPECT_TRUE(fs.removeFile("/d/l"));  // a link is never locked itself

  // A folder moves with everything in it; the invisible flag lists the name where it lands.
  ASSERT_TRUE(fs.setHidden("/d/sub", true));
  ASSERT_TRUE(fs.rename("/d/sub", "/e"));
  EXPECT_TRUE(fs.exists("/e/b"));
  EXPECT_FALSE(fs.exists("/d/sub/b"));
  EXPECT_TRUE(fs.hiddenListed.count("/e"));
  EXPECT_FALSE(fs.removeFolder("/e"));
  EXPECT_EQ(fs.lastError(), ENOTEMPTY);

  // Without extended attributes no Finder information is kept.
  fs.extendedAttributes = false;
  EXPECT_FALSE(fs.finderInfo("/d/c"));
  EXPECT_FALSE(fs.setFinderInfo("/d/c", FinderInfo{}));
}

}  // namespace
}  // namespace tessel::platform
