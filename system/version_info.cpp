#include "system/version_info.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "paths/paths.h"
#include "platform/environment.h"
#include "platform/launcher.h"
#include "support/four_char_code.h"
#include "support/text.h"

namespace tessel::system {
namespace {

using support::fourCharCode;
using support::equalsIgnoringCase;

int32_t saturated(uint64_t n) {
  return n > 0x7FFFFFFFu ? 0x7FFFFFFF : static_cast<int32_t>(n);
}

int32_t twoBcdDigits(int32_t n) {
  n = std::clamp(n, 0, 99);
  return ((n / 10) << 4) | (n % 10);
}

}  // namespace

KernelVersion parseKernelRelease(std::string_view release) {
  KernelVersion v;
  int32_t* parts[] = {&v.major, &v.minor, &v.patch};
  size_t i = 0;
  for (int k = 0; k < 3; ++k) {
    if (i >= release.size() || release[i] < '0' || release[i] > '9') break;
    int64_t n = 0;
    while (i < release.size() && release[i] >= '0' && release[i] <= '9') {
      n = std::min<int64_t>(n * 10 + (release[i] - '0'), std::numeric_limits<int32_t>::max());
      ++i;
    }
    *parts[k] = static_cast<int32_t>(n);
    if (k == 0) v.known = true;
    if (i >= release.size() || release[i] != '.') break;
    ++i;
  }
  return v;
}

std::optional<int32_t> selectorResponse(uint32_t selector) {
  platform::EnvironmentService& env = platform::environmentService();
  switch (selector) {
    case fourCharCode("sysv"):
    case fourCharCode("sys1"):
    case fourCharCode("sys2"):
    case fourCharCode("sys3"): {
      KernelVersion v = parseKernelRelease(env.kernelRelease());
      if (!v.known) return std::nullopt;
      if (selector == fourCharCode("sys1")) return v.major;
      if (selector == fourCharCode("sys2")) return v.minor;
      if (selector == fourCharCode("sys3")) return v.patch;
      // Binary-coded decimal: two digits of major version, one each of minor and patch.
      return (twoBcdDigits(v.major) << 8) | (std::min(v.minor, 9) << 4) | std::min(v.patch, 9);
    }
    case fourCharCode("ram "):
    case fourCharCode("lram"):
    case fourCharCode("ramm"): {
      auto m = env.memory();
      if (!m) return std::nullopt;
      if (selector == fourCharCode("ram ")) return saturated(m->total);
      if (selector == fourCharCode("ramm")) return saturated(m->total >> 20);
      return saturated(m->total + m->swapTotal);
    }
    case fourCharCode("pgsz"):
      return saturated(env.pageSize());
    default:
      return std::nullopt;
  }
}

std::string componentVersionText(uint32_t response) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "%x", response >> 16);
  std::string text;
  for (const char* p = hex; *p != '\0'; ++p) {
    if (*p >= 'a' && *p <= 'f') text += std::to_string(*p - 'a' + 10);
    else text += *p;
    text += '.';
  }
  text.pop_back();
  if (text.size() >= 4 && text.compare(text.size() - 3, 3, "0.0") == 0)
    text.resize(text.size() - 2);
  return text;
}

std::string version(std::string_view versionType) {
  if (equalsIgnoringCase(versionType, "os")) return "Linux";
  if (equalsIgnoringCase(versionType, "classic")) {
    auto box = selectorResponse(fourCharCode("bbox"));
    return box && (*box & 1) != 0 ? "1" : "0";
  }
  if (equalsIgnoringCase(versionType, "mac")) {
    int32_t major = selectorResponse(fourCharCode("sys1")).value_or(0);
    int32_t minor = selectorResponse(fourCharCode("sys2")).value_or(0);
    int32_t fix = selectorResponse(fourCharCode("sys3")).value_or(0);
    char text[64];
    if (fix >= 1) std::snprintf(text, sizeof text, "%d.%d.%d", major, minor, fix);
    else std::snprintf(text, sizeof text, "%d.%d", major, minor);
    return text;
  }
  if (equalsIgnoringCase(versionType, "qt") || equalsIgnoringCase(versionType, "qt3")) {
    auto qt = selectorResponse(fourCharCode("qtim"));
    return qt ? componentVersionText(static_cast<uint32_t>(*qt)) : "";
  }
  return "";
}

int32_t gestalt(uint32_t selector) { return selectorResponse(selector).value_or(0); }

int32_t gestaltExists(uint32_t selector) { return selectorResponse(selector) ? 1 : 0; }

double memoryInfo(std::string_view infoType) {
  platform::EnvironmentService& env = platform::environmentService();
  auto m = env.memory();
  if (!m) return 0.0;
  if (equalsIgnoringCase(infoType, "ram")) return static_cast<double>(m->total);
  if (equalsIgnoringCase(infoType, "swap")) return static_cast<double>(m->swapTotal);
  if (equalsIgnoringCase(infoType, "free")) return static_cast<double>(m->available);
  if (equalsIgnoringCase(infoType, "max block")) {
    uint64_t block = m->available;
    if (auto limit = env.addressSpaceLimit()) block = std::min(block, *limit);
    return static_cast<double>(block);
  }
  return 0.0;
}

int32_t fontInstalled(std::string_view fontName, std::string_view) {
  if (fontName.empty()) return 0;
  return platform::environmentService().fontFamilyInstalled(std::string(fontName)) ? 1 : 0;
}

