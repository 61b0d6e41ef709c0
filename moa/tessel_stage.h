// The presentation ("stage") interface a Tessel host may offer through its callback's
// QueryInterface. It lets the module hold the keyboard for the host's own window through the
// host's own X connection, so that the window manager's switching keys are out of reach while
// the presentation still receives every key. Hosts without a presentation window do not serve it.
#pragma once

#include "moa_interfaces.h"

namespace moa {

inline constexpr MoaID IID_ITesselStage =
    makeID(0x5E7A6E01, 0x7E55, 0x4C1D, 0x9A10, 0x5D6E57A6E001);

struct ITesselStage : IMoaUnknown {
  // Holds (non-zero) or releases (0) the keyboard for the presentation window. kMoaErr_NoErr
  // when done; kMoaErr_NotImplemented without a window; kMoaErr_InternalError when the grab
  // was refused (another client holds the keyboard).
  virtual MoaError HoldKeyboard(MoaBoolParam hold) = 0;  // 3
};

}  // namespace moa
