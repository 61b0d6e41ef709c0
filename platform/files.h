// Files and folders as the operating system keeps them.
//
// Every file operation of the Xtra (files/, formats/, and the other subsystems where they touch
// files) goes through this service, so the logic above it runs against a fake in unit tests. Paths
// here are Linux file-system paths (paths::nativePath has already resolved both host styles).
//
// Every operation that can fail returns its errno with its answer: a `FileStatus` where there is
// nothing else to answer, a `FileResult` (the value, or the errno) where there is, so a caller
// that distinguishes causes (a missing item from a refused one) reads them where it tests.
#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tessel::platform {

enum class FileKind { File, Folder, Link, Other };

// The errno of a failed operation, as an operation returns it (0 is taken for EIO: a failure
// always has a cause).
struct FileError {
  int code = EIO;
};

// The answer of an operation that has nothing to answer but whether it worked: true on success,
// else `error()` says why.
class FileStatus {
 public:
  FileStatus() = default;
  FileStatus(FileError failure) : error_(failure.code != 0 ? failure.code : EIO) {}
  // Success when `ok`, else the errno the failed call left.
  static FileStatus fromErrno(bool ok) { return ok ? FileStatus() : FileError{errno}; }
  explicit operator bool() const { return error_ == 0; }
  int error() const { return error_; }  // 0 on success

 private:
  int error_ = 0;
};

// The value of an operation that answers one, or the errno of its failure. It is a
// std::optional of the value, so a caller that needs only the value keeps one.
template <typename T>
class FileResult : public std::optional<T> {
 public:
  FileResult(T value) : std::optional<T>(std::move(value)) {}
  FileResult(FileError failure) : error_(failure.code != 0 ? failure.code : EIO) {}
  int error() const { return error_; }  // 0 when there is a value

 private:
  int error_ = 0;
};

struct FileInfo {
  FileKind kind = FileKind::Other;
  uint64_t size = 0;   // bytes of data (a link: the length of its target text)
  uint32_t mode = 0;   // the permission bits (07777)
  uint32_t uid = 0;
  uint32_t gid = 0;
  uint64_t device = 0;
  uint64_t inode = 0;
  uint32_t links = 1;  // the names the item has (hard links)
  // Unix times of the last modification and, where the filesystem records it, of the creation.
  int64_t modifiedSeconds = 0;
  uint32_t modifiedNanoseconds = 0;
  std::optional<int64_t> createdSeconds;
};

// The Finder information that travels with a file: type, creator and Finder flags, kept as the
// classic 32-byte record (big-endian; type at 0, creator at 4, flags at 8, the rest preserved).
struct FinderInfo {
  std::array<uint8_t, 32> bytes{};

  uint32_t type() const;
  uint32_t creator() const;
  uint16_t flags() const;
  void setType(uint32_t code);
  void setCreator(uint32_t code);
  void setFlags(uint16_t flags);
};

// An open file. Reads and writes move large blocks; nothing here works a byte at a time.
class OpenFile {
 public:
  virtual ~OpenFile() = default;
  // Bytes read into `buffer` (0 at end of file), or -1 on an error.
  virtual int64_t read(void* buffer, size_t size) = 0;
  virtual int64_t readAt(void* buffer, size_t size, uint64_t offset) = 0;
  // Writes all of `data` or fails.
  virtual FileStatus write(const void* data, size_t size) = 0;
  virtual FileStatus writeAt(const void* data, size_t size, uint64_t offset) = 0;
  virtual std::optional<uint64_t> size() = 0;
  // Data and metadata to the disk (fsync).
  virtual FileStatus sync() = 0;
  // The descriptor, for services that hand a file to another system call (copy_file_range).
  virtual int descriptor() const = 0;
};

// One item of a folder listing.
struct FolderEntry {
  std::string name;
  FileKind kind = FileKind::Other;  // a symbolic link is Link, whatever it points to
  // The item has a "._name" companion (a resource fork); without one resourceForkSize() is 0,
  // so a walk need not ask.
  bool companion = false;
  // Invisible: a "." name, or one the folder's ".hidden" list names (the list read once per
  // listing, so a walk need not ask isHidden() item by item).
  bool hidden = false;
};

// Called after each block a copy moves, with the bytes copied so far; false cancels the copy.
using CopyProgress = std::function<bool(uint64_t copiedBytes)>;

