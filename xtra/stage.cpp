#include "xtra/stage.h"

#include "platform/kiosk.h"
#include "system/kiosk.h"
#include "xtra/moa/tessel_stage.h"

namespace tessel::xtra {
namespace {

ITesselStage*& stage() {
  static ITesselStage* s = nullptr;
  return s;
}

}  // namespace

void acquireStage(IMoaCallback* callback) {
  if (stage() != nullptr || callback == nullptr) return;
  void* out = nullptr;
  if (callback->QueryInterface(&IID_ITesselStage, &out) != kMoaErr_NoErr || out == nullptr) return;
  stage() = static_cast<ITesselStage*>(out);
  platform::setKeyboardHolder([](bool hold) {
    ITesselStage* s = stage();
    return s != nullptr && s->HoldKeyboard(hold ? 1 : 0) == kMoaErr_NoErr;
  });
}

void releaseStage() {
  system::restoreKiosk();
  platform::setKeyboardHolder(nullptr);
  if (ITesselStage* s = stage()) {
    stage() = nullptr;
    s->Release();
  }
}

}  // namespace tessel::xtra
