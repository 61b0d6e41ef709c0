// The interfaces a Tessel host may offer beyond MOA's own, asked for through the callback's
// QueryInterface when the scripting instance starts: the stage (moa/tessel_stage.h) and the
// interrupt (moa/tessel_interrupt.h). Hosts that do not serve one leave its feature out.
#pragma once

#include "xtra/module.h"

namespace tessel::xtra {

// Asks the host for its extensions; the kiosk keyboard hold goes through the stage.
void acquireHostExtensions(IMoaCallback* callback);
// Lets go of the extensions (endSession has put back what the kiosk methods changed).
void releaseHostExtensions();

// Whether the user asked the running script to stop; false with a host that cannot say.
bool interruptRequested();

}  // namespace tessel::xtra
