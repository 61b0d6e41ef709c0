// The message window's Lingo interpreter.
//
// Scripts are parsed once into trees (ast.h) and run by walking them. The interpreter is also the
// running movie as the MOA host sees it (host::Movie): an Xtra's call-backs reach the script's
// handlers and the built-in `value`.
//
//   tessel::lingo::Interpreter lingo(&externals);
//   lingo.run("on double n\n  return n * 2\nend\nput double(21)");   // prints "-- 42"
//   Outcome r = lingo.callHandler("double", {Value(4)});              // r.value is 8
//
// Functions that are neither script handlers nor built-ins come from an Externals object (the
// runner's is the MOA host's table of global Xtra methods).
//
// The class is defined over several files: interpreter.cpp (entry points, lists' lifetime),
// statements.cpp, expressions.cpp, chunk_eval.cpp (chunk expressions), properties.cpp ("the"
// properties), objects.cpp (parent scripts) and builtins.cpp.
#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/host.h"
#include "host/lingo/ast.h"
#include "host/lingo/error.h"
#include "host/value.h"

namespace tessel::lingo {

using host::Value;

// Functions the script can call beyond its own handlers and the built-ins.
class Externals {
 public:
  virtual ~Externals() = default;
  // An id for the function `name` (any case), or -1 when there is none.
  virtual int lookup(const std::string& name) = 0;
  bool has(const std::string& name) { return lookup(name) >= 0; }
  // Calls function `id`. False, with `error` saying why, when the call failed.
  virtual bool call(int id, const std::vector<Value>& args, Value& result, std::string& error) = 0;
  // The method table text of the Xtra called `xtraName` (any case), when it is loaded.
  virtual std::optional<std::string> interfaceText(const std::string& xtraName) = 0;
};

// What "the ..." properties answer.
struct Environment {
  // The wall clock "the date", "the time" and "the systemDate" read (local time).
  std::function<std::chrono::system_clock::time_point()> clock = [] {
    return std::chrono::system_clock::now();
  };
  std::string moviePath;        // with a trailing "/"
  std::string applicationPath;  // with a trailing "/"
  std::string platform = "Linux,X11";
  std::string runMode = "Projector";
  std::string osVersion;  // "the environment"'s #osVersion, e.g. "Linux 6.1.0"
  // The text of the parent script `name` (what new(script "name") makes objects of), or nullopt
  // when there is none. Unset: scripts have no parent scripts.
  std::function<std::optional<std::string>(const std::string& name)> readScript;
};

struct Limits {
  uint64_t maxSteps = 0;              // statements and loop turns per entry; 0 = no limit
  size_t maxTextBytes = 256u << 20;   // longest string a script may build
  size_t maxListItems = 16u << 20;    // longest list a script may build
  int maxCallDepth = 1000;            // nested handler calls
  size_t maxStackBytes = 4u << 20;    // machine stack the interpreter may use below its entry
};

// The result of running, calling or evaluating: a value, or a script error and where it
// happened.
struct Outcome {
  bool ok = true;
  Value value;
  int line = 0;
  std::string source;   // the script's name ("kiosk.ls", "-e 2"); empty when it has none
  std::string handler;  // the handler it happened in; empty at top level
  std::string message;
  // "kiosk.ls:12 in handler readSettings: Division by zero"; "3: ..." without a name.
  std::string errorText() const {
    std::string where = source.empty() ? std::to_string(line) : source + ":" + std::to_string(line);
    if (!handler.empty()) where += " in handler " + handler;
    return where + ": " + message;
  }
};

class Interpreter;

// An expression parsed once, to be evaluated many times by the interpreter that compiled it.
class Expression {
 public:
  Expression(const Interpreter* owner, ExprPtr expr) : owner_(owner), expr_(std::move(expr)) {}

 private:
  friend class Interpreter;
  const Interpreter* owner_;
  ExprPtr expr_;
};

class Interpreter : public host::Movie {
 public:
  explicit Interpreter(Externals* externals = nullptr);
  ~Interpreter() override;
  Interpreter(const Interpreter&) = delete;
  Interpreter& operator=(const Interpreter&) = delete;

