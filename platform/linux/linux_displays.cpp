// The display service on XRandR 1.5 monitors, the desktop picture through GdkPixbuf and the
// root window's background pixmap, and the pointer through XWarpPointer.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gio/gio.h>
#include <sys/stat.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string_view>

#include "platform/displays.h"
#include "platform/linux/backend_choice.h"
#include "platform/linux/picture_file.h"
#include "platform/linux/deadline.h"
#include "platform/linux/x11_connection.h"

namespace tessel::platform {
namespace {

using x11::X11Connection;
using x11::X11ErrorTrap;

// The bits per pixel of the root window's depth as the server stores pixmaps (32 for depths 24
// and 32).
int32_t rootBitsPerPixel(Display* d) {
  int depth = DefaultDepth(d, DefaultScreen(d));
  int count = 0;
  int32_t bits = depth;
  if (XPixmapFormatValues* formats = XListPixmapFormats(d, &count)) {
    for (int i = 0; i < count; ++i)
      if (formats[i].depth == depth) bits = formats[i].bits_per_pixel;
    XFree(formats);
  }
  return bits;
}

int32_t refreshOf(const XRRModeInfo& mode) {
  if (mode.hTotal == 0 || mode.vTotal == 0) return 0;
  double rate = static_cast<double>(mode.dotClock) /
                (static_cast<double>(mode.hTotal) * static_cast<double>(mode.vTotal));
  return static_cast<int32_t>(std::lround(rate));
}

const XRRModeInfo* findMode(const XRRScreenResources* res, RRMode id) {
  for (int i = 0; i < res->nmode; ++i)
    if (res->modes[i].id == id) return &res->modes[i];
  return nullptr;
}

DisplayMode describe(const XRRModeInfo& info, int32_t bits) {
  return DisplayMode{info.id, static_cast<int32_t>(info.width), static_cast<int32_t>(info.height),
                     bits, refreshOf(info)};
}

bool hasMonitors(Display* d) {
  int event = 0, error = 0, major = 0, minor = 0;
  if (!XRRQueryExtension(d, &event, &error) || !XRRQueryVersion(d, &major, &minor)) return false;
  return major > 1 || (major == 1 && minor >= 5);
}

std::vector<Monitor> readMonitors(Display* d) {
  std::vector<Monitor> out;
  Window root = DefaultRootWindow(d);
  int32_t bits = rootBitsPerPixel(d);
  if (!hasMonitors(d)) {
    // A server without RandR 1.5: the one screen, without modes to switch to.
    Monitor m;
    m.id = static_cast<uint32_t>(root);
    m.primary = true;
    m.width = DisplayWidth(d, DefaultScreen(d));
    m.height = DisplayHeight(d, DefaultScreen(d));
    m.current = DisplayMode{0, m.width, m.height, bits, 0};
    out.push_back(m);
    return out;
  }
  X11ErrorTrap trap(d);
  XRRScreenResources* res = XRRGetScreenResourcesCurrent(d, root);
  int count = 0;
  XRRMonitorInfo* monitors = XRRGetMonitors(d, root, True, &count);
  if (res == nullptr || monitors == nullptr) {
    if (res) XRRFreeScreenResources(res);
    if (monitors) XRRFreeMonitors(monitors);
    return out;
  }
  for (int i = 0; i < count; ++i) {
    const XRRMonitorInfo& info = monitors[i];
    if (info.noutput < 1 || info.outputs[0] == None) continue;
    Monitor m;
    m.id = static_cast<uint32_t>(info.outputs[0]);
    m.primary = info.primary != 0;
    m.x = info.x;
    m.y = info.y;
    m.width = info.width;
    m.height = info.height;
    m.current = DisplayMode{0, m.width, m.height, bits, 0};
    if (XRROutputInfo* output = XRRGetOutputInfo(d, res, info.outputs[0])) {
      for (int k = 0; k < output->nmode; ++k)
        if (const XRRModeInfo* mode = findMode(res, output->modes[k]))
          m.modes.push_back(describe(*mode, bits));
      if (output->crtc != None) {
        if (XRRCrtcInfo* crtc = XRRGetCrtcInfo(d, res, output->crtc)) {
          if (const XRRModeInfo* mode = findMode(res, crtc->mode)) {
            m.current = describe(*mode, bits);
            m.current.width = m.width;
            m.current.height = m.height;
          }
          XRRFreeCrtcInfo(crtc);
        }
      }
      XRRFreeOutputInfo(output);
    }
    out.push_back(std::move(m));
  }
  XRRFreeMonitors(monitors);
  XRRFreeScreenResources(res);
  if (!out.empty() && std::none_of(out.begin(), out.end(), [](auto& m) { return m.primary; }))
    out.front().primary = true;
  return out;
}

bool rotated(Rotation r) { return (r & (RR_Rotate_90 | RR_Rotate_270)) != 0; }

bool switchCrtc(Display* d, RROutput outputId, RRMode modeId) {
  Window root = DefaultRootWindow(d);
  X11ErrorTrap trap(d);
  XRRScreenResources* res = XRRGetScreenResourcesCurrent(d, root);
  if (res == nullptr) return false;
  bool ok = false;
  XRROutputInfo* output = XRRGetOutputInfo(d, res, outputId);
  const XRRModeInfo* mode = findMode(res, modeId);
  if (output != nullptr && output->crtc != None && mode != nullptr) {
    // The screen after the switch: the bounding box of every lit CRTC, this one in its new mode.
    int newWidth = 0, newHeight = 0;
    XRRCrtcInfo* target = nullptr;
    for (int i = 0; i < res->ncrtc; ++i) {
      XRRCrtcInfo* crtc = XRRGetCrtcInfo(d, res, res->crtcs[i]);
      if (crtc == nullptr) continue;
      int w = static_cast<int>(crtc->width), h = static_cast<int>(crtc->height);
      if (res->crtcs[i] == output->crtc) {
        w = static_cast<int>(rotated(crtc->rotation) ? mode->height : mode->width);
        h = static_cast<int>(rotated(crtc->rotation) ? mode->width : mode->height);
      }
      if (crtc->mode != None || res->crtcs[i] == output->crtc) {
        newWidth = std::max(newWidth, crtc->x + w);
        newHeight = std::max(newHeight, crtc->y + h);
      }
      if (res->crtcs[i] == output->crtc) target = crtc;
      else XRRFreeCrtcInfo(crtc);
    }
    int minW = 0, minH = 0, maxW = 0, maxH = 0;
    XRRGetScreenSizeRange(d, root, &minW, &minH, &maxW, &maxH);
    if (target != nullptr && newWidth >= minW && newHeight >= minH && newWidth <= maxW &&
        newHeight <= maxH) {
      int screen = DefaultScreen(d);
      int oldWidth = DisplayWidth(d, screen), oldHeight = DisplayHeight(d, screen);
      // Keep the physical size per pixel, as a resize should not change the screen's DPI.
      auto mm = [&](int pixels, int oldPixels, int oldMm) {
        return oldPixels > 0 && oldMm > 0 ? std::max(1, pixels * oldMm / oldPixels) : pixels / 4;
      };
      int oldMmW = DisplayWidthMM(d, screen), oldMmH = DisplayHeightMM(d, screen);
      XGrabServer(d);
      int bigW = std::max(newWidth, oldWidth), bigH = std::max(newHeight, oldHeight);
      if (bigW != oldWidth || bigH != oldHeight)
        XRRSetScreenSize(d, root, bigW, bigH, mm(bigW, oldWidth, oldMmW),
                         mm(bigH, oldHeight, oldMmH));
      Status status = XRRSetCrtcConfig(d, res, output->crtc, CurrentTime, target->x, target->y,
                                       modeId, target->rotation, target->outputs, target->noutput);
      ok = status == RRSetConfigSuccess;
      int finalW = ok ? newWidth : oldWidth, finalH = ok ? newHeight : oldHeight;
      if (finalW != bigW || finalH != bigH)
        XRRSetScreenSize(d, root, finalW, finalH, mm(finalW, oldWidth, oldMmW),
                         mm(finalH, oldHeight, oldMmH));
      XUngrabServer(d);
    }
    if (target != nullptr) XRRFreeCrtcInfo(target);
  }
  if (output != nullptr) XRRFreeOutputInfo(output);
  XRRFreeScreenResources(res);
  return trap.sync() == 0 && ok;
}

// ---- the desktop picture ----

struct Rect {
  int x, y, w, h;
};

// Each monitor's picture: scaled to cover it, centred, the overflow cut off.
GdkPixbuf* composeBackground(GdkPixbuf* picture, int width, int height,
                             const std::vector<Rect>& areas) {
  GdkPixbuf* canvas = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
  if (canvas == nullptr) return nullptr;
  gdk_pixbuf_fill(canvas, 0x000000ff);
  double pw = gdk_pixbuf_get_width(picture), ph = gdk_pixbuf_get_height(picture);
  for (const Rect& r : areas) {
    int x0 = std::max(0, r.x), y0 = std::max(0, r.y);
    int x1 = std::min(width, r.x + r.w), y1 = std::min(height, r.y + r.h);
    if (x1 <= x0 || y1 <= y0) continue;
    double scale = std::max(r.w / pw, r.h / ph);
    double offX = r.x + (r.w - pw * scale) / 2, offY = r.y + (r.h - ph * scale) / 2;
    gdk_pixbuf_scale(picture, canvas, x0, y0, x1 - x0, y1 - y0, offX, offY, scale, scale,
                     GDK_INTERP_BILINEAR);
  }
  return canvas;
}

// The pixbuf as an image of the root window's visual; null for visuals that are not TrueColor.
XImage* toImage(Display* d, GdkPixbuf* canvas) {
  int screen = DefaultScreen(d);
  Visual* visual = DefaultVisual(d, screen);
  if (visual->c_class != TrueColor && visual->c_class != DirectColor) return nullptr;
  int width = gdk_pixbuf_get_width(canvas), height = gdk_pixbuf_get_height(canvas);
  XImage* image = XCreateImage(d, visual, static_cast<unsigned>(DefaultDepth(d, screen)), ZPixmap,
                               0, nullptr, static_cast<unsigned>(width),
                               static_cast<unsigned>(height), 32, 0);
  if (image == nullptr) return nullptr;
  image->data = static_cast<char*>(std::malloc(static_cast<size_t>(image->bytes_per_line) *
                                               static_cast<size_t>(height)));
  if (image->data == nullptr) {
    XDestroyImage(image);
    return nullptr;
  }
  struct Channel {
    int shift, bits;
  };
  auto channel = [](unsigned long mask) {
    return Channel{std::countr_zero(mask), std::popcount(mask)};
  };
  Channel red = channel(visual->red_mask), green = channel(visual->green_mask),
          blue = channel(visual->blue_mask);
  auto put = [](unsigned value, Channel c) -> unsigned long {
    unsigned long v = c.bits >= 8 ? (static_cast<unsigned long>(value) << (c.bits - 8))
                                  : (value >> (8 - c.bits));
    return v << c.shift;
  };
  const guchar* pixels = gdk_pixbuf_read_pixels(canvas);
  int stride = gdk_pixbuf_get_rowstride(canvas), n = gdk_pixbuf_get_n_channels(canvas);
  bool direct = image->bits_per_pixel == 32 && image->byte_order ==
                    (std::endian::native == std::endian::little ? LSBFirst : MSBFirst);
  for (int y = 0; y < height; ++y) {
    const guchar* row = pixels + static_cast<ptrdiff_t>(y) * stride;
    auto* out = reinterpret_cast<uint32_t*>(image->data + static_cast<ptrdiff_t>(y) *
                                                              image->bytes_per_line);
    for (int x = 0; x < width; ++x) {
      const guchar* p = row + static_cast<ptrdiff_t>(x) * n;
      unsigned long pixel = put(p[0], red) | put(p[1], green) | put(p[2], blue);
      if (direct) out[x] = static_cast<uint32_t>(pixel);
      else XPutPixel(image, x, y, pixel);
    }
  }
  return image;
}

// GNOME-family desktops draw their own background from GSettings.
bool gnomeFamilyDesktop() {
  const char* desktops = std::getenv("XDG_CURRENT_DESKTOP");
  if (desktops == nullptr) return false;
  std::string_view rest(desktops);
  while (!rest.empty()) {
    size_t colon = rest.find(':');
    std::string_view name = rest.substr(0, colon);
    for (std::string_view family : {"GNOME", "GNOME-Classic", "GNOME-Flashback", "Unity", "Budgie"})
      if (name == family) return true;
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
  }
  return false;
}

constexpr auto kSettingsDeadline = std::chrono::seconds(3);

DeadlineGate& settingsGate() {
  static DeadlineGate gate;
  return gate;
}

void setGnomeBackground(const std::string& file) {
  GSettingsSchemaSource* source = g_settings_schema_source_get_default();
  if (source == nullptr) return;
  GSettingsSchema* schema =
      g_settings_schema_source_lookup(source, "org.gnome.desktop.background", TRUE);
  if (schema == nullptr) return;
  gchar* uri = g_filename_to_uri(file.c_str(), nullptr, nullptr);
  if (uri != nullptr) {
    GSettings* settings = g_settings_new_full(schema, nullptr, nullptr);
    for (const char* key : {"picture-uri", "picture-uri-dark"})
      if (g_settings_schema_has_key(schema, key)) g_settings_set_string(settings, key, uri);
    g_settings_sync();
    g_object_unref(settings);
    g_free(uri);
  }
  g_settings_schema_unref(schema);
}

Pixmap readPixmapProperty(Display* d, Window root, Atom name) {
  Atom type = None;
  int format = 0;
  unsigned long items = 0, after = 0;
  unsigned char* data = nullptr;
  Pixmap out = None;
  if (XGetWindowProperty(d, root, name, 0, 1, False, XA_PIXMAP, &type, &format, &items, &after,
                         &data) == Success &&
      type == XA_PIXMAP && format == 32 && items == 1 && data != nullptr)
    out = static_cast<Pixmap>(*reinterpret_cast<unsigned long*>(data));
  if (data != nullptr) XFree(data);
  return out;
}

WallpaperResult setRootBackground(GdkPixbuf* picture) {
  auto conn = X11Connection::open();
  if (!conn) return WallpaperResult::Failed;
  Display* d = conn->display();
  int screen = DefaultScreen(d);
  Window root = RootWindow(d, screen);
  int width = DisplayWidth(d, screen), height = DisplayHeight(d, screen);
  std::vector<Rect> areas;
  for (const Monitor& m : readMonitors(d)) areas.push_back({m.x, m.y, m.width, m.height});
  if (areas.empty()) areas.push_back({0, 0, width, height});

  GdkPixbuf* canvas = composeBackground(picture, width, height, areas);
  if (canvas == nullptr) return WallpaperResult::Failed;
  XImage* image = toImage(d, canvas);
  g_object_unref(canvas);
  if (image == nullptr) return WallpaperResult::Failed;

  // The pixmap lives on a connection of its own that is closed with RetainPermanent, so it
  // outlasts the host; the next picture frees it with XKillClient.
  auto keeper = X11Connection::open();
  if (!keeper) {
    XDestroyImage(image);
    return WallpaperResult::Failed;
  }
  Display* kd = keeper->display();
  Pixmap pixmap = None;
  {
    X11ErrorTrap trap(kd);
    XSetCloseDownMode(kd, RetainPermanent);
    pixmap = XCreatePixmap(kd, root, static_cast<unsigned>(width), static_cast<unsigned>(height),
                           static_cast<unsigned>(DefaultDepth(kd, screen)));
    GC gc = XCreateGC(kd, pixmap, 0, nullptr);
    XPutImage(kd, pixmap, gc, image, 0, 0, 0, 0, static_cast<unsigned>(width),
              static_cast<unsigned>(height));
    XFreeGC(kd, gc);
    if (trap.sync() != 0) {
      XDestroyImage(image);
      XKillClient(kd, AllTemporary);
      return WallpaperResult::Failed;
    }
  }
  XDestroyImage(image);
  keeper.reset();

  Atom rootPmap = XInternAtom(d, "_XROOTPMAP_ID", False);
  Atom esetroot = XInternAtom(d, "ESETROOT_PMAP_ID", False);
  X11ErrorTrap trap(d);
  Pixmap previous = readPixmapProperty(d, root, rootPmap);
  if (previous != None && previous == readPixmapProperty(d, root, esetroot) && previous != pixmap)
    XKillClient(d, previous);
  for (Atom name : {rootPmap, esetroot})
    XChangeProperty(d, root, name, XA_PIXMAP, 32, PropModeReplace,
                    reinterpret_cast<unsigned char*>(&pixmap), 1);
  XSetWindowBackgroundPixmap(d, root, pixmap);
  XClearWindow(d, root);
  return trap.sync() == 0 ? WallpaperResult::Done : WallpaperResult::Failed;
}

class LinuxDisplayService : public DisplayService {
 public:
  std::vector<Monitor> monitors() override {
    auto conn = X11Connection::open();
    if (!conn) return {};
    return readMonitors(conn->display());
  }

