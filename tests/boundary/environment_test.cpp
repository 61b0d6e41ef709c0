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
  EXPECT_EQ(text("tsVersion", {Value("mac")}).rfind(std::to_string(major) + "." +
                                                    std::to_string(minor), 0), 0u);
  EXPECT_EQ(integer("tsGestalt", {Value("sys1")}), major);
  EXPECT_EQ(integer("tsGestalt", {Value("sys2")}), minor);

  uint64_t total = meminfoBytes("MemTotal");
  ASSERT_GT(total, 0u);
  EXPECT_EQ(call("tsMemoryInfo", {Value("ram")}).real(), static_cast<double>(total));
  EXPECT_EQ(call("tsMemoryInfo", {Value("swap")}).real(),
            static_cast<double>(meminfoBytes("SwapTotal")));
  EXPECT_EQ(integer("tsGestalt", {Value("ramm")}), static_cast<int32_t>(total >> 20));

  passwd* pw = getpwuid(getuid());
  ASSERT_NE(pw, nullptr);
  EXPECT_EQ(text("tsUserShortName"), pw->pw_name);
  EXPECT_FALSE(text("tsComputerName").empty());
}

TEST_F(Environment, LanguageFollowsTheLocaleVariablesAtEachCall) {
  ScopedEnvironment env;
  for (const char* n : {"LC_ALL", "LC_MESSAGES", "LANG"}) env.unset(n);
  EXPECT_EQ(integer("tsLanguage"), 0);
  env.set("LANG", "ja_JP.UTF-8");  // locales need not be generated: the name alone decides
  EXPECT_EQ(integer("tsLanguage"), 11);
  env.set("LC_ALL", "fr_FR.UTF-8");
  EXPECT_EQ(integer("tsLanguage"), 1);
}

}  // namespace
}  // namespace tessel::testing
