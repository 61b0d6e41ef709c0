// The desktop picture of the display service's Wayland backend (wayland_displays.cpp; its factory
// is backends::makeWaylandDisplayService).
#pragma once

#include <memory>
#include <string>

#include "platform/displays.h"

namespace tessel::platform {

namespace wayland {
// The picture (a Linux path) as a background layer on every output, served by a detached
// process that outlives the host and is replaced by the next picture.
WallpaperResult setBackground(const std::string& file);
}  // namespace wayland

}  // namespace tessel::platform
