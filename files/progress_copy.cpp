#include "files/progress_copy.h"

namespace tessel::files {

// Placeholder until progress copying is built: code 1, the source could not be resolved.
int32_t copyFileProgress(std::string_view, std::string_view, std::string_view, std::string_view,
                         std::string_view, int32_t) {
  return 1;
}
// Placeholder until progress copying is built: code 1, the source could not be resolved.
int32_t copyXFilesProgress(std::string_view, std::string_view, std::string_view,
                           std::string_view, std::string_view, std::string_view, int32_t) {
  return 1;
}
// Placeholder until progress copying is built: code 1, the source folder is not listable.
int32_t xCopyProgress(std::string_view, std::string_view, std::string_view, std::string_view,
                      int32_t, std::string_view, std::string_view, int32_t) {
  return 1;
}

}  // namespace tessel::files
