#include "files/copy_engine.h"

#include <cerrno>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "files/file_queries.h"
#include "files/folder_walk.h"
#include "paths/paths.h"
#include "platform/pause_points.h"
#include "support/path_text.h"
#include "support/text.h"

namespace tessel::files {

using platform::FileInfo;
using platform::FileKind;
using platform::fileService;
using support::parentOfNative;
using support::withoutTrailingSlash;

namespace {

// A folder path in CreateFolderPath's buffer; a name in a name buffer.
constexpr size_t kCreatePathLimit = 258;
constexpr size_t kLeafLimit = 255;
// The attribute letters tsXCopy carries from a source folder to its copy.
constexpr size_t kAttributesLimit = 35;
// tsRenameFile moves within a folder only names of up to this length; longer ones rename in place.
constexpr size_t kShortLeafLimit = 31;

// Every creation and deletion is made durable by a flush of its folder. Inside a folder copy the
// flushes are gathered and each folder is flushed once when the outermost copy ends.
class FlushBatch {
 public:
  FlushBatch() : outer_(active_ == nullptr) {
    if (outer_) active_ = this;
  }
  ~FlushBatch() {
    if (!outer_) return;
    active_ = nullptr;
    for (const std::string& folder : folders_) fileService().syncFolder(folder);
  }
  FlushBatch(const FlushBatch&) = delete;
  FlushBatch& operator=(const FlushBatch&) = delete;

  static void flush(const std::string& nativeFolder) {
    if (active_ != nullptr)
      active_->folders_.insert(nativeFolder);
    else
      fileService().syncFolder(nativeFolder);
  }

