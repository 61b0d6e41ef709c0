// The installed environment and launcher services: the Linux backends, created on first use,
// unless a test has put fakes in their place. One thread only (the host's), so no locking.
#include "platform/environment.h"
#include "platform/launcher.h"

namespace tessel::platform {
namespace {

std::unique_ptr<EnvironmentService>& environmentSlot() {
  static std::unique_ptr<EnvironmentService> slot;
  return slot;
}

std::unique_ptr<LauncherService>& launcherSlot() {
  static std::unique_ptr<LauncherService> slot;
  return slot;
}

}  // namespace

EnvironmentService& environmentService() {
  auto& slot = environmentSlot();
  if (!slot) slot = makeLinuxEnvironmentService();
  return *slot;
}

std::unique_ptr<EnvironmentService> setEnvironmentService(
    std::unique_ptr<EnvironmentService> service) {
  auto previous = std::move(environmentSlot());
  environmentSlot() = std::move(service);
  return previous;
}

LauncherService& launcherService() {
  auto& slot = launcherSlot();
  if (!slot) slot = makeLinuxLauncherService();
  return *slot;
}

std::unique_ptr<LauncherService> setLauncherService(std::unique_ptr<LauncherService> service) {
  auto previous = std::move(launcherSlot());
  launcherSlot() = std::move(service);
  return previous;
}

}  // namespace tessel::platform
