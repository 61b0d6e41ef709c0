// The copy engine when the file service fails under it, on real files: a failure leaves no
// temporary copy behind and the destination as it was; an unrelated file in the destination's
// folder is left alone. The faults are injected through the
// fault-injecting decorator of the Linux file service.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "faulty_file_service.h"
#include "files/copy_engine.h"
#include "paths_test_support.h"

namespace tessel::files {
namespace {

using testing::FaultyFileService;

std::string contents(const std::string& path) {
  std::ifstream in(path);
  std::stringstream out;
  out << in.rdbuf();
  return out.str();
}

class CopyFaultsTest : public testing::PathsTest {
 protected:
  void SetUp() override {
    PathsTest::SetUp();
    auto service = std::make_unique<FaultyFileService>();
    files = service.get();
    previous_ = platform::setFileService(std::move(service));
  }
  void TearDown() override {
    files->clearFaults();
    files->setLocked(dest("a.txt"), false);
    platform::setFileService(std::move(previous_));
    PathsTest::TearDown();
  }

  // A fresh tree: a source file, and an older destination of the same name.
  void freshTree() {
    files->clearFaults();
    files->setLocked(dest("a.txt"), false);
    std::filesystem::remove_all(scratch.path() + "/dest");
    scratch.file("src/a.txt", "new data");
    scratch.file("dest/a.txt", "old");
  }
  std::string dest(const std::string& name) { return scratch.path() + "/dest/" + name; }
  std::string hfs(const std::string& relative) {
    return "Startup" + testing::replaceSlashes(scratch.path() + "/" + relative);
  }

  // The names in dest after the copy, sorted.
  std::vector<std::string> destNames() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.path() + "/dest"))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  FaultyFileService* files = nullptr;

 private:
  std::unique_ptr<platform::FileService> previous_;
};

TEST_F(CopyFaultsTest, FailuresLeaveNoTemporaryCopy) {
  const std::string taken = "tessel temp file 23";
  struct Case {
    const char* what;
    std::function<void()> arrange;
    int32_t code;
    const char* destination;  // the data under the destination's name afterwards (nullptr: none)
    std::vector<std::string> names;
  };
  const Case cases[] = {
      {"an unrelated file beside the destination",
       [&] { scratch.file("dest/" + taken, "someone else's"); }, kCopied, "new data",
       {"a.txt", taken}},
      {"a full disk", [&] { files->fail("copyFile", ENOSPC, "/dest/"); }, kCopyFailed, "old",
       {"a.txt"}},
      {"a read error", [&] { files->fail("copyFile", EIO, "/dest/"); }, kCopyFailed, "old",
       {"a.txt"}},
      // The copy is renamed over the old destination, so a rename that fails leaves it whole.
      {"a rename across filesystems", [&] { files->fail("rename", EXDEV, "/dest/"); },
       kCopyFailed, "old", {"a.txt"}},
      {"a locked destination", [&] { ASSERT_TRUE(files->setLocked(dest("a.txt"), true)); },
       kCopyFailed, "old", {"a.txt"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    freshTree();
    c.arrange();
    EXPECT_EQ(copyOneFile(hfs("src:a.txt"), hfs("dest:a.txt"), ""), c.code);
    EXPECT_EQ(std::filesystem::exists(dest("a.txt")), c.destination != nullptr);
    if (c.destination != nullptr) {
      EXPECT_EQ(contents(dest("a.txt")), c.destination);
    }
    EXPECT_EQ(destNames(), c.names);
    if (c.names.size() > 1) {
      EXPECT_EQ(contents(dest(taken)), "someone else's");
    }
    EXPECT_EQ(contents(scratch.path() + "/src/a.txt"), "new data");
  }
}

}  // namespace
}  // namespace tessel::files
