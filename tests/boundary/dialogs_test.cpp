// The dialogs as a movie meets them: real GTK windows in the host's process, driven with
// xdotool under a window manager, with screenshots of each kind kept as test artefacts.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "tests/boundary/boundary_support.h"
#include "tests/boundary/desktop_driver.h"

namespace tessel::testing {
namespace {

using host::Value;

// Every dialog once, with what a cancel answers; a progress copy of 64 MB when `progress`.
struct DialogCall {
  const char* method;
  std::vector<Value> args;
  int32_t cancelCode;  // -1: the answer is ""
};
std::vector<DialogCall> everyDialog(const TempDir& dir, bool progress) {
  const std::string folder = dir.str() + "/";
  dir.file("a.txt", "a");
  std::vector<DialogCall> calls = {
      {"tsMsgBox", {"Going?", "", "OK", "", 1}, -1},
      {"tsMsgBox", {"Going?", "", "YesNoCancel", "Caution", 1}, -1},
      {"tsMsgBoxEx", {"Going?", "", "A", "B", "C", "stop", 1, "", "", 12, 0, -1, 0}, -1},
      {"tsPrompt", {"c", "i", "typed", 0, -1, 0}, -1},
      {"tsLogIn", {"c", "i", "n", "p", 0, "N", "P", -1, 0}, -1},
      {"tsGetFilename", {"open", folder, "a.txt", "", 0, "Open", 0, -1, 0}, -1},
      {"tsGetFilename", {"save", folder, "new.txt", "", 0, "", 0, -1, 0}, -1},
      {"tsGetFolder", {folder, "", 0, "", -1, 0}, -1},
      {"tsGetDisk", {"", "", 0, -1, 0}, -1},
      {"tsGetFiles", {folder, "*.*", "a.txt", "", "", 0, -1, 0}, -1},
  };
  if (progress) {
    const std::string huge = dir.file("huge.bin", std::string(64 << 20, 'y')).string();
    calls.push_back({"tsCopyFileProgress", {huge, folder + "c.bin", "", "T", "Stop", 16}, 9});
  }
  return calls;
}

class Dialogs : public XtraTest {
 protected:
  void SetUp() override {
    const char* display = std::getenv("DISPLAY");
    if (display == nullptr || *display == '\0') GTEST_SKIP() << "no X display";
    XtraTest::SetUp();
  }

  // A call answered by one window: `drive` gets the window once it is up.
  Value answer(const std::string& method, std::vector<Value> args,
               const std::function<void(unsigned long)>& drive) {
    return withWindow([&] { return call(method, args); },
                      [&] {
                        unsigned long window = waitForWindow();
                        if (window == 0) {
                          ADD_FAILURE() << method << ": no window appeared";
                          return;
                        }
                        focus(window);
                        drive(window);
                        EXPECT_TRUE(waitWindowGone(window)) << method << ": window stayed";
                      });
  }

  SeenWindow shown() {
    auto windows = visibleWindows();
    EXPECT_EQ(windows.size(), 1u);
    return windows.empty() ? SeenWindow{} : windows.front();
  }

  std::vector<std::string> labels(const SeenWindow& w) {
    std::vector<std::string> out;
    for (const SeenButton& b : w.buttons) out.push_back(b.label);
    return out;
  }

  // The buttons that wear the theme's default-action style.
  std::vector<std::string> suggested(const SeenWindow& w) {
    std::vector<std::string> out;
    for (const SeenButton& b : w.buttons)
      if (b.suggested) out.push_back(b.label);
    return out;
  }

  // Whether the window shows a close button: the manager's frame has one (openbox draws it
  // whatever _MOTIF_WM_HINTS asks), else GTK's own title bar may.
  bool offersCloseButton(unsigned long window, const SeenWindow& seen) {
    const std::string extents =
        shell("xprop -id " + std::to_string(window) + " _NET_FRAME_EXTENTS 2>/dev/null");
    unsigned left = 0, right = 0, top = 0, bottom = 0;
    const size_t equals = extents.find('=');
    const bool framed = equals != std::string::npos &&
                        std::sscanf(extents.c_str() + equals + 1, " %u, %u, %u, %u", &left,
                                    &right, &top, &bottom) == 4 &&
                        left + right + top + bottom > 0;
    return framed || seen.titleBarClose == 1;
  }

