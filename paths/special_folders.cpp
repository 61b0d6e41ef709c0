#include "paths/special_folders.h"

#include <algorithm>
#include <array>
#include <vector>

#include "support/four_char_code.h"
#include "support/text.h"
#include "paths/paths.h"
#include "paths/volume_model.h"
#include "platform/files.h"
#include "platform/folders.h"

namespace tessel::paths {
using support::equalsIgnoringCase;
using support::fourCharCode;
using support::readFourCharCode;
using support::startsWithIgnoringCase;
namespace {

// ---- Keywords -----------------------------------------------------------------------------------

struct KeywordRow {
  std::string_view word;
  uint32_t type;
};

// Later rows win over earlier ones.
constexpr KeywordRow kKeywords[] = {
    {"prefs", fourCharCode("pref")},      {"system", fourCharCode("macs")},
    {"boot", fourCharCode("macs")},       {"desktop", fourCharCode("desk")},
    {"trash", fourCharCode("trsh")},      {"startup", fourCharCode("strt")},
    {"apple", fourCharCode("amnu")},      {"control panels", fourCharCode("ctrl")},
    {"extensions", fourCharCode("extn")}, {"fonts", fourCharCode("font")},
    {"temp", fourCharCode("temp")},       {"apps", fourCharCode("apps")},
    {"personal", fourCharCode("docs")},   {"appdata", fourCharCode("asup")},
    {"library", fourCharCode("dlib")},    {"pictures", fourCharCode("pdoc")},
    {"video", fourCharCode("mdoc")},      {"music", kMusicFolderType},
    {"public", fourCharCode("pubb")},     {"profile", fourCharCode("cusr")},
    {"users", fourCharCode("usrs")},      {"shared", fourCharCode("sdat")},
};

// The keyword is read into a 44-byte buffer; the word after a prefix into a 23-byte one.
constexpr size_t kKeywordChars = 43;
constexpr size_t kWordChars = 22;

struct Prefix {
  std::string_view text;  // the domain word and its blank
  size_t minimumLength;   // the whole keyword must be at least this long
  int32_t domain;
};

// Checked in this order, each match overriding the one before.
constexpr Prefix kPrefixes[] = {
    {"common ", 11, kLocalDomain},
    {"local ", 10, kLocalDomain},
    {"system ", 11, kSystemDomain},
    {"user ", 9, kUserDomain},
};

// ---- Folders ------------------------------------------------------------------------------------

// Which domain's folders the appropriate disk gives for a type: the user's for personal folders,
// the machine's for the others.
enum class Appropriate { User, Local, System };

// Candidates are Linux folders, the first existing one wins. "$NAME" stands for a folder of the
// folder service: $HOME, $CONFIG, $DATA, $CACHE, $STATE, $TMP, the XDG user directories
// ($DESKTOP, $DOCUMENTS, $DOWNLOAD, $MUSIC, $PICTURES, $PUBLIC, $VIDEOS), each of the XDG
// system configuration folders ($SYSCONFIG) and the running kernel's release ($KERNEL).
using Candidates = std::array<const char*, 2>;

struct FolderRow {
  uint32_t type;
  Appropriate appropriate;
  Candidates user, local, system;  // the network and classic domains have no Linux folders
};

constexpr Candidates kNone{};

const FolderRow kFolders[] = {
    {fourCharCode("pref"), Appropriate::User, {"$CONFIG"}, {"/usr/local/etc"}, {"/etc"}},
    {fourCharCode("macs"), Appropriate::System, kNone, kNone, {"/usr"}},
    {fourCharCode("desk"), Appropriate::User, {"$DESKTOP"}, kNone, kNone},
    {fourCharCode("trsh"), Appropriate::User, {"$DATA/Trash/files"}, kNone, kNone},
    {fourCharCode("strt"), Appropriate::User, {"$CONFIG/autostart"}, kNone, {"$SYSCONFIG/autostart"}},
    {fourCharCode("amnu"), Appropriate::System, {"$CONFIG/menus"}, kNone, {"$SYSCONFIG/menus"}},
    {fourCharCode("ctrl"), Appropriate::System, kNone, {"/usr/local/sbin"}, {"/usr/sbin"}},
    {fourCharCode("extn"),
     Appropriate::System,
     kNone,
     {"/lib/modules/$KERNEL/extra"},
     {"/lib/modules/$KERNEL"}},
    {fourCharCode("font"),
     Appropriate::System,
     {"$DATA/fonts", "$HOME/.fonts"},
     {"/usr/local/share/fonts"},
     {"/usr/share/fonts"}},
    {fourCharCode("temp"), Appropriate::User, {"$TMP"}, kNone, {"/tmp"}},
    {fourCharCode("apps"),
     Appropriate::System,
     {"$DATA/applications"},
     {"/usr/local/share/applications"},
     {"/usr/share/applications"}},
    {fourCharCode("docs"), Appropriate::User, {"$DOCUMENTS"}, kNone, kNone},
    {fourCharCode("favs"), Appropriate::User, {"$CONFIG/gtk-3.0"}, kNone, kNone},
    {fourCharCode("asup"), Appropriate::User, {"$DATA"}, {"/usr/local/share"}, {"/usr/share"}},
    {fourCharCode("dlib"), Appropriate::System, {"$HOME/.local"}, {"/usr/local/lib"}, {"/usr/lib"}},
    {fourCharCode("pdoc"), Appropriate::User, {"$PICTURES"}, kNone, kNone},
    {fourCharCode("mdoc"), Appropriate::User, {"$VIDEOS"}, kNone, kNone},
    {kMusicFolderType, Appropriate::User, {"$MUSIC"}, kNone, kNone},
    {fourCharCode("pubb"), Appropriate::User, {"$PUBLIC"}, kNone, kNone},
    {fourCharCode("cusr"), Appropriate::User, {"$HOME"}, kNone, kNone},
    {fourCharCode("usrs"), Appropriate::Local, kNone, {"/home"}, kNone},
    {fourCharCode("sdat"), Appropriate::Local, kNone, {"/var/tmp"}, kNone},
    {fourCharCode("info"),
     Appropriate::System,
     {"$DATA/doc"},
     {"/usr/local/share/doc"},
     {"/usr/share/doc"}},
    // Types beyond the keyword table, for raw four-character keywords.
    {fourCharCode("down"), Appropriate::User, {"$DOWNLOAD"}, kNone, kNone},
    {fourCharCode("cach"), Appropriate::User, {"$CACHE"}, kNone, {"/var/cache"}},
    {fourCharCode("logs"), Appropriate::User, {"$STATE"}, kNone, {"/var/log"}},
    {fourCharCode("dtop"), Appropriate::User, {"$HOME"}, {"/usr/local"}, {"/"}},
};

const FolderRow* folderRow(uint32_t type) {
  for (const FolderRow& row : kFolders)
    if (row.type == type) return &row;
  return nullptr;
}

// The values a "$NAME" stands for (several for $SYSCONFIG; none when unknown or unset).
std::vector<std::string> expandVariable(std::string_view name) {
  platform::FolderService& folders = platform::folderService();
  using platform::UserDir;
  if (name == "SYSCONFIG") return folders.systemConfigDirs();
  std::string value;
  if (name == "HOME")
    value = folders.homeDir();
  else if (name == "CONFIG")
    value = folders.userConfigDir();
  else if (name == "DATA")
    value = folders.userDataDir();
  else if (name == "CACHE")
    value = folders.userCacheDir();
  else if (name == "STATE")
    value = folders.userStateDir();
  else if (name == "TMP")
    value = folders.tmpDir();
  else if (name == "KERNEL")
    value = folders.kernelRelease();
  else if (name == "DESKTOP")
    value = folders.userDir(UserDir::Desktop);
  else if (name == "DOCUMENTS")
    value = folders.userDir(UserDir::Documents);
  else if (name == "DOWNLOAD")
    value = folders.userDir(UserDir::Download);
  else if (name == "MUSIC")
    value = folders.userDir(UserDir::Music);
  else if (name == "PICTURES")
    value = folders.userDir(UserDir::Pictures);
  else if (name == "PUBLIC")
    value = folders.userDir(UserDir::PublicShare);
  else if (name == "VIDEOS")
    value = folders.userDir(UserDir::Videos);
  if (value.empty()) return {};
  return {value};
}

bool isFolder(const std::string& path) {
  return !path.empty() && path[0] == '/' && platform::fileService().isFolder(path);
}

// The XDG base folders are the user's whether or not they exist yet: a missing one is made
// (mode 0700) and answered, so that nothing meant for the user lands in a machine folder.
bool isUserBaseFolder(std::string_view candidate) {
  return candidate == "$CONFIG" || candidate == "$DATA" || candidate == "$CACHE" ||
         candidate == "$STATE";
}

// The first candidate that is an existing folder.
std::string firstExisting(const Candidates& candidates) {
  for (const char* candidate : candidates) {
    if (candidate == nullptr) continue;
    std::string_view text = candidate;
    if (isUserBaseFolder(text)) {
      std::vector<std::string> values = expandVariable(text.substr(1));
      if (values.empty() || values[0].empty() || values[0][0] != '/') continue;
      platform::folderService().createUserBaseDir(values[0]);
      return values[0];
    }
    size_t dollar = text.find('$');
    if (dollar == std::string_view::npos) {
      if (isFolder(candidate)) return candidate;
      continue;
    }
    size_t end = text.find('/', dollar);
    if (end == std::string_view::npos) end = text.size();
    for (const std::string& value : expandVariable(text.substr(dollar + 1, end - dollar - 1))) {
      std::string path =
          std::string(text.substr(0, dollar)) + value + std::string(text.substr(end));
      if (isFolder(path)) return path;
    }
  }
  return "";
}

}  // namespace

std::optional<FolderKeyword> parseFolderKeyword(std::string_view keyword) {
  keyword = keyword.substr(0, std::min(keyword.find('\0'), kKeywordChars));
  FolderKeyword result;
  std::string_view word = keyword;
  for (const Prefix& prefix : kPrefixes) {
    if (keyword.size() >= prefix.minimumLength && startsWithIgnoringCase(keyword, prefix.text)) {
      result.domain = prefix.domain;
      word = keyword.substr(prefix.text.size(), kWordChars);
    }
  }

  bool known = false;
  for (const KeywordRow& row : kKeywords) {
    if (equalsIgnoringCase(word, row.word)) {
      result.type = row.type;
      known = true;
    }
  }
  if (startsWithIgnoringCase(word, "favou") || startsWithIgnoringCase(word, "favor")) {
    result.type = fourCharCode("favs");
    known = true;
  }
  if (!known) {
    if (word.size() != 4) return std::nullopt;
    result.type = readFourCharCode(word);
  }
  result.boot = equalsIgnoringCase(word, "boot");
  return result;
}

std::string findFolderIn(uint32_t type, int32_t domain) {
  const FolderRow* row = folderRow(type);
  if (row == nullptr) return "";
  switch (domain) {
    case kOnAppropriateDisk:
      switch (row->appropriate) {
        case Appropriate::User: return firstExisting(row->user);
        case Appropriate::Local: return firstExisting(row->local);
        case Appropriate::System: return firstExisting(row->system);
      }
      return "";
    case kUserDomain: return firstExisting(row->user);
    case kLocalDomain: return firstExisting(row->local);
    case kSystemDomain: return firstExisting(row->system);
    default: return "";  // network and classic domains: no Linux counterpart
  }
}

std::string findFolder(uint32_t type, std::optional<int32_t> preferred) {
  if (preferred) {
    std::string folder = findFolderIn(type, *preferred);
    if (!folder.empty()) return folder;
  }
  for (int32_t domain : {kOnAppropriateDisk, kUserDomain, kLocalDomain, kNetworkDomain,
                         kSystemDomain, kClassicDomain}) {
    std::string folder = findFolderIn(type, domain);
    if (!folder.empty()) return folder;
  }
  return "";
}

std::string sysFolder(std::string_view keyword) {
  std::optional<FolderKeyword> parsed = parseFolderKeyword(keyword);
  if (!parsed) return "";
  std::string native = findFolder(parsed->type, parsed->domain);
  if (native.empty()) return "";
  // For "boot" only the start-up volume: its name and ":", or "/".
  std::string path;
  if (parsed->boot)
    path = returnUnixNames() ? "/" : startupVolume().name + ":";
  else
    path = fromNative(native, true);
  return path;
}

}  // namespace tessel::paths
