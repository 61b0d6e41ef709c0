#include "files/listings.h"

#include <cmath>

#include "files/file_queries.h"
#include "files/folder_walk.h"
#include "paths/paths.h"
#include "support/path_text.h"
#include "support/text.h"

namespace tessel::files {

using platform::FileKind;
using platform::FolderEntry;
using platform::fileService;

// ---- Names and limits ---------------------------------------------------------------------------

namespace {

// The longest folder path tsFolderSize copies per folder of a tree (a deliberately short one:
// deeper folders add nothing).
constexpr size_t kFolderSizePathLimit = 255;
// The longest folder path the listings take.
constexpr size_t kListingFolderLimit = 993;
// Names handed to Lingo.
constexpr size_t kNameLimit = 255;

// A name cut to the 255 bytes of a name buffer, never inside a UTF-8 character.
std::string boundedName(std::string_view name) { return support::cutUtf8(name, kNameLimit); }

// A Linux name as a listing hands it to Lingo: a component of a path in the current style, so
// that the name appended to the folder's path names the item again ("a:b" is "a/b" in HFS paths).
std::string listedName(std::string_view linuxName) {
  return boundedName(nameInStyle(linuxName, paths::returnUnixNames() ? '/' : ':'));
}

}  // namespace

// ---- Shared operations ------------------------------------------------------------------------

int32_t countMatchingFiles(std::string_view folder, std::string_view fileSpec) {
  auto at = openFolder(folder);
  std::vector<FolderEntry> entries;
  if (!at || !snapshot(*at, entries)) return 0;
  FileSpec spec = classifyFileSpec(fileSpec);
  int32_t count = 0;
  for (const FolderEntry& entry : entries)
    if (isFileItem(entry.kind) && fileMatches(spec, at->native + entry.name, entry.name)) ++count;
  return count;
}

namespace {

// The data and resource-fork bytes of the matching files directly in the folder, summed as
// doubles the way the method always has.
double flatSize(const WalkFolder& folder, const FileSpec& spec) {
  std::vector<FolderEntry> entries;
  std::vector<uint64_t> sizes;
  auto& service = fileService();
  if (!service.listFolderWithSizes(folder.native, entries, sizes)) return 0;
  double total = 0;
  std::string native;
  for (size_t i = 0; i < entries.size(); ++i) {
    const FolderEntry& entry = entries[i];
    if (!isFileItem(entry.kind)) continue;
    native = folder.native;
    native += entry.name;
    if (!fileMatches(spec, native, entry.name)) continue;
    total += static_cast<double>(sizes[i] + (entry.companion ? service.resourceForkSize(native) : 0));
  }
  return total;
}

double treeSize(std::string_view folder, const FileSpec& spec, bool subFolders) {
  auto root = openFolder(folder);
  if (!root) return 0;
  if (!subFolders) return flatSize(*root, spec);
  double total = 0;
  for (const WalkFolder& node : folderTree(*root, /*includeBundles=*/true)) {
    // Each folder's path goes through a 255-byte buffer; a cut one is looked up as it stands.
    if (node.styled.size() <= kFolderSizePathLimit) {
      total += flatSize(node, spec);
    } else {
      std::string shortened(cut(node.styled, kFolderSizePathLimit));
      if (auto at = openFolder(shortened)) total += flatSize(*at, spec);
    }
  }
  return total;
}

}  // namespace

uint64_t matchingFilesSize(std::string_view folder, std::string_view fileSpec, bool subFolders) {
  return static_cast<uint64_t>(treeSize(folder, classifyFileSpec(fileSpec), subFolders));
}

std::vector<std::string> buildFolderTree(std::string_view folder, bool includeBundles) {
  std::string start(folder);
  paths::stripTrailingSeparator(start);
  auto root = openFolder(start);
  if (!root) return {};
  std::vector<std::string> out;
  for (WalkFolder& node : folderTree(*root, includeBundles)) out.push_back(std::move(node.styled));
  return out;
}

// ---- Lingo methods ---------------------------------------------------------------------------------

std::vector<std::string> fileList(std::string_view folder, std::string_view type) {
  std::vector<std::string> names;
  auto at = openFolder(cut(folder, kListingFolderLimit));
  std::vector<FolderEntry> entries;
  if (!at || !snapshot(*at, entries)) return names;
  FileSpec spec = classifyListType(type);
  std::string native;
  for (const FolderEntry& entry : entries) {
    if (!isFileItem(entry.kind) || entry.name.starts_with('.')) continue;
    native = at->native;
    native += entry.name;
    if (spec.mode == FileSpec::Mode::Extension && !specMatches(spec, entry.name, nullptr)) continue;
    if (entry.hidden) continue;
    if (spec.mode == FileSpec::Mode::TypeCode && !fileMatches(spec, native, entry.name)) continue;
    names.push_back(listedName(entry.name));
  }
  return names;
}

std::vector<std::string> folderList(std::string_view folder) {
  std::vector<std::string> names;
  auto at = openFolder(cut(folder, kListingFolderLimit));
  std::vector<FolderEntry> entries;
  if (!at || !snapshot(*at, entries)) return names;
  for (const FolderEntry& entry : entries)
    if (entry.kind == FileKind::Folder && !entry.name.starts_with('.'))
      names.push_back(listedName(entry.name));
  return names;
}

int32_t deleteXFiles(std::string_view folder, std::string_view fileSpec) {
  auto at = openFolder(folder);
  if (!at) return 1;  // nothing to delete is not a failure
  return deleteMatchingFiles(*at, classifyFileSpec(fileSpec));
}

int32_t xDelete(std::string_view folder, std::string_view fileSpec) {
  std::string start(folder);
  paths::stripTrailingSeparator(start);
  auto root = openFolder(start);
  if (!root) return 1;
  FileSpec spec = classifyFileSpec(fileSpec);
  std::vector<WalkFolder> tree = folderTree(*root, /*includeBundles=*/true);
  int32_t result = 1;
  for (const WalkFolder& node : tree)
    if (deleteMatchingFiles(node, spec) == 0) result = 0;
  // Deepest first, every folder that is now empty goes, the start folder included; the others
  // stay without complaint.
  auto& service = fileService();
  for (auto node = tree.rbegin(); node != tree.rend(); ++node) {
    std::string native = node->native.substr(0, node->native.size() - 1);
    if (!exists(native)) continue;
    if (service.removeFolder(native)) service.syncFolder(support::parentOfNative(node->native));
  }
  return result;
}

int32_t folderSize(std::string_view folder, std::string_view fileType, int32_t subFolders) {
  double total = treeSize(folder, classifyFileSpec(fileType), subFolders != 0);
  // Decimal kilobytes, truncated to 32 bits unsigned; Lingo sees them as a signed integer.
  double kilobytes = std::trunc(total / 1000.0);
  uint32_t units = kilobytes >= 4294967295.0 ? static_cast<uint32_t>(std::fmod(kilobytes, 4294967296.0))
                                             : static_cast<uint32_t>(kilobytes);
  return static_cast<int32_t>(units);
}

}  // namespace tessel::files
