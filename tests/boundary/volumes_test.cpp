// Paths, special folders and volumes through the host, on the real machine.
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "tests/boundary/file_tree_support.h"

namespace tessel::testing {
namespace {

using host::Value;

std::vector<std::string> strings(const Value& list) {
  std::vector<std::string> out;
  if (list.isList())
    for (const Value& v : list.listPtr()->items) out.push_back(v.isString() ? v.string() : "?");
  return out;
}

bool contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

class Volumes : public FileTreeTest {};

// The conversions' rules are the unit tests'; here the real volume table stands behind them.
// A missing item's Unix form is where it would be on Linux, so another program can create it;
// only a volume that is not mounted keeps the textual "/Volumes/NAME" form.
TEST_F(Volumes, PathsConvertThroughTheRealVolumes) {
  const std::string file = dir_.file("clip.mov", "x").string();
  const std::string missing = dir_.str() + "/missing/folder";
  struct Row {
    const char* method;
    std::string input, expected;
  };
  // (Existing files and folders, both ways, are the reference's examples.)
  const Row rows[] = {
      {"tsLongFileName", hfsOf(dir_.str() + "/nothing/clip.mov"), ""},
      {"tsUnixName", hfsOf(missing) + ":", missing + "/"},
      {"tsHFSName", "/Volumes/" + startup_ + missing, hfsOf(missing)},
      {"tsUnixName", "Nowhere:a:b", "/Volumes/Nowhere/a/b"},
  };
  for (const Row& row : rows)
    EXPECT_EQ(text(row.method, {Value(row.input)}), row.expected) << row.method << " " << row.input;
  EXPECT_EQ(integer("tsFileExists", {Value("/Volumes/" + startup_ + file)}), 1);
}

// Paths of special folders name them whatever their names are written in.
TEST_F(Volumes, SpecialFoldersKeepTheirUtf8Names) {
  const std::string desktop = dir_.str() + "/\xE3\x83\x87\xE3\x82\xB9\xE3\x82\xAF";  // デスク
  const std::string pictures =
      dir_.str() + "/\xCE\x95\xCE\xB9\xCE\xBA\xCF\x8C\xCE\xBD\xCE\xB5\xCF\x82";  // Εικόνες
  std::filesystem::create_directories(desktop);
  std::filesystem::create_directories(pictures);
  dir_.file("config/user-dirs.dirs",
            "XDG_DESKTOP_DIR=\"" + desktop + "\"\nXDG_PICTURES_DIR=\"" + pictures + "\"\n");
  const std::string runner = std::filesystem::path(xtrasFolder()).parent_path() / "tessel";
  std::string command =
      "XDG_CONFIG_HOME='" + dir_.str() + "/config' '" + runner + "'" +
      " -e 'tsReturnUnixNames(1)'"
      " -e 'put tsSysFolder(\"desktop\")'"
      " -e 'put tsFolderExists(tsSysFolder(\"pictures\"))'"
      " -e 'tsReturnUnixNames(0)'"
      " -e 'put tsFolderExists(tsSysFolder(\"desktop\"))' 2>&1";
  std::optional<std::string> output = run(command);
  ASSERT_TRUE(output) << command;
  EXPECT_EQ(*output, "-- \"" + desktop + "/\"\n-- 1\n-- 1\n");
}

// (The keywords, prefixes and search order are the unit tests' rows, the start-up volume's
// folders and its place first in the disk list the reference's examples; here the real folders
// and the whole list.)
TEST_F(Volumes, SpecialFoldersAndTheDiskListInBothStyles) {
  std::vector<std::string> hfs = strings(call("tsDiskList"));
  unixNames(true);
  EXPECT_EQ(strings(call("tsDiskList")).size(), hfs.size());
  EXPECT_EQ(text("tsSysFolder", {Value("system fonts")}).rfind("/usr/share/fonts", 0), 0u);
  EXPECT_EQ(text("tsSysFolder", {Value("users")}), "/home/");
  unixNames(false);
  EXPECT_EQ(text("tsSysFolder", {Value("users")}), startup_ + ":home:");
}

// A real volume of its own: an ext2 disk image mounted through a loop device under /media,
// where the desktop shows removable media. Needs root (CI runs as root).
class MountedVolume : public Volumes {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "mounting a disk image needs root";
    if (!std::filesystem::exists("/dev/loop-control"))
      GTEST_SKIP() << "this kernel offers no loop devices";
    Volumes::SetUp();
    name_ = "TesselVol" + std::to_string(getpid());
    image_ = dir_.str() + "/disk.img";
    mountPoint_ = "/media/" + name_;
    std::string cmd = "dd if=/dev/zero of=" + image_ + " bs=1M count=8 status=none && " +
                      "mkfs.ext2 -q -F " + image_ + " && mkdir -p " + mountPoint_ +
                      " && mount -o loop " + image_ + " " + mountPoint_;
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    mounted_ = true;
  }
  void TearDown() override {
    if (mounted_) {
      std::string cmd = "umount " + mountPoint_ + " 2>/dev/null; rmdir " + mountPoint_ +
                        " 2>/dev/null; true";
      std::system(cmd.c_str());
    }
    Volumes::TearDown();
  }
  std::string name_, image_, mountPoint_;
  bool mounted_ = false;
};

TEST_F(MountedVolume, ListedTypedConvertedAndEjected) {
  EXPECT_TRUE(contains(strings(call("tsDiskList")), name_ + ":"));
  unixNames(true);
  EXPECT_TRUE(contains(strings(call("tsDiskList")), mountPoint_ + "/"));
  unixNames(false);

  // A disk image is ejectable and has free space.
  EXPECT_EQ(text("tsDiskInfo", {Value(name_ + ":"), Value("type")}), "Removable");
  int32_t size = integer("tsDiskInfo", {Value(mountPoint_), Value("size")});
  int32_t free = integer("tsDiskInfo", {Value(name_ + ":"), Value("free")});
  EXPECT_GT(size, 6000);
  EXPECT_LE(size, 8389);
  EXPECT_GT(free, 0);
  EXPECT_LE(free, size);

  std::ofstream(mountPoint_ + "/clip.mov") << "x";
  EXPECT_EQ(text("tsHFSName", {Value(mountPoint_ + "/clip.mov")}), name_ + ":clip.mov");
  EXPECT_EQ(text("tsUnixName", {Value(name_ + ":clip.mov")}), mountPoint_ + "/clip.mov");
  EXPECT_EQ(text("tsUnixName", {Value(name_ + ":missing")}), mountPoint_ + "/missing");
  EXPECT_EQ(integer("tsFileExists", {Value(name_ + ":clip.mov")}), 1);
  EXPECT_EQ(integer("tsFileExists", {Value("/Volumes/" + name_ + "/clip.mov")}), 1);

  EXPECT_EQ(integer("tsEjectDisk", {Value(name_ + ":")}), 1);
  mounted_ = false;
  EXPECT_EQ(integer("tsEjectDisk", {Value(name_ + ":")}), 0);
  EXPECT_FALSE(contains(strings(call("tsDiskList")), name_ + ":"));
  EXPECT_EQ(text("tsDiskInfo", {Value(name_ + ":"), Value("type")}), "Invalid");
  rmdir(mountPoint_.c_str());
}

}  // namespace
}  // namespace tessel::testing
