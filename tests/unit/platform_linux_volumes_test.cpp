// The Linux volume and folder services against the real system: real temporary files and, when
// running as root, a real ext2 disk image mounted through a loop device under /media.
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <initializer_list>
#include <sstream>

#include "paths/paths.h"
#include "paths/volume_model.h"
#include "paths_test_support.h"
#include "platform/volumes.h"

namespace tessel {
namespace {

// Puts the real backends in place for a test, whatever was installed before.
class RealServices {
 public:
  RealServices()
      : volumes_(platform::setVolumeService(nullptr)),
        folders_(platform::setFolderService(nullptr)) {
    paths::setReturnUnixNames(false);
    paths::beginCall();
  }
  ~RealServices() {
    platform::setVolumeService(std::move(volumes_));
    platform::setFolderService(std::move(folders_));
    paths::beginCall();
  }

 private:
  std::unique_ptr<platform::VolumeService> volumes_;
  std::unique_ptr<platform::FolderService> folders_;
};

// Runs a program quietly; its standard output, or nothing when it fails.
std::optional<std::string> run(std::initializer_list<std::string> args) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  gchar* out = nullptr;
  gint status = 0;
  bool ran =
      g_spawn_sync(nullptr, argv.data(), nullptr,
                   static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDERR_TO_DEV_NULL),
                   nullptr, nullptr, &out, nullptr, &status, nullptr);
  std::string text = out != nullptr ? out : "";
  g_free(out);
  if (!ran || !g_spawn_check_wait_status(status, nullptr)) return std::nullopt;
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

bool mounted(const std::string& mountPoint) {
  std::ifstream table("/proc/self/mountinfo");
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string id, parent, dev, root, point;
    fields >> id >> parent >> dev >> root >> point;
    if (point == mountPoint) return true;
  }
  return false;
}

TEST(LinuxVolumes, StartupVolumeAndRealFiles) {
  RealServices real;
  auto all = platform::volumeService().mountedVolumes();
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(all.front().mountPoint, "/");
  auto space = platform::volumeService().space("/");
  ASSERT_TRUE(space.has_value());
  EXPECT_GT(space->totalBytes, 0u);
  EXPECT_LE(space->freeBytes, space->totalBytes);
  EXPECT_FALSE(platform::volumeService().space("/no/such/mount").has_value());

  // Real files on the start-up volume convert through it, both ways.
  testing::ScratchFolder scratch;
  std::string file = scratch.file("sub/f.txt");
  std::string startup = paths::startupVolume().name;
  std::string hfs = startup + testing::replaceSlashes(file);
  EXPECT_EQ(paths::toHfsPath(file), hfs);
  EXPECT_EQ(paths::toUnixPath(hfs), file);
  EXPECT_EQ(paths::toHfsPath(scratch.path() + "/sub"),
            startup + testing::replaceSlashes(scratch.path()) + ":sub:");
  EXPECT_EQ(paths::longPathName(hfs), hfs);
  EXPECT_EQ(paths::diskList().front(), startup + ":");
  EXPECT_EQ(std::get<std::string>(paths::diskInfo("/", "type")),
            paths::startupVolume().network
                ? "Network"
                : (paths::startupVolume().ejectable ? "Removable" : "Hard"));
  EXPECT_EQ(paths::ejectDisk("/"), 0);

  // The real folder service behind the keywords.
  paths::setReturnUnixNames(true);
  EXPECT_EQ(paths::sysFolder("profile"), std::string(g_get_home_dir()) + "/");
  EXPECT_EQ(paths::sysFolder("system temp"), "/tmp/");
}

// An 8 MiB ext2 image attached to a loop device and mounted under /media; everything is undone
// in the destructor, whatever the test got to.
class DiskImage {
 public:
  DiskImage() {
    name_ = "TesselTest" + std::to_string(::getpid());
    mountPoint_ = "/media/" + name_;
    image_ = scratch_.path() + "/disk.img";
    if (!run({"truncate", "-s", "8M", image_}) || !run({"mkfs.ext2", "-q", "-F", image_})) return;
    auto loop = run({"losetup", "--find", "--show", image_});
    if (!loop || loop->empty()) return;
    loop_ = *loop;
    if (::mkdir(mountPoint_.c_str(), 0755) != 0) return;
    madeMountPoint_ = true;
    ready_ = run({"mount", loop_, mountPoint_}).has_value();
  }
  ~DiskImage() {
    if (mounted(mountPoint_)) run({"umount", mountPoint_});
    if (!loop_.empty() && run({"losetup", loop_}).has_value()) run({"losetup", "-d", loop_});
    if (madeMountPoint_) ::rmdir(mountPoint_.c_str());
  }
  bool ready() const { return ready_; }
  const std::string& name() const { return name_; }
  const std::string& mountPoint() const { return mountPoint_; }

 private:
  testing::ScratchFolder scratch_;
  std::string name_, mountPoint_, image_, loop_;
  bool madeMountPoint_ = false;
  bool ready_ = false;
};

TEST(LinuxVolumes, MountedDiskImageListsTypesConvertsAndEjects) {
  if (::geteuid() != 0) GTEST_SKIP() << "mounting a disk image needs root";
  DiskImage disk;
  if (!disk.ready()) GTEST_SKIP() << "could not make and mount a loop-device ext2 image here";
  RealServices real;
  const std::string& name = disk.name();
  const std::string& mp = disk.mountPoint();
  std::ofstream(mp + "/file.txt") << "data";
  ::mkdir((mp + "/Folder").c_str(), 0755);

  auto list = paths::diskList();
  EXPECT_NE(std::find(list.begin(), list.end(), name + ":"), list.end());
  paths::setReturnUnixNames(true);
  list = paths::diskList();
  EXPECT_NE(std::find(list.begin(), list.end(), mp + "/"), list.end());
  paths::setReturnUnixNames(false);

  // A disk image is ejectable and has free space.
  EXPECT_EQ(std::get<std::string>(paths::diskInfo(name + ":", "type")), "Removable");
  EXPECT_EQ(std::get<std::string>(paths::diskInfo(mp, "type")), "Removable");
  int32_t size = std::get<int32_t>(paths::diskInfo(name + ":", "size"));
  int32_t free = std::get<int32_t>(paths::diskInfo("/Volumes/" + name, "free"));
  EXPECT_GT(size, 6'000);
  EXPECT_LE(size, 8'389);
  EXPECT_GT(free, 0);
  EXPECT_LE(free, size);

  EXPECT_EQ(paths::toUnixPath(name + ":file.txt"), mp + "/file.txt");
  EXPECT_EQ(paths::toUnixPath(name + ":Folder"), mp + "/Folder/");
  EXPECT_EQ(paths::toHfsPath(mp + "/Folder"), name + ":Folder:");
  EXPECT_EQ(paths::toHfsPath("/Volumes/" + name + "/file.txt"), name + ":file.txt");
  EXPECT_EQ(paths::toUnixPath(name + ":missing"), mp + "/missing");
  EXPECT_EQ(paths::longPathName(name + ":Folder:"), name + ":Folder:");

  EXPECT_EQ(paths::ejectDisk(name + ":"), 1);
  EXPECT_FALSE(mounted(mp));
  paths::beginCall();
  EXPECT_EQ(paths::ejectDisk(name + ":"), 0);
  EXPECT_EQ(std::get<std::string>(paths::diskInfo(name + ":", "size")), "Invalid");
}

}  // namespace
}  // namespace tessel
