// Naming of volumes, the per-call reading of the mount table and the volume of a path.
#include <glib.h>
#include <gtest/gtest.h>

#include "paths/volume_model.h"
#include "paths_test_support.h"

namespace tessel::paths {
namespace {

using testing::PathsTest;

platform::MountedVolume mount(std::string mountPoint, std::string name) {
  platform::MountedVolume m;
  m.mountPoint = std::move(mountPoint);
  m.name = std::move(name);
  return m;
}

std::vector<std::string> names(const std::vector<Volume>& vs) {
  std::vector<std::string> out;
  for (const Volume& v : vs) out.push_back(v.name);
  return out;
}

TEST(VolumeNaming, StartupFirstUniqueNamesAndCleanComponents) {
  // The start-up volume goes first whatever the table's order, and keeps its label.
  auto named =
      nameVolumes({mount("/media/a", "Data"), mount("/", "Root FS"), mount("/media/b", "data"),
                   mount("/media/c", "DATA"), mount("/media/d", "Root fs")});
  EXPECT_EQ(names(named),
            (std::vector<std::string>{"Root FS", "Data", "data 2", "DATA 3", "Root fs 2"}));
  EXPECT_TRUE(named[0].isStartup());

  // No label: the fixed word; no "/" in the table at all: added.
  named =
      nameVolumes({mount("/media/x", "a:b/c"), mount("/media/y/", ""), mount("/media/y", "again")});
  ASSERT_EQ(named.size(), 3u);  // one volume per mount point
  EXPECT_EQ(named[0].name, "Startup");
  EXPECT_EQ(named[0].mountPoint, "/");
  EXPECT_EQ(named[1].name, "a-b-c");
  EXPECT_EQ(named[2].name, "y");
  EXPECT_EQ(named[2].mountPoint, "/media/y");

  // Long names are cut at a character boundary, numbered ones too.
  std::string longName(62, 'n');
  longName += "\xC3\xA9\xC3\xA9";  // two 2-byte characters straddling the limit
  named = nameVolumes({mount("/", ""), mount("/m1", longName), mount("/m2", longName)});
  EXPECT_EQ(named[1].name, std::string(62, 'n'));
  EXPECT_EQ(named[2].name, std::string(61, 'n') + " 2");
  // Invalid UTF-8 in a label is made valid.
  named = nameVolumes({mount("/", "bad\xFF")});
  EXPECT_TRUE(g_utf8_validate(named[0].name.c_str(), -1, nullptr));
  // Case folding beyond ASCII.
  named = nameVolumes(
      {mount("/", ""), mount("/m1", "\xC3\x89t\xC3\xA9"), mount("/m2", "\xC3\xA9T\xC3\x89")});
  EXPECT_EQ(named[2].name, "\xC3\xA9T\xC3\x89 2");
}

TEST_F(PathsTest, TheMountTableIsReadOncePerCall) {
  std::string usb = scratch.folder("USB");
  scratch.file("USB/f");
  fake->add(usb, "USB");
  EXPECT_EQ(fake->reads, 0);
  // A call that converts and resolves several paths, many components deep.
  toUnixPath("USB:f");
  toHfsPath(usb + "/f");
  longPathName("USB:f");
  diskList();
  diskInfo("USB:", "size");
  EXPECT_EQ(fake->reads, 1);

  // A volume mounted between calls shows up in the next call only.
  std::string other = scratch.folder("Other");
  fake->add(other, "Other");
  EXPECT_EQ(volumeNamed("Other"), nullptr);
  beginCall();
  EXPECT_NE(volumeNamed("other"), nullptr);
  EXPECT_EQ(fake->reads, 2);
}

TEST_F(PathsTest, APathBelongsToTheLongestMountPoint) {
  fake->add("/media/a", "A");
  fake->add("/media/a/inner", "Inner");
  fake->add("/media/ab", "AB");
  EXPECT_EQ(volumeContaining("/media/a/inner/x").name, "Inner");
  EXPECT_EQ(volumeContaining("/media/a/innerx").name, "A");
  EXPECT_EQ(volumeContaining("/media/abc").name, "Startup");
}

}  // namespace
}  // namespace tessel::paths
