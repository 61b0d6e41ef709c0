// Applications as this Linux build sees them: live processes of this machine, the host first,
// then every process owning a managed window, in the order its first window was managed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/desktop.h"

namespace tessel::windows {

struct Application {
  int32_t pid = 0;
  std::string name;        // the WM_CLASS class of the first window, else its title, else the executable's name
  std::vector<platform::ManagedWindow> windows;  // in management order
};

// Every application, in enumeration order.
std::vector<Application> applications();

// One live process as an application; nothing for a handle <= 0 or a process that has ended.
std::optional<Application> application(int32_t pid);

// The owner of the active managed window: 0 when no managed window is active, -1 when the
// desktop cannot be asked.
int32_t frontmostProcess();

// The file name of an executable's path.
std::string executableName(const std::string& path);

// The signature: the creator in the executable's Finder information, else nameSignature(name).
uint32_t signature(const Application& app);

// The signature of a name: its first four bytes, padded with spaces, read as a creator code.
uint32_t nameSignature(const std::string& name);

}  // namespace tessel::windows
