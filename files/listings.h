// Folder listings and the file-spec methods that act on a folder's files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::files {

std::vector<std::string> fileList(std::string_view folder, std::string_view type);
std::vector<std::string> folderList(std::string_view folder);
int32_t deleteXFiles(std::string_view folder, std::string_view fileSpec);
int32_t xDelete(std::string_view folder, std::string_view fileSpec);
int32_t folderSize(std::string_view folder, std::string_view fileType, int32_t subFolders);

}  // namespace tessel::files
