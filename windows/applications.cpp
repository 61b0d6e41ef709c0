#include "windows/applications.h"

#include <algorithm>
#include <unordered_map>

#include "support/four_char_code.h"
#include "platform/files.h"

namespace tessel::windows {
namespace {

using platform::desktopService;

// A process's name: the class of its first window, else that window's title, else the name of
// its executable.
std::string applicationName(int32_t pid, const std::vector<platform::ManagedWindow>& windows) {
  if (!windows.empty())
    return windows.front().wmClass.empty() ? windows.front().title : windows.front().wmClass;
  std::string exe = desktopService().executablePath(pid);
  return exe.empty() ? desktopService().commandName(pid) : executableName(exe);
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

}  // namespace

std::string executableName(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

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

}  // namespace tessel::windows
