#include "host/lingo/interpreter.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <limits>
#include <unordered_map>
#include <utility>

#include "host/lingo/builtins.h"
#include "host/lingo/parser.h"
#include "host/lingo/values.h"

namespace tessel::lingo {

namespace {

// Room left below the interpreter's stack limit for what runs outside it (the C library,
// sanitizer reports, signal handlers).
constexpr uintptr_t kStackMargin = 256u << 10;

uintptr_t frameAddress() { return reinterpret_cast<uintptr_t>(__builtin_frame_address(0)); }

// The lowest usable address of the calling thread's stack (0 when unknown), asked once per thread.
uintptr_t threadStackLow() {
  thread_local uintptr_t low = [] {
    uintptr_t result = 0;
    pthread_attr_t attr;
    if (pthread_getattr_np(pthread_self(), &attr) == 0) {
      void* addr = nullptr;
      size_t size = 0;
      if (pthread_attr_getstack(&attr, &addr, &size) == 0) result = reinterpret_cast<uintptr_t>(addr);
      pthread_attr_destroy(&attr);
    }
    return result;
  }();
  return low;
}

}  // namespace

// Saves the execution state on entry and puts it back on exit, whether the code it guards
// returned or failed. The outermost entry starts the step count and the stack limit.
struct Interpreter::Entry {
  explicit Entry(Interpreter& in)
      : in_(in),
        nested(in.active_ > 0),
        stackSize_(in.stack_.size()),
        fp_(in.fp_),
        line_(in.line_),
        handler_(in.handler_),
        source_(in.source_),
        depth_(in.depth_) {
    if (!nested) {
      in.steps_ = 0;
      uintptr_t here = frameAddress();
      uintptr_t limit = here > in.limits_.maxStackBytes ? here - in.limits_.maxStackBytes : 0;
      uintptr_t low = threadStackLow();
      if (low != 0 && low < here) {
        // Keep a margin below, smaller on threads with little stack.
        uintptr_t margin = std::min(kStackMargin, (here - low) / 4);
        if (low + margin > limit) limit = low + margin;
      }
      in.stackLimit_ = limit;
    }
    ++in.active_;
  }
  ~Entry() {
    --in_.active_;
    if (in_.stack_.size() > stackSize_) in_.stack_.resize(stackSize_);
    in_.fp_ = fp_;
    in_.line_ = line_;
    in_.handler_ = handler_;
    in_.source_ = source_;
    in_.depth_ = depth_;
  }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

