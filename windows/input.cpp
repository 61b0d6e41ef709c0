#include "windows/input.h"

#include "support/text.h"
#include "platform/desktop.h"
#include "windows/key_language.h"

namespace tessel::windows {

int32_t sendKeys(std::string_view keys) {
  auto events = keyEvents(parseKeys(keys));
  if (!events.empty()) platform::desktopService().postKeys(events);
  return 0;
}

int32_t keyIsDown(int32_t key) {
  const uint16_t code = keyCodeForKeyNumber(key);
  if (code >= 128) return 0;
  auto keysyms = keysymsForKeyDown(code);
  if (keysyms.empty()) return 0;
  return platform::desktopService().anyKeyDown(keysyms) ? 1 : 0;
}

int32_t mouseClick(std::string_view type) {
  int button = support::equalsIgnoringCase(type, "left")     ? 1
               : support::equalsIgnoringCase(type, "right")  ? 3
               : support::equalsIgnoringCase(type, "middle") ? 2
                                                           : 0;
  if (button != 0) platform::desktopService().click(button);
  return 0;
}

}  // namespace tessel::windows
