// The host's interrupt interface, when the host offers one (see moa/tessel_interrupt.h).
#pragma once

#include "xtra/module.h"

namespace tessel::xtra {

// Asks the host for its interrupt interface; keeps it until released.
void acquireInterrupt(IMoaCallback* callback);
void releaseInterrupt();
// Whether the user asked the running script to stop; false with a host that cannot say.
bool interruptRequested();

}  // namespace tessel::xtra
