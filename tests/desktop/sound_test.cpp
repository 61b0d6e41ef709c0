// Sound volume through the host against the session's PulseAudio server (a null sink), checked
// with pactl. (Without a server, or with one that never answers: deadlines_test.)
#include <cctype>

#include "tests/boundary/boundary_support.h"
#include "tests/desktop/desktop_support.h"

namespace tessel::testing {
namespace {

using host::Value;

// The default sink's channel percentages as pactl shows them.
std::vector<int> pactlPercentages() {
  std::vector<int> out;
  std::string text = run("pactl get-sink-volume @DEFAULT_SINK@ 2>/dev/null").value_or("");
  for (size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
    size_t start = at;
    while (start > 0 && std::isdigit(static_cast<unsigned char>(text[start - 1]))) --start;
    if (start < at) out.push_back(std::stoi(text.substr(start, at - start)));
  }
  return out;
}

class Sound : public XtraTest {
 protected:
  void SetUp() override {
    if (!haveProgram("pactl") || !run("pactl info >/dev/null 2>&1"))
      GTEST_SKIP() << "no PulseAudio server in this session";
    XtraTest::SetUp();
    saved_ = run("pactl get-sink-volume @DEFAULT_SINK@ | grep -o '[0-9]*%' | head -1").value_or("");
  }
  void TearDown() override {
    run("pactl set-sink-mute @DEFAULT_SINK@ 0");
    if (!saved_.empty()) run("pactl set-sink-volume @DEFAULT_SINK@ " + saved_);
    XtraTest::TearDown();
  }
  std::string saved_;
};

TEST_F(Sound, LevelsOnEveryChannelAsPactlShowsThem) {
  EXPECT_EQ(integer("tsSetVolume", {Value("Master"), Value(50)}), 1);
  EXPECT_EQ(pactlPercentages(), (std::vector<int>{50, 50}));  // front-left and front-right

  // Channels at 30 % and 50 % read as their mean.
  ASSERT_TRUE(run("pactl set-sink-volume @DEFAULT_SINK@ 30% 50%"));
  EXPECT_EQ(integer("tsGetVolume", {Value("x")}), 40);

  // Above 100 amplifies; below 0 is silence.
  EXPECT_EQ(integer("tsSetVolume", {Value(""), Value(150)}), 1);
  EXPECT_EQ(pactlPercentages(), (std::vector<int>{150, 150}));
  EXPECT_EQ(integer("tsGetVolume", {Value("")}), 150);
  EXPECT_EQ(integer("tsSetVolume", {Value(""), Value(-5)}), 1);
  EXPECT_EQ(pactlPercentages().front(), 0);
  EXPECT_EQ(integer("tsGetVolume", {Value("")}), 0);
}

// (Mute set and read back through the module is tsSetVolume's example.)
TEST_F(Sound, MuteInAnyCase) {
  EXPECT_EQ(integer("tsSetVolume", {Value(""), Value(40)}), 1);
  EXPECT_EQ(integer("tsSetVolume", {Value("MUTE"), Value(1)}), 1);
  EXPECT_EQ(run("pactl get-sink-mute @DEFAULT_SINK@").value_or(""), "Mute: yes\n");
  EXPECT_EQ(integer("tsGetVolume", {Value("")}), 40);  // the level stays
  EXPECT_EQ(integer("tsSetVolume", {Value("mute"), Value(0)}), 1);
  EXPECT_EQ(run("pactl get-sink-mute @DEFAULT_SINK@").value_or(""), "Mute: no\n");
}

TEST_F(Sound, MonoOutputCountsItsChannelTwice) {
  std::optional<std::string> module =
      run("pactl load-module module-null-sink sink_name=tessel_mono channels=1");
  ASSERT_TRUE(module);
  std::string previous = run("pactl get-default-sink").value_or("tessel_null\n");
  previous.pop_back();
  ASSERT_TRUE(run("pactl set-default-sink tessel_mono"));
  EXPECT_EQ(integer("tsSetVolume", {Value(""), Value(30)}), 1);
  EXPECT_EQ(pactlPercentages().front(), 30);
  EXPECT_EQ(integer("tsGetVolume", {Value("")}), 30);
  run("pactl set-default-sink " + previous);
  run("pactl unload-module " + *module);
}

}  // namespace
}  // namespace tessel::testing
