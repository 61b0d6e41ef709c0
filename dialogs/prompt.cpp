#include "dialogs/prompt.h"

#include "dialogs/dialog_support.h"
#include "platform/ui.h"

namespace tessel::dialogs {
namespace {

constexpr size_t kTextLen = 255;
constexpr int32_t kPromptWidth = 260, kPromptHeight = 109;

platform::PromptSpec promptSpec(std::string_view caption, std::string_view instruction,
                                int32_t flags, int32_t x, int32_t y) {
  platform::PromptSpec spec;
  spec.title = cutUtf8(caption, kTextLen);
  spec.instruction = cutUtf8(instruction, kTextLen);
  const int32_t lowByte = flags & 0xFF;
  spec.requireInput = (lowByte & kPromptRequireInput) != 0;
  spec.filter = [lowByte](const platform::PromptKey& key, const std::string& text) {
    return promptKeyAction(lowByte, key, text.empty());
  };
  spec.width = kPromptWidth;
  spec.height = kPromptHeight;
  spec.place = placeOwnWindow(x, y, kPromptWidth, kPromptHeight);
  return spec;
}

}  // namespace

platform::EntryKeyAction promptKeyAction(int32_t flags, const platform::PromptKey& key,
                                    bool fieldEmpty) {
  using platform::EntryKeyAction;
  const uint32_t c = key.character;
  if (c == 13 || c == 3)
    return (flags & kPromptRequireInput) && fieldEmpty ? EntryKeyAction::Consume : EntryKeyAction::Accept;
  if (key.command) {
    if (c == 'v' || c == 'V') return EntryKeyAction::Paste;
    if (c == 'c' || c == 'C') return EntryKeyAction::Copy;
    if (c == 'x' || c == 'X') return EntryKeyAction::Cut;
  }
  if (c == 27) return EntryKeyAction::Cancel;
  if (c == ' ' && (flags & kPromptNoSpaces)) return EntryKeyAction::Consume;
  if (flags & kPromptNumbersOnly) {
    const bool accepted = (c >= '0' && c <= '9') || (c >= 28 && c <= 31) || c == 8 || c == 9;
    return accepted ? EntryKeyAction::Standard : EntryKeyAction::Consume;
  }
  return EntryKeyAction::Standard;
}

std::string prompt(std::string_view caption, std::string_view instruction,
                   std::string_view defaultText, int32_t flags, int32_t x, int32_t y) {
  platform::UiService& ui = platform::uiService();
  if (!ui.available()) return "";
  platform::PromptSpec spec = promptSpec(caption, instruction, flags, x, y);
  spec.fields.push_back({"", cutUtf8(defaultText, kTextLen), (flags & kPromptPassword) != 0});
  std::optional<std::vector<std::string>> texts;
  {
    platform::WindowBracket bracket;
    texts = ui.prompt(spec);
  }
  if (!texts || texts->empty()) return "";
  return cutUtf8(texts->front(), kTextLen);
}

LogInResult logIn(const LogInOptions& o) {
  platform::UiService& ui = platform::uiService();
  if (!ui.available()) return {};
  platform::PromptSpec spec = promptSpec(o.caption, o.instruction, o.flags, o.x, o.y);
  spec.fields.push_back({cutUtf8(o.nameCaption, kTextLen), cutUtf8(o.defaultName, kTextLen),
                         (o.flags & kPromptPassword) != 0});
  spec.fields.push_back(
      {cutUtf8(o.passwordCaption, kTextLen), cutUtf8(o.defaultPassword, kTextLen), true});
  std::optional<std::vector<std::string>> texts;
  {
    platform::WindowBracket bracket;
    texts = ui.prompt(spec);
  }
  LogInResult result;
  if (!texts || texts->size() != 2) return result;
  result.ok = true;
  result.name = cutUtf8((*texts)[0], kTextLen);
  result.password = cutUtf8((*texts)[1], kTextLen);
  return result;
}

}  // namespace tessel::dialogs