  void setExternals(Externals* externals);
  // Call sites remember what a name resolved to; tell the interpreter when the externals change.
  void externalsChanged();
  Environment& environment() { return env_; }
  const Limits& limits() const { return limits_; }
  void setLimits(const Limits& limits) { limits_ = limits; }
  // Receives each line that `put` prints (without a line end). Default: standard output.
  void setOutput(std::function<void(const std::string&)> out);
  // Receives the errors no caller gets back: a handler that the host called, while no script was
  // running, failed. Gets "LINE: message". Default: "error: LINE: message" on standard error.
  void setErrorOutput(std::function<void(const std::string&)> out);
  // A flag (set from a signal handler) that stops the running script with "Interrupted".
  void setInterruptFlag(const volatile std::sig_atomic_t* flag) { interrupt_ = flag; }

  // Parses a script, defines its handlers (replacing ones of the same name), then runs its
  // top-level statements in order. Stops at the first error. Nothing runs when it does not parse.
  // `name` says where errors happened ("kiosk.ls", "-e 2"); the handlers keep it.
  Outcome run(std::string_view source, int firstLine = 1, std::string_view name = {});
  // True when `source` fails to parse only because it stops inside an open handler or block.
  static bool needsMoreInput(std::string_view source);
  // Calls a script handler or a built-in by name.
  Outcome callHandler(const std::string& name, const std::vector<Value>& args);
  // Parses an expression once for evaluate(); null (and `error` set) when it does not parse.
  std::shared_ptr<Expression> compile(std::string_view expression, std::string* error = nullptr);
  Outcome evaluate(const Expression& expression);
  // Parses and evaluates in one go; a text that does not parse is an error here.
  Outcome evaluate(std::string_view expression);

  struct Captured {
    std::string output;  // every line `put` printed, each ended by "\n"
    Outcome outcome;
  };
  Captured runCaptured(std::string_view source);

  bool hasHandler(const std::string& name) const;
  Value global(const std::string& name) const;
  void setGlobal(const std::string& name, Value value);

  // host::Movie. Never throws: a script error becomes kMoaMmErr_InternalError (and, when a
  // script is running, stops that script once the host's call returns).
  moa::MoaError callHandler(const std::string& name, const std::vector<Value>& args,
                            Value& result) override;
  std::string moviePath() const override { return env_.moviePath; }

 private:
  friend struct Builtins;
  struct Builtin;
  struct Entry;
  enum class Flow : uint8_t { Normal, ExitRepeat, NextRepeat, Return };
  enum Target : uint8_t { kUnresolved = 0, kNone, kHandler, kBuiltin, kExternal };

  static const Builtin* findBuiltin(const std::string& lowerName);
  const Handler* findHandler(const std::string& lowerName) const;

  template <class Body>
  Outcome guarded(Body&& body);
  [[noreturn]] void fail(const std::string& message) const;
  void tick();
  void checkStack() const;

  Flow execBlock(Block& block);
  Flow exec(Stmt& s);
  Flow repeatTo(Stmt& s);
  Flow repeatIn(Stmt& s);
  Value eval(Expr& e);
  Value evalCall(Expr& e);
  Value evalArg(Expr& call, Expr& arg);
  void resolveCall(Expr& e);
  Value callResolved(Expr& e, size_t base, size_t evaluated);

