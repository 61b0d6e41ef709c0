// The Linux file model against real files: Finder information in an extended attribute, resource
// forks in "._name" companions, locks, and the folder's ".hidden" list.
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/files.h"

namespace tessel::platform {
namespace {

class LinuxFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tessel-files-XXXXXX";
    ASSERT_NE(g_mkdtemp(pattern), nullptr);
    root_ = pattern;
  }
  void TearDown() override {
    // Locked leftovers of a failed test must not keep the folder alive.
    for (const char* name : {"a", "b", "c", "x"}) files_->setLocked(path(name), false);
    ::umount2(path("ram").c_str(), MNT_DETACH);
    std::string command = "rm -rf '" + root_ + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }

  std::string path(const std::string& name) const { return root_ + "/" + name; }

  void write(const std::string& name, const std::string& text) {
    std::ofstream(path(name), std::ios::binary) << text;
  }
  std::string read(const std::string& name) {
    std::ifstream in(path(name), std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  bool exists(const std::string& name) { return ::access(path(name).c_str(), F_OK) == 0; }
  std::vector<std::string> names() {
    std::vector<FolderEntry> entries;
    EXPECT_TRUE(files_->listFolder(root_, entries));
    std::vector<std::string> out;
    for (const FolderEntry& e : entries) out.push_back(e.name);
    std::sort(out.begin(), out.end());
    return out;
  }

  std::unique_ptr<FileService> files_ = makeLinuxFileService();
  std::string root_;
};

FinderInfo record(uint32_t type, uint32_t creator, uint16_t flags) {
  FinderInfo info;
  info.setType(type);
  info.setCreator(creator);
  info.setFlags(flags);
  info.bytes[31] = 0x5A;  // bytes beyond the known fields are kept as they are
  return info;
}

TEST_F(LinuxFilesTest, FinderInformationAndResourceForkTravelWithTheFile) {
  write("a", "0123456789");
  EXPECT_FALSE(files_->finderInfo(path("a")));
  EXPECT_EQ(files_->resourceForkSize(path("a")), 0u);
  ASSERT_TRUE(files_->setFinderInfo(path("a"), record(0x54455854, 0x74747874, 0x0100)));
  ASSERT_TRUE(files_->setResourceFork(path("a"), "fork!"));
  EXPECT_TRUE(exists("._a"));
  EXPECT_EQ(names(), (std::vector<std::string>{"a"}));  // the companion is no item of its own
  std::vector<FolderEntry> entries;
  ASSERT_TRUE(files_->listFolder(root_, entries));
  EXPECT_TRUE(entries.at(0).companion);

  ASSERT_TRUE(files_->copyFile(path("a"), path("b")));
  auto info = files_->finderInfo(path("b"));
  ASSERT_TRUE(info);
  EXPECT_EQ(info->type(), 0x54455854u);
  EXPECT_EQ(info->creator(), 0x74747874u);
  EXPECT_EQ(info->flags(), 0x0100);
  EXPECT_EQ(info->bytes[31], 0x5A);
  EXPECT_EQ(files_->resourceFork(path("b")), "fork!");
  EXPECT_EQ(read("b"), "0123456789");

  ASSERT_TRUE(files_->rename(path("b"), path("c")));
  EXPECT_FALSE(exists("._b"));
  EXPECT_EQ(files_->resourceForkSize(path("c")), 5u);
  EXPECT_EQ(names(), (std::vector<std::string>{"a", "c"}));

  // Renaming onto an item that had a fork of its own while the moved one has none.
  write("x", "plain");
  ASSERT_TRUE(files_->rename(path("x"), path("c")));
  EXPECT_FALSE(exists("._c"));
  EXPECT_EQ(files_->resourceForkSize(path("c")), 0u);

  ASSERT_TRUE(files_->removeFile(path("a")));
  EXPECT_FALSE(exists("._a"));

  // A companion whose item is gone stays visible, so the folder can still be emptied.
  write("._orphan", "x");
  EXPECT_EQ(names(), (std::vector<std::string>{"._orphan", "c"}));
  ASSERT_TRUE(files_->listFolder(root_, entries));
  for (const FolderEntry& e : entries) EXPECT_FALSE(e.companion) << e.name;

  // Emptying the fork leaves no companion behind.
  write("d", "");
  ASSERT_TRUE(files_->setResourceFork(path("d"), "r"));
  ASSERT_TRUE(files_->setResourceFork(path("d"), ""));
  EXPECT_FALSE(exists("._d"));
}

// (Removal and copies onto a locked file refused, and Finder flags still set on it, are
// FileQueries.AttributeLettersAndTheirSideEffects' and CopyEngine.OnlyAPlusReplacesALockedDestination's.)
TEST_F(LinuxFilesTest, LockedItemsCannotBeRenamedOrReplaced) {
  write("a", "locked");
  write("b", "other");
  ASSERT_TRUE(files_->setLocked(path("a"), true));
  EXPECT_EQ(files_->rename(path("a"), path("c")).error(), EPERM);
  EXPECT_EQ(files_->rename(path("b"), path("a")).error(), EPERM);
  EXPECT_EQ(files_->exchange(path("b"), path("a")).error(), EPERM);
  EXPECT_EQ(read("a"), "locked");
  ASSERT_TRUE(files_->setLocked(path("a"), false));
  EXPECT_FALSE(files_->isLocked(path("a")));
  EXPECT_TRUE(files_->removeFile(path("a")));

  // (A file nobody may write counts as locked too: FileQueries.AFileNobodyMayWriteIsLocked...)
  // A link is never locked itself: removing it leaves the locked target alone.
  write("c", "target");
  ASSERT_TRUE(files_->setLocked(path("c"), true));
  ASSERT_TRUE(files_->createLink(path("c"), path("x")));
  EXPECT_TRUE(files_->isLocked(path("x")));  // queries follow the link
  EXPECT_TRUE(files_->removeFile(path("x")));
  EXPECT_TRUE(exists("c"));
  ASSERT_TRUE(files_->setLocked(path("c"), false));
}

// (The list written and removed with the flag, and "." names always invisible, are
// FileQueries.AttributeLettersAndTheirSideEffects'.)
TEST_F(LinuxFilesTest, HiddenListMovesWithTheInvisibleFlag) {
  write("a", "");
  write("b", "");
  write(".dot", "");
  ASSERT_TRUE(files_->setHidden(path("a"), true));
  ASSERT_TRUE(files_->setHidden(path("b"), true));
  EXPECT_EQ(read(".hidden"), "a\nb\n");
  EXPECT_EQ(files_->finderInfo(path("a"))->flags() & 0x4000, 0x4000);

  ASSERT_TRUE(files_->rename(path("a"), path("c")));
  EXPECT_EQ(read(".hidden"), "b\nc\n");
  EXPECT_TRUE(files_->isHidden(path("c")));

  ASSERT_TRUE(files_->removeFile(path("b")));
  EXPECT_EQ(read(".hidden"), "c\n");

  // The flag alone (a copy into another folder keeps it) lists the name where it lands.
  ASSERT_TRUE(files_->createFolder(path("sub")));
  ASSERT_TRUE(files_->copyFile(path("c"), path("sub/x.tmp")));
  ASSERT_TRUE(files_->rename(path("sub/x.tmp"), path("sub/x")));
  EXPECT_EQ(read("sub/.hidden"), "x\n");

  ASSERT_TRUE(files_->setHidden(path("c"), false));
  EXPECT_EQ(files_->finderInfo(path("c"))->flags() & 0x4000, 0);
  // A "." name needs no line in the list.
  ASSERT_TRUE(files_->setHidden(path(".dot"), true));
  EXPECT_FALSE(exists(".hidden"));
}

// Without the right to set the immutable flag (any ordinary user) a lock clears the write bits;
// it still refuses removal, and Finder information can still be written. The first failed step,
// or "" when all passed.
std::string lockWithoutImmutableFlag(FileService& files, const std::string& folder) {
  std::string f = folder + "/mine";
  std::ofstream(f) << "x";
  if (::chmod(f.c_str(), 0664) != 0) return "chmod";
  if (!files.setLocked(f, true)) return "setLocked";
  struct stat st {};
  ::stat(f.c_str(), &st);
  if ((st.st_mode & 0777) != 0444) return "mode after locking";
  if (!files.isLocked(f)) return "isLocked";
  if (files.removeFile(f).error() != EPERM) return "removeFile";
  FinderInfo info;
  info.setType(0x54455854);
  if (FileStatus set = files.setFinderInfo(f, info); !set)
    return "setFinderInfo " + std::to_string(set.error());
  ::stat(f.c_str(), &st);
  if ((st.st_mode & 0777) != 0444) return "mode after setFinderInfo";
  if (!files.setLocked(f, false)) return "unlock";
  ::stat(f.c_str(), &st);
  if ((st.st_mode & 0777) != 0644) return "mode after unlocking";
  if (!files.removeFile(f)) return "removeFile after unlocking";
  return "";
}

TEST_F(LinuxFilesTest, LockOfAnOrdinaryUserClearsTheWriteBits) {
  if (::geteuid() != 0) {
    EXPECT_EQ(lockWithoutImmutableFlag(*files_, root_), "");
    return;
  }
  // As root: the same steps in a child that has become the unprivileged user "nobody".
  ASSERT_EQ(::chown(root_.c_str(), 65534, 65534), 0);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::string failure = "setuid";
    if (::setgroups(0, nullptr) == 0 && ::setgid(65534) == 0 && ::setuid(65534) == 0)
      failure = lockWithoutImmutableFlag(*makeLinuxFileService(), root_);
    std::fputs(failure.c_str(), stderr);
    ::_exit(failure.empty() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the failed step is on stderr";
}

// ramfs keeps no user extended attributes: the queries answer as for a file without Finder
// information, the setters fail, the invisible list still works.
TEST_F(LinuxFilesTest, FilesystemWithoutExtendedAttributes) {
  std::string mountPoint = path("ram");
  ASSERT_EQ(::mkdir(mountPoint.c_str(), 0755), 0);
  if (::geteuid() != 0 || ::mount("none", mountPoint.c_str(), "ramfs", 0, nullptr) != 0)
    GTEST_SKIP() << "mounting ramfs needs root";
  std::string file = mountPoint + "/f";
  std::ofstream(file) << "data";
  EXPECT_FALSE(files_->finderInfo(file));
  EXPECT_EQ(files_->setFinderInfo(file, record(1, 2, 3)).error(), ENOTSUP);
  EXPECT_TRUE(files_->setHidden(file, true));
  EXPECT_TRUE(files_->isHidden(file));
  EXPECT_TRUE(files_->setResourceFork(file, "fork"));
  EXPECT_EQ(files_->resourceForkSize(file), 4u);
  EXPECT_TRUE(files_->copyFile(file, mountPoint + "/g"));
  EXPECT_EQ(files_->resourceForkSize(mountPoint + "/g"), 4u);
}

}  // namespace
}  // namespace tessel::platform
