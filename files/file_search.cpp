#include "files/file_search.h"

namespace tessel::files {

// Placeholder until the disk search is built: nothing found.
std::string findFirstFile(std::string_view, std::string_view) { return ""; }
// Placeholder until the disk search is built: nothing found.
std::string findNextFile() { return ""; }
// Placeholder until the disk search is built: nothing to close.
void findClose() {}

}  // namespace tessel::files
