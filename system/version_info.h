// Version and environment information: system and component versions, selectors, memory, fonts,
// applications, user and computer names, the system language.
#pragma once

#include <cstdint>
#include <optional>
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

// ---- The tables behind them ---------------------------------------------------------------------

// The response to a selector, nothing when the system does not answer it.
std::optional<int32_t> selectorResponse(uint32_t selector);

// The version text of a component's 'qtim'-style response: the high 16 bits in hexadecimal, each
// digit followed by ".", letters as their decimal values, and a trailing "0.0" shortened to "0".
std::string componentVersionText(uint32_t response);

// The kernel release ("6.12.3-amd64") as the major, minor and patch numbers it starts with.
struct KernelVersion {
  int32_t major = 0, minor = 0, patch = 0;
  bool known = false;
};
KernelVersion parseKernelRelease(std::string_view release);

// The language number of a locale name ("fr_CA.UTF-8", "de", "C"); 0 for C and unknown ones.
int32_t languageOfLocale(std::string_view locale);

// The MIME type (or "x-scheme-handler/SCHEME") a creator or file-type code stands for; "" when
// the code is not in the table.
std::string contentTypeOfCreator(uint32_t code);
std::string contentTypeOfFileType(uint32_t code);

}  // namespace tessel::system
