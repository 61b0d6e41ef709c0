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

// Waits until a process other than the host is frontmost; its handle, or 0 on time-out.
int32_t waitForOtherFrontmost(int32_t timeoutTicks);

// The deadline of a time-out: the clock's low 32 bits plus the ticks in microseconds, computed
// as the signed 32-bit product ticks x 100000 divided by 6 (towards zero). Above 21474 ticks
// the product wraps, and the deadline may lie in the past.
uint32_t tickDeadline(uint32_t nowMicroseconds, int32_t timeoutTicks);
// The deadline has passed when the clock's low 32 bits are greater, compared unsigned.
inline bool deadlinePassed(uint32_t nowMicroseconds, uint32_t deadline) {
  return nowMicroseconds > deadline;
}

// One round of the loop: 10 ticks.
inline constexpr int kRoundMilliseconds = 10 * 1000 / 60;

}  // namespace tessel::windows
