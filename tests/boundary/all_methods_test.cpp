// Every method of the table, called through the host with hostile arguments generated from its
// declared argument types: each call answers a value of the method's result kind (or its failure
// value), a wrong kind of argument is refused by the host at that argument, and the host lives.
// Run under AddressSanitizer and UBSan, this is the module's guard against overflows and crashes
// at its boundary.
//
// Nothing here may do harm to the machine the test runs on:
// - "@" is a movie folder deep inside a fresh sandbox, so that the "../" rows stay inside it; the
//   other path texts are HFS paths of volumes that do not exist. So deletes, copies and writes
//   land in the sandbox or nowhere.
// - HOME and the XDG folders are fresh, without applications: none is registered for anything, so
//   the methods that open documents and URLs or run programs find nothing to start; the print
//   server and the sound server are sockets that do not exist.
// - The integers are too large or negative for any display mode, so tsSetDisplay cannot switch;
//   tsEjectDisk and tsCloseWindow get texts and handles that name no volume and no program (the
//   sandbox may lie on a real mount, and a handle below the kernel's largest process ID may name a
//   running program).
// - The host tells every wait that the user asked the script to stop, so a time-out of INT_MIN
//   (without limit) ends after one round; a dialog is answered by closing it, or when it ignores
//   that, by pressing its buttons (on a desktop session; without a display dialogs answer at once).
#include <gtk/gtk.h>
#include <stdlib.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <utility>

#include "tests/boundary/boundary_support.h"

namespace tessel::testing {
namespace {

using host::Value;
namespace fs = std::filesystem;

// Result kinds, as the reference lists each method's results.
enum Kind : unsigned { kInteger = 1, kFloat = 2, kString = 4, kList = 8, kPropList = 16, kVoid = 32 };

unsigned resultKinds(const std::string& name) {
  static const std::map<std::string, unsigned> kinds = [] {
    std::map<std::string, unsigned> k;
    for (const char* m :
         {"tsVersion", "tsSysFolder", "tsFindApp", "tsReadIni", "tsMsgBox", "tsMsgBoxEx",
          "tsPrompt", "tsPasteText", "tsEncryptText", "tsDecryptText", "tsUserName",
          "tsUserShortName", "tsComputerName", "tsSystemTime", "tsFileVersion", "tsFileDate",
          "tsFileDateEx", "tsFileAttributes", "tsFindFirstFile", "tsFindNextFile",
          "tsGetFilename", "tsGetFolder", "tsGetDisk", "tsGetFiles", "tsShortFileName",
          "tsLongFileName", "tsUnixName", "tsHFSName", "tsFileCreator", "tsFileType",
          "tsFilePermissions", "tsBundleApp", "tsWindowInfo"})
      k[m] = kString;
    for (const char* m : {"tsMemoryInfo", "tsFileSizeEx"}) k[m] = kFloat;
    for (const char* m : {"tsDiskList", "tsMultiDisplayList", "tsFileList", "tsFolderList",
                          "tsWindowList"})
      k[m] = kList;
    for (const char* m : {"tsMsgBoxButtons", "tsFindClose", "tsReturnUnixNames", "tsRefreshFiles"})
      k[m] = kVoid;
    k["tsDiskInfo"] = kString | kInteger;      // a type word, or a size
    k["tsMultiDisplayInfo"] = kString | kList;  // "modes" is a list
    k["tsLogIn"] = kPropList | kString;         // "" on cancel
    k["tsGetFilename"] = kString | kList;       // a list with Flags 512
    return k;
  }();
  auto it = kinds.find(name);
  return it == kinds.end() ? unsigned{kInteger} : it->second;
}

unsigned kindOf(const Value& v) {
  if (v.isInteger()) return kInteger;
  if (v.isFloat()) return kFloat;
  if (v.isString()) return kString;
  if (v.isList()) return kList;
  if (v.isPropList()) return kPropList;
  return v.isVoid() ? unsigned{kVoid} : 0u;
}

std::string repeat(const std::string& piece, size_t bytes) {
  std::string out;
  out.reserve(bytes + piece.size());
  while (out.size() < bytes) out += piece;
  return out;
}

// Answers the module's dialogs from inside their own loops: a GLib source on the main context,
// which every dialog's loop runs. First the window is closed (Escape's and the close button's
// answer); a window that ignores that gets its buttons pressed, one per round.
class DialogAnswerer {
 public:
  DialogAnswerer() { source_ = g_timeout_add(20, &DialogAnswerer::tick, nullptr); }
  ~DialogAnswerer() { g_source_remove(source_); }

