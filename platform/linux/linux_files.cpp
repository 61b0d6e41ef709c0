// Files on Linux: POSIX calls on paths, statx for birth times, renameat2 for the atomic swap.
#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unordered_set>
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

// Finder information lives in this extended attribute, as the 32-byte record itself.
constexpr const char* kFinderInfoAttribute = "user.tessel.finderinfo";
constexpr uint16_t kInvisibleFlag = 0x4000;

// The resource fork lives in the companion "._name" beside the item, in the double-file format:
// a 26-byte header (magic, version, 16 bytes of filler, the entry count) and 12-byte entries (id,
// offset, length), all big-endian. Entry 2 is the resource fork, entry 9 the Finder information.
constexpr uint32_t kDoubleMagic = 0x00051607;
constexpr uint32_t kDoubleVersion = 0x00020000;
constexpr uint32_t kResourceForkEntry = 2;
constexpr uint32_t kFinderInfoEntry = 9;
constexpr size_t kDoubleHeaderSize = 26;
constexpr size_t kDoubleEntrySize = 12;
constexpr size_t kDoubleMaxEntries = 256;

struct DoubleEntry {
  uint32_t id = 0;
  uint64_t offset = 0;
  uint64_t length = 0;
};

uint32_t be32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | static_cast<uint32_t>(p[3]);
}

