// Files on Linux: POSIX calls on paths, statx for birth times, renameat2 for the atomic swap.
//
// The file model beyond POSIX (Finder information, resource-fork companions, ".hidden" lists)
// is in file_model.cpp, the plumbing (path text, the lock test, whole-buffer I/O) in file_io.cpp.
#include <dirent.h>
#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <unordered_set>
#include <vector>

#include "platform/files.h"
#include "platform/linux/file_io.h"
#include "platform/linux/file_model.h"

namespace tessel::platform {
namespace {

using namespace filebackend;

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

  FileStatus write(const void* data, size_t size) override { return writeAll(fd_, data, size); }
  FileStatus writeAt(const void* data, size_t size, uint64_t offset) override {
    return writeAll(fd_, data, size, offset);
  }

  std::optional<uint64_t> size() override {
    struct stat st {};
    if (::fstat(fd_, &st) != 0) return std::nullopt;
    return static_cast<uint64_t>(st.st_size);
  }

  FileStatus sync() override { return FileStatus::fromErrno(::fsync(fd_) == 0); }
  int descriptor() const override { return fd_; }

 private:
  int fd_;
};

class LinuxFileService final : public FileService {
 public:
  FileResult<FileInfo> info(const std::string& path, bool followLinks) override {
    struct statx sx {};
    int flags = AT_STATX_SYNC_AS_STAT | (followLinks ? 0 : AT_SYMLINK_NOFOLLOW);
    if (path.empty()) return FileError{ENOENT};
    if (::statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0)
      return FileError{errno};
    FileInfo info;
    info.kind = kindOf(sx.stx_mode);
    info.size = sx.stx_size;
    info.mode = sx.stx_mode & 07777;
    info.uid = sx.stx_uid;
    info.gid = sx.stx_gid;
    info.device = (static_cast<uint64_t>(sx.stx_dev_major) << 32) | sx.stx_dev_minor;
    info.inode = sx.stx_ino;
    info.links = sx.stx_nlink;
    info.modifiedSeconds = sx.stx_mtime.tv_sec;
    info.modifiedNanoseconds = sx.stx_mtime.tv_nsec;
    if ((sx.stx_mask & STATX_BTIME) != 0) info.createdSeconds = sx.stx_btime.tv_sec;
    return info;
  }

  FileStatus walk(const std::string& root, const std::vector<std::string>& names) override {
    // O_PATH descriptors: a step needs search permission on its folder, not read permission.
    int dir = ::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return FileError{errno};
    for (const std::string& name : names) {
      int item = ::openat(dir, name.c_str(), O_PATH | O_CLOEXEC);
      int error = item < 0 ? errno : 0;
      ::close(dir);
      if (item < 0) return FileError{error};
      dir = item;
    }
    ::close(dir);
    return {};
  }

  OpenedFile open(const std::string& path, OpenMode mode) override {
    if (mode != OpenMode::Read &&
        lockRefuses(path, mode == OpenMode::ReadWrite ? Change::Data : Change::Name))
      return FileError{EPERM};
    int flags = O_CLOEXEC;
    switch (mode) {
      case OpenMode::Read: flags |= O_RDONLY; break;
      case OpenMode::ReadWrite: flags |= O_RDWR; break;
      case OpenMode::CreateNew: flags |= O_RDWR | O_CREAT | O_EXCL; break;
    }
    int fd = ::open(path.c_str(), flags, 0666);
    if (fd < 0) return FileError{errno};
    return std::unique_ptr<OpenFile>(std::make_unique<LinuxOpenFile>(fd));
  }

  FileStatus createFolder(const std::string& path) override {
    if (lockRefuses(trimmed(path), Change::Name)) return FileError{EPERM};
    return FileStatus::fromErrno(::mkdir(path.c_str(), 0777) == 0);
  }

  // A file or link goes together with its companion and its line in the folder's ".hidden".
  FileStatus removeFile(const std::string& path) override {
    std::string item = trimmed(path);
    struct statx sx {};
    if (!statItem(item, false, sx)) return FileError{errno};
    if (lockRefuses(item, Change::Name)) return FileError{EPERM};
    if (::unlink(item.c_str()) != 0) return FileError{errno};
    forgetItem(item);
    return {};
  }

