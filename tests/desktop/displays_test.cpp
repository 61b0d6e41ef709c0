// Displays, the desktop picture and the pointer through the host: on the session's Xvfb (with
// modes added through xrandr) and on an Xorg server with the dummy driver and two outputs.
#include "tests/boundary/boundary_support.h"
#include "tests/desktop/desktop_support.h"

#include <gio/gio.h>

// After gtest: Xlib defines None as a macro.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <cstring>
#include <sstream>

namespace tessel::testing {
namespace {

using host::Value;

std::vector<std::string> strings(const Value& list) {
  std::vector<std::string> out;
  if (list.isList())
    for (const Value& v : list.listPtr()->items) out.push_back(v.isString() ? v.string() : "?");
  return out;
}

// The screen size as xrandr reports it ("current W x H").
std::string screenSize() {
  std::string text = run("xrandr 2>/dev/null").value_or("");
  size_t at = text.find("current ");
  if (at == std::string::npos) return "";
  std::istringstream in(text.substr(at + 8));
  std::string width, x, height;
  in >> width >> x >> height;
  return width + "x" + height.substr(0, height.find(','));
}

class Displays : public XtraTest {
 protected:
  void SetUp() override {
    if (!haveDisplay()) GTEST_SKIP() << "no X display";
    if (!haveProgram("xrandr")) GTEST_SKIP() << "xrandr is not installed";
    XtraTest::SetUp();
    // The module's X error handlers are installed by its first connection, before the test's.
    text("tsMultiDisplayInfo", {Value("primary"), Value("number")});
  }
  std::string info(const std::string& display, const std::string& what) {
    return text("tsMultiDisplayInfo", {Value(display), Value(what)});
  }
  int32_t setMulti(const std::string& monitor, int w, int h, int depth, int refresh) {
    return integer("tsSetMultiDisplay", {Value(monitor), Value(w), Value(h), Value(depth),
                                         Value(refresh), Value(""), Value(0)});
  }
};

TEST_F(Displays, XvfbModesListSwitchAndTest) {
  std::string output = run("xrandr | awk '/ connected/ {print $1; exit}'").value_or("");
  ASSERT_FALSE(output.empty());
  output.pop_back();
  std::string original = screenSize();
  // Modes of their own, with timings (so they have a refresh rate); kept by the -noreset server.
  run("xrandr --newmode tessel_800x600 40.00 800 840 968 1056 600 601 605 628 +hsync +vsync");
  run("xrandr --newmode tessel_1024x768 65.00 1024 1048 1184 1344 768 771 777 806 -hsync -vsync");
  run("xrandr --addmode " + output + " tessel_800x600");
  run("xrandr --addmode " + output + " tessel_1024x768");

  std::vector<std::string> list = strings(call("tsMultiDisplayList"));
  ASSERT_EQ(list.size(), 2u);
  std::string id = list[0];
  EXPECT_GE(std::stoi(list[1]), 3);
  EXPECT_EQ(info("primary", "primary"), id);
  EXPECT_EQ(info(id, "width") + "x" + info(id, "height"), original);
  EXPECT_EQ(info("primary", "depth"), "32");
  std::vector<std::string> modes = strings(call("tsMultiDisplayInfo", {Value(id), Value("MODES")}));
  bool found = false;
  for (size_t i = 0; i < modes.size(); i += 4)
    found = found || (modes[i] == "800" && modes[i + 1] == "600" && modes[i + 2] == "32" &&
                      modes[i + 3] == "60");  // 40 MHz / (1056 x 628) = 60.3 Hz
  EXPECT_TRUE(found);

  // "test" never switches. (The number of displays, no second one, and "test" of a size no mode
  // holds are the examples of tsMultiDisplayInfo and tsSetDisplay.)
  EXPECT_EQ(integer("tsSetDisplay", {Value(800), Value(600), Value(32), Value("Test"), Value(0)}), 0);
  EXPECT_EQ(screenSize(), original);
  // No inexact switch for tsSetMultiDisplay.
  EXPECT_EQ(setMulti("primary", 900, 700, 32, 0), -1);
  EXPECT_EQ(screenSize(), original);

  EXPECT_EQ(setMulti("primary", 800, 600, 24, 60), 0);
  EXPECT_EQ(screenSize(), "800x600");
  EXPECT_EQ(info("primary", "width"), "800");  // read again after the switch
  EXPECT_EQ(info("primary", "refresh"), "60");
  // tsSetDisplay's fallback: the smallest mode holding 900x700.
  EXPECT_EQ(integer("tsSetDisplay", {Value(900), Value(700), Value(32), Value(""), Value(0)}), 0);
  EXPECT_EQ(screenSize(), "1024x768");

  auto sep = original.find('x');
  EXPECT_EQ(integer("tsSetDisplay", {Value(std::stoi(original.substr(0, sep))),
                                     Value(std::stoi(original.substr(sep + 1))), Value(32),
                                     Value(""), Value(0)}),
            0);
  EXPECT_EQ(screenSize(), original);
}

// An Xorg server with the dummy driver, started by the test on a display of its own.
class DummyXorg {
 public:
  DummyXorg() {
    if (!haveProgram("Xorg") || !std::ifstream("/usr/lib/xorg/modules/drivers/dummy_drv.so"))
      return;
    std::ofstream(dir_.str() + "/xorg.conf") << R"(Section "Device"
  Identifier "dummy"
  Driver "dummy"
  VideoRam 65536
EndSection
Section "Monitor"
  Identifier "monitor"
  HorizSync 5.0-1000.0
  VertRefresh 5.0-200.0
EndSection
Section "Screen"
  Identifier "screen"
  Device "dummy"
  Monitor "monitor"
  DefaultDepth 24
  SubSection "Display"
    Depth 24
    Virtual 4096 2048
  EndSubSection
EndSection
)";
    int ready[2];
    if (pipe(ready) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(ready[1], 3);
      int null = open("/dev/null", O_RDWR);
      dup2(null, 0);
      dup2(null, 1);
      dup2(null, 2);
      std::string conf = dir_.str() + "/xorg.conf", log = dir_.str() + "/xorg.log",
                  confdir = dir_.str() + "/none";
      execlp("Xorg", "Xorg", "-noreset", "-nolisten", "tcp", "-config", conf.c_str(), "-configdir",
             confdir.c_str(), "-logfile", log.c_str(), "-displayfd", "3", "-novtswitch",
             "-sharevts", static_cast<char*>(nullptr));
      _exit(127);
    }
    close(ready[1]);
    char buffer[16] = {};
    pollfd pfd{ready[0], POLLIN, 0};
    if (poll(&pfd, 1, 10000) > 0 && read(ready[0], buffer, sizeof buffer - 1) > 0)
      display_ = ":" + std::string(buffer, strcspn(buffer, "\n"));
    close(ready[0]);
  }
  ~DummyXorg() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
  }
  const std::string& display() const { return display_; }