  // Parent scripts (objects.cpp): loaded on first use, once per session.
  struct ParentScript {
    std::string name;  // as first asked for
    std::unique_ptr<Program> program;
    std::unordered_map<std::string, const Handler*> handlers;
  };
  const ParentScript& parentScript(const std::string& name);
  Value newObject(std::vector<Value> args);
  const Handler* methodOf(const Value& object, const std::string& lowerName) const;
  Value& property(const Expr& e);
  Value invokeHandler(const Handler& h, size_t base, size_t nargs);
  Value invokeBuiltin(const Builtin& b, size_t base, size_t nargs);
  Value readGlobal(Expr& e);
  size_t globalSlot(const std::string& lowerName);
  void assign(Expr& target, Value v);
  Value readTarget(Expr& target);
  Value unaryOp(Op op, const Value& v);
  Value binaryOp(Op op, const Value& a, const Value& b);
  Value arith(Op op, const Value& a, const Value& b);
  Value dateArith(Op op, const Value& a, const Value& b);
  Value listArith(Op op, const Value& a, const Value& b);
  Value indexGet(const Value& base, const Value& index);
  void indexSet(const Value& base, const Value& index, Value v);
  Value dotGet(const Value& base, Expr& e);
  Value theProperty(const Expr& e);
  void setProperty(const Expr& e, const Value& v);
  Value environmentList();
  void locate(ScriptError& e) const;

  // Chunk expressions (chunk_eval.cpp). Reads look at the source text where it lies, without
  // copying it.
  const Value& evalRef(Expr& e, Value& holder);
  std::string_view chunkSource(Expr& e, Value& holder, std::string& converted);
  std::string_view chunkText(Expr& e, Value& holder, std::string& converted);
  Value evalChunk(Expr& e);
  Value evalChunkCount(Expr& e);
  void writeChunk(Expr& target, const Value& v, PutMode mode);
  void deleteChunk(Expr& target);
  struct ChunkLevel {
    ChunkType type;
    int64_t from;
    int64_t to;
    bool last;
  };
  ChunkLevel chunkLevel(Expr& e);
  std::string rewriteChunk(std::string_view text, const std::vector<ChunkLevel>& levels, size_t k,
                           const std::string* value, PutMode mode);
  Value valueOf(const Value& v);

  // Conversions that fail with a script error.
  bool truthy(const Value& v) const;
  Value toNumber(const Value& v) const;
  int32_t toInt(const Value& v, const char* what) const;
  std::string textOf(const Value& v) const;
  std::string literalOf(const Value& v) const;
  void checkText(size_t bytes) const;
  void checkItems(size_t count) const;
  size_t compareBudget() const { return limits_.maxListItems * 4 + 1024; }

  // Lists made by scripts are tracked so that lists holding themselves can be freed.
  Value newList(std::vector<Value> items = {});
  Value newPropList(std::vector<std::pair<Value, Value>> items = {});
  void trackResult(const Value& v);
  void collectCycles();

  void print(const std::string& line);
  void reportError(const ScriptError& e);

  Externals* externals_;
  Environment env_;
  Limits limits_;
  std::function<void(const std::string&)> output_;
  std::function<void(const std::string&)> errorOutput_;
  const volatile std::sig_atomic_t* interrupt_ = nullptr;

  std::vector<std::unique_ptr<Program>> programs_;
  std::unordered_map<std::string, const Handler*> handlers_;
  std::unordered_map<std::string, size_t> globalIndex_;
  std::vector<Value> globals_;
  uint32_t generation_ = 1;

  std::unordered_map<std::string, ParentScript> scripts_;  // by lower-case name

  // Session state that scripts read and set through "the".
  std::string itemDelimiter_ = ",";
  Value result_;  // the result: what the last command returned
  int floatPrecision_ = 4;  // decimals floats show with
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point timerStart_ = started_;

  // Execution state. Handler frames are windows of `stack_` starting at `fp_`.
  std::vector<Value> stack_;
  size_t fp_ = 0;
  int line_ = 0;
  const Handler* handler_ = nullptr;  // the handler running, null at top level
  const std::string* source_ = nullptr;  // the script running (its Program's source)
  int depth_ = 0;
  int active_ = 0;  // entries in progress (run, calls, host call-backs)
  uint64_t steps_ = 0;
  uintptr_t stackLimit_ = 0;  // lowest frame address allowed
  Value retval_;
  std::optional<ScriptError> pending_;  // a call-back's error, raised once the host returns

  std::vector<std::weak_ptr<host::List>> lists_;
  std::vector<std::weak_ptr<host::PropList>> propLists_;
  size_t trackThreshold_ = 1024;

  std::mt19937 random_;
};

}  // namespace tessel::lingo
