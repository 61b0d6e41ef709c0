#include "files/file_queries.h"

#include <cerrno>
#include <optional>
#include <string>

#include "files/bundles.h"
#include "files/resource_fork.h"
#include "support/four_char_code.h"
#include "paths/paths.h"
#include "platform/files.h"
#include "platform/text_encoding.h"

namespace tessel::files {
namespace {

using platform::FileKind;
using platform::FinderInfo;

// Finder flag bits, and the letters that show them (after "r", the lock).
constexpr uint16_t kInvisible = 0x4000;
constexpr uint16_t kAlias = 0x8000;
constexpr uint16_t kNameLocked = 0x1000;
constexpr uint16_t kCustomIcon = 0x0400;
constexpr uint16_t kStationery = 0x0800;
constexpr uint16_t kHasBundle = 0x2000;
constexpr uint16_t kShared = 0x0040;
constexpr uint16_t kInited = 0x0100;

struct FlagLetter {
  char letter;
  uint16_t bit;
};
constexpr FlagLetter kFlagLetters[] = {{'h', kInvisible},  {'l', kAlias},     {'n', kNameLocked},
                                       {'c', kCustomIcon}, {'t', kStationery}, {'b', kHasBundle},
                                       {'s', kShared},     {'i', kInited}};

platform::FileService& fs() { return platform::fileService(); }

// The Linux path a method's argument names ("" when it names nothing).
std::string native(std::string_view path) { return paths::nativePath(path); }

std::optional<platform::FileInfo> infoOf(const std::string& path, bool followLinks = true) {
  if (path.empty()) return std::nullopt;
  return fs().info(path, followLinks);
}

// The item's Finder information: its record, a zero record when it has none, else the errno of
// why it cannot be read (a missing item, ENOTSUP: a filesystem that keeps none).
platform::FileResult<FinderInfo> readableFinderInfo(const std::string& path) {
  auto record = fs().finderInfo(path);
  if (!record && record.error() == ENODATA) return FinderInfo{};
  return record;
}

// The data and resource fork sizes of a file; nothing for a folder or a missing item.
std::optional<uint64_t> sizes(std::string_view path, uint64_t& fork) {
  std::string p = native(path);
  auto info = infoOf(p);
  if (!info || info->kind != FileKind::File) return std::nullopt;
  fork = fs().resourceForkSize(p);
  return info->size;
}

// The owner, group or others class of a User argument, as the shift of its bits; -1 for none.
int classShift(std::string_view user) {
  if (user.empty()) return -1;
  switch (user[0]) {
    case 'U': case 'u': return 6;
    case 'G': case 'g': return 3;
    case 'O': case 'o': return 0;
    default: return -1;
  }
}

uint32_t permissionBits(std::string_view letters) {
  uint32_t bits = 0;
  for (char c : letters) {
    if (c == 'r' || c == 'R') bits |= 4;
    if (c == 'w' || c == 'W') bits |= 2;
    if (c == 'x' || c == 'X') bits |= 1;
  }
  return bits;
}

// A bundle's Info.plist code ("CFBundleSignature", "CFBundlePackageType"), or the file's own.
bool codeOf(std::string_view path, bool creator, uint32_t& code) {
  std::string p = native(path);
  auto info = infoOf(p);
  if (!info) return false;
  if (info->kind == FileKind::Folder && bundles::isBundle(p)) {
    auto value = bundles::infoValue(p, creator ? "CFBundleSignature" : "CFBundlePackageType");
    code = value ? support::readFourCharCode(value->substr(0, 4)) : 0;
    return true;
  }
  auto record = readableFinderInfo(p);
  if (!record) {
    // A filesystem without Finder information: a file that has none.
    if (record.error() != ENOTSUP) return false;
    record = FinderInfo{};
  }
  code = creator ? record->creator() : record->type();
  return true;
}

}  // namespace

int32_t fileExists(std::string_view path) {
  auto info = infoOf(native(path));
  return info && info->kind != FileKind::Folder ? 1 : 0;
}

int32_t folderExists(std::string_view path) {
  auto info = infoOf(native(path));
  return info && info->kind == FileKind::Folder ? 1 : 0;
}

int32_t isBundle(std::string_view path) {
  std::string p = native(path);
  auto info = infoOf(p);
  return info && info->kind == FileKind::Folder && bundles::isBundle(p) ? 1 : 0;
}

std::string bundleApp(std::string_view bundle) {
  std::string p = native(bundle);
  auto info = infoOf(p);
  if (!info || info->kind != FileKind::Folder) return "";
  std::string executable = bundles::bundleExecutable(p);
  return executable.empty() ? "" : paths::fromNative(executable, false);
}

std::string fileVersion(std::string_view path) {
  std::string p = native(path);
  auto info = infoOf(p);
  if (!info) return "";
  if (info->kind == FileKind::File) {
    auto fork = fs().resourceFork(p);
    if (!fork || fork->empty()) return "";
    auto vers = findResource(*fork, kVersionResourceType, 1);
    if (!vers) return "";
    auto text = versionString(*vers);
    return text ? platform::macRomanToUtf8(*text) : "";
  }
  if (info->kind != FileKind::Folder) return "";
  auto shortVersion = bundles::infoValue(p, "CFBundleShortVersionString");
  if (shortVersion && !shortVersion->empty()) return *shortVersion;
  auto version = bundles::infoValue(p, "CFBundleVersion").value_or("");
  // Without a short version string the bundle version goes through the system's encoding.
  if (!shortVersion) return platform::macRomanToUtf8(platform::utf8ToMacRoman(version));
  return version;
}

int32_t fileSize(std::string_view path) {
  uint64_t fork = 0;
  auto data = sizes(path, fork);
  if (!data) return -1;
  return static_cast<int32_t>(static_cast<uint32_t>(*data) + static_cast<uint32_t>(fork));
}

double fileSizeEx(std::string_view path) {
  uint64_t fork = 0;
  auto data = sizes(path, fork);
  return data ? static_cast<double>(*data + fork) : -1.0;
}

std::string fileAttributes(std::string_view path) {
  std::string p = native(path);
  auto item = infoOf(p, false);
  if (!item) return "";
  bool link = item->kind == FileKind::Link;
  uint16_t flags = 0;
  if (auto record = fs().finderInfo(p)) flags = record->flags();
  // A link's invisibility is its own name's, not its target's.
  if (link) flags = (flags & ~kInvisible) | kAlias;
  if (fs().isHidden(p)) flags |= kInvisible;
  std::string letters;
  if (fs().isLocked(p)) letters += 'r';
  for (const FlagLetter& f : kFlagLetters)
    if ((flags & f.bit) != 0) letters += f.letter;
  return letters;
}

int32_t setFileAttributes(std::string_view path, std::string_view attributes) {
  std::string p = native(path);
  if (!infoOf(p)) return 0;
  auto record = readableFinderInfo(p);
  if (!record) return 0;

  if (!attributes.empty() && attributes[0] == '-') {
    // Only r, h and t act; "t" clears the name-locked bit.
    bool any = false;
    for (char c : attributes.substr(1)) {
      if (c == 'r') {
        any = fs().setLocked(p, false) || any;
      } else if (c == 'h') {
        any = fs().setHidden(p, false) || any;
        if (auto now = fs().finderInfo(p)) record = now;
      } else if (c == 't') {
        record->setFlags(record->flags() & ~kNameLocked);
        any = fs().setFinderInfo(p, *record) || any;
      }
    }
    return any ? 1 : 0;
  }

  // The flags are replaced by exactly the letters given; then the lock follows "r".
  uint16_t flags = 0;
  for (char c : attributes)
    for (const FlagLetter& f : kFlagLetters)
      if (c == f.letter) flags |= f.bit;
  bool hidden = (flags & kInvisible) != 0;
  // Through a link the flags land on its target, whose invisibility stays its own.
  if (auto item = infoOf(p, false); item && item->kind == FileKind::Link)
    flags = (flags & ~kInvisible) | (record->flags() & kInvisible);
  record->setFlags(flags);
  bool ok = static_cast<bool>(fs().setFinderInfo(p, *record));
  ok = fs().setHidden(p, hidden) && ok;
  ok = fs().setLocked(p, attributes.find('r') != std::string_view::npos) && ok;
  return ok ? 1 : 0;
}

bool fileCreator(std::string_view path, uint32_t& code) { return codeOf(path, true, code); }
bool fileType(std::string_view path, uint32_t& code) { return codeOf(path, false, code); }

int32_t setFileInfo(std::string_view path, uint32_t type, uint32_t creator) {
  std::string p = native(path);
  if (!infoOf(p)) return 0;
  auto record = readableFinderInfo(p);
  if (!record) return 0;
  record->setType(type);
  record->setCreator(creator);
  return fs().setFinderInfo(p, *record) ? 1 : 0;
}

std::string filePermissions(std::string_view path, std::string_view user) {
  int shift = classShift(user);
  if (shift < 0) return "";
  auto info = infoOf(native(path));
  if (!info) return "";
  uint32_t bits = (info->mode >> shift) & 7;
  std::string letters;
  if (bits & 4) letters += 'r';
  if (bits & 2) letters += 'w';
  if (bits & 1) letters += 'x';
  return letters;
}

int32_t setFilePermissions(std::string_view path, std::string_view user,
                           std::string_view permissions) {
  std::string p = native(path);
  auto info = infoOf(p);
  if (!info) return 0;
  uint32_t mode = info->mode;
  int shift = classShift(user);
  if (shift >= 0) {
    uint32_t bits = permissionBits(permissions) << shift;
    uint32_t classBits = 7u << shift;
    if (!permissions.empty() && permissions[0] == '+')
      mode |= bits;
    else if (!permissions.empty() && permissions[0] == '-')
      mode &= ~bits;
    else
      mode = (mode & ~classBits) | bits;
  }
  return fs().setMode(p, mode) ? 1 : 0;
}

}  // namespace tessel::files
