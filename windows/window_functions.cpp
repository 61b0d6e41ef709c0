#include "windows/window_functions.h"

namespace tessel::windows {

// Placeholder until window functions are built: no window.
int32_t findWindow(std::string_view, std::string_view) { return 0; }
// Placeholder until window functions are built: the failure value.
std::string windowInfo(int32_t, std::string_view) { return "Invalid"; }
// Placeholder until window functions are built: no window.
int32_t activeWindow() { return 0; }
// Placeholder until window functions are built: the failure value.
int32_t closeWindow(int32_t) { return 0; }
// Placeholder until window functions are built: the failure value.
int32_t activateWindow(int32_t) { return 0; }
// Placeholder until window functions are built: the failure value.
int32_t waitForWindow(int32_t, std::string_view, int32_t) { return 0; }
// Placeholder until window functions are built: the failure value.
int32_t nextActiveWindow(int32_t) { return 0; }
// Placeholder until window functions are built: the failure value.
int32_t windowExists(int32_t) { return 0; }
// Placeholder until window functions are built: the empty list.
std::vector<int32_t> windowList(std::string_view, std::string_view, int32_t) { return {}; }
// Placeholder until window functions are built: no window.
int32_t winHandle() { return 0; }

}  // namespace tessel::windows