  FileStatus removeFolder(const std::string& path) override {
    std::string item = trimmed(path);
    struct statx sx {};
    if (!statItem(item, false, sx)) return FileError{errno};
    if (lockRefuses(item, Change::Name)) return FileError{EPERM};
    if (::rmdir(item.c_str()) != 0) return FileError{errno};
    forgetItem(item);
    return {};
  }

  FileStatus rename(const std::string& fromPath, const std::string& toPath) override {
    std::string from = trimmed(fromPath), to = trimmed(toPath);
    struct statx sx {};
    if (!statItem(from, false, sx)) return FileError{errno};
    if (lockRefuses(from, Change::Name) || lockRefuses(to, Change::Name)) return FileError{EPERM};
    bool replacing = statItem(to, false, sx);
    if (from == to) return {};
    bool fromListed = hiddenLists_.listed(from);
    bool toListed = replacing && hiddenLists_.listed(to);
    if (::rename(from.c_str(), to.c_str()) != 0) return FileError{errno};
    // The companion follows; a companion left by the item that was replaced goes.
    std::string fromCompanion = companionOf(from), toCompanion = companionOf(to);
    if (::access(fromCompanion.c_str(), F_OK) == 0)
      ::rename(fromCompanion.c_str(), toCompanion.c_str());
    else if (replacing)
      ::unlink(toCompanion.c_str());
    if (fromListed) setListed(from, false);
    bool wantListed = fromListed || hasInvisibleFlag(to);
    if (wantListed != toListed) setListed(to, wantListed);
    return {};
  }

  FileStatus exchange(const std::string& aPath, const std::string& bPath) override {
    std::string a = trimmed(aPath), b = trimmed(bPath);
    if (lockRefuses(a, Change::Name) || lockRefuses(b, Change::Name)) return FileError{EPERM};
    bool aListed = hiddenLists_.listed(a), bListed = hiddenLists_.listed(b);
    if (::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) != 0)
      return FileError{errno};
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
    return {};
  }

  FileStatus syncFolder(const std::string& folder) override {
    int fd = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return FileError{errno};
    FileStatus synced = FileStatus::fromErrno(::fsync(fd) == 0);
    ::close(fd);
    return synced;
  }

