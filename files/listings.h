// Folder listings, the file-spec methods that act on a folder's files, and the folder walks the
// copy engine, the progress copies and the disk search share.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::files {

// ---- Shared walks ------------------------------------------------------------------------------------

// How many files directly in the folder match; 0 when the folder cannot be listed.
int32_t countMatchingFiles(std::string_view folder, std::string_view fileSpec);
// The total size (data and resource forks) of the matching files directly in the folder, or in
// the whole tree (bundles and dot-folders included) when `subFolders` is true.
uint64_t matchingFilesSize(std::string_view folder, std::string_view fileSpec, bool subFolders);
// The folder and all its subfolders, breadth-first, root first, each path with its trailing
// separator in the folder's own style; empty when the folder cannot be listed.
std::vector<std::string> buildFolderTree(std::string_view folder, bool includeBundles);

// ---- Lingo methods -------------------------------------------------------------------------------------

// Names as components of a path in the current style: a Linux ":" shows as "/" unless Unix
// names are on (Linux names hold no "/", so "/" turned back into ":" gives the Linux name).
std::vector<std::string> fileList(std::string_view folder, std::string_view type);
std::vector<std::string> folderList(std::string_view folder);
int32_t deleteXFiles(std::string_view folder, std::string_view fileSpec);
int32_t xDelete(std::string_view folder, std::string_view fileSpec);
int32_t folderSize(std::string_view folder, std::string_view fileType, int32_t subFolders);

}  // namespace tessel::files