 private:
  static void buttonsOf(GtkWidget* widget, std::vector<GtkWidget*>& out) {
    if (GTK_IS_BUTTON(widget) && gtk_widget_is_sensitive(widget) && gtk_widget_get_mapped(widget))
      out.push_back(widget);
    if (GTK_IS_CONTAINER(widget))
      gtk_container_forall(
          GTK_CONTAINER(widget),
          +[](GtkWidget* child, gpointer found) {
            buttonsOf(child, *static_cast<std::vector<GtkWidget*>*>(found));
          },
          &out);
  }
  static gboolean tick(gpointer) {
    GList* all = gtk_window_list_toplevels();
    for (GList* l = all; l != nullptr; l = l->next) {
      GtkWidget* w = GTK_WIDGET(l->data);
      if (!gtk_widget_get_mapped(w) ||
          gtk_window_get_window_type(GTK_WINDOW(w)) != GTK_WINDOW_TOPLEVEL)
        continue;
      const int tries = GPOINTER_TO_INT(g_object_get_data(G_OBJECT(w), "answer-tries"));
      g_object_set_data(G_OBJECT(w), "answer-tries", GINT_TO_POINTER(tries + 1));
      if (tries == 0) {
        gtk_window_close(GTK_WINDOW(w));
        continue;
      }
      std::vector<GtkWidget*> buttons;
      buttonsOf(w, buttons);
      if (!buttons.empty()) gtk_button_clicked(GTK_BUTTON(buttons[(tries - 1) % buttons.size()]));
    }
    g_list_free(all);
    return G_SOURCE_CONTINUE;
  }
  guint source_ = 0;
};

// What the module made GTK, GDK and Pango complain of: every critical, and every text that was
// not UTF-8. (Other warnings, such as a window too tall for X11, are the libraries' to give.)
// The libraries log through GLib's one writer, which a process may set once.
class LibraryComplaints {
 public:
  LibraryComplaints() {
    static const bool installed = [] {
      g_log_set_writer_func(&LibraryComplaints::write, nullptr, nullptr);
      return true;
    }();
    (void)installed;
    current() = this;
  }
  ~LibraryComplaints() { current() = nullptr; }
  // What was heard since the last call.
  std::vector<std::string> take() { return std::exchange(heard_, {}); }

 private:
  static LibraryComplaints*& current() {
    static LibraryComplaints* listening = nullptr;
    return listening;
  }
  static GLogWriterOutput write(GLogLevelFlags level, const GLogField* fields, gsize count,
                                gpointer data) {
    std::string domain, message;
    for (gsize i = 0; i < count; ++i) {
      const std::string key = fields[i].key;
      if (fields[i].length >= 0) continue;  // binary fields
      if (key == "GLIB_DOMAIN") domain = static_cast<const char*>(fields[i].value);
      if (key == "MESSAGE") message = static_cast<const char*>(fields[i].value);
    }
    if (current() != nullptr &&
        ((level & G_LOG_LEVEL_CRITICAL) != 0 || message.find("UTF-8") != std::string::npos))
      current()->heard_.push_back(domain + ": " + message);
    return g_log_writer_default(level, fields, count, data);
  }
  std::vector<std::string> heard_;
};

class AllMethods : public XtraTest {
 protected:
  // Every wait ends at its first round, as after Ctrl-C in the message window.
  AllMethods() : XtraTest(host::HostOptions{.interruptRequested = [] { return true; }}) {}

