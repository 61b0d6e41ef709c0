// The dialogs' logic against a fake desktop: button sets and their names, the custom box's
// layout, the prompt's key filter, the selectors' filters and results.
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

TEST(MessageBoxes, ButtonSetsCaptionsAndTheNamesTheyAnswer) {
  FakeDialogSession desktop;
  dialogs::msgBoxButtons("", "", "", "", "", "", "");
  struct Case {
    const char* buttons;
    std::vector<std::string> shown;
    int32_t cancel;
    int32_t press;
    const char* answer;
  };
  const Case cases[] = {
      {"okcancel", {"OK", "Cancel"}, 2, 2, "Cancel"},
      {"YESNO", {"Yes", "No"}, 0, 1, "Yes"},
      {"YesNoCancel", {"Yes", "No", "Cancel"}, 3, 3, "Cancel"},
      {"AbortRetryIgnore", {"Abort", "Retry", "Ignore"}, 0, 2, "Retry"},
      {"RetryCancel", {"Retry", "Cancel"}, 2, 1, "Retry"},
      {"OK", {"OK"}, 0, 1, "OK"},
  };
  for (const Case& c : cases) {
    desktop.ui->alertAnswers.push_back(c.press);
    EXPECT_EQ(dialogs::msgBox("m", "", c.buttons, "", 0), c.answer) << c.buttons;
    EXPECT_EQ(desktop.ui->alerts.back().buttons, c.shown) << c.buttons;
    EXPECT_EQ(desktop.ui->alerts.back().cancelButton, c.cancel) << c.buttons;
    EXPECT_EQ(desktop.ui->alerts.back().returnButton, 1) << c.buttons;
  }
  // Every box took one bracket, closed before the call returned.
  EXPECT_EQ(desktop.hooks.begun, 6);
  EXPECT_EQ(desktop.hooks.ended, 6);
  EXPECT_EQ(desktop.hooks.deepest, 1);
}

TEST(MessageBoxes, NamesCarryOverAndReturnGoesToTheDefaultNumber) {
  FakeDialogSession desktop;
  desktop.ui->alertAnswers = {1, 1, 2, 4};
  dialogs::msgBox("", "", "YesNo", "", 0);
  // An unknown set shows one OK button but answers the name the last known set left.
  EXPECT_EQ(dialogs::msgBox("", "", "", "", 0), "Yes");
  EXPECT_EQ(desktop.ui->alerts.back().buttons, std::vector<std::string>{"OK"});
  // "OK" with DefButton 2: Return answers number 2, which is still "No" from YesNo.
  EXPECT_EQ(dialogs::msgBox("", "", "OK", "", 2), "No");
  EXPECT_EQ(desktop.ui->alerts.back().returnButton, 2);
  EXPECT_EQ(dialogs::msgBox("", "", "OK", "", -3), "");  // no such button
  EXPECT_EQ(desktop.ui->alerts.back().returnButton, 1);
}

