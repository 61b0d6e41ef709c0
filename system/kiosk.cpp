#include "system/kiosk.h"

namespace tessel::system {

// Placeholder until kiosk controls are built: the method's fixed result.
int32_t hideTaskBar(int32_t) { return 0; }
// Placeholder until kiosk controls are built: the failure value.
int32_t disableSwitching(int32_t) { return 0; }
// Placeholder until the clipboard is built: the failure value.
int32_t copyText(std::string_view) { return 0; }
// Placeholder until the clipboard is built: the failure value.
std::string pasteText() { return ""; }
// Placeholder until cursor placement is built: the failure value.
int32_t placeCursor(int32_t, int32_t) { return 0; }
// Placeholder until sound volume is built: the failure value.
int32_t setVolume(std::string_view, int32_t) { return 0; }
// Placeholder until sound volume is built: no output device.
int32_t getVolume(std::string_view) { return -1; }

}  // namespace tessel::system