 private:
  TempDir dir_;
  pid_t pid_ = -1;
  std::string display_;
};

TEST_F(Displays, TwoOutputsOnXorgDummy) {
  DummyXorg xorg;
  if (xorg.display().empty()) GTEST_SKIP() << "Xorg with the dummy driver does not start here";
  ScopedEnvironment display;
  display.set("DISPLAY", xorg.display());
  ASSERT_TRUE(run("xrandr --addmode DUMMY1 1024x768 && xrandr --addmode DUMMY1 800x600 && "
                  "xrandr --output DUMMY1 --mode 1024x768 --right-of DUMMY0"));
  std::vector<std::string> list = strings(call("tsMultiDisplayList"));
  ASSERT_EQ(list.size(), 4u);
  std::string first = list[0], second = list[2];
  EXPECT_EQ(info("", "number"), "2");
  EXPECT_EQ(info("", "primary"), first);
  EXPECT_EQ(info("", "second"), second);
  EXPECT_EQ(info("", "Second screen"), second);
  int firstWidth = std::stoi(info("primary", "width"));
  EXPECT_EQ(info("second", "xpos"), std::to_string(firstWidth));
  EXPECT_EQ(info("second", "ypos"), "0");
  EXPECT_EQ(info(second, "width"), "1024");

  EXPECT_EQ(setMulti("second", 1000, 700, 32, 0), -1);
  EXPECT_EQ(info("second", "width"), "1024");
  EXPECT_EQ(setMulti("second", 800, 600, 32, 60), 0);
  EXPECT_EQ(info("second", "width"), "800");
  EXPECT_EQ(info("second", "height"), "600");
  // The screen is resized to the bounding box of both outputs.
  EXPECT_EQ(screenSize(), std::to_string(firstWidth + 800) + "x" + info("primary", "height"));
}

// A PPM picture: the left half red, the right half blue.
std::string redBluePicture(const TempDir& dir) {
  std::string data = "P6 4 2 255\n";
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 4; ++x) data += x < 2 ? std::string("\xff\x00\x00", 3) : std::string("\x00\x00\xff", 3);
  return dir.file("red-blue.ppm", data).string();
}

// The pixmap a root window property names, as xprop shows it.
Pixmap rootPixmap(const char* property) {
  const std::string shown = run(std::string("xprop -root ") + property).value_or("");
  const size_t at = shown.find("# 0x");
  return at == std::string::npos ? None : std::stoul(shown.substr(at + 2), nullptr, 16);
}

