// The one wait loop of the Xtra: waits for a process to become frontmost, to stop being
// frontmost, or to end, in rounds of 10 ticks, with the host's tick deadline arithmetic.
// tsWaitForWindow and tsNextActiveWindow use it, and tsRunProgram with Wait.
#pragma once

#include <cstdint>

namespace tessel::windows {

enum class WaitState { Active, Inactive, Closed };

// Waits until the process `pid` reaches `state`; `timeoutTicks` <= 0 waits without limit.
// 1 when the state was reached, 0 on time-out or when the process did not exist at the start.
int32_t waitForProcess(int32_t pid, WaitState state, int32_t timeoutTicks);

}  // namespace tessel::windows
