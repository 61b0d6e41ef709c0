// The environment service on Linux: uname, /proc/meminfo, getrlimit, fontconfig, the password
// database, /etc/machine-info and gethostname.
#include <dlfcn.h>
#include <fcntl.h>
#include <fontconfig/fontconfig.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/environment.h"

namespace tessel::platform {
namespace {

// Reads a small text file whole in one system call or two; "" when it cannot be read.
std::string readSmallFile(const char* path) {
  int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  std::string text;
  char buffer[8192];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n <= 0) break;
    text.append(buffer, static_cast<size_t>(n));
    if (text.size() > (1u << 20)) break;
  }
  ::close(fd);
  return text;
}

// The value of "Key:   1234 kB" in /proc/meminfo, in bytes.
std::optional<uint64_t> meminfoField(std::string_view text, std::string_view key) {
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find('\n', at);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(at, end - at);
    if (line.size() > key.size() && line.substr(0, key.size()) == key && line[key.size()] == ':') {
      uint64_t value = 0;
      bool digits = false;
      size_t i = key.size() + 1;
      while (i < line.size() && line[i] == ' ') ++i;
      for (; i < line.size() && line[i] >= '0' && line[i] <= '9'; ++i) {
        value = value * 10 + static_cast<uint64_t>(line[i] - '0');
        digits = true;
      }
      if (!digits) return std::nullopt;
      if (line.find("kB", i) != std::string_view::npos) value *= 1024;
      return value;
    }
    at = end + 1;
  }
  return std::nullopt;
}

// A value of /etc/machine-info, which is written in shell syntax: unquoted, '...' or "..." with
// backslash escapes.
std::string unquoteShellValue(std::string_view v) {
  std::string out;
  char quote = 0;
  for (size_t i = 0; i < v.size(); ++i) {
    char c = v[i];
    if (quote == '\'') {
      if (c == '\'') quote = 0;
      else out += c;
    } else if (c == '\\' && i + 1 < v.size()) {
      out += v[++i];
    } else if (quote == '"') {
      if (c == '"') quote = 0;
      else out += c;
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else {
      out += c;
    }
  }
  return out;
}

class LinuxEnvironmentService final : public EnvironmentService {
 public:
  ~LinuxEnvironmentService() override {
    if (fonts_ != nullptr) FcConfigDestroy(fonts_);
  }

  std::string kernelRelease() override {
    utsname u{};
    if (::uname(&u) != 0) return {};
    return u.release;
  }

  std::optional<MemoryFigures> memory() override {
    std::string text = readSmallFile("/proc/meminfo");
    auto total = meminfoField(text, "MemTotal");
    if (!total) return std::nullopt;
    MemoryFigures m;
    m.total = *total;
    m.available = meminfoField(text, "MemAvailable").value_or(0);
    m.swapTotal = meminfoField(text, "SwapTotal").value_or(0);
    return m;
  }

  std::optional<uint64_t> addressSpaceLimit() override {
    rlimit r{};
    if (::getrlimit(RLIMIT_AS, &r) != 0 || r.rlim_cur == RLIM_INFINITY) return std::nullopt;
    return static_cast<uint64_t>(r.rlim_cur);
  }

  uint64_t pageSize() override {
    long n = ::sysconf(_SC_PAGESIZE);
    return n > 0 ? static_cast<uint64_t>(n) : 4096;
  }

  bool fontFamilyInstalled(const std::string& family) override {
    // The configuration and its font list are loaded once and kept: later queries only search
    // the list in memory.
    if (fonts_ == nullptr) {
      // The font library keeps process-wide caches that outlive any one user of it; it stays
      // loaded when the module is unloaded, as other users in the host may share them.
      dlopen("libfontconfig.so.1", RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
      fonts_ = FcInitLoadConfigAndFonts();
      if (fonts_ == nullptr) return false;
    }
    FcPattern* pattern = FcPatternCreate();
    if (pattern == nullptr) return false;
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
    FcObjectSet* objects = FcObjectSetBuild(FC_FAMILY, nullptr);
    // FcFontList answers only fonts whose family really is this one; FcFontMatch would always
    // find a substitute.
    FcFontSet* found = FcFontList(fonts_, pattern, objects);
    bool any = found != nullptr && found->nfont > 0;
    if (found != nullptr) FcFontSetDestroy(found);
    if (objects != nullptr) FcObjectSetDestroy(objects);
    FcPatternDestroy(pattern);
    return any;
  }

  std::optional<UserRecord> currentUser() override {
    long hint = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(hint > 0 ? static_cast<size_t>(hint) : 4096);
    passwd entry{};
    passwd* result = nullptr;
    for (;;) {
      int err = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result);
      if (err == ERANGE && buffer.size() < (1u << 20)) {
        buffer.resize(buffer.size() * 2);
        continue;
      }
      break;
    }
    if (result == nullptr) return std::nullopt;
    return UserRecord{result->pw_name ? result->pw_name : "",
                      result->pw_gecos ? result->pw_gecos : ""};
  }

  std::string prettyHostName() override {
    std::string text = readSmallFile("/etc/machine-info");
    size_t at = 0;
    while (at < text.size()) {
      size_t end = text.find('\n', at);
      if (end == std::string::npos) end = text.size();
      std::string_view line(text.data() + at, end - at);
      constexpr std::string_view key = "PRETTY_HOSTNAME=";
      if (line.substr(0, key.size()) == key) return unquoteShellValue(line.substr(key.size()));
      at = end + 1;
    }
    return {};
  }

  std::string hostName() override {
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0) return {};
    return name;
  }

  // The module has no bundle: the dynamic loader knows the file this code was mapped from.
  std::string moduleFolder() override {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&environmentService), &info) == 0 ||
        info.dli_fname == nullptr)
      return "";
    std::string path = info.dli_fname;
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return "";
    return path.substr(0, slash + 1);
  }

  std::optional<std::string> variable(const std::string& name) override {
    const char* value = std::getenv(name.c_str());
    if (value == nullptr) return std::nullopt;
    return std::string(value);
  }

 private:
  FcConfig* fonts_ = nullptr;
};

}  // namespace

std::unique_ptr<EnvironmentService> makeLinuxEnvironmentService() {
  return std::make_unique<LinuxEnvironmentService>();
}

}  // namespace tessel::platform
