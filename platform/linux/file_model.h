// The file model the Linux backend keeps beyond POSIX: Finder information in an extended
// attribute, resource forks in "._name" companions (the double-file format), and the folders'
// ".hidden" lists.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/files.h"

namespace tessel::platform::filebackend {

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

// The entries of a companion file; false when it is not one or an entry lies outside the file.
bool readDoubleHeader(int fd, std::vector<DoubleEntry>& entries);
bool readEntry(int fd, const DoubleEntry& entry, std::string& out);
// A companion holding `entries`, the resource fork last so that it is the one that grows.
std::string encodeDouble(std::vector<std::pair<uint32_t, std::string>> entries);
// The companion `fd`'s entry `id`; nothing when it has none or cannot be read.
std::optional<std::string> readDoubleEntry(int fd, uint32_t id);

// The companion (resource fork) of `from`, when it has one, becomes the companion of `to`; a
// stale companion of an earlier `to` is replaced.
FileStatus copyCompanion(const std::string& from, const std::string& to);

// The item's Finder information: the attribute, else the companion's entry; nothing with errno
// set (ENODATA: none; ENOTSUP: no user attributes here).
std::optional<FinderInfo> readFinderInfo(const std::string& item);
// Stores the record; 0 or the errno (ENOTSUP where the filesystem keeps no user attributes).
int writeFinderInfo(const std::string& item, const FinderInfo& info);
// The invisible flag of the item itself (a link has none: user attributes are not read through
// lgetxattr on a link).
bool hasInvisibleFlag(const std::string& item);

// The ".hidden" lists of folders: one name per line. The last list read is kept and re-read
// only when the file changes, so asking about every item of a folder reads its list once.
class HiddenLists {
 public:
  bool listed(const std::string& path);
  // The folder's list (nullptr when it has none).
  const std::vector<std::string>* namesOf(const std::string& folder);
  void forget() { file_.clear(); }

 private:
  std::string file_;
  struct stat stat_ {};
  std::vector<std::string> names_;
};

}  // namespace tessel::platform::filebackend