TEST_F(Displays, WallpaperPixmapOutlivesTheHost) {
  TempDir dir;
  std::string picture = redBluePicture(dir);
  std::string runner = TESSEL_RUNNER;
  ASSERT_TRUE(run("'" + runner + "' --xtras '" + xtrasFolder() + "' -e 'put tsSetWallpaper(\"" +
                  picture + "\", 0)' 2>&1"));
  TestDisplay x;
  ASSERT_TRUE(x);
  Display* d = x.get();
  Pixmap first = rootPixmap("_XROOTPMAP_ID");
  ASSERT_NE(first, None);
  EXPECT_EQ(rootPixmap("ESETROOT_PMAP_ID"), first);
  // Covering the screen: the picture is scaled, its left half on the left of the screen.
  int w = DisplayWidth(d, DefaultScreen(d)), h = DisplayHeight(d, DefaultScreen(d));
  XImage* image = XGetImage(d, first, 0, 0, static_cast<unsigned>(w), static_cast<unsigned>(h),
                            AllPlanes, ZPixmap);
  ASSERT_NE(image, nullptr);
  unsigned long left = XGetPixel(image, 5, h / 2), right = XGetPixel(image, w - 5, h / 2);
  XDestroyImage(image);
  Visual* v = DefaultVisual(d, DefaultScreen(d));
  EXPECT_EQ(left & v->red_mask, v->red_mask);
  EXPECT_EQ(left & v->blue_mask, 0u);
  EXPECT_EQ(right & v->blue_mask, v->blue_mask);
  EXPECT_EQ(right & v->red_mask, 0u);

  // The next picture frees the previous one.
  EXPECT_EQ(integer("tsSetWallpaper", {Value(picture), Value(1)}), 0);
  Pixmap second = rootPixmap("_XROOTPMAP_ID");
  EXPECT_NE(second, first);
  Window root;
  int gx, gy;
  unsigned gw, gh, border, depth;
  EXPECT_FALSE(XGetGeometry(d, first, &root, &gx, &gy, &gw, &gh, &border, &depth));
  EXPECT_TRUE(XGetGeometry(d, second, &root, &gx, &gy, &gw, &gh, &border, &depth));
  // A file that is not a picture (-1, tsSetWallpaper's example) leaves the picture in place.
  EXPECT_EQ(integer("tsSetWallpaper", {Value(dir.file("text.png", "text").string()), Value(0)}), -1);
  EXPECT_EQ(rootPixmap("_XROOTPMAP_ID"), second);
}

// GNOME-family desktops draw their own background: the picture goes to GSettings too, and only
// there. (The session's GSettings backend is the in-memory one, shared with this process.)
TEST_F(Displays, WallpaperReachesGSettingsOnGnomeOnly) {
  GSettingsSchemaSource* source = g_settings_schema_source_get_default();
  GSettingsSchema* schema =
      source ? g_settings_schema_source_lookup(source, "org.gnome.desktop.background", TRUE)
             : nullptr;
  if (schema == nullptr) GTEST_SKIP() << "the desktop background schema is not installed";
  g_settings_schema_unref(schema);
  GSettings* settings = g_settings_new("org.gnome.desktop.background");
  auto uri = [&] {
    gchar* value = g_settings_get_string(settings, "picture-uri");
    std::string out = value != nullptr ? value : "";
    g_free(value);
    return out;
  };
  g_settings_reset(settings, "picture-uri");
  std::string before = uri();
  TempDir dir;
  std::string picture = redBluePicture(dir);
  {
    ScopedEnvironment desktop;
    desktop.set("XDG_CURRENT_DESKTOP", "XFCE");
    EXPECT_EQ(integer("tsSetWallpaper", {Value(picture), Value(0)}), 0);
    EXPECT_EQ(uri(), before);
  }
  {
    ScopedEnvironment desktop;
    desktop.set("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
    EXPECT_EQ(integer("tsSetWallpaper", {Value(picture), Value(0)}), 0);
    EXPECT_EQ(uri(), "file://" + picture);
  }
  g_settings_reset(settings, "picture-uri");
  g_settings_reset(settings, "picture-uri-dark");
  g_object_unref(settings);
}

TEST_F(Displays, PlaceCursorWarpsThePointer) {
  EXPECT_EQ(integer("tsPlaceCursor", {Value(123), Value(45)}), 0);
  TestDisplay x;
  ASSERT_TRUE(x);
  Window root, child;
  int rx = -1, ry = -1, wx, wy;
  unsigned mask;
  XQueryPointer(x.get(), DefaultRootWindow(x.get()), &root, &child, &rx, &ry, &wx, &wy, &mask);
  EXPECT_EQ(rx, 123);
  EXPECT_EQ(ry, 45);
}

}  // namespace
}  // namespace tessel::testing
