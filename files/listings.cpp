#include "files/listings.h"

namespace tessel::files {

// Placeholder until file specs are built: nothing matches.
bool matchFileSpec(std::string_view, std::string_view, std::string_view) { return false; }
// Placeholder until listings are built: no file.
int32_t countMatchingFiles(std::string_view, std::string_view) { return 0; }
// Placeholder until folder sizes are built: nothing.
uint64_t matchingFilesSize(std::string_view, std::string_view, bool) { return 0; }
// Placeholder until folder trees are built: the folder cannot be listed.
std::vector<std::string> buildFolderTree(std::string_view, bool) { return {}; }
// Placeholder until listings are built: the empty list.
std::vector<std::string> fileList(std::string_view, std::string_view) { return {}; }
// Placeholder until listings are built: the empty list.
std::vector<std::string> folderList(std::string_view) { return {}; }
// Placeholder until deletion by file spec is built: the failure value.
int32_t deleteXFiles(std::string_view, std::string_view) { return 0; }
// Placeholder until deletion by file spec is built: the failure value.
int32_t xDelete(std::string_view, std::string_view) { return 0; }
// Placeholder until folder sizes are built: the failure value.
int32_t folderSize(std::string_view, std::string_view, int32_t) { return 0; }

}  // namespace tessel::files
