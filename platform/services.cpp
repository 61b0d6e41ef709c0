// The installed platform services: each is the Linux backend, created on first use, unless a
// test has put a fake in its place. One thread only (the host's), so no locking.
#include "platform/clipboard.h"
#include "platform/desktop.h"
#include "platform/displays.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/folders.h"
#include "platform/kiosk.h"
#include "platform/launcher.h"
#include "platform/sound.h"
#include "platform/ui.h"
#include "platform/volumes.h"

namespace tessel::platform {
namespace {

// One slot per service interface.
template <typename Service>
std::unique_ptr<Service>& slot() {
  static std::unique_ptr<Service> installed;
  return installed;
}

template <typename Service>
Service& installed(std::unique_ptr<Service> (*make)()) {
  auto& s = slot<Service>();
  if (!s) s = make();
  return *s;
}

template <typename Service>
std::unique_ptr<Service> replace(std::unique_ptr<Service> service) {
  auto previous = std::move(slot<Service>());
  slot<Service>() = std::move(service);
  return previous;
}

uint64_t& volumeSerial() {
  static uint64_t serial = 0;
  return serial;
}

HostHooks*& hooksSlot() {
  static HostHooks* hooks = nullptr;
  return hooks;
}

}  // namespace

VolumeService& volumeService() { return installed(makeLinuxVolumeService); }
std::unique_ptr<VolumeService> setVolumeService(std::unique_ptr<VolumeService> service) {
  ++volumeSerial();
  return replace(std::move(service));
}
uint64_t volumeServiceSerial() { return volumeSerial(); }

FolderService& folderService() { return installed(makeLinuxFolderService); }
std::unique_ptr<FolderService> setFolderService(std::unique_ptr<FolderService> service) {
  return replace(std::move(service));
}

FileService& fileService() { return installed(makeLinuxFileService); }
std::unique_ptr<FileService> setFileService(std::unique_ptr<FileService> service) {
  return replace(std::move(service));
}

EnvironmentService& environmentService() { return installed(makeLinuxEnvironmentService); }
std::unique_ptr<EnvironmentService> setEnvironmentService(
    std::unique_ptr<EnvironmentService> service) {
  return replace(std::move(service));
}

LauncherService& launcherService() { return installed(makeLinuxLauncherService); }
std::unique_ptr<LauncherService> setLauncherService(std::unique_ptr<LauncherService> service) {
  return replace(std::move(service));
}

DisplayService& displayService() { return installed(makeLinuxDisplayService); }
std::unique_ptr<DisplayService> setDisplayService(std::unique_ptr<DisplayService> service) {
  return replace(std::move(service));
}

ClipboardService& clipboardService() { return installed(makeLinuxClipboardService); }
std::unique_ptr<ClipboardService> setClipboardService(std::unique_ptr<ClipboardService> service) {
  return replace(std::move(service));
}

SoundService& soundService() { return installed(makeLinuxSoundService); }
std::unique_ptr<SoundService> setSoundService(std::unique_ptr<SoundService> service) {
  return replace(std::move(service));
}

KioskService& kioskService() { return installed(makeLinuxKioskService); }
std::unique_ptr<KioskService> setKioskService(std::unique_ptr<KioskService> service) {
  return replace(std::move(service));
}

DesktopService& desktopService() { return installed(makeLinuxDesktopService); }
std::unique_ptr<DesktopService> setDesktopService(std::unique_ptr<DesktopService> service) {
  return replace(std::move(service));
}

UiService& uiService() { return installed(makeGtkUiService); }
std::unique_ptr<UiService> setUiService(std::unique_ptr<UiService> service) {
  return replace(std::move(service));
}

HostHooks& hostHooks() {
  static HostHooks none;
  HostHooks* hooks = hooksSlot();
  return hooks != nullptr ? *hooks : none;
}

void setHostHooks(HostHooks* hooks) { hooksSlot() = hooks; }

}  // namespace tessel::platform
