// The progress window on a real display: shown while a copy runs, cancelled by Escape, gone
// when the copy ends. Screenshots of its layouts are kept as test artefacts.
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include "fake_ui.h"
#include "files/progress_run.h"

namespace tessel {
namespace {

std::string shell(const std::string& command) {
  std::string out;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[256];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
  }
  return out;
}

std::string visibleWindowOfThisProcess() {
  std::string found =
      shell("xdotool search --onlyvisible --pid " + std::to_string(getpid()) + " 2>/dev/null");
  return found.substr(0, found.find('\n'));
}

void screenshot(const std::string& name) {
  const std::filesystem::path folder = TESSEL_ARTIFACTS_DIR;
  std::filesystem::create_directories(folder);
  const std::string path = (folder / (name + ".png")).string();
  GdkWindow* root = gdk_get_default_root_window();
  if (GdkPixbuf* shot = gdk_pixbuf_get_from_window(root, 0, 0, gdk_window_get_width(root),
                                                   gdk_window_get_height(root))) {
    gdk_pixbuf_save(shot, path.c_str(), "png", nullptr, nullptr);
    g_object_unref(shot);
  }
  std::cout << "screenshot: " << path << std::endl;
}

class ProgressWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* display = std::getenv("DISPLAY");
    if (display == nullptr || *display == '\0' || !platform::uiService().available())
      GTEST_SKIP() << "no X display";
    platform::setHostHooks(&hooks_);
  }
  void TearDown() override { platform::setHostHooks(nullptr); }

  // Runs the copy's event polling until the window is up.
  std::string waitShown(files::ProgressRun& run) {
    for (int i = 0; i < 400; ++i) {
      run.block(0);
      std::string window = visibleWindowOfThisProcess();
      if (!window.empty()) return window;
      g_usleep(10000);
    }
    return "";
  }

  testing::FakeHooks hooks_;
};

TEST_F(ProgressWindowTest, EscapeCancelsAndTheWindowGoesWithTheCopy) {
  files::ProgressRun run("Copying", "Stop", files::kProgressCallLingo, 1000.0 * 64512);
  ASSERT_TRUE(run.beginFile("a file with a rather long name.bin", 1000ull * 64512));
  const std::string window = waitShown(run);
  ASSERT_FALSE(window.empty());
  EXPECT_EQ(shell("xdotool getwindowname " + window), "Copying\n");
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(run.block(64512));
  g_usleep(100000);
  run.block(0);
  screenshot("progress-layout-0");

  shell("xdotool windowactivate " + window + " 2>/dev/null; xdotool key Escape");
  bool stopped = false;
  for (int i = 0; i < 500 && !stopped; ++i) {
    stopped = !run.block(64512);
    g_usleep(10000);
  }
  EXPECT_TRUE(stopped);
  EXPECT_TRUE(run.cancelled());
  run.finish(true);
  EXPECT_EQ(visibleWindowOfThisProcess(), "");
  EXPECT_EQ(hooks_.begun, 1);
  EXPECT_EQ(hooks_.ended, 1);
  // The handler heard the file's start, then the whole job's percentages, each once, with the
  // file's full name.
  ASSERT_FALSE(hooks_.handlerCalls.empty());
  EXPECT_EQ(hooks_.handlerCalls.front(), std::make_pair(0, std::string("a file with a rather long name.bin")));
  for (size_t i = 1; i < hooks_.handlerCalls.size(); ++i)
    EXPECT_GT(hooks_.handlerCalls[i].first, hooks_.handlerCalls[i - 1].first);
}

TEST_F(ProgressWindowTest, LayoutsAndNoWindowWithFlags8) {
  for (int32_t layout = 1; layout <= 3; ++layout) {
    files::ProgressRun run("Layout " + std::to_string(layout), "Cancel", layout, 100);
    run.beginFile("short.txt", 100);
    ASSERT_FALSE(waitShown(run).empty());
    run.block(40);
    g_usleep(100000);
    run.block(0);
    screenshot("progress-layout-" + std::to_string(layout));
    run.finish(false);
    EXPECT_EQ(visibleWindowOfThisProcess(), "");
  }
  files::ProgressRun hidden("Hidden", "Stop", files::kProgressNoWindow, 100);
  hidden.beginFile("x", 100);
  hidden.block(100);
  g_usleep(100000);
  EXPECT_EQ(visibleWindowOfThisProcess(), "");
  hidden.finish(true);
  EXPECT_EQ(hooks_.begun, 3);
  EXPECT_EQ(hooks_.ended, 3);
}

}  // namespace
}  // namespace tessel
