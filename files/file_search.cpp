#include "files/file_search.h"

#include <algorithm>
#include <vector>

#include "files/file_patterns.h"
#include "files/folder_walk.h"
#include "paths/paths.h"
#include "support/session.h"
#include "support/text.h"

namespace tessel::files {
namespace {

// The one search of the module's session. The index into the current folder survives a new search on
// purpose: only a folder searched to its end sets it back to 1.
struct Search {
  bool open = false;
  std::vector<WalkFolder> folders;  // breadth-first, application bundles left out
  size_t current = 0;
  size_t index = 1;
  std::string pattern;  // empty: every file
  bool containsMode = false;
  // The current folder's items, read once when the search reaches it.
  std::vector<platform::FolderEntry> entries;
  bool listed = false;
  // The current folder as the hits name it, converted once per folder and style.
  std::string prefix;
  bool prefixValid = false;
  bool prefixUnix = false;
};

Search& search() { return support::session().part<Search>(); }

void closeSearch(Search& s) {
  s.open = false;
  s.folders.clear();
  s.folders.shrink_to_fit();
  s.entries.clear();
  s.entries.shrink_to_fit();
  s.current = 0;
  s.listed = false;
  s.prefixValid = false;
}

bool leafMatches(const Search& s, std::string_view leaf) {
  if (leaf.starts_with('.')) return false;
  if (s.pattern.empty()) return true;
  if (s.containsMode) return leaf.find(s.pattern) != std::string_view::npos;
  return support::equalsIgnoringCase(leaf, s.pattern);
}

// A hit's path: the folder's converted path (once per folder) followed by the leaf in its style.
std::string hitPath(Search& s, const WalkFolder& folder, const std::string& leaf) {
  bool unix = paths::returnUnixNames();
  if (!s.prefixValid || s.prefixUnix != unix) {
    s.prefix = paths::fromNative(folder.native, /*folder=*/true);
    s.prefixValid = !s.prefix.empty();
    s.prefixUnix = unix;
  }
  if (!s.prefixValid) return paths::fromNative(folder.native + leaf, /*folder=*/false);
  return s.prefix + nameInStyle(leaf, unix ? '/' : ':');
}

void nextFolder(Search& s) {
  s.index = 1;
  s.prefixValid = false;
  s.listed = false;
  s.entries.clear();
  ++s.current;
}

}  // namespace

std::string findFirstFile(std::string_view disk, std::string_view fileName) {
  Search& s = search();
  closeSearch(s);
  std::string start(disk);
  paths::addTrailingSeparator(start);
  auto root = openFolder(start);
  if (!root) return "";
  if (support::equalsIgnoringCase(fileName, "*.*")) {
    s.pattern.clear();
    s.containsMode = false;
  } else if (fileName.starts_with('*')) {
    s.pattern = fileName.substr(1);
    s.containsMode = true;
  } else {
    s.pattern = fileName;
    s.containsMode = false;
  }
  // A name is matched as Linux writes it; a "/" in it, which no Linux name holds, is the ":" that
  // the HFS style shows as "/".
  std::replace(s.pattern.begin(), s.pattern.end(), '/', ':');
  // The folders are found breadth-first as the search reaches them: each folder is read once,
  // for its files and its subfolders together.
  s.folders.push_back(*root);
  s.open = true;
  return findNextFile();
}

std::string findNextFile() {
  Search& s = search();
  if (!s.open) return "";
  while (s.current < s.folders.size()) {
    if (!s.listed) {
      if (!snapshot(s.folders[s.current], s.entries)) {
        nextFolder(s);
        continue;
      }
      WalkFolder folder = s.folders[s.current];  // appending may move the list's items
      appendSubfolders(folder, s.entries, /*includeBundles=*/false, s.folders);
      s.listed = true;
      // The start folder itself may be an application: its own files are not searched.
      if (s.current == 0 && isApplicationBundle(folder.native)) {
        nextFolder(s);
        continue;
      }
    }
    const WalkFolder& folder = s.folders[s.current];
    while (s.index <= s.entries.size()) {
      const platform::FolderEntry& entry = s.entries[s.index - 1];
      ++s.index;
      if (isFileItem(entry.kind) && leafMatches(s, entry.name))
        return hitPath(s, folder, entry.name);
    }
    nextFolder(s);
  }
  closeSearch(s);
  return "";
}

void findClose() { closeSearch(search()); }

}  // namespace tessel::files
