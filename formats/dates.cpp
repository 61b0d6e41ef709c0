#include "formats/dates.h"

#include <sys/stat.h>

#include <ctime>
#include <string>

#include "paths/paths.h"

namespace tessel::formats {
namespace {

// Seconds from 1 January 1904 to 1 January 1970.
constexpr int64_t kEpochOffset1904 = 2082844800;

// A Unix time as local seconds since 1 January 1904: the local clock reading, as the 1904-based
// file stamps count.
int64_t localStamp1904(time_t t) {
  struct tm local {};
  localtime_r(&t, &local);
  return static_cast<int64_t>(t) + local.tm_gmtoff + kEpochOffset1904;
}

}  // namespace

// Placeholder until date formatting is built: the empty text.
std::string systemTime(std::string_view) { return ""; }
// Placeholder until date formatting is built: the failure value.
std::string fileDate(std::string_view, std::string_view, std::string_view) { return ""; }
// Placeholder until date formatting is built: the failure value.
std::string fileDateEx(std::string_view, std::string_view, std::string_view, std::string_view) {
  return "";
}

int32_t fileAge(std::string_view file) {
  std::string native = paths::nativePath(file);
  struct stat st {};
  if (native.empty() || ::stat(native.c_str(), &st) != 0) return 0;
  auto stamp = static_cast<uint32_t>(localStamp1904(st.st_mtime));
  return static_cast<int32_t>(stamp - 2000000000u);
}

}  // namespace tessel::formats
