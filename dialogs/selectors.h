// File, folder and disk selectors.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::dialogs {

// The file selector's Filter: ".a,.b" is a list of extensions (at most 10, each at most 63
// bytes, compared ignoring ASCII case); a longer text without the dot is a run of four-character
// file types (at most 12); anything else shows every file.
struct FileFilter {
  std::vector<std::string> extensions;
  std::vector<uint32_t> types;
  bool restricts() const { return !extensions.empty() || !types.empty(); }
  bool matches(const std::string& linuxPath) const;
};
FileFilter parseFileFilter(std::string_view filter);

struct GetFilenameOptions {
  std::string operation, startDir, filename, filter;
  int32_t flags = 0;
  std::string instruction;
  int32_t noFolders = 0, x = 0, y = 0;
};
// One path, or several when the dialog lets the user choose more than one; empty on cancel.
std::vector<std::string> getFilename(const GetFilenameOptions& options, bool& several);
// Paths (UTF-8), "" on cancel.
std::string getFolder(std::string_view startDir, std::string_view instruction, int32_t flags,
                      std::string_view title, int32_t x, int32_t y);
std::string getDisk(std::string_view disk, std::string_view instruction, int32_t flags, int32_t x,
                    int32_t y);

struct GetFilesOptions {
  std::string folder, fileSpec, selectedFile, title, instruction;
  int32_t flags = 0, x = 0, y = 0;
};
std::string getFiles(const GetFilesOptions& options);

}  // namespace tessel::dialogs
