// Files on Linux: POSIX calls on paths, statx for birth times, renameat2 for the atomic swap.
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

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

  // Finder information lives in the files layer's store; until that is in place no file has any.
  std::optional<FinderInfo> finderInfo(const std::string&) override { return fail(ENOTSUP); }
  bool setFinderInfo(const std::string&, const FinderInfo&) override {
    error_ = ENOTSUP;
    return false;
  }

 private:
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
