// Path styles, conversions, the file layer's resolution and long/short names, on a fake volume
// table whose second volume is a real scratch folder.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>

#include "faulty_file_service.h"
#include "paths/paths.h"
#include "paths/volume_model.h"
#include "paths_test_support.h"

namespace tessel::paths {
namespace {

using testing::PathsTest;
using testing::replaceSlashes;

class ConversionsTest : public PathsTest {
 protected:
  void SetUp() override {
    PathsTest::SetUp();
    usb = scratch.folder("media/USB");
    scratch.file("media/USB/a.txt");
    scratch.folder("media/USB/Photos/2024");
    scratch.file("media/USB/x:y");
    scratch.file("media/USB/caf\xC3\xA9.txt");
    fake->add(usb, "USB", true);
  }
  std::string usb;
};

TEST_F(ConversionsTest, SeparatorsFollowThePathStyle) {
  EXPECT_TRUE(isUnixPath("/"));
  EXPECT_FALSE(isUnixPath(""));
  EXPECT_FALSE(isUnixPath("Startup:/"));

  std::string p;
  addTrailingSeparator(p);
  EXPECT_EQ(p, "");
  p = "/a";
  addTrailingSeparator(p);
  addTrailingSeparator(p);
  EXPECT_EQ(p, "/a/");
  p = "Disk:a";
  addTrailingSeparator(p);
  EXPECT_EQ(p, "Disk:a:");
  stripTrailingSeparator(p);
  stripTrailingSeparator(p);
  EXPECT_EQ(p, "Disk:a");
  for (std::string alone : {"/", ":"}) {
    stripTrailingSeparator(alone);
    EXPECT_EQ(alone.size(), 1u);
  }
}

TEST_F(ConversionsTest, StartupVolumeExistingItemsConvertBothWays) {
  std::string file = scratch.file("f.txt");
  std::string hfsDir = "Startup" + replaceSlashes(scratch.path());
  EXPECT_EQ(toHfsPath(file), hfsDir + ":f.txt");
  EXPECT_EQ(toUnixPath(hfsDir + ":f.txt"), file);
  // Folders carry their trailing separator in both styles, whether or not it was given.
  EXPECT_EQ(toHfsPath(scratch.path()), hfsDir + ":");
  EXPECT_EQ(toUnixPath(hfsDir), scratch.path() + "/");
  EXPECT_EQ(toUnixPath(scratch.path()), scratch.path() + "/");
  EXPECT_EQ(toUnixPath(file), file);
  EXPECT_EQ(toHfsPath("/"), "Startup:");
  EXPECT_EQ(toUnixPath("Startup:"), "/");
  EXPECT_EQ(toUnixPath("startup:"), "/");  // volume names ignore case
  // A style's own paths pass through the other conversion unchanged.
  EXPECT_EQ(toHfsPath("Whatever:x"), "Whatever:x");
}

TEST_F(ConversionsTest, MissingItemsConvertThroughTheirVolume) {
  std::string hfsDir = "Startup" + replaceSlashes(scratch.path());
  EXPECT_EQ(toUnixPath(hfsDir + ":missing.txt"), scratch.path() + "/missing.txt");
  EXPECT_EQ(toHfsPath(scratch.path() + "/missing/deeper"), hfsDir + ":missing:deeper");
  // On a mounted volume: its mount point, both ways; a folder keeps its separator as written.
  EXPECT_EQ(toUnixPath("usb:none:x/y"), usb + "/none/x:y");
  EXPECT_EQ(toUnixPath("USB:new:"), usb + "/new/");
  EXPECT_EQ(toUnixPath("USB:Photos:2024::gone"), usb + "/Photos/gone");
  EXPECT_EQ(toHfsPath(usb + "/none/x:y"), "USB:none:x/y");
  EXPECT_EQ(toHfsPath(usb + "/new/"), "USB:new:");
  EXPECT_EQ(toHfsPath("/Volumes/usb/none"), "USB:none");
  // Only a volume that is not mounted takes the textual forms.
  EXPECT_EQ(toHfsPath("/Volumes/Disk/a"), "Disk:a");
  EXPECT_EQ(toUnixPath("Disk:a:b"), "/Volumes/Disk/a/b");
  EXPECT_EQ(toUnixPath("/no/such/folder"), "/no/such/folder");
  EXPECT_EQ(nativePath("/Volumes/USB/none"), usb + "/none");
}

TEST_F(ConversionsTest, SecondVolumeConvertsThroughItsMountPoint) {
  EXPECT_EQ(toUnixPath("USB:a.txt"), usb + "/a.txt");
  EXPECT_EQ(toUnixPath("usb:Photos:2024"), usb + "/Photos/2024/");
  EXPECT_EQ(toUnixPath("USB:"), usb + "/");
  EXPECT_EQ(toHfsPath(usb + "/a.txt"), "USB:a.txt");
  EXPECT_EQ(toHfsPath(usb + "//Photos/./2024/"), "USB:Photos:2024:");
  EXPECT_EQ(toHfsPath(usb), "USB:");
  // "/Volumes/NAME" stands for the mount point, ignoring case.
  EXPECT_EQ(toHfsPath("/Volumes/USB/a.txt"), "USB:a.txt");
  EXPECT_EQ(toHfsPath("/volumes/usb/Photos"), "USB:Photos:");
  EXPECT_EQ(toUnixPath("/Volumes/USB/Photos"), "/Volumes/USB/Photos/");
  EXPECT_EQ(nativePath("/Volumes/Startup/etc"), "/etc");
  EXPECT_EQ(nativePath("/Volumes/USB"), usb);
  // A mount point that merely starts like another is not inside it.
  std::string sibling = scratch.folder("media/USBX");
  EXPECT_EQ(toHfsPath(sibling), "Startup" + replaceSlashes(sibling) + ":");
}

TEST_F(ConversionsTest, ColonsAndSlashesTradePlacesInComponents) {
  EXPECT_EQ(toUnixPath("USB:x/y"), usb + "/x:y");
  EXPECT_EQ(toHfsPath(usb + "/x:y"), "USB:x/y");
  EXPECT_EQ(nativePath("USB:Photos:a/b"), usb + "/Photos/a:b");
}

TEST_F(ConversionsTest, NativePathResolvesBothStyles) {
  EXPECT_EQ(nativePath(""), "");
  EXPECT_EQ(nativePath("USB:Photos:"), usb + "/Photos/");
  EXPECT_EQ(nativePath("Startup:etc:hosts"), "/etc/hosts");
  EXPECT_EQ(nativePath("Startup:"), "/");
  EXPECT_EQ(nativePath("Nowhere:a"), "");
  EXPECT_EQ(nativePath("bare name"), "");
  EXPECT_EQ(nativePath(":relative:a"), "");
  // Extra colons go up a folder each.
  EXPECT_EQ(nativePath("USB:Photos:2024::a.txt"), usb + "/Photos/a.txt");
  EXPECT_EQ(nativePath("USB:Photos:2024:::a.txt"), usb + "/a.txt");
  EXPECT_EQ(nativePath("/plain/unix"), "/plain/unix");
}

TEST_F(ConversionsTest, FromNativeFollowsTheSwitch) {
  EXPECT_EQ(fromNative(usb + "/Photos", true), "USB:Photos:");
  EXPECT_EQ(fromNative(usb + "/a.txt", false), "USB:a.txt");
  setReturnUnixNames(true);
  EXPECT_EQ(fromNative(usb + "/Photos", true), usb + "/Photos/");
  EXPECT_EQ(fromNative("/", true), "/");
}

TEST_F(ConversionsTest, LongAndShortNames) {
  EXPECT_EQ(longPathName("USB:"), "USB:");
  EXPECT_EQ(longPathName("usb:Photos:2024:"), "usb:Photos:2024:");  // kept as written
  EXPECT_EQ(longPathName("USB:Photos:2024"), "USB:Photos:2024");
  EXPECT_EQ(longPathName("USB:x/y"), "USB:x/y");
  EXPECT_EQ(longPathName(usb + "/a.txt"), "USB:a.txt");  // a Unix path in its HFS form
  EXPECT_EQ(longPathName("USB:Photos:nope:a"), "");
  EXPECT_EQ(longPathName("USB:a.txt:inside"), "");  // a file is no folder
  EXPECT_EQ(longPathName("Nowhere:"), "");
  EXPECT_EQ(longPathName("USB:Photos::2024"), "");
  EXPECT_EQ(longPathName("no volume"), "");
  EXPECT_EQ(longFileName("USB:caf\xC3\xA9.txt"), "USB:caf\xC3\xA9.txt");
  EXPECT_EQ(shortFileName("USB:caf\xC3\xA9.txt"), "USB:caf\x8E.txt");  // Mac OS Roman
  EXPECT_EQ(shortPathName("USB:missing"), "");
}

// On real files, with the refused search of a folder injected (root passes every permission
// check): a long name needs every component reachable, and a link counts as what it leads to
// when the conversions ask whether an item is a folder.
class RealFilesTest : public PathsTest {
 protected:
  void SetUp() override {
    PathsTest::SetUp();
    auto service = std::make_unique<testing::FaultyFileService>();
    service->fail("walk", EACCES, "/data/private/");
    previous_ = platform::setFileService(std::move(service));
    data = scratch.folder("data");
    scratch.file("data/docs/a.txt");
    scratch.folder("data/private/inner");
    scratch.file("data/plain");
    ASSERT_EQ(::symlink("docs", (data + "/shortcut").c_str()), 0);
    ASSERT_EQ(::symlink("loop2", (data + "/loop").c_str()), 0);
    ASSERT_EQ(::symlink("loop", (data + "/loop2").c_str()), 0);
    hfs = "Startup" + replaceSlashes(data);
  }
  void TearDown() override {
    platform::setFileService(std::move(previous_));
    PathsTest::TearDown();
  }
  std::string data, hfs;

 private:
  std::unique_ptr<platform::FileService> previous_;
};

TEST_F(RealFilesTest, LongNamesWalkEveryComponent) {
  EXPECT_EQ(longPathName(hfs + ":docs:a.txt"), hfs + ":docs:a.txt");
  EXPECT_EQ(longPathName(hfs + ":shortcut:a.txt"), hfs + ":shortcut:a.txt");
  EXPECT_EQ(longPathName(hfs + ":private:inner"), "");  // EACCES
  EXPECT_EQ(longPathName(hfs + ":plain:x"), "");        // ENOTDIR
  EXPECT_EQ(longPathName(hfs + ":loop:x"), "");         // ELOOP
  EXPECT_EQ(longPathName(hfs + ":missing"), "");

  EXPECT_EQ(toHfsPath(data + "/shortcut"), hfs + ":shortcut:");  // a link to a folder
  EXPECT_EQ(toHfsPath(data + "/loop"), hfs + ":loop");           // a link to nothing
  EXPECT_EQ(toUnixPath(hfs + ":shortcut"), data + "/shortcut/");
  EXPECT_EQ(toUnixPath(hfs + ":loop"), data + "/loop");
}

}  // namespace
}  // namespace tessel::paths
