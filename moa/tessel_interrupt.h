// The interrupt interface a Tessel host may offer through its callback's QueryInterface: whether
// the user asked the running script to stop (Ctrl-C in the message window). Methods that wait
// inside a call ask it between rounds, so that a wait ends when the user interrupts it. Hosts
// without such a request do not serve it.
#pragma once

#include "moa_interfaces.h"

namespace moa {

inline constexpr MoaID IID_ITesselInterrupt =
    makeID(0x5E7A6E02, 0x7E55, 0x4C1D, 0x9A10, 0x5D6E57A6E002);

struct ITesselInterrupt : IMoaUnknown {
  // *requested becomes non-zero once the user asked the running script to stop.
  virtual MoaError InterruptRequested(MoaBool* requested) = 0;  // 3
};

}  // namespace moa
