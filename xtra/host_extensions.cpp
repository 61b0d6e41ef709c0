#include "xtra/host_extensions.h"

#include "platform/kiosk.h"
#include "moa/tessel_interrupt.h"
#include "moa/tessel_stage.h"

namespace tessel::xtra {
namespace {

// The served instance's extensions.
ITesselStage* stage = nullptr;
ITesselInterrupt* interrupt = nullptr;

template <typename I>
void acquire(IMoaCallback* callback, const MoaID& iid, I*& slot) {
  void* out = nullptr;
  slot = nullptr;
  if (callback->QueryInterface(&iid, &out) == kMoaErr_NoErr && out != nullptr)
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

void acquireHostExtensions(IMoaCallback* callback, TesselScriptFields& fields) {
  if (callback == nullptr) return;
  acquire(callback, IID_ITesselInterrupt, fields.interrupt);
  acquire(callback, IID_ITesselStage, fields.stage);
}

void releaseHostExtensions(TesselScriptFields& fields) {
  release(fields.stage);
  release(fields.interrupt);
}

void useHostExtensions(const TesselScriptFields* fields) {
  stage = fields != nullptr ? fields->stage : nullptr;
  interrupt = fields != nullptr ? fields->interrupt : nullptr;
  if (stage == nullptr) {
    platform::setKeyboardHolder(nullptr);
    return;
  }
  platform::setKeyboardHolder([](bool hold) {
    return stage != nullptr && stage->HoldKeyboard(hold ? 1 : 0) == kMoaErr_NoErr;
  });
}

bool interruptRequested() {
  MoaBool requested = 0;
  return interrupt != nullptr && interrupt->InterruptRequested(&requested) == kMoaErr_NoErr &&
         requested != 0;
}

}  // namespace tessel::xtra
