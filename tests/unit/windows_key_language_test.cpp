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

constexpr uint16_t kControl = 59, kOption = 58, kCommand = 55, kShift = 56;
constexpr uint16_t kA = 0, kB = 11, kC = 8, kK = 40, kTab = 48;

KeyStep type(uint16_t code, bool shift = false) { return {KeyStep::Type, code, shift}; }
KeyStep down(uint16_t code) { return {KeyStep::ModifierDown, code, false}; }
KeyStep up(uint16_t code) { return {KeyStep::ModifierUp, code, false}; }

TEST(KeyLanguage, PlainCharactersFollowTheUsLayout) {
  EXPECT_EQ(parseKeys("aA1!"), (std::vector<KeyStep>{type(kA), type(kA, true), type(18), type(18, true)}));
  EXPECT_EQ(parseKeys(" \"}"), (std::vector<KeyStep>{type(49), type(39, true), type(30, true)}));
  // The grave accent types its key's shifted character, the tilde.
  EXPECT_EQ(parseKeys("`"), (std::vector<KeyStep>{type(50, true)}));
  EXPECT_EQ(keyEvents(parseKeys("`")), (std::vector<KeyEvent>{{XK_asciitilde, KeyAction::Tap}}));
  // Control characters and bytes above 126 type nothing.
  EXPECT_TRUE(parseKeys("\x01\t\r\x7f\xc3\xa9").empty());
}

TEST(KeyLanguage, ModifiersApplyToTheNextKeyOnly) {
  EXPECT_TRUE(parseKeys("^").empty());
  EXPECT_EQ(parseKeys("~a"), (std::vector<KeyStep>{down(kShift), type(kA), up(kShift)}));
  EXPECT_EQ(keyEvents(parseKeys("~a")),
            (std::vector<KeyEvent>{{XK_Shift_L, KeyAction::Down}, {XK_a, KeyAction::Tap},
                                   {XK_Shift_L, KeyAction::Up}}));
  EXPECT_EQ(parseKeys("^^cb"), (std::vector<KeyStep>{down(kControl), down(kControl), type(kC),
                                                     up(kControl), up(kControl), type(kB)}));
  EXPECT_EQ(parseKeys("#@k"), (std::vector<KeyStep>{down(kCommand), down(kOption), type(kK),
                                                    up(kCommand), up(kOption)}));
  // Trailing modifiers are never pressed; modifiers before an unmappable character are
  // pressed and released around nothing.
  EXPECT_EQ(parseKeys("a^~"), (std::vector<KeyStep>{type(kA)}));
  EXPECT_EQ(parseKeys("^\x01"), (std::vector<KeyStep>{down(kControl), up(kControl)}));
  // Eleven modifiers press only the first ten.
  auto steps = parseKeys("^^^^^^^^^^~a");
  EXPECT_EQ(std::count(steps.begin(), steps.end(), down(kControl)), 10);
  EXPECT_EQ(std::count(steps.begin(), steps.end(), down(kShift)), 0);
  EXPECT_EQ(steps.size(), 21u);
}

TEST(KeyLanguage, NamedKeysNeedAValidCharacterBeforeThem) {
  EXPECT_TRUE(parseKeys("{TAB}").empty());
  EXPECT_EQ(parseKeys("a{TAB}"), (std::vector<KeyStep>{type(kA), type(kTab)}));
  EXPECT_EQ(parseKeys("a{tab}"), parseKeys("a{TAB}"));
  EXPECT_EQ(parseKeys("a{Return}{F12}{pgdn}"),
            (std::vector<KeyStep>{type(kA), type(36), type(111), type(121)}));
  // The validity is the last plain character's, however far back.
  EXPECT_EQ(parseKeys("a{TAB}{TAB}"), (std::vector<KeyStep>{type(kA), type(kTab), type(kTab)}));
  EXPECT_TRUE(parseKeys("\x01{TAB}").empty());
  EXPECT_EQ(parseKeys("\xff{TAB}b"), (std::vector<KeyStep>{type(kB)}));
  // Modifiers apply to a named key; Shift of the character before does not carry over.
  EXPECT_EQ(parseKeys("A~{TAB}"), (std::vector<KeyStep>{type(kA, true), down(kShift), type(kTab), up(kShift)}));
  EXPECT_EQ(keyEvents(parseKeys("a{HELP}{ENTER}{bksp}")),
            (std::vector<KeyEvent>{{XK_a, KeyAction::Tap}, {XK_Insert, KeyAction::Tap},
                                   {XK_KP_Enter, KeyAction::Tap}, {XK_BackSpace, KeyAction::Tap}}));
}

