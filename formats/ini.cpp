#include "formats/ini.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <vector>

#include "formats/dates.h"
#include "support/four_char_code.h"
#include "support/text.h"
#include "paths/paths.h"
#include "paths/special_folders.h"
#include "platform/files.h"

namespace tessel::formats {
namespace {

using support::equalsIgnoringCase;
using support::startsWithIgnoringCase;

constexpr size_t kReadBlock = 64 * 1024;

// A C string's view of an argument: up to its first NUL and at most `limit` bytes.
std::string_view cString(std::string_view text, size_t limit) {
  text = text.substr(0, std::min(limit, text.size()));
  return text.substr(0, std::min(text.find('\0'), text.size()));
}

bool isSectionHeader(std::string_view line) {
  return line.size() >= 2 && line.front() == '[' && line.back() == ']';
}

bool isKeyLine(std::string_view line, std::string_view key) {
  return line.size() > key.size() && startsWithIgnoringCase(line, key) && line[key.size()] == '=';
}

std::string parentOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

IniLineReader fileLineReader(platform::OpenFile& file) {
  return IniLineReader([&file](char* buffer, size_t size) { return file.read(buffer, size); });
}

// The target of a symbolic link chain, so that the rewrite replaces the file and not the link.
std::string followLinks(const std::string& path) {
  platform::FileService& files = platform::fileService();
  std::string current = path;
  for (int depth = 0; depth < 16; ++depth) {
    std::optional<platform::FileInfo> info = files.info(current, false);
    if (!info || info->kind != platform::FileKind::Link) return current;
    std::optional<std::string> target = files.readLink(current);
    if (!target || target->empty()) return current;
    current = (*target)[0] == '/' ? *target : parentOf(current) + "/" + *target;
  }
  return current;
}

// Creates the missing folders above `path`, one level at a time, each creation made durable.
void createParentFolders(const std::string& path) {
  platform::FileService& files = platform::fileService();
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    std::string folder = path.substr(0, slash);
    if (files.info(folder)) continue;
    if (!files.createFolder(folder)) return;
    files.syncFolder(parentOf(folder));
  }
}

platform::FinderInfo textFileInfo() {
  platform::FinderInfo info;
  info.setType(support::fourCharCode("TEXT"));
  info.setCreator(support::fourCharCode("ttxt"));
  return info;
}

// Creates the INI file empty as a text file; false when it cannot be made.
bool createIniFile(const std::string& path) {
  platform::FileService& files = platform::fileService();
  std::unique_ptr<platform::OpenFile> created = files.open(path, platform::OpenMode::CreateNew);
  if (!created) return false;
  created->sync();
  created.reset();
  files.setFinderInfo(path, textFileInfo());  // answers false until the store is in place
  files.syncFolder(parentOf(path));
  return true;
}

// Writes `contents` to a new "gg" file in `folder` and swaps it with the INI file: the INI
// name then holds either the old or the new data, never a part. 0 on success, else an errno.
int swapIn(const std::string& iniPath, const platform::FileInfo& iniInfo,
           const std::string& folder, const std::string& contents) {
  platform::FileService& files = platform::fileService();
  std::unique_ptr<platform::OpenFile> temp;
  std::string tempPath;
  // "gg" and the clock in local seconds since 1904, counting up past names in use.
  const uint32_t now = localStamp1904(::time(nullptr));
  for (uint32_t i = 0; i <= 1001 && !temp; ++i) {
    tempPath = folder + "/gg" + std::to_string(now + i);
    if (files.info(tempPath, false)) continue;
    platform::OpenedFile opened = files.open(tempPath, platform::OpenMode::CreateNew);
    if (!opened && opened.error() != EEXIST) return opened.error();
    temp = std::move(opened);
  }
  if (!temp) return EEXIST;

  auto discard = [&](int error) {
    temp.reset();
    files.removeFile(tempPath);
    files.syncFolder(folder);
    return error != 0 ? error : EIO;
  };
  // The new data keeps the INI file's permissions and Finder information.
  files.setMode(tempPath, iniInfo.mode);
  std::optional<platform::FinderInfo> finder = files.finderInfo(iniPath);
  files.setFinderInfo(tempPath, finder ? *finder : textFileInfo());
  platform::FileStatus written = temp->write(contents.data(), contents.size());
  if (written) written = temp->sync();
  if (!written) return discard(written.error());
  temp.reset();

  const std::string iniFolder = parentOf(iniPath);
  platform::FileStatus swapped = files.exchange(tempPath, iniPath);
  if (swapped) {
    files.syncFolder(iniFolder);
    files.removeFile(tempPath);  // the old data
    files.syncFolder(folder);
    return 0;
  }
  int error = swapped.error();
  if (error == EINVAL || error == ENOSYS || error == EOPNOTSUPP) {
    // The filesystem cannot swap two names: a rename replaces the INI file as atomically.
    platform::FileStatus renamed = files.rename(tempPath, iniPath);
    if (renamed) {
      files.syncFolder(iniFolder);
      if (folder != iniFolder) files.syncFolder(folder);
      return 0;
    }
    error = renamed.error();
  }
  return discard(error);
}

}  // namespace

