// A folder under the system's temporary folder for a test's files, removed with everything in
// it (the unit and the host tests share it).
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace tessel::testing {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tessel-test-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
  }
  ~ScratchFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  std::string folder(const std::string& relative) const {
    std::string full = path_ + "/" + relative;
    std::filesystem::create_directories(full);
    return full;
  }
  std::string file(const std::string& relative, const std::string& contents = "x") const {
    std::string full = path_ + "/" + relative;
    std::filesystem::create_directories(std::filesystem::path(full).parent_path());
    std::ofstream(full) << contents;
    return full;
  }

 private:
  std::string path_;
};

}  // namespace tessel::testing
