#include "system/programs.h"

namespace tessel::system {

// Placeholder until program launching is built: the failure value.
int32_t runProgram(std::string_view, std::string_view, int32_t) { return 0; }
// Placeholder until document opening is built: the failure value.
int32_t openFile(std::string_view, std::string_view) { return 0; }
// Placeholder until printing is built: the failure value.
int32_t printFile(std::string_view) { return 0; }
// Placeholder until URL opening is built: the failure value.
int32_t openURL(std::string_view, std::string_view) { return 0; }
// Placeholder until shell commands are built: the failure value.
int32_t shell(std::string_view, std::string_view, std::string_view, std::string_view,
              std::string_view) {
  return 0;
}
// Placeholder until aliases are built: the failure value.
int32_t makeShortcut(std::string_view, std::string_view, std::string_view) { return 0; }
// Placeholder until desktop refreshing is built: does nothing.
void refreshFiles() {}

}  // namespace tessel::system
