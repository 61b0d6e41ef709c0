// The key language of tsSendKeys and the key tables of tsKeyIsDown, in the US (ANSI) key codes
// the Xtra uses inside, and their translation to X keysyms.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/desktop.h"

namespace tessel::windows {

// One step of a key string: a modifier pressed or released, or a key typed (pressed and
// released), with Shift when the character needs it.
struct KeyStep {
  enum Kind : uint8_t { ModifierDown, ModifierUp, Type } kind = Type;
  uint16_t code = 0;
  bool shift = false;
  bool operator==(const KeyStep&) const = default;
};

// The steps `keys` stands for. Modifier characters ("^", "@", "#", "~", at most ten pending)
// apply to the next key only and trailing ones are never pressed; "{NAME}" types a named key
// only when the last plain character before it was a valid one; a name that does not close
// within 12 characters consumes the "{" and the 13 characters after it and types the previous
// key once more (without Shift).
std::vector<KeyStep> parseKeys(std::string_view keys);

// The keysym a key gives on the US layout, with or without Shift; 0 for none.
uint32_t usKeysym(uint16_t code, bool shift);

// The steps as keysym events for the desktop service.
std::vector<platform::KeyEvent> keyEvents(const std::vector<KeyStep>& steps);

// tsKeyIsDown's key number to a key code; 65535 for a number outside the table.
uint16_t keyCodeForKeyNumber(int32_t key);

// The keysyms that count as key `code` being down: both sides of Shift, Control, Option and
// Command; Print, Scroll Lock and Pause for F13 to F15; Num Lock for the keypad's clear key.
std::vector<uint32_t> keysymsForKeyDown(uint16_t code);

}  // namespace tessel::windows