  bool showsText(const SeenWindow& w, const std::string& text) {
    return std::find(w.texts.begin(), w.texts.end(), text) != w.texts.end();
  }

  void expectBrackets(int windows) {
    host::HostCounters c = host_->counters();
    EXPECT_EQ(c.resourcesBegun, windows);
    EXPECT_EQ(c.resourcesEnded, windows);
    EXPECT_EQ(c.modalDialogsBegun, windows);
    EXPECT_EQ(c.modalDialogsEnded, windows);
  }
};

TEST_F(Dialogs, MessageBoxButtonSetsDefaultsAndKeys) {
  call("tsMsgBoxButtons", {"", "", "Oui", "Non", "", "", ""});
  // Replacement captions show, from the right; Escape is ignored without a Cancel button.
  Value v = answer("tsMsgBox", {"Shall we?", "Question", "yesno", "Note", 0}, [&](unsigned long w) {
    SeenWindow seen = shown();
    EXPECT_EQ(seen.title, "Question");
    EXPECT_EQ(labels(seen), (std::vector<std::string>{"Non", "Oui"}));
    EXPECT_EQ(suggested(seen), std::vector<std::string>{"Oui"});
    EXPECT_FALSE(offersCloseButton(w, seen));
    screenshot("msgbox-yesno-note");
    keys("Escape");
    keys("alt+F4");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(windowViewable(w)) << "Escape or the close button closed a box without Cancel";
    keys("Return");
  });
  EXPECT_EQ(v.string(), "Yes");
  call("tsMsgBoxButtons", {"", "", "", "", "", "", ""});

  // Each set's captions from the right, a close button only with a Cancel button; the keys
  // answer as Return, the close button or keypad Enter would (Escape: tsMsgBox's example).
  struct Row {
    std::vector<Value> args;
    std::vector<std::string> labels;
    const char* keys;
    const char* answer;
  };
  const Row rows[] = {
      // "OK" with DefButton 2: Return answers the second name, still "No" from YesNo.
      {{"Done.", "", "OK", "", 2}, {"OK"}, "Return", "No"},
      {{"Save changes?", "Careful", "YesNoCancel", "Caution", 1}, {"Cancel", "No", "Yes"},
       "alt+F4", "Cancel"},
      // Enter on the keypad goes to the default, whichever button has the focus.
      {{"Disk error", "", "AbortRetryIgnore", "", 3}, {"Ignore", "Retry", "Abort"},
       "Tab KP_Enter", "Ignore"},
      {{"Again?", "", "RetryCancel", "", 0}, {"Cancel", "Retry"}, "Return", "Retry"},
  };
  for (const Row& row : rows) {
    const std::string set = row.args[2].string();
    v = answer("tsMsgBox", row.args, [&](unsigned long w) {
      SeenWindow seen = shown();
      EXPECT_EQ(labels(seen), row.labels) << set;
      EXPECT_EQ(offersCloseButton(w, seen),
                std::find(row.labels.begin(), row.labels.end(), "Cancel") != row.labels.end())
          << set;
      EXPECT_GE(geometryOf(w).width, 320) << set;  // a one-word alert is still a dialog's width
      screenshot("msgbox-" + set);
      keys(row.keys);
    });
    EXPECT_EQ(v.string(), row.answer) << set;
  }
  expectBrackets(5);
}

TEST_F(Dialogs, CustomBoxGeometryAndKeys) {
  // One line with an icon: the text bottom is raised to 80, so the client area is 460 x 160.
  Value v = answer("tsMsgBoxEx", {"Short.", "Custom", "Go", "Back", "", "stop", 1, "left",
                                  "Sans", 14, 7, 100, 120},
                   [&](unsigned long w) {
                     WindowGeometry g = clientAreaOnScreen();
                     EXPECT_EQ(g.x, 100);
                     EXPECT_EQ(g.y, 120);
                     EXPECT_EQ(g.width, 460);
                     EXPECT_EQ(g.height, 160);
                     SeenWindow seen = shown();
                     EXPECT_EQ(seen.title, "Custom");
                     ASSERT_EQ(seen.buttons.size(), 2u);
                     EXPECT_EQ(seen.buttons[0].label, "Go");  // item 1, on the right
                     EXPECT_EQ(seen.buttons[0].x, 315);
                     EXPECT_EQ(seen.buttons[0].y, 115);
                     EXPECT_EQ(seen.buttons[1].label, "Back");
                     EXPECT_EQ(seen.buttons[1].x, 170);
                     EXPECT_EQ(suggested(seen), std::vector<std::string>{"Go"});
                     EXPECT_TRUE(offersCloseButton(w, seen));
                     screenshot("msgboxex-icon-two-buttons");
                     keys("Escape");  // two buttons, DefButton 1: item 2 cancels
                   });
  EXPECT_EQ(v.string(), "Back");

  // Centred on the screen; three buttons: Escape does nothing, Return gives the default.
  v = answer("tsMsgBoxEx",
             {"A longer message that wraps over more than one line of the box, because it goes "
              "on and on.\rAnd a second paragraph.",
              "Centred", "One", "Two", "Three", "", 3, "Center", "Serif", 16, 4, -1, 999},
             [&](unsigned long w) {
               WindowGeometry g = clientAreaOnScreen();
               EXPECT_EQ(g.width, 460);
               EXPECT_GT(g.height, 120);
               EXPECT_EQ(g.x, (1280 - 460) / 2);
               EXPECT_EQ(g.y, (1024 - g.height) / 2);
               SeenWindow seen = shown();
               ASSERT_EQ(seen.buttons.size(), 3u);
               EXPECT_EQ(seen.buttons[2].label, "Three");  // item 3, on the left
               EXPECT_EQ(seen.buttons[2].x, 25);
               EXPECT_FALSE(offersCloseButton(w, seen));  // no cancel item
               screenshot("msgboxex-centred-three-buttons");
               keys("Escape");
               std::this_thread::sleep_for(std::chrono::milliseconds(200));
               EXPECT_TRUE(windowViewable(w));
               keys("Return");
             });
  EXPECT_EQ(v.string(), "Three");

  // Ctrl+period cancels with two buttons; DefButton 2 makes item 1 the cancel button.
  v = answer("tsMsgBoxEx", {"Dot.", "", "First", "Second", "", "NoIcon", 2, "r", "", 0, 0, 0, 0},
             [&](unsigned long) {
               // At (0, 0) the title bar stays on the screen, so the client area sits just
               // below it.
               WindowGeometry g = clientAreaOnScreen();
               EXPECT_LE(g.x, 5);
               EXPECT_LE(g.y, 60);
               keys("ctrl+period");
             });
  EXPECT_EQ(v.string(), "First");
  expectBrackets(3);
}

TEST_F(Dialogs, PromptFlagsAndClipboardKeys) {
  // Rows: the prompt's arguments, what is typed, the keys pressed one after another, the answer.
  // No spaces (4) swallows them (numbers only is tsPrompt's example); Ctrl+X cuts the selected
  // default text, Ctrl+V pastes it even into a numbers-only field, Ctrl+C copies.
  struct Row {
    std::vector<Value> args;
    std::string typed;
    std::vector<const char*> keys;
    const char* answer;
  };
  const Row rows[] = {
      {{"Word", "No spaces", "", 4, 10, 10}, "a b c", {"Return"}, "abc"},
      {{"", "", "letters", 0, -1, 0}, "", {"ctrl+x", "Return"}, ""},
      {{"", "", "", 1, -1, 0}, "", {"ctrl+v", "Return"}, "letters"},
      {{"", "", "copied", 0, -1, 0}, "", {"ctrl+c", "Escape"}, ""},
      {{"", "", "", 0, -1, 0}, "", {"ctrl+v", "Return"}, "copied"},
  };
  Value v;
  for (const Row& row : rows) {
    v = answer("tsPrompt", row.args, [&](unsigned long) {
      EXPECT_EQ(suggested(shown()), std::vector<std::string>{"OK"});
      if (row.typed == "a b c") screenshot("prompt-no-spaces");
      if (!row.typed.empty()) typeText(row.typed);
      for (const char* key : row.keys) keys(key);
    });
    EXPECT_EQ(v.string(), row.answer) << row.typed << " " << row.keys[0];
  }

  // Password: masked with bullets, the real text comes back.
  v = answer("tsPrompt", {"Secret", "Password", "abcd", 2, -1, 0}, [&](unsigned long) {
    SeenWindow seen = shown();
    ASSERT_EQ(seen.entries.size(), 1u);
    onGtkThread([&] {
      EXPECT_FALSE(gtk_entry_get_visibility(seen.entries[0]));
      EXPECT_EQ(gtk_entry_get_invisible_char(seen.entries[0]), 0x2022u);
    });
    screenshot("prompt-password");
    keys("End");
    typeText("e");
    keys("Return");
  });
  EXPECT_EQ(v.string(), "abcde");

  // Required input: OK dimmed and Return ignored while the field is empty.
  v = answer("tsPrompt", {"Required", "Type something", "", 8, -1, 0}, [&](unsigned long w) {
    SeenWindow seen = shown();
    for (const SeenButton& b : seen.buttons)
      if (b.label == "OK") {
        EXPECT_FALSE(b.sensitive);
      }
    screenshot("prompt-require-input");
    keys("Return");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(windowViewable(w));
    typeText("x");
    keys("Return");
  });
  EXPECT_EQ(v.string(), "x");

  // Escape cancels whatever was typed. The button a key stands for shows itself pressed for 8
  // ticks before the window goes.
  {
    ButtonPresses presses;
    v = answer("tsPrompt", {"", "", "typed", 0, -1, 0}, [&](unsigned long) {
      typeText("more");
      keys("Escape");
    });
    EXPECT_EQ(v.string(), "");
    v = answer("tsPrompt", {"", "", "kept", 0, -1, 0}, [&](unsigned long) { keys("KP_Enter"); });
    EXPECT_EQ(v.string(), "kept");
    auto seen = presses.presses();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].label, "Cancel");
    EXPECT_EQ(seen[1].label, "OK");
    for (const auto& press : seen) EXPECT_GE(press.heldMs, 125) << press.label;
  }

