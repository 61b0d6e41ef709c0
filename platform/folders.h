// The user's and the system's well-known folders as the desktop defines them (XDG base and user
// directories). The special-folder lookup (paths/special_folders.h) builds on these; machine-wide
// folders with fixed Linux locations (/usr/share/fonts, /etc, ...) are not part of this service.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tessel::platform {

// The XDG user directories (~/.config/user-dirs.dirs).
enum class UserDir {
  Desktop,
  Documents,
  Download,
  Music,
  Pictures,
  PublicShare,
  Templates,
  Videos
};

class FolderService {
 public:
  virtual ~FolderService() = default;

  virtual std::string homeDir() = 0;
  virtual std::string userConfigDir() = 0;  // $XDG_CONFIG_HOME, ~/.config
  virtual std::string userDataDir() = 0;    // $XDG_DATA_HOME, ~/.local/share
  virtual std::string userCacheDir() = 0;   // $XDG_CACHE_HOME, ~/.cache
  virtual std::string userStateDir() = 0;   // $XDG_STATE_HOME, ~/.local/state
  // The configured user directory; "" when the user has none of that kind.
  virtual std::string userDir(UserDir which) = 0;
  virtual std::string tmpDir() = 0;                         // $TMPDIR, else /tmp
  virtual std::vector<std::string> systemConfigDirs() = 0;  // $XDG_CONFIG_DIRS, /etc/xdg
  virtual std::string kernelRelease() = 0;                  // uname -r

  // Creates a missing XDG base folder of the user (and its missing parents) with mode 0700, as
  // the base-directory rules ask before anything is written there; true when it exists after.
  virtual bool createUserBaseDir(const std::string& /*path*/) { return false; }
};

// The service in use: the Linux backend unless a test installed another.
FolderService& folderService();

// Installs `service` (nullptr restores the Linux backend) and returns the one it replaces.
std::unique_ptr<FolderService> setFolderService(std::unique_ptr<FolderService> service);

std::unique_ptr<FolderService> makeLinuxFolderService();

}  // namespace tessel::platform
