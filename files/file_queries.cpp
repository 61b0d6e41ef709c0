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
