// Display mode choice and volume scaling: the logic the real desktop tests cannot reach.
#include <gtest/gtest.h>

#include <map>

#include "platform/displays.h"
#include "platform/sound.h"
#include "system/display_modes.h"
#include "system/displays.h"
#include "system/sound.h"

namespace tessel::system {
namespace {

using platform::DisplayMode;
using platform::Monitor;

DisplayMode mode(uint64_t id, int32_t w, int32_t h, int32_t refresh = 60, int32_t bits = 32) {
  return DisplayMode{id, w, h, bits, refresh};
}

class FakeDisplays : public platform::DisplayService {
 public:
  std::vector<Monitor> list;
  std::vector<std::pair<uint32_t, uint64_t>> switches;  // (display, mode) in call order
  std::map<uint64_t, bool> refused;                       // modes the server refuses
  std::vector<Monitor> monitors() override { return list; }
  bool switchMode(uint32_t id, const DisplayMode& m) override {
    switches.emplace_back(id, m.id);
    if (refused[m.id]) return false;
    for (Monitor& mon : list)
      if (mon.id == id) {
        mon.current = m;
        mon.width = m.width;
        mon.height = m.height;
      }
    return true;
  }
  platform::WallpaperResult setWallpaper(const std::string&) override {
    return platform::WallpaperResult::Done;
  }
  bool warpPointer(int32_t, int32_t) override { return true; }
};

class DisplaysTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto owned = std::make_unique<FakeDisplays>();
    fake = owned.get();
    previous = platform::setDisplayService(std::move(owned));
  }
  void TearDown() override { platform::setDisplayService(std::move(previous)); }

  Monitor& add(uint32_t id, bool primary, std::vector<DisplayMode> modes, int32_t x = 0) {
    Monitor m;
    m.id = id;
    m.primary = primary;
    m.x = x;
    m.modes = std::move(modes);
    m.current = m.modes.front();
    m.width = m.current.width;
    m.height = m.current.height;
    fake->list.push_back(m);
    return fake->list.back();
  }
  std::string info(std::string_view display, std::string_view what) {
    auto answer = multiDisplayInfo(display, what);
    return std::holds_alternative<std::string>(answer) ? std::get<std::string>(answer) : "<list>";
  }

  FakeDisplays* fake = nullptr;
  std::unique_ptr<platform::DisplayService> previous;
};

TEST_F(DisplaysTest, SelectorsPrimarySecondAndNumbers) {
  add(70, false, {mode(1, 1024, 768)});
  add(81, true, {mode(2, 1920, 1080)}, 1024);
  const auto& list = fake->list;
  // ("primary", "second", "Second screen" and numbers on two real outputs are
  // Displays.TwoOutputsOnXorgDummy's.)
  EXPECT_EQ(selectDisplay("PRIMARY", list), 81u);
  EXPECT_EQ(selectDisplay("primary display", list), 0u);  // "primary" is a whole word
  EXPECT_EQ(selectDisplay("second", list), 81u);           // the second in list order
  EXPECT_EQ(selectDisplay("secon", list), 0u);             // six letters are needed
  EXPECT_EQ(selectDisplay("70abc", list), 70u);
  EXPECT_EQ(selectDisplay("abc", list), 0u);
  EXPECT_EQ(selectDisplay("99999999999", list), 0xFFFFFFFFu);

  // One display: "second" reads its own number (none), "primary" without displays too.
  std::vector<Monitor> one(list.begin(), list.begin() + 1);
  EXPECT_EQ(selectDisplay("second", one), 0u);
  EXPECT_EQ(selectDisplay("primary", {}), 0u);
  // Without a primary flag the first display is the main one.
  EXPECT_EQ(selectDisplay("primary", one), 70u);
}

// (The info words on real servers, one output and two, are the desktop tests'; "second" on one
// display reading as zeros is tsMultiDisplayInfo's example.)
TEST_F(DisplaysTest, InfoWordsOnlyAFakeCanShow) {
  add(70, true, {mode(1, 1024, 768, 75), mode(3, 800, 600, 0)});
  EXPECT_EQ(info("70", "colour"), "");
  auto modes = std::get<std::vector<std::string>>(multiDisplayInfo("primary", "Modes"));
  EXPECT_EQ(modes, (std::vector<std::string>{"1024", "768", "32", "75", "800", "600", "32", "0"}));
  // "modes" is a list even for a display that does not exist.
  EXPECT_TRUE(std::get<std::vector<std::string>>(multiDisplayInfo("5", "modes")).empty());
}

