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

// Each row: a conversion, its input and its answer. In both, "{S}" is the scratch folder (on the
// start-up volume "Startup"), "{H}" the same folder in HFS style and "{U}" the mount point of the
// volume "USB". (Long only for its rows: one table reads better than a test per conversion.)
// Existing and missing items of the start-up volume both ways, a volume that is not mounted, a
// mounted one's files by either name, and a path of the other style passed through are
// Volumes.PathsConvertThroughTheRealVolumes' and MountedVolume's rows and the examples of
// tsHFSName, tsLongFileName and tsShortFileName; the switch's effect is every listing's.
TEST_F(ConversionsTest, ConversionsAsRows) {
  enum Fn { Hfs, Unix, Native, Long, LongFile, Short };
  struct Row {
    Fn fn;
    std::string input, expected;
  };
  const Row rows[] = {
      // Folders carry their separator.
      {Unix, "{S}", "{S}/"},
      {Hfs, "/", "Startup:"},
      {Unix, "startup:", "/"},  // volume names ignore case
      // Missing items convert through their volume; a folder keeps its separator as written.
      {Hfs, "{S}/missing/deeper", "{H}:missing:deeper"},
      {Unix, "usb:none:x/y", "{U}/none/x:y"},
      {Unix, "USB:new:", "{U}/new/"},
      {Unix, "USB:Photos:2024::gone", "{U}/Photos/gone"},
      {Hfs, "{U}/none/x:y", "USB:none:x/y"},
      {Hfs, "{U}/new/", "USB:new:"},
      {Hfs, "/Volumes/usb/none", "USB:none"},
      // Only a volume that is not mounted takes the textual forms.
      {Hfs, "/Volumes/Disk/a", "Disk:a"},
      // The second volume through its mount point; "/Volumes/NAME" stands for it, ignoring case.
      {Unix, "usb:Photos:2024", "{U}/Photos/2024/"},
      {Unix, "USB:", "{U}/"},
      {Hfs, "{U}//Photos/./2024/", "USB:Photos:2024:"},
      {Hfs, "{U}", "USB:"},
      {Hfs, "/volumes/usb/Photos", "USB:Photos:"},
      {Unix, "/Volumes/USB/Photos", "/Volumes/USB/Photos/"},
      {Native, "/Volumes/USB", "{U}"},
      {Native, "/Volumes/USB/none", "{U}/none"},
      // Colons and slashes trade places in components (both ways: also the missing rows above
      // and FileListings.NamesWithAColonComeInTheCurrentStyle).
      {Native, "USB:Photos:a/b", "{U}/Photos/a:b"},
      // Native paths from both styles. (Extra colons going up a folder each are AllMethods'
      // sandbox rows; the start-up volume's paths, every test's.)
      {Native, "USB:Photos:", "{U}/Photos/"},
      {Native, "Nowhere:a", ""},
      {Native, "bare name", ""},
      {Native, ":relative:a", ""},
      // Long names: kept as written while every component exists, "" otherwise.
      {Long, "USB:", "USB:"},
      {Long, "usb:Photos:2024:", "usb:Photos:2024:"},
      {Long, "USB:Photos:2024", "USB:Photos:2024"},
      {Long, "USB:x/y", "USB:x/y"},
      {Long, "USB:a.txt:inside", ""},  // a file is no folder
      {Long, "Nowhere:", ""},
      {Long, "USB:Photos::2024", ""},
      {Long, "no volume", ""},
      {LongFile, "USB:caf\xC3\xA9.txt", "USB:caf\xC3\xA9.txt"},
      {Short, "USB:caf\xC3\xA9.txt", "USB:caf\x8E.txt"},  // Mac OS Roman
  };
  // A mount point that merely starts like another is not inside it.
  std::string sibling = scratch.folder("media/USBX");
  EXPECT_EQ(toHfsPath(sibling), "Startup" + replaceSlashes(sibling) + ":");
  auto fill = [&](std::string text) {
    const std::pair<std::string, std::string> marks[] = {
        {"{S}", scratch.path()}, {"{H}", "Startup" + replaceSlashes(scratch.path())}, {"{U}", usb}};
    for (const auto& [mark, value] : marks)
      for (size_t at; (at = text.find(mark)) != std::string::npos;) text.replace(at, 3, value);
    return text;
  };
  for (const Row& row : rows) {
    const std::string in = fill(row.input);
    std::string got;
    switch (row.fn) {
      case Hfs: got = toHfsPath(in); break;
      case Unix: got = toUnixPath(in); break;
      case Native: got = nativePath(in); break;
      case Long: got = longPathName(in); break;
      case LongFile: got = longFileName(in); break;
      case Short: got = shortFileName(in); break;
    }
    EXPECT_EQ(got, fill(row.expected)) << "conversion " << row.fn << " of " << row.input;
  }
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