  expectBrackets(9);
}

TEST_F(Dialogs, SelectorsTakeTypedPathsAndAnswerInTheCurrentStyle) {
  TempDir dir;
  dir.file("a.txt", "a");
  dir.file("b.rtf", "b");
  dir.file("c.doc", "c");
  std::filesystem::create_directory(dir.path() / "\xE6\x97\xA5\xE6\x9C\xAC");
  unixNames(true);
  const std::string folder = dir.str() + "/";

  Value v = answer("tsGetFilename", {"open", folder, "a.txt", ".TXT,.rtf", 0, "Pick a text", 0,
                                     -1, 0},
                   [&](unsigned long) {
                     SeenWindow seen = shown();
                     EXPECT_TRUE(showsText(seen, "Pick a text"));
                     const auto marked = suggested(seen);
                     EXPECT_NE(std::find(marked.begin(), marked.end(), "_Open"), marked.end());
                     screenshot("getfilename-open");
                     typeText(folder + "b.rtf");
                     keys("Return");
                   });
  EXPECT_EQ(v.string(), folder + "b.rtf");

  // Several files: a list.
  v = answer("tsGetFilename", {"open", folder, "", "", 0x200, "", 0, -1, 0}, [&](unsigned long) {
    typeText(folder + "c.doc");
    keys("Return");
  });
  ASSERT_TRUE(v.isList());
  ASSERT_EQ(v.listPtr()->items.size(), 1u);
  EXPECT_EQ(v.listPtr()->items[0].string(), folder + "c.doc");

  v = answer("tsGetFolder", {folder, "Where?", 0, "Pick a folder", -1, 0}, [&](unsigned long) {
    SeenWindow seen = shown();
    EXPECT_EQ(seen.title, "Pick a folder");
    EXPECT_TRUE(showsText(seen, "Where?"));
    screenshot("getfolder");
    typeText(folder + "\xE6\x97\xA5\xE6\x9C\xAC/");  // 日本: a name outside Mac OS Roman
    keys("Return");
  });
  EXPECT_EQ(v.string(), folder + "\xE6\x97\xA5\xE6\x9C\xAC/");

  // A list chooser given a Unix Folder answers in the current style, HFS. (The disk list
  // starting on the start-up volume and the file list's preselected file taken by Return are the
  // examples of tsGetDisk and tsGetFiles.)
  unixNames(false);
  v = answer("tsGetFiles", {folder, "*.*", "b.rtf", "Files", "Pick one", 0, -1, 0},
             [&](unsigned long) {
               SeenWindow seen = shown();
               EXPECT_TRUE(showsText(seen, "Pick one"));
               EXPECT_EQ(suggested(seen), std::vector<std::string>{"OK"});
               screenshot("getfiles");
               keys("Return");
             });
  EXPECT_EQ(v.string(), text("tsHFSName", {folder + "b.rtf"}));
  expectBrackets(4);
}

