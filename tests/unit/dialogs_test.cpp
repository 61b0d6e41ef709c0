// The dialogs' logic against a fake desktop, where the real windows cannot reach it on cue: button
// sets and their names, the custom box's cancel item, the prompt's key filter and limits, the
// selectors' filters.
#include <gtest/gtest.h>

#include "dialogs/message_box.h"
#include "dialogs/prompt.h"
#include "dialogs/selectors.h"
#include "fake_ui.h"
#include "paths/paths.h"
#include "paths_test_support.h"
#include "platform/files.h"

namespace tessel {
namespace {

using platform::DialogIcon;
using platform::EntryKeyAction;
using testing::FakeDialogSession;

// (Each button set's captions, close button and answers, replacement captions and "OK" with
// DefButton 2 answering "No" are rows of Dialogs.MessageBoxButtonSetsDefaultsAndKeys.)
TEST(MessageBoxes, UnknownSetsAndLongCaptions) {
  FakeDialogSession desktop;
  desktop.ui->alertAnswers = {1, 1, 4};
  dialogs::msgBox("", "", "YesNo", "", 0);
  // An unknown set shows one OK button but answers the name the last known set left.
  EXPECT_EQ(dialogs::msgBox("", "", "", "", 0), "Yes");
  EXPECT_EQ(desktop.ui->alerts.back().buttons, std::vector<std::string>{"OK"});
  EXPECT_EQ(dialogs::msgBox("", "", "OK", "", -3), "");  // no such button
  EXPECT_EQ(desktop.ui->alerts.back().returnButton, 1);
  dialogs::msgBoxButtons("", "", "", "", "", "", "ThisCaptionIsLongerThan23Bytes");
  dialogs::msgBox("", "", "AbortRetryIgnore", "", 0);
  EXPECT_EQ(desktop.ui->alerts.back().buttons[0], "ThisCaptionIsLongerThan");
  dialogs::msgBoxButtons("", "", "", "", "", "", "");
}

TEST(MessageBoxes, IconWordsAndTitle) {
  FakeDialogSession desktop;
  const std::pair<const char*, DialogIcon> icons[] = {
      {"note", DialogIcon::Note},       {"Question", DialogIcon::Note},
      {"INFORMATION", DialogIcon::Note}, {"caution", DialogIcon::Caution},
      {"Exclamation", DialogIcon::Caution}, {"STOP", DialogIcon::Stop},
      {"", DialogIcon::None},           {"plain", DialogIcon::None},
  };
  for (auto [word, icon] : icons) {
    dialogs::msgBox("", std::string(70, 'c'), "OK", word, 0);
    EXPECT_EQ(desktop.ui->alerts.back().icon, icon) << word;
    EXPECT_EQ(desktop.ui->alerts.back().title, std::string(63, 'c'));
  }
}

// A text taller than the screen is cut so that the box fits it, buttons included.
TEST(CustomBox, ATextTallerThanTheScreenIsCut) {
  FakeDialogSession desktop;
  desktop.ui->screen = {1025, 769};
  desktop.ui->measure = {2000, 15};
  dialogs::MsgBoxExOptions o{.msg = "a", .button1 = "One", .xPos = -1, .yPos = 500};
  platform::CustomBoxSpec spec = dialogs::customBoxLayout(o);
  EXPECT_EQ(spec.height, 769);
  EXPECT_EQ(spec.buttonTop, 769 - 80 + 35);
}

TEST(CustomBox, AlignmentFontAndTheCancelButton) {
  FakeDialogSession desktop;
  auto align = [](const char* word) {
    return dialogs::customBoxLayout({.alignment = word}).align;
  };
  using platform::TextAlign;
  for (auto [word, side] : {std::pair{"Right", TextAlign::Right}, {"rubbish", TextAlign::Right},
                            {"c", TextAlign::Centre}, {"Left", TextAlign::Left}, {"", TextAlign::Left},
                            {"x", TextAlign::Left}})
    EXPECT_EQ(align(word), side) << word;

  EXPECT_FALSE(dialogs::customBoxLayout({.fontWeight = 5}).style.bold);
  EXPECT_TRUE(dialogs::customBoxLayout({.fontWeight = 6}).style.bold);
  EXPECT_TRUE(dialogs::customBoxLayout({.fontWeight = 400}).style.bold);
  EXPECT_EQ(dialogs::customBoxLayout({.fontSize = 30}).style.pixelSize, 30);
  // Characters Mac OS Roman lacks become "?".
  EXPECT_EQ(dialogs::customBoxLayout({.msg = "caf\xC3\xA9 \xE2\x82\xAC \xD0\x96"}).text,
            "caf\xC3\xA9 \xE2\x82\xAC ?");

  auto cancel = [](const char* b2, const char* b3, int32_t def) {
    return dialogs::customBoxLayout({.button1 = "A", .button2 = b2, .button3 = b3,
                                     .defButton = def})
        .cancelItem;
  };
  // (Two buttons with DefButton 1 or 2, and three buttons, are Dialogs.CustomBoxGeometryAndKeys'.)
  EXPECT_EQ(cancel("B", "", 3), 0);
  EXPECT_EQ(cancel("", "C", 1), 0);  // items 1 and 3 shown, no cancel button

  // The pressed item answers its caption as passed; an empty Button1 shows "OK" but answers "".
  desktop.ui->boxAnswers = {3, 1};
  EXPECT_EQ(dialogs::msgBoxEx({.button1 = "A", .button3 = "C"}), "C");
  EXPECT_EQ(desktop.ui->boxes.back().shown, (std::array<bool, 3>{true, false, true}));
  EXPECT_EQ(dialogs::msgBoxEx({.button2 = "B"}), "");
  EXPECT_EQ(desktop.ui->boxes.back().buttons[0], "OK");
}

TEST(PromptFilter, KeysInTheirOrder) {
  using dialogs::promptKeyAction;
  const platform::PromptKey ret{13}, enter{3}, esc{27}, space{' '}, letter{'a'}, digit{'7'},
      left{28}, backspace{8}, tab{9}, pasteKey{'v', true}, copyKey{'C', true}, cutKey{'x', true},
      selectAll{'a', true}, forwardDelete{127};
  // Return and Enter: accept, unless input is required and the field is empty.
  EXPECT_EQ(promptKeyAction(0, ret, true), EntryKeyAction::Accept);
  EXPECT_EQ(promptKeyAction(8, ret, true), EntryKeyAction::Consume);
  EXPECT_EQ(promptKeyAction(8, enter, true), EntryKeyAction::Consume);
  EXPECT_EQ(promptKeyAction(8, enter, false), EntryKeyAction::Accept);
  // The clipboard keys come before every flag, so a paste reaches a numbers-only field.
  EXPECT_EQ(promptKeyAction(1 | 4, pasteKey, false), EntryKeyAction::Paste);
  EXPECT_EQ(promptKeyAction(1, copyKey, false), EntryKeyAction::Copy);
  EXPECT_EQ(promptKeyAction(1, cutKey, false), EntryKeyAction::Cut);
  EXPECT_EQ(promptKeyAction(1, esc, false), EntryKeyAction::Cancel);
  EXPECT_EQ(promptKeyAction(0, esc, false), EntryKeyAction::Cancel);
  // No spaces, with or without other flags.
  EXPECT_EQ(promptKeyAction(4, space, false), EntryKeyAction::Consume);
  EXPECT_EQ(promptKeyAction(4 | 2, space, false), EntryKeyAction::Consume);
  EXPECT_EQ(promptKeyAction(0, space, false), EntryKeyAction::Standard);
  // Numbers only: digits, arrows, Backspace and Tab; everything else is swallowed.
  for (auto key : {digit, left, backspace, tab})
    EXPECT_EQ(promptKeyAction(1, key, false), EntryKeyAction::Standard) << key.character;
  for (auto key : {letter, space, selectAll, forwardDelete})
    EXPECT_EQ(promptKeyAction(1 | 2, key, false), EntryKeyAction::Consume) << key.character;
  EXPECT_EQ(promptKeyAction(2, letter, false), EntryKeyAction::Standard);
  // Only the low byte of Flags counts.
  EXPECT_EQ(promptKeyAction(0x100, letter, false), EntryKeyAction::Standard);
}

TEST(Prompt, CutsAndCentres) {
  FakeDialogSession desktop;
  desktop.ui->screen = {1001, 601};
  desktop.ui->promptAnswers.push_back(std::vector<std::string>{std::string(300, 'z')});
  EXPECT_EQ(dialogs::prompt("Cap", "Say", std::string(300, 'd'), 2 | 0x108, -5, 99),
            std::string(255, 'z'));
  const platform::PromptSpec& spec = desktop.ui->prompts.back();
  ASSERT_EQ(spec.fields.size(), 1u);
  EXPECT_EQ(spec.fields[0].text, std::string(255, 'd'));
  EXPECT_EQ(spec.place.x, (1001 - 260) / 2);
  EXPECT_EQ(spec.place.y, (601 - 109) / 2);
}

TEST(Selectors, FilterForms) {
  dialogs::FileFilter f = dialogs::parseFileFilter(".txt, .RTF");
  EXPECT_EQ(f.extensions, (std::vector<std::string>{".txt", ".RTF"}));
  EXPECT_TRUE(f.matches("/a/b.TXT"));
  EXPECT_TRUE(f.matches("/a/b.rtf"));
  EXPECT_FALSE(f.matches("/a/b.doc"));
  EXPECT_FALSE(f.matches("/a.txt/b"));
  EXPECT_FALSE(dialogs::parseFileFilter("abc").restricts());
  EXPECT_FALSE(dialogs::parseFileFilter("").restricts());
  f = dialogs::parseFileFilter("TEXTPICTab");
  EXPECT_EQ(f.types, (std::vector<uint32_t>{0x54455854, 0x50494354}));
  EXPECT_EQ(dialogs::parseFileFilter(".a,.b,.c,.d,.e,.f,.g,.h,.i,.j,.k,.l").extensions.size(),
            10u);
  EXPECT_EQ(dialogs::parseFileFilter(std::string(60, 'T')).types.size(), 12u);

  // Types come from each file's Finder information.
  testing::ScratchFolder d;
  platform::FinderInfo text;
  text.setType(0x54455854);
  ASSERT_TRUE(platform::fileService().setFinderInfo(d.file("notes"), text));
  d.file("plain");
  f = dialogs::parseFileFilter("PICTTEXT");
  EXPECT_TRUE(f.matches(d.path() + "/notes"));
  EXPECT_FALSE(f.matches(d.path() + "/plain"));
  EXPECT_FALSE(f.matches(d.path() + "/missing"));
}

}  // namespace
}  // namespace tessel
