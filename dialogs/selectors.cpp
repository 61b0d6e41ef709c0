#include "dialogs/selectors.h"

namespace tessel::dialogs {

// Placeholder until the file selector is built: as if cancelled.
std::vector<std::string> getFilename(const GetFilenameOptions&, bool& several) {
  several = false;
  return {};
}
// Placeholder until the folder selector is built: as if cancelled.
std::string getFolder(std::string_view, std::string_view, int32_t, std::string_view, int32_t,
                      int32_t) {
  return "";
}
// Placeholder until the disk selector is built: as if cancelled.
std::string getDisk(std::string_view, std::string_view, int32_t, int32_t, int32_t) { return ""; }
// Placeholder until the file list dialog is built: as if cancelled.
std::string getFiles(const GetFilesOptions&) { return ""; }

}  // namespace tessel::dialogs