enum class OpenMode {
  Read,        // an existing file, read only
  ReadWrite,   // an existing file, read and write, not truncated
  CreateNew,   // a new file (fails when the name exists), read and write, mode 0666 & ~umask
};

// An opened file, or the errno of the open that failed.
class OpenedFile : public std::unique_ptr<OpenFile> {
 public:
  OpenedFile(std::unique_ptr<OpenFile> file) : std::unique_ptr<OpenFile>(std::move(file)) {}
  OpenedFile(FileError failure) : error_(failure.code != 0 ? failure.code : EIO) {}
  int error() const { return error_; }  // 0 when a file is open

 private:
  int error_ = 0;
};

class FileService {
 public:
  virtual ~FileService() = default;

  // ---- Queries --------------------------------------------------------------------------------
  // What the path names; a symbolic link is followed unless `followLinks` is false.
  virtual FileResult<FileInfo> info(const std::string& path, bool followLinks = true) = 0;
  // What the path names (see info), nothing when it names nothing.
  std::optional<FileKind> kind(const std::string& path, bool followLinks = true) {
    auto item = info(path, followLinks);
    return item ? std::optional<FileKind>(item->kind) : std::nullopt;
  }
  // An item of any kind, a dangling link included.
  bool exists(const std::string& path) { return kind(path, /*followLinks=*/false).has_value(); }
  // A folder, or a link to one.
  bool isFolder(const std::string& path) { return kind(path) == FileKind::Folder; }
  // Walks from the folder `root` down through `names`, one step per name (each step follows a
  // link, and costs one system call, so the walk is linear in the path): 0 when the last name
  // is reached, else the errno of the first step that failed (ENOENT, EACCES, ENOTDIR, ELOOP).
  virtual FileStatus walk(const std::string& root, const std::vector<std::string>& names) = 0;

  // ---- Data -------------------------------------------------------------------------------------
  virtual OpenedFile open(const std::string& path, OpenMode mode) = 0;

  // ---- Names ------------------------------------------------------------------------------------
  virtual FileStatus createFolder(const std::string& path) = 0;   // one level, mode 0777 & ~umask
  // A file or a link (unlink), together with the item's resource-fork companion and its line in
  // the folder's ".hidden". A locked item is refused (EPERM); a link itself is never locked.
  virtual FileStatus removeFile(const std::string& path) = 0;
  virtual FileStatus removeFolder(const std::string& path) = 0;   // an empty folder; locked: EPERM
  // Renames, replacing an existing file at `to` (rename(2)); the resource fork and the ".hidden"
  // line go along. Fails with EPERM when `from` or an existing `to` is locked.
  virtual FileStatus rename(const std::string& from, const std::string& to) = 0;
  // Swaps two names atomically (renameat2 RENAME_EXCHANGE), companions too. EINVAL or ENOSYS
  // where the filesystem cannot; callers then fall back to rename(). EPERM when either item is
  // locked.
  virtual FileStatus exchange(const std::string& a, const std::string& b) = 0;
  // Makes a finished creation, deletion or rename durable: fsync of the folder.
  virtual FileStatus syncFolder(const std::string& folder) = 0;

  // A folder for temporary files on the same filesystem as `path` (so a rename from it into
  // place is atomic), created when missing; "" when there is none.
  virtual std::string temporaryFolderFor(const std::string& path) = 0;

  // ---- Folders ----------------------------------------------------------------------------------------
  // A snapshot of the folder's items in the order the filesystem lists them, without "." and
  // "..", and without the companion files that hold other items' resource forks. One pass over
  // the folder; callers index into the snapshot instead of reading the folder again.
  virtual FileStatus listFolder(const std::string& path, std::vector<FolderEntry>& entries) = 0;

  // ---- Links -----------------------------------------------------------------------------------------
  virtual FileResult<std::string> readLink(const std::string& path) = 0;
  virtual FileStatus createLink(const std::string& target, const std::string& path) = 0;