TEST_F(DisplaysTest, ModeSearchExactFallbackAndCandidates) {
  std::vector<DisplayMode> modes = {mode(1, 1920, 1080), mode(2, 1280, 1024, 75),
                                    mode(3, 1280, 1024, 60), mode(4, 1024, 768),
                                    mode(5, 1280, 800),      mode(6, 800, 600, 60, 16)};
  ModeSearch exact = searchModes(modes, 1280, 1024, 24);
  ASSERT_TRUE(exact.exact);
  EXPECT_EQ(exact.exact->id, 2u);  // the first of that size in the server's order

  // 1100x700 is not offered: the fallback is replaced only by a mode smaller in both sides, so
  // 1280x800 (as wide as 1280x1024) does not displace 1280x1024; 1024x768 is too narrow.
  ModeSearch fallback = searchModes(modes, 1100, 700, 32);
  EXPECT_FALSE(fallback.exact);
  ASSERT_TRUE(fallback.fallback);
  EXPECT_EQ(fallback.fallback->id, 2u);
  EXPECT_EQ(fallback.candidates.size(), 4u);

  // A depth no mode has: no fallback, but the modes holding the size are candidates.
  ModeSearch depth = searchModes(modes, 800, 600, 8);
  EXPECT_FALSE(depth.exact);
  EXPECT_FALSE(depth.fallback);
  EXPECT_EQ(depth.candidates.size(), 6u);
  EXPECT_TRUE(searchModes(modes, 4000, 3000, 32).candidates.empty());
  EXPECT_TRUE(searchModes(modes, 0, 0, 0).candidates.empty());  // never "any mode"
  EXPECT_TRUE(searchModes(modes, -800, 600, 32).candidates.empty());

  // At most 48 candidates are kept.
  std::vector<DisplayMode> many;
  for (int i = 0; i < 60; ++i) many.push_back(mode(static_cast<uint64_t>(i + 1), 2000 + i, 2000));
  EXPECT_EQ(searchModes(many, 100, 100, 16).candidates.size(), kMaxCandidates);
  // (24 bits match a mode of 32 on Xvfb, 16 do not in SetMultiDisplayRefreshRates.)
  EXPECT_TRUE(depthMatches(16, 16));
}

// (Exact switches, the smallest mode holding the size and "test" on Xvfb's modes are
// Displays.XvfbModesListSwitchAndTest's.)
TEST_F(DisplaysTest, SetDisplayTriesTheCandidatesInOrder) {
  add(7, true, {mode(1, 1920, 1080), mode(2, 1280, 1024), mode(3, 1024, 768)});
  EXPECT_EQ(setDisplay(640, 480, 8, "test", 0), 0);  // candidates of another depth
  EXPECT_TRUE(fake->switches.empty());
  // No mode of that depth: the candidates are tried in order until one is accepted.
  fake->refused[1] = true;
  EXPECT_EQ(setDisplay(1200, 1000, 8, "", 0), 0);
  EXPECT_EQ(fake->switches, (std::vector<std::pair<uint32_t, uint64_t>>{{7, 1}, {7, 2}}));
  fake->refused[2] = true;
  EXPECT_EQ(setDisplay(1200, 1000, 8, "", 0), -1);
  // A refused exact switch is a failure.
  EXPECT_EQ(setDisplay(1280, 1024, 32, "", 0), -1);
}

// (No inexact switch, exact switches of either output and the data read again after them are
// Displays.TwoOutputsOnXorgDummy's.)
TEST_F(DisplaysTest, SetMultiDisplayRefreshRates) {
  add(7, true, {mode(1, 1280, 1024, 75), mode(2, 1280, 1024, 60), mode(3, 1024, 768, 60)});
  add(9, false, {mode(4, 800, 600, 60), mode(5, 640, 480, 60)}, 1280);
  EXPECT_EQ(setMultiDisplay("42", 800, 600, 32, 0, "", 0), -1);  // no such display

  EXPECT_EQ(setMultiDisplay("primary", 1280, 1024, 32, 60, "", 0), 0);
  EXPECT_EQ(fake->switches.back().second, 2u);
  // A refresh rate that is not offered falls back to the size and depth alone.
  EXPECT_EQ(setMultiDisplay("7", 1024, 768, 32, 85, "", 0), 0);
  EXPECT_EQ(fake->switches.back().second, 3u);
  EXPECT_EQ(setMultiDisplay("second", 640, 480, 16, 0, "", 0), -1);
}

// (50, 150, below 0, two channels' mean and a mono sink are the Sound tests', against pactl.)
TEST(SoundScaling, LevelsAndPercentages) {
  using platform::kNormalVolume;
  EXPECT_EQ(levelForVolume(30), 19661u);  // 0.30 of the normal level, rounded
  EXPECT_EQ(levelForVolume(0x7fffffff), platform::kMaxVolume);
  EXPECT_EQ(volumeFromLevels({levelForVolume(30), levelForVolume(51)}), 40);  // truncated
  EXPECT_EQ(volumeFromLevels({}), 0);
  // Every Lingo volume reads back as itself (a per-channel rounding, as the server's tools show).
  for (int32_t v = 0; v <= 150; ++v) EXPECT_EQ(volumeFromLevels({levelForVolume(v), levelForVolume(v)}), v);
  // Channels beyond the first two do not count.
  EXPECT_EQ(volumeFromLevels({kNormalVolume, 0, kNormalVolume, kNormalVolume}), 50);
}

}  // namespace
}  // namespace tessel::system
