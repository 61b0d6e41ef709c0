// Choosing a display from a Lingo selector and a mode from a size and depth request.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/displays.h"

namespace tessel::system {

// At most this many active displays are considered.
inline constexpr size_t kMaxDisplays = 32;
// At most this many candidate modes are kept for a size that is not offered exactly.
inline constexpr size_t kMaxCandidates = 48;

// The leading decimal digits of a text as a number (0 without digits).
uint32_t leadingNumber(std::string_view text);

// The display identifier a selector names: "primary" (whole word, any case) is the main
// display, a text beginning with "second" the second active display when there is more than one;
// otherwise, and when the main display has no identifier, the selector's leading number.
uint32_t selectDisplay(std::string_view selector, const std::vector<platform::Monitor>& monitors);

// The main display: the one flagged primary, else the first; null when there are none.
const platform::Monitor* mainDisplay(const std::vector<platform::Monitor>& monitors);
const platform::Monitor* findDisplay(const std::vector<platform::Monitor>& monitors, uint32_t id);

// Whether a requested depth is served by a mode's bits per pixel (24 and 32 both mean the
// 32-bit pixels of a true-colour screen).
bool depthMatches(int32_t requested, int32_t bitsPerPixel);

struct ModeSearch {
  std::optional<platform::DisplayMode> exact;     // first mode of that size and depth
  std::optional<platform::DisplayMode> fallback;  // smallest mode of that depth holding the size
  std::vector<platform::DisplayMode> candidates;  // modes of any depth holding the size, in order
};

// A size below 1x1 finds nothing.
ModeSearch searchModes(const std::vector<platform::DisplayMode>& modes, int32_t width,
                       int32_t height, int32_t depth);

// The first mode matching size, depth and (when `refresh` is not 0) refresh rate exactly.
std::optional<platform::DisplayMode> exactMode(const std::vector<platform::DisplayMode>& modes,
                                               int32_t width, int32_t height, int32_t depth,
                                               int32_t refresh);

}  // namespace tessel::system
