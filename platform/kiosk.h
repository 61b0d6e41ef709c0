// Kiosk controls on the host's presentation window: fullscreen above the panels, and the
// keyboard held by the presentation so the window manager's switching keys do nothing.
#pragma once

#include <functional>
#include <memory>

namespace tessel::platform {

enum class StageLayer {
  Normal,      // the window as the user left it
  Fullscreen,  // fullscreen, covering panels and docks
  OnTop,       // fullscreen and kept above every other window
};

class KioskService {
 public:
  virtual ~KioskService() = default;

  // Puts the host's presentation window in `layer`; false when the host has no window.
  virtual bool setStageLayer(StageLayer layer) = 0;
  // Holds (or releases) the keyboard for the presentation window; false when it cannot.
  virtual bool holdKeyboard(bool hold) = 0;
};

KioskService& kioskService();
std::unique_ptr<KioskService> setKioskService(std::unique_ptr<KioskService> service);
std::unique_ptr<KioskService> makeLinuxKioskService();

// The host's way of holding the keyboard for its presentation window (set by the module frame
// when the host offers it; empty otherwise). The Linux backend calls it, since a grab on any other
// connection would take the keys away from the presentation too.
void setKeyboardHolder(std::function<bool(bool)> holder);
// Calls the host's holder; false when the host offers none.
bool holdKeyboardThroughHost(bool hold);

}  // namespace tessel::platform
