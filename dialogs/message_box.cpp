#include "dialogs/message_box.h"

namespace tessel::dialogs {

// Placeholder until message boxes are built: no button pressed.
std::string msgBox(std::string_view, std::string_view, std::string_view, std::string_view,
                   int32_t) {
  return "";
}
// Placeholder until message boxes are built: the captions are not kept yet.
void msgBoxButtons(std::string_view, std::string_view, std::string_view, std::string_view,
                   std::string_view, std::string_view, std::string_view) {}
// Placeholder until message boxes are built: no button pressed.
std::string msgBoxEx(const MsgBoxExOptions&) { return ""; }

}  // namespace tessel::dialogs