  // ---- Copying ---------------------------------------------------------------------------------------
  // Copies the file `from` to the new name `to` (which must not exist): its data in large blocks
  // (copy_file_range, a reflink where the filesystem offers one), its permission bits, its
  // extended attributes, Finder information and resource fork. `progress`, when given, is called
  // after every block of at most `blockSize` bytes (0: the service's own size) and may cancel.
  // An existing `to` gives EEXIST, or EPERM when it is locked. A copy that fails leaves nothing
  // under `to`; one that `progress` cancelled (ECANCELED) leaves the part it copied. The copy is
  // not locked itself unless its permission bits leave nobody a write bit.
  virtual FileStatus copyFile(const std::string& from, const std::string& to,
                        const CopyProgress& progress = {}, size_t blockSize = 0) = 0;

  // ---- Permissions, locks, invisibility -------------------------------------------------------------
  virtual FileStatus setMode(const std::string& path, uint32_t mode) = 0;
  // A locked item may not be written, deleted, renamed or overwritten until it is unlocked, and a
  // locked folder gains and loses no items (EPERM, whoever runs the process). Locked means
  // the immutable flag, or no write bit for anyone; locking sets the flag where the process may,
  // else clears every write bit; unlocking clears the flag and gives the owner a write bit back
  // when nobody had one. Both follow links.
  virtual bool isLocked(const std::string& path) = 0;
  virtual FileStatus setLocked(const std::string& path, bool locked) = 0;
  // Invisible: a name beginning with "." always is; others when the folder's ".hidden" list
  // names them (the list desktop file managers honour). Setting changes the Finder invisible
  // flag (not a link's) and the list together, and a rename lists an item whose flag is set, so
  // the list is what is asked (cheaply: the folder's list is read once while it is unchanged).
  virtual bool isHidden(const std::string& path) = 0;
  virtual FileStatus setHidden(const std::string& path, bool hidden) = 0;

  // ---- Finder information and resource forks ----------------------------------------------------------
  // Kept as the 32-byte record in the extended attribute "user.tessel.finderinfo" (read from the
  // companion's Finder information entry when the attribute is missing). Nothing when the file
  // has none; ENOTSUP (and setters fail) when the filesystem keeps no user extended attributes.
  // A locked file still takes new Finder information.
  virtual FileResult<FinderInfo> finderInfo(const std::string& path) = 0;
  virtual FileStatus setFinderInfo(const std::string& path, const FinderInfo& info) = 0;
  // The resource fork lives in the companion file "._name" beside the item (the double-file
  // format: entry 2). Its bytes; "" when the file has none. An empty fork removes the companion
  // when it holds nothing else.
  virtual FileResult<std::string> resourceFork(const std::string& path) = 0;
  virtual uint64_t resourceForkSize(const std::string& path) = 0;
  virtual FileStatus setResourceFork(const std::string& path, std::string_view data) = 0;

  // ---- Listings and copies
  // Gives the item the modification time (Unix seconds and nanoseconds), as a copy keeps its
  // source's. ENOTSUP where the service cannot.
  virtual FileStatus setModifiedTime(const std::string& path, int64_t seconds,
                                     uint32_t nanoseconds) {
    (void)path, (void)seconds, (void)nanoseconds;
    return FileError{ENOTSUP};
  }
  // Gives the item (a link itself, not what it names) the owner and group, as a replacement keeps
  // the original's. EPERM where the process may not.
  virtual FileStatus setOwner(const std::string& path, uint32_t uid, uint32_t gid) {
    (void)path, (void)uid, (void)gid;
    return FileError{EPERM};
  }
  // The folder's items as listFolder gives them, with each item's size in bytes (a link: the
  // length of its target text; 0 where it cannot be read).
  virtual FileStatus listFolderWithSizes(const std::string& path,
                                         std::vector<FolderEntry>& entries,
                                         std::vector<uint64_t>& sizes) {
    if (FileStatus listed = listFolder(path, entries); !listed) return listed;
    std::string folder = path.empty() || path.back() == '/' ? path : path + "/";
    sizes.assign(entries.size(), 0);
    for (size_t i = 0; i < entries.size(); ++i)
      if (auto item = info(folder + entries[i].name, /*followLinks=*/false)) sizes[i] = item->size;
    return {};
  }
};

// The service in use: the Linux backend unless a test installed another.
FileService& fileService();

// Installs `service` (nullptr restores the Linux backend) and returns the one it replaces.
std::unique_ptr<FileService> setFileService(std::unique_ptr<FileService> service);

// The Linux backend (POSIX calls, statx, renameat2, extended attributes).
std::unique_ptr<FileService> makeLinuxFileService();

}  // namespace tessel::platform
