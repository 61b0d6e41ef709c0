// Read and write errors in the middle of a writer, where a real disk cannot be made to fail on
// cue: an EIO injected into the open file's writes and syncs and into the final swap, on real
// files. The writer answers its failure value and the file keeps its old data whole; no
// temporary file stays. (A full or read-only disk is tested through the module, in
// tests/boundary/file_faults_test.cpp.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "faulty_file_service.h"
#include "formats/cipher.h"
#include "formats/ini.h"
#include "paths_test_support.h"
#include "support/path_text.h"

namespace tessel::formats {
namespace {

using testing::FaultyFileService;

std::string contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream out;
  out << in.rdbuf();
  return out.str();
}

// The "gg" temporary files of INI rewrites in a folder, sorted.
std::vector<std::string> ggFiles(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(folder))
    if (e.path().filename().string().rfind("gg", 0) == 0) names.push_back(e.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(WriterFaults, AnEioLeavesTheOldDataWhole) {
  struct Case {
    const char* what;
    const char* operation;  // what fails, with EIO
    const char* file;       // on which file's path
    bool ini;               // tsWriteIni, else tsEncryptFile
    int32_t answer;
  };
  const Case cases[] = {
      {"tsWriteIni, writing the new data", "write", "/gg", true, 0},
      {"tsWriteIni, syncing the new data", "sync", "/gg", true, 0},
      {"tsWriteIni, swapping it in", "exchange", "/gg", true, 0},
      {"tsWriteIni, renaming it in", "rename", "/gg", true, 0},
      // The enciphered copy fails, so the file is enciphered in place, where a write error ends
      // the work and still answers 1 ("what is done stays done"); failing the first block there
      // too, nothing is changed.
      {"tsEncryptFile", "writeAt", "/data.ini", false, 1},
  };
  const std::string old = "[Main]\nKey=old\n";
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    testing::ScratchFolder scratch;
    std::string ini = scratch.file("data.ini", old);
    auto service = std::make_unique<FaultyFileService>();
    service->fail(c.operation, EIO, c.file);
    if (!c.ini) service->fail(c.operation, EIO, "/.tessel-partial-");
    // Without an exchange the rename is the way in; fail both where the rename is tested.
    if (std::string(c.operation) == "rename") service->fail("exchange", EINVAL, c.file);
    auto previous = platform::setFileService(std::move(service));
    const std::string temporaries = platform::fileService().temporaryFolderFor(ini);
    const std::vector<std::string> before = ggFiles(temporaries);
    int32_t answer = c.ini ? writeIni("Main", "Key", "new", ini) : encryptFile(ini, "key");
    platform::setFileService(std::move(previous));

    EXPECT_EQ(answer, c.answer);
    EXPECT_EQ(contents(ini), old);
    EXPECT_EQ(ggFiles(scratch.path()), std::vector<std::string>{});
    EXPECT_FALSE(std::filesystem::exists(scratch.path() + "/" + support::partialNameFor("data.ini")));
    EXPECT_EQ(ggFiles(temporaries), before);
  }
}

}  // namespace
}  // namespace tessel::formats
