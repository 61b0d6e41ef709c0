#include "xtra/host_extensions.h"

#include "platform/kiosk.h"
#include "moa/tessel_interrupt.h"
#include "moa/tessel_stage.h"

namespace tessel::xtra {
namespace {

ITesselStage* stage = nullptr;
ITesselInterrupt* interrupt = nullptr;

template <typename I>
void acquire(IMoaCallback* callback, const MoaID& iid, I*& slot) {
  void* out = nullptr;
  if (slot == nullptr && callback->QueryInterface(&iid, &out) == kMoaErr_NoErr && out != nullptr)
    slot = static_cast<I*>(out);
}

template <typename I>
void release(I*& slot) {
  if (I* held = slot) {
    slot = nullptr;
    held->Release();
  }
}

}  // namespace

void acquireHostExtensions(IMoaCallback* callback) {
  if (callback == nullptr) return;
  acquire(callback, IID_ITesselInterrupt, interrupt);
  if (stage != nullptr) return;
  acquire(callback, IID_ITesselStage, stage);
  if (stage == nullptr) return;
  platform::setKeyboardHolder([](bool hold) {
    return stage != nullptr && stage->HoldKeyboard(hold ? 1 : 0) == kMoaErr_NoErr;
  });
}

void releaseHostExtensions() {
  platform::setKeyboardHolder(nullptr);
  release(stage);
  release(interrupt);
}

bool interruptRequested() {
  MoaBool requested = 0;
  return interrupt != nullptr && interrupt->InterruptRequested(&requested) == kMoaErr_NoErr &&
         requested != 0;
}

}  // namespace tessel::xtra
