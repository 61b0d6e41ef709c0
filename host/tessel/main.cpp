// tessel: a Lingo message window on the MOA host. Loads the Xtras of a folder and runs Lingo
// that calls their methods the way a movie does.
//
//   tessel FILE            run a script file
//   tessel -e 'CODE' ...   run code
//   tessel                 interactive message window
#include <sys/utsname.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/lingo/interpreter.h"
#include "host/lingo/values.h"
#include "host/tessel/help_externals.h"
#include "host/tessel/host_externals.h"
#include "host/tessel/message_window.h"
#include "host/tessel/stage.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kUsage =
    "Usage: tessel [OPTIONS] [FILE] [-e CODE]...\n"
    "Runs Lingo against the Xtras of a folder, as a movie would.\n"
    "\n"
    "  FILE              run this script file: its handlers are defined first, then its\n"
    "                    top-level statements run in order\n"
    "  -e CODE           run CODE (repeatable; after FILE, in the order given)\n"
    "                    With neither, an interactive message window opens.\n"
    "  --xtras DIR       load the Xtras from DIR (default: the Xtras folder beside tessel)\n"
    "  --movie PATH      the movie's folder, as \"the moviePath\" answers it (default: the\n"
    "                    script's folder, or the current folder)\n"
    "  --product NAME    the product name the host reports (default: Director)\n"
    "  --mode MODE       Author or Projector (default: Projector)\n"
    "  --stage WxH       open a presentation window of that size (kiosk controls act on it)\n"
    "  -h, --help        show this help\n"
    "\n"
    "In the message window, help lists the methods, help \"tsCopyFile\" shows one and\n"
    "help \"copy\" finds them by a word; the full reference is Xtras/Tessel Help.html.\n"
    "\n"
    "Exit status: 0 when everything ran, 1 after a script error, 2 for a usage error.\n";

struct Options {
  std::string file;
  std::vector<std::string> code;
  std::string xtras;
  std::string movie;
  std::string product = "Director";
  std::string mode = "Projector";
  std::string stage;  // "WxH"
  int stageWidth = 0;
  int stageHeight = 0;
};

std::string withSlash(std::string path) {
  if (path.empty() || path.back() != '/') path += '/';
  return path;
}

// The folder that holds the running binary.
fs::path binaryFolder(const char* argv0) {
  std::error_code ec;
  fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (ec || exe.empty()) exe = fs::absolute(argv0, ec);
  return exe.parent_path();
}

int usageError(const std::string& message) {
  std::fprintf(stderr, "tessel: %s\n%s", message.c_str(), kUsage);
  return 2;
}

// Returns -1 when the options are fine, else the exit status.
int parseOptions(int argc, char** argv, Options& opt) {
  bool optionsDone = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&](const char* name, std::string& out) -> bool {
      std::string prefix = std::string(name) + "=";
      if (arg.rfind(prefix, 0) == 0) {
        out = arg.substr(prefix.size());
        return true;
      }
      if (arg != name) return false;
      if (i + 1 >= argc) throw std::string(name) + " needs a value";
      out = argv[++i];
      return true;
    };
    try {
      if (!optionsDone && arg.size() > 1 && arg[0] == '-') {
        std::string code;
        if (arg == "--") {
          optionsDone = true;
        } else if (arg == "-h" || arg == "--help") {
          std::fputs(kUsage, stdout);
          return 0;
        } else if (value("-e", code)) {
          opt.code.push_back(code);
        } else if (value("--xtras", opt.xtras) || value("--movie", opt.movie) ||
                   value("--product", opt.product) || value("--mode", opt.mode) ||
                   value("--stage", opt.stage)) {
        } else {
          return usageError("unknown option " + arg);
        }
        continue;
      }
    } catch (const std::string& message) {
      return usageError(message);
    }
    if (!opt.file.empty()) return usageError("only one script file can be run");
    opt.file = arg;
  }
  if (tessel::lingo::equalNoCase(opt.mode, "author")) {
    opt.mode = "Author";
  } else if (tessel::lingo::equalNoCase(opt.mode, "projector")) {
    opt.mode = "Projector";
  } else {
    return usageError("--mode must be Author or Projector");
  }
  if (!opt.stage.empty()) {
    char x = 0, extra = 0;
    if (std::sscanf(opt.stage.c_str(), "%d%c%d%c", &opt.stageWidth, &x, &opt.stageHeight, &extra) !=
            3 ||
        (x != 'x' && x != 'X') || opt.stageWidth < 1 || opt.stageHeight < 1 ||
        opt.stageWidth > 32767 || opt.stageHeight > 32767)
      return usageError("--stage needs a size such as 640x480");
  }
  return -1;
}

