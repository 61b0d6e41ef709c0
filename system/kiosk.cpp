#include "system/kiosk.h"

#include "platform/displays.h"
#include "platform/kiosk.h"
#include "support/session.h"

namespace tessel::system {
namespace {

// What this session changed, put back when it ends (the host's stage still held then).
struct KioskState {
  bool layerChanged = false;
  bool keyboardHeld = false;

  void end() {
    if (keyboardHeld) platform::kioskService().holdKeyboard(false);
    if (layerChanged) platform::kioskService().setStageLayer(platform::StageLayer::Normal);
  }
};

KioskState& state() { return support::session().part<KioskState>(); }

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

int32_t placeCursor(int32_t x, int32_t y) {
  platform::displayService().warpPointer(x, y);
  return 0;
}

}  // namespace tessel::system