  Interpreter& in_;
  const bool nested;
  size_t stackSize_;
  size_t fp_;
  int line_;
  const Handler* handler_;
  const std::string* source_;
  int depth_;
};

Interpreter::Interpreter(Externals* externals)
    : externals_(externals), random_(static_cast<uint32_t>(
                                 std::chrono::steady_clock::now().time_since_epoch().count())) {
  output_ = [](const std::string& line) {
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
  };
  errorOutput_ = [](const std::string& text) {
    std::fflush(stdout);
    std::fprintf(stderr, "error: %s\n", text.c_str());
  };
}

Interpreter::~Interpreter() { collectCycles(); }

void Interpreter::setExternals(Externals* externals) {
  externals_ = externals;
  externalsChanged();
}

void Interpreter::externalsChanged() { ++generation_; }

void Interpreter::setOutput(std::function<void(const std::string&)> out) {
  output_ = std::move(out);
}

void Interpreter::setErrorOutput(std::function<void(const std::string&)> out) {
  errorOutput_ = std::move(out);
}

void Interpreter::checkStack() const {
  if (frameAddress() < stackLimit_) fail("Stack overflow");
}

// ---- Entry points ---------------------------------------------------------------------------

template <class Body>
Outcome Interpreter::guarded(Body&& body) {
  Outcome out;
  Entry entry(*this);
  try {
    out.value = body();
  } catch (ScriptError& e) {
    if (e.line() == 0) e.setLine(line_);
    locate(e);
    out.ok = false;
    out.line = e.line();
    out.source = e.source();
    out.handler = e.handler();
    out.message = e.message();
  } catch (const std::bad_alloc&) {
    ScriptError e("Out of memory", line_);
    locate(e);
    out.ok = false;
    out.line = line_;
    out.source = e.source();
    out.handler = e.handler();
    out.message = e.message();
  } catch (const std::exception& e) {
    ScriptError located(e.what(), line_);
    locate(located);
    out.ok = false;
    out.line = line_;
    out.source = located.source();
    out.handler = located.handler();
    out.message = e.what();
  }
  if (!entry.nested) pending_.reset();
  if (!out.ok) out.value = Value();
  return out;
}

// Names the script and handler an error happened in, unless a deeper level already did (an
// error in a handler that an Xtra called back comes out of the Xtra call).
void Interpreter::locate(ScriptError& e) const {
  if (e.located()) return;
  e.locate(source_ ? *source_ : std::string(), handler_ ? handler_->spelling : std::string());
}

Outcome Interpreter::run(std::string_view source, int firstLine, std::string_view name) {
  ParseResult parsed = parseScript(source, firstLine);
  if (!parsed.program) {
    Outcome o;
    o.ok = false;
    o.line = parsed.line;
    o.source = std::string(name);
    o.message = parsed.error;
    return o;
  }
  Program* prog = parsed.program.get();
  prog->source = std::string(name);
  for (auto& h : prog->handlers) {
    h->source = prog->source;
    handlers_[h->name] = h.get();
  }
  if (!prog->handlers.empty()) ++generation_;
  programs_.push_back(std::move(parsed.program));
  Outcome o = guarded([&] {
    source_ = &prog->source;
    handler_ = nullptr;
    for (auto& s : prog->statements) exec(*s);
    return Value();
  });
  // Code without handlers is not needed once it has run.
  if (prog->handlers.empty()) {
    auto it = std::find_if(programs_.rbegin(), programs_.rend(),
                           [&](const std::unique_ptr<Program>& p) { return p.get() == prog; });
    if (it != programs_.rend()) programs_.erase(std::next(it).base());
  }
  return o;
}

bool Interpreter::needsMoreInput(std::string_view source) {
  ParseResult parsed = parseScript(source);
  return !parsed.program && parsed.incomplete;
}

Outcome Interpreter::callHandler(const std::string& name, const std::vector<Value>& args) {
  std::string lower = lowerCase(name);
  return guarded([&]() -> Value {
    const Builtin* b = findBuiltin(lower);
    const Handler* h = b ? nullptr : findHandler(lower);
    if (!b && !h) {
      int id = externals_ ? externals_->lookup(name) : -1;
      if (id < 0) fail("Handler not defined: " + name);
      Value result;
      std::string error;
      bool ok = externals_->call(id, args, result, error);
      if (pending_) {
        ScriptError err = std::move(*pending_);
        pending_.reset();
        throw err;
      }
      if (!ok) fail(error.empty() ? "Call of " + name + " failed" : error);
      trackResult(result);
      return result;
    }
    size_t base = stack_.size();
    for (const Value& v : args) stack_.push_back(v);
    return h ? invokeHandler(*h, base, args.size()) : invokeBuiltin(*b, base, args.size());
  });
}

std::shared_ptr<Expression> Interpreter::compile(std::string_view expression, std::string* error) {
  ExpressionParse parsed = parseExpression(expression);
  if (!parsed.expr) {
    if (error) *error = std::to_string(parsed.line) + ": " + parsed.error;
    return nullptr;
  }
  return std::make_shared<Expression>(this, std::move(parsed.expr));
}

Outcome Interpreter::evaluate(const Expression& expression) {
  if (expression.owner_ != this) {
    Outcome o;
    o.ok = false;
    o.message = "Expression compiled by another interpreter";
    return o;
  }
  return guarded([&] { return eval(*expression.expr_); });
}

Outcome Interpreter::evaluate(std::string_view expression) {
  std::string error;
  auto compiled = compile(expression, &error);
  if (!compiled) {
    Outcome o;
    o.ok = false;
    o.line = 1;
    o.message = error.substr(error.find(": ") + 2);
    return o;
  }
  return evaluate(*compiled);
}

Interpreter::Captured Interpreter::runCaptured(std::string_view source) {
  Captured c;
  auto saved = std::move(output_);
  output_ = [&c](const std::string& line) {
    c.output += line;
    c.output += '\n';
  };
  c.outcome = run(source);
  output_ = std::move(saved);
  return c;
}

bool Interpreter::hasHandler(const std::string& name) const {
  return findHandler(lowerCase(name)) != nullptr;
}

Value Interpreter::global(const std::string& name) const {
  auto it = globalIndex_.find(lowerCase(name));
  return it == globalIndex_.end() ? Value() : globals_[it->second];
}

void Interpreter::setGlobal(const std::string& name, Value value) {
  globals_[globalSlot(lowerCase(name))] = std::move(value);
}

moa::MoaError Interpreter::callHandler(const std::string& name, const std::vector<Value>& args,
                                       Value& result) {
  try {
    // After a call-back failed, the script stops as soon as the host returns; until then every
    // further call-back fails at once.
    if (pending_) return moa::kMoaMmErr_InternalError;
    std::string lower = lowerCase(name);
    const Builtin* b = findBuiltin(lower);
    const Handler* h = b ? nullptr : findHandler(lower);
    if (!h && !b) return moa::kMoaDrErr_HandlerNotDefined;
    Entry entry(*this);
    try {
      size_t base = stack_.size();
      for (const Value& v : args) stack_.push_back(v);
      result = h ? invokeHandler(*h, base, args.size()) : invokeBuiltin(*b, base, args.size());
      return moa::kMoaErr_NoErr;
    } catch (ScriptError& e) {
      if (e.line() == 0) e.setLine(line_);
      locate(e);
      if (entry.nested) {
        pending_ = std::move(e);
      } else {
        reportError(e);
      }
    } catch (const std::exception& x) {
      ScriptError e(dynamic_cast<const std::bad_alloc*>(&x) ? "Out of memory" : x.what(), line_);
      locate(e);
      if (entry.nested) {
        pending_ = std::move(e);
      } else {
        reportError(e);
      }
    }
    return moa::kMoaMmErr_InternalError;
  } catch (...) {
    return moa::kMoaMmErr_InternalError;
  }
}

// ---- Lists ----------------------------------------------------------------------------------

namespace {
template <class T>
void track(std::vector<std::weak_ptr<T>>& tracked, const std::shared_ptr<T>& p, size_t& threshold) {
  tracked.push_back(p);
  if (tracked.size() >= threshold) {
    tracked.erase(std::remove_if(tracked.begin(), tracked.end(),
                                 [](const std::weak_ptr<T>& w) { return w.expired(); }),
                  tracked.end());
    threshold = std::max<size_t>(1024, tracked.size() * 2);
  }
}
}  // namespace

Value Interpreter::newList(std::vector<Value> items) {
  auto p = std::make_shared<host::List>(host::List{std::move(items)});
  track(lists_, p, trackThreshold_);
  return Value(std::move(p));
}

Value Interpreter::newPropList(std::vector<std::pair<Value, Value>> items) {
  auto p = std::make_shared<host::PropList>(host::PropList{std::move(items)});
  track(propLists_, p, trackThreshold_);
  return Value(std::move(p));
}

void Interpreter::trackResult(const Value& v) {
  if (v.isList()) track(lists_, v.listPtr(), trackThreshold_);
  if (v.isPropList()) track(propLists_, v.propListPtr(), trackThreshold_);
}

// Frees lists that hold themselves, directly or through others, and that nothing outside the
// interpreter holds: the items of every tracked list count as references from inside; a list
// with more references than those is held from outside, and so is everything it holds.
void Interpreter::collectCycles() {
  globals_.clear();
  stack_.clear();
  retval_ = Value();
  pending_.reset();
  std::vector<std::shared_ptr<void>> keep;  // keeps every node alive while it is examined
  std::unordered_map<const void*, size_t> index;
  std::vector<long> refs;
  std::vector<host::List*> lists;
  std::vector<host::PropList*> props;
  for (auto& w : lists_) {
    if (auto p = w.lock(); p && index.emplace(p.get(), refs.size()).second) {
      refs.push_back(p.use_count() - 1);
      lists.push_back(p.get());
      props.push_back(nullptr);
      keep.push_back(std::move(p));
    }
  }
  for (auto& w : propLists_) {
    if (auto p = w.lock(); p && index.emplace(p.get(), refs.size()).second) {
      refs.push_back(p.use_count() - 1);
      lists.push_back(nullptr);
      props.push_back(p.get());
      keep.push_back(std::move(p));
    }
  }
  auto forEachChild = [&](size_t i, auto&& fn) {
    auto visit = [&](const Value& v) {
      const void* key = v.isList() ? static_cast<const void*>(v.listPtr().get())
                        : v.isPropList() ? static_cast<const void*>(v.propListPtr().get())
                                         : nullptr;
      if (!key) return;
      auto it = index.find(key);
      if (it != index.end()) fn(it->second);
    };
    if (lists[i]) {
      for (const Value& v : lists[i]->items) visit(v);
    } else {
      for (const auto& kv : props[i]->items) {
        visit(kv.first);
        visit(kv.second);
      }
    }
  };
  for (size_t i = 0; i < refs.size(); ++i) forEachChild(i, [&](size_t c) { --refs[c]; });
  std::vector<char> reachable(refs.size(), 0);
  std::vector<size_t> work;
  for (size_t i = 0; i < refs.size(); ++i) {
    if (refs[i] > 0) {
      reachable[i] = 1;
      work.push_back(i);
    }
  }
  while (!work.empty()) {
    size_t i = work.back();
    work.pop_back();
    forEachChild(i, [&](size_t c) {
      if (!reachable[c]) {
        reachable[c] = 1;
        work.push_back(c);
      }
    });
  }
  for (size_t i = 0; i < refs.size(); ++i) {
    if (reachable[i]) continue;
    if (lists[i]) lists[i]->items.clear();
    if (props[i]) props[i]->items.clear();
  }
  lists_.clear();
  propLists_.clear();
}

void Interpreter::print(const std::string& line) {
  if (output_) output_(line);
}

void Interpreter::reportError(const ScriptError& e) {
  Outcome o;
  o.line = e.line();
  o.source = e.source();
  o.handler = e.handler();
  o.message = e.message();
  if (errorOutput_) errorOutput_(o.errorText());
}

}  // namespace tessel::lingo
