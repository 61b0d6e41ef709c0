// The desktop's windows as the dialogs and the progress copies use them: message boxes, the
// prompt, file choosers, list choosers and the progress window. The GTK backend shows real
// windows; tests put a fake in its place. Every operation shows one window, runs it to its end,
// destroys it and returns; nothing stays on screen between calls.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessel::platform {

enum class DialogIcon { None, Note, Caution, Stop };

// Where a window goes: centred by the caller's arithmetic or placed, both as the client area's
// top-left corner in screen pixels; `systemDefault` leaves it to the window manager.
struct WindowPlace {
  bool systemDefault = true;
  int32_t x = 0, y = 0;
};

// A standard alert: buttons from the right, first to third (up to three).
struct AlertSpec {
  std::string message, title;  // an empty title keeps the window's own
  DialogIcon icon = DialogIcon::None;
  std::vector<std::string> buttons;
  int32_t returnButton = 1;  // what Return and Enter answer, shown or not
  int32_t cancelButton = 0;  // what Escape and the close button answer; 0: both ignored
};

// The custom message box: a fixed 460-pixel client area with everything placed by the caller.
struct TextStyle {
  std::string fontName;
  int32_t pixelSize = 12;
  bool bold = false;
};
enum class TextAlign { Left, Centre, Right };
struct TextMeasure {
  int32_t lines = 0;
  int32_t lineHeight = 0;
};
struct CustomBoxSpec {
  std::string title, text;  // text in UTF-8, CR and LF break lines
  TextStyle style;
  TextAlign align = TextAlign::Left;
  int32_t textLeft = 25, textTop = 25, textRight = 435;
  int32_t width = 460, height = 0;
  DialogIcon icon = DialogIcon::None;  // drawn 50 x 50 at (25, 25)
  std::array<std::string, 3> buttons;  // items 1-3
  std::array<bool, 3> shown{};
  std::array<int32_t, 3> buttonLeft{};
  int32_t buttonTop = 0;
  int32_t defaultItem = 0;  // Return and Enter; 0: none
  int32_t cancelItem = 0;   // Escape, Ctrl+period and the close button; 0: none
  WindowPlace place;
};

// A key as the prompt's filter sees it: the character code of the key (13 Return, 3 Enter,
// 27 Escape, 8 Backspace, 9 Tab, 28-31 arrows, 0 for keys without one) and the Command key,
// which Ctrl stands for.
struct PromptKey {
  uint32_t character = 0;
  bool command = false;
};
enum class EntryKeyAction { Standard, Consume, Accept, Cancel, Paste, Copy, Cut };

struct PromptField {
  std::string caption, text;
  bool masked = false;
};
struct PromptSpec {
  std::string title, instruction;
  std::vector<PromptField> fields;  // the first one has the focus, its text selected
  bool requireInput = false;        // OK dimmed while the first field is empty
  // Runs before the focused field's own handling of every key; the text is the first field's,
  // the one RequireInput looks at.
  std::function<EntryKeyAction(const PromptKey&, const std::string& text)> filter;
  int32_t width = 260, height = 109;
  WindowPlace place;
};

enum class ChooserMode { Open, Save, Folder };
struct FileChooserSpec {
  ChooserMode mode = ChooserMode::Open;
  std::string title, instruction;
  std::string startFolder;  // Linux path; "" for the chooser's own default
  std::string selectPath;   // Open: an existing item to select
  std::string proposedName;  // Save
  bool multiple = false;
  // Open only: which files show (folders always show); empty for all.
  std::function<bool(const std::string& path)> filter;
  WindowPlace place;
};

struct ListChooserSpec {
  std::string title, instruction;
  std::vector<std::string> rows;
  std::vector<std::string> icons;  // theme icon names per row, or empty
  int32_t selected = -1;
  WindowPlace place;
};

// The progress window of a copy. Flags 1 and 2 choose the layout.
struct ProgressSpec {
  std::string title, buttonText;
  int32_t layout = 0;  // 0-3
};
class ProgressWindow {
 public:
  virtual ~ProgressWindow() = default;  // destroys the window
  virtual void setName(const std::string& name) = 0;
  virtual void setPercent(int32_t percent) = 0;
  // Runs the pending events without blocking; true once the button, Escape or the close button
  // asked to cancel.
  virtual bool poll() = 0;
};

class UiService {
 public:
  virtual ~UiService() = default;
  // False without a usable display; every dialog then answers its cancel value at once.
  virtual bool available() = 0;
  // The primary monitor's width and height.
  virtual std::pair<int32_t, int32_t> screenSize() = 0;
  // Lays text out with word wrap in a box `width` pixels wide.
  virtual TextMeasure measureText(const std::string& text, const TextStyle& style,
                                  int32_t width) = 0;

  // The button number pressed (1-3).
  virtual int32_t alert(const AlertSpec& spec) = 0;
  // The item pressed (1-3).
  virtual int32_t customBox(const CustomBoxSpec& spec) = 0;
  // The fields' texts on OK, nothing on Cancel.
  virtual std::optional<std::vector<std::string>> prompt(const PromptSpec& spec) = 0;
  // Linux paths of the chosen items; empty on cancel.
  virtual std::vector<std::string> chooseFiles(const FileChooserSpec& spec) = 0;
  // The chosen row, or -1.
  virtual int32_t chooseFromList(const ListChooserSpec& spec) = 0;
  // A shown progress window, or nullptr when none can be shown.
  virtual std::unique_ptr<ProgressWindow> openProgress(const ProgressSpec& spec) = 0;
  // The theme icon name that stands for a mounted volume.
  virtual std::string volumeIcon(const std::string&) { return "drive-harddisk"; }
  // Waits, running the window events meanwhile.
  virtual void pause(int32_t milliseconds) = 0;
};

UiService& uiService();
std::unique_ptr<UiService> setUiService(std::unique_ptr<UiService> service);
std::unique_ptr<UiService> makeGtkUiService();

// What the module's host does around every window and for the progress handler. The frame
// installs its own; without one the bracket does nothing and no handler is called.
class HostHooks {
 public:
  virtual ~HostHooks() = default;
  virtual void beginWindow() {}
  virtual void endWindow() {}
  enum class HandlerAnswer { Continue, Cancel };
  virtual HandlerAnswer progressUpdate(int32_t, const std::string&) {
    return HandlerAnswer::Continue;
  }
  // Whether the user asked the running script to stop: waits inside a call then end.
  virtual bool interruptRequested() { return false; }
};
HostHooks& hostHooks();
// Not owned; nullptr restores the default.
void setHostHooks(HostHooks* hooks);

// The bracket around one window, begun and ended in pairs.
class WindowBracket {
 public:
  WindowBracket() { hostHooks().beginWindow(); }
  ~WindowBracket() { hostHooks().endWindow(); }
  WindowBracket(const WindowBracket&) = delete;
  WindowBracket& operator=(const WindowBracket&) = delete;
};

}  // namespace tessel::platform