TEST_F(Dialogs, ProgressCopyWindowHandlerAndCancel) {
  TempDir dir;
  // The window's Escape cancels. A handler that takes its time (100 percent steps of 30 ms) keeps
  // the copy going long enough for the key to arrive on a fast disk.
  movie_.handlers["tsCopyProgressUpdate"] = [](const std::vector<Value>&) {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    return Value();
  };
  const std::string huge = dir.file("huge.bin", std::string(64 << 20, 'y')).string();
  ButtonPresses presses;
  Value v = answer("tsCopyFileProgress", {huge, dir.str() + "/c.bin", "", "Copying", "Stop", 16},
                   [&](unsigned long) {
                     EXPECT_EQ(shown().title, "Copying");
                     screenshot("progress-copy");
                     keys("Escape");
                   });
  EXPECT_EQ(v.integer(), 9);
  auto seen = presses.presses();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].label, "Stop");
  EXPECT_GE(seen[0].heldMs, 125);

  // A click on the button and the window manager's close button cancel too.
  v = answer("tsCopyFileProgress", {huge, dir.str() + "/f.bin", "", "Copying", "Stop", 16},
             [&](unsigned long w) {
               SeenWindow shownNow = shown();
               ASSERT_EQ(shownNow.buttons.size(), 1u);
               const SeenButton& stop = shownNow.buttons[0];
               shell("xdotool mousemove --window " + std::to_string(w) + " " +
                     std::to_string(stop.x + 5) + " " + std::to_string(stop.y + 5) + " click 1");
             });
  EXPECT_EQ(v.integer(), 9);
  v = answer("tsCopyFileProgress", {huge, dir.str() + "/g.bin", "", "Copying", "Stop", 16},
             [&](unsigned long) { keys("alt+F4"); });
  EXPECT_EQ(v.integer(), 9);
  expectBrackets(3);
}