  // The system's temporary folder when it lies on the same filesystem; else a private folder in
  // the user's cache when that does; else the file's own folder, which always does.
  std::string temporaryFolderFor(const std::string& path) override {
    std::string folder = folderOf(path);
    struct stat target {};
    if (::stat(folder.c_str(), &target) != 0) return std::string();
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

  FileStatus listFolder(const std::string& path, std::vector<FolderEntry>& entries) override {
    entries.clear();
    DIR* dir = ::opendir(path.c_str());
    if (dir == nullptr) return FileError{errno};
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
    int error = errno;
    ::closedir(dir);
    if (error != 0) return FileError{error};
    if (companions) dropCompanions(entries);
    markHidden(trimmed(path), entries);
    return {};
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

  FileResult<std::string> readLink(const std::string& path) override {
    std::string target(256, '\0');
    for (;;) {
      ssize_t n = ::readlink(path.c_str(), target.data(), target.size());
      if (n < 0) return FileError{errno};
      if (static_cast<size_t>(n) < target.size()) {
        target.resize(static_cast<size_t>(n));
        return target;
      }
      target.resize(target.size() * 2);
    }
  }

  FileStatus createLink(const std::string& target, const std::string& path) override {
    if (lockRefuses(trimmed(path), Change::Name)) return FileError{EPERM};
    return FileStatus::fromErrno(::symlink(target.c_str(), path.c_str()) == 0);
  }

  FileStatus copyFile(const std::string& from, const std::string& to, const CopyProgress& progress,
                      size_t blockSize) override {
    int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return FileError{errno};
    struct stat st {};
    if (::fstat(in, &st) != 0 || !S_ISREG(st.st_mode)) {
      int error = errno != 0 ? errno : EINVAL;
      ::close(in);
      return FileError{error};
    }
    struct statx existing {};
    if (statItem(to, false, existing)) {
      ::close(in);
      return FileError{lockedItem(existing) ? EPERM : EEXIST};
    }
    if (lockRefuses(to, Change::Name)) {
      ::close(in);
      return FileError{EPERM};
    }
    int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, st.st_mode & 07777);
    if (out < 0) {
      int error = errno;
      ::close(in);
      return FileError{error};
    }
    FileStatus copied = copyData(in, out, progress, blockSize);
    if (copied && ::fchmod(out, st.st_mode & 07777) != 0) copied = FileError{errno};
    if (copied) copyAttributes(in, out);
    ::close(in);
    if (::close(out) != 0 && copied) copied = FileError{errno};
    if (copied) copied = copyCompanion(trimmed(from), trimmed(to));
    // The new name is ours (O_EXCL): a copy that failed (a full disk, a read error) leaves
    // nothing half-written under it; a cancelled one leaves what it copied.
    if (!copied && copied.error() != ECANCELED) ::unlink(to.c_str());
    return copied;
  }

  FileStatus setMode(const std::string& path, uint32_t mode) override {
    return FileStatus::fromErrno(::chmod(path.c_str(), mode & 07777) == 0);
  }

  // Locked: the immutable flag, or no write bit for anyone (the lock of a process that may not
  // set the flag). A link itself is never locked; the queries follow it to what it names.
  bool isLocked(const std::string& path) override {
    struct statx sx {};
    return statItem(trimmed(path), true, sx) && lockedItem(sx);
  }

  FileStatus setLocked(const std::string& path, bool locked) override {
    std::string item = trimmed(path);
    struct statx sx {};
    if (!statItem(item, true, sx)) return FileError{errno};
    bool immutable = (sx.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
    uint32_t mode = sx.stx_mode & 07777;
    if (locked) {
      if (immutable) return {};
      int err = setImmutable(item, true);
      if (err == 0) return {};
      if (err != EPERM && err != EACCES && err != ENOTTY && err != EOPNOTSUPP && err != EINVAL)
        return FileError{err};
      return FileStatus::fromErrno(::chmod(item.c_str(), mode & ~0222u) == 0);
    }
    if (immutable) {
      int err = setImmutable(item, false);
      if (err != 0) return FileError{err};
    }
    if ((mode & 0222) == 0) return FileStatus::fromErrno(::chmod(item.c_str(), mode | 0200) == 0);
    return {};
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
  FileStatus setHidden(const std::string& path, bool hidden) override {
    std::string item = trimmed(path);
    struct statx sx {};
    if (!statItem(item, false, sx)) return FileError{errno};
    if (!S_ISLNK(sx.stx_mode)) {
      FinderInfo record = readFinderInfo(item).value_or(FinderInfo{});
      uint16_t flags = record.flags();
      uint16_t wanted = hidden ? flags | kInvisibleFlag : flags & ~kInvisibleFlag;
      if (wanted != flags) {
        record.setFlags(wanted);
        int error = writeFinderInfo(item, record);
        if (error != 0 && error != ENOTSUP) return FileError{error};
      }
    }
    std::string_view name = leafOf(item);
    bool dotName = !name.empty() && name[0] == '.';
    return setListed(item, hidden && !dotName);
  }

  FileResult<FinderInfo> finderInfo(const std::string& path) override {
    auto record = readFinderInfo(trimmed(path));
    if (!record) return FileError{errno};
    return *record;
  }

  FileStatus setFinderInfo(const std::string& path, const FinderInfo& info) override {
    int error = writeFinderInfo(trimmed(path), info);
    if (error != 0) return FileError{error};
    return {};
  }

  FileResult<std::string> resourceFork(const std::string& path) override {
    std::string item = trimmed(path);
    if (::access(item.c_str(), F_OK) != 0) return FileError{errno};
    int fd = ::open(companionOf(item).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::string();
    std::string data = readDoubleEntry(fd, kResourceForkEntry).value_or(std::string());
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
  FileStatus setResourceFork(const std::string& path, std::string_view data) override {
    std::string item = trimmed(path);
    if (::access(item.c_str(), F_OK) != 0) return FileError{errno};
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
    FileStatus written;
    if (kept.empty()) {
      if (::unlink(companion.c_str()) != 0 && errno != ENOENT) written = FileError{errno};
    } else {
      written = writeReplacing(companion, encodeDouble(kept));
    }
    if (written) syncFolder(folderOf(item));
    return written;
  }

  // ---- Listings and copies
  FileStatus setModifiedTime(const std::string& path, int64_t seconds,
                             uint32_t nanoseconds) override {
    struct timespec times[2] = {{0, UTIME_OMIT},
                                {static_cast<time_t>(seconds), static_cast<long>(nanoseconds)}};
    return FileStatus::fromErrno(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) ==
                                 0);
  }

  FileStatus setOwner(const std::string& path, uint32_t uid, uint32_t gid) override {
    return FileStatus::fromErrno(::lchown(path.c_str(), uid, gid) == 0);
  }

  // The sizes are looked up relative to the open folder, not through each item's full path.
  FileStatus listFolderWithSizes(const std::string& path, std::vector<FolderEntry>& entries,
                                 std::vector<uint64_t>& sizes) override {
    if (FileStatus listed = listFolder(path, entries); !listed) return listed;
    sizes.assign(entries.size(), 0);
    int dir = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return FileError{errno};
    for (size_t i = 0; i < entries.size(); ++i) {
      struct stat st {};
      if (::fstatat(dir, entries[i].name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
        sizes[i] = static_cast<uint64_t>(st.st_size);
    }
    ::close(dir);
    return {};
  }

 private:
  // What a writer changes: an item's data, or a name in a folder (adding, removing, renaming or
  // replacing an item).
  enum class Change { Data, Name };

  // The lock rule, the one check of every writer: a locked item's data is not written, and no
  // name is added, removed or replaced where the item under it or its folder is locked. Applied
  // alike whoever runs the host: the kernel would let root write, fill or empty what nobody has a
  // write bit for. True when the rule refuses (the writer answers EPERM).
  bool lockRefuses(const std::string& item, Change change) {
    struct statx sx {};
    bool refused = statItem(item, change == Change::Data, sx) && lockedItem(sx);
    if (!refused && change == Change::Name)
      refused = statItem(folderOf(item), true, sx) && lockedItem(sx);
    return refused;
  }

  // After an item is gone: its companion and its line in the folder's list go too.
  void forgetItem(const std::string& item) {
    ::unlink(companionOf(item).c_str());
    if (hiddenLists_.listed(item)) setListed(item, false);
  }

  // Adds the item's name to its folder's ".hidden" or removes it; a list left empty is removed.
  FileStatus setListed(const std::string& item, bool listed) {
    std::string folder = folderOf(item);
    std::string name(leafOf(item));
    if (name.empty() || name.find('\n') != std::string::npos)
      return listed ? FileStatus(FileError{EINVAL}) : FileStatus();
    const std::vector<std::string>* current = hiddenLists_.namesOf(folder);
    std::vector<std::string> names;
    if (current != nullptr) names = *current;
    bool has = std::find(names.begin(), names.end(), name) != names.end();
    if (has == listed) return {};
    // The list is the folder's: a locked folder's list does not change.
    struct statx sx {};
    if (statItem(folder, true, sx) && lockedItem(sx)) return FileError{EPERM};
    if (listed)
      names.push_back(name);
    else
      names.erase(std::remove(names.begin(), names.end(), name), names.end());
    hiddenLists_.forget();
    std::string file = folder + "/.hidden";
    FileStatus written;
    if (names.empty()) {
      if (::unlink(file.c_str()) != 0 && errno != ENOENT) written = FileError{errno};
    } else {
      std::string text;
      for (const std::string& n : names) text += n + "\n";
      written = writeReplacing(file, text);
    }
    if (written) syncFolder(folder);
    return written;
  }

  HiddenLists hiddenLists_;
};

}  // namespace

std::unique_ptr<FileService> makeLinuxFileService() { return std::make_unique<LinuxFileService>(); }

}  // namespace tessel::platform
