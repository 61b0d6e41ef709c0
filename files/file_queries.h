// Questions about one file or folder: existence, size, dates, attributes, permissions, bundles.
#pragma once

#include <cstdint>
#include <string_view>

namespace tessel::files {

// 1 when the path names an existing file (not a folder), else 0.
int32_t fileExists(std::string_view path);
// 1 when the path names an existing folder, else 0.
int32_t folderExists(std::string_view path);

}  // namespace tessel::files
