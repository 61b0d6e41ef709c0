// Applications, matching, handles and the wait loop, on a scripted desktop.
#include <gtest/gtest.h>

#include "support/four_char_code.h"
#include "tests/unit/desktop_fake.h"
#include "windows/applications.h"
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

TEST_F(WindowFunctions, EnumerationListsTheHostThenEachWindowOwnerOnce) {
  EXPECT_EQ(windowList("", "", 0), (std::vector<int32_t>{100, 200, 300}));
  auto apps = applications();
  ASSERT_EQ(apps.size(), 3u);
  EXPECT_EQ(apps[0].name, "tessel");    // no window: the executable's name
  EXPECT_EQ(apps[1].name, "XTerm");     // the class of the first window
  EXPECT_EQ(apps[1].windows.size(), 2u);
  EXPECT_EQ(apps[2].name, "xmessage");  // no class: the first window's title
  // Caption matching: a substring ignoring case, or the whole name.
  EXPECT_EQ(windowList("", "ERM", 0), (std::vector<int32_t>{200}));
  EXPECT_EQ(windowList("", "xterm", 1), (std::vector<int32_t>{200}));
  EXPECT_EQ(windowList("", "XTer", 1), (std::vector<int32_t>{}));
  EXPECT_EQ(windowList("", "", 1), (std::vector<int32_t>{}));  // no process has an empty name
  EXPECT_EQ(windowList("XTer", "", 0), (std::vector<int32_t>{200}));
  EXPECT_EQ(windowList("XTer", "mess", 0), (std::vector<int32_t>{}));
}

TEST_F(WindowFunctions, FindWindowMatchesNameAndSignature) {
  EXPECT_EQ(findWindow("", ""), 0);
  EXPECT_EQ(findWindow("", "xTERM"), 200);
  EXPECT_EQ(findWindow("", "XTer"), 0);
  EXPECT_EQ(findWindow("XTer", ""), 200);
  EXPECT_EQ(findWindow("XTer", "xterm"), 200);
  EXPECT_EQ(findWindow("XTer", "xmessage"), 0);
  EXPECT_EQ(findWindow("", "Remote"), 0);  // remote clients are not processes of this machine
  EXPECT_EQ(findWindow("", "Gone"), 0);    // nor are ended ones
  // Short names are padded with spaces; the class answer finds its process again.
  EXPECT_EQ(nameSignature("ab"), support::readFourCharCode("ab  "));
  for (int32_t h : {100, 200, 300}) EXPECT_EQ(findWindow(windowInfo(h, "class"), ""), h) << h;
  EXPECT_EQ(windowInfo(100, "creator"), "tess");
}

TEST_F(WindowFunctions, PerHandleMethodsAcceptAnyLiveProcess) {
  EXPECT_EQ(windowInfo(200, "TITLE"), "XTerm");
  EXPECT_EQ(windowInfo(200, "caption"), "XTerm");
  EXPECT_EQ(windowInfo(200, "filename"), "xterm");
  EXPECT_EQ(windowInfo(200, "size"), "Invalid");
  EXPECT_EQ(windowInfo(500, "title"), "daemon");  // windowless; the short name stands in
  EXPECT_EQ(windowInfo(500, "filename"), "");
  EXPECT_EQ(windowExists(500), 1);
  for (int32_t bad : {0, -1, 400, 999, INT32_MIN}) {
    EXPECT_EQ(windowInfo(bad, "title"), "Invalid") << bad;
    EXPECT_EQ(windowExists(bad), 0) << bad;
    EXPECT_EQ(closeWindow(bad), 0) << bad;
    EXPECT_EQ(activateWindow(bad), 0) << bad;
    EXPECT_EQ(waitForWindow(bad, "closed", 0), 0) << bad;
  }
  EXPECT_TRUE(desktop().terminated.empty());
  EXPECT_EQ(winHandle(), 100);
}

TEST_F(WindowFunctions, FrontmostOnlyWhileTheActiveWindowIsManaged) {
  EXPECT_EQ(activeWindow(), 0);
  desktop().active = 14;
  EXPECT_EQ(activeWindow(), 200);
  desktop().active = 12;  // a remote client's
  EXPECT_EQ(activeWindow(), 0);
  desktop().active = 99;  // left behind by the manager
  EXPECT_EQ(activeWindow(), 0);
}

TEST_F(WindowFunctions, ActivateTakesTheTopmostWindowAndCloseAsksEveryWindow) {
  desktop().stacking = {14, 13, 11, 12};
  EXPECT_EQ(activateWindow(200), 1);
  EXPECT_EQ(desktop().activations, (std::vector<platform::WindowId>{11}));
  EXPECT_EQ(activateWindow(500), 0);  // no managed window
  EXPECT_EQ(activateWindow(100), 0);

  EXPECT_EQ(closeWindow(200), 1);
  EXPECT_EQ(desktop().closeRequests, (std::vector<platform::WindowId>{11, 14}));
  EXPECT_TRUE(desktop().terminated.empty());
  EXPECT_EQ(closeWindow(100), 0);  // never the host
  // Windows that do not accept WM_DELETE_WINDOW are not asked; the process is terminated.
  desktop().windows[2].acceptsDelete = false;
  EXPECT_EQ(closeWindow(300), 1);
  EXPECT_EQ(desktop().terminated, (std::vector<int32_t>{300}));
  EXPECT_EQ(closeWindow(500), 1);
  desktop().processes[500].sameUser = false;
  EXPECT_EQ(closeWindow(500), 0);
}

TEST_F(WindowFunctions, WithoutADisplayOnlyTheHostsHandleAnswers) {
  desktop().display = false;
  desktop().active = 11;
  EXPECT_EQ(findWindow("", "XTerm"), 0);
  EXPECT_EQ(windowList("", "", 0), (std::vector<int32_t>{}));
  EXPECT_EQ(windowInfo(200, "title"), "Invalid");
  EXPECT_EQ(windowExists(200), 0);
  EXPECT_EQ(activeWindow(), 0);
  EXPECT_EQ(closeWindow(200), 0);
  EXPECT_EQ(activateWindow(200), 0);
  EXPECT_EQ(waitForWindow(200, "closed", 1), 0);
  EXPECT_EQ(nextActiveWindow(1), 0);
  EXPECT_EQ(desktop().rounds, 0);
  EXPECT_EQ(winHandle(), 100);
  // tsRunProgram's wait for a program to end needs no display.
  desktop().onRound = [](testing::FakeDesktop& d) { d.processes[200].alive = false; };
  EXPECT_EQ(waitForProcess(200, WaitState::Closed, 0), 1);
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
