#include "platform/linux/picture_file.h"

#include <sys/stat.h>

namespace tessel::platform {

GdkPixbuf* loadPicture(const std::string& file, WallpaperResult& failure) {
  struct stat st {};
  failure = WallpaperResult::NoFile;
  if (file.empty() || stat(file.c_str(), &st) != 0) return nullptr;
  failure = WallpaperResult::Failed;
  if (!S_ISREG(st.st_mode)) return nullptr;
  GdkPixbuf* loaded = gdk_pixbuf_new_from_file(file.c_str(), nullptr);
  if (loaded == nullptr) return nullptr;
  GdkPixbuf* picture = gdk_pixbuf_apply_embedded_orientation(loaded);
  g_object_unref(loaded);
  return picture;
}

}  // namespace tessel::platform