// A window that another client destroys ends its call with the dialog's cancel value, quietly,
// and the next window works as usual.
TEST_F(Dialogs, WindowsDestroyedFromOutsideGiveTheirCancelValue) {
  TempDir dir;
  const std::vector<DialogCall> cases = everyDialog(dir, true);
  movie_.handlers["tsCopyProgressUpdate"] = [](const std::vector<Value>&) {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    return Value();
  };
  StderrCapture err;
  for (const DialogCall& c : cases) {
    Value v = answer(c.method, c.args, [&](unsigned long w) {
      const std::string method = c.method;
      if (method == "tsLogIn" || method == "tsGetDisk") screenshot(method == "tsLogIn" ? "login" : "getdisk");
      shell("xdotool windowclose " + std::to_string(w));
    });
    if (c.cancelCode >= 0) {
      EXPECT_EQ(v.integer(), c.cancelCode) << c.method;
    } else {
      ASSERT_TRUE(v.isString()) << c.method;
      EXPECT_EQ(v.string(), "") << c.method;
    }
  }
  const std::string printed = err.text();
  EXPECT_EQ(printed.find("CRITICAL"), std::string::npos) << printed;
  EXPECT_EQ(printed.find("WARNING"), std::string::npos) << printed;
  Value v = answer("tsMsgBox", {"Still here.", "", "OK", "", 1},
                   [&](unsigned long) { keys("Return"); });
  EXPECT_EQ(v.string(), "OK");
  expectBrackets(static_cast<int>(cases.size()) + 1);
}

