// The installed platform services: the Linux backends, created on first use, unless a test has
// put fakes in their place. One thread only (the host's), so no locking.
#include "platform/desktop.h"
#include "platform/files.h"
#include "platform/folders.h"
#include "platform/ui.h"
#include "platform/volumes.h"

namespace tessel::platform {
namespace {

std::unique_ptr<VolumeService>& volumeSlot() {
  static std::unique_ptr<VolumeService> slot;
  return slot;
}

uint64_t& volumeSerial() {
  static uint64_t serial = 0;
  return serial;
}

std::unique_ptr<FolderService>& folderSlot() {
  static std::unique_ptr<FolderService> slot;
  return slot;
}

std::unique_ptr<FileService>& fileSlot() {
  static std::unique_ptr<FileService> slot;
  return slot;
}

std::unique_ptr<DesktopService>& desktopSlot() {
  static std::unique_ptr<DesktopService> slot;
  return slot;
}

}  // namespace

VolumeService& volumeService() {
  auto& slot = volumeSlot();
  if (!slot) slot = makeLinuxVolumeService();
  return *slot;
}

std::unique_ptr<VolumeService> setVolumeService(std::unique_ptr<VolumeService> service) {
  ++volumeSerial();
  auto previous = std::move(volumeSlot());
  volumeSlot() = std::move(service);
  return previous;
}

uint64_t volumeServiceSerial() { return volumeSerial(); }

FolderService& folderService() {
  auto& slot = folderSlot();
  if (!slot) slot = makeLinuxFolderService();
  return *slot;
}

std::unique_ptr<FolderService> setFolderService(std::unique_ptr<FolderService> service) {
  auto previous = std::move(folderSlot());
  folderSlot() = std::move(service);
  return previous;
}

FileService& fileService() {
  auto& slot = fileSlot();
  if (!slot) slot = makeLinuxFileService();
  return *slot;
}

std::unique_ptr<FileService> setFileService(std::unique_ptr<FileService> service) {
  auto previous = std::move(fileSlot());
  fileSlot() = std::move(service);
  return previous;
}

DesktopService& desktopService() {
  auto& slot = desktopSlot();
  if (!slot) slot = makeLinuxDesktopService();
  return *slot;
}

std::unique_ptr<DesktopService> setDesktopService(std::unique_ptr<DesktopService> service) {
  auto previous = std::move(desktopSlot());
  desktopSlot() = std::move(service);
  return previous;
}

}  // namespace tessel::platform

// ---- The desktop's windows and the host's hooks ----------------------------------------------------

namespace tessel::platform {
namespace {

std::unique_ptr<UiService>& uiSlot() {
  static std::unique_ptr<UiService> slot;
  return slot;
}

HostHooks*& hooksSlot() {
  static HostHooks* slot = nullptr;
  return slot;
}

}  // namespace

UiService& uiService() {
  auto& slot = uiSlot();
  if (!slot) slot = makeGtkUiService();
  return *slot;
}

std::unique_ptr<UiService> setUiService(std::unique_ptr<UiService> service) {
  auto previous = std::move(uiSlot());
  uiSlot() = std::move(service);
  return previous;
}

HostHooks& hostHooks() {
  static HostHooks none;
  HostHooks* hooks = hooksSlot();
  return hooks != nullptr ? *hooks : none;
}

void setHostHooks(HostHooks* hooks) { hooksSlot() = hooks; }

}  // namespace tessel::platform