  void SetUp() override {
    const fs::path box = sandbox_.path();
    for (const char* folder : {"home", "config", "data", "cache", "dirs", "config-dirs"})
      fs::create_directories(box / folder);
    setenv("HOME", (box / "home").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (box / "config").c_str(), 1);
    setenv("XDG_DATA_HOME", (box / "data").c_str(), 1);
    setenv("XDG_CACHE_HOME", (box / "cache").c_str(), 1);
    // The system's data without its applications: GTK still finds its icons and MIME types.
    for (const char* data : {"icons", "mime", "themes", "glib-2.0"})
      if (fs::exists(fs::path("/usr/share") / data))
        fs::create_directory_symlink(fs::path("/usr/share") / data, box / "dirs" / data);
    setenv("XDG_DATA_DIRS", (box / "dirs").c_str(), 1);
    setenv("XDG_CONFIG_DIRS", (box / "config-dirs").c_str(), 1);
    setenv("PULSE_SERVER", ("unix:" + (box / "no-sound").string()).c_str(), 1);
    setenv("CUPS_SERVER", (box / "no-printing").c_str(), 1);
    unsetenv("BROWSER");
    // The movie sits ten folders down, deeper than any row climbs with "..".
    movie_.folder = (box / "1/2/3/4/5/6/7/8/9/movie").string() + "/";
    sandbox_.file("1/2/3/4/5/6/7/8/9/movie/notes.txt", "Hello\r");
    sandbox_.file("1/2/3/4/5/6/7/8/9/movie/photos/old/a.jpg", "jpeg");
    XtraTest::SetUp();
  }

