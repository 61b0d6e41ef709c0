// Small pieces the dialogs share: bounded texts and window positions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/ui.h"
#include "support/text.h"

namespace tessel::dialogs {

// Texts are cut to their buffers with support::cutUtf8, never inside a UTF-8 character.
using support::cutUtf8;

// A window of the module's own: X < 0 centres it on the primary monitor (Y ignored), halving with
// the remainder dropped towards zero; otherwise its client area's top-left goes to (X, Y).
inline platform::WindowPlace placeOwnWindow(int32_t x, int32_t y, int32_t width, int32_t height) {
  if (x >= 0) return {false, x, y};
  auto [screenWidth, screenHeight] = platform::uiService().screenSize();
  return {false, (screenWidth - width) / 2, (screenHeight - height) / 2};
}

// A system dialog: X < 0 leaves it where the system puts it.
inline platform::WindowPlace placeSystemWindow(int32_t x, int32_t y) {
  if (x < 0) return {};
  return {false, x, y};
}

}  // namespace tessel::dialogs
