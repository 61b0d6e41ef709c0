#include "files/file_queries.h"

#include <sys/stat.h>

#include <string>

#include "paths/paths.h"

namespace tessel::files {
namespace {

// stat() of what the path names, through the file layer's resolution of both path styles.
bool statPath(std::string_view path, struct stat& st) {
  std::string native = paths::nativePath(path);
  return !native.empty() && ::stat(native.c_str(), &st) == 0;
}

}  // namespace

int32_t fileExists(std::string_view path) {
  struct stat st {};
  return statPath(path, st) && !S_ISDIR(st.st_mode) ? 1 : 0;
}

int32_t folderExists(std::string_view path) {
  struct stat st {};
  return statPath(path, st) && S_ISDIR(st.st_mode) ? 1 : 0;
}

}  // namespace tessel::files

namespace tessel::files {

// Placeholder until bundles are built: the failure value.
int32_t isBundle(std::string_view) { return 0; }
// Placeholder until version resources are built: the failure value.
std::string fileVersion(std::string_view) { return ""; }
// Placeholder until file sizes are built: the failure value.
int32_t fileSize(std::string_view) { return -1; }
// Placeholder until file sizes are built: the failure value.
double fileSizeEx(std::string_view) { return -1.0; }
// Placeholder until attributes are built: the failure value.
std::string fileAttributes(std::string_view) { return ""; }
// Placeholder until attributes are built: the failure value.
int32_t setFileAttributes(std::string_view, std::string_view) { return 0; }
// Placeholder until type and creator are built: the failure value.
bool fileCreator(std::string_view, uint32_t&) { return false; }
// Placeholder until type and creator are built: the failure value.
bool fileType(std::string_view, uint32_t&) { return false; }
// Placeholder until type and creator are built: the failure value.
int32_t setFileInfo(std::string_view, uint32_t, uint32_t) { return 0; }
// Placeholder until permissions are built: the failure value.
std::string filePermissions(std::string_view, std::string_view) { return ""; }
// Placeholder until permissions are built: the failure value.
int32_t setFilePermissions(std::string_view, std::string_view, std::string_view) { return 0; }
// Placeholder until bundles are built: the failure value.
std::string bundleApp(std::string_view) { return ""; }

}  // namespace tessel::files
