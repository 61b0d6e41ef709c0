// Files on Linux: POSIX calls on paths, statx for birth times, renameat2 for the atomic swap.
#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/files.h"

namespace tessel::platform {
namespace {

FileKind kindOf(uint32_t mode) {
  if (S_ISREG(mode)) return FileKind::File;
  if (S_ISDIR(mode)) return FileKind::Folder;
  if (S_ISLNK(mode)) return FileKind::Link;
  return FileKind::Other;
}

class LinuxOpenFile final : public OpenFile {
 public:
  explicit LinuxOpenFile(int fd) : fd_(fd) {}
  ~LinuxOpenFile() override { ::close(fd_); }
  LinuxOpenFile(const LinuxOpenFile&) = delete;
  LinuxOpenFile& operator=(const LinuxOpenFile&) = delete;

  int64_t read(void* buffer, size_t size) override {
    for (;;) {
      ssize_t n = ::read(fd_, buffer, size);
      if (n >= 0) return n;
      if (errno != EINTR) return -1;
    }
  }

  int64_t readAt(void* buffer, size_t size, uint64_t offset) override {
    for (;;) {
      ssize_t n = ::pread(fd_, buffer, size, static_cast<off_t>(offset));
      if (n >= 0) return n;
      if (errno != EINTR) return -1;
    }
  }

