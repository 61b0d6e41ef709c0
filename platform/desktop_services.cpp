// The installed desktop services (displays, clipboard, sound, kiosk): the Linux backends,
// created on first use, unless a test has put fakes in their place. One thread only.
#include "platform/clipboard.h"
#include "platform/displays.h"
#include "platform/kiosk.h"
#include "platform/sound.h"

namespace tessel::platform {
namespace {

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

}  // namespace

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

}  // namespace tessel::platform
