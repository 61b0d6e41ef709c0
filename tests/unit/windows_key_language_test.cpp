// The key language of tsSendKeys and the key tables of tsKeyIsDown.
#include <X11/keysym.h>
#include <gtest/gtest.h>

#include "tests/unit/desktop_fake.h"
#include "windows/input.h"
#include "windows/key_language.h"

namespace tessel::windows {
namespace {

using platform::KeyAction;
using platform::KeyEvent;

constexpr uint16_t kControl = 59, kShift = 56;
constexpr uint16_t kA = 0, kB = 11, kC = 8, kTab = 48;

KeyStep type(uint16_t code, bool shift = false) { return {KeyStep::Type, code, shift}; }
KeyStep down(uint16_t code) { return {KeyStep::ModifierDown, code, false}; }
KeyStep up(uint16_t code) { return {KeyStep::ModifierUp, code, false}; }

// The desktop test types the common cases into a real window; these rows are the corners of the
// language, as the steps it plans (key codes of the US layout, with Shift where it is needed).
TEST(KeyLanguage, CornersAsRows) {
  const std::pair<std::string, std::vector<KeyStep>> rows[] = {
      {" \"}", {type(49), type(39, true), type(30, true)}},
      // Trailing modifiers are never pressed; before an unmappable character they are pressed
      // and released around nothing.
      {"a^~", {type(kA)}},
      {"^\x01", {down(kControl), up(kControl)}},
      {"^^cb", {down(kControl), down(kControl), type(kC), up(kControl), up(kControl), type(kB)}},
      // A named key needs a valid character before it, however far back; modifiers apply to it,
      // the Shift of the character before does not.
      {"a{TAB}{TAB}", {type(kA), type(kTab), type(kTab)}},
      {"a{Return}{F12}{pgdn}", {type(kA), type(36), type(111), type(121)}},
      {"\x01{TAB}", {}},
      {"\xff{TAB}b", {type(kB)}},
      {"A~{TAB}", {type(kA, true), down(kShift), type(kTab), up(kShift)}},
      // An unknown name swallows thirteen characters and repeats the previous key, without its
      // Shift; so does a name that runs too long or that the string ends in, and characters
      // after an unknown name's "}" extend that name.
      {"A{NOSUCHKEYNAM}", {type(kA, true), type(kA)}},
      {"b{RETURNRETURN}x", {type(kB), type(kB), type(7)}},
      {"b{TA", {type(kB), type(kB)}},
      {"b{X}TAB}", {type(kB), type(kB)}},
      {"b{TAB}}", {type(kB), type(kTab), type(30, true)}},
      {"{FOO}", {}},
  };
  for (const auto& [keys, steps] : rows) EXPECT_EQ(parseKeys(keys), steps) << keys;
  EXPECT_EQ(keyEvents(parseKeys("~a{HELP}{ENTER}{bksp}")),
            (std::vector<KeyEvent>{{XK_Shift_L, KeyAction::Down}, {XK_a, KeyAction::Tap},
                                   {XK_Shift_L, KeyAction::Up}, {XK_Insert, KeyAction::Tap},
                                   {XK_KP_Enter, KeyAction::Tap}, {XK_BackSpace, KeyAction::Tap}}));
}

TEST(KeyNumbers, MapThroughTheTableAndAskForBothSides) {
  // ('A', Command and Shift are Desktop.KeyIsDownSeesKeysHeldElsewhere's, on the real keyboard.)
  EXPECT_EQ(keyCodeForKeyNumber('0'), 29);
  EXPECT_EQ(keyCodeForKeyNumber(105), 92);
  EXPECT_EQ(keyCodeForKeyNumber(126), 113);
  EXPECT_EQ(keyCodeForKeyNumber(222), 39);
  for (int32_t outside : std::vector<int32_t>{-1, 0, 94, 200, 65536, 65536 + 65, 1 << 30}) EXPECT_EQ(keyCodeForKeyNumber(outside), 65535);

  testing::DesktopFixture fixture;
  auto& desktop = fixture.desktop();
  // Keys the desktop test does not hold: the right-hand and the rarer ones (F13, 124, shares
  // Print Screen's key).
  const std::pair<uint32_t, int32_t> held[] = {{XK_Super_R, 15}, {XK_Control_R, 17}, {XK_Pause, 19},
                                               {XK_Print, 44},   {XK_Print, 124},    {XK_Num_Lock, 144}};
  for (auto [keysym, number] : held) {
    desktop.keysDown = {keysym};
    EXPECT_EQ(keyIsDown(number), 1) << number;
  }
  desktop.keysDown = {0xFFFF};
  EXPECT_EQ(keyIsDown(-1), 0);
  EXPECT_EQ(keyIsDown(65536 + 65), 0);
}

}  // namespace
}  // namespace tessel::windows
