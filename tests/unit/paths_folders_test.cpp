// Folder keywords, domain prefixes and the Linux folders they find (fake user folders in a scratch
// folder; machine folders such as /etc and /usr are the real ones).
#include <gtest/gtest.h>

#include <tuple>

#include "paths/special_folders.h"
#include "support/four_char_code.h"
#include "paths/volume_model.h"
#include "paths_test_support.h"

namespace tessel::paths {
namespace {

using support::fourCharCode;

using testing::PathsTest;
using testing::replaceSlashes;

struct Parsed {
  uint32_t type;
  std::optional<int32_t> domain;
  bool boot;
};

std::optional<Parsed> parse(std::string_view keyword) {
  auto k = parseFolderKeyword(keyword);
  if (!k) return std::nullopt;
  return Parsed{k->type, k->domain, k->boot};
}

void expectParse(std::string_view keyword, uint32_t type, std::optional<int32_t> domain) {
  auto k = parse(keyword);
  ASSERT_TRUE(k.has_value()) << keyword;
  EXPECT_EQ(k->type, type) << keyword;
  EXPECT_EQ(k->domain, domain) << keyword;
}

TEST(FolderKeywords, WordsPrefixesAndRawTypes) {
  // Prefixes count only when the whole keyword is long enough; four characters are a raw type.
  const std::tuple<std::string, uint32_t, std::optional<int32_t>> rows[] = {
      {"PREFS", fourCharCode("pref"), std::nullopt},
      {"control panels", fourCharCode("ctrl"), std::nullopt},
      {"user fonts", fourCharCode("font"), kUserDomain},
      {"user apps", fourCharCode("apps"), kUserDomain},
      {"user", fourCharCode("user"), std::nullopt},
      {"system", fourCharCode("macs"), std::nullopt},
      {"System Fonts", fourCharCode("font"), kSystemDomain},
      {"system ctrl", fourCharCode("ctrl"), kSystemDomain},
      {"local temp", fourCharCode("temp"), kLocalDomain},
      {"common prefs", fourCharCode("pref"), kLocalDomain},
      {"ctrl", fourCharCode("ctrl"), std::nullopt},
  };
  for (const auto& [keyword, type, domain] : rows) expectParse(keyword, type, domain);
  expectParse("music", kMusicFolderType, std::nullopt);
  for (const char* none : {"user app", "local foo", "common foo", "userfonts"})
    EXPECT_FALSE(parse(none)) << none;  // too short for the prefix, or no blank after it
  // Favourites in any spelling.
  for (std::string_view word : {"favourites", "Favorites", "favoUR", "favou", "user favorites"})
    EXPECT_EQ(parse(word)->type, fourCharCode("favs")) << word;
  EXPECT_EQ(parse("favo")->type, fourCharCode("favo"));  // too short: a raw type
  // (Raw types are read as four-character codes: FourCharCode's rows.)
  EXPECT_FALSE(parse(""));
  EXPECT_FALSE(parse("no such folder"));
  EXPECT_FALSE(parse(std::string(200, 'x')));
  // "boot" is the system folder, cut down to its volume later.
  EXPECT_TRUE(parse("boot")->boot);
  EXPECT_TRUE(parse("user boot")->boot);
  EXPECT_FALSE(parse("system")->boot);
}

class FoldersTest : public PathsTest {
 protected:
  // The HFS form of a scratch folder on the start-up volume.
  std::string hfs(const std::string& relative) {
    return "Startup" + replaceSlashes(scratch.path() + "/" + relative) + ":";
  }
};

// ("prefs" and "system prefs" in HFS style, "boot" in both styles, a user folder configured but
// not yet made, "system" and an unknown keyword are tsSysFolder's examples.)
TEST_F(FoldersTest, UserFoldersInBothStyles) {
  EXPECT_EQ(sysFolder("personal"), "");  // not created yet: not found in any domain
  scratch.folder("home/Documents");
  EXPECT_EQ(sysFolder("personal"), hfs("home/Documents"));
  scratch.folder("home/.config");
  EXPECT_EQ(sysFolder("user prefs"), hfs("home/.config"));
  setReturnUnixNames(true);
  EXPECT_EQ(sysFolder("system temp"), "/tmp/");
  scratch.folder("home/Music");
  EXPECT_EQ(sysFolder("music"), scratch.path() + "/home/Music/");
  EXPECT_EQ(sysFolder("pictures"), "");  // no pictures folder configured
  scratch.folder("tmp");
  EXPECT_EQ(sysFolder("temp"), scratch.path() + "/tmp/");
  EXPECT_EQ(sysFolder("extensions"), "");  // no modules for the fake kernel
}

TEST_F(FoldersTest, CandidatesAndSearchOrder) {
  setReturnUnixNames(true);
  // The first existing candidate of a domain wins.
  scratch.folder("home/.fonts");
  EXPECT_EQ(sysFolder("user fonts"), scratch.path() + "/home/.fonts/");
  scratch.folder("home/.local/share/fonts");
  EXPECT_EQ(sysFolder("user fonts"), scratch.path() + "/home/.local/share/fonts/");
  // Startup items: none of the user's, so the search goes on to the system's XDG folders.
  EXPECT_EQ(sysFolder("startup"), "");
  scratch.folder("etc/xdg/autostart");
  EXPECT_EQ(sysFolder("startup"), scratch.path() + "/etc/xdg/autostart/");
  scratch.folder("home/.config/autostart");
  EXPECT_EQ(sysFolder("startup"), scratch.path() + "/home/.config/autostart/");
  EXPECT_EQ(sysFolder("system startup"), scratch.path() + "/etc/xdg/autostart/");
  // A prefix whose domain lacks the folder falls back to the plain search.
  EXPECT_EQ(sysFolder("user system"), "/usr/");
  // The help tool's documentation folder.
  scratch.folder("home/.local/share/doc");
  EXPECT_EQ(sysFolder("user info"), scratch.path() + "/home/.local/share/doc/");
  // Network and classic domains have no Linux folders.
  for (uint32_t type : {fourCharCode("pref"), fourCharCode("font"), fourCharCode("usrs")}) {
    EXPECT_EQ(findFolderIn(type, kNetworkDomain), "");
    EXPECT_EQ(findFolderIn(type, kClassicDomain), "");
  }
  EXPECT_EQ(findFolder(fourCharCode("usrs")), findFolderIn(fourCharCode("usrs"), kLocalDomain));
}

}  // namespace
}  // namespace tessel::paths

namespace tessel::paths {
namespace {

using support::fourCharCode;

// A fresh account has no ~/.config yet; its XDG base folders are still the user's, so a bare INI
// name never falls through to a machine folder such as /etc.
TEST_F(FoldersTest, UserBaseFoldersAreAnsweredBeforeTheyExist) {
  // (The preferences folder of a fresh account is Formats.BareIniNameOnAFreshAccount...'s.)
  const std::string home = scratch.path() + "/home";
  EXPECT_EQ(findFolder(fourCharCode("asup")), home + "/.local/share");
  EXPECT_EQ(findFolder(fourCharCode("cach")), home + "/.cache");
  EXPECT_EQ(findFolder(fourCharCode("logs")), home + "/.local/state");
  // A domain prefix still chooses the machine's folder.
  EXPECT_EQ(findFolder(fourCharCode("pref"), kSystemDomain), "/etc");
  // Folders inside them are found only when they exist.
  EXPECT_EQ(findFolderIn(fourCharCode("trsh"), kUserDomain), "");
  EXPECT_EQ(findFolderIn(fourCharCode("strt"), kUserDomain), "");
  EXPECT_EQ(findFolderIn(fourCharCode("font"), kUserDomain), "");
}

}  // namespace
}  // namespace tessel::paths
