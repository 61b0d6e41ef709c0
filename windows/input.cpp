#include "windows/input.h"

namespace tessel::windows {

// Placeholder until key events are built: the method's fixed result.
int32_t sendKeys(std::string_view) { return 0; }
// Placeholder until the keyboard state is built: the failure value.
int32_t keyIsDown(int32_t) { return 0; }
// Placeholder until mouse events are built: the method's fixed result.
int32_t mouseClick(std::string_view) { return 0; }

}  // namespace tessel::windows
