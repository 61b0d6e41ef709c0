// The screens of the X display: the active monitors with their modes, mode switches, the desktop
// picture and the pointer.
//
// The service reports what the X server knows and applies one change at a time; choosing a
// display from a selector and a mode from a request is done above it (system/displays.h), so a
// fake only has to describe monitors.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tessel::platform {

struct DisplayMode {
  uint64_t id = 0;  // the server's name for the mode (a RandR mode XID)
  int32_t width = 0;
  int32_t height = 0;
  int32_t bitsPerPixel = 0;
  int32_t refresh = 0;  // Hz, rounded; 0 when the mode has no timings
};

struct Monitor {
  uint32_t id = 0;  // non-zero and stable while the output exists (its first output's XID)
  bool primary = false;
  int32_t x = 0, y = 0, width = 0, height = 0;  // bounds in root-window coordinates
  DisplayMode current;
  std::vector<DisplayMode> modes;  // the output's modes in the server's order
};

// The desktop picture request's outcome.
enum class WallpaperResult { Done, NoFile, Failed };

class DisplayService {
 public:
  virtual ~DisplayService() = default;

  // The active monitors, read afresh; empty without a display.
  virtual std::vector<Monitor> monitors() = 0;

  // Switches monitor `id` to `mode` (one of its own) and fits the screen to the monitors'
  // bounding box; true when the server accepted it.
  virtual bool switchMode(uint32_t id, const DisplayMode& mode) = 0;
  // Whether switchMode would be accepted, without switching; where the system cannot ask, any
  // mode of the monitor's own is.
  virtual bool testMode(uint32_t, const DisplayMode&) { return true; }

  // Makes the picture file the desktop background of every monitor.
  virtual WallpaperResult setWallpaper(const std::string& file) = 0;

  // Moves the pointer to (x, y) in root-window coordinates without generating a mouse event.
  virtual bool warpPointer(int32_t x, int32_t y) = 0;
};

DisplayService& displayService();
std::unique_ptr<DisplayService> setDisplayService(std::unique_ptr<DisplayService> service);
std::unique_ptr<DisplayService> makeLinuxDisplayService();

}  // namespace tessel::platform
