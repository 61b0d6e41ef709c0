// Environment information through the host, against the running machine: the real services
// behind the tables the unit tests hold (selectors, BCD versions, saturation, locale names).
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

class Environment : public XtraTest {};

TEST_F(Environment, KernelMemoryAndAccountOfTheRunningMachine) {
  utsname u{};
  ASSERT_EQ(uname(&u), 0);
  int major = 0, minor = 0;
  std::sscanf(u.release, "%d.%d", &major, &minor);
  EXPECT_EQ(text("tsVersion", {Value("OS")}), "Linux");
  EXPECT_EQ(text("tsVersion", {Value("mac")}).rfind(std::to_string(major) + "." +
                                                    std::to_string(minor), 0), 0u);
  EXPECT_EQ(integer("tsGestalt", {Value("sys1")}), major);
  EXPECT_EQ(integer("tsGestalt", {Value("sys2")}), minor);
  EXPECT_EQ(integer("tsGestalt", {Value("pgsz")}), sysconf(_SC_PAGESIZE));

  uint64_t total = meminfoBytes("MemTotal");
  ASSERT_GT(total, 0u);
  EXPECT_EQ(call("tsMemoryInfo", {Value("ram")}).real(), static_cast<double>(total));
  EXPECT_EQ(call("tsMemoryInfo", {Value("swap")}).real(),
            static_cast<double>(meminfoBytes("SwapTotal")));
  double free = call("tsMemoryInfo", {Value("free")}).real();
  EXPECT_GT(free, 0.0);
  EXPECT_LE(free, static_cast<double>(total));
  EXPECT_EQ(integer("tsGestalt", {Value("ramm")}), static_cast<int32_t>(total >> 20));

  passwd* pw = getpwuid(getuid());
  ASSERT_NE(pw, nullptr);
  EXPECT_EQ(text("tsUserShortName"), pw->pw_name);
  EXPECT_FALSE(text("tsComputerName").empty());
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

TEST_F(Environment, LanguageFollowsTheLocaleVariablesAtEachCall) {
  const char* names[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
  std::vector<std::optional<std::string>> saved;
  for (const char* n : names) {
    const char* v = getenv(n);
    saved.push_back(v ? std::optional<std::string>(v) : std::nullopt);
    unsetenv(n);
  }
  EXPECT_EQ(integer("tsLanguage"), 0);
  setenv("LANG", "ja_JP.UTF-8", 1);  // locales need not be generated: the name alone decides
  EXPECT_EQ(integer("tsLanguage"), 11);
  setenv("LC_ALL", "fr_FR.UTF-8", 1);
  EXPECT_EQ(integer("tsLanguage"), 1);
  for (size_t i = 0; i < 3; ++i) {
    if (saved[i]) setenv(names[i], saved[i]->c_str(), 1);
    else unsetenv(names[i]);
  }
}

}  // namespace
}  // namespace tessel::testing
