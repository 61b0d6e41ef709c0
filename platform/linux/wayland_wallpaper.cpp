// The desktop picture on a wlroots compositor: a wlr-layer-shell surface on the background layer
// of every output, showing the picture scaled to cover the output, centred, the overflow cut off
// (as on X11).
//
// A Wayland surface lasts as long as its client, so the surfaces belong to a small process started
// for the purpose (detached_server.h: forked twice, in its own session, with its own connection and
// no inherited descriptors) that outlives the host, as the root pixmap does on X11. Its process ID
// is kept in the runtime folder, and the next picture ends it once its own surfaces are up.
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/detached_server.h"
#include "platform/linux/picture_file.h"
#include "platform/linux/wayland_connection.h"
#include "platform/linux/wayland_displays.h"
// The generated header names a parameter "namespace", a C++ keyword (everything it includes is
// included before).
#include <wayland-client.h>
#define namespace layer_namespace
#include "wlr-layer-shell-unstable-v1-client-protocol.h"
#undef namespace

namespace tessel::platform::wayland {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kDeadline = std::chrono::milliseconds(3000);
// The name the picture's process runs under (what `ps` shows), also checked before it is ended.
constexpr char kProcessName[] = "tessel-picture";

// Where the picture process's ID is kept: one per compositor.
std::string pidFile() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  const char* display = std::getenv("WAYLAND_DISPLAY");
  if (runtime == nullptr || *runtime == '\0' || display == nullptr) return "";
  std::string name(display);
  name = name.substr(name.rfind('/') + 1);
  return std::string(runtime) + "/tessel-picture-" + name + ".pid";
}

// Ends the picture process recorded for this compositor, if it is still that process.
void endPrevious(pid_t previous) {
  if (previous <= 0) return;
  std::ifstream comm("/proc/" + std::to_string(previous) + "/comm");
  std::string name;
  std::getline(comm, name);
  if (name == kProcessName) kill(previous, SIGTERM);
}

pid_t recordedProcess(const std::string& file) {
  long pid = 0;
  if (!file.empty()) std::ifstream(file) >> pid;
  return static_cast<pid_t>(pid);
}

// ---- the picture process ----

struct Background {
  GdkPixbuf* picture = nullptr;
  wl_compositor* compositor = nullptr;
  wl_shm* shm = nullptr;
  int pending = 0;  // surfaces not yet showing the picture
  bool failed = false;
};

struct Surface {
  Background* background = nullptr;
  wl_output* output = nullptr;
  wl_surface* surface = nullptr;
  zwlr_layer_surface_v1* layer = nullptr;
  wl_buffer* buffer = nullptr;
  bool shown = false;
};

// A shared-memory buffer holding the picture scaled to cover width × height, centred.
wl_buffer* drawBuffer(Background& bg, int width, int height) {
  if (width <= 0 || height <= 0 || width > 16384 || height > 16384) return nullptr;
  GdkPixbuf* canvas = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
  if (canvas == nullptr) return nullptr;
  gdk_pixbuf_fill(canvas, 0x000000ff);
  double pw = gdk_pixbuf_get_width(bg.picture), ph = gdk_pixbuf_get_height(bg.picture);
  double scale = std::max(width / pw, height / ph);
  gdk_pixbuf_scale(bg.picture, canvas, 0, 0, width, height, (width - pw * scale) / 2,
                   (height - ph * scale) / 2, scale, scale, GDK_INTERP_BILINEAR);
  size_t stride = static_cast<size_t>(width) * 4, size = stride * static_cast<size_t>(height);
  wl_buffer* buffer = nullptr;
  int fd = memfd_create(kProcessName, MFD_CLOEXEC);
  if (fd >= 0 && ftruncate(fd, static_cast<off_t>(size)) == 0) {
    void* map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (map != MAP_FAILED) {
      // XRGB8888 is little-endian: blue, green, red, unused.
      const guchar* pixels = gdk_pixbuf_read_pixels(canvas);
      int rowstride = gdk_pixbuf_get_rowstride(canvas), n = gdk_pixbuf_get_n_channels(canvas);
      auto* out = static_cast<uint8_t*>(map);
      for (int y = 0; y < height; ++y) {
        const guchar* row = pixels + static_cast<ptrdiff_t>(y) * rowstride;
        uint8_t* dst = out + static_cast<size_t>(y) * stride;
        for (int x = 0; x < width; ++x, dst += 4) {
          const guchar* p = row + static_cast<ptrdiff_t>(x) * n;
          dst[0] = p[2];
          dst[1] = p[1];
          dst[2] = p[0];
          dst[3] = 0xff;
        }
      }
      munmap(map, size);
      wl_shm_pool* pool = wl_shm_create_pool(bg.shm, fd, static_cast<int32_t>(size));
      buffer = wl_shm_pool_create_buffer(pool, 0, width, height, static_cast<int32_t>(stride),
                                         WL_SHM_FORMAT_XRGB8888);
      wl_shm_pool_destroy(pool);
    }
  }
  if (fd >= 0) close(fd);
  g_object_unref(canvas);
  return buffer;
}

