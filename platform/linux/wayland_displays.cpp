// The display service on a wlroots compositor: the outputs as wl_output and xdg-output describe
// them, mode switches through wlr-output-management, the desktop picture on a background layer
// (wayland_wallpaper.cpp) and the pointer through a virtual pointer (wayland_pointer.h).
//
// wlr-output-management reports sway's headless and virtual outputs as disabled with one 0x0 mode
// (and refuses to disable them), so the output list, sizes and positions come from wl_output and
// xdg-output, and every switch sends the whole layout: each output enabled, with its mode and
// position.
#include "platform/linux/wayland_displays.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "platform/linux/backend_choice.h"
#include "platform/linux/wayland_connection.h"
#include "platform/linux/wayland_pointer.h"
#include "wlr-output-management-unstable-v1-client-protocol.h"
#include "xdg-output-unstable-v1-client-protocol.h"

namespace tessel::platform {
namespace {

using wayland::WaylandConnection;
using Clock = std::chrono::steady_clock;

constexpr auto kDeadline = std::chrono::milliseconds(2000);
constexpr int32_t kBitsPerPixel = 32;  // every Wayland buffer format in use is 32-bit

// Sizes offered by an output that lists no modes of its own (headless and virtual outputs take
// any size as a custom mode).
constexpr std::pair<int32_t, int32_t> kCommonSizes[] = {
    {640, 480},  {800, 600},  {1024, 768},  {1280, 720},  {1280, 800},  {1280, 1024}, {1366, 768},
    {1440, 900}, {1600, 900}, {1680, 1050}, {1920, 1080}, {1920, 1200}, {2560, 1440}, {3840, 2160}};

struct Layout;

struct HeadMode {
  zwlr_output_mode_v1* mode = nullptr;
  int32_t width = 0, height = 0, refresh = 0;  // refresh in mHz
};

struct Head {
  Layout* layout = nullptr;
  zwlr_output_head_v1* head = nullptr;
  std::string name;
  std::vector<HeadMode*> modes;
};

struct Output {
  uint32_t global = 0;
  wl_output* output = nullptr;
  zxdg_output_v1* xdg = nullptr;
  std::string name;
  int32_t x = 0, y = 0;
  int32_t width = 0, height = 0, refresh = 0;  // the current mode, refresh in mHz
};

std::chrono::milliseconds left(Clock::time_point deadline) {
  return std::max(std::chrono::milliseconds(0),
                  std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
}

int32_t hz(int32_t mHz) { return static_cast<int32_t>(std::lround(mHz / 1000.0)); }

extern const zwlr_output_mode_v1_listener kModeListener;
extern const zwlr_output_head_v1_listener kHeadListener;

// Everything the compositor says about its outputs, on one connection.
struct Layout {
  std::unique_ptr<WaylandConnection> link;
  zxdg_output_manager_v1* xdgManager = nullptr;
  zwlr_output_manager_v1* manager = nullptr;
  std::vector<std::unique_ptr<Output>> outputs;
  std::vector<std::unique_ptr<Head>> heads;
  std::vector<std::unique_ptr<HeadMode>> modes;
  uint32_t serial = 0;
  bool headsDone = false;

  ~Layout() {
    for (auto& m : modes) zwlr_output_mode_v1_destroy(m->mode);
    for (auto& h : heads) zwlr_output_head_v1_destroy(h->head);
    for (auto& o : outputs) {
      if (o->xdg != nullptr) zxdg_output_v1_destroy(o->xdg);
      wl_output_destroy(o->output);
    }
    if (manager != nullptr) zwlr_output_manager_v1_destroy(manager);
    if (xdgManager != nullptr) zxdg_output_manager_v1_destroy(xdgManager);
  }

  Head* headOf(const Output& output) const {
    for (const auto& h : heads)
      if (h->name == output.name) return h.get();
    return nullptr;
  }
};

const wl_output_listener kOutputListener{
    [](void*, wl_output*, int32_t, int32_t, int32_t, int32_t, int32_t, const char*, const char*,
       int32_t) {},
    [](void* data, wl_output*, uint32_t flags, int32_t width, int32_t height, int32_t refresh) {
      if ((flags & WL_OUTPUT_MODE_CURRENT) == 0) return;
      auto* o = static_cast<Output*>(data);
      o->width = width;
      o->height = height;
      o->refresh = refresh;
    },
    [](void*, wl_output*) {},
    [](void*, wl_output*, int32_t) {},
    [](void* data, wl_output*, const char* name) { static_cast<Output*>(data)->name = name; },
    [](void*, wl_output*, const char*) {}};

const zxdg_output_v1_listener kXdgOutputListener{
    [](void* data, zxdg_output_v1*, int32_t x, int32_t y) {
      auto* o = static_cast<Output*>(data);
      o->x = x;
      o->y = y;
    },
    [](void*, zxdg_output_v1*, int32_t, int32_t) {}, [](void*, zxdg_output_v1*) {},
    [](void* data, zxdg_output_v1*, const char* name) {
      auto* o = static_cast<Output*>(data);
      if (o->name.empty()) o->name = name;
    },
    [](void*, zxdg_output_v1*, const char*) {}};

const zwlr_output_mode_v1_listener kModeListener{
    [](void* data, zwlr_output_mode_v1*, int32_t width, int32_t height) {
      auto* m = static_cast<HeadMode*>(data);
      m->width = width;
      m->height = height;
    },
    [](void* data, zwlr_output_mode_v1*, int32_t refresh) {
      static_cast<HeadMode*>(data)->refresh = refresh;
    },
    [](void*, zwlr_output_mode_v1*) {}, [](void*, zwlr_output_mode_v1*) {}};

const zwlr_output_head_v1_listener kHeadListener{
    [](void* data, zwlr_output_head_v1*, const char* name) {
      static_cast<Head*>(data)->name = name;
    },
    [](void*, zwlr_output_head_v1*, const char*) {},
    [](void*, zwlr_output_head_v1*, int32_t, int32_t) {},
    [](void* data, zwlr_output_head_v1*, zwlr_output_mode_v1* mode) {
      auto* head = static_cast<Head*>(data);
      auto m = std::make_unique<HeadMode>();
      m->mode = mode;
      zwlr_output_mode_v1_add_listener(mode, &kModeListener, m.get());
      head->modes.push_back(m.get());
      head->layout->modes.push_back(std::move(m));
    },
    [](void*, zwlr_output_head_v1*, int32_t) {},
    [](void*, zwlr_output_head_v1*, zwlr_output_mode_v1*) {},
    [](void*, zwlr_output_head_v1*, int32_t, int32_t) {},
    [](void*, zwlr_output_head_v1*, int32_t) {},
    [](void*, zwlr_output_head_v1*, wl_fixed_t) {},
    [](void*, zwlr_output_head_v1*) {},
    [](void*, zwlr_output_head_v1*, const char*) {},
    [](void*, zwlr_output_head_v1*, const char*) {},
    [](void*, zwlr_output_head_v1*, const char*) {}};

const zwlr_output_manager_v1_listener kManagerListener{
    [](void* data, zwlr_output_manager_v1*, zwlr_output_head_v1* handle) {
      auto* layout = static_cast<Layout*>(data);
      auto h = std::make_unique<Head>();
      h->layout = layout;
      h->head = handle;
      zwlr_output_head_v1_add_listener(handle, &kHeadListener, h.get());
      layout->heads.push_back(std::move(h));
    },
    [](void* data, zwlr_output_manager_v1*, uint32_t serial) {
      auto* layout = static_cast<Layout*>(data);
      layout->serial = serial;
      layout->headsDone = true;
    },
    [](void*, zwlr_output_manager_v1*) {}};

// Connects and reads the outputs, and the output manager's heads when it is offered; null without
// a compositor, or when it did not answer by `deadline`.
std::unique_ptr<Layout> readLayout(Clock::time_point deadline) {
  auto link = WaylandConnection::open(left(deadline));
  if (!link) return nullptr;
  auto layout = std::make_unique<Layout>();
  WaylandConnection& l = *link;
  layout->link = std::move(link);
  layout->xdgManager = l.bind<zxdg_output_manager_v1>(zxdg_output_manager_v1_interface, 1, 2);
  layout->manager = l.bind<zwlr_output_manager_v1>(zwlr_output_manager_v1_interface, 1, 2);
  if (layout->manager != nullptr)
    zwlr_output_manager_v1_add_listener(layout->manager, &kManagerListener, layout.get());
  std::vector<wayland::Global> outputs;
  for (const wayland::Global& g : l.globals())
    if (g.interface == wl_output_interface.name) outputs.push_back(g);
  std::sort(outputs.begin(), outputs.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  for (const wayland::Global& g : outputs) {
    auto o = std::make_unique<Output>();
    o->global = g.name;
    o->output = static_cast<wl_output*>(l.bindName(g.name, wl_output_interface, 4));
    wl_output_add_listener(o->output, &kOutputListener, o.get());
    if (layout->xdgManager != nullptr) {
      o->xdg = zxdg_output_manager_v1_get_xdg_output(layout->xdgManager, o->output);
      zxdg_output_v1_add_listener(o->xdg, &kXdgOutputListener, o.get());
    }
    layout->outputs.push_back(std::move(o));
  }
  if (!l.roundtrip(left(deadline)) || !l.roundtrip(left(deadline))) return nullptr;
  if (layout->manager != nullptr &&
      !l.dispatchUntil([&] { return layout->headsDone; }, left(deadline)))
    return nullptr;
  return layout;
}

std::vector<Monitor> monitorsOf(const Layout& layout) {
  std::vector<Monitor> out;
  for (const auto& o : layout.outputs) {
    if (o->width <= 0 || o->height <= 0) continue;  // not lit
    Monitor m;
    m.id = o->global;
    m.x = o->x;
    m.y = o->y;
    m.width = o->width;
    m.height = o->height;
    m.current = DisplayMode{0, o->width, o->height, kBitsPerPixel, hz(o->refresh)};
    const Head* head = layout.headOf(*o);
    if (head != nullptr) {
      for (size_t i = 0; i < head->modes.size(); ++i) {
        const HeadMode& hm = *head->modes[i];
        if (hm.width <= 0 || hm.height <= 0) continue;  // sway's headless outputs list 0x0
        m.modes.push_back(DisplayMode{i + 1, hm.width, hm.height, kBitsPerPixel, hz(hm.refresh)});
        if (hm.width == o->width && hm.height == o->height && hz(hm.refresh) == hz(o->refresh))
          m.current.id = i + 1;
      }
    }
    if (m.modes.empty()) {
      // Any size: the current one first, then the common sizes, as custom modes (id 0).
      m.modes.push_back(m.current);
      for (auto [w, h] : kCommonSizes)
        if (w != o->width || h != o->height)
          m.modes.push_back(DisplayMode{0, w, h, kBitsPerPixel, 60});
    }
    out.push_back(std::move(m));
  }
  // Wayland has no primary output: the first one the compositor announced is the main display.
  if (!out.empty()) out.front().primary = true;
  return out;
}

void setMode(zwlr_output_configuration_head_v1* config, const Head* head, int32_t width,
             int32_t height, int32_t refresh) {
  if (head != nullptr)
    for (const HeadMode* hm : head->modes)
      if (hm->width == width && hm->height == height && (refresh == 0 || hm->refresh == refresh)) {
        zwlr_output_configuration_head_v1_set_mode(config, hm->mode);
        return;
      }
  zwlr_output_configuration_head_v1_set_custom_mode(config, width, height, refresh);
}

enum class Outcome { Pending, Succeeded, Failed, Cancelled };

const zwlr_output_configuration_v1_listener kConfigurationListener{
    [](void* data, zwlr_output_configuration_v1*) {
      *static_cast<Outcome*>(data) = Outcome::Succeeded;
    },
    [](void* data, zwlr_output_configuration_v1*) {
      *static_cast<Outcome*>(data) = Outcome::Failed;
    },
    [](void* data, zwlr_output_configuration_v1*) {
      *static_cast<Outcome*>(data) = Outcome::Cancelled;
    }};

// Sends the whole layout with `mode` on output `id`, applied or only tested.
Outcome configure(Layout& layout, uint32_t id, const DisplayMode& mode, bool testOnly,
                  Clock::time_point deadline) {
  auto it = std::find_if(layout.outputs.begin(), layout.outputs.end(),
                         [id](const auto& o) { return o->global == id; });
  if (it == layout.outputs.end() || layout.manager == nullptr) return Outcome::Failed;
  zwlr_output_configuration_v1* config =
      zwlr_output_manager_v1_create_configuration(layout.manager, layout.serial);
  Outcome outcome = Outcome::Pending;
  zwlr_output_configuration_v1_add_listener(config, &kConfigurationListener, &outcome);
  std::vector<zwlr_output_configuration_head_v1*> heads;
  for (const auto& o : layout.outputs) {
    const Head* head = layout.headOf(*o);
    if (head == nullptr || o->width <= 0) continue;
    zwlr_output_configuration_head_v1* h =
        zwlr_output_configuration_v1_enable_head(config, head->head);
    heads.push_back(h);
    if (o->global == id) {
      int32_t refresh = 0;
      if (mode.id > 0 && mode.id <= head->modes.size()) refresh = head->modes[mode.id - 1]->refresh;
      setMode(h, head, mode.width, mode.height, refresh);
    } else {
      setMode(h, head, o->width, o->height, o->refresh);
    }
    zwlr_output_configuration_head_v1_set_position(h, o->x, o->y);
  }
  if (testOnly)
    zwlr_output_configuration_v1_test(config);
  else
    zwlr_output_configuration_v1_apply(config);
  layout.link->dispatchUntil([&] { return outcome != Outcome::Pending; }, left(deadline));
  for (auto* h : heads) zwlr_output_configuration_head_v1_destroy(h);
  zwlr_output_configuration_v1_destroy(config);
  return outcome;
}

class WaylandDisplayService : public DisplayService {
 public:
  std::vector<Monitor> monitors() override {
    auto layout = readLayout(Clock::now() + kDeadline);
    return layout ? monitorsOf(*layout) : std::vector<Monitor>();
  }

  bool switchMode(uint32_t id, const DisplayMode& mode) override { return change(id, mode, false); }
  bool testMode(uint32_t id, const DisplayMode& mode) override { return change(id, mode, true); }

  WallpaperResult setWallpaper(const std::string& file) override {
    return wayland::setBackground(file);
  }

  // The module's virtual pointer, put at (x, y) of the output layout.
  bool warpPointer(int32_t x, int32_t y) override {
    auto connection = WaylandConnection::open(kDeadline);
    if (!connection) return false;
    auto pointer = wayland::VirtualPointer::create(*connection);
    return pointer && pointer->moveTo(x, y);
  }

 private:
  static bool change(uint32_t id, const DisplayMode& mode, bool testOnly) {
    // A configuration made against an older serial is cancelled: read again and retry once.
    const auto deadline = Clock::now() + kDeadline;
    for (int attempt = 0; attempt < 2; ++attempt) {
      auto layout = readLayout(deadline);
      if (!layout) return false;
      Outcome outcome = configure(*layout, id, mode, testOnly, deadline);
      if (outcome != Outcome::Cancelled) return outcome == Outcome::Succeeded;
    }
    return false;
  }
};

}  // namespace

std::unique_ptr<DisplayService> backends::makeWaylandDisplayService() {
  return std::make_unique<WaylandDisplayService>();
}

}  // namespace tessel::platform
