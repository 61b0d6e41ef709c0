// The progress copies' arithmetic, window and handler, driven through the copy observer.
#include <gtest/gtest.h>

#include "fake_ui.h"
#include "files/progress_run.h"

namespace tessel {
namespace {

using files::ProgressRun;
using testing::FakeDialogSession;

TEST(ProgressRun, PercentOfTheWholeJobInTheWindow) {
  FakeDialogSession desktop;
  ProgressRun run("Copying", "Stop", files::kProgressCallLingo, 4 * 64512.0);
  EXPECT_TRUE(run.beginFile("a.bin", 2 * 64512));  // every file is announced, 0 included
  EXPECT_TRUE(run.block(64512));                     // 25
  EXPECT_TRUE(run.block(64512));                     // 50
  EXPECT_TRUE(run.beginFile("b.bin", 2 * 64512));  // 50 again, for the new name
  EXPECT_TRUE(run.block(64512));                     // 75
  EXPECT_TRUE(run.block(64512));                     // 100
  run.finish(true);
  // (What the handler hears is CopyEngine.ProgressHandlerHearsEveryFileAtItsStart's.)
  EXPECT_EQ(desktop.ui->progress.names, (std::vector<std::string>{"a.bin", "b.bin"}));
  EXPECT_EQ(desktop.ui->progress.percents, (std::vector<int32_t>{25, 50, 75, 100, 100}));
  EXPECT_FALSE(desktop.ui->progress.open);
  EXPECT_EQ(desktop.ui->pausedMs, 416);  // 25 ticks after a single file
  // (One bracket around the window is Dialogs.ProgressCopyWindowHandlerAndCancel's.)
}

TEST(ProgressRun, KilobytesTruncatedAndNeverBeyondTheTotal) {
  FakeDialogSession desktop;
  ProgressRun run("", "", files::kProgressCallLingo | files::kProgressKilobytes | 8, 150000);
  run.beginFile("f", 150000);
  run.block(999);     // 0 kB: not reported
  run.block(64512);   // 65511 → 65
  run.block(64512);   // 130023 → 130
  run.block(64512);   // more than the total: 150
  run.block(10);      // still 150: not reported
  using Call = std::pair<int32_t, std::string>;
  EXPECT_EQ(desktop.hooks.handlerCalls,
            (std::vector<Call>{{0, "f"}, {65, "f"}, {130, "f"}, {150, "f"}}));
  EXPECT_EQ(run.percent(), 100);
  // Flags 8: no window (and no bracket: CopyEngine.ProgressCopiesFollowTheirHandler).
  EXPECT_EQ(desktop.ui->progress.opened, 0);
  run.finish(true);
  EXPECT_EQ(desktop.ui->pausedMs, 0);
}

TEST(ProgressRun, ButtonOrHandlerCancels) {
  {
    FakeDialogSession desktop;
    desktop.ui->progress.cancelAtPoll = 3;  // the poll after the second block
    ProgressRun run("", "", 0, 1000000);
    EXPECT_TRUE(run.beginFile("f", 1000000));
    EXPECT_TRUE(run.block(64512));
    EXPECT_FALSE(run.block(64512));
    EXPECT_TRUE(run.cancelled());
    EXPECT_TRUE(desktop.hooks.handlerCalls.empty());  // no Flags 16, no handler
    run.finish(true);
    // A cancelled copy shows no full bar and does not wait.
    EXPECT_EQ(desktop.ui->progress.percents, (std::vector<int32_t>{6, 12}));
    EXPECT_EQ(desktop.ui->pausedMs, 0);
  }
  // (A handler's cancel is CopyEngine.ProgressCopiesFollowTheirHandler's.)
  {
    // No display: the copy runs without a window and still calls the handler.
    FakeDialogSession desktop;
    desktop.ui->display = false;
    ProgressRun run("", "", files::kProgressCallLingo, 0);
    run.openWindow();
    EXPECT_TRUE(run.beginFile("empty", 0));
    EXPECT_EQ(run.percent(), 0);
    EXPECT_TRUE(run.block(10));
    run.finish(true);
    EXPECT_EQ(desktop.hooks.begun, 0);
    EXPECT_EQ(desktop.ui->progress.opened, 0);
  }
}

TEST(ProgressRun, LongNamesAreShortenedAtCharacterBoundaries) {
  const std::string forty = "abcdefghijklmnopqrstuvwxyz0123456789.txt";
  EXPECT_EQ(files::shortProgressName(forty), "abcdefghijklmn....txt");
  EXPECT_EQ(files::shortProgressName(std::string(31, 'a')), std::string(31, 'a'));
  // "é" across byte 14 and "€" across the last four: whole characters only.
  const std::string accented =
      std::string(13, 'a') + "\xC3\xA9" + std::string(20, 'b') + "\xC3\xA9\xE2\x82\xAC";
  EXPECT_EQ(files::shortProgressName(accented), std::string(13, 'a') + "...\xE2\x82\xAC");
}

}  // namespace
}  // namespace tessel