void putBe32(std::string& out, uint32_t v) {
  out.push_back(static_cast<char>(v >> 24));
  out.push_back(static_cast<char>(v >> 16));
  out.push_back(static_cast<char>(v >> 8));
  out.push_back(static_cast<char>(v));
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

// The entries of a companion file; false when it is not one or an entry lies outside the file.
bool readDoubleHeader(int fd, std::vector<DoubleEntry>& entries) {
  entries.clear();
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return false;
  uint64_t fileSize = static_cast<uint64_t>(st.st_size);
  unsigned char header[kDoubleHeaderSize];
  if (fileSize < kDoubleHeaderSize || !preadAll(fd, header, sizeof header, 0)) return false;
  if (be32(header) != kDoubleMagic) return false;
  uint32_t version = be32(header + 4);
  if (version != kDoubleVersion && version != 0x00010000) return false;
  size_t count = static_cast<size_t>(header[24] << 8 | header[25]);
  if (count > kDoubleMaxEntries || kDoubleHeaderSize + count * kDoubleEntrySize > fileSize)
    return false;
  std::vector<unsigned char> table(count * kDoubleEntrySize);
  if (count > 0 && !preadAll(fd, table.data(), table.size(), kDoubleHeaderSize)) return false;
  for (size_t i = 0; i < count; ++i) {
    const unsigned char* p = table.data() + i * kDoubleEntrySize;
    DoubleEntry e{be32(p), be32(p + 4), be32(p + 8)};
    if (e.offset > fileSize || e.length > fileSize - e.offset) return false;
    entries.push_back(e);
  }
  return true;
}

bool readEntry(int fd, const DoubleEntry& entry, std::string& out) {
  out.assign(static_cast<size_t>(entry.length), '\0');
  return entry.length == 0 || preadAll(fd, out.data(), out.size(), entry.offset);
}

// A companion holding `entries`, the resource fork last so that it is the one that grows.
std::string encodeDouble(std::vector<std::pair<uint32_t, std::string>> entries) {
  std::stable_partition(entries.begin(), entries.end(),
                        [](const auto& e) { return e.first != kResourceForkEntry; });
  std::string out;
  putBe32(out, kDoubleMagic);
  putBe32(out, kDoubleVersion);
  out.append(16, '\0');
  out.push_back(static_cast<char>(entries.size() >> 8));
  out.push_back(static_cast<char>(entries.size()));
  uint64_t offset = kDoubleHeaderSize + entries.size() * kDoubleEntrySize;
  for (const auto& [id, bytes] : entries) {
    putBe32(out, id);
    putBe32(out, static_cast<uint32_t>(offset));
    putBe32(out, static_cast<uint32_t>(bytes.size()));
    offset += bytes.size();
  }
  for (const auto& e : entries) out += e.second;
  return out;
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

// Locked: the immutable flag, or no write bit for anyone. A link itself is never locked.
bool lockedItem(const struct statx& sx) {
  if (S_ISLNK(sx.stx_mode)) return false;
  if ((sx.stx_attributes & STATX_ATTR_IMMUTABLE) != 0) return true;
  return (S_ISREG(sx.stx_mode) || S_ISDIR(sx.stx_mode)) && (sx.stx_mode & 0222) == 0;
}

// Sets or clears the immutable flag; 0 or the errno.
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

// Writes `data` as the file `path` under a temporary name in the same folder, then renames it in
// place, so the old content stays whole until the new one is.
bool writeReplacing(const std::string& path, std::string_view data) {
  std::string pattern = path + ".XXXXXX";
  int fd = g_mkstemp_full(pattern.data(), O_RDWR | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  const char* p = data.data();
  size_t left = data.size();
  bool ok = true;
  while (ok && left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) ok = false;
    else {
      p += n;
      left -= static_cast<size_t>(n);
    }
  }
  int saved = errno;
  if (::close(fd) != 0) ok = false, saved = errno;
  if (ok && ::rename(pattern.c_str(), path.c_str()) != 0) ok = false, saved = errno;
  if (!ok) {
    ::unlink(pattern.c_str());
    errno = saved != 0 ? saved : EIO;
  }
  return ok;
}

// The ".hidden" lists of folders: one name per line. The last list read is kept and re-read
// only when the file changes, so asking about every item of a folder reads its list once.
class HiddenLists {
 public:
  bool listed(const std::string& path) {
    std::string_view name = leafOf(path);
    if (name.empty()) return false;
    const std::vector<std::string>* names = namesOf(folderOf(path));
    return names != nullptr && std::find(names->begin(), names->end(), name) != names->end();
  }

  // The folder's list (nullptr when it has none).
  const std::vector<std::string>* namesOf(const std::string& folder) {
    std::string file = folder + "/.hidden";
    struct stat st {};
    if (::stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
    if (file != file_ || st.st_ino != stat_.st_ino || st.st_dev != stat_.st_dev ||
        st.st_size != stat_.st_size || st.st_mtim.tv_sec != stat_.st_mtim.tv_sec ||
        st.st_mtim.tv_nsec != stat_.st_mtim.tv_nsec) {
      file_.clear();
      names_.clear();
      gchar* text = nullptr;
      gsize length = 0;
      if (!g_file_get_contents(file.c_str(), &text, &length, nullptr)) return nullptr;
      std::string_view all(text, length);
      while (!all.empty()) {
        size_t end = all.find('\n');
        std::string_view line = all.substr(0, end);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (!line.empty()) names_.emplace_back(line);
        all = end == std::string_view::npos ? std::string_view() : all.substr(end + 1);
      }
      g_free(text);
      file_ = file;
      stat_ = st;
    }
    return &names_;
  }

  void forget() { file_.clear(); }

 private:
  std::string file_;
  struct stat stat_ {};
  std::vector<std::string> names_;
};

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

  int walk(const std::string& root, const std::vector<std::string>& names) override {
    // O_PATH descriptors: a step needs search permission on its folder, not read permission.
    int dir = ::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return errno;
    for (const std::string& name : names) {
      int item = ::openat(dir, name.c_str(), O_PATH | O_CLOEXEC);
      int error = item < 0 ? errno : 0;
      ::close(dir);
      if (item < 0) return error;
      dir = item;
    }
    ::close(dir);
    return 0;
  }

  std::unique_ptr<OpenFile> open(const std::string& path, OpenMode mode) override {
    if (mode != OpenMode::Read &&
        lockRefuses(path, mode == OpenMode::ReadWrite ? Change::Data : Change::Name))
      return nullptr;
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
    if (lockRefuses(trimmed(path), Change::Name)) return false;
    return check(::mkdir(path.c_str(), 0777) == 0);
  }

  // A file or link goes together with its companion and its line in the folder's ".hidden".
  bool removeFile(const std::string& path) override {
    std::string item = trimmed(path);
    struct statx sx {};
    if (!statItem(item, false, sx)) return check(false);
    if (lockRefuses(item, Change::Name)) return false;
    if (::unlink(item.c_str()) != 0) return check(false);
    forgetItem(item);
    return true;
  }

  bool removeFolder(const std::string& path) override {
    std::string item = trimmed(path);
    struct statx sx {};
    if (!statItem(item, false, sx)) return check(false);
    if (lockRefuses(item, Change::Name)) return false;
    if (::rmdir(item.c_str()) != 0) return check(false);
    forgetItem(item);
    return true;
  }

  bool rename(const std::string& fromPath, const std::string& toPath) override {
    std::string from = trimmed(fromPath), to = trimmed(toPath);
    struct statx sx {};
    if (!statItem(from, false, sx)) return check(false);
    if (lockRefuses(from, Change::Name) || lockRefuses(to, Change::Name)) return false;
    bool replacing = statItem(to, false, sx);
    if (from == to) return true;
    bool fromListed = hiddenLists_.listed(from);
    bool toListed = replacing && hiddenLists_.listed(to);
    if (::rename(from.c_str(), to.c_str()) != 0) return check(false);
    // The companion follows; a companion left by the item that was replaced goes.
    std::string fromCompanion = companionOf(from), toCompanion = companionOf(to);
    if (::access(fromCompanion.c_str(), F_OK) == 0)
      ::rename(fromCompanion.c_str(), toCompanion.c_str());
    else if (replacing)
      ::unlink(toCompanion.c_str());
    if (fromListed) setListed(from, false);
    bool wantListed = fromListed || hasInvisibleFlag(to);
    if (wantListed != toListed) setListed(to, wantListed);
    return true;
  }

  bool exchange(const std::string& aPath, const std::string& bPath) override {
    std::string a = trimmed(aPath), b = trimmed(bPath);
    if (lockRefuses(a, Change::Name) || lockRefuses(b, Change::Name)) return false;
    bool aListed = hiddenLists_.listed(a), bListed = hiddenLists_.listed(b);
    if (::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) != 0)
      return check(false);
    std::string ca = companionOf(a), cb = companionOf(b);
    bool aHas = ::access(ca.c_str(), F_OK) == 0, bHas = ::access(cb.c_str(), F_OK) == 0;
    if (aHas && bHas)
      ::renameat2(AT_FDCWD, ca.c_str(), AT_FDCWD, cb.c_str(), RENAME_EXCHANGE);
    else if (aHas)
      ::rename(ca.c_str(), cb.c_str());
    else if (bHas)
      ::rename(cb.c_str(), ca.c_str());
    if (aListed != bListed) {
      setListed(a, bListed);
      setListed(b, aListed);
    }
    return true;
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
    bool companions = false;
    errno = 0;
    while (struct dirent* d = ::readdir(dir)) {
      std::string_view name = d->d_name;
      if (name == "." || name == "..") continue;
      FolderEntry entry;
      entry.name = name;
      if (name.size() > 2 && name[0] == '.' && name[1] == '_') companions = true;
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
    if (ok && companions) dropCompanions(entries);
    if (ok) markHidden(trimmed(path), entries);
    return ok;
  }

  void markHidden(const std::string& folder, std::vector<FolderEntry>& entries) {
    std::unordered_set<std::string_view> listed;
    if (const std::vector<std::string>* names = hiddenLists_.namesOf(folder))
      listed.insert(names->begin(), names->end());
    for (FolderEntry& e : entries)
      e.hidden = (!e.name.empty() && e.name[0] == '.') || listed.count(e.name) != 0;
  }

  // "._name" beside "name" is name's companion, not an item of its own; a companion whose item
  // is gone stays listed, so that the folder can still be emptied.
  static void dropCompanions(std::vector<FolderEntry>& entries) {
    std::unordered_set<std::string_view> names;
    names.reserve(entries.size());
    for (const FolderEntry& e : entries) names.insert(e.name);
    std::unordered_set<std::string_view> withCompanion;
    std::vector<bool> drop(entries.size(), false);
    for (size_t i = 0; i < entries.size(); ++i) {
      const std::string& n = entries[i].name;
      drop[i] = entries[i].kind == FileKind::File && n.size() > 2 && n[0] == '.' && n[1] == '_' &&
                names.count(std::string_view(n).substr(2)) != 0;
      if (drop[i]) withCompanion.insert(std::string_view(n).substr(2));
    }
    for (FolderEntry& e : entries)
      if (withCompanion.count(e.name) != 0) e.companion = true;
    size_t kept = 0;
    for (size_t i = 0; i < entries.size(); ++i)
      if (!drop[i]) {
        if (kept != i) entries[kept] = std::move(entries[i]);
        ++kept;
      }
    entries.resize(kept);
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
    if (lockRefuses(trimmed(path), Change::Name)) return false;
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
    struct statx existing {};
    if (statItem(to, false, existing)) {
      ::close(in);
      return refuse(lockedItem(existing) ? EPERM : EEXIST);
    }
    if (lockRefuses(to, Change::Name)) {
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
    if (ok && !copyCompanion(trimmed(from), trimmed(to))) {
      ok = false;
      error_ = errno != 0 ? errno : EIO;
      ::unlink(to.c_str());
    }
    return ok;
  }

  // The companion (resource fork) of `from`, when it has one, becomes the companion of `to`;
  // a stale companion of an earlier `to` is replaced.
  static bool copyCompanion(const std::string& from, const std::string& to) {
    std::string source = companionOf(from), target = companionOf(to);
    int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) {
      if (errno != ENOENT) return false;
      if (::unlink(target.c_str()) != 0 && errno != ENOENT) return false;
      errno = 0;
      return true;
    }
    struct stat st {};
    int out = -1;
    bool ok = ::fstat(in, &st) == 0 && S_ISREG(st.st_mode);
    if (ok) {
      out = ::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, st.st_mode & 0777);
      ok = out >= 0 && copyData(in, out, {}, 0);
    }
    int saved = errno;
    if (out >= 0 && ::close(out) != 0 && ok) ok = false, saved = errno;
    ::close(in);
    if (!ok) {
      if (out >= 0) ::unlink(target.c_str());
      errno = saved != 0 ? saved : EIO;
    }
    return ok;
  }

  bool setMode(const std::string& path, uint32_t mode) override {
    return check(::chmod(path.c_str(), mode & 07777) == 0);
  }

  // Locked: the immutable flag, or no write bit for anyone (the lock of a process that may not
  // set the flag). A link itself is never locked; the queries follow it to what it names.
  bool isLocked(const std::string& path) override {
    struct statx sx {};
    return statItem(trimmed(path), true, sx) && lockedItem(sx);
  }

  bool setLocked(const std::string& path, bool locked) override {
    std::string item = trimmed(path);
    struct statx sx {};
    if (!statItem(item, true, sx)) return check(false);
    bool immutable = (sx.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
    uint32_t mode = sx.stx_mode & 07777;
    if (locked) {
      if (immutable) return true;
      int err = setImmutable(item, true);
      if (err == 0) return true;
      if (err != EPERM && err != EACCES && err != ENOTTY && err != EOPNOTSUPP && err != EINVAL)
        return refuse(err);
      return check(::chmod(item.c_str(), mode & ~0222u) == 0);
    }
    if (immutable) {
      int err = setImmutable(item, false);
      if (err != 0) return refuse(err);
    }
    if ((mode & 0222) == 0) return check(::chmod(item.c_str(), mode | 0200) == 0);
    return true;
  }

  bool isHidden(const std::string& path) override {
    std::string item = trimmed(path);
    std::string_view name = leafOf(item);
    if (!name.empty() && name[0] == '.') return true;
    // The flag and the list change together, so the list alone answers: one stat of ".hidden"
    // per item, its names read once per folder.
    return hiddenLists_.listed(item);
  }

  // The invisible flag of the Finder information (where the filesystem keeps it) and the line in
  // the folder's ".hidden" change together. A link's flag would be its target's, so a link only
  // gets the line.
  bool setHidden(const std::string& path, bool hidden) override {
    std::string item = trimmed(path);
    struct statx sx {};
    if (!statItem(item, false, sx)) return check(false);
    if (!S_ISLNK(sx.stx_mode)) {
      FinderInfo record = readFinderInfo(item).value_or(FinderInfo{});
      uint16_t flags = record.flags();
      uint16_t wanted = hidden ? flags | kInvisibleFlag : flags & ~kInvisibleFlag;
      if (wanted != flags) {
        record.setFlags(wanted);
        if (!writeFinderInfo(item, record) && error_ != ENOTSUP) return false;
      }
    }
    std::string_view name = leafOf(item);
    bool dotName = !name.empty() && name[0] == '.';
    return setListed(item, hidden && !dotName);
  }

  std::optional<FinderInfo> finderInfo(const std::string& path) override {
    return readFinderInfo(trimmed(path));
  }

  bool setFinderInfo(const std::string& path, const FinderInfo& info) override {
    return writeFinderInfo(trimmed(path), info);
  }

  std::optional<std::string> resourceFork(const std::string& path) override {
    std::string item = trimmed(path);
    if (::access(item.c_str(), F_OK) != 0) return fail(errno);
    int fd = ::open(companionOf(item).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::string();
    std::string data;
    std::vector<DoubleEntry> entries;
    if (readDoubleHeader(fd, entries)) {
      for (const DoubleEntry& e : entries)
        if (e.id == kResourceForkEntry && !readEntry(fd, e, data)) data.clear();
    }
    ::close(fd);
    return data;
  }

  uint64_t resourceForkSize(const std::string& path) override {
    int fd = ::open(companionOf(trimmed(path)).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    uint64_t size = 0;
    std::vector<DoubleEntry> entries;
    if (readDoubleHeader(fd, entries)) {
      for (const DoubleEntry& e : entries)
        if (e.id == kResourceForkEntry) size = e.length;
    }
    ::close(fd);
    return size;
  }

  // Rewrites the companion with the new fork, keeping its other entries; an empty fork and no
  // other entries leave no companion.
  bool setResourceFork(const std::string& path, std::string_view data) override {
    std::string item = trimmed(path);
    if (::access(item.c_str(), F_OK) != 0) return check(false);
    std::string companion = companionOf(item);
    std::vector<std::pair<uint32_t, std::string>> kept;
    int fd = ::open(companion.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
      std::vector<DoubleEntry> entries;
      if (readDoubleHeader(fd, entries)) {
        for (const DoubleEntry& e : entries) {
          std::string bytes;
          if (e.id != kResourceForkEntry && readEntry(fd, e, bytes))
            kept.emplace_back(e.id, std::move(bytes));
        }
      }
      ::close(fd);
    }
    if (!data.empty()) kept.emplace_back(kResourceForkEntry, std::string(data));
    bool ok;
    if (kept.empty())
      ok = ::unlink(companion.c_str()) == 0 || errno == ENOENT;
    else
      ok = writeReplacing(companion, encodeDouble(kept));
    if (!ok) return check(false);
    syncFolder(folderOf(item));
    return true;
  }

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
  bool refuse(int error) {
    error_ = error;
    return false;
  }

  // What a writer changes: an item's data, or a name in a folder (adding, removing, renaming or
  // replacing an item).
  enum class Change { Data, Name };

  // The lock rule, the one check of every writer: a locked item's data is not written, and no
  // name is added, removed or replaced where the item under it or its folder is locked. Applied
  // alike whoever runs the host: the kernel would let root write, fill or empty what nobody has a
  // write bit for. True (lastError() EPERM) when the rule refuses.
  bool lockRefuses(const std::string& item, Change change) {
    struct statx sx {};
    bool refused = statItem(item, change == Change::Data, sx) && lockedItem(sx);
    if (!refused && change == Change::Name)
      refused = statItem(folderOf(item), true, sx) && lockedItem(sx);
    if (refused) error_ = EPERM;
    return refused;
  }

  std::optional<FinderInfo> readFinderInfo(const std::string& item) {
    std::vector<unsigned char> value(64);
    ssize_t n = ::getxattr(item.c_str(), kFinderInfoAttribute, value.data(), value.size());
    if (n < 0 && errno == ERANGE) {
      n = ::getxattr(item.c_str(), kFinderInfoAttribute, nullptr, 0);
      if (n > 0) {
        value.resize(static_cast<size_t>(n));
        n = ::getxattr(item.c_str(), kFinderInfoAttribute, value.data(), value.size());
      }
    }
    FinderInfo record;
    if (n >= 0) {
      std::copy_n(value.begin(), std::min<size_t>(static_cast<size_t>(n), 32), record.bytes.begin());
      return record;
    }
    int error = errno;
    if (error != ENODATA && error != ENOTSUP) return fail(error);
    // A companion written on another system may carry the record.
    int fd = ::open(companionOf(item).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
      std::vector<DoubleEntry> entries;
      std::string bytes;
      bool found = false;
      if (readDoubleHeader(fd, entries)) {
        for (const DoubleEntry& e : entries)
          if (e.id == kFinderInfoEntry && e.length >= 32 && readEntry(fd, e, bytes)) found = true;
      }
      ::close(fd);
      if (found) {
        std::copy_n(bytes.begin(), 32, record.bytes.begin());
        return record;
      }
    }
    return fail(error);
  }

  // A locked item takes new Finder information too: the immutable flag, or the owner's missing
  // write bit, is lifted for the write and put back.
  bool writeFinderInfo(const std::string& item, const FinderInfo& info) {
    auto write = [&] {
      return ::setxattr(item.c_str(), kFinderInfoAttribute, info.bytes.data(), info.bytes.size(),
                        0) == 0;
    };
    if (write()) return true;
    int error = errno;
    struct statx sx {};
    if (error == EPERM && statItem(item, true, sx) &&
        (sx.stx_attributes & STATX_ATTR_IMMUTABLE) != 0 && setImmutable(item, false) == 0) {
      bool ok = write();
      error = errno;
      setImmutable(item, true);
      if (ok) return true;
    } else if (error == EACCES && statItem(item, true, sx) && sx.stx_uid == ::geteuid() &&
               (sx.stx_mode & 0222) == 0) {
      uint32_t mode = sx.stx_mode & 07777;
      if (::chmod(item.c_str(), mode | 0200) == 0) {
        bool ok = write();
        error = errno;
        ::chmod(item.c_str(), mode);
        if (ok) return true;
      }
    }
    return refuse(error == EOPNOTSUPP ? ENOTSUP : error);
  }

  // The invisible flag of the item itself (a link has none: user attributes are not read
  // through lgetxattr on a link).
  static bool hasInvisibleFlag(const std::string& item) {
    unsigned char value[32] = {};
    ssize_t n = ::lgetxattr(item.c_str(), kFinderInfoAttribute, value, sizeof value);
    return n >= 10 && ((value[8] << 8 | value[9]) & kInvisibleFlag) != 0;
  }

  // After an item is gone: its companion and its line in the folder's list go too.
  void forgetItem(const std::string& item) {
    ::unlink(companionOf(item).c_str());
    if (hiddenLists_.listed(item)) setListed(item, false);
  }

  // Adds the item's name to its folder's ".hidden" or removes it; a list left empty is removed.
  bool setListed(const std::string& item, bool listed) {
    std::string folder = folderOf(item);
    std::string name(leafOf(item));
    if (name.empty() || name.find('\n') != std::string::npos) return !listed;
    const std::vector<std::string>* current = hiddenLists_.namesOf(folder);
    std::vector<std::string> names;
    if (current != nullptr) names = *current;
    bool has = std::find(names.begin(), names.end(), name) != names.end();
    if (has == listed) return true;
    // The list is the folder's: a locked folder's list does not change.
    struct statx sx {};
    if (statItem(folder, true, sx) && lockedItem(sx)) return refuse(EPERM);
    if (listed)
      names.push_back(name);
    else
      names.erase(std::remove(names.begin(), names.end(), name), names.end());
    hiddenLists_.forget();
    std::string file = folder + "/.hidden";
    bool ok;
    if (names.empty()) {
      ok = ::unlink(file.c_str()) == 0 || errno == ENOENT;
    } else {
      std::string text;
      for (const std::string& n : names) text += n + "\n";
      ok = writeReplacing(file, text);
    }
    if (!ok) return check(false);
    syncFolder(folder);
    return true;
  }

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
  HiddenLists hiddenLists_;
};

}  // namespace

std::unique_ptr<FileService> makeLinuxFileService() { return std::make_unique<LinuxFileService>(); }

}  // namespace tessel::platform
