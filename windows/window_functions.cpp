#include "windows/window_functions.h"

#include <algorithm>

#include "support/four_char_code.h"
#include "support/text.h"
#include "paths/paths.h"
#include "platform/desktop.h"
#include "windows/applications.h"
#include "windows/wait_loop.h"

namespace tessel::windows {
namespace {

using platform::desktopService;
using support::asciiLowered;

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
    return wantsName ? executableName(exe) : paths::fromNative(exe, false);
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
