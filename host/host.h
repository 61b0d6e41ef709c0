// The MOA host: loads scripting and tool Xtras from a folder the way the authoring environment
// and its projectors do, registers them, and calls their methods with Lingo values.
//
//   tessel::host::Host host({.productName = "Director", .runMode = "Projector"});
//   host.setMovie(&movie);                 // the running movie's handlers (call-backs land here)
//   host.loadXtras("build/Xtras");
//   Value result;
//   MoaError err = host.callMethod("tsFileExists", {Value("/etc/passwd")}, result);
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/value.h"
#include "moa/moa_interfaces.h"

namespace tessel::host {

struct HostServices;

struct HostOptions {
  std::string productName = "Director";  // what IMoaAppInfo item 5 answers
  std::string runMode = "Projector";     // item 1: "Author", "Projector", ...
  std::string productVersion = "11.5";   // item 6
  // What the player's ResolveFileName answers for the bare name "@". Unset: the player resolves
  // only existing files, so "@" (a folder) gives nothing and Xtras fall back to "the moviePath".
  std::optional<std::string> playerResolvesAt;
  // Where PrintMessage texts go (as they are, no line end added). Unset: standard output.
  std::function<void(const std::string&)> printMessage;
  // Holds (true) or releases (false) the keyboard for the host's presentation window. Set: the
  // host serves the stage interface (moa/tessel_stage.h) to its Xtras; unset: it has none.
  std::function<bool(bool)> holdKeyboard;
  // Whether the user asked the running script to stop. Set: the host serves the interrupt
  // interface (moa/tessel_interrupt.h), so that waits inside Xtra calls end early.
  std::function<bool()> interruptRequested;
};

// The running movie, as the host's player and movie services see it. The message window
// implements this; tests may implement it too.
class Movie {
 public:
  virtual ~Movie() = default;
  // Calls the handler `name` of the movie (a handler of its scripts, or a built-in such as
  // "value"). Returns 0 with the result, kMoaDrErr_HandlerNotDefined when no such handler
  // exists, or another MOA error when the handler fails.
  virtual moa::MoaError callHandler(const std::string& name, const std::vector<Value>& args,
                                    Value& result) = 0;
  // The movie's folder with a trailing "/" ("" when there is none).
  virtual std::string moviePath() const = 0;
};

// One line of a registered method table.
struct MethodInfo {
  std::string xtraName;  // from the "xtra NAME" line
  std::string name;      // Lingo name, e.g. "tsFileExists"
  int selector = 0;      // 0 = first definition line ("new"), 1 = the next, ...
  char scope = ' ';      // '*' global, '+' parent, ' ' child
  struct Arg {
    std::string type;  // "string", "integer", "int", "float", "symbol", "object", "any", "*"
    std::string name;
  };
  std::vector<Arg> args;
  std::string comment;  // text after "--"
};

// A tool Xtra entry as registered (display name, category, always-enabled flag).
struct ToolInfo {
  std::string displayName;
  std::string category;
  bool alwaysEnabled = false;
};

// Counts of the host calls that only matter on other platforms, kept so tests can see that an
// Xtra brackets its dialogs and resource use.
struct HostCounters {
  int modalDialogsBegun = 0;  // MacPrepareModalDialog / WinPrepareDialogBox
  int modalDialogsEnded = 0;  // MacUnprepareModalDialog / WinUnprepareDialogBox
  int resourcesBegun = 0;     // MoaBeginUsingResources
  int resourcesEnded = 0;     // MoaEndUsingResources
};

class Host {
 public:
  explicit Host(HostOptions options = {});
  ~Host();  // releases every instance and unloads what may be unloaded
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void setMovie(Movie* movie);
  const HostOptions& options() const;

  // Loads every module ("*.so", "*.xtra") in `folder`. Returns how many were registered;
  // reasons for the ones that were not are in diagnostics().
  int loadXtras(const std::string& folder);
  bool loadModule(const std::string& file);
  const std::vector<std::string>& diagnostics() const;

  // The registered "msgTable" text of a scripting Xtra, found by its name ("Tessel"), ignoring
  // case.
  std::optional<std::string> messageTable(const std::string& xtraName) const;
  std::vector<std::string> xtraNames() const;

  // Global ('*') methods of every loaded scripting Xtra, by Lingo name ignoring case.
  const MethodInfo* findMethod(const std::string& name) const;

  // Calls a method with Lingo values: the host puts VOID into the result slot, passes the
  // arguments as host values, and takes over whatever the Xtra stored. Returns the Xtra's
  // error code (0 on success); kMoaMmErr_FunctionNotFound for an unknown name.
  moa::MoaError callMethod(const MethodInfo& method, const std::vector<Value>& args,
                           Value& result);
  moa::MoaError callMethod(const std::string& name, const std::vector<Value>& args,
                           Value& result);
  // After a call that failed because the Xtra could not convert one of its arguments ("string
  // expected"...): which of the caller's arguments it was (from 0). Unset otherwise.
  std::optional<size_t> refusedArgument() const;
  // Calls by raw selector (no lookup); for tests of a module's dispatcher.
  moa::MoaError callSelector(const std::string& xtraName, int32_t selector,
                             const std::vector<Value>& args, Value& result);

  std::vector<ToolInfo> tools() const;
  moa::MoaError invokeTool(const std::string& displayName);

  HostCounters counters() const;
  // Host values currently alive (handed out and not yet released); 0 between calls when every
  // Xtra releases what it makes.
  size_t liveValues() const;
  // String pointers lent by ValueToStringPtr and not yet given back.
  size_t outstandingStringBorrows() const;
  // References Xtras hold on the host's services; 0 once every instance released them.
  uint32_t serviceReferences() const;
  // Paths of the modules currently loaded (including ones kept because they are still in use).
  std::vector<std::string> loadedModules() const;

  // Releases every instance, then unloads each module whose DllCanUnloadNow allows it.
  // Returns true when every module was unloaded.
  bool unloadAll();

  struct Impl;

 private:
  friend HostServices& services(Host& host);  // host/services.h: the services, for tests
  std::unique_ptr<Impl> impl_;
};

// Human-readable name of a MOA error code ("string expected", ...), for messages.
std::string describeError(moa::MoaError err);

}  // namespace tessel::host