// ---- The line reader ------------------------------------------------------------------------------

IniLineReader::IniLineReader(Source source) : source_(std::move(source)) {}

bool IniLineReader::fill() {
  if (ended_) return false;
  if (buffer_.empty()) buffer_.resize(kReadBlock);
  int64_t n = source_(buffer_.data(), buffer_.size());
  if (n <= 0) {
    ended_ = true;  // the end, or an error, ends the file
    return false;
  }
  at_ = 0;
  end_ = static_cast<size_t>(n);
  return true;
}

bool IniLineReader::next(std::string& line, size_t limit) {
  raw_.clear();
  bool eof = false;
  for (;;) {
    if (at_ == end_ && !fill()) {
      eof = true;
      break;
    }
    char c = buffer_[at_++];
    if (c == '\n') {
      if (lineEnd_.empty()) lineEnd_ = "\n";
      break;
    }
    if (c == '\r') {
      // CR LF is one line end; the LF may lie in the next block.
      bool lf = (at_ < end_ || fill()) && buffer_[at_] == '\n';
      if (lf) ++at_;
      if (lineEnd_.empty()) lineEnd_ = lf ? "\r\n" : "\r";
      break;
    }
    if (raw_.size() == kIniRawLine) break;  // the character after a full line is lost
    if (static_cast<unsigned char>(c) == 0xFF) {
      ended_ = true;
      eof = true;
      break;
    }
    raw_ += c;
  }
  line.assign(raw_, 0, std::min({raw_.find('\0'), raw_.size(), limit}));
  return eof;
}

IniLineReader memoryLineReader(std::string_view bytes) {
  return IniLineReader([bytes, at = size_t{0}](char* buffer, size_t size) mutable -> int64_t {
    size_t n = std::min(size, bytes.size() - at);
    std::copy_n(bytes.data() + at, n, buffer);
    at += n;
    return static_cast<int64_t>(n);
  });
}

// ---- Matching ---------------------------------------------------------------------------------------

std::optional<std::string> findIniValue(IniLineReader& reader, std::string_view section,
                                        std::string_view key) {
  const std::string header = "[" + std::string(section) + "]";
  std::string line;
  for (;;) {
    bool eof = reader.next(line, kIniReaderLine);
    if (equalsIgnoringCase(line, header)) break;
    if (eof) return std::nullopt;
  }
  for (;;) {
    bool eof = reader.next(line, kIniReaderLine);
    if (isKeyLine(line, key)) return line.substr(line.find('=') + 1);
    if (isSectionHeader(line) || eof) return std::nullopt;
  }
}

