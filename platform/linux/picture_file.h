// The picture file a desktop picture is made of, on X11 and on Wayland alike.
#pragma once

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <string>

#include "platform/displays.h"

namespace tessel::platform {

// The picture turned upright as its EXIF orientation says (a reference the caller drops with
// g_object_unref), or null with `failure` set: NoFile when nothing has that name, Failed when it is
// no regular file or no picture GdkPixbuf reads.
GdkPixbuf* loadPicture(const std::string& file, WallpaperResult& failure);

}  // namespace tessel::platform