 private:
  static inline FlushBatch* active_ = nullptr;
  bool outer_;
  std::set<std::string> folders_;
};

std::optional<FileInfo> itemInfo(const std::string& native) {
  if (native.empty()) return std::nullopt;
  return fileService().info(native, /*followLinks=*/false);
}

bool isFolder(const std::string& native) {
  if (native.empty()) return false;
  auto info = fileService().info(native);
  return info && info->kind == FileKind::Folder;
}

// A leaf of a host path as Linux names it: an HFS name's "/" is a Linux ":".
std::string nativeLeaf(std::string_view leaf, char separator) {
  std::string out(leaf);
  if (separator == ':')
    for (char& c : out)
      if (c == '/') c = ':';
  return out;
}

struct SplitPath {
  std::string parent;  // with its trailing separator
  std::string leaf;
};

// The parent folder and the leaf of a host path; either may come out empty.
SplitPath splitPath(std::string_view path) {
  char separator = separatorOf(path);
  size_t at = path.rfind(separator);
  if (at == std::string_view::npos) return {"", std::string(cut(path, kLeafLimit))};
  return {std::string(path.substr(0, at + 1)), std::string(cut(path.substr(at + 1), kLeafLimit))};
}

enum class OverwriteMode { Always, IfNotExist, IfNewer };

OverwriteMode overwriteMode(std::string_view overwrite) {
  if (support::equalsIgnoringCase(overwrite, "IfNotExist") ||
      support::equalsIgnoringCase(overwrite, "IfNotExist+"))
    return OverwriteMode::IfNotExist;
  if (support::equalsIgnoringCase(overwrite, "IfNewer") || support::equalsIgnoringCase(overwrite, "IfNewer+"))
    return OverwriteMode::IfNewer;
  return OverwriteMode::Always;
}

// Copies the item (a file's data, mode and attributes; a link as a link) to a new name.
platform::FileStatus copyItem(const std::string& from, const FileInfo& source,
                              const std::string& to, const platform::CopyProgress& progress = {},
                              size_t blockSize = 0) {
  auto& service = fileService();
  if (source.kind == FileKind::Link) {
    auto target = service.readLink(from);
    if (!target) return platform::FileError{target.error()};
    return service.createLink(*target, to);
  }
  return service.copyFile(from, to, progress, blockSize);
}

// The copy under the destination's partial name in its folder (support::partialNameFor), after
// what a copy that was killed left there; "" when it failed.
std::string copyToTemporary(const std::string& from, const FileInfo& source,
                            const std::string& folder, const std::string& leaf) {
  auto& service = fileService();
  std::string temporary = folder + support::partialNameFor(leaf);
  if (auto left = itemInfo(temporary); left && left->kind != FileKind::Folder) {
    // The leftover may carry a locked source's bits.
    if (!service.removeFile(temporary) && left->kind == FileKind::File) {
      service.setLocked(temporary, false);
      service.removeFile(temporary);
    }
  }
  platform::FileStatus copied = copyItem(from, source, temporary);
  if (copied) return temporary;
  // A partial copy is ours to remove (an item that could not be cleared away is not).
  if (copied.error() != EEXIST) service.removeFile(temporary);
  return "";
}

int32_t copyWithObserver(const std::string& from, const FileInfo& source, const std::string& to,
                         std::string_view leaf, CopyObserver& observer) {
  if (!observer.beginFile(leaf, source.size)) return kCancelled;
  uint64_t reported = 0;
  bool cancelled = false;
  auto progress = [&](uint64_t copied) {
    uint64_t bytes = copied - reported;
    reported = copied;
    if (!observer.block(bytes)) cancelled = true;
    return !cancelled;
  };
  bool ok = static_cast<bool>(copyItem(from, source, to, progress, observer.blockSize()));
  if (cancelled) return kCancelled;  // the partial copy stays, as a cancelled copy leaves it
  return ok ? kCopied : kCopyFailed;
}

// The copy of the matching files of a resolved source folder.
int32_t copyFilesOf(const WalkFolder& source, std::string_view destFolder, const FileSpec& spec,
                    std::string_view overwrite, CopyObserver* observer) {
  std::vector<platform::FolderEntry> entries;
  if (!snapshot(source, entries)) return kNoSource;
  std::string dest(destFolder);
  paths::addTrailingSeparator(dest);
  char sourceSeparator = separatorOf(source.styled);
  char destSeparator = separatorOf(dest);
  int32_t result = kNothingMatched;
  for (const platform::FolderEntry& entry : entries) {
    if (!isFileItem(entry.kind) || support::isPartialName(entry.name) ||
        !fileMatches(spec, source.native + entry.name, entry.name))
      continue;  // a partial copy left by a kill is no file of the user's
    if (result == kNothingMatched) result = kCopied;
    int32_t code = copyOneFile(source.styled + nameInStyle(entry.name, sourceSeparator),
                               dest + nameInStyle(entry.name, destSeparator), overwrite, observer);
    if (code != kCopied) result = code;
    if (code == kCancelled) break;
  }
  return result;
}

}  // namespace

namespace {

// A relative path written in the style of `from`, in the style of `to`: HFS and Unix swap ':'
// and '/', so a folder's place below the source root keeps its meaning below the destination.
std::string inStyleOf(std::string relative, std::string_view from, std::string_view to) {
  if (separatorOf(from) == separatorOf(to)) return relative;
  for (char& c : relative) {
    if (c == ':')
      c = '/';
    else if (c == '/')
      c = ':';
  }
  return relative;
}

}  // namespace

int32_t copyOneFile(std::string_view source, std::string_view dest, std::string_view overwrite,
                    CopyObserver* observer) {
  auto& service = fileService();
  std::string sourceNative = paths::nativePath(source);
  auto sourceInfo = itemInfo(sourceNative);
  if (!sourceInfo || !isFileItem(sourceInfo->kind)) return kNoSource;

  std::string destNative = dest.empty() ? std::string() : paths::nativePath(dest);
  if (isFolder(destNative)) return kBadDestination;
  if (dest.empty() || dest.back() == ':' || dest.back() == '/') return kBadDestination;

  OverwriteMode mode = overwriteMode(overwrite);
  auto existing = itemInfo(destNative);
  if (existing && mode == OverwriteMode::IfNotExist) return kDestinationExists;
  if (existing && mode == OverwriteMode::IfNewer &&
      existing->modifiedSeconds >= sourceInfo->modifiedSeconds)
    return kDestinationNotOlder;

  SplitPath split = splitPath(dest);
  if (split.leaf.empty() || split.parent.empty()) return kBadDestination;
  if (createFolderPath(split.parent) == 0) return kNoDestinationFolder;
  std::string folder = paths::nativePath(split.parent);
  if (!isFolder(folder)) return kBadDestination;
  if (folder.back() != '/') folder += '/';
  const std::string leaf = nativeLeaf(split.leaf, separatorOf(dest));
  destNative = folder + leaf;
  std::string destStyled = split.parent + split.leaf;

  bool resetFirst = !overwrite.empty() && overwrite.back() == '+';
  // With a final '+' the destination is unlocked and its attributes cleared before it is replaced;
  // without, the file layer refuses to replace a locked one, and the copy fails.
  auto resetDestination = [&]() {
    if (resetFirst && itemInfo(destNative)) setFileAttributes(destStyled, "");
  };

  if (observer != nullptr) {
    // Progress copies write straight under the destination's name, block by block.
    resetDestination();
    if (itemInfo(destNative)) service.removeFile(destNative);
    if (itemInfo(destNative)) return kCopyFailed;
    int32_t code = copyWithObserver(sourceNative, *sourceInfo, destNative,
                                    splitPath(source).leaf, *observer);
    if (code == kCopied)
      service.setModifiedTime(destNative, sourceInfo->modifiedSeconds,
                              sourceInfo->modifiedNanoseconds);
    FlushBatch::flush(withoutTrailingSlash(folder));
    return code;
  }

  // The data lands under the partial name first and is renamed over the destination once
  // complete (rename(2) replaces it in one step), so a copy that fails or is killed leaves the old
  // destination whole, and nothing half written under its name.
  std::string temporary = copyToTemporary(sourceNative, *sourceInfo, folder, leaf);
  if (temporary.empty()) {
    FlushBatch::flush(withoutTrailingSlash(folder));
    return kCopyFailed;
  }
  service.setModifiedTime(temporary, sourceInfo->modifiedSeconds, sourceInfo->modifiedNanoseconds);
  // A copy of a file nobody may write would count as locked, and the file layer would not rename
  // it: it takes its permission bits once in place.
  const bool readOnly = sourceInfo->kind == FileKind::File && (sourceInfo->mode & 0222) == 0;
  if (readOnly) service.setMode(temporary, sourceInfo->mode | 0200);
  platform::pausePoint("copy.replace");
  resetDestination();
  if (!service.rename(temporary, destNative)) {
    service.removeFile(temporary);
    FlushBatch::flush(withoutTrailingSlash(folder));
    return kCopyFailed;
  }
  if (readOnly) service.setMode(destNative, sourceInfo->mode);
  FlushBatch::flush(withoutTrailingSlash(folder));
  return kCopied;
}

int32_t copyFolderFiles(std::string_view sourceFolder, std::string_view destFolder,
                        std::string_view fileSpec, std::string_view overwrite,
                        CopyObserver* observer) {
  FlushBatch batch;
  auto source = openFolder(sourceFolder);
  if (!source) return kNoSource;
  return copyFilesOf(*source, destFolder, classifyFileSpec(fileSpec), overwrite, observer);
}

int32_t createFolderPath(std::string_view folder) {
  if (folder.empty()) return 0;
  if (isFolder(paths::nativePath(folder))) return 1;
  // What is missing is created from the path as its 259-byte buffer holds it.
  std::string path(cut(folder, kCreatePathLimit));
  std::string native = paths::nativePath(path);
  if (native.empty()) return 0;
  if (isFolder(native)) return 1;
  native = withoutTrailingSlash(native);
  auto& service = fileService();
  // Each missing folder from the top down; the root (and a volume's mount point) always exists.
  for (size_t at = native.find('/', 1);; at = native.find('/', at + 1)) {
    std::string prefix = native.substr(0, at);
    if (!isFolder(prefix)) {
      if (!itemInfo(prefix) && service.createFolder(prefix)) FlushBatch::flush(parentOfNative(prefix));
      if (!isFolder(prefix)) return 0;
    }
    if (at == std::string::npos) break;
  }
  return 1;
}

void copyFolderAttributes(std::string_view sourceFolder, std::string_view destFolder) {
  if (!isFolder(paths::nativePath(destFolder))) return;
  setFileAttributes(destFolder, cut(fileAttributes(sourceFolder), kAttributesLimit));
}

int32_t copyFile(std::string_view source, std::string_view dest, std::string_view overwrite) {
  return copyOneFile(source, dest, overwrite);
}

int32_t copyXFiles(std::string_view sourceFolder, std::string_view destFolder,
                   std::string_view fileSpec, std::string_view overwrite) {
  return copyFolderFiles(sourceFolder, destFolder, fileSpec, overwrite);
}

int32_t xCopy(std::string_view sourceFolder, std::string_view destFolder,
              std::string_view fileSpec, std::string_view overwrite, int32_t makeDirs) {
  FlushBatch batch;
  std::string start(sourceFolder);
  paths::stripTrailingSeparator(start);
  std::vector<WalkFolder> tree;
  if (auto root = openFolder(start)) {
    tree = folderTree(*root, /*includeBundles=*/true);
  } else {
    // A source that cannot be listed is a tree of one folder whose copy fails.
    paths::addTrailingSeparator(start);
    tree.push_back({start, ""});
  }
  const size_t rootLength = tree.front().styled.size();
  std::string destRoot(destFolder);
  paths::addTrailingSeparator(destRoot);
  FileSpec spec = classifyFileSpec(fileSpec);
  int32_t result = kCopied;
  for (const WalkFolder& node : tree) {
    std::string dest = destRoot + inStyleOf(node.styled.substr(rootLength), start, destRoot);
    if (makeDirs != 0) createFolderPath(dest);
    int32_t code = node.native.empty() ? kNoSource
                                       : copyFilesOf(node, dest, spec, overwrite, nullptr);
    if (!node.native.empty()) copyFolderAttributes(node.styled, dest);
    if (code != kCopied && code != kNothingMatched) result = code;
  }
  return result;
}

int32_t renameFile(std::string_view file, std::string_view newName) {
  auto& service = fileService();
  std::string from(file), to(newName);
  std::string fromNative = paths::nativePath(from);
  if (isFolder(fromNative)) {
    paths::addTrailingSeparator(from);
    paths::stripTrailingSeparator(to);
  }
  fromNative = withoutTrailingSlash(fromNative);
  if (!itemInfo(fromNative)) return 0;
  SplitPath split = splitPath(to);
  if (split.leaf.empty() || split.parent.empty()) return 0;
  std::string leaf = nativeLeaf(split.leaf, separatorOf(to));
  std::string folder;
  if (!paths::isUnixPath(from) && split.leaf.size() > kShortLeafLimit) {
    folder = parentOfNative(fromNative);  // a long HFS name renames the item where it is
  } else {
    if (paths::isUnixPath(from) && createFolderPath(split.parent) == 0) return 0;
    folder = withoutTrailingSlash(paths::nativePath(split.parent));
    if (!isFolder(folder)) return 0;
  }
  std::string target = (folder == "/" ? std::string() : folder) + "/" + leaf;
  if (target == fromNative) return 1;
  if (itemInfo(target)) return 0;  // a rename never replaces another item
  if (!service.rename(fromNative, target)) return 0;
  service.syncFolder(parentOfNative(fromNative));
  if (folder != parentOfNative(fromNative)) service.syncFolder(folder);
  return 1;
}

int32_t createFolder(std::string_view folder) { return createFolderPath(folder); }

int32_t deleteFolder(std::string_view folder) {
  std::string native = withoutTrailingSlash(paths::nativePath(folder));
  auto info = itemInfo(native);
  if (!info || info->kind != FileKind::Folder) return 0;
  if (fileService().removeFolder(native)) fileService().syncFolder(parentOfNative(native));
  return itemInfo(native) ? 0 : 1;
}

int32_t deleteFile(std::string_view file) {
  std::string native = withoutTrailingSlash(paths::nativePath(file));
  auto info = itemInfo(native);
  if (!info) return 1;
  if (info->kind == FileKind::Folder) return 0;
  if (fileService().removeFile(native)) fileService().syncFolder(parentOfNative(native));
  return itemInfo(native) ? 0 : 1;
}

}  // namespace tessel::files
