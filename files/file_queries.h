// Questions about one file or folder: existence, size, version, attributes, type and creator,
// permissions, bundles.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::files {

// 1 when the path names an existing file (not a folder), else 0.
int32_t fileExists(std::string_view path);
// 1 when the path names an existing folder, else 0.
int32_t folderExists(std::string_view path);
int32_t isBundle(std::string_view path);
std::string fileVersion(std::string_view path);
int32_t fileSize(std::string_view path);
double fileSizeEx(std::string_view path);
std::string fileAttributes(std::string_view path);
int32_t setFileAttributes(std::string_view path, std::string_view attributes);
// Four-character codes; 0 when the file has none or can't be read.
bool fileCreator(std::string_view path, uint32_t& code);
bool fileType(std::string_view path, uint32_t& code);
int32_t setFileInfo(std::string_view path, uint32_t type, uint32_t creator);
std::string filePermissions(std::string_view path, std::string_view user);
int32_t setFilePermissions(std::string_view path, std::string_view user,
                           std::string_view permissions);
std::string bundleApp(std::string_view bundle);

}  // namespace tessel::files
