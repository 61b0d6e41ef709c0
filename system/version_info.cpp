#include "system/version_info.h"

namespace tessel::system {

// Placeholder until version information is built: the failure value.
std::string version(std::string_view) { return ""; }
// Placeholder until selectors are built: the failure value.
int32_t gestalt(uint32_t) { return 0; }
// Placeholder until selectors are built: the failure value.
int32_t gestaltExists(uint32_t) { return 0; }
// Placeholder until memory figures are built: the failure value.
double memoryInfo(std::string_view) { return 0.0; }
// Placeholder until font queries are built: the failure value.
int32_t fontInstalled(std::string_view, std::string_view) { return 0; }
// Placeholder until application look-up is built: the failure value.
std::string findApp(std::string_view) { return ""; }
// Placeholder until user information is built: the failure value.
std::string userName() { return ""; }
// Placeholder until user information is built: the failure value.
std::string userShortName() { return ""; }
// Placeholder until the computer name is built: the failure value.
std::string computerName() { return ""; }
// Placeholder until the language query is built: the failure value.
int32_t language() { return 0; }

}  // namespace tessel::system
