// Disk information, the disk list and ejection against a fake volume table whose volumes are
// scratch folders.
#include <gtest/gtest.h>

#include "paths/paths.h"
#include "paths_test_support.h"

namespace tessel::paths {
namespace {

using testing::PathsTest;

std::string text(const std::variant<int32_t, std::string>& v) {
  return std::holds_alternative<std::string>(v) ? std::get<std::string>(v) : "<int>";
}
int32_t number(const std::variant<int32_t, std::string>& v) {
  return std::holds_alternative<int32_t>(v) ? std::get<int32_t>(v) : -999;
}

class DisksTest : public PathsTest {
 protected:
  void SetUp() override {
    PathsTest::SetUp();
    stick = scratch.folder("media/Stick");
    disc = scratch.folder("media/Disc");
    share = scratch.folder("net/Share");
    unknown = scratch.folder("media/Odd");
    fake->add(stick, "Stick", true);
    fake->add(disc, "Disc", true);
    fake->add(share, "Share", true, true);  // a network volume is never "Removable"
    fake->add(unknown, "Odd", true);
    fake->spaces["/"] = {500'000'000'000ull, 123'456'789ull};
    fake->spaces[stick] = {8'388'608ull, 4'000'999ull};
    fake->spaces[disc] = {700'000'000ull, 0};
    fake->spaces[share] = {20'000'000'000'000ull, 1'000ull};
  }
  std::string stick, disc, share, unknown;
};

// (Hard and Removable volumes, their sizes, the list in both styles, "Invalid" for a volume that
// is gone and an eject that takes it are Volumes' and MountedVolume's, on real mounts.)
TEST_F(DisksTest, TypesAndSizesOnlyAFakeCanShow) {
  EXPECT_EQ(text(diskInfo("Stick", "type")), "Removable");  // the bare name
  EXPECT_EQ(text(diskInfo("Disc:", "type")), "CD-ROM");     // ejectable, nothing free
  EXPECT_EQ(text(diskInfo("Share:", "type")), "Network");
  EXPECT_EQ(text(diskInfo("Odd:", "type")), "Removable");  // space unreadable
  EXPECT_EQ(text(diskInfo("Stick:missing:", "type")), "Invalid");  // no such folder
  EXPECT_EQ(number(diskInfo("Stick:", "Free")), 4'000);
  EXPECT_EQ(number(diskInfo("Startup:", "size")), 500'000'000);
  // Beyond 32 bits the thousands wrap as a 32-bit integer.
  EXPECT_EQ(number(diskInfo("Share:", "size")),
            static_cast<int32_t>(static_cast<uint32_t>(20'000'000'000ull)));
  EXPECT_EQ(number(diskInfo("Odd:", "size")), 0);
}

TEST_F(DisksTest, EjectSucceedsOnlyWhenTheVolumeIsGone) {
  EXPECT_EQ(ejectDisk(disc + "/"), 1);  // by its Unix path
  EXPECT_EQ(ejectDisk("/"), 0);  // never the start-up volume
  EXPECT_EQ(fake->ejected, std::vector<std::string>{disc});
  fake->ejectWorks = false;  // busy: still mounted afterwards
  EXPECT_EQ(ejectDisk("Share:"), 0);
  EXPECT_EQ(fake->ejected.back(), share);
}

}  // namespace
}  // namespace tessel::paths
