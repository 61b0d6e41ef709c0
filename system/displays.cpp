#include "system/displays.h"

namespace tessel::system {

// Placeholder until the desktop picture is built: a failed request.
int32_t setWallpaper(std::string_view, int32_t) { return -1; }
// Placeholder until display modes are built: the failure value.
int32_t setDisplay(int32_t, int32_t, int32_t, std::string_view, int32_t) { return -1; }
// Placeholder until display listing is built: no displays.
std::vector<std::string> multiDisplayList() { return {}; }
// Placeholder until display information is built: the failure value.
std::variant<std::string, std::vector<std::string>> multiDisplayInfo(std::string_view,
                                                                     std::string_view) {
  return std::string();
}
// Placeholder until display modes are built: the failure value.
int32_t setMultiDisplay(std::string_view, int32_t, int32_t, int32_t, int32_t, std::string_view,
                        int32_t) {
  return -1;
}

}  // namespace tessel::system
