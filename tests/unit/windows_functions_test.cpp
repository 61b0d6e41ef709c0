// The wait loop's rounds and tick deadlines (32-bit wraps included), on a scripted desktop:
// what the real desktop cannot be made to do on cue.
#include <gtest/gtest.h>

#include "tests/unit/desktop_fake.h"
#include "windows/wait_loop.h"
#include "windows/window_functions.h"

namespace tessel::windows {
namespace {

class WindowFunctions : public ::testing::Test {
 protected:
  void SetUp() override {
    auto& d = desktop();
    d.processes[100] = {"/opt/tessel/bin/tessel", "tessel"};
    d.processes[200] = {"/opt/x/bin/xterm", "xterm"};
    d.processes[300] = {"/opt/x/bin/xmessage", "xmessage"};
    d.processes[400] = {"/opt/x/bin/gone", "gone", false};  // a zombie
    d.processes[500] = {"", "daemon"};                      // windowless, exe unreadable
    d.addWindow(11, 200, "XTerm", "bash");
    d.addWindow(12, 0, "Remote", "elsewhere");
    d.addWindow(13, 300, "", "xmessage");
    d.addWindow(14, 200, "XTerm", "vim");
    d.addWindow(15, 400, "Gone", "gone");
  }
  testing::FakeDesktop& desktop() { return fixture_.desktop(); }
  testing::DesktopFixture fixture_;
};

// Owners a test desktop cannot produce on cue: a remote client, an ended process that left a
// window, one that ignores WM_DELETE_WINDOW, another user's.
TEST_F(WindowFunctions, RemoteEndedStubbornAndForeignOwners) {
  EXPECT_EQ(findWindow("", "Remote"), 0);
  EXPECT_EQ(findWindow("", "Gone"), 0);
  EXPECT_EQ(windowInfo(500, "title"), "daemon");  // windowless: the short name stands in
  desktop().windows[2].acceptsDelete = false;
  EXPECT_EQ(closeWindow(300), 1);
  EXPECT_EQ(desktop().terminated, (std::vector<int32_t>{300}));
  desktop().processes[500].sameUser = false;
  EXPECT_EQ(closeWindow(500), 0);
}

TEST(TickDeadline, IsTheSigned32BitProductDividedBySix) {
  const uint32_t now = 1'000'000'000u;
  EXPECT_EQ(tickDeadline(now, 0), now);
  EXPECT_EQ(tickDeadline(now, 1), now + 16666u);
  EXPECT_EQ(tickDeadline(now, 60), now + 1'000'000u);
  EXPECT_EQ(tickDeadline(now, 21474), now + 357'900'000u);
  EXPECT_EQ(tickDeadline(now, 21475), now - 357'911'216u);  // the product wrapped negative
  EXPECT_EQ(tickDeadline(now, 42949), now - 11'216u);        // 11 ms in the past
  EXPECT_EQ(tickDeadline(now, 42950), now + 5'450u);         // 5 ms ahead
  EXPECT_EQ(tickDeadline(now, -6), now - 100'000u);
  EXPECT_EQ(tickDeadline(0xFFFFFFF0u, 1), 16666u - 16u);    // the clock's low word wraps
  EXPECT_FALSE(deadlinePassed(now, now));
  EXPECT_TRUE(deadlinePassed(now + 1, now));
}

TEST_F(WindowFunctions, WaitsTestTheStateEachRoundAndTheDeadlineAfterIt) {
  auto& d = desktop();
  d.clock = 1'000'000'000u;  // far enough from 0 that a wrapped deadline lies behind it
  // Closed: the process ends in the third round.
  d.onRound = [](testing::FakeDesktop& f) {
    if (f.rounds == 3) f.processes[300].alive = false;
  };
  EXPECT_EQ(waitForWindow(300, "CLOSED", 0), 1);
  EXPECT_EQ(d.rounds, 3);
  EXPECT_EQ(waitForWindow(300, "closed", 0), 0);  // no longer exists at the start

  // A wrapped time-out ends at the first round, even though the state is reached.
  d.active = 11;
  for (int32_t ticks : {21475, 42949, 42950, 1}) {
    d.rounds = 0;
    EXPECT_EQ(waitForWindow(200, "active", ticks), 0) << ticks;
    EXPECT_EQ(d.rounds, 1) << ticks;
  }
  d.rounds = 0;
  EXPECT_EQ(waitForWindow(200, "anything", 21474), 1);
  EXPECT_EQ(d.rounds, 1);

  // 60 ticks are a second: six rounds of ten ticks.
  d.rounds = 0;
  EXPECT_EQ(waitForWindow(200, "inactive", 60), 0);
  EXPECT_EQ(d.rounds, 7);
  d.onRound = [](testing::FakeDesktop& f) {
    if (f.rounds == 2) f.active = 0;
  };
  d.rounds = 0;
  EXPECT_EQ(waitForWindow(200, "inactive", 60), 1);  // no active window leaves it inactive
  EXPECT_EQ(d.rounds, 2);
}

TEST_F(WindowFunctions, NextActiveWindowWaitsForAnotherProcess) {
  auto& d = desktop();
  d.active = 13;
  EXPECT_EQ(nextActiveWindow(0), 300);  // already frontmost: the first round answers
  EXPECT_EQ(d.rounds, 1);
  d.active = 0;
  d.rounds = 0;
  EXPECT_EQ(nextActiveWindow(30), 0);
  EXPECT_EQ(d.rounds, 4);
  d.onRound = [](testing::FakeDesktop& f) {
    if (f.rounds == 5) f.active = 14;
  };
  d.rounds = 0;
  EXPECT_EQ(nextActiveWindow(-1), 200);
  EXPECT_EQ(d.rounds, 5);
}

}  // namespace
}  // namespace tessel::windows