  // The names of the methods, in table order, read from the registered text.
  std::vector<std::string> methodNames() {
    std::vector<std::string> names;
    std::istringstream lines(*host_->messageTable("Tessel"));
    std::string line;
    while (std::getline(lines, line)) {
      if (line.rfind("* ", 0) != 0) continue;
      names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
  }
  static bool wantsText(const host::MethodInfo::Arg& arg) {
    return host::equalsIgnoringCase(arg.type, "string");
  }
  // Arguments of the declared types: `text` for every string, `number` for every integer.
  static std::vector<Value> arguments(const host::MethodInfo& method, const std::string& text,
                                      int32_t number) {
    std::vector<Value> args;
    for (const auto& arg : method.args) args.push_back(wantsText(arg) ? Value(text) : Value(number));
    return args;
  }

  TempDir sandbox_;
};

struct Row {
  const char* what;
  std::string text;
  int32_t number;
};

TEST_F(AllMethods, EveryMethodAnswersItsResultKindForHostileArguments) {
  const std::vector<std::string> names = methodNames();
  ASSERT_EQ(names.size(), 101u);
  const std::vector<Row> rows = {
      {"empty and zero", "", 0},
      {"1 MB of two-byte characters, cut inside one", repeat("\xc3\xa9", 1 << 20), INT_MAX},
      {"invalid UTF-8", "\xff\xfe\xc3(\xa0\xe2\x82\xed\xa0\x80\xf8\x88\x80\x80\x80", INT_MIN},
      {"CR, LF and CRLF", "one\rtwo\nthree\r\nfour", -1},
      // 46341 squared and 65536 times 32768 pass 2^31-1.
      {"an embedded NUL", std::string("be\0fore", 7), 46341},
      {"colons", "::::::", 65536},
      {"parent folders", repeat("../", 24), 1 << 30},
      {"the movie's folder and colons", "@::::::", INT_MAX},
      {"parent folders from the movie's folder", "@/" + repeat("../", 8) + "x", INT_MIN},
      {"an odd name in the movie's folder", "@:\xff\xfe:a\r\nb/c", -1},
      {"a 1 MB path in the movie's folder", "@:" + repeat("name:", 1 << 20), 65536},
      {"a Unix path in the sandbox", sandbox_.str() + "/1/2/3/4/5/../../../x::", 46341},
  };
  // Every row that reaches the disk stays inside the sandbox, read both ways: in the Unix style
  // every ":" is a "/", in the HFS style "/" is a character of a name and every colon after the
  // first of a run goes up one folder.
  auto inside = [&](std::string path) {
    path = fs::path(path.substr(0, 1024)).lexically_normal().string();
    return path.rfind(sandbox_.str() + "/", 0) == 0;
  };
  for (const Row& row : rows) {
    if (row.text.empty() || (row.text[0] != '/' && row.text[0] != '@')) continue;
    std::string unix = row.text[0] == '@' ? movie_.folder + row.text.substr(1) : row.text;
    std::replace(unix.begin(), unix.end(), ':', '/');
    ASSERT_TRUE(inside(unix)) << row.what << " leaves the sandbox";
    if (row.text[0] != '@') continue;
    std::string hfs = movie_.folder;
    for (size_t i = 1; i < row.text.size(); ++i)
      hfs += row.text[i] != ':' ? std::string(1, row.text[i] == '/' ? '_' : row.text[i])
             : row.text[i - 1] == ':' ? "../" : "/";
    ASSERT_TRUE(inside(hfs)) << row.what << " leaves the sandbox in HFS style";
  }
  // The results that do not depend on the machine, for empty and zero arguments.
  const std::map<std::string, Value> failureValues = {
      {"tsVersion", Value("")},         {"tsFindApp", Value("")},
      {"tsReadIni", Value("")},         {"tsWriteIni", Value(0)},
      {"tsFontInstalled", Value(0)},    {"tsGestalt", Value(0)},
      {"tsGestaltExists", Value(0)},    {"tsSetDisplay", Value(-1)},
      {"tsSetMultiDisplay", Value(-1)}, {"tsRunProgram", Value(0)},
      {"tsHideTaskBar", Value(0)},      {"tsEjectDisk", Value(0)},
      {"tsFileExists", Value(0)},       {"tsFileAge", Value(0)},
      {"tsFolderExists", Value(0)},     {"tsIsBundle", Value(0)},
      {"tsFileSize", Value(-1)},        {"tsFileSizeEx", Value(-1.0)},
      {"tsFileDate", Value("")},        {"tsFileDateEx", Value("")},
      {"tsFileAttributes", Value("")},  {"tsCopyFile", Value(1)},
      {"tsHFSName", Value("")},         {"tsFileCreator", Value("")},
      {"tsFileType", Value("")},        {"tsBundleApp", Value("")},
      {"tsWindowInfo", Value("Invalid")}, {"tsWindowExists", Value(0)},
      {"tsSendKeys", Value(0)},         {"tsMouseClick", Value(0)},
      {"tsPrintFile", Value(0)},        {"tsOpenFile", Value(0)},
      {"tsFindFirstFile", Value("")},   {"tsFileList", Value::list()},
      {"tsFolderList", Value::list()},
  };
  DialogAnswerer answerer;
  LibraryComplaints complaints;
  for (const Row& row : rows) {
    for (size_t i = 0; i < names.size(); ++i) {
      const std::string& name = names[i];
      const host::MethodInfo* method = host_->findMethod(name);
      ASSERT_NE(method, nullptr) << name;
      EXPECT_EQ(method->selector, static_cast<int>(i + 1)) << name;
      std::vector<Value> args = arguments(*method, row.text, row.number);
      if (name == "tsEjectDisk" && !row.text.empty()) args[0] = Value("Nowhere" + row.text);
      if (name == "tsCloseWindow" && row.number > 0 && row.number < (1 << 22))
        args[0] = Value(INT_MAX);
      // Two more than declared: the method reads only its own.
      args.push_back(Value::list({Value("extra")}));
      args.push_back(Value::symbol("extra"));
      Value result;
      moa::MoaError err = host_->callMethod(*method, args, result);
      SCOPED_TRACE(name + " with " + row.what);
      ASSERT_EQ(err, moa::kMoaErr_NoErr) << host::describeError(err);
      EXPECT_NE(resultKinds(name) & kindOf(result), 0u) << "answered kind " << kindOf(result);
      if (result.isString()) {
        EXPECT_LE(result.string().size(), 65535u);
      }
      if (result.isList()) {
        for (const Value& item : result.listPtr()->items)
          EXPECT_TRUE(name == "tsWindowList" ? item.isInteger() : item.isString());
      }
      for (const std::string& complaint : complaints.take()) ADD_FAILURE() << complaint;
      if (row.number != 0) continue;
      auto want = failureValues.find(name);
      if (want == failureValues.end()) continue;
      const Value& w = want->second;
      if (w.isList()) {
        EXPECT_TRUE(result.isList() && result.listPtr()->items.empty());
      } else if (w.isInteger()) {
        EXPECT_TRUE(result.isInteger() && result.integer() == w.integer());
      } else if (w.isFloat()) {
        EXPECT_TRUE(result.isFloat() && result.real() == w.real());
      } else {
        EXPECT_TRUE(result.isString() && result.string() == w.string());
      }
    }
  }
  EXPECT_EQ(host_->outstandingStringBorrows(), 0u);
}

TEST_F(AllMethods, WrongKindsAndMissingArgumentsAreRefusedAtTheirPlace) {
  const std::vector<std::pair<const char*, Value>> wrong = {
      {"a float", Value(3.5)},
      {"a list", Value::list({Value("a")})},
      {"a property list", Value::propList({{Value::symbol("a"), Value("b")}})},
      {"a symbol", Value::symbol("a")},
      {"VOID", Value()},
  };
  for (const std::string& name : methodNames()) {
    const host::MethodInfo* method = host_->findMethod(name);
    const std::vector<Value> declared = arguments(*method, "", 0);
    for (size_t k = 0; k < declared.size(); ++k) {
      const bool text = declared[k].isString();
      const moa::MoaError refusal =
          text ? moa::kMoaMmErr_StringExpected : moa::kMoaMmErr_IntegerExpected;
      std::vector<std::pair<std::string, std::vector<Value>>> calls;
      for (const auto& [what, value] : wrong) {
        calls.emplace_back(what, declared);
        calls.back().second[k] = value;
      }
      calls.emplace_back(text ? "an integer" : "a string", declared);
      calls.back().second[k] = text ? Value(int32_t{7}) : Value("7");
      calls.emplace_back("nothing (a missing argument)",
                         std::vector<Value>(declared.begin(), declared.begin() + k));
      for (const auto& [what, args] : calls) {
        SCOPED_TRACE(name + " argument " + std::to_string(k + 1) + ": " + what);
        Value result;
        EXPECT_EQ(host_->callMethod(*method, args, result), refusal);
        EXPECT_TRUE(result.isVoid());
        EXPECT_EQ(host_->refusedArgument(), std::optional<size_t>(k));
      }
    }
  }
  EXPECT_EQ(host_->outstandingStringBorrows(), 0u);
}

TEST_F(AllMethods, TheRegisteredTextIsTheTableAndOtherSelectorsAnswerVoid) {
  // The registered text is the header and the method table, character for character.
  std::ifstream table(TESSEL_SOURCE_DIR "/xtra/methods.txt", std::ios::binary);
  EXPECT_EQ(*host_->messageTable("Tessel"),
            "xtra Tessel\n" + std::string(std::istreambuf_iterator<char>(table), {}));
  for (int32_t selector : {0, -1, -100, 102, 1000}) {
    Value result = Value(int32_t{77});
    EXPECT_EQ(host_->callSelector("Tessel", selector, {}, result), moa::kMoaErr_NoErr)
        << selector;
    EXPECT_TRUE(result.isVoid()) << selector;
  }
}

}  // namespace
}  // namespace tessel::testing
