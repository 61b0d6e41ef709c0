// The environment information tables against a fake environment and a fake launcher.
#include <gtest/gtest.h>

#include <map>

#include "support/four_char_code.h"
#include "paths/paths.h"
#include "platform/environment.h"
#include "platform/launcher.h"
#include "system/version_info.h"

namespace tessel::system {
namespace {

struct FakeEnvironment : platform::EnvironmentService {
  std::string release = "6.1.0-18-amd64";
  std::optional<platform::MemoryFigures> figures;
  std::optional<uint64_t> limit;
  uint64_t page = 4096;
  std::optional<platform::UserRecord> user;
  std::string pretty, host = "box";
  std::map<std::string, std::string> vars;

  std::string kernelRelease() override { return release; }
  std::optional<platform::MemoryFigures> memory() override { return figures; }
  std::optional<uint64_t> addressSpaceLimit() override { return limit; }
  uint64_t pageSize() override { return page; }
  bool fontFamilyInstalled(const std::string&) override { return false; }
  std::optional<platform::UserRecord> currentUser() override { return user; }
  std::string prettyHostName() override { return pretty; }
  std::string hostName() override { return host; }
  std::optional<std::string> variable(const std::string& name) override {
    auto it = vars.find(name);
    if (it == vars.end()) return std::nullopt;
    return it->second;
  }
  std::string moduleFolder() override { return ""; }
};

struct FakeLauncher : platform::LauncherService {
  std::map<std::string, std::string> extensions;  // extension -> type
  std::map<std::string, std::string> defaults;    // type -> .desktop file
  std::vector<std::string> asked;

  std::optional<int32_t> spawn(const std::string&, const std::vector<std::string>&,
                               bool) override {
    return std::nullopt;
  }
  std::optional<int32_t> launchDesktopFile(const std::string&, const std::vector<std::string>&,
                                           bool) override {
    return std::nullopt;
  }
  int runShell(const std::string&) override { return -1; }
  std::string contentTypeForExtension(const std::string& e) override {
    asked.push_back("ext:" + e);
    auto it = extensions.find(e);
    return it == extensions.end() ? "" : it->second;
  }
  std::string defaultApplication(const std::string& type) override {
    asked.push_back("type:" + type);
    auto it = defaults.find(type);
    return it == defaults.end() ? "" : it->second;
  }
  bool openDocument(const std::string&) override { return false; }
  bool openURL(const std::string&) override { return false; }
  int32_t printFile(const std::string&, const std::string&) override { return 0; }
};

class SystemInfo : public ::testing::Test {
 protected:
  void SetUp() override {
    auto e = std::make_unique<FakeEnvironment>();
    env = e.get();
    savedEnv = platform::setEnvironmentService(std::move(e));
    auto l = std::make_unique<FakeLauncher>();
    launcher = l.get();
    savedLauncher = platform::setLauncherService(std::move(l));
  }
  void TearDown() override {
    platform::setEnvironmentService(std::move(savedEnv));
    platform::setLauncherService(std::move(savedLauncher));
    paths::setReturnUnixNames(false);
  }
  static uint32_t sel(const char* text) { return support::readFourCharCode(text); }

