// Kiosk controls, the clipboard, sound volume and the cursor.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::system {

int32_t hideTaskBar(int32_t hide);
int32_t disableSwitching(int32_t disable);
int32_t copyText(std::string_view text);
std::string pasteText();
int32_t placeCursor(int32_t x, int32_t y);
int32_t setVolume(std::string_view type, int32_t volume);
int32_t getVolume(std::string_view type);
// What tsHideTaskBar and tsDisableSwitching changed is put back when the module's session ends
// (support/session.h).

}  // namespace tessel::system
