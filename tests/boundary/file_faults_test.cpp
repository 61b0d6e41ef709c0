// Every method that writes files, on a small filesystem the test fills and on a read-only one:
// the method answers its failure value, nothing half-written stays under the destination's name,
// and the source and any old destination are as they were. Both are tmpfs mounts made by the
// test, so it needs root (CI runs as root).
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>

#include "tests/boundary/file_tree_support.h"

namespace tessel::testing {
namespace {

using host::Value;
namespace fs = std::filesystem;

class FileFaults : public FileTreeTest {
 protected:
  void SetUp() override {
    FileTreeTest::SetUp();
    if (::geteuid() != 0) GTEST_SKIP() << "mounting a small tmpfs needs root";
    folder("mnt");
    if (::mount("tessel-faults", at("mnt").c_str(), "tmpfs", 0, "size=256k") != 0)
      GTEST_SKIP() << "cannot mount a tmpfs here: " << std::strerror(errno);
    mounted_ = true;
  }
  void TearDown() override {
    if (mounted_) ::umount2(at("mnt").c_str(), MNT_DETACH);
    FileTreeTest::TearDown();
  }

  // The mount, emptied and writable again.
  void reset() {
    ASSERT_EQ(::mount(nullptr, at("mnt").c_str(), nullptr, MS_REMOUNT, "size=256k"), 0);
    for (const auto& e : fs::directory_iterator(at("mnt"))) fs::remove_all(e.path());
  }
  // Takes every free block of the mount.
  void fill() {
    std::ofstream filler(at("mnt/.filler"), std::ios::binary);
    std::string block(4096, 'f');
    while (filler.write(block.data(), block.size()) && filler.flush()) {
    }
  }
  void makeReadOnly() {
    ASSERT_EQ(::mount(nullptr, at("mnt").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, "size=256k"), 0);
  }

  bool mounted_ = false;
};

enum class Fault { DiskFull, ReadOnly };

TEST_F(FileFaults, WritersFailWholeOnAFullOrReadOnlyDisk) {
  const std::string big(64 * 1024, 'n');  // more than a full disk has room for
  struct Case {
    const char* what;
    Fault fault;
    std::function<int32_t()> call;
    int32_t failure;
  };
  auto m = [&](const std::string& name) { return at("mnt/" + name); };
  auto i = [&](const char* method, std::vector<Value> args) { return integer(method, std::move(args)); };
  const Case cases[] = {
      {"tsCopyFile over a file", Fault::DiskFull,
       [&] { return i("tsCopyFile", {at("src/big"), m("old.txt"), ""}); }, 4},
      {"tsCopyFile to a new name", Fault::DiskFull,
       [&] { return i("tsCopyFile", {at("src/big"), m("new.txt"), ""}); }, 4},
      // A progress copy over an existing file removes that file before it copies, so a full disk
      // loses it: add that row once the progress copy replaces its destination atomically.
      {"tsCopyFileProgress to a new name, no window", Fault::DiskFull,
       [&] { return i("tsCopyFileProgress", {at("src/big"), m("new.txt"), "", "", "", 8}); }, 4},
      {"tsCopyXFilesProgress, no window", Fault::DiskFull,
       [&] { return i("tsCopyXFilesProgress", {at("src"), m("empty"), "*", "", "", "", 8}); }, 4},
      {"tsXCopyProgress, no window", Fault::DiskFull,
       [&] { return i("tsXCopyProgress", {at("src"), m("empty"), "*", "", 1, "", "", 8}); }, 4},
      {"tsCopyXFiles", Fault::DiskFull,
       [&] { return i("tsCopyXFiles", {at("src"), m("empty"), "*", ""}); }, 4},
      {"tsXCopy", Fault::DiskFull,
       [&] { return i("tsXCopy", {at("src"), m("empty"), "*", "", 1}); }, 4},
      {"tsWriteIni", Fault::DiskFull,
       [&] { return i("tsWriteIni", {"Main", "Key", big, m("old.ini")}); }, 0},

      {"tsCopyFile over a file", Fault::ReadOnly,
       [&] { return i("tsCopyFile", {at("src/big"), m("old.txt"), ""}); }, 4},
      {"tsCopyFile with +", Fault::ReadOnly,
       [&] { return i("tsCopyFile", {at("src/big"), m("old.txt"), "+"}); }, 4},
      {"tsXCopy", Fault::ReadOnly,
       [&] { return i("tsXCopy", {at("src"), m("empty"), "*", "", 1}); }, 4},
      {"tsWriteIni", Fault::ReadOnly,
       [&] { return i("tsWriteIni", {"Main", "Key", "v", m("old.ini")}); }, 0},
      {"tsWriteIni, a new file", Fault::ReadOnly,
       [&] { return i("tsWriteIni", {"Main", "Key", "v", m("new.ini")}); }, 0},
      // On a full disk tsEncryptFile still works: it rewrites the file's blocks in place.
      {"tsEncryptFile", Fault::ReadOnly, [&] { return i("tsEncryptFile", {m("old.txt"), "k"}); }, 0},
      {"tsCreateFolder", Fault::ReadOnly, [&] { return i("tsCreateFolder", {m("new")}); }, 0},
      {"tsRenameFile", Fault::ReadOnly,
       [&] { return i("tsRenameFile", {m("old.txt"), m("new.txt")}); }, 0},
      {"tsDeleteFile", Fault::ReadOnly, [&] { return i("tsDeleteFile", {m("old.txt")}); }, 0},
      {"tsDeleteFolder", Fault::ReadOnly, [&] { return i("tsDeleteFolder", {m("empty")}); }, 0},
      {"tsDeleteXFiles", Fault::ReadOnly, [&] { return i("tsDeleteXFiles", {at("mnt"), "*"}); }, 0},
      {"tsXDelete", Fault::ReadOnly, [&] { return i("tsXDelete", {at("mnt"), "*"}); }, 0},
      {"tsSetFileInfo", Fault::ReadOnly,
       [&] { return i("tsSetFileInfo", {m("old.txt"), "TEXT", "ttxt"}); }, 0},
      {"tsSetFileAttributes", Fault::ReadOnly,
       [&] { return i("tsSetFileAttributes", {m("old.txt"), "h"}); }, 0},
      {"tsSetFilePermissions", Fault::ReadOnly,
       [&] { return i("tsSetFilePermissions", {m("old.txt"), "O", "rw"}); }, 0},
      {"tsMakeShortcut", Fault::ReadOnly,
       [&] { return i("tsMakeShortcut", {at("src/big"), at("mnt"), "alias"}); }, 0},
  };
  make("src/big", big);
  const Strings before = {"empty", "old.ini", "old.txt"};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.what) + (c.fault == Fault::DiskFull ? ", disk full" : ", read-only"));
    reset();
    make("mnt/old.txt", "old");
    make("mnt/old.ini", "[Main]\nKey=old\n");
    folder("mnt/empty");
    if (c.fault == Fault::DiskFull) fill();
    else makeReadOnly();

    EXPECT_EQ(c.call(), c.failure);
    Strings names = tree("mnt");
    std::erase(names, ".filler");
    EXPECT_EQ(names, before);
    EXPECT_EQ(read("mnt/old.txt"), "old");
    EXPECT_EQ(read("mnt/old.ini"), "[Main]\nKey=old\n");
    EXPECT_EQ(read("src/big"), big);
  }
}

}  // namespace
}  // namespace tessel::testing
