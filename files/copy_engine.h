// Copying, renaming, creating and deleting files and folders, with the overwrite modes and the
// copy result codes (0 copied ... 8 nothing matched).
#pragma once

#include <cstdint>
#include <string_view>

namespace tessel::files {

int32_t copyFile(std::string_view source, std::string_view dest, std::string_view overwrite);
int32_t copyXFiles(std::string_view sourceFolder, std::string_view destFolder,
                   std::string_view fileSpec, std::string_view overwrite);
int32_t xCopy(std::string_view sourceFolder, std::string_view destFolder,
              std::string_view fileSpec, std::string_view overwrite, int32_t makeDirs);
int32_t renameFile(std::string_view file, std::string_view newName);
int32_t createFolder(std::string_view folder);
int32_t deleteFolder(std::string_view folder);
int32_t deleteFile(std::string_view file);

}  // namespace tessel::files