  bool switchMode(uint32_t id, const DisplayMode& mode) override {
    auto conn = X11Connection::open();
    if (!conn || !hasMonitors(conn->display())) return false;
    return switchCrtc(conn->display(), id, static_cast<RRMode>(mode.id));
  }

  WallpaperResult setWallpaper(const std::string& file) override {
    WallpaperResult failure;
    GdkPixbuf* picture = loadPicture(file, failure);
    if (picture == nullptr) return failure;
    WallpaperResult result = setRootBackground(picture);
    g_object_unref(picture);
    if (result == WallpaperResult::Done && gnomeFamilyDesktop()) {
      // GSettings writes through the session bus (dconf) and waits for it with no time-out;
      // a desktop whose settings could not be written within the deadline shows no change.
      std::function<bool()> write = [file] {
        setGnomeBackground(file);
        return true;
      };
      if (!settingsGate().run(std::move(write), kSettingsDeadline)) result = WallpaperResult::Failed;
    }
    return result;
  }

  bool warpPointer(int32_t x, int32_t y) override {
    auto conn = X11Connection::open();
    if (!conn) return false;
    Display* d = conn->display();
    X11ErrorTrap trap(d);
    XWarpPointer(d, None, DefaultRootWindow(d), 0, 0, 0, 0, x, y);
    return trap.sync() == 0;
  }
};

}  // namespace

std::unique_ptr<DisplayService> backends::makeX11DisplayService() {
  return std::make_unique<LinuxDisplayService>();
}

}  // namespace tessel::platform
