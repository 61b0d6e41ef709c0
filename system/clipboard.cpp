// The clipboard as text.
#include <cstring>

#include "platform/clipboard.h"
#include "system/kiosk.h"

namespace tessel::system {

// The longest text tsPasteText hands back; a longer clipboard text pastes as "".
inline constexpr size_t kPasteLimit = 63999;

int32_t copyText(std::string_view text) {
  return platform::clipboardService().copyText(text) ? 1 : 0;
}

std::string pasteText() {
  std::optional<std::string> text = platform::clipboardService().pasteText(kPasteLimit);
  if (!text || text->empty()) return "";
  // A C string ends at its first zero byte.
  text->resize(std::strlen(text->c_str()));
  return *text;
}

}  // namespace tessel::system