// Creator codes of well-known applications, by what the application is for.
std::string contentTypeOfCreator(uint32_t c) {
  switch (c) {
    case fourCharCode("ttxt"):  // the system's text editor
      return "text/plain";
    case fourCharCode("MSIE"):  // web browsers
    case fourCharCode("sfri"):
      return "x-scheme-handler/http";
    case fourCharCode("emal"):  // mail
      return "x-scheme-handler/mailto";
    case fourCharCode("MACS"):  // the desktop's file manager
      return "inode/directory";
    case fourCharCode("prvw"):  // the document viewer
      return "application/pdf";
    case fourCharCode("TVOD"):  // the media player
      return "video/quicktime";
    default:
      return "";
  }
}

// File-type codes, by the documents they name.
std::string contentTypeOfFileType(uint32_t c) {
  switch (c) {
    case fourCharCode("TEXT"):
      return "text/plain";
    case fourCharCode("HTML"):
      return "text/html";
    case fourCharCode("RTF "):
      return "application/rtf";
    case fourCharCode("PDF "):
      return "application/pdf";
    case fourCharCode("JPEG"):
      return "image/jpeg";
    case fourCharCode("PNGf"):
      return "image/png";
    case fourCharCode("GIFf"):
      return "image/gif";
    case fourCharCode("TIFF"):
      return "image/tiff";
    case fourCharCode("BMPf"):
      return "image/bmp";
    case fourCharCode("MooV"):
      return "video/quicktime";
    case fourCharCode("MPG4"):
      return "video/mp4";
    case fourCharCode("MPG3"):
      return "audio/mpeg";
    case fourCharCode("WAVE"):
      return "audio/x-wav";
    case fourCharCode("AIFF"):
      return "audio/x-aiff";
    case fourCharCode("ZIP "):
      return "application/zip";
    case fourCharCode("fold"):
      return "inode/directory";
    default:
      return "";
  }
}

std::string findApp(std::string_view creator) {
  platform::LauncherService& launcher = platform::launcherService();
  std::string app;
  if (creator.size() > 1 && creator[0] == '.') {
    std::string type = launcher.contentTypeForExtension(std::string(creator.substr(1)));
    if (!type.empty()) app = launcher.defaultApplication(type);
  } else {
    uint32_t c = support::readFourCharCode(creator);
    std::string type = contentTypeOfCreator(c);
    if (!type.empty()) app = launcher.defaultApplication(type);
    if (app.empty()) {
      type = contentTypeOfFileType(c);
      if (!type.empty()) app = launcher.defaultApplication(type);
    }
  }
  if (app.empty()) return "";
  return paths::fromNative(app, false);
}

std::string userShortName() {
  auto user = platform::environmentService().currentUser();
  return user ? user->name : "";
}

std::string userName() {
  auto user = platform::environmentService().currentUser();
  if (!user) return "";
  std::string full = user->gecos.substr(0, user->gecos.find(','));
  return full.empty() ? user->name : full;
}

std::string computerName() {
  platform::EnvironmentService& env = platform::environmentService();
  std::string pretty = env.prettyHostName();
  return pretty.empty() ? env.hostName() : pretty;
}

int32_t languageOfLocale(std::string_view locale) {
  size_t end = locale.find_first_of("_.@");
  std::string_view lang = locale.substr(0, end);
  std::string_view territory;
  if (end != std::string_view::npos && locale[end] == '_') {
    territory = locale.substr(end + 1);
    territory = territory.substr(0, territory.find_first_of(".@"));
  }
  if (lang == "nl") return territory == "BE" ? 34 : 4;
  if (lang == "zh") return territory == "TW" || territory == "HK" ? 19 : 33;
  static constexpr struct {
    const char* name;
    int32_t number;
  } table[] = {
      {"en", 0},   {"fr", 1},   {"de", 2},   {"it", 3},   {"sv", 5},   {"es", 6},
      {"da", 7},   {"pt", 8},   {"nb", 9},   {"no", 9},   {"he", 10},  {"ja", 11},
      {"ar", 12},  {"fi", 13},  {"el", 14},  {"is", 15},  {"mt", 16},  {"tr", 17},
      {"hr", 18},  {"ur", 20},  {"hi", 21},  {"th", 22},  {"ko", 23},  {"lt", 24},
      {"pl", 25},  {"hu", 26},  {"et", 27},  {"lv", 28},  {"se", 29},  {"fo", 30},
      {"fa", 31},  {"ru", 32},  {"ga", 35},  {"sq", 36},  {"ro", 37},  {"cs", 38},
      {"sk", 39},  {"sl", 40},  {"yi", 41},  {"sr", 42},  {"mk", 43},  {"bg", 44},
      {"uk", 45},  {"be", 46},  {"vi", 80},  {"id", 81},  {"ms", 83},  {"cy", 128},
      {"eu", 129}, {"ca", 130}, {"gl", 140}, {"af", 141}, {"nn", 151},
  };
  for (const auto& entry : table)
    if (lang == entry.name) return entry.number;
  return 0;
}

int32_t language() {
  platform::EnvironmentService& env = platform::environmentService();
  // The variables in the order the C library consults them for messages; the first one set and
  // not empty decides.
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    auto value = env.variable(name);
    if (value && !value->empty()) return languageOfLocale(*value);
  }
  return 0;
}

}  // namespace tessel::system
