// The Linux file backend's plumbing (see file_io.h).
#include "platform/linux/file_io.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/pause_points.h"
#include "support/path_text.h"

namespace tessel::platform::filebackend {

FileKind kindOf(uint32_t mode) {
  if (S_ISREG(mode)) return FileKind::File;
  if (S_ISDIR(mode)) return FileKind::Folder;
  if (S_ISLNK(mode)) return FileKind::Link;
  return FileKind::Other;
}

std::string trimmed(const std::string& path) {
  size_t end = path.size();
  while (end > 1 && path[end - 1] == '/') --end;
  return path.substr(0, end);
}

std::string_view leafOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? std::string_view(path)
                                    : std::string_view(path).substr(slash + 1);
}

std::string folderOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string companionOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return "._" + path;
  return path.substr(0, slash + 1) + "._" + path.substr(slash + 1);
}

bool statItem(const std::string& path, bool followLinks, struct statx& sx) {
  if (path.empty()) {
    errno = ENOENT;
    return false;
  }
  int flags = AT_STATX_SYNC_AS_STAT | (followLinks ? 0 : AT_SYMLINK_NOFOLLOW);
  return ::statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS, &sx) == 0;
}

bool lockedItem(const struct statx& sx) {
  if (S_ISLNK(sx.stx_mode)) return false;
  if ((sx.stx_attributes & STATX_ATTR_IMMUTABLE) != 0) return true;
  return (S_ISREG(sx.stx_mode) || S_ISDIR(sx.stx_mode)) && (sx.stx_mode & 0222) == 0;
}

int setImmutable(const std::string& path, bool on) {
  int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return errno;
  int flags = 0;
  int err = 0;
  if (::ioctl(fd, FS_IOC_GETFLAGS, &flags) != 0) {
    err = errno;
  } else {
    int wanted = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    if (wanted != flags && ::ioctl(fd, FS_IOC_SETFLAGS, &wanted) != 0) err = errno;
  }
  ::close(fd);
  return err;
}

FileStatus writeAll(int fd, const void* data, size_t size, std::optional<uint64_t> offset) {
  auto* p = static_cast<const char*>(data);
  while (size > 0) {
    ssize_t n = offset ? ::pwrite(fd, p, size, static_cast<off_t>(*offset)) : ::write(fd, p, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return FileError{errno};
    }
    if (n == 0) return FileError{EIO};
    p += n;
    size -= static_cast<size_t>(n);
    if (offset) *offset += static_cast<uint64_t>(n);
  }
  return {};
}

bool preadAll(int fd, void* buffer, size_t size, uint64_t offset) {
  auto* p = static_cast<char*>(buffer);
  while (size > 0) {
    ssize_t n = ::pread(fd, p, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<size_t>(n);
    offset += static_cast<uint64_t>(n);
  }
  return true;
}

FileStatus writeReplacing(const std::string& path, std::string_view data) {
  std::string temporary = folderOf(path) + "/" + support::partialNameFor(leafOf(path));
  ::unlink(temporary.c_str());  // what a write that was killed left
  int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return FileError{errno};
  FileStatus written = writeAll(fd, data.data(), data.size());
  if (::close(fd) != 0 && written) written = FileError{errno};
  if (written) pausePoint("rewrite.replace");
  if (written && ::rename(temporary.c_str(), path.c_str()) != 0) written = FileError{errno};
  if (!written) ::unlink(temporary.c_str());
  return written;
}

// The data in blocks: copy_file_range (which reflinks or copies inside the kernel), falling
// back to read/write where the two filesystems do not allow it.
FileStatus copyData(int in, int out, const CopyProgress& progress, size_t blockSize) {
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
      if (n > 0) {
        if (FileStatus written = writeAll(out, buffer.data(), static_cast<size_t>(n)); !written)
          return written;
      }
    }
    if (n < 0) {
      if (errno == EINTR) continue;
      return FileError{errno};
    }
    if (n == 0) return {};
    copied += static_cast<uint64_t>(n);
    pausePoint("copy.data");
    if (progress && !progress(copied)) return FileError{ECANCELED};
  }
}

void copyAttributes(int in, int out) {
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

}  // namespace tessel::platform::filebackend
