#include "system/kiosk.h"

#include "platform/displays.h"
#include "platform/kiosk.h"

namespace tessel::system {
namespace {

// What this module changed, so that unloading can put it back.
struct KioskState {
  bool layerChanged = false;
  bool keyboardHeld = false;
};

KioskState& state() {
  static KioskState s;
  return s;
}

}  // namespace

int32_t hideTaskBar(int32_t hide) {
  platform::StageLayer layer;
  switch (hide) {
    case 0: layer = platform::StageLayer::Normal; break;
    case 1:
    case 3: layer = platform::StageLayer::Fullscreen; break;
    case 2: layer = platform::StageLayer::OnTop; break;
    default: return 0;
  }
  if (platform::kioskService().setStageLayer(layer))
    state().layerChanged = layer != platform::StageLayer::Normal;
  return 0;
}

int32_t disableSwitching(int32_t disable) {
  bool hold = disable != 0;
  if (platform::kioskService().holdKeyboard(hold)) state().keyboardHeld = hold;
  return 0;
}

void restoreKiosk() {
  KioskState& s = state();
  if (s.keyboardHeld) platform::kioskService().holdKeyboard(false);
  if (s.layerChanged) platform::kioskService().setStageLayer(platform::StageLayer::Normal);
  s = KioskState{};
}

int32_t placeCursor(int32_t x, int32_t y) {
  platform::displayService().warpPointer(x, y);
  return 0;
}

}  // namespace tessel::system
