#include "platform/linux/wayland_windows.h"

#include <dirent.h>
#include <wayland-client.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <optional>
#include <set>

#include "platform/linux/linux_processes.h"
#include "platform/linux/wayland_sway_ipc.h"
#include "wlr-foreign-toplevel-management-unstable-v1-client-protocol.h"

namespace tessel::platform::wayland {

struct Toplevels::Handle {
  Lists* lists = nullptr;
  zwlr_foreign_toplevel_handle_v1* proxy = nullptr;
  WindowId id = 0;
  std::string title;
  std::string appId;
  bool activated = false;
  bool described = false;   // its first "done" has come: title and app_id are known
  uint64_t lastActive = 0;  // when it was last reported activated (0: never)
};

struct Toplevels::Lists {
  zwlr_foreign_toplevel_manager_v1* manager = nullptr;
  wl_seat* seat = nullptr;
  std::vector<std::unique_ptr<Handle>> handles;  // in the order they appeared
  WindowId nextId = 1;
  uint64_t activations = 0;
  bool changed = false;

  Handle* find(WindowId id) const {
    for (const auto& h : handles)
      if (h->id == id) return h.get();
    return nullptr;
  }
};

namespace {

using Handle = Toplevels::Handle;

void onTitle(void* data, zwlr_foreign_toplevel_handle_v1*, const char* title) {
  static_cast<Handle*>(data)->title = title;
}
void onAppId(void* data, zwlr_foreign_toplevel_handle_v1*, const char* appId) {
  static_cast<Handle*>(data)->appId = appId;
}
void onOutputEnter(void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {}
void onOutputLeave(void*, zwlr_foreign_toplevel_handle_v1*, wl_output*) {}
void onState(void* data, zwlr_foreign_toplevel_handle_v1*, wl_array* states) {
  auto* handle = static_cast<Handle*>(data);
  bool activated = false;
  const auto* values = static_cast<const uint32_t*>(states->data);
  for (size_t i = 0; i < states->size / sizeof(uint32_t); ++i)
    if (values[i] == ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED) activated = true;
  handle->activated = activated;
}
void onParent(void*, zwlr_foreign_toplevel_handle_v1*, zwlr_foreign_toplevel_handle_v1*) {}

void onDone(void* data, zwlr_foreign_toplevel_handle_v1*) {
  auto* handle = static_cast<Handle*>(data);
  handle->described = true;
  if (handle->activated) handle->lastActive = ++handle->lists->activations;
  handle->lists->changed = true;
}

void onClosed(void* data, zwlr_foreign_toplevel_handle_v1* proxy) {
  auto* handle = static_cast<Handle*>(data);
  Toplevels::Lists* lists = handle->lists;
  zwlr_foreign_toplevel_handle_v1_destroy(proxy);
  lists->changed = true;
  std::erase_if(lists->handles, [&](const auto& h) { return h.get() == handle; });
}

const zwlr_foreign_toplevel_handle_v1_listener kHandleListener = {
    .title = onTitle,
    .app_id = onAppId,
    .output_enter = onOutputEnter,
    .output_leave = onOutputLeave,
    .state = onState,
    .done = onDone,
    .closed = onClosed,
    .parent = onParent,
};

void onToplevel(void* data, zwlr_foreign_toplevel_manager_v1*, zwlr_foreign_toplevel_handle_v1* proxy) {
  auto* lists = static_cast<Toplevels::Lists*>(data);
  auto handle = std::make_unique<Handle>();
  handle->lists = lists;
  handle->proxy = proxy;
  handle->id = lists->nextId++;
  zwlr_foreign_toplevel_handle_v1_add_listener(proxy, &kHandleListener, handle.get());
  lists->handles.push_back(std::move(handle));
}

void onFinished(void* data, zwlr_foreign_toplevel_manager_v1* manager) {
  auto* lists = static_cast<Toplevels::Lists*>(data);
  zwlr_foreign_toplevel_manager_v1_destroy(manager);
  lists->manager = nullptr;
}

const zwlr_foreign_toplevel_manager_v1_listener kManagerListener = {.toplevel = onToplevel,
                                                                    .finished = onFinished};

std::string lowered(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// The compositor socket a process's environment names ("" when it names none), or nullopt when
// the environment cannot be read (another user's process).
std::optional<std::string> compositorOf(const std::string& pid) {
  std::ifstream in("/proc/" + pid + "/environ", std::ios::binary);
  if (!in) return std::nullopt;
  std::string display, runtime;
  for (std::string entry; std::getline(in, entry, '\0');) {
    if (entry.rfind("WAYLAND_DISPLAY=", 0) == 0) display = entry.substr(16);
    if (entry.rfind("XDG_RUNTIME_DIR=", 0) == 0) runtime = entry.substr(16);
  }
  if (display.empty() || display[0] == '/') return display;
  return runtime.empty() ? std::string() : runtime + "/" + display;
}

// The one process whose name is `appId` ("org.example.Viewer" also as "viewer") and that is a
// client of this compositor as far as its environment tells; 0 when there is none or more than
// one. The kernel keeps 15 characters of a name.
int32_t processForAppId(const std::string& appId, const std::string& compositor) {
  if (appId.empty()) return 0;
  std::set<std::string> names{lowered(appId).substr(0, 15)};
  if (size_t dot = appId.rfind('.'); dot != std::string::npos && dot + 1 < appId.size())
    names.insert(lowered(appId.substr(dot + 1)).substr(0, 15));
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return 0;
  int32_t found = 0;
  int matches = 0;
  while (dirent* entry = readdir(proc)) {
    const char* name = entry->d_name;
    if (!std::isdigit(static_cast<unsigned char>(name[0]))) continue;
    std::ifstream comm(std::string("/proc/") + name + "/comm");
    std::string command;
    if (!std::getline(comm, command) || names.count(lowered(command)) == 0) continue;
    const auto pid = static_cast<int32_t>(std::strtol(name, nullptr, 10));
    if (!processes::alive(pid)) continue;  // a zombie keeps its name but no environment
    if (const auto other = compositorOf(name); other && *other != compositor) continue;
    found = pid;
    if (++matches > 1) break;
  }
  closedir(proc);
  return matches == 1 ? found : 0;
}

}  // namespace

std::vector<int32_t> matchViews(const std::vector<ManagedWindow>& windows, std::vector<SwayView> views) {
  // sway's container ids grow as views are mapped, the order the compositor announces toplevels.
  std::stable_sort(views.begin(), views.end(), [](const SwayView& a, const SwayView& b) { return a.id < b.id; });
  std::vector<int32_t> pids(windows.size(), 0);
  std::vector<bool> used(views.size(), false);
  for (size_t w = 0; w < windows.size(); ++w) {
    for (size_t v = 0; v < views.size(); ++v) {
      if (used[v] || views[v].appId != windows[w].wmClass || views[v].title != windows[w].title) continue;
      used[v] = true;
      pids[w] = views[v].pid;
      break;
    }
  }
  // A title that changed between the two reports: the app_id alone, when one view is left for it.
  for (size_t w = 0; w < windows.size(); ++w) {
    if (pids[w] != 0) continue;
    size_t candidate = views.size();
    int count = 0;
    for (size_t v = 0; v < views.size(); ++v)
      if (!used[v] && views[v].appId == windows[w].wmClass) {
        candidate = v;
        ++count;
      }
    if (count == 1) {
      used[candidate] = true;
      pids[w] = views[candidate].pid;
    }
  }
  return pids;
}

Toplevels::Toplevels(WaylandConnection& connection) : connection_(connection) {}

std::unique_ptr<Toplevels> Toplevels::create(WaylandConnection& connection) {
  auto* manager = connection.bind<zwlr_foreign_toplevel_manager_v1>(
      zwlr_foreign_toplevel_manager_v1_interface, 1, 3);
  if (manager == nullptr) return nullptr;
  std::unique_ptr<Toplevels> toplevels(new Toplevels(connection));
  toplevels->lists_ = std::make_unique<Lists>();
  toplevels->lists_->manager = manager;
  toplevels->lists_->seat = connection.bind<wl_seat>(wl_seat_interface, 1, 1);
  zwlr_foreign_toplevel_manager_v1_add_listener(manager, &kManagerListener, toplevels->lists_.get());
  return toplevels;
}

Toplevels::~Toplevels() {
  for (const auto& h : lists_->handles) zwlr_foreign_toplevel_handle_v1_destroy(h->proxy);
  if (lists_->manager != nullptr) zwlr_foreign_toplevel_manager_v1_stop(lists_->manager);
  if (lists_->manager != nullptr) zwlr_foreign_toplevel_manager_v1_destroy(lists_->manager);
  if (lists_->seat != nullptr) wl_seat_destroy(lists_->seat);
}

std::vector<ManagedWindow> Toplevels::windows() const {
  std::vector<ManagedWindow> out;
  out.reserve(lists_->handles.size());
  for (const auto& h : lists_->handles) {
    if (!h->described) continue;
    ManagedWindow window;
    window.id = h->id;
    window.wmClass = h->appId;
    window.title = h->title;
    window.acceptsDelete = true;  // a close request reaches every toplevel
    out.push_back(std::move(window));
  }
  if (std::optional<std::vector<SwayView>> views = swayViews()) {
    const std::vector<int32_t> pids = matchViews(out, std::move(*views));
    for (size_t i = 0; i < out.size(); ++i) out[i].pid = pids[i];
  } else {
    const std::string compositor = socketPath();
    std::map<std::string, int32_t> byAppId;
    for (ManagedWindow& window : out) {
      auto [it, added] = byAppId.emplace(window.wmClass, 0);
      if (added) it->second = processForAppId(window.wmClass, compositor);
      window.pid = it->second;
    }
  }
  return out;
}

std::vector<WindowId> Toplevels::stackingOrder() const {
  std::vector<const Handle*> order;
  for (const auto& h : lists_->handles)
    if (h->described) order.push_back(h.get());
  std::stable_sort(order.begin(), order.end(),
                   [](const Handle* a, const Handle* b) { return a->lastActive < b->lastActive; });
  std::vector<WindowId> ids;
  ids.reserve(order.size());
  for (const Handle* h : order) ids.push_back(h->id);
  return ids;
}

WindowId Toplevels::active() const {
  for (const auto& h : lists_->handles)
    if (h->described && h->activated) return h->id;
  return 0;
}

bool Toplevels::activate(WindowId window) {
  Handle* handle = lists_->find(window);
  if (handle == nullptr || lists_->seat == nullptr) return false;
  zwlr_foreign_toplevel_handle_v1_activate(handle->proxy, lists_->seat);
  return connection_.flush(std::chrono::seconds(1));
}

bool Toplevels::close(WindowId window) {
  Handle* handle = lists_->find(window);
  if (handle == nullptr) return false;
  zwlr_foreign_toplevel_handle_v1_close(handle->proxy);
  return connection_.flush(std::chrono::seconds(1));
}

bool Toplevels::setFullscreen(WindowId window, bool fullscreen) {
  Handle* handle = lists_->find(window);
  if (handle == nullptr ||
      zwlr_foreign_toplevel_handle_v1_get_version(handle->proxy) <
          ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_SET_FULLSCREEN_SINCE_VERSION)
    return false;
  if (fullscreen) zwlr_foreign_toplevel_handle_v1_set_fullscreen(handle->proxy, nullptr);
  else zwlr_foreign_toplevel_handle_v1_unset_fullscreen(handle->proxy);
  return connection_.flush(std::chrono::seconds(1));
}

bool Toplevels::takeChanged() {
  const bool changed = lists_->changed;
  lists_->changed = false;
  return changed;
}

}  // namespace tessel::platform::wayland
