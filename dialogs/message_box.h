// Message boxes with standard and custom buttons.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::dialogs {

std::string msgBox(std::string_view msg, std::string_view caption, std::string_view buttons,
                   std::string_view icon, int32_t defButton);
// The captions shown for the standard buttons (an empty caption keeps the standard one), for the
// rest of the module's session.
void msgBoxButtons(std::string_view ok, std::string_view cancel, std::string_view yes,
                   std::string_view no, std::string_view retry, std::string_view ignore,
                   std::string_view abort);

struct MsgBoxExOptions {
  std::string msg, caption, button1, button2, button3, icon;
  int32_t defButton = 0;
  std::string alignment, fontName;
  int32_t fontSize = 0, fontWeight = 0, xPos = 0, yPos = 0;
};
std::string msgBoxEx(const MsgBoxExOptions& options);

}  // namespace tessel::dialogs

namespace tessel::platform {
struct CustomBoxSpec;
}
namespace tessel::dialogs {
// The custom box's layout: text measured, window and buttons placed, keys assigned.
platform::CustomBoxSpec customBoxLayout(const MsgBoxExOptions& options);
}  // namespace tessel::dialogs
