// The environment information tables against a fake environment. (tsFindApp's codes are
// Handlers.FindAppAnswersTheHandlersDesktopFile's and its example's, against real handlers.)
#include <gtest/gtest.h>

#include <map>

#include "support/four_char_code.h"
#include "platform/environment.h"
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

class SystemInfo : public ::testing::Test {
 protected:
  void SetUp() override {
    auto e = std::make_unique<FakeEnvironment>();
    env = e.get();
    savedEnv = platform::setEnvironmentService(std::move(e));
  }
  void TearDown() override { platform::setEnvironmentService(std::move(savedEnv)); }
  static uint32_t sel(const char* text) { return support::readFourCharCode(text); }

  FakeEnvironment* env = nullptr;
  std::unique_ptr<platform::EnvironmentService> savedEnv;
};

TEST(ComponentVersionText, DigitsLettersAndTheTrailingZeroRule) {
  // Letters become their decimal values (6.10.0 also ends in "0.0"); only the high word counts;
  // short texts keep their zeros.
  const std::pair<uint32_t, const char*> rows[] = {
      {0x07200000, "7.2.0"}, {0x07000000, "7.0"}, {0x07010000, "7.0.1"}, {0x06a00000, "6.10"},
      {0x0fff1234, "15.15.15"}, {0x0000ffff, "0"}, {0x00100000, "1.0"}};
  for (auto [number, text] : rows) EXPECT_EQ(componentVersionText(number), text) << text;
}

// Rows: the kernel release, then sysv, sys1..sys3 and "mac". Binary-coded decimal, minor and
// patch capped at 9; a patch of 0 is left out of the text and still an answer. (The words "OS",
// "qt", "osx" and "classic" are tsVersion's example.)
TEST_F(SystemInfo, KernelSelectorsAndVersionTexts) {
  struct Row {
    const char* release;
    int32_t sysv, sys1, sys2, sys3;
    const char* mac;
  };
  const Row rows[] = {{"6.12.3-amd64", 0x0693, 6, 12, 3, "6.12.3"},
                      {"10.3.9", 0x1039, 10, 3, 9, "10.3.9"},
                      {"5.4-rc1", 0x0540, 5, 4, 0, "5.4"},
                      {"6.1.0-18-amd64", 0x0610, 6, 1, 0, "6.1"}};
  for (const Row& r : rows) {
    env->release = r.release;
    EXPECT_EQ(gestalt(sel("sysv")), r.sysv) << r.release;
    EXPECT_EQ(gestalt(sel("sys1")), r.sys1) << r.release;
    EXPECT_EQ(gestalt(sel("sys2")), r.sys2) << r.release;
    EXPECT_EQ(gestalt(sel("sys3")), r.sys3) << r.release;
    EXPECT_EQ(gestaltExists(sel("sys3")), 1) << r.release;
    EXPECT_EQ(version("Mac"), r.mac) << r.release;
  }
  EXPECT_EQ(version("QT3"), "");
  EXPECT_EQ(version(""), "");
  // No kernel version: nothing answers, and "mac" counts from zero.
  env->release = "";
  EXPECT_EQ(gestaltExists(sel("sysv")), 0);
  EXPECT_EQ(version("mac"), "0.0");
}

TEST_F(SystemInfo, MemorySelectorsAndFigures) {
  // Byte counts saturate at the largest 32-bit figure; 'ramm' counts MiB. (The machine's own
  // figures, 'ramm' and tsMemoryInfo's free bytes are Environment.KernelMemoryAndAccount...'s.)
  env->figures = platform::MemoryFigures{uint64_t{16} << 30, uint64_t{9} << 30, uint64_t{2} << 30};
  EXPECT_EQ(gestalt(sel("ram ")), 0x7FFFFFFF);
  EXPECT_EQ(gestalt(sel("lram")), 0x7FFFFFFF);
  env->figures = platform::MemoryFigures{1000, 500, 24};
  EXPECT_EQ(gestalt(sel("ram ")), 1000);
  EXPECT_EQ(gestalt(sel("lram")), 1024);
  EXPECT_EQ(gestalt(sel("ramm")), 0);
  EXPECT_EQ(gestaltExists(sel("ramm")), 1);
  for (const char* unknown : {"os  ", "ram", "RAM ", "", "sysa"})
    EXPECT_EQ(gestalt(sel(unknown)) + gestaltExists(sel(unknown)), 0) << unknown;

  // tsMemoryInfo: full byte counts; the address-space limit caps the largest block.
  env->figures = platform::MemoryFigures{uint64_t{64} << 30, uint64_t{40} << 30, 0};
  EXPECT_EQ(memoryInfo("Max Block"), 42949672960.0);
  env->limit = uint64_t{3} << 30;
  EXPECT_EQ(memoryInfo("max block"), 3221225472.0);
  EXPECT_EQ(memoryInfo("maxblock"), 0.0);
  EXPECT_EQ(memoryInfo("ram "), 0.0);
  env->figures.reset();
  EXPECT_EQ(memoryInfo("ram"), 0.0);
  EXPECT_EQ(gestaltExists(sel("ram ")), 0);
  EXPECT_EQ(gestaltExists(sel("pgsz")), 1);
}

TEST_F(SystemInfo, NamesFromThePasswordEntryAndTheHost) {
  EXPECT_EQ(userName(), "");
  EXPECT_EQ(userShortName(), "");
  // The full name is the first field of the comment, else the account's name.
  for (auto [gecos, name] :
       {std::pair{"Ada Lovelace,Room 1,,", "Ada Lovelace"}, {",,,", "ada"}, {"", "ada"}}) {
    env->user = platform::UserRecord{"ada", gecos};
    EXPECT_EQ(userName(), name) << gecos;
  }
  EXPECT_EQ(computerName(), "box");
  env->pretty = "Studio Machine";
  EXPECT_EQ(computerName(), "Studio Machine");
}

// (No variable, LANG alone and LC_ALL over it are Environment.LanguageFollowsTheLocaleVariables.)
TEST_F(SystemInfo, LanguageFromTheFirstLocaleVariableSet) {
  env->vars["LANG"] = "de_DE.UTF-8";
  env->vars["LC_MESSAGES"] = "fr_CA.UTF-8";
  EXPECT_EQ(language(), 1);
  env->vars["LC_ALL"] = "";  // empty: not set
  EXPECT_EQ(language(), 1);
  env->vars["LC_ALL"] = "C.UTF-8";
  EXPECT_EQ(language(), 0);

  // Locale names are case-sensitive ("FR_fr").
  const std::pair<const char*, int32_t> rows[] = {
      {"nl_NL", 4},      {"nl_BE.UTF-8", 34}, {"zh_TW.UTF-8", 19}, {"zh_HK", 19},
      {"zh_CN.GB18030", 33}, {"sr_RS@latin", 42}, {"no_NO", 9}, {"nb_NO.UTF-8", 9},
      {"nn_NO.UTF-8", 151}, {"POSIX", 0}, {"tlh", 0}, {"FR_fr", 0}};
  for (auto [locale, code] : rows) EXPECT_EQ(languageOfLocale(locale), code) << locale;
}

}  // namespace
}  // namespace tessel::system
