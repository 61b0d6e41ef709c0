// The XDG folders through GLib, which reads $XDG_* and ~/.config/user-dirs.dirs.
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>

#include "platform/folders.h"

namespace tessel::platform {
namespace {

std::string text(const char* s) { return s != nullptr ? std::string(s) : std::string(); }

GUserDirectory glibDirectory(UserDir which) {
  switch (which) {
    case UserDir::Desktop: return G_USER_DIRECTORY_DESKTOP;
    case UserDir::Documents: return G_USER_DIRECTORY_DOCUMENTS;
    case UserDir::Download: return G_USER_DIRECTORY_DOWNLOAD;
    case UserDir::Music: return G_USER_DIRECTORY_MUSIC;
    case UserDir::Pictures: return G_USER_DIRECTORY_PICTURES;
    case UserDir::PublicShare: return G_USER_DIRECTORY_PUBLIC_SHARE;
    case UserDir::Templates: return G_USER_DIRECTORY_TEMPLATES;
    case UserDir::Videos: return G_USER_DIRECTORY_VIDEOS;
  }
  return G_USER_DIRECTORY_DESKTOP;
}

class LinuxFolderService final : public FolderService {
 public:
  std::string homeDir() override { return text(g_get_home_dir()); }
  std::string userConfigDir() override { return text(g_get_user_config_dir()); }
  std::string userDataDir() override { return text(g_get_user_data_dir()); }
  std::string userCacheDir() override { return text(g_get_user_cache_dir()); }
  std::string userStateDir() override {
#if GLIB_CHECK_VERSION(2, 72, 0)
    return text(g_get_user_state_dir());
#else
    const char* env = g_getenv("XDG_STATE_HOME");
    if (env != nullptr && g_path_is_absolute(env)) return env;
    return homeDir() + "/.local/state";
#endif
  }

  std::string userDir(UserDir which) override {
    // A user directory set to the home folder itself means "not configured" (xdg-user-dirs
    // writes that for a disabled directory).
    std::string dir = text(g_get_user_special_dir(glibDirectory(which)));
    if (dir == homeDir()) return "";
    return dir;
  }

  std::string tmpDir() override { return text(g_get_tmp_dir()); }

  std::vector<std::string> systemConfigDirs() override {
    std::vector<std::string> dirs;
    for (const char* const* d = g_get_system_config_dirs(); d != nullptr && *d != nullptr; ++d)
      dirs.emplace_back(*d);
    return dirs;
  }

  std::string kernelRelease() override {
    struct utsname names {};
    if (::uname(&names) != 0) return "";
    return names.release;
  }

  bool createUserBaseDir(const std::string& path) override {
    if (path.empty() || path[0] != '/') return false;
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode);
    // One level at a time from the first missing folder, each creation made durable.
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
      std::string folder = path.substr(0, slash);
      if (::stat(folder.c_str(), &st) != 0) {
        if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return false;
        syncFolder(parentOf(folder));
      }
      if (slash == std::string::npos) break;
    }
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
  }

 private:
  static std::string parentOf(const std::string& path) {
    size_t slash = path.find_last_of('/');
    return slash == 0 || slash == std::string::npos ? std::string("/") : path.substr(0, slash);
  }

  static void syncFolder(const std::string& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
  }
};

}  // namespace

std::unique_ptr<FolderService> makeLinuxFolderService() {
  return std::make_unique<LinuxFolderService>();
}

}  // namespace tessel::platform