  bool write(const void* data, size_t size) override {
    auto* p = static_cast<const char*>(data);
    while (size > 0) {
      ssize_t n = ::write(fd_, p, size);
      if (n < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      p += n;
      size -= static_cast<size_t>(n);
    }
    return true;
  }

  bool writeAt(const void* data, size_t size, uint64_t offset) override {
    auto* p = static_cast<const char*>(data);
    while (size > 0) {
      ssize_t n = ::pwrite(fd_, p, size, static_cast<off_t>(offset));
      if (n < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      p += n;
      size -= static_cast<size_t>(n);
      offset += static_cast<uint64_t>(n);
    }
    return true;
  }

  std::optional<uint64_t> size() override {
    struct stat st {};
    if (::fstat(fd_, &st) != 0) return std::nullopt;
    return static_cast<uint64_t>(st.st_size);
  }

  bool sync() override { return ::fsync(fd_) == 0; }
  int descriptor() const override { return fd_; }

 private:
  int fd_;
};

class LinuxFileService final : public FileService {
 public:
  std::optional<FileInfo> info(const std::string& path, bool followLinks) override {
    struct statx sx {};
    int flags = AT_STATX_SYNC_AS_STAT | (followLinks ? 0 : AT_SYMLINK_NOFOLLOW);
    if (path.empty()) return fail(ENOENT);
    if (::statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0)
      return fail(errno);
    FileInfo info;
    info.kind = kindOf(sx.stx_mode);
    info.size = sx.stx_size;
    info.mode = sx.stx_mode & 07777;
    info.uid = sx.stx_uid;
    info.gid = sx.stx_gid;
    info.device = (static_cast<uint64_t>(sx.stx_dev_major) << 32) | sx.stx_dev_minor;
    info.inode = sx.stx_ino;
    info.modifiedSeconds = sx.stx_mtime.tv_sec;
    info.modifiedNanoseconds = sx.stx_mtime.tv_nsec;
    if ((sx.stx_mask & STATX_BTIME) != 0) info.createdSeconds = sx.stx_btime.tv_sec;
    return info;
  }

  int lastError() const override { return error_; }

  std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode) override {
    int flags = O_CLOEXEC;
    switch (mode) {
      case OpenMode::Read: flags |= O_RDONLY; break;
      case OpenMode::ReadWrite: flags |= O_RDWR; break;
      case OpenMode::CreateNew: flags |= O_RDWR | O_CREAT | O_EXCL; break;
    }
    int fd = ::open(path.c_str(), flags, 0666);
    if (fd < 0) {
      error_ = errno;
      return nullptr;
    }
    return std::make_unique<LinuxOpenFile>(fd);
  }

  bool createFolder(const std::string& path) override {
    return check(::mkdir(path.c_str(), 0777) == 0);
  }
  bool removeFile(const std::string& path) override { return check(::unlink(path.c_str()) == 0); }
  bool removeFolder(const std::string& path) override {
    return check(::rmdir(path.c_str()) == 0);
  }
  bool rename(const std::string& from, const std::string& to) override {
    return check(::rename(from.c_str(), to.c_str()) == 0);
  }
  bool exchange(const std::string& a, const std::string& b) override {
    return check(::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0);
  }

  bool syncFolder(const std::string& folder) override {
    int fd = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return check(false);
    bool ok = ::fsync(fd) == 0;
    if (!ok) error_ = errno;
    ::close(fd);
    return ok;
  }

  // The system's temporary folder when it lies on the same filesystem; else a private folder in
  // the user's cache when that does; else the file's own folder, which always does.
  std::string temporaryFolderFor(const std::string& path) override {
    std::string folder = parentOf(path);
    struct stat target {};
    if (::stat(folder.c_str(), &target) != 0) return fail(errno), std::string();
    for (std::string candidate : {std::string(g_get_tmp_dir()),
                                  std::string(g_get_user_cache_dir()) + "/tessel"}) {
      struct stat st {};
      if (::stat(candidate.c_str(), &st) != 0) {
        // Only our own cache folder is made; the system's temporary folder must exist.
        if (candidate.find("/tessel") == std::string::npos) continue;
        std::string cache = g_get_user_cache_dir();
        ::mkdir(cache.c_str(), 0700);
        if (::mkdir(candidate.c_str(), 0700) != 0 || ::stat(candidate.c_str(), &st) != 0) continue;
      }
      if (S_ISDIR(st.st_mode) && st.st_dev == target.st_dev &&
          ::access(candidate.c_str(), W_OK | X_OK) == 0)
        return candidate;
    }
    return folder;
  }

  bool listFolder(const std::string& path, std::vector<FolderEntry>& entries) override {
    entries.clear();
    DIR* dir = ::opendir(path.c_str());
    if (dir == nullptr) return check(false);
    int fd = ::dirfd(dir);
    errno = 0;
    while (struct dirent* d = ::readdir(dir)) {
      std::string_view name = d->d_name;
      if (name == "." || name == "..") continue;
      FolderEntry entry;
      entry.name = name;
      unsigned char type = d->d_type;
      if (type == DT_UNKNOWN) {
        struct stat st {};
        if (::fstatat(fd, d->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0) entry.kind = kindOf(st.st_mode);
      } else {
        entry.kind = type == DT_REG   ? FileKind::File
                     : type == DT_DIR ? FileKind::Folder
                     : type == DT_LNK ? FileKind::Link
                                      : FileKind::Other;
      }
      entries.push_back(std::move(entry));
      errno = 0;
    }
    bool ok = errno == 0;
    if (!ok) error_ = errno;
    ::closedir(dir);
    return ok;
  }

  std::optional<std::string> readLink(const std::string& path) override {
    std::string target(256, '\0');
    for (;;) {
      ssize_t n = ::readlink(path.c_str(), target.data(), target.size());
      if (n < 0) return fail(errno);
      if (static_cast<size_t>(n) < target.size()) {
        target.resize(static_cast<size_t>(n));
        return target;
      }
      target.resize(target.size() * 2);
    }
  }

  bool createLink(const std::string& target, const std::string& path) override {
    return check(::symlink(target.c_str(), path.c_str()) == 0);
  }

  bool copyFile(const std::string& from, const std::string& to, const CopyProgress& progress,
                size_t blockSize) override {
    int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return check(false);
    struct stat st {};
    if (::fstat(in, &st) != 0 || !S_ISREG(st.st_mode)) {
      error_ = errno != 0 ? errno : EINVAL;
      ::close(in);
      return false;
    }
    int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, st.st_mode & 07777);
    if (out < 0) {
      error_ = errno;
      ::close(in);
      return false;
    }
    bool ok = copyData(in, out, progress, blockSize) && ::fchmod(out, st.st_mode & 07777) == 0;
    if (!ok) error_ = errno != 0 ? errno : EIO;
    if (ok) copyAttributes(in, out);
    ::close(in);
    if (::close(out) != 0 && ok) {
      ok = false;
      error_ = errno;
    }
    return ok;
  }

  bool setMode(const std::string& path, uint32_t mode) override {
    return check(::chmod(path.c_str(), mode & 07777) == 0);
  }

  // The files layer's model (locks, the ".hidden" list, Finder information and resource forks)
  // is built on extended attributes and companion files; until it is in place no file has any.
  bool isLocked(const std::string&) override { return false; }
  bool setLocked(const std::string&, bool) override { return unsupported(); }
  bool isHidden(const std::string& path) override {
    std::string_view name = std::string_view(path).substr(path.find_last_of('/') + 1);
    return !name.empty() && name[0] == '.';
  }
  bool setHidden(const std::string&, bool) override { return unsupported(); }
  std::optional<FinderInfo> finderInfo(const std::string&) override { return fail(ENOTSUP); }
  bool setFinderInfo(const std::string&, const FinderInfo&) override { return unsupported(); }
  std::optional<std::string> resourceFork(const std::string&) override { return std::string(); }
  uint64_t resourceForkSize(const std::string&) override { return 0; }
  bool setResourceFork(const std::string&, std::string_view) override { return unsupported(); }

  // ---- Listings and copies
  bool setModifiedTime(const std::string& path, int64_t seconds, uint32_t nanoseconds) override {
    struct timespec times[2] = {{0, UTIME_OMIT},
                                {static_cast<time_t>(seconds), static_cast<long>(nanoseconds)}};
    return check(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0);
  }

  // The sizes are looked up relative to the open folder, not through each item's full path.
  bool listFolderWithSizes(const std::string& path, std::vector<FolderEntry>& entries,
                           std::vector<uint64_t>& sizes) override {
    if (!listFolder(path, entries)) return false;
    sizes.assign(entries.size(), 0);
    int dir = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return check(false);
    for (size_t i = 0; i < entries.size(); ++i) {
      struct stat st {};
      if (::fstatat(dir, entries[i].name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
        sizes[i] = static_cast<uint64_t>(st.st_size);
    }
    ::close(dir);
    return true;
  }

 private:
  // The data in blocks: copy_file_range (which reflinks or copies inside the kernel), falling
  // back to read/write where the two filesystems do not allow it.
  static bool copyData(int in, int out, const CopyProgress& progress, size_t blockSize) {
    const size_t block = blockSize != 0 ? blockSize : size_t{1} << 30;
    uint64_t copied = 0;
    bool kernelCopy = true;
    std::vector<char> buffer;
    for (;;) {
      ssize_t n = -1;
      if (kernelCopy) {
        n = ::copy_file_range(in, nullptr, out, nullptr, block, 0);
        if (n < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP)) {
          kernelCopy = false;
          continue;
        }
      } else {
        if (buffer.empty()) buffer.resize(std::min<size_t>(block, size_t{1} << 20));
        n = ::read(in, buffer.data(), buffer.size());
        if (n > 0 && !writeAll(out, buffer.data(), static_cast<size_t>(n))) return false;
      }
      if (n < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      if (n == 0) return true;
      copied += static_cast<uint64_t>(n);
      if (progress && !progress(copied)) {
        errno = ECANCELED;
        return false;
      }
    }
  }

  static bool writeAll(int fd, const char* p, size_t size) {
    while (size > 0) {
      ssize_t w = ::write(fd, p, size);
      if (w < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      p += w;
      size -= static_cast<size_t>(w);
    }
    return true;
  }

  // Every extended attribute of the source that the destination accepts.
  static void copyAttributes(int in, int out) {
    ssize_t len = ::flistxattr(in, nullptr, 0);
    if (len <= 0) return;
    std::string names(static_cast<size_t>(len), '\0');
    len = ::flistxattr(in, names.data(), names.size());
    if (len <= 0) return;
    names.resize(static_cast<size_t>(len));
    std::string value;
    for (size_t at = 0; at < names.size();) {
      const char* name = names.c_str() + at;
      at += std::strlen(name) + 1;
      ssize_t vlen = ::fgetxattr(in, name, nullptr, 0);
      if (vlen < 0) continue;
      value.resize(static_cast<size_t>(vlen));
      vlen = ::fgetxattr(in, name, value.data(), value.size());
      if (vlen < 0) continue;
      ::fsetxattr(out, name, value.data(), static_cast<size_t>(vlen), 0);
    }
  }

  bool unsupported() {
    error_ = ENOTSUP;
    return false;
  }

  static std::string parentOf(const std::string& path) {
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
  }

  bool check(bool ok) {
    if (!ok) error_ = errno != 0 ? errno : EIO;
    return ok;
  }

  std::nullopt_t fail(int error) {
    error_ = error;
    return std::nullopt;
  }

  int error_ = 0;
};

}  // namespace

std::unique_ptr<FileService> makeLinuxFileService() { return std::make_unique<LinuxFileService>(); }

}  // namespace tessel::platform
