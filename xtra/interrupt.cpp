#include "xtra/interrupt.h"

#include "xtra/moa/tessel_interrupt.h"

namespace tessel::xtra {
namespace {

ITesselInterrupt*& interrupt() {
  static ITesselInterrupt* i = nullptr;
  return i;
}

}  // namespace

void acquireInterrupt(IMoaCallback* callback) {
  if (interrupt() != nullptr || callback == nullptr) return;
  void* out = nullptr;
  if (callback->QueryInterface(&IID_ITesselInterrupt, &out) != kMoaErr_NoErr || out == nullptr)
    return;
  interrupt() = static_cast<ITesselInterrupt*>(out);
}

void releaseInterrupt() {
  if (ITesselInterrupt* i = interrupt()) {
    interrupt() = nullptr;
    i->Release();
  }
}

bool interruptRequested() {
  MoaBool requested = 0;
  ITesselInterrupt* i = interrupt();
  return i != nullptr && i->InterruptRequested(&requested) == kMoaErr_NoErr && requested != 0;
}

}  // namespace tessel::xtra