std::string rewriteIni(IniLineReader& reader, std::string_view section, std::string_view key,
                       std::string_view value) {
  const std::string header = "[" + std::string(section) + "]";
  const std::string prefix = std::string(key) + "=";
  const std::string keyLine = prefix + std::string(value);
  // Lines are gathered first and joined with the file's own line end at the end, as the first
  // line end can lie beyond a first line too long to be kept.
  std::string out;
  std::vector<size_t> ends;
  auto endLine = [&out, &ends]() { ends.push_back(out.size()); };
  bool inSection = false, pending = true;
  std::string line;
  for (;;) {
    bool eof = reader.next(line, kIniRawLine);
    bool header_line = isSectionHeader(line);
    bool dropped = false;
    if (equalsIgnoringCase(line, header)) {
      inSection = true;
    } else if (header_line) {
      if (inSection && pending) {
        out += keyLine;
        endLine();
        pending = false;
      }
      inSection = false;
    } else if (inSection && pending && startsWithIgnoringCase(line, prefix)) {
      out += keyLine;
      endLine();
      pending = false;
      dropped = true;
    }
    if (!dropped && !line.empty()) {
      if (header_line && !out.empty()) endLine();  // one blank line before a later section
      out += line;
      endLine();
    }
    if (eof) break;
  }
  if (pending) {
    if (!inSection) {
      if (!out.empty()) endLine();
      out += header;
      endLine();
    }
    out += keyLine;  // the last line has no line end
  }
  const std::string_view lineEnd = reader.lineEnd();
  std::string joined;
  joined.reserve(out.size() + ends.size() * lineEnd.size());
  size_t from = 0;
  for (size_t at : ends) {
    joined.append(out, from, at - from);
    joined += lineEnd;
    from = at;
  }
  joined.append(out, from);
  return joined;
}

// ---- Files ------------------------------------------------------------------------------------------

std::string iniFilePath(std::string_view iniFile) {
  iniFile = cString(iniFile, std::string_view::npos);
  if (!paths::isUnixPath(iniFile) && iniFile.find(':') == std::string_view::npos) {
    std::string prefs = paths::findFolder(support::fourCharCode("pref"));
    if (prefs.empty()) return "";
    if (prefs.back() != '/') prefs += '/';
    std::string path = prefs + std::string(iniFile);
    return path.substr(0, std::min(path.size(), kIniPathLen));
  }
  return paths::nativePath(cString(iniFile, kIniGivenPathLen));
}

std::string readIni(std::string_view section, std::string_view key, std::string_view defaultValue,
                    std::string_view iniFile) {
  std::string result(cString(defaultValue, kIniValueLen));
  std::string path = iniFilePath(iniFile);
  if (path.empty()) return result;
  std::unique_ptr<platform::OpenFile> file =
      platform::fileService().open(path, platform::OpenMode::Read);
  if (!file) return result;
  IniLineReader reader = fileLineReader(*file);
  std::optional<std::string> value = findIniValue(
      reader, cString(section, kIniReaderSection), cString(key, std::string_view::npos));
  if (value) result = cString(*value, kIniValueLen);
  return result;
}

int32_t writeIni(std::string_view section, std::string_view key, std::string_view newValue,
                 std::string_view iniFile) {
  platform::FileService& files = platform::fileService();
  std::string path = iniFilePath(iniFile);
  if (path.empty()) return 0;
  path = followLinks(path);
  createParentFolders(path);

  platform::FileResult<platform::FileInfo> info = files.info(path);
  if (!info) {
    if (info.error() != ENOENT) return 0;
    // A name given in the host's style is made with at most 64 characters.
    if (!paths::isUnixPath(cString(iniFile, kIniGivenPathLen))) {
      size_t slash = path.find_last_of('/');
      path = path.substr(0, std::min(path.size(), slash + 1 + kIniNewNameLen));
    }
    if (!createIniFile(path) || !(info = files.info(path))) return 0;
  }
  if (info->kind != platform::FileKind::File || files.isLocked(path)) return 0;

  std::string contents;
  {
    std::unique_ptr<platform::OpenFile> file = files.open(path, platform::OpenMode::ReadWrite);
    if (!file) return 0;
    IniLineReader reader = fileLineReader(*file);
    contents = rewriteIni(reader, cString(section, kIniWriterName), cString(key, kIniWriterName),
                          cString(newValue, std::string_view::npos));
  }

  // The temporary folder of the INI file's filesystem; should the swap still find the two on
  // different filesystems (a bind mount), the INI file's own folder.
  std::string folder = files.temporaryFolderFor(path);
  const std::string iniFolder = parentOf(path);
  if (folder.empty()) folder = iniFolder;
  int error = swapIn(path, *info, folder, contents);
  if (error == EXDEV && folder != iniFolder) error = swapIn(path, *info, iniFolder, contents);
  return error == 0 ? 1 : 0;
}

}  // namespace tessel::formats