  FakeEnvironment* env = nullptr;
  FakeLauncher* launcher = nullptr;
  std::unique_ptr<platform::EnvironmentService> savedEnv;
  std::unique_ptr<platform::LauncherService> savedLauncher;
};

TEST(ComponentVersionText, DigitsLettersAndTheTrailingZeroRule) {
  EXPECT_EQ(componentVersionText(0x07200000), "7.2.0");
  EXPECT_EQ(componentVersionText(0x06500000), "6.5.0");
  EXPECT_EQ(componentVersionText(0x07000000), "7.0");
  EXPECT_EQ(componentVersionText(0x04100000), "4.1.0");
  EXPECT_EQ(componentVersionText(0x07010000), "7.0.1");
  // Letters become their decimal values; 6.10.0 also ends in "0.0".
  EXPECT_EQ(componentVersionText(0x06a00000), "6.10");
  EXPECT_EQ(componentVersionText(0x0fff1234), "15.15.15");
  // Only the high word counts; short texts keep their zeros.
  EXPECT_EQ(componentVersionText(0x0000ffff), "0");
  EXPECT_EQ(componentVersionText(0x00100000), "1.0");
}

TEST_F(SystemInfo, KernelSelectorsAndVersionTexts) {
  env->release = "6.12.3-amd64";
  // Binary-coded decimal, minor and patch capped at 9.
  EXPECT_EQ(gestalt(sel("sysv")), 0x0693);
  EXPECT_EQ(gestalt(sel("sys1")), 6);
  EXPECT_EQ(gestalt(sel("sys2")), 12);
  EXPECT_EQ(gestalt(sel("sys3")), 3);
  EXPECT_EQ(version("mac"), "6.12.3");
  EXPECT_EQ(version("OS"), "Linux");
  EXPECT_EQ(version("os"), "Linux");
  EXPECT_EQ(version("osx"), "");
  EXPECT_EQ(version("qt"), "");
  EXPECT_EQ(version("QT3"), "");
  EXPECT_EQ(version("classic"), "0");
  EXPECT_EQ(version(""), "");

  env->release = "10.3.9";
  EXPECT_EQ(gestalt(sel("sysv")), 0x1039);
  env->release = "5.4-rc1";
  EXPECT_EQ(version("mac"), "5.4");

  // A patch number of 0 leaves it out, and is still an answer.
  env->release = "6.1.0-18-amd64";
  EXPECT_EQ(version("Mac"), "6.1");
  EXPECT_EQ(gestalt(sel("sys3")), 0);
  EXPECT_EQ(gestaltExists(sel("sys3")), 1);

  // No kernel version: nothing answers, and "mac" counts from zero.
  env->release = "";
  EXPECT_EQ(gestaltExists(sel("sysv")), 0);
  EXPECT_EQ(version("mac"), "0.0");
}

TEST_F(SystemInfo, OnlyTheDocumentedSelectorsAnswer) {
  env->figures = platform::MemoryFigures{uint64_t{16} << 30, uint64_t{9} << 30, uint64_t{2} << 30};
  // Byte counts saturate at the largest 32-bit figure; 'ramm' counts MiB.
  EXPECT_EQ(gestalt(sel("ram ")), 0x7FFFFFFF);
  EXPECT_EQ(gestalt(sel("lram")), 0x7FFFFFFF);
  EXPECT_EQ(gestalt(sel("ramm")), 16384);
  EXPECT_EQ(gestalt(sel("pgsz")), 4096);
  env->figures = platform::MemoryFigures{1000, 500, 24};
  EXPECT_EQ(gestalt(sel("ram ")), 1000);
  EXPECT_EQ(gestalt(sel("lram")), 1024);
  EXPECT_EQ(gestalt(sel("ramm")), 0);
  EXPECT_EQ(gestaltExists(sel("ramm")), 1);
  for (const char* unknown : {"qtim", "bbox", "os  ", "ram", "RAM ", "", "sysa"}) {
    EXPECT_EQ(gestalt(sel(unknown)), 0) << unknown;
    EXPECT_EQ(gestaltExists(sel(unknown)), 0) << unknown;
  }
  env->figures.reset();
  EXPECT_EQ(gestaltExists(sel("ram ")), 0);
  EXPECT_EQ(gestaltExists(sel("pgsz")), 1);
}

TEST_F(SystemInfo, MemoryFiguresAreFullByteCounts) {
  env->figures = platform::MemoryFigures{uint64_t{64} << 30, uint64_t{40} << 30, 0};
  EXPECT_EQ(memoryInfo("RAM"), 68719476736.0);
  EXPECT_EQ(memoryInfo("free"), 42949672960.0);
  EXPECT_EQ(memoryInfo("swap"), 0.0);
  EXPECT_EQ(memoryInfo("Max Block"), 42949672960.0);
  // The address-space limit caps the largest block.
  env->limit = uint64_t{3} << 30;
  EXPECT_EQ(memoryInfo("max block"), 3221225472.0);
  EXPECT_EQ(memoryInfo("free"), 42949672960.0);
  EXPECT_EQ(memoryInfo("maxblock"), 0.0);
  EXPECT_EQ(memoryInfo("ram "), 0.0);
  env->figures.reset();
  EXPECT_EQ(memoryInfo("ram"), 0.0);
}

TEST_F(SystemInfo, NamesFromThePasswordEntryAndTheHost) {
  EXPECT_EQ(userName(), "");
  EXPECT_EQ(userShortName(), "");
  env->user = platform::UserRecord{"ada", "Ada Lovelace,Room 1,,"};
  EXPECT_EQ(userName(), "Ada Lovelace");
  EXPECT_EQ(userShortName(), "ada");
  env->user->gecos = ",,,";
  EXPECT_EQ(userName(), "ada");
  env->user->gecos = "";
  EXPECT_EQ(userName(), "ada");
  EXPECT_EQ(computerName(), "box");
  env->pretty = "Studio Machine";
  EXPECT_EQ(computerName(), "Studio Machine");
}

TEST_F(SystemInfo, LanguageFromTheFirstLocaleVariableSet) {
  EXPECT_EQ(language(), 0);
  env->vars["LANG"] = "de_DE.UTF-8";
  EXPECT_EQ(language(), 2);
  env->vars["LC_MESSAGES"] = "fr_CA.UTF-8";
  EXPECT_EQ(language(), 1);
  env->vars["LC_ALL"] = "";  // empty: not set
  EXPECT_EQ(language(), 1);
  env->vars["LC_ALL"] = "C.UTF-8";
  EXPECT_EQ(language(), 0);

  EXPECT_EQ(languageOfLocale("nl_NL"), 4);
  EXPECT_EQ(languageOfLocale("nl_BE.UTF-8"), 34);
  EXPECT_EQ(languageOfLocale("zh_TW.UTF-8"), 19);
  EXPECT_EQ(languageOfLocale("zh_HK"), 19);
  EXPECT_EQ(languageOfLocale("zh_CN.GB18030"), 33);
  EXPECT_EQ(languageOfLocale("sr_RS@latin"), 42);
  EXPECT_EQ(languageOfLocale("no_NO"), 9);
  EXPECT_EQ(languageOfLocale("nb_NO.UTF-8"), 9);
  EXPECT_EQ(languageOfLocale("nn_NO.UTF-8"), 151);
  EXPECT_EQ(languageOfLocale("POSIX"), 0);
  EXPECT_EQ(languageOfLocale("tlh"), 0);
  EXPECT_EQ(languageOfLocale("FR_fr"), 0);  // locale names are case-sensitive
}

TEST_F(SystemInfo, FindAppByExtensionCreatorAndFileType) {
  paths::setReturnUnixNames(true);
  launcher->extensions["txt"] = "text/plain";
  launcher->defaults["text/plain"] = "/usr/share/applications/editor.desktop";
  launcher->defaults["x-scheme-handler/http"] = "/usr/share/applications/browser.desktop";
  launcher->defaults["image/png"] = "/usr/share/applications/viewer.desktop";

  EXPECT_EQ(findApp(".txt"), "/usr/share/applications/editor.desktop");
  EXPECT_EQ(findApp(".zzz"), "");
  EXPECT_EQ(findApp("ttxt"), "/usr/share/applications/editor.desktop");
  EXPECT_EQ(findApp("MSIE"), "/usr/share/applications/browser.desktop");
  // Not a creator in the table: the same code as a file type.
  EXPECT_EQ(findApp("PNGf"), "/usr/share/applications/viewer.desktop");
  EXPECT_EQ(findApp("TEXTfile"), "/usr/share/applications/editor.desktop");

  // A lone dot is a code, not an empty extension.
  launcher->asked.clear();
  EXPECT_EQ(findApp("."), "");
  for (const std::string& q : launcher->asked) EXPECT_NE(q.rfind("ext:", 0), 0u) << q;
  EXPECT_EQ(findApp(""), "");
}

}  // namespace
}  // namespace tessel::system
