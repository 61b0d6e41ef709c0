// Environment information through the host, against the running machine.
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;

uint64_t meminfoBytes(const std::string& key) {
  std::ifstream in("/proc/meminfo");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind(key + ":", 0) == 0) return std::stoull(line.substr(key.size() + 1)) * 1024;
  return 0;
}

class Environment : public XtraTest {
 protected:
  double memory(const std::string& type) {
    Value v = call("tsMemoryInfo", {Value(type)});
    EXPECT_TRUE(v.isFloat()) << type;
    return v.isFloat() ? v.real() : -1;
  }
};

TEST_F(Environment, VersionsAndSelectorsDescribeTheRunningKernel) {
  utsname u{};
  ASSERT_EQ(uname(&u), 0);
  int major = 0, minor = 0, patch = 0;
  std::sscanf(u.release, "%d.%d.%d", &major, &minor, &patch);

  EXPECT_EQ(text("tsVersion", {Value("OS")}), "Linux");
  EXPECT_EQ(text("tsVersion", {Value("osx")}), "");
  std::string mac = std::to_string(major) + "." + std::to_string(minor);
  if (patch >= 1) mac += "." + std::to_string(patch);
  EXPECT_EQ(text("tsVersion", {Value("mac")}), mac);
  EXPECT_EQ(text("tsVersion", {Value("Qt")}), "");
  EXPECT_EQ(text("tsVersion", {Value("classic")}), "0");

  EXPECT_EQ(integer("tsGestalt", {Value("sys1")}), major);
  EXPECT_EQ(integer("tsGestalt", {Value("sys2")}), minor);
  EXPECT_EQ(integer("tsGestalt", {Value("sys3")}), patch);
  int bcd = ((major / 10 % 10) << 12) | ((major % 10) << 8) | (std::min(minor, 9) << 4) |
            std::min(patch, 9);
  EXPECT_EQ(integer("tsGestalt", {Value("sysv")}), bcd);
  EXPECT_EQ(integer("tsGestaltExists", {Value("sys3")}), 1);
  EXPECT_EQ(integer("tsGestalt", {Value("pgsz")}), sysconf(_SC_PAGESIZE));
  // Only the selectors of the table answer; the first four bytes are the code.
  EXPECT_EQ(integer("tsGestaltExists", {Value("qtim")}), 0);
  EXPECT_EQ(integer("tsGestalt", {Value("qtim")}), 0);
  EXPECT_EQ(integer("tsGestaltExists", {Value("sysvextra")}), 1);
  EXPECT_EQ(integer("tsGestaltExists", {Value("SYSV")}), 0);
}

TEST_F(Environment, MemoryFiguresAreTheKernelsByteCounts) {
  uint64_t total = meminfoBytes("MemTotal");
  ASSERT_GT(total, 0u);
  EXPECT_EQ(memory("ram"), static_cast<double>(total));
  EXPECT_EQ(memory("swap"), static_cast<double>(meminfoBytes("SwapTotal")));
  double free = memory("free");
  EXPECT_GT(free, 0.0);
  EXPECT_LE(free, static_cast<double>(total));
  double block = memory("max block");
  EXPECT_GT(block, 0.0);
  EXPECT_LE(block, static_cast<double>(total));
  EXPECT_EQ(memory("maxblock"), 0.0);
  EXPECT_EQ(memory(""), 0.0);
  int32_t ram = integer("tsGestalt", {Value("ram ")});
  EXPECT_EQ(ram, total > 0x7FFFFFFFu ? 0x7FFFFFFF : static_cast<int32_t>(total));
  EXPECT_EQ(integer("tsGestalt", {Value("ramm")}), static_cast<int32_t>(total >> 20));
}

TEST_F(Environment, FontsAreInstalledFamiliesNotSubstitutes) {
  // fonts-dejavu-core is installed for the tests.
  EXPECT_EQ(integer("tsFontInstalled", {Value("DejaVu Sans"), Value("")}), 1);
  EXPECT_EQ(integer("tsFontInstalled", {Value("DejaVu Sans"), Value("Bold")}), 1);
  // Aliases and unknown names are not families, whatever fontconfig would substitute.
  EXPECT_EQ(integer("tsFontInstalled", {Value("sans-serif"), Value("")}), 0);
  EXPECT_EQ(integer("tsFontInstalled", {Value("Monospace"), Value("")}), 0);
  EXPECT_EQ(integer("tsFontInstalled", {Value("Tessel No Such Face"), Value("Bold")}), 0);
}

TEST_F(Environment, NamesComeFromTheAccountAndTheHost) {
  passwd* pw = getpwuid(getuid());
  ASSERT_NE(pw, nullptr);
  EXPECT_EQ(text("tsUserShortName"), pw->pw_name);
  std::string gecos = pw->pw_gecos ? pw->pw_gecos : "";
  std::string full = gecos.substr(0, gecos.find(','));
  EXPECT_EQ(text("tsUserName"), full.empty() ? std::string(pw->pw_name) : full);

  std::ifstream info("/etc/machine-info");
  std::string line;
  bool pretty = false;
  while (std::getline(info, line)) pretty |= line.rfind("PRETTY_HOSTNAME=", 0) == 0;
  if (!pretty) {
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    EXPECT_EQ(text("tsComputerName"), host);
  } else {
    EXPECT_FALSE(text("tsComputerName").empty());
  }
}

TEST_F(Environment, LanguageFollowsTheLocaleVariablesAtEachCall) {
  const char* names[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
  std::vector<std::optional<std::string>> saved;
  for (const char* n : names) {
    const char* v = getenv(n);
    saved.push_back(v ? std::optional<std::string>(v) : std::nullopt);
    unsetenv(n);
  }
  EXPECT_EQ(integer("tsLanguage"), 0);
  setenv("LANG", "ja_JP.UTF-8", 1);
  EXPECT_EQ(integer("tsLanguage"), 11);
  // Locales need not be generated: the name alone decides.
  setenv("LC_MESSAGES", "nl_BE.UTF-8", 1);
  EXPECT_EQ(integer("tsLanguage"), 34);
  setenv("LC_ALL", "fr_FR.UTF-8", 1);
  EXPECT_EQ(integer("tsLanguage"), 1);
  setenv("LC_ALL", "C", 1);
  EXPECT_EQ(integer("tsLanguage"), 0);
  for (size_t i = 0; i < 3; ++i) {
    if (saved[i]) setenv(names[i], saved[i]->c_str(), 1);
    else unsetenv(names[i]);
  }
}

}  // namespace
}  // namespace tessel::testing
