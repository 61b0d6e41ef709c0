// INI files: one value read or written in a sectioned file of key=value lines.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::formats {

std::string readIni(std::string_view section, std::string_view key, std::string_view defaultValue,
                    std::string_view iniFile);
int32_t writeIni(std::string_view section, std::string_view key, std::string_view newValue,
                 std::string_view iniFile);

}  // namespace tessel::formats