TEST(KeyLanguage, AnUnknownNameSwallowsThirteenCharactersAndRepeatsThePreviousKey) {
  // "{", then F O O } b c d e f g h i j are consumed; "a" is typed again; k l m n follow.
  EXPECT_EQ(parseKeys("a{FOO}bcdefghijklmn"),
            (std::vector<KeyStep>{type(kA), type(kA), type(kK), type(37), type(46), type(45)}));
  // The repetition drops Shift: "A" comes again as "a".
  EXPECT_EQ(parseKeys("A{NOSUCHKEYNAM}"), (std::vector<KeyStep>{type(kA, true), type(kA)}));
  // A name that runs too long behaves the same, and so does one the string ends in.
  EXPECT_EQ(parseKeys("b{RETURNRETURN}x"), (std::vector<KeyStep>{type(kB), type(kB), type(7)}));
  EXPECT_EQ(parseKeys("b{TA"), (std::vector<KeyStep>{type(kB), type(kB)}));
  // Characters after an unknown name's "}" extend that name, so it never matches later.
  EXPECT_EQ(parseKeys("b{X}TAB}"), (std::vector<KeyStep>{type(kB), type(kB)}));
  EXPECT_EQ(parseKeys("b{TAB}}"), (std::vector<KeyStep>{type(kB), type(kTab), type(30, true)}));
  // Nothing valid before: nothing is repeated.
  EXPECT_TRUE(parseKeys("{FOO}").empty());
}

TEST(KeyNumbers, MapThroughTheTableAndAskForBothSides) {
  EXPECT_EQ(keyCodeForKeyNumber('A'), kA);
  EXPECT_EQ(keyCodeForKeyNumber('0'), 29);
  EXPECT_EQ(keyCodeForKeyNumber(15), kCommand);
  EXPECT_EQ(keyCodeForKeyNumber(105), 92);
  EXPECT_EQ(keyCodeForKeyNumber(126), 113);
  EXPECT_EQ(keyCodeForKeyNumber(222), 39);
  for (int32_t outside : std::vector<int32_t>{-1, 0, 94, 200, 65536, 65536 + 65, 1 << 30}) EXPECT_EQ(keyCodeForKeyNumber(outside), 65535);

  testing::DesktopFixture fixture;
  auto& desktop = fixture.desktop();
  EXPECT_EQ(keyIsDown(65), 0);
  desktop.keysDown = {XK_a};
  EXPECT_EQ(keyIsDown(65), 1);
  EXPECT_EQ(keyIsDown(66), 0);
  desktop.keysDown = {XK_Super_R};
  EXPECT_EQ(keyIsDown(15), 1);
  desktop.keysDown = {XK_Control_R};
  EXPECT_EQ(keyIsDown(17), 1);
  desktop.keysDown = {XK_Pause};
  EXPECT_EQ(keyIsDown(19), 1);
  desktop.keysDown = {XK_Print};
  EXPECT_EQ(keyIsDown(44), 1);
  EXPECT_EQ(keyIsDown(124), 1);  // F13 shares Print Screen's key
  desktop.keysDown = {XK_Num_Lock};
  EXPECT_EQ(keyIsDown(144), 1);
  desktop.keysDown = {0xFFFF};
  EXPECT_EQ(keyIsDown(-1), 0);
  EXPECT_EQ(keyIsDown(65536 + 65), 0);
}

TEST(Input, SendKeysAndClicksPostOnlyWhatTheyMean) {
  testing::DesktopFixture fixture;
  auto& desktop = fixture.desktop();
  EXPECT_EQ(sendKeys("{TAB}^"), 0);
  EXPECT_TRUE(desktop.posted.empty());
  EXPECT_EQ(sendKeys("Hi"), 0);
  EXPECT_EQ(desktop.posted, (std::vector<KeyEvent>{{XK_H, KeyAction::Tap}, {XK_i, KeyAction::Tap}}));
  for (const char* type : {"LEFT", "right", "Middle", "", "lefty", "up"}) mouseClick(type);
  EXPECT_EQ(desktop.clicks, (std::vector<int>{1, 3, 2}));
}

}  // namespace
}  // namespace tessel::windows