TEST(MessageBoxes, ReplacementCaptionsShowButTheStandardNamesAnswer) {
  FakeDialogSession desktop;
  dialogs::msgBoxButtons("", "", "Oui", "Non", "", "", "ThisCaptionIsLongerThan23Bytes");
  desktop.ui->alertAnswers = {2, 1};
  EXPECT_EQ(dialogs::msgBox("", "", "YesNo", "", 0), "No");
  EXPECT_EQ(desktop.ui->alerts.back().buttons, (std::vector<std::string>{"Oui", "Non"}));
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

TEST(MessageBoxes, WithoutADisplayEveryBoxAnswersAtOnceWithoutABracket) {
  FakeDialogSession desktop;
  desktop.ui->display = false;
  EXPECT_EQ(dialogs::msgBox("m", "c", "OKCancel", "Stop", 1), "");
  EXPECT_EQ(dialogs::msgBoxEx({.msg = "m", .button1 = "A"}), "");
  EXPECT_EQ(dialogs::prompt("c", "i", "default", 0, -1, 0), "");
  EXPECT_FALSE(dialogs::logIn({.defaultName = "n"}).ok);
  EXPECT_EQ(desktop.hooks.begun, 0);
  EXPECT_TRUE(desktop.ui->alerts.empty() && desktop.ui->boxes.empty() &&
              desktop.ui->prompts.empty());
}

TEST(CustomBox, LayoutFollowsTheTextAndTheIcon) {
  FakeDialogSession desktop;
  desktop.ui->measure = {3, 15};  // three lines of 15 pixels: text bottom 70
  dialogs::MsgBoxExOptions o{.msg = "a\rb", .button1 = "One", .button2 = "Two",
                             .xPos = 10, .yPos = 20};
  platform::CustomBoxSpec spec = dialogs::customBoxLayout(o);
  EXPECT_EQ(spec.text, "a\nb");
  EXPECT_EQ(spec.textLeft, 25);
  EXPECT_EQ(desktop.ui->measuredWidth, 410);
  EXPECT_EQ(spec.width, 460);
  EXPECT_EQ(spec.height, 150);
  EXPECT_EQ(spec.buttonTop, 105);
  EXPECT_EQ(spec.buttonLeft, (std::array<int32_t, 3>{315, 170, 25}));
  EXPECT_EQ(spec.shown, (std::array<bool, 3>{true, true, false}));
  EXPECT_FALSE(spec.place.systemDefault);
  EXPECT_EQ(spec.place.x, 10);
  EXPECT_EQ(spec.place.y, 20);
  EXPECT_EQ(spec.style.pixelSize, 12);

  // An icon moves the text to 100 and raises a short text's bottom to 80.
  o.icon = "Exclamation";
  spec = dialogs::customBoxLayout(o);
  EXPECT_EQ(spec.textLeft, 100);
  EXPECT_EQ(desktop.ui->measuredWidth, 335);
  EXPECT_EQ(spec.height, 160);
  EXPECT_EQ(spec.icon, DialogIcon::Caution);
  o.icon = "NOICON";
  EXPECT_EQ(dialogs::customBoxLayout(o).icon, DialogIcon::None);
  o.icon = "whatever";
  EXPECT_EQ(dialogs::customBoxLayout(o).icon, DialogIcon::Note);

  // Centred: the remainder of the halving dropped; Y ignored.
  desktop.ui->screen = {1025, 769};
  desktop.ui->measure = {1, 15};
  o.icon = "";
  o.xPos = -1;
  o.yPos = 500;
  spec = dialogs::customBoxLayout(o);
  EXPECT_EQ(spec.height, 120);  // below 80 is allowed without an icon
  EXPECT_EQ(spec.place.x, (1025 - 460) / 2);
  EXPECT_EQ(spec.place.y, (769 - 120) / 2);
  // A text taller than the screen is cut so that the box fits it, buttons included.
  desktop.ui->measure = {2000, 15};
  spec = dialogs::customBoxLayout(o);
  EXPECT_EQ(spec.height, 769);
  EXPECT_EQ(spec.buttonTop, 769 - 80 + 35);
}

TEST(CustomBox, AlignmentFontAndTheCancelButton) {
  FakeDialogSession desktop;
  auto align = [](const char* word) {
    return dialogs::customBoxLayout({.alignment = word}).align;
  };
  EXPECT_EQ(align("Right"), platform::TextAlign::Right);
  EXPECT_EQ(align("rubbish"), platform::TextAlign::Right);
  EXPECT_EQ(align("c"), platform::TextAlign::Centre);
  EXPECT_EQ(align("Left"), platform::TextAlign::Left);
  EXPECT_EQ(align(""), platform::TextAlign::Left);
  EXPECT_EQ(align("x"), platform::TextAlign::Left);

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
  EXPECT_EQ(cancel("B", "", 1), 2);
  EXPECT_EQ(cancel("B", "", 2), 1);
  EXPECT_EQ(cancel("B", "", 3), 0);
  EXPECT_EQ(cancel("B", "C", 1), 0);
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

TEST(Prompt, FieldsPlacesAndResults) {
  FakeDialogSession desktop;
  desktop.ui->screen = {1001, 601};
  desktop.ui->promptAnswers.push_back(std::vector<std::string>{std::string(300, 'z')});
  EXPECT_EQ(dialogs::prompt("Cap", "Say", std::string(300, 'd'), 2 | 0x108, -5, 99),
            std::string(255, 'z'));
  const platform::PromptSpec& spec = desktop.ui->prompts.back();
  EXPECT_EQ(spec.title, "Cap");
  ASSERT_EQ(spec.fields.size(), 1u);
  EXPECT_TRUE(spec.fields[0].masked);
  EXPECT_EQ(spec.fields[0].text, std::string(255, 'd'));
  EXPECT_TRUE(spec.requireInput);
  EXPECT_EQ(spec.place.x, (1001 - 260) / 2);
  EXPECT_EQ(spec.place.y, (601 - 109) / 2);
  // The filter it carries is the flags' filter.
  EXPECT_EQ(spec.filter({13, false}, ""), EntryKeyAction::Consume);

  desktop.ui->promptAnswers.push_back(std::nullopt);
  EXPECT_EQ(dialogs::prompt("", "", "typed", 0, 0, 0), "");

  desktop.ui->promptAnswers.push_back(std::vector<std::string>{"me", "secret"});
  dialogs::LogInResult login = dialogs::logIn(
      {.defaultName = "n", .defaultPassword = "p", .nameCaption = "Name:",
       .passwordCaption = "Password:", .x = 3, .y = 4});
  EXPECT_TRUE(login.ok);
  EXPECT_EQ(login.name, "me");
  EXPECT_EQ(login.password, "secret");
  const platform::PromptSpec& two = desktop.ui->prompts.back();
  ASSERT_EQ(two.fields.size(), 2u);
  EXPECT_EQ(two.fields[0].caption, "Name:");
  EXPECT_FALSE(two.fields[0].masked);
  EXPECT_TRUE(two.fields[1].masked);
  EXPECT_EQ(two.place.x, 3);
  EXPECT_EQ(two.place.y, 4);
  EXPECT_EQ(desktop.hooks.begun, 3);
  EXPECT_EQ(desktop.hooks.ended, 3);
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

TEST(Selectors, ChoicesComeBackInTheCurrentStyle) {
  FakeDialogSession desktop;
  paths::setReturnUnixNames(true);
  desktop.ui->chooserAnswers = {{"/tmp"}, {"/etc/hostname", "/etc/passwd"}, {}};
  EXPECT_EQ(dialogs::getFolder("/nonexistent/folder", "Pick", 0, "", -1, 0), "/tmp/");
  EXPECT_EQ(desktop.ui->choosers.back().mode, platform::ChooserMode::Folder);
  EXPECT_EQ(desktop.ui->choosers.back().startFolder, "");
  EXPECT_TRUE(desktop.ui->choosers.back().place.systemDefault);

  bool several = false;
  auto chosen = dialogs::getFilename(
      {.operation = "open", .startDir = "/etc", .filename = "hostname", .filter = ".conf",
       .flags = 0x200, .x = 5, .y = 6},
      several);
  EXPECT_TRUE(several);
  EXPECT_EQ(chosen, (std::vector<std::string>{"/etc/hostname", "/etc/passwd"}));
  const platform::FileChooserSpec& open = desktop.ui->choosers.back();
  EXPECT_TRUE(open.multiple);
  EXPECT_EQ(open.startFolder, "/etc");
  EXPECT_EQ(open.selectPath, "/etc/hostname");
  ASSERT_TRUE(static_cast<bool>(open.filter));
  EXPECT_FALSE(open.place.systemDefault);

  // Flags -1 is 0; "SAVE" proposes the name; cancel gives nothing.
  chosen = dialogs::getFilename({.operation = "SAVE", .filename = "new.txt", .flags = -1},
                                several);
  EXPECT_FALSE(several);
  EXPECT_TRUE(chosen.empty());
  EXPECT_EQ(desktop.ui->choosers.back().mode, platform::ChooserMode::Save);
  EXPECT_EQ(desktop.ui->choosers.back().proposedName, "new.txt");
  EXPECT_EQ(desktop.hooks.begun, 3);
  EXPECT_EQ(desktop.hooks.ended, 3);
  paths::setReturnUnixNames(false);
}

TEST(Selectors, DiskListPreselectsTheStartupVolume) {
  FakeDialogSession desktop;
  paths::setReturnUnixNames(true);
  desktop.ui->listAnswers = {0};
  EXPECT_EQ(dialogs::getDisk("", "Which?", 0, -1, 0), "/");
  const platform::ListChooserSpec& list = desktop.ui->lists.back();
  ASSERT_FALSE(list.rows.empty());
  EXPECT_EQ(list.selected, 0);
  EXPECT_EQ(list.icons.size(), list.rows.size());
  EXPECT_EQ(list.instruction, "Which?");
  EXPECT_EQ(dialogs::getDisk("", "", 0, -1, 0), "");  // cancelled
  paths::setReturnUnixNames(false);
}

}  // namespace
}  // namespace tessel
