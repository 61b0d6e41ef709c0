// The Linux backend's file model beyond POSIX (see file_model.h).
#include "platform/linux/file_model.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "support/byte_order.h"
#include "platform/linux/file_io.h"
#include "platform/pause_points.h"

namespace tessel::platform::filebackend {

using support::appendBigEndian32;
using support::readBigEndian16;
using support::readBigEndian32;

bool readDoubleHeader(int fd, std::vector<DoubleEntry>& entries) {
  entries.clear();
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return false;
  uint64_t fileSize = static_cast<uint64_t>(st.st_size);
  uint8_t header[kDoubleHeaderSize];
  if (fileSize < kDoubleHeaderSize || !preadAll(fd, header, sizeof header, 0)) return false;
  if (readBigEndian32(header) != kDoubleMagic) return false;
  uint32_t version = readBigEndian32(header + 4);
  if (version != kDoubleVersion && version != 0x00010000) return false;
  size_t count = readBigEndian16(header + 24);
  if (count > kDoubleMaxEntries || kDoubleHeaderSize + count * kDoubleEntrySize > fileSize)
    return false;
  std::vector<uint8_t> table(count * kDoubleEntrySize);
  if (count > 0 && !preadAll(fd, table.data(), table.size(), kDoubleHeaderSize)) return false;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* p = table.data() + i * kDoubleEntrySize;
    DoubleEntry e{readBigEndian32(p), readBigEndian32(p + 4), readBigEndian32(p + 8)};
    if (e.offset > fileSize || e.length > fileSize - e.offset) return false;
    entries.push_back(e);
  }
  return true;
}

bool readEntry(int fd, const DoubleEntry& entry, std::string& out) {
  out.assign(static_cast<size_t>(entry.length), '\0');
  return entry.length == 0 || preadAll(fd, out.data(), out.size(), entry.offset);
}

std::string encodeDouble(std::vector<std::pair<uint32_t, std::string>> entries) {
  std::stable_partition(entries.begin(), entries.end(),
                        [](const auto& e) { return e.first != kResourceForkEntry; });
  std::string out;
  appendBigEndian32(out, kDoubleMagic);
  appendBigEndian32(out, kDoubleVersion);
  out.append(16, '\0');
  out.push_back(static_cast<char>(entries.size() >> 8));
  out.push_back(static_cast<char>(entries.size()));
  uint64_t offset = kDoubleHeaderSize + entries.size() * kDoubleEntrySize;
  for (const auto& [id, bytes] : entries) {
    appendBigEndian32(out, id);
    appendBigEndian32(out, static_cast<uint32_t>(offset));
    appendBigEndian32(out, static_cast<uint32_t>(bytes.size()));
    offset += bytes.size();
  }
  for (const auto& e : entries) out += e.second;
  return out;
}

std::optional<std::string> readDoubleEntry(int fd, uint32_t id) {
  std::vector<DoubleEntry> entries;
  if (!readDoubleHeader(fd, entries)) return std::nullopt;
  std::optional<std::string> found;
  for (const DoubleEntry& e : entries) {
    std::string bytes;
    if (e.id == id && readEntry(fd, e, bytes)) found = std::move(bytes);
  }
  return found;
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
  if (error != ENODATA && error != ENOTSUP) return std::nullopt;
  // A companion written on another system may carry the record.
  int fd = ::open(companionOf(item).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    std::optional<std::string> bytes = readDoubleEntry(fd, kFinderInfoEntry);
    ::close(fd);
    if (bytes && bytes->size() >= 32) {
      std::copy_n(bytes->begin(), 32, record.bytes.begin());
      return record;
    }
  }
  errno = error;
  return std::nullopt;
}

// A locked item takes new Finder information too: the immutable flag, or the owner's missing
// write bit, is lifted for the write and put back.
int writeFinderInfo(const std::string& item, const FinderInfo& info) {
  auto write = [&] {
    return ::setxattr(item.c_str(), kFinderInfoAttribute, info.bytes.data(), info.bytes.size(),
                      0) == 0;
  };
  if (write()) return 0;
  int error = errno;
  struct statx sx {};
  if (error == EPERM && statItem(item, true, sx) &&
      (sx.stx_attributes & STATX_ATTR_IMMUTABLE) != 0 && setImmutable(item, false) == 0) {
    bool ok = write();
    error = errno;
    setImmutable(item, true);
    if (ok) return 0;
  } else if (error == EACCES && statItem(item, true, sx) && sx.stx_uid == ::geteuid() &&
             (sx.stx_mode & 0222) == 0) {
    uint32_t mode = sx.stx_mode & 07777;
    if (::chmod(item.c_str(), mode | 0200) == 0) {
      bool ok = write();
      error = errno;
      ::chmod(item.c_str(), mode);
      if (ok) return 0;
    }
  }
  return error == EOPNOTSUPP ? ENOTSUP : error;
}

bool hasInvisibleFlag(const std::string& item) {
  uint8_t value[32] = {};
  ssize_t n = ::lgetxattr(item.c_str(), kFinderInfoAttribute, value, sizeof value);
  return n >= 10 && (readBigEndian16(value + 8) & kInvisibleFlag) != 0;
}

bool HiddenLists::listed(const std::string& path) {
  std::string_view name = leafOf(path);
  if (name.empty()) return false;
  const std::vector<std::string>* names = namesOf(folderOf(path));
  return names != nullptr && std::find(names->begin(), names->end(), name) != names->end();
}

const std::vector<std::string>* HiddenLists::namesOf(const std::string& folder) {
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

FileStatus copyCompanion(const std::string& from, const std::string& to) {
  std::string source = companionOf(from), target = companionOf(to);
  int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) {
    // A name of 254 or 255 bytes leaves no room for a companion's: it has none.
    auto none = [] { return errno == ENOENT || errno == ENAMETOOLONG; };
    if (!none()) return FileError{errno};
    if (::unlink(target.c_str()) != 0 && !none()) return FileError{errno};
    return {};
  }
  struct stat st {};
  int out = -1;
  FileStatus copied;
  if (::fstat(in, &st) != 0)
    copied = FileError{errno};
  else if (!S_ISREG(st.st_mode))
    copied = FileError{EINVAL};
  else if (out = ::open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, st.st_mode & 0777);
           out < 0)
    copied = FileError{errno};
  else {
    pausePoint("copy.companion");
    copied = copyData(in, out, {}, 0);
  }
  if (out >= 0 && ::close(out) != 0 && copied) copied = FileError{errno};
  ::close(in);
  if (!copied && out >= 0) ::unlink(target.c_str());
  return copied;
}

}  // namespace tessel::platform::filebackend
