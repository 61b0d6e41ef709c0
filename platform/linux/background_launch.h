// Keeping a program started "hidden" behind the window the user works in.
#pragma once

#include <sys/types.h>

namespace tessel::platform {

// Watches, on a thread of its own with an X connection of its own, for the managed top-level
// windows of `program` or of a process it started (by _NET_WM_PID): each one is stacked under
// the window that was active at launch, and that window gets the focus back whenever the window
// manager hands it to one of them. The watch ends 2 s after the first such window, 15 s after the
// launch, when the program ends or when the user activates another window. Returns at once;
// without a display or an active window it does nothing.
void keepBehindActiveWindow(pid_t program);

}  // namespace tessel::platform
