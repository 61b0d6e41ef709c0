// Displays and the desktop picture.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tessel::system {

int32_t setWallpaper(std::string_view file, int32_t tile);
int32_t setDisplay(int32_t width, int32_t height, int32_t depth, std::string_view mode,
                   int32_t force);
std::vector<std::string> multiDisplayList();
// A text, or a list for the "modes" request.
std::variant<std::string, std::vector<std::string>> multiDisplayInfo(std::string_view display,
                                                                     std::string_view info);
int32_t setMultiDisplay(std::string_view monitor, int32_t width, int32_t height, int32_t depth,
                        int32_t refresh, std::string_view mode, int32_t flags);

}  // namespace tessel::system
