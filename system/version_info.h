// Version and environment information: system and component versions, selectors, memory, fonts,
// applications, user and computer names, the system language.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::system {

std::string version(std::string_view versionType);
int32_t gestalt(uint32_t selector);
int32_t gestaltExists(uint32_t selector);
double memoryInfo(std::string_view infoType);
int32_t fontInstalled(std::string_view fontName, std::string_view style);
std::string findApp(std::string_view creator);
std::string userName();
std::string userShortName();
std::string computerName();
int32_t language();

}  // namespace tessel::system