// Without a display every dialog answers its cancel value at once and takes no bracket.
class DialogsWithoutDisplay : public XtraTest {
 protected:
  void SetUp() override {
    unsetenv("DISPLAY");
    XtraTest::SetUp();
  }
};

TEST_F(DialogsWithoutDisplay, EveryDialogAnswersAtOnce) {
  TempDir dir;
  for (const DialogCall& c : everyDialog(dir, false)) {
    const auto start = std::chrono::steady_clock::now();
    Value v = call(c.method, c.args);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::steady_clock::now() - start)
                        .count();
    EXPECT_LT(ms, 1000) << c.method;  // no wait for a user
    ASSERT_TRUE(v.isString()) << c.method;
    EXPECT_EQ(v.string(), "") << c.method;
  }
  Value list = call("tsGetFilename", {"open", dir.str(), "", "", 0x200, "", 0, -1, 0});
  ASSERT_TRUE(list.isList());  // several files were asked for
  EXPECT_TRUE(list.listPtr()->items.empty());
  host::HostCounters c = host_->counters();
  EXPECT_EQ(c.resourcesBegun + c.resourcesEnded + c.modalDialogsBegun + c.modalDialogsEnded, 0);
}

// What a movie set in one session is gone in the next: a host that unloads the module and loads
// it again finds every piece of the session at its default. Each row sets its piece in the first
// session and checks the default in the second. (The kiosk's changes are put back as the session
// ends: Kiosk.SwitchingKeysGoToTheStageAndUnloadingPutsEverythingBack, with a host that has a stage.)
TEST_F(Dialogs, ANewSessionStartsWithTheDefaults) {
  TempDir dir;
  dir.file("one.txt", "1");
  dir.file("two.txt", "2");
  const std::string folder = dir.str();
  struct Piece {
    const char* name;
    std::function<void()> set, expectDefault;
  };
  // (The path style's default in the next session is Reentrancy.TwoInstancesShareTheModulesSession's.)
  const Piece pieces[] = {
      {"open search",
       [&] { ASSERT_FALSE(text("tsFindFirstFile", {Value(folder), Value("*.txt")}).empty()); },
       [&] { EXPECT_EQ(text("tsFindNextFile"), ""); }},
      // A box of no standard set answers the names of the last recognised set (checked before
      // the next row's box sets them again).
      {"last alert's button names",
       [&] {
         Value v = answer("tsMsgBox", {"First?", "", "YesNo", "", 1},
                          [&](unsigned long) { keys("Return"); });
         EXPECT_EQ(v.string(), "Yes");
       },
       [&] {
         Value v = answer("tsMsgBox", {"Plain?", "", "plain", "", 1}, [&](unsigned long) {
           EXPECT_EQ(labels(shown()), (std::vector<std::string>{"OK"}));  // the standard caption
           keys("Return");
         });
         EXPECT_EQ(v.string(), "");
       }},
      {"button captions", [&] { call("tsMsgBoxButtons", {"Bien", "", "Oui", "Non", "", "", ""}); },
       [&] {
         answer("tsMsgBox", {"Again?", "", "yesno", "", 0}, [&](unsigned long) {
           EXPECT_EQ(labels(shown()), (std::vector<std::string>{"No", "Yes"}));
           keys("Return");
         });
       }},
  };
  for (const Piece& piece : pieces) {
    SCOPED_TRACE(piece.name);
    piece.set();
  }

  host_->unloadAll();
  host_ = std::make_unique<host::Host>(options_);
  host_->setMovie(&movie_);
  ASSERT_EQ(host_->loadXtras(xtrasFolder()), 1);
  for (const Piece& piece : pieces) {
    SCOPED_TRACE(piece.name);
    piece.expectDefault();
  }
}

}  // namespace
}  // namespace tessel::testing
