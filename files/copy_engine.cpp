#include "files/copy_engine.h"

namespace tessel::files {

// Placeholder until the copy engine is built: code 1, the source could not be resolved.
int32_t copyOneFile(std::string_view, std::string_view, std::string_view, CopyObserver*) {
  return kNoSource;
}
// Placeholder until the copy engine is built: code 1, the source could not be resolved.
int32_t copyFolderFiles(std::string_view, std::string_view, std::string_view, std::string_view,
                        CopyObserver*) {
  return kNoSource;
}
// Placeholder until folder creation is built: the failure value.
int32_t createFolderPath(std::string_view) { return 0; }
// Placeholder until the copy engine is built: code 1, the source could not be resolved.
int32_t copyFile(std::string_view, std::string_view, std::string_view) { return 1; }
// Placeholder until the copy engine is built: code 1, the source could not be resolved.
int32_t copyXFiles(std::string_view, std::string_view, std::string_view, std::string_view) {
  return 1;
}
// Placeholder until the copy engine is built: code 1, the source could not be resolved.
int32_t xCopy(std::string_view, std::string_view, std::string_view, std::string_view, int32_t) {
  return 1;
}
// Placeholder until renaming is built: the failure value.
int32_t renameFile(std::string_view, std::string_view) { return 0; }
// Placeholder until folder creation is built: the failure value.
int32_t createFolder(std::string_view) { return 0; }
// Placeholder until deletion is built: the failure value.
int32_t deleteFolder(std::string_view) { return 0; }
// Placeholder until deletion is built: the failure value.
int32_t deleteFile(std::string_view) { return 0; }

}  // namespace tessel::files
