// The two path styles, the conversions between them and the file layer's resolution of a path.
//
// HFS paths name a volume first ("USB:Photos:a.jpg"); the volume model maps that name to its
// mount point. Inside a component "/" stands for a ":" of the Linux name and the other way
// round, so that every Linux name can be written ("Startup:home:a/b" is the Linux file
// "/home/a:b").
#include "paths/paths.h"

#include <algorithm>
#include <vector>

#include "support/text.h"
#include "paths/volume_model.h"
#include "platform/files.h"
#include "platform/text_encoding.h"
#include "support/session.h"

namespace tessel::paths {
using support::startsWithIgnoringCase;
namespace {

// The session's path style: Unix paths in the results once a movie asked for them.
struct StyleSwitch {
  bool unixNames = false;
};

// "/" and ":" trade places between an HFS component and the Linux name it stands for.
std::string swapSeparators(std::string_view component) {
  std::string out(component);
  for (char& c : out) {
    if (c == '/')
      c = ':';
    else if (c == ':')
      c = '/';
  }
  return out;
}

std::string replaceAll(std::string_view text, char from, char to) {
  std::string out(text);
  std::replace(out.begin(), out.end(), from, to);
  return out;
}

// The mount point followed by `tail` ("" or beginning with "/").
std::string underMountPoint(const std::string& mountPoint, std::string_view tail) {
  if (mountPoint == "/") return tail.empty() ? std::string("/") : std::string(tail);
  return mountPoint + std::string(tail);
}

// An absolute Linux path without empty and "." components, ".." taken textually, and without a
// trailing "/" (except "/" itself).
std::string normalizeNative(std::string_view path) {
  std::vector<std::string_view> parts;
  size_t i = 0;
  while (i < path.size()) {
    size_t slash = path.find('/', i);
    if (slash == std::string_view::npos) slash = path.size();
    std::string_view part = path.substr(i, slash - i);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    i = slash + 1;
  }
  std::string out;
  for (std::string_view part : parts) {
    out += '/';
    out += part;
  }
  return out.empty() ? std::string("/") : out;
}

// What a path names, as the conversions need it: whether it exists, and whether it is a folder
// (or a link to one).
struct ItemKind {
  bool exists = false;
  bool folder = false;
};

ItemKind kindOf(const std::string& native) {
  ItemKind kind;
  if (native.empty()) return kind;
  auto& files = platform::fileService();
  auto own = files.kind(native, /*followLinks=*/false);
  if (!own) return kind;
  kind.exists = true;
  kind.folder = *own == platform::FileKind::Folder ||
                (*own == platform::FileKind::Link && files.isFolder(native));
  return kind;
}

// The HFS form of a normalised Linux path, through the volume that holds it.
std::string hfsOfNative(const std::string& native) {
  const Volume& volume = volumeContaining(native);
  std::string hfs = volume.name + ":";
  std::string_view rest =
      std::string_view(native).substr(volume.isStartup() ? 1 : volume.mountPoint.size());
  if (!rest.empty() && rest[0] == '/') rest.remove_prefix(1);
  bool first = true;
  while (!rest.empty()) {
    size_t slash = rest.find('/');
    std::string_view part = rest.substr(0, slash);
    if (!first) hfs += ':';
    hfs += swapSeparators(part);
    first = false;
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
  }
  return hfs;
}

}  // namespace

// ---- The style switch ---------------------------------------------------------------------------

bool returnUnixNames() { return support::session().part<StyleSwitch>().unixNames; }
void setReturnUnixNames(bool on) { support::session().part<StyleSwitch>().unixNames = on; }

// ---- Styles and separators ----------------------------------------------------------------------

bool isUnixPath(std::string_view path) { return !path.empty() && path[0] == '/'; }

void addTrailingSeparator(std::string& path) {
  if (path.empty()) return;
  char separator = isUnixPath(path) ? '/' : ':';
  if (path.back() != separator) path += separator;
}

void stripTrailingSeparator(std::string& path) {
  if (path.size() <= 1) return;
  char separator = isUnixPath(path) ? '/' : ':';
  if (path.back() == separator) path.pop_back();
}

// ---- Resolution ---------------------------------------------------------------------------------

std::string nativePath(std::string_view path) {
  if (path.empty()) return "";
  if (isUnixPath(path)) {
    // "/Volumes/NAME/rest" is that volume's mount point followed by "/rest".
    constexpr std::string_view kVolumes = "/Volumes/";
    if (startsWithIgnoringCase(path, kVolumes)) {
      std::string_view rest = path.substr(kVolumes.size());
      size_t slash = rest.find('/');
      std::string_view name = rest.substr(0, slash);
      if (const Volume* volume = volumeNamed(name))
        return underMountPoint(volume->mountPoint, slash == std::string_view::npos
                                                       ? std::string_view()
                                                       : rest.substr(slash));
    }
    return std::string(path);
  }

  // "Vol:a:b" → the volume's mount point + "/a/b". A colon-less text is a bare name, not a path.
  size_t colon = path.find(':');
  if (colon == std::string_view::npos || colon == 0) return "";
  const Volume* volume = volumeNamed(path.substr(0, colon));
  if (volume == nullptr) return "";
  // Every colon after the first in a row goes up one folder ("Vol:a:b::c" is "Vol:a:c"); a
  // final colon marks a folder.
  std::string_view rest = path.substr(colon + 1);
  bool folder = rest.empty() || rest.back() == ':';
  std::vector<std::string> parts;
  size_t start = 0;
  while (start < rest.size()) {
    size_t next = rest.find(':', start);
    if (next == std::string_view::npos) next = rest.size();
    std::string_view part = rest.substr(start, next - start);
    if (!part.empty())
      parts.push_back(swapSeparators(part));
    else if (!parts.empty())
      parts.pop_back();
    start = next + 1;
  }
  std::string tail;
  for (const std::string& part : parts) tail += "/" + part;
  if (folder && !tail.empty()) tail += '/';
  return underMountPoint(volume->mountPoint, tail);
}

std::string fromNative(std::string_view native, bool folder) {
  if (!isUnixPath(native)) return "";
  std::string normal = normalizeNative(native);
  std::string out = returnUnixNames() ? normal : hfsOfNative(normal);
  if (folder) addTrailingSeparator(out);
  return out;
}

// ---- Conversions --------------------------------------------------------------------------------

std::string toUnixPath(std::string_view path) {
  if (isUnixPath(path)) {
    std::string out(path);
    if (kindOf(nativePath(path)).folder) addTrailingSeparator(out);
    return out;
  }
  std::string native = nativePath(path);
  if (native.empty()) {
    // No mounted volume of that name: the textual form under /Volumes, which the file layer
    // resolves should the volume appear.
    return "/Volumes/" + replaceAll(path, ':', '/');
  }
  // Through the volume's mount point, whether or not the item exists, so the answer is a path
  // other Linux programs can open or create.
  ItemKind kind = kindOf(native);
  std::string out = normalizeNative(native);
  if (kind.exists ? kind.folder : path.back() == ':') addTrailingSeparator(out);
  return out;
}

std::string toHfsPath(std::string_view path) {
  if (!isUnixPath(path)) return std::string(path);
  std::string native = nativePath(path);
  ItemKind kind = kindOf(native);
  // A missing "/Volumes/NAME/rest" of a volume that is not mounted stays textual: "NAME:rest".
  constexpr std::string_view kVolumes = "/Volumes/";
  if (!kind.exists && startsWithIgnoringCase(path, kVolumes)) {
    std::string_view rest = path.substr(kVolumes.size());
    if (volumeNamed(rest.substr(0, rest.find('/'))) == nullptr)
      return replaceAll(rest, '/', ':');
  }
  // Any other path belongs to the volume that holds it, whether or not the item exists.
  std::string out = hfsOfNative(normalizeNative(native));
  if (kind.exists ? kind.folder : (path.size() > 1 && path.back() == '/'))
    addTrailingSeparator(out);
  return out;
}

std::string longPathName(std::string_view path) {
  std::string hfs = isUnixPath(path) ? toHfsPath(path) : std::string(path);
  size_t colon = hfs.find(':');
  if (colon == std::string::npos || colon == 0) return "";
  const Volume* volume = volumeNamed(std::string_view(hfs).substr(0, colon));
  if (volume == nullptr) return "";

  // Every component must exist; the walk takes one step per component below the volume's root.
  std::string out = hfs.substr(0, colon + 1);  // the volume name as written
  std::vector<std::string> names;
  std::string_view rest = std::string_view(hfs).substr(colon + 1);
  while (!rest.empty()) {
    size_t next = rest.find(':');
    std::string_view part = rest.substr(0, next);
    if (part.empty()) return "";
    names.push_back(swapSeparators(part));
    // Linux names are what they are: the long name of an existing item is the name as written.
    out += part;
    if (next == std::string_view::npos) break;
    out += ':';
    rest = rest.substr(next + 1);
  }
  if (!platform::fileService().walk(volume->mountPoint, names)) return "";
  return out;
}

std::string shortPathName(std::string_view path) {
  // Short names equal long names; only the character set differs.
  return platform::utf8ToMacRoman(longPathName(path));
}

// ---- Lingo methods ------------------------------------------------------------------------------

std::string shortFileName(std::string_view file) { return shortPathName(file); }
std::string longFileName(std::string_view file) { return longPathName(file); }
std::string unixName(std::string_view file) { return toUnixPath(file); }
std::string hfsName(std::string_view file) { return toHfsPath(file); }

}  // namespace tessel::paths
