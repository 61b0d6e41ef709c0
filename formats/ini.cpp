#include "formats/ini.h"

namespace tessel::formats {

// Placeholder until INI files are built: the default, as for a missing file.
std::string readIni(std::string_view, std::string_view, std::string_view defaultValue,
                    std::string_view) {
  return std::string(defaultValue);
}
// Placeholder until INI files are built: the failure value.
int32_t writeIni(std::string_view, std::string_view, std::string_view, std::string_view) {
  return 0;
}

}  // namespace tessel::formats
