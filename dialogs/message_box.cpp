#include "dialogs/message_box.h"

#include <algorithm>
#include <array>

#include "dialogs/dialog_support.h"
#include "support/session.h"
#include "support/text.h"
#include "platform/text_encoding.h"
#include "platform/ui.h"

namespace tessel::dialogs {
namespace {

using support::equalsIgnoringCase;
using platform::DialogIcon;

constexpr size_t kCaptionLen = 23;
constexpr size_t kTitleLen = 63;
constexpr int32_t kMaxFontSize = 1000;

enum Slot { kOK, kCancel, kYes, kNo, kRetry, kIgnore, kAbort };

// The session's part: the captions shown on the standard buttons, and the names of the buttons
// of the last alert whose button set was recognised.
struct Session {
  std::array<std::string, 7> captions;
  std::array<std::string, 3> pressed;
};
Session& session() { return support::session().part<Session>(); }
std::array<std::string, 7>& buttonCaptions() { return session().captions; }
std::array<std::string, 3>& pressedNames() { return session().pressed; }

std::string captionOr(Slot slot, const char* standard) {
  const std::string& caption = buttonCaptions()[slot];
  return caption.empty() ? standard : caption;
}

DialogIcon alertIcon(std::string_view icon) {
  DialogIcon kind = DialogIcon::None;
  if (equalsIgnoringCase(icon, "Note") || equalsIgnoringCase(icon, "Information") ||
      equalsIgnoringCase(icon, "Question"))
    kind = DialogIcon::Note;
  if (equalsIgnoringCase(icon, "Caution") || equalsIgnoringCase(icon, "Exclamation"))
    kind = DialogIcon::Caution;
  if (equalsIgnoringCase(icon, "Stop")) kind = DialogIcon::Stop;
  return kind;
}

}  // namespace

std::string msgBox(std::string_view msg, std::string_view caption, std::string_view buttons,
                   std::string_view icon, int32_t defButton) {
  platform::AlertSpec spec;
  spec.icon = alertIcon(icon);
  spec.title = cutUtf8(caption, kTitleLen);
  spec.message = std::string(msg);

  auto& names = pressedNames();
  auto set = [&](std::initializer_list<const char*> pressed) {
    size_t i = 0;
    for (const char* name : pressed) names[i++] = name;
  };
  if (equalsIgnoringCase(buttons, "OKCancel")) {
    set({"OK", "Cancel"});
    spec.buttons = {captionOr(kOK, "OK"), captionOr(kCancel, "Cancel")};
    spec.cancelButton = 2;
  } else if (equalsIgnoringCase(buttons, "YesNo")) {
    set({"Yes", "No"});
    spec.buttons = {captionOr(kYes, "Yes"), captionOr(kNo, "No")};
  } else if (equalsIgnoringCase(buttons, "YesNoCancel")) {
    set({"Yes", "No", "Cancel"});
    spec.buttons = {captionOr(kYes, "Yes"), captionOr(kNo, "No"), captionOr(kCancel, "Cancel")};
    spec.cancelButton = 3;
  } else if (equalsIgnoringCase(buttons, "AbortRetryIgnore")) {
    set({"Abort", "Retry", "Ignore"});
    spec.buttons = {captionOr(kAbort, "Abort"), captionOr(kRetry, "Retry"),
                    captionOr(kIgnore, "Ignore")};
  } else if (equalsIgnoringCase(buttons, "RetryCancel")) {
    set({"Retry", "Cancel"});
    spec.buttons = {captionOr(kRetry, "Retry"), captionOr(kCancel, "Cancel")};
    spec.cancelButton = 2;
  } else {
    // "OK" sets the first name; any other word keeps all three, with one OK button.
    if (equalsIgnoringCase(buttons, "OK")) set({"OK"});
    spec.buttons = {captionOr(kOK, "OK")};
  }
  spec.returnButton = defButton > 0 ? defButton : 1;

  platform::UiService& ui = platform::uiService();
  if (!ui.available()) return "";
  int32_t pressed = 0;
  {
    platform::WindowBracket bracket;
    pressed = ui.alert(spec);
  }
  if (pressed >= 1 && pressed <= 3) return names[pressed - 1];
  return "";
}

void msgBoxButtons(std::string_view ok, std::string_view cancel, std::string_view yes,
                   std::string_view no, std::string_view retry, std::string_view ignore,
                   std::string_view abort) {
  auto& captions = buttonCaptions();
  const std::string_view given[7] = {ok, cancel, yes, no, retry, ignore, abort};
  for (size_t i = 0; i < 7; ++i) captions[i] = cutUtf8(given[i], kCaptionLen);
}

platform::CustomBoxSpec customBoxLayout(const MsgBoxExOptions& o) {
  platform::CustomBoxSpec spec;
  spec.title = o.caption;
  spec.style.fontName = o.fontName;
  // Past 1,000 pixels Pango and FreeType give up (and the text's height could pass 2^31).
  spec.style.pixelSize = o.fontSize > 0 ? std::min(o.fontSize, kMaxFontSize) : 12;
  spec.style.bold = o.fontWeight > 5;
  // The text as the box draws it: Mac OS Roman, with CR breaking lines.
  spec.text = platform::macRomanToUtf8(platform::utf8ToMacRoman(o.msg));
  std::replace(spec.text.begin(), spec.text.end(), '\r', '\n');

  const char first = o.alignment.empty() ? '\0' : o.alignment.front();
  spec.align = (first == 'r' || first == 'R')   ? platform::TextAlign::Right
               : (first == 'c' || first == 'C') ? platform::TextAlign::Centre
                                                : platform::TextAlign::Left;

  const std::string icon = cutUtf8(o.icon, 20);
  const bool iconShown = !icon.empty() && !equalsIgnoringCase(icon, "NoIcon");
  if (iconShown) {
    spec.icon = (equalsIgnoringCase(icon, "Caution") || equalsIgnoringCase(icon, "Exclamation"))
                    ? DialogIcon::Caution
                : equalsIgnoringCase(icon, "stop") ? DialogIcon::Stop
                                                   : DialogIcon::Note;
  }
  spec.textLeft = iconShown ? 100 : 25;
  spec.textTop = 25;
  spec.textRight = 435;
  const platform::TextMeasure measure =
      platform::uiService().measureText(spec.text, spec.style, spec.textRight - spec.textLeft);
  int32_t textBottom = 25 + measure.lines * measure.lineHeight;
  if (iconShown && textBottom < 80) textBottom = 80;
  // A text taller than the screen is cut at its bottom: the buttons stay on the screen (and the
  // window within what X11 can map).
  const int32_t screenHeight = platform::uiService().screenSize().second;
  if (screenHeight > 160) textBottom = std::min(textBottom, screenHeight - 80);

  spec.width = 460;
  spec.height = textBottom + 80;
  spec.buttonTop = textBottom + 35;
  spec.buttonLeft = {315, 170, 25};
  spec.buttons = {o.button1.empty() ? std::string("OK") : o.button1, o.button2, o.button3};
  spec.shown = {true, !o.button2.empty(), !o.button3.empty()};
  spec.defaultItem = o.defButton;
  if (spec.shown[1] && !spec.shown[2])
    spec.cancelItem = o.defButton == 1 ? 2 : o.defButton == 2 ? 1 : 0;
  spec.place = placeOwnWindow(o.xPos, o.yPos, spec.width, spec.height);
  return spec;
}

std::string msgBoxEx(const MsgBoxExOptions& options) {
  platform::UiService& ui = platform::uiService();
  if (!ui.available()) return "";
  const platform::CustomBoxSpec spec = customBoxLayout(options);
  int32_t item = 0;
  {
    platform::WindowBracket bracket;
    item = ui.customBox(spec);
  }
  switch (item) {
    case 1: return options.button1;
    case 2: return options.button2;
    case 3: return options.button3;
    default: return "";
  }
}

}  // namespace tessel::dialogs
