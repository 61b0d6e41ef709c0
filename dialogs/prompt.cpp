#include "dialogs/prompt.h"

namespace tessel::dialogs {

// Placeholder until the prompt is built: as if cancelled.
std::string prompt(std::string_view, std::string_view, std::string_view, int32_t, int32_t,
                   int32_t) {
  return "";
}
// Placeholder until the log-in dialog is built: as if cancelled.
LogInResult logIn(const LogInOptions&) { return {}; }

}  // namespace tessel::dialogs
