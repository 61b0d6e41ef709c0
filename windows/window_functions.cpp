#include "windows/window_functions.h"

#include <algorithm>
#include <unordered_map>

#include "support/four_char_code.h"
#include "support/text.h"
#include "paths/paths.h"
#include "platform/desktop.h"
#include "platform/files.h"
#include "windows/applications.h"
#include "windows/wait_loop.h"

namespace tessel::windows {
namespace {

using platform::desktopService;
using support::asciiLowered;

std::string baseName(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A process's name: the class of its first window, else that window's title, else the name of
// its executable.
std::string applicationName(int32_t pid, const std::vector<platform::ManagedWindow>& windows) {
  if (!windows.empty())
    return windows.front().wmClass.empty() ? windows.front().title : windows.front().wmClass;
  std::string exe = desktopService().executablePath(pid);
  return exe.empty() ? desktopService().commandName(pid) : baseName(exe);
}

// Windows of this machine's processes, grouped by process in order of first appearance.
std::vector<std::pair<int32_t, std::vector<platform::ManagedWindow>>> windowsByProcess() {
  std::vector<std::pair<int32_t, std::vector<platform::ManagedWindow>>> groups;
  std::unordered_map<int32_t, size_t> index;
  for (platform::ManagedWindow& window : desktopService().clientWindows()) {
    if (window.pid <= 0) continue;  // a remote client, or one whose process is unknown
    auto [it, added] = index.emplace(window.pid, groups.size());
    if (added) groups.push_back({window.pid, {}});
    groups[it->second].second.push_back(std::move(window));
  }
  return groups;
}

// A window's owner as a matching rule sees it: whole name, ignoring case.
bool nameEquals(const Application& app, std::string_view name) {
  return support::equalsIgnoringCase(app.name, name);
}

WaitState stateFor(std::string_view word) {
  if (support::equalsIgnoringCase(word, "inactive")) return WaitState::Inactive;
  if (support::equalsIgnoringCase(word, "closed")) return WaitState::Closed;
  return WaitState::Active;
}

}  // namespace

uint32_t nameSignature(const std::string& name) {
  std::string four = name.substr(0, std::min<size_t>(4, name.size()));
  four.resize(4, ' ');
  return support::readFourCharCode(four);
}

uint32_t signature(const Application& app) {
  std::string exe = desktopService().executablePath(app.pid);
  if (!exe.empty()) {
    if (auto info = platform::fileService().finderInfo(exe); info && info->creator() != 0)
      return info->creator();
  }
  return nameSignature(app.name);
}

std::vector<Application> applications() {
  std::vector<Application> apps;
  auto& desktop = desktopService();
  if (!desktop.displayAvailable()) return apps;
  const int32_t self = desktop.ownPid();
  auto groups = windowsByProcess();
  std::vector<platform::ManagedWindow> ownWindows;
  for (auto& [pid, windows] : groups)
    if (pid == self) ownWindows = windows;
  apps.push_back({self, applicationName(self, ownWindows), std::move(ownWindows)});
  for (auto& [pid, windows] : groups) {
    if (pid == self || !desktop.processAlive(pid)) continue;
    std::string name = applicationName(pid, windows);
    apps.push_back({pid, std::move(name), std::move(windows)});
  }
  return apps;
}

std::optional<Application> application(int32_t pid) {
  auto& desktop = desktopService();
  if (pid <= 0 || !desktop.displayAvailable() || !desktop.processAlive(pid)) return std::nullopt;
  std::vector<platform::ManagedWindow> windows;
  for (auto& [owner, list] : windowsByProcess())
    if (owner == pid) windows = std::move(list);
  std::string name = applicationName(pid, windows);
  return Application{pid, std::move(name), std::move(windows)};
}

int32_t frontmostProcess() {
  auto& desktop = desktopService();
  if (!desktop.displayAvailable()) return -1;
  platform::WindowId active = desktop.activeWindow();
  if (active == 0) return 0;
  // The manager may leave the property naming a window it no longer manages.
  for (const platform::ManagedWindow& window : desktop.clientWindows())
    if (window.id == active) return std::max(window.pid, 0);
  return 0;
}

int32_t findWindow(std::string_view creator, std::string_view title) {
  if (creator.empty() && title.empty()) return 0;
  const bool byCreator = !creator.empty();
  const uint32_t code = byCreator ? support::readFourCharCode(creator) : 0;
  for (const Application& app : applications()) {
    if (!title.empty() && !nameEquals(app, title)) continue;
    if (byCreator && signature(app) != code) continue;
    return app.pid;
  }
  return 0;
}

std::vector<int32_t> windowList(std::string_view windowClass, std::string_view caption,
                                int32_t matchCaption) {
  const std::string wanted = asciiLowered(caption.substr(0, std::min<size_t>(caption.size(), 255)));
  const bool byClass = !windowClass.empty();
  const uint32_t code = byClass ? support::readFourCharCode(windowClass) : 0;
  std::vector<int32_t> handles;
  for (const Application& app : applications()) {
    const bool captionMatches = matchCaption != 0 ? nameEquals(app, wanted)
                                                  : asciiLowered(app.name).find(wanted) != std::string::npos;
    if (!captionMatches) continue;
    if (byClass && signature(app) != code) continue;
    handles.push_back(app.pid);
  }
  return handles;
}

std::string windowInfo(int32_t handle, std::string_view infoType) {
  const std::string invalid = "Invalid";
  auto app = application(handle);
  if (!app) return invalid;
  if (support::equalsIgnoringCase(infoType, "title") || support::equalsIgnoringCase(infoType, "caption"))
    return app->name;
  if (support::equalsIgnoringCase(infoType, "class") || support::equalsIgnoringCase(infoType, "creator"))
    return support::writeFourCharCode(signature(*app));
  const bool wantsName = support::equalsIgnoringCase(infoType, "filename");
  if (wantsName || support::equalsIgnoringCase(infoType, "filepath") ||
      support::equalsIgnoringCase(infoType, "app")) {
    std::string exe = desktopService().executablePath(handle);
    if (exe.empty()) return "";
    return wantsName ? baseName(exe) : paths::fromNative(exe, false);
  }
  return invalid;
}

int32_t activeWindow() { return std::max(frontmostProcess(), 0); }

int32_t closeWindow(int32_t handle) {
  auto& desktop = desktopService();
  if (handle == desktop.ownPid()) return 0;
  auto app = application(handle);
  if (!app) return 0;
  bool sent = false;
  for (const platform::ManagedWindow& window : app->windows)
    if (window.acceptsDelete && desktop.requestClose(window.id)) sent = true;
  if (sent) return 1;
  return desktop.terminate(handle) ? 1 : 0;
}

int32_t activateWindow(int32_t handle) {
  auto app = application(handle);
  if (!app || app->windows.empty()) return 0;
  platform::WindowId target = app->windows.back().id;
  auto stacking = desktopService().stackingOrder();
  for (auto it = stacking.rbegin(); it != stacking.rend(); ++it) {
    auto owned = std::find_if(app->windows.begin(), app->windows.end(),
                              [&](const platform::ManagedWindow& w) { return w.id == *it; });
    if (owned != app->windows.end()) {
      target = *it;
      break;
    }
  }
  return desktopService().activate(target, 500) ? 1 : 0;
}

int32_t waitForWindow(int32_t handle, std::string_view state, int32_t timeoutTicks) {
  if (!desktopService().displayAvailable()) return 0;
  return waitForProcess(handle, stateFor(state), timeoutTicks);
}

int32_t nextActiveWindow(int32_t timeoutTicks) {
  if (!desktopService().displayAvailable()) return 0;
  return waitForOtherFrontmost(timeoutTicks);
}

int32_t windowExists(int32_t handle) { return application(handle) ? 1 : 0; }

int32_t winHandle() { return desktopService().ownPid(); }

}  // namespace tessel::windows
