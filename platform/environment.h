// The machine and the session the module runs in: kernel, memory, fonts, the user, the computer's
// name and the locale variables. The environment information methods (system/version_info.h)
// read everything through this service, so their tables run against a fake in unit tests.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace tessel::platform {

// Memory figures in bytes (/proc/meminfo on Linux).
struct MemoryFigures {
  uint64_t total = 0;      // MemTotal
  uint64_t available = 0;  // MemAvailable
  uint64_t swapTotal = 0;  // SwapTotal
};

struct UserRecord {
  std::string name;   // the account name
  std::string gecos;  // the comment field, full name first
};

class EnvironmentService {
 public:
  virtual ~EnvironmentService() = default;

  // The running kernel's release text ("6.1.0-18-amd64"); "" when unknown.
  virtual std::string kernelRelease() = 0;
  virtual std::optional<MemoryFigures> memory() = 0;
  // The soft limit of the address space in bytes; nothing when unlimited.
  virtual std::optional<uint64_t> addressSpaceLimit() = 0;
  virtual uint64_t pageSize() = 0;
  // Whether a font of exactly this family is installed (names compare as the font system does).
  virtual bool fontFamilyInstalled(const std::string& family) = 0;
  virtual std::optional<UserRecord> currentUser() = 0;
  // The pretty host name a user gave the machine; "" when none was set.
  virtual std::string prettyHostName() = 0;
  virtual std::string hostName() = 0;
  // A variable of the process environment; nothing when it is not set.
  virtual std::optional<std::string> variable(const std::string& name) = 0;
  // The folder holding the loaded module, with a trailing "/"; "" when the loader cannot tell.
  virtual std::string moduleFolder() = 0;
};

// The service in use: the Linux backend unless a test installed another.
EnvironmentService& environmentService();

// Installs `service` (nullptr restores the Linux backend) and returns the one it replaces.
std::unique_ptr<EnvironmentService> setEnvironmentService(
    std::unique_ptr<EnvironmentService> service);

std::unique_ptr<EnvironmentService> makeLinuxEnvironmentService();

}  // namespace tessel::platform
