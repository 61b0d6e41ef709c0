// The copy engine when the file service fails under it: a failure leaves no temporary copy behind
// and the destination as it was; a temporary name someone else holds is
// passed over and left alone. The faults are injected through the fake file service.
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

#include "fake_file_service.h"
#include "files/copy_engine.h"
#include "paths_test_support.h"

namespace tessel::files {
namespace {

using platform::FakeFileService;

class CopyFaultsTest : public testing::PathsTest {
 protected:
  void SetUp() override {
    PathsTest::SetUp();
    previous_ = platform::setFileService(nullptr);
  }
  void TearDown() override {
    platform::setFileService(std::move(previous_));
    PathsTest::TearDown();
  }

  // A fresh tree: a source file, and an older destination of the same name.
  void freshTree() {
    auto service = std::make_unique<FakeFileService>();
    files = service.get();
    platform::setFileService(std::move(service));
    files->addFile("/src/a.txt", "new data");
    files->addFile("/dest/a.txt", "old");
  }

  // The names in /dest after the copy.
  std::vector<std::string> destNames() {
    std::vector<platform::FolderEntry> entries;
    files->listFolder("/dest", entries);
    std::vector<std::string> names;
    for (const auto& entry : entries) names.push_back(entry.name);
    return names;
  }

  FakeFileService* files = nullptr;

 private:
  std::unique_ptr<platform::FileService> previous_;
};

TEST_F(CopyFaultsTest, FailuresLeaveNoTemporaryCopy) {
  const std::string taken = "tessel temp file 23";
  struct Case {
    const char* what;
    std::function<void(FakeFileService&)> arrange;
    int32_t code;
    const char* destination;  // the data under the destination's name afterwards (nullptr: none)
    std::vector<std::string> names;
  };
  const Case cases[] = {
      {"a temporary name already taken",
       [&](FakeFileService& f) { f.addFile("/dest/" + taken, "someone else's"); }, kCopied,
       "new data", {"a.txt", taken}},
      {"a full disk", [](FakeFileService& f) { f.failNext["copyFile"] = ENOSPC; }, kCopyFailed,
       "old", {"a.txt"}},
      {"a read error", [](FakeFileService& f) { f.failNext["copyFile"] = EIO; }, kCopyFailed,
       "old", {"a.txt"}},
      // The copy is renamed over the old destination, so a rename that fails leaves it whole.
      {"a rename across filesystems", [](FakeFileService& f) { f.failNext["rename"] = EXDEV; },
       kCopyFailed, "old", {"a.txt"}},
      {"a locked destination", [](FakeFileService& f) { f.node("/dest/a.txt")->immutable = true; },
       kCopyFailed, "old", {"a.txt"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    freshTree();
    c.arrange(*files);
    EXPECT_EQ(copyOneFile("Startup:src:a.txt", "Startup:dest:a.txt", ""), c.code);
    const auto* destination = files->node("/dest/a.txt");
    EXPECT_EQ(destination == nullptr, c.destination == nullptr);
    if (destination != nullptr && c.destination != nullptr) {
      EXPECT_EQ(destination->data, c.destination);
    }
    EXPECT_EQ(destNames(), c.names);
    if (const auto* other = files->node("/dest/" + taken); c.names.size() > 1 && other) {
      EXPECT_EQ(other->data, "someone else's");
    }
  }
}

}  // namespace
}  // namespace tessel::files
