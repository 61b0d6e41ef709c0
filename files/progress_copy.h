// Copies with a progress dialog that the user can cancel (result 9) and that reports to the
// movie's tsCopyProgressUpdate handler.
#pragma once

#include <cstdint>
#include <string_view>

namespace tessel::files {

int32_t copyFileProgress(std::string_view source, std::string_view dest,
                         std::string_view overwrite, std::string_view title,
                         std::string_view buttonText, int32_t flags);
int32_t copyXFilesProgress(std::string_view sourceFolder, std::string_view destFolder,
                           std::string_view fileSpec, std::string_view overwrite,
                           std::string_view title, std::string_view buttonText, int32_t flags);
int32_t xCopyProgress(std::string_view sourceFolder, std::string_view destFolder,
                      std::string_view fileSpec, std::string_view overwrite, int32_t makeDirs,
                      std::string_view title, std::string_view buttonText, int32_t flags);

}  // namespace tessel::files
