// How the file methods see folders: a folder is named twice, in the caller's path style (the
// text the rules cut and compose) and as Linux names it (what the file service is asked about).
// Every walk lists a folder once, as a snapshot, and works on the snapshot.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "files/file_patterns.h"
#include "platform/files.h"

namespace tessel::files {

struct WalkFolder {
  std::string styled;  // host style (HFS or Unix), with its trailing separator
  std::string native;  // the Linux path, with a trailing "/"
};

// ':' for an HFS path, '/' for a Unix path.
char separatorOf(std::string_view styledPath);
// A Linux name as a component of a path of the given style: an HFS component shows a Linux ":"
// as "/" (Linux names never hold "/").
std::string nameInStyle(std::string_view linuxName, char separator);
// The text cut to `limit` bytes, as a fixed buffer of the method would hold it.
std::string_view cut(std::string_view text, size_t limit);

// The folder a path names, when it is an existing folder (a link to a folder counts); nothing
// when it cannot be listed.
std::optional<WalkFolder> openFolder(std::string_view styledPath);

// Whether an item is at `native` (a link counts, whatever it points to).
bool exists(const std::string& native);

// Items a walk treats as files: regular files and symbolic links (which read as aliases). A link
// is never entered, so no walk leaves its tree through one.
bool isFileItem(platform::FileKind kind);

// The folder's items, one pass; false when it cannot be read.
bool snapshot(const WalkFolder& folder, std::vector<platform::FolderEntry>& entries);

// Whether the file at `native` passes the FileSpec (its Finder type is read only for type codes).
bool fileMatches(const FileSpec& spec, const std::string& native, std::string_view name);

// The folder and its subfolders, breadth-first, root first, in listing order. Folders whose
// host-style path has grown past the listing buffer are kept but not entered.
std::vector<WalkFolder> folderTree(const WalkFolder& root, bool includeBundles);

// Appends the subfolders among a folder's items to a breadth-first list, as folderTree does.
void appendSubfolders(const WalkFolder& parent, const std::vector<platform::FolderEntry>& entries,
                      bool includeBundles, std::vector<WalkFolder>& tree);

// An application bundle (a folder with Contents that the bundle test accepts).
bool isApplicationBundle(const std::string& nativeFolder);

// Deletes the matching files directly in the folder (tsDeleteXFiles' rule): 1 when every
// matching file is gone, else 0. The folder is flushed once after its deletions.
int32_t deleteMatchingFiles(const WalkFolder& folder, const FileSpec& spec);

}  // namespace tessel::files