bool readFile(const std::string& path, std::string& out) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream ss;
  ss << in.rdbuf();
  if (in.bad()) return false;
  out = ss.str();
  return true;
}

void loadXtras(tessel::host::Host& host, const std::string& folder) {
  std::error_code ec;
  if (!fs::is_directory(folder, ec)) {
    std::fprintf(stderr, "tessel: warning: no Xtras folder at %s\n", folder.c_str());
    return;
  }
  int loaded = host.loadXtras(folder);
  if (loaded == 0) std::fprintf(stderr, "tessel: warning: no Xtras loaded from %s\n", folder.c_str());
  for (const auto& d : host.diagnostics()) std::fprintf(stderr, "tessel: warning: %s\n", d.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  Options opt;
  if (int status = parseOptions(argc, argv, opt); status >= 0) return status;

  std::string script;
  if (!opt.file.empty() && !readFile(opt.file, script)) {
    std::fprintf(stderr, "tessel: cannot read %s: %s\n", opt.file.c_str(), std::strerror(errno));
    return 2;
  }

  std::error_code ec;
  fs::path bin = binaryFolder(argv[0]);
  fs::path movie;
  if (!opt.movie.empty()) {
    movie = fs::absolute(opt.movie, ec);
    if (fs::is_regular_file(movie, ec)) movie = movie.parent_path();
  } else if (!opt.file.empty()) {
    movie = fs::absolute(opt.file, ec).parent_path();
  } else {
    movie = fs::current_path(ec);
  }

  // The interpreter outlives the host, which holds it as its movie.
  tessel::lingo::Interpreter lingo;
  tessel::lingo::Environment& env = lingo.environment();
  env.moviePath = withSlash(movie.lexically_normal().string());
  env.applicationPath = withSlash(bin.string());
  env.runMode = opt.mode;
  if (utsname u{}; uname(&u) == 0) env.osVersion = std::string(u.sysname) + " " + u.release;
  // Parent scripts are the files NAME.ls in the movie's folder.
  env.readScript = [folder = env.moviePath](const std::string& name) -> std::optional<std::string> {
    std::string text;
    if (!readFile(folder + name + ".ls", text)) return std::nullopt;
    return text;
  };

  tessel::host::HostOptions hostOptions;
  hostOptions.productName = opt.product;
  hostOptions.runMode = opt.mode;
  // The stage outlives the host, so the Xtra can still let go of the keyboard when it unloads;
  // the keyboard is released at exit in any case.
  std::unique_ptr<tessel::runner::Stage> stage;
  if (!opt.stage.empty()) {
    stage = tessel::runner::Stage::open(opt.stageWidth, opt.stageHeight);
    if (!stage) std::fprintf(stderr, "tessel: warning: no display for the stage\n");
    tessel::runner::Stage* s = stage.get();
    if (s != nullptr) hostOptions.holdKeyboard = [s](bool hold) { return s->holdKeyboard(hold); };
  }
  // Ctrl-C while a script runs: a wait inside an Xtra call ends, then the script stops.
  hostOptions.interruptRequested = [] { return tessel::runner::interruptFlag != 0; };
  tessel::host::Host host(hostOptions);
  tessel::runner::HostExternals xtraMethods(host);
  // `help` answers from the reference compiled in, printed where `put` prints.
  tessel::runner::HelpExternals externals(xtraMethods, [](const std::string& line) {
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
  });
  host.setMovie(&lingo);
  lingo.setExternals(&externals);
  loadXtras(host, opt.xtras.empty() ? (bin / "Xtras").string() : opt.xtras);

  int status = 0;
  if (!opt.file.empty() && !tessel::runner::runReported(lingo, script, 1, opt.file)) status = 1;
  for (size_t i = 0; status == 0 && i < opt.code.size(); ++i) {
    if (!tessel::runner::runReported(lingo, opt.code[i], 1, "-e " + std::to_string(i + 1)))
      status = 1;
  }
  if (opt.file.empty() && opt.code.empty()) status = tessel::runner::messageWindow(lingo);

  std::fflush(stdout);
  host.setMovie(nullptr);
  lingo.setExternals(nullptr);
  return status;
}
