#include "files/folder_walk.h"

#include "files/file_queries.h"
#include "paths/paths.h"

namespace tessel::files {

using platform::FileKind;
using platform::FolderEntry;
using platform::fileService;

namespace {

// The longest folder path a listing of subfolders copies.
constexpr size_t kSubfolderParentLimit = 994;

}  // namespace

bool exists(const std::string& native) {
  return fileService().info(native, /*followLinks=*/false).has_value();
}

char separatorOf(std::string_view styledPath) { return paths::isUnixPath(styledPath) ? '/' : ':'; }

std::string nameInStyle(std::string_view linuxName, char separator) {
  std::string out(linuxName);
  if (separator == ':')
    for (char& c : out)
      if (c == ':') c = '/';
  return out;
}

std::string_view cut(std::string_view text, size_t limit) { return text.substr(0, limit); }

std::optional<WalkFolder> openFolder(std::string_view styledPath) {
  if (styledPath.empty()) return std::nullopt;
  WalkFolder folder{std::string(styledPath), paths::nativePath(styledPath)};
  if (folder.native.empty()) return std::nullopt;
  auto info = fileService().info(folder.native);
  if (!info || info->kind != FileKind::Folder) return std::nullopt;
  paths::addTrailingSeparator(folder.styled);
  if (folder.native.back() != '/') folder.native += '/';
  return folder;
}

bool isFileItem(FileKind kind) { return kind == FileKind::File || kind == FileKind::Link; }

bool snapshot(const WalkFolder& folder, std::vector<FolderEntry>& entries) {
  return static_cast<bool>(fileService().listFolder(folder.native, entries));
}

bool fileMatches(const FileSpec& spec, const std::string& native, std::string_view name) {
  if (spec.mode != FileSpec::Mode::TypeCode) return specMatches(spec, name, nullptr);
  auto finder = fileService().finderInfo(native);
  if (!finder) return false;
  uint32_t type = finder->type();
  return specMatches(spec, name, &type);
}

bool isApplicationBundle(const std::string& nativeFolder) {
  // Only a folder with Contents can be one; the bundle test reads its Info.plist.
  std::string contents = nativeFolder;
  if (contents.back() != '/') contents += '/';
  auto info = fileService().info(contents + "Contents");
  if (!info || info->kind != FileKind::Folder) return false;
  return isBundle(nativeFolder) != 0;
}

void appendSubfolders(const WalkFolder& parent, const std::vector<FolderEntry>& entries,
                      bool includeBundles, std::vector<WalkFolder>& tree) {
  // The parent's path is copied into a buffer of 994 bytes; a longer one names another place
  // and lists nothing.
  if (parent.styled.size() - 1 > kSubfolderParentLimit) return;
  char separator = separatorOf(parent.styled);
  for (const FolderEntry& entry : entries) {
    if (entry.kind != FileKind::Folder) continue;
    WalkFolder child{parent.styled + nameInStyle(entry.name, separator) + separator,
                     parent.native + entry.name + '/'};
    if (!includeBundles && isApplicationBundle(child.native)) continue;
    tree.push_back(std::move(child));
  }
}

std::vector<WalkFolder> folderTree(const WalkFolder& root, bool includeBundles) {
  std::vector<WalkFolder> tree{root};
  std::vector<FolderEntry> entries;
  for (size_t i = 0; i < tree.size(); ++i) {
    if (!snapshot(tree[i], entries)) continue;
    WalkFolder parent = tree[i];  // appending may move the tree's items
    appendSubfolders(parent, entries, includeBundles, tree);
  }
  return tree;
}

int32_t deleteMatchingFiles(const WalkFolder& folder, const FileSpec& spec) {
  std::vector<FolderEntry> entries;
  if (!snapshot(folder, entries)) return 1;
  // The snapshot keeps every item in its place while earlier ones go, so none is skipped.
  int32_t result = 1;
  bool deleted = false;
  auto& service = fileService();
  for (const FolderEntry& entry : entries) {
    if (!isFileItem(entry.kind)) continue;
    std::string native = folder.native + entry.name;
    if (!fileMatches(spec, native, entry.name)) continue;
    if (!exists(native)) {
      result = 0;
      continue;
    }
    if (service.removeFile(native)) deleted = true;
    if (exists(native)) result = 0;
  }
  if (deleted) service.syncFolder(folder.native);
  return result;
}

}  // namespace tessel::files
