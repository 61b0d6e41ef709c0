// The interfaces a Tessel host may offer beyond MOA's own, asked for through the callback's
// QueryInterface when a scripting instance starts: the stage (moa/tessel_stage.h) and the
// interrupt (moa/tessel_interrupt.h). Hosts that do not serve one leave its feature out.
#pragma once

#include "xtra/module.h"

namespace tessel::xtra {

// Asks the instance's host for its extensions (kept in the instance's fields).
void acquireHostExtensions(IMoaCallback* callback, TesselScriptFields& fields);
// Lets go of them (when the session ends, endSession has put back what the kiosk changed).
void releaseHostExtensions(TesselScriptFields& fields);
// Serves the kiosk's keyboard hold and the interrupt through these fields' extensions (none:
// nullptr).
void useHostExtensions(const TesselScriptFields* fields);

// Whether the user asked the running script to stop; false with a host that cannot say.
bool interruptRequested();

}  // namespace tessel::xtra
