#include "paths/special_folders.h"

#include <algorithm>
#include <array>
#include <vector>

#include "formats/four_char_code.h"
#include "paths/ascii.h"
#include "paths/paths.h"
#include "paths/volume_model.h"
#include "platform/files.h"
#include "platform/folders.h"

namespace tessel::paths {
namespace {

// ---- Keywords -----------------------------------------------------------------------------------

struct KeywordRow {
  std::string_view word;
  uint32_t type;
};

// Later rows win over earlier ones.
constexpr KeywordRow kKeywords[] = {
    {"prefs", fourCC("pref")},      {"system", fourCC("macs")},
    {"boot", fourCC("macs")},       {"desktop", fourCC("desk")},
    {"trash", fourCC("trsh")},      {"startup", fourCC("strt")},
    {"apple", fourCC("amnu")},      {"control panels", fourCC("ctrl")},
    {"extensions", fourCC("extn")}, {"fonts", fourCC("font")},
    {"temp", fourCC("temp")},       {"apps", fourCC("apps")},
    {"personal", fourCC("docs")},   {"appdata", fourCC("asup")},
    {"library", fourCC("dlib")},    {"pictures", fourCC("pdoc")},
    {"video", fourCC("mdoc")},      {"music", kMusicFolderType},
    {"public", fourCC("pubb")},     {"profile", fourCC("cusr")},
    {"users", fourCC("usrs")},      {"shared", fourCC("sdat")},
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
    {fourCC("pref"), Appropriate::User, {"$CONFIG"}, {"/usr/local/etc"}, {"/etc"}},
    {fourCC("macs"), Appropriate::System, kNone, kNone, {"/usr"}},
    {fourCC("desk"), Appropriate::User, {"$DESKTOP"}, kNone, kNone},
    {fourCC("trsh"), Appropriate::User, {"$DATA/Trash/files"}, kNone, kNone},
    {fourCC("strt"), Appropriate::User, {"$CONFIG/autostart"}, kNone, {"$SYSCONFIG/autostart"}},
    {fourCC("amnu"), Appropriate::System, {"$CONFIG/menus"}, kNone, {"$SYSCONFIG/menus"}},
    {fourCC("ctrl"), Appropriate::System, kNone, {"/usr/local/sbin"}, {"/usr/sbin"}},
    {fourCC("extn"),
     Appropriate::System,
     kNone,
     {"/lib/modules/$KERNEL/extra"},
     {"/lib/modules/$KERNEL"}},
    {fourCC("font"),
     Appropriate::System,
     {"$DATA/fonts", "$HOME/.fonts"},
     {"/usr/local/share/fonts"},
     {"/usr/share/fonts"}},
    {fourCC("temp"), Appropriate::User, {"$TMP"}, kNone, {"/tmp"}},
    {fourCC("apps"),
     Appropriate::System,
     {"$DATA/applications"},
     {"/usr/local/share/applications"},
     {"/usr/share/applications"}},
    {fourCC("docs"), Appropriate::User, {"$DOCUMENTS"}, kNone, kNone},
    {fourCC("favs"), Appropriate::User, {"$CONFIG/gtk-3.0"}, kNone, kNone},
    {fourCC("asup"), Appropriate::User, {"$DATA"}, {"/usr/local/share"}, {"/usr/share"}},
    {fourCC("dlib"), Appropriate::System, {"$HOME/.local"}, {"/usr/local/lib"}, {"/usr/lib"}},
    {fourCC("pdoc"), Appropriate::User, {"$PICTURES"}, kNone, kNone},
    {fourCC("mdoc"), Appropriate::User, {"$VIDEOS"}, kNone, kNone},
    {kMusicFolderType, Appropriate::User, {"$MUSIC"}, kNone, kNone},
    {fourCC("pubb"), Appropriate::User, {"$PUBLIC"}, kNone, kNone},
    {fourCC("cusr"), Appropriate::User, {"$HOME"}, kNone, kNone},
    {fourCC("usrs"), Appropriate::Local, kNone, {"/home"}, kNone},
    {fourCC("sdat"), Appropriate::Local, kNone, {"/var/tmp"}, kNone},
    {fourCC("info"),
     Appropriate::System,
     {"$DATA/doc"},
     {"/usr/local/share/doc"},
     {"/usr/share/doc"}},
    // Types beyond the keyword table, for raw four-character keywords.
    {fourCC("down"), Appropriate::User, {"$DOWNLOAD"}, kNone, kNone},
    {fourCC("cach"), Appropriate::User, {"$CACHE"}, kNone, {"/var/cache"}},
    {fourCC("logs"), Appropriate::User, {"$STATE"}, kNone, {"/var/log"}},
    {fourCC("dtop"), Appropriate::User, {"$HOME"}, {"/usr/local"}, {"/"}},
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
    result.type = fourCC("favs");
    known = true;
  }
  if (!known) {
    if (word.size() != 4) return std::nullopt;
    result.type = formats::readFourCharCode(std::string(word));
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