const zwlr_layer_surface_v1_listener kLayerListener{
    [](void* data, zwlr_layer_surface_v1* layer, uint32_t serial, uint32_t width, uint32_t height) {
      auto* s = static_cast<Surface*>(data);
      zwlr_layer_surface_v1_ack_configure(layer, serial);
      if (s->buffer != nullptr) wl_buffer_destroy(s->buffer);
      s->buffer = drawBuffer(*s->background, static_cast<int>(width), static_cast<int>(height));
      if (s->buffer == nullptr) {
        s->background->failed = true;
        return;
      }
      wl_surface_attach(s->surface, s->buffer, 0, 0);
      wl_surface_damage(s->surface, 0, 0, INT32_MAX, INT32_MAX);
      wl_surface_commit(s->surface);
      if (!s->shown) {
        s->shown = true;
        --s->background->pending;
      }
    },
    [](void* data, zwlr_layer_surface_v1*) {
      // The output went away: its surface goes too.
      auto* s = static_cast<Surface*>(data);
      if (!s->shown) --s->background->pending;
      s->shown = true;
    }};

// False when the host is no longer listening (it gave up waiting).
bool report(bool shown) {
  std::string answer = shown ? "1 " + std::to_string(getpid()) : "0";
  bool heard = write(3, answer.data(), answer.size()) == static_cast<ssize_t>(answer.size());
  close(3);
  return heard;
}

// In the picture process: shows the picture on every output, reports "1 PID" once it is shown
// (else "0"), and keeps the surfaces up.
void runPicture(GdkPixbuf* picture) {
  prctl(PR_SET_NAME, kProcessName, 0, 0, 0);
  // One deadline for every wait until the report, which the host awaits a little longer.
  const auto deadline = Clock::now() + kDeadline;
  auto left = [&] {
    return std::max(std::chrono::milliseconds(0),
                    std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
  };
  auto link = WaylandConnection::open(left());
  Background bg;
  bg.picture = picture;
  zwlr_layer_shell_v1* shell = nullptr;
  if (link) {
    bg.compositor = link->bind<wl_compositor>(wl_compositor_interface, 1, 4);
    bg.shm = link->bind<wl_shm>(wl_shm_interface, 1, 1);
    shell = link->bind<zwlr_layer_shell_v1>(zwlr_layer_shell_v1_interface, 1, 1);
  }
  if (bg.compositor == nullptr || bg.shm == nullptr || shell == nullptr) {
    report(false);
    return;
  }
  std::vector<std::unique_ptr<Surface>> surfaces;
  // A background surface on `output` (a wl_output global), shown once the compositor sizes it.
  auto cover = [&](const wayland::Global& output) {
    auto s = std::make_unique<Surface>();
    s->background = &bg;
    s->output = static_cast<wl_output*>(link->bindName(output.name, wl_output_interface, 1));
    s->surface = wl_compositor_create_surface(bg.compositor);
    s->layer = zwlr_layer_shell_v1_get_layer_surface(
        shell, s->surface, s->output, ZWLR_LAYER_SHELL_V1_LAYER_BACKGROUND, "wallpaper");
    zwlr_layer_surface_v1_add_listener(s->layer, &kLayerListener, s.get());
    zwlr_layer_surface_v1_set_anchor(
        s->layer, ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP | ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM |
                      ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT | ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT);
    zwlr_layer_surface_v1_set_exclusive_zone(s->layer, -1);
    zwlr_layer_surface_v1_set_size(s->layer, 0, 0);
    wl_surface_commit(s->surface);
    ++bg.pending;
    surfaces.push_back(std::move(s));
  };
  for (const wayland::Global& g : link->globals())
    if (g.interface == wl_output_interface.name) cover(g);
  // Outputs plugged in later get the picture too.
  link->onGlobalAdded([&](const wayland::Global& g) {
    if (g.interface == wl_output_interface.name) cover(g);
  });
  bool shown = !surfaces.empty() &&
               link->dispatchUntil([&] { return bg.pending == 0 || bg.failed; }, left()) &&
               !bg.failed && link->roundtrip(left());
  // A picture the host did not hear of would never be replaced: it goes at once.
  if (!report(shown) || !shown) return;
  // Serves the surfaces (new sizes after a mode switch) until the compositor goes or the next
  // picture ends this process.
  while (wl_display_dispatch(link->display()) >= 0) {
  }
}

}  // namespace

WallpaperResult setBackground(const std::string& file) {
  WallpaperResult failure;
  GdkPixbuf* picture = loadPicture(file, failure);
  if (picture == nullptr) return failure;

  std::string record = pidFile();
  std::string answer = startDetachedServer([picture] { runPicture(picture); },
                                           kDeadline + std::chrono::milliseconds(500));
  g_object_unref(picture);
  if (answer.size() < 3 || answer[0] != '1') return WallpaperResult::Failed;
  // The new picture is up: the previous one's process ends, and this one is recorded.
  endPrevious(recordedProcess(record));
  if (!record.empty()) std::ofstream(record, std::ios::trunc) << answer.substr(2) << '\n';
  return WallpaperResult::Done;
}

}  // namespace tessel::platform::wayland
