// Pieces the file-method tests share: a fixture with a temporary tree, both path styles of it,
// and small readers of what the methods left on disk.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {

class FileTreeTest : public XtraTest {
 protected:
  void SetUp() override {
    XtraTest::SetUp();
    startup_ = startupVolumeName(*host_);
    ASSERT_FALSE(startup_.empty());
    root_ = dir_.str();
  }

  // The path of a name below the temporary folder, in Unix or HFS style; any Unix path in HFS.
  std::string at(const std::string& relative) const { return root_ + "/" + relative; }
  std::string hfs(const std::string& relative) const { return hfsOf(at(relative)); }
  std::string hfsOf(std::string unixPath) const {
    std::replace(unixPath.begin(), unixPath.end(), '/', ':');
    return startup_ + unixPath;
  }

  std::filesystem::path make(const std::string& relative, const std::string& content = "x") {
    return dir_.file(relative, content);
  }
  void folder(const std::string& relative) { std::filesystem::create_directories(at(relative)); }
  bool exists(const std::string& relative) const {
    return std::filesystem::exists(std::filesystem::symlink_status(at(relative)));
  }
  std::string read(const std::string& relative) const { return slurp(at(relative)); }

  // A list result's strings, sorted (the filesystem's own order is not fixed).
  static std::vector<std::string> sorted(const host::Value& list) {
    std::vector<std::string> out;
    if (list.isList())
      for (const host::Value& v : list.listPtr()->items) out.push_back(v.isString() ? v.string() : "?");
    std::sort(out.begin(), out.end());
    return out;
  }

  // Every item below the temporary folder, relative, sorted.
  std::vector<std::string> tree(const std::string& relative = "") const {
    std::vector<std::string> out;
    std::filesystem::path base = relative.empty() ? dir_.path() : dir_.path() / relative;
    if (!std::filesystem::exists(base)) return out;
    for (auto& e : std::filesystem::recursive_directory_iterator(base))
      out.push_back(e.path().lexically_relative(base).string());
    std::sort(out.begin(), out.end());
    return out;
  }

  // The attribute setters of the file model; a test that needs them skips where they are absent.
  bool setAttributes(const std::string& relative, const std::string& letters) {
    return integer("tsSetFileAttributes", {host::Value(at(relative)), host::Value(letters)}) == 1;
  }

  TempDir dir_;
  std::string root_;
  std::string startup_;
};

using Strings = std::vector<std::string>;

}  // namespace tessel::testing
