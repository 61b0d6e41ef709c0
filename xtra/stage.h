// The host's presentation interface, when the host offers one (see moa/tessel_stage.h).
#pragma once

#include "xtra/module.h"

namespace tessel::xtra {

// Asks the host for its stage interface and routes the kiosk keyboard hold through it.
void acquireStage(IMoaCallback* callback);
// Puts back what the kiosk methods changed, then lets go of the stage interface.
void releaseStage();

}  // namespace tessel::xtra
