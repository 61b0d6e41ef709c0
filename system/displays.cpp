#include "system/displays.h"

#include <algorithm>
#include <limits>

#include "support/text.h"
#include "paths/paths.h"
#include "platform/displays.h"
#include "system/display_modes.h"

namespace tessel::system {

using support::equalsIgnoringCase;
using support::startsWithIgnoringCase;
using platform::DisplayMode;
using platform::Monitor;

uint32_t leadingNumber(std::string_view text) {
  uint64_t n = 0;
  for (char c : text) {
    if (c < '0' || c > '9') break;
    n = std::min<uint64_t>(n * 10 + static_cast<uint64_t>(c - '0'),
                           std::numeric_limits<uint32_t>::max());
  }
  return static_cast<uint32_t>(n);
}

const Monitor* mainDisplay(const std::vector<Monitor>& monitors) {
  for (const Monitor& m : monitors)
    if (m.primary) return &m;
  return monitors.empty() ? nullptr : &monitors.front();
}

const Monitor* findDisplay(const std::vector<Monitor>& monitors, uint32_t id) {
  if (id == 0) return nullptr;
  for (const Monitor& m : monitors)
    if (m.id == id) return &m;
  return nullptr;
}

uint32_t selectDisplay(std::string_view selector, const std::vector<Monitor>& monitors) {
  if (equalsIgnoringCase(selector, "primary")) {
    const Monitor* main = mainDisplay(monitors);
    if (main != nullptr && main->id != 0) return main->id;
  } else if (startsWithIgnoringCase(selector, "second") && monitors.size() > 1) {
    return monitors[1].id;
  }
  return leadingNumber(selector);
}

bool depthMatches(int32_t requested, int32_t bitsPerPixel) {
  return requested == bitsPerPixel || ((requested == 24 || requested == 32) && bitsPerPixel == 32);
}

ModeSearch searchModes(const std::vector<DisplayMode>& modes, int32_t width, int32_t height,
                       int32_t depth) {
  ModeSearch found;
  if (width < 1 || height < 1) return found;  // no screen is empty
  int32_t bestWidth = 32000, bestHeight = 32000;
  for (const DisplayMode& mode : modes) {
    bool holds = mode.width >= width && mode.height >= height;
    if (!holds) continue;
    if (found.candidates.size() < kMaxCandidates) found.candidates.push_back(mode);
    if (!depthMatches(depth, mode.bitsPerPixel)) continue;
    if (!found.exact && mode.width == width && mode.height == height) found.exact = mode;
    if (mode.width < bestWidth && mode.height < bestHeight) {
      found.fallback = mode;
      bestWidth = mode.width;
      bestHeight = mode.height;
    }
  }
  return found;
}

std::optional<DisplayMode> exactMode(const std::vector<DisplayMode>& modes, int32_t width,
                                     int32_t height, int32_t depth, int32_t refresh) {
  for (const DisplayMode& mode : modes)
    if (mode.width == width && mode.height == height && depthMatches(depth, mode.bitsPerPixel) &&
        (refresh == 0 || mode.refresh == refresh))
      return mode;
  return std::nullopt;
}

namespace {

std::vector<Monitor> activeDisplays() {
  std::vector<Monitor> monitors = platform::displayService().monitors();
  if (monitors.size() > kMaxDisplays) monitors.resize(kMaxDisplays);
  return monitors;
}

}  // namespace

int32_t setWallpaper(std::string_view file, int32_t) {
  // The display service takes a Linux path: an HFS or "/Volumes/…" path is resolved first.
  const std::string native = paths::nativePath(file);
  if (native.empty()) return -43;
  switch (platform::displayService().setWallpaper(native)) {
    case platform::WallpaperResult::Done: return 0;
    case platform::WallpaperResult::NoFile: return -43;
    case platform::WallpaperResult::Failed: break;
  }
  return -1;
}

int32_t setDisplay(int32_t width, int32_t height, int32_t depth, std::string_view mode, int32_t) {
  std::vector<Monitor> monitors = activeDisplays();
  const Monitor* main = mainDisplay(monitors);
  if (main == nullptr) return -1;
  bool test = equalsIgnoringCase(mode, "test");
  ModeSearch found = searchModes(main->modes, width, height, depth);
  std::optional<DisplayMode> chosen = found.exact ? found.exact : found.fallback;
  platform::DisplayService& service = platform::displayService();
  if (chosen) {
    if (test) return service.testMode(main->id, *chosen) ? 0 : -1;
    return service.switchMode(main->id, *chosen) ? 0 : -1;
  }
  if (test) return found.candidates.empty() ? -1 : 0;
  for (const DisplayMode& candidate : found.candidates)
    if (service.switchMode(main->id, candidate)) return 0;
  return -1;
}

std::vector<std::string> multiDisplayList() {
  std::vector<std::string> out;
  for (const Monitor& m : activeDisplays()) {
    out.push_back(std::to_string(static_cast<int32_t>(m.id)));
    out.push_back(std::to_string(m.modes.size()));
  }
  return out;
}

std::variant<std::string, std::vector<std::string>> multiDisplayInfo(std::string_view display,
                                                                     std::string_view info) {
  std::vector<Monitor> monitors = activeDisplays();
  auto number = [](int64_t n) { return std::to_string(static_cast<int32_t>(n)); };
  if (equalsIgnoringCase(info, "modes")) {
    std::vector<std::string> list;
    if (const Monitor* m = findDisplay(monitors, selectDisplay(display, monitors)))
      for (const DisplayMode& mode : m->modes)
        for (int32_t v : {mode.width, mode.height, mode.bitsPerPixel, mode.refresh})
          list.push_back(number(v));
    return list;
  }
  if (equalsIgnoringCase(info, "number")) return number(static_cast<int64_t>(monitors.size()));
  if (monitors.empty()) return std::string();
  if (equalsIgnoringCase(info, "primary")) return number(mainDisplay(monitors)->id);
  if (startsWithIgnoringCase(info, "second"))
    return monitors.size() > 1 ? number(monitors[1].id) : std::string();
  // The selected display's figures; a display that is not active reads as zeros.
  static const Monitor none{};
  const Monitor* found = findDisplay(monitors, selectDisplay(display, monitors));
  const Monitor& m = found != nullptr ? *found : none;
  if (equalsIgnoringCase(info, "width")) return number(m.width);
  if (equalsIgnoringCase(info, "height")) return number(m.height);
  if (equalsIgnoringCase(info, "depth")) return number(m.current.bitsPerPixel);
  if (equalsIgnoringCase(info, "xpos")) return number(m.x);
  if (equalsIgnoringCase(info, "ypos")) return number(m.y);
  if (equalsIgnoringCase(info, "refresh")) return number(m.current.refresh);
  return std::string();
}

int32_t setMultiDisplay(std::string_view monitor, int32_t width, int32_t height, int32_t depth,
                        int32_t refresh, std::string_view, int32_t) {
  std::vector<Monitor> monitors = activeDisplays();
  const Monitor* m = findDisplay(monitors, selectDisplay(monitor, monitors));
  if (m == nullptr) return -1;
  std::optional<DisplayMode> mode;
  if (refresh != 0) mode = exactMode(m->modes, width, height, depth, refresh);
  if (!mode) mode = exactMode(m->modes, width, height, depth, 0);
  if (!mode) return -1;
  return platform::displayService().switchMode(m->id, *mode) ? 0 : -1;
}

}  // namespace tessel::system
