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

// A short description of a value for error messages.
std::string describe(const Value& v) {
  std::string s;
  try {
    s = literalText(v, 80);
  } catch (const ScriptError&) {
    s = std::string("a ") + ilkName(v);
  }
  return s;
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
    in_.depth_ = depth_;
  }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

  Interpreter& in_;
  const bool nested;
  size_t stackSize_;
  size_t fp_;
  int line_;
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

// ---- Entry points ---------------------------------------------------------------------------

template <class Body>
Outcome Interpreter::guarded(Body&& body) {
  Outcome out;
  Entry entry(*this);
  try {
    out.value = body();
  } catch (const ScriptError& e) {
    out.ok = false;
    out.line = e.line() != 0 ? e.line() : line_;
    out.message = e.message();
  } catch (const std::bad_alloc&) {
    out.ok = false;
    out.line = line_;
    out.message = "Out of memory";
  } catch (const std::exception& e) {
    out.ok = false;
    out.line = line_;
    out.message = e.what();
  }
  if (!entry.nested) pending_.reset();
  if (!out.ok) out.value = Value();
  return out;
}

Outcome Interpreter::run(std::string_view source, int firstLine) {
  ParseResult parsed = parseScript(source, firstLine);
  if (!parsed.program) {
    Outcome o;
    o.ok = false;
    o.line = parsed.line;
    o.message = parsed.error;
    return o;
  }
  Program* prog = parsed.program.get();
  for (auto& h : prog->handlers) handlers_[h->name] = h.get();
  if (!prog->handlers.empty()) ++generation_;
  programs_.push_back(std::move(parsed.program));
  Outcome o = guarded([&] {
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
      if (entry.nested) {
        pending_ = std::move(e);
      } else {
        reportError(e);
      }
    } catch (const std::bad_alloc&) {
      ScriptError e("Out of memory", line_);
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

// ---- Execution ------------------------------------------------------------------------------

void Interpreter::fail(const std::string& message) const { throw ScriptError(message, line_); }

void Interpreter::tick() {
  ++steps_;
  if (limits_.maxSteps != 0 && steps_ > limits_.maxSteps) fail("Step limit reached");
  if (interrupt_ != nullptr && *interrupt_ != 0) fail("Interrupted");
}

void Interpreter::checkStack() const {
  if (frameAddress() < stackLimit_) fail("Stack overflow");
}

const Handler* Interpreter::findHandler(const std::string& lowerName) const {
  auto it = handlers_.find(lowerName);
  return it == handlers_.end() ? nullptr : it->second;
}

Interpreter::Flow Interpreter::execBlock(Block& block) {
  for (auto& s : block) {
    Flow f = exec(*s);
    if (f != Flow::Normal) return f;
  }
  return Flow::Normal;
}

Interpreter::Flow Interpreter::exec(Stmt& s) {
  line_ = s.line;
  tick();
  switch (s.kind) {
    case StmtKind::Expr:
      eval(*s.exprs[0]);
      return Flow::Normal;
    case StmtKind::Assign: {
      Value v = eval(*s.exprs[0]);
      assign(*s.target, std::move(v));
      return Flow::Normal;
    }
    case StmtKind::Put: {
      std::string out = "-- ";
      for (size_t i = 0; i < s.exprs.size(); ++i) {
        Value v = eval(*s.exprs[i]);
        if (i) out += ' ';
        out += literalOf(v);
        checkText(out.size());
      }
      // The message window shows a RETURN inside a string as a line break.
      std::replace(out.begin(), out.end(), '\r', '\n');
      print(out);
      return Flow::Normal;
    }
    case StmtKind::PutInto: {
      Value v = eval(*s.exprs[0]);
      if (s.mode == 0) {
        assign(*s.target, std::move(v));
        return Flow::Normal;
      }
      std::string cur = textOf(readTarget(*s.target));
      std::string add = textOf(v);
      checkText(cur.size() + add.size());
      assign(*s.target, Value(s.mode == 1 ? cur + add : add + cur));
      return Flow::Normal;
    }
    case StmtKind::If: {
      for (size_t i = 0; i < s.exprs.size(); ++i) {
        if (truthy(eval(*s.exprs[i]))) return execBlock(s.blocks[i]);
      }
      if (s.blocks.size() > s.exprs.size()) return execBlock(s.blocks.back());
      return Flow::Normal;
    }
    case StmtKind::RepeatWhile: {
      for (;;) {
        if (!truthy(eval(*s.exprs[0]))) break;
        Flow f = execBlock(s.blocks[0]);
        if (f == Flow::ExitRepeat) break;
        if (f == Flow::Return) return f;
        tick();
      }
      return Flow::Normal;
    }
    case StmtKind::RepeatTo: return repeatTo(s);
    case StmtKind::RepeatIn: return repeatIn(s);
    case StmtKind::ExitRepeat: return Flow::ExitRepeat;
    case StmtKind::NextRepeat: return Flow::NextRepeat;
    case StmtKind::Return:
      retval_ = s.exprs.empty() ? Value() : eval(*s.exprs[0]);
      return Flow::Return;
    case StmtKind::Exit:
      retval_ = Value();
      return Flow::Return;
    case StmtKind::Case: {
      Value subject = eval(*s.exprs[0]);
      for (size_t i = 0; i < s.labels.size(); ++i) {
        for (auto& label : s.labels[i]) {
          size_t budget = compareBudget();
          if (lingoEquals(subject, eval(*label), budget)) return execBlock(s.blocks[i]);
        }
      }
      if (s.mode == 1) return execBlock(s.blocks.back());
      return Flow::Normal;
    }
    case StmtKind::Global:
      for (const auto& n : s.names) globalSlot(n);
      return Flow::Normal;
  }
  return Flow::Normal;
}

Interpreter::Flow Interpreter::repeatTo(Stmt& s) {
  bool down = s.mode == 1;
  assign(*s.target, Value(toInt(eval(*s.exprs[0]), "repeat")));
  for (;;) {
    int32_t i = toInt(readTarget(*s.target), "repeat");
    int32_t last = toInt(eval(*s.exprs[1]), "repeat");
    if (down ? i < last : i > last) break;
    Flow f = execBlock(s.blocks[0]);
    if (f == Flow::ExitRepeat) break;
    if (f == Flow::Return) return f;
    tick();
    // The body may change the loop variable; counting goes on from its current value.
    i = toInt(readTarget(*s.target), "repeat");
    if (down ? i == std::numeric_limits<int32_t>::min() : i == std::numeric_limits<int32_t>::max())
      break;
    assign(*s.target, Value(down ? i - 1 : i + 1));
  }
  return Flow::Normal;
}

Interpreter::Flow Interpreter::repeatIn(Stmt& s) {
  Value list = eval(*s.exprs[0]);
  if (!list.isList() && !list.isPropList())
    fail("List expected in 'repeat with ... in', found " + describe(list));
  for (size_t i = 0;; ++i) {
    Value item;
    if (list.isList()) {
      const auto& items = list.listPtr()->items;
      if (i >= items.size()) break;
      item = items[i];
    } else {
      const auto& items = list.propListPtr()->items;
      if (i >= items.size()) break;
      item = items[i].second;
    }
    assign(*s.target, std::move(item));
    Flow f = execBlock(s.blocks[0]);
    if (f == Flow::ExitRepeat) break;
    if (f == Flow::Return) return f;
    tick();
  }
  return Flow::Normal;
}

Value Interpreter::invokeHandler(const Handler& h, size_t base, size_t nargs) {
  if (depth_ >= limits_.maxCallDepth) fail("Stack overflow");
  checkStack();
  tick();
  size_t kept = std::min(nargs, static_cast<size_t>(h.params));
  stack_.resize(base + kept);
  stack_.resize(base + static_cast<size_t>(h.locals));
  size_t savedFp = fp_;
  int savedLine = line_;
  fp_ = base;
  ++depth_;
  Flow f = execBlock(const_cast<Block&>(h.body));
  --depth_;
  Value result;
  if (f == Flow::Return) result = std::move(retval_);
  retval_ = Value();
  fp_ = savedFp;
  line_ = savedLine;
  stack_.resize(base);
  return result;
}

Value Interpreter::invokeBuiltin(const Builtin& b, size_t base, size_t nargs) {
  if (static_cast<int>(nargs) < b.minArgs || (b.maxArgs >= 0 && static_cast<int>(nargs) > b.maxArgs))
    fail(std::string("Wrong number of arguments for ") + b.name);
  Value r = b.fn(*this, stack_.data() + base, nargs);
  stack_.resize(base);
  return r;
}

// ---- Expressions ----------------------------------------------------------------------------

Value Interpreter::eval(Expr& e) {
  checkStack();
  switch (e.kind) {
    case ExprKind::Literal: return e.value;
    case ExprKind::List: {
      std::vector<Value> items;
      items.reserve(e.kids.size());
      for (auto& k : e.kids) items.push_back(eval(*k));
      return newList(std::move(items));
    }
    case ExprKind::PropList: {
      std::vector<std::pair<Value, Value>> items;
      items.reserve(e.kids.size() / 2);
      for (size_t i = 0; i + 1 < e.kids.size(); i += 2) {
        Value k = eval(*e.kids[i]);
        Value v = eval(*e.kids[i + 1]);
        items.emplace_back(std::move(k), std::move(v));
      }
      return newPropList(std::move(items));
    }
    case ExprKind::Local: return stack_[fp_ + static_cast<size_t>(e.slot)];
    case ExprKind::Global: return readGlobal(e);
    case ExprKind::Name:
    case ExprKind::Call: return evalCall(e);
    case ExprKind::Unary: return unaryOp(e.op, eval(*e.kids[0]));
    case ExprKind::Binary: {
      if (e.op == Op::And) {
        if (!truthy(eval(*e.kids[0]))) return Value(int32_t{0});
        return Value(int32_t{truthy(eval(*e.kids[1])) ? 1 : 0});
      }
      if (e.op == Op::Or) {
        if (truthy(eval(*e.kids[0]))) return Value(int32_t{1});
        return Value(int32_t{truthy(eval(*e.kids[1])) ? 1 : 0});
      }
      Value a = eval(*e.kids[0]);
      Value b = eval(*e.kids[1]);
      if (a.isInteger() && b.isInteger()) {
        int32_t x = a.integer(), y = b.integer();
        auto ux = static_cast<uint32_t>(x), uy = static_cast<uint32_t>(y);
        switch (e.op) {
          case Op::Add: return Value(static_cast<int32_t>(ux + uy));
          case Op::Sub: return Value(static_cast<int32_t>(ux - uy));
          case Op::Mul: return Value(static_cast<int32_t>(ux * uy));
          case Op::Eq: return Value(int32_t{x == y});
          case Op::Ne: return Value(int32_t{x != y});
          case Op::Lt: return Value(int32_t{x < y});
          case Op::Gt: return Value(int32_t{x > y});
          case Op::Le: return Value(int32_t{x <= y});
          case Op::Ge: return Value(int32_t{x >= y});
          default: break;
        }
      }
      return binaryOp(e.op, a, b);
    }
    case ExprKind::Index: {
      Value base = eval(*e.kids[0]);
      Value index = eval(*e.kids[1]);
      return indexGet(base, index);
    }
    case ExprKind::Dot: return dotGet(eval(*e.kids[0]), e);
    case ExprKind::The: return theProperty(e);
    case ExprKind::XtraRef:
      fail("An Xtra reference can only be given to interface(), as in interface(xtra \"Name\")");
  }
  return Value();
}

void Interpreter::resolveCall(Expr& e) {
  e.cache.generation = generation_;
  e.cache.target = nullptr;
  e.cache.external = -1;
  if (const Builtin* b = findBuiltin(e.name)) {
    e.cache.kind = kBuiltin;
    e.cache.target = b;
  } else if (const Handler* h = findHandler(e.name)) {
    e.cache.kind = kHandler;
    e.cache.target = h;
  } else if (int id = externals_ ? externals_->lookup(e.spelling) : -1; id >= 0) {
    e.cache.kind = kExternal;
    e.cache.external = id;
  } else {
    e.cache.kind = kNone;
  }
}

Value Interpreter::evalArg(Expr& call, Expr& arg) {
  if (arg.kind == ExprKind::XtraRef && call.name == "interface") return eval(*arg.kids[0]);
  return eval(arg);
}

Value Interpreter::evalCall(Expr& e) {
  if (e.cache.generation != generation_) resolveCall(e);
  switch (e.cache.kind) {
    case kHandler:
    case kBuiltin: {
      size_t base = stack_.size();
      for (auto& k : e.kids) {
        Value v = evalArg(e, *k);
        stack_.push_back(std::move(v));
      }
      if (e.cache.kind == kHandler)
        return invokeHandler(*static_cast<const Handler*>(e.cache.target), base, e.kids.size());
      return invokeBuiltin(*static_cast<const Builtin*>(e.cache.target), base, e.kids.size());
    }
    case kExternal: {
      std::vector<Value> args;
      args.reserve(e.kids.size());
      for (auto& k : e.kids) args.push_back(evalArg(e, *k));
      Value result;
      std::string error;
      bool ok = externals_->call(e.cache.external, args, result, error);
      if (pending_) {
        // A handler that the Xtra called back failed: the script stops here, as it would have
        // stopped inside that handler.
        ScriptError err = std::move(*pending_);
        pending_.reset();
        throw err;
      }
      if (!ok) fail(error.empty() ? "Call of " + e.spelling + " failed" : error);
      trackResult(result);
      return result;
    }
    default:
      if (e.kind == ExprKind::Name) fail("Variable used before assigned a value: " + e.spelling);
      fail("Handler not defined: " + e.spelling);
  }
}

size_t Interpreter::globalSlot(const std::string& lowerName) {
  auto [it, inserted] = globalIndex_.try_emplace(lowerName, globals_.size());
  if (inserted) globals_.emplace_back();
  return it->second;
}

Value Interpreter::readGlobal(Expr& e) {
  if (e.slot < 0) {
    auto it = globalIndex_.find(e.name);
    if (it != globalIndex_.end()) e.slot = static_cast<int>(it->second);
  }
  if (e.slot >= 0) return globals_[static_cast<size_t>(e.slot)];
  if (e.callIfUnset) {
    if (e.cache.generation != generation_) resolveCall(e);
    if (e.cache.kind != kNone) return evalCall(e);
  }
  return Value();
}

void Interpreter::assign(Expr& target, Value v) {
  switch (target.kind) {
    case ExprKind::Local:
      stack_[fp_ + static_cast<size_t>(target.slot)] = std::move(v);
      return;
    case ExprKind::Global:
      if (target.slot < 0) target.slot = static_cast<int>(globalSlot(target.name));
      globals_[static_cast<size_t>(target.slot)] = std::move(v);
      return;
    case ExprKind::Index: {
      Value base = eval(*target.kids[0]);
      Value index = eval(*target.kids[1]);
      indexSet(base, index, std::move(v));
      return;
    }
    case ExprKind::Dot: {
      Value base = eval(*target.kids[0]);
      if (!base.isPropList()) fail("Property list expected before ." + target.spelling);
      auto& items = base.propListPtr()->items;
      for (auto& kv : items) {
        if (kv.first.isSymbol() && equalNoCase(kv.first.sym().name, target.name)) {
          kv.second = std::move(v);
          return;
        }
      }
      checkItems(items.size() + 1);
      items.emplace_back(Value::symbol(target.spelling), std::move(v));
      return;
    }
    default: fail("Can't assign to this expression");
  }
}

Value Interpreter::readTarget(Expr& target) {
  switch (target.kind) {
    case ExprKind::Local: return stack_[fp_ + static_cast<size_t>(target.slot)];
    case ExprKind::Global: {
      if (target.slot < 0) {
        auto it = globalIndex_.find(target.name);
        if (it == globalIndex_.end()) return Value();
        target.slot = static_cast<int>(it->second);
      }
      return globals_[static_cast<size_t>(target.slot)];
    }
    default: return eval(target);
  }
}

Value Interpreter::unaryOp(Op op, const Value& v) {
  if (op == Op::Not) return Value(int32_t{truthy(v) ? 0 : 1});
  if (v.isList() || v.isPropList()) return arith(Op::Sub, Value(int32_t{0}), v);
  Value n = toNumber(v);
  if (n.isInteger()) return Value(static_cast<int32_t>(0u - static_cast<uint32_t>(n.integer())));
  return Value(-n.real());
}

Value Interpreter::binaryOp(Op op, const Value& a, const Value& b) {
  switch (op) {
    case Op::Add:
    case Op::Sub:
    case Op::Mul:
    case Op::Div:
    case Op::Mod: return arith(op, a, b);
    case Op::Concat:
    case Op::ConcatSpace: {
      std::string s = textOf(a);
      std::string t = textOf(b);
      size_t n = s.size() + t.size() + (op == Op::ConcatSpace ? 1 : 0);
      checkText(n);
      s.reserve(n);
      if (op == Op::ConcatSpace) s += ' ';
      s += t;
      return Value(std::move(s));
    }
    case Op::Eq:
    case Op::Ne: {
      size_t budget = compareBudget();
      bool eq = lingoEquals(a, b, budget);
      return Value(int32_t{eq == (op == Op::Eq) ? 1 : 0});
    }
    case Op::Lt:
    case Op::Gt:
    case Op::Le:
    case Op::Ge: {
      int c = lingoCompare(a, b);
      bool r = false;
      if (op == Op::Lt) r = c == -1;
      if (op == Op::Gt) r = c == 1;
      if (op == Op::Le) r = c == -1 || c == 0;
      if (op == Op::Ge) r = c == 1 || c == 0;
      return Value(int32_t{r ? 1 : 0});
    }
    case Op::Contains:
      return Value(int32_t{findNoCase(textOf(a), textOf(b)) != std::string_view::npos ? 1 : 0});
    case Op::Starts: {
      std::string s = textOf(a);
      std::string p = textOf(b);
      bool r = s.size() >= p.size() && equalNoCase(std::string_view(s).substr(0, p.size()), p);
      return Value(int32_t{r ? 1 : 0});
    }
    default: fail("Bad operator");
  }
}

Value Interpreter::arith(Op op, const Value& a, const Value& b) {
  bool la = a.isList() || a.isPropList();
  bool lb = b.isList() || b.isPropList();
  if (la || lb) {
    // Arithmetic with lists works item by item and makes a new list.
    checkStack();
    tick();
    if (a.isList() && b.isList()) {
      const auto& x = a.listPtr()->items;
      const auto& y = b.listPtr()->items;
      size_t n = std::min(x.size(), y.size());
      std::vector<Value> out;
      out.reserve(n);
      for (size_t i = 0; i < n; ++i) out.push_back(arith(op, x[i], y[i]));
      return newList(std::move(out));
    }
    if (a.isList() && !lb) {
      std::vector<Value> out;
      for (const Value& item : a.listPtr()->items) out.push_back(arith(op, item, b));
      return newList(std::move(out));
    }
    if (b.isList() && !la) {
      std::vector<Value> out;
      for (const Value& item : b.listPtr()->items) out.push_back(arith(op, a, item));
      return newList(std::move(out));
    }
    if (a.isPropList() && !lb) {
      std::vector<std::pair<Value, Value>> out;
      for (const auto& kv : a.propListPtr()->items) out.emplace_back(kv.first, arith(op, kv.second, b));
      return newPropList(std::move(out));
    }
    if (b.isPropList() && !la) {
      std::vector<std::pair<Value, Value>> out;
      for (const auto& kv : b.propListPtr()->items) out.emplace_back(kv.first, arith(op, a, kv.second));
      return newPropList(std::move(out));
    }
    if (a.isPropList() && b.isPropList()) {
      const auto& x = a.propListPtr()->items;
      const auto& y = b.propListPtr()->items;
      size_t n = std::min(x.size(), y.size());
      std::vector<std::pair<Value, Value>> out;
      for (size_t i = 0; i < n; ++i) out.emplace_back(x[i].first, arith(op, x[i].second, y[i].second));
      return newPropList(std::move(out));
    }
    fail("Can't do arithmetic with a list and a property list");
  }
  Value x = toNumber(a);
  Value y = toNumber(b);
  if (op == Op::Mod || (x.isInteger() && y.isInteger())) {
    int32_t ix = 0, iy = 0;
    if (x.isInteger()) ix = x.integer();
    else if (!roundToInt32(x.real(), ix)) fail("Integer expected for mod, found " + describe(x));
    if (y.isInteger()) iy = y.integer();
    else if (!roundToInt32(y.real(), iy)) fail("Integer expected for mod, found " + describe(y));
    auto ux = static_cast<uint32_t>(ix), uy = static_cast<uint32_t>(iy);
    switch (op) {
      case Op::Add: return Value(static_cast<int32_t>(ux + uy));
      case Op::Sub: return Value(static_cast<int32_t>(ux - uy));
      case Op::Mul: return Value(static_cast<int32_t>(ux * uy));
      case Op::Div:
        if (iy == 0) fail("Division by zero");
        if (iy == -1) return Value(static_cast<int32_t>(0u - ux));
        return Value(ix / iy);
      case Op::Mod:
        if (iy == 0) fail("Division by zero");
        if (iy == -1) return Value(int32_t{0});
        return Value(ix % iy);
      default: break;
    }
  }
  double dx = x.isInteger() ? x.integer() : x.real();
  double dy = y.isInteger() ? y.integer() : y.real();
  switch (op) {
    case Op::Add: return Value(dx + dy);
    case Op::Sub: return Value(dx - dy);
    case Op::Mul: return Value(dx * dy);
    case Op::Div:
      if (dy == 0.0) fail("Division by zero");
      return Value(dx / dy);
    default: fail("Bad operator");
  }
}

Value Interpreter::indexGet(const Value& base, const Value& index) {
  if (base.isList()) {
    const auto& items = base.listPtr()->items;
    int32_t i = toInt(index, "list index");
    if (i < 1 || static_cast<size_t>(i) > items.size())
      fail("Index out of range: " + std::to_string(i) + " (the list has " +
           std::to_string(items.size()) + " items)");
    return items[static_cast<size_t>(i) - 1];
  }
  if (base.isPropList()) {
    const auto& items = base.propListPtr()->items;
    if (index.isInteger() || index.isFloat()) {
      int32_t i = toInt(index, "list index");
      if (i < 1 || static_cast<size_t>(i) > items.size())
        fail("Index out of range: " + std::to_string(i) + " (the list has " +
             std::to_string(items.size()) + " items)");
      return items[static_cast<size_t>(i) - 1].second;
    }
    for (const auto& kv : items) {
      if (samePropName(kv.first, index)) return kv.second;
    }
    return Value();
  }
  if (base.isString()) {
    const std::string& s = base.string();
    int32_t i = toInt(index, "character index");
    if (i < 1 || static_cast<size_t>(i) > s.size())
      fail("Index out of range: " + std::to_string(i) + " (the string has " +
           std::to_string(s.size()) + " characters)");
    return Value(std::string(1, s[static_cast<size_t>(i) - 1]));
  }
  fail("List expected, found " + describe(base));
}

void Interpreter::indexSet(const Value& base, const Value& index, Value v) {
  if (base.isList()) {
    auto& items = base.listPtr()->items;
    int32_t i = toInt(index, "list index");
    if (i < 1) fail("Index out of range: " + std::to_string(i));
    auto n = static_cast<size_t>(i);
    if (n > items.size()) {
      // Setting past the end pads the list with zeros, as Lingo does.
      checkItems(n);
      items.resize(n, Value(int32_t{0}));
    }
    items[n - 1] = std::move(v);
    return;
  }
  if (base.isPropList()) {
    auto& items = base.propListPtr()->items;
    if (index.isInteger() || index.isFloat()) {
      int32_t i = toInt(index, "list index");
      if (i < 1 || static_cast<size_t>(i) > items.size())
        fail("Index out of range: " + std::to_string(i) + " (the list has " +
             std::to_string(items.size()) + " items)");
      items[static_cast<size_t>(i) - 1].second = std::move(v);
      return;
    }
    for (auto& kv : items) {
      if (samePropName(kv.first, index)) {
        kv.second = std::move(v);
        return;
      }
    }
    checkItems(items.size() + 1);
    items.emplace_back(index, std::move(v));
    return;
  }
  fail("List expected, found " + describe(base));
}

Value Interpreter::dotGet(const Value& base, Expr& e) {
  if (base.isPropList()) {
    for (const auto& kv : base.propListPtr()->items) {
      if (kv.first.isSymbol() && equalNoCase(kv.first.sym().name, e.name)) return kv.second;
    }
  }
  // x.count, s.length, x.ilk: a one-argument built-in applied to the value.
  const Builtin* b = findBuiltin(e.name);
  if (b && b->minArgs <= 1 && (b->maxArgs < 0 || b->maxArgs >= 1)) {
    size_t base0 = stack_.size();
    stack_.push_back(base);
    return invokeBuiltin(*b, base0, 1);
  }
  if (base.isPropList()) return Value();
  fail("Property not found: " + e.spelling);
}

Value Interpreter::theProperty(const Expr& e) {
  const std::string& n = e.name;
  if (n == "moviepath") return Value(env_.moviePath);
  if (n == "applicationpath") return Value(env_.applicationPath);
  if (n == "platform") return Value(env_.platform);
  if (n == "runmode") return Value(env_.runMode);
  if (n == "milliseconds" || n == "ticks") {
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                  std::chrono::steady_clock::now().time_since_epoch())
                  .count();
    uint64_t t = n == "ticks" ? static_cast<uint64_t>(ms) * 60 / 1000 : static_cast<uint64_t>(ms);
    return Value(static_cast<int32_t>(static_cast<uint32_t>(t)));
  }
  if (n == "maxinteger") return Value(std::numeric_limits<int32_t>::max());
  if (n == "floatprecision") return Value(int32_t{4});
  fail("Unknown property: the " + e.spelling);
}

Value Interpreter::valueOf(const Value& v) {
  if (!v.isString()) return v;
  ExpressionParse parsed = parseExpression(v.string());
  if (!parsed.expr) return Value();
  return eval(*parsed.expr);
}

// ---- Conversions ----------------------------------------------------------------------------

bool Interpreter::truthy(const Value& v) const {
  if (v.isInteger()) return v.integer() != 0;
  if (v.isFloat()) return v.real() != 0.0;
  if (v.isVoid()) return false;
  if (v.isString()) {
    Value n;
    if (parseNumber(v.string(), n)) return truthy(n);
  }
  fail("Integer expected, found " + describe(v));
}

Value Interpreter::toNumber(const Value& v) const {
  if (v.isInteger() || v.isFloat()) return v;
  if (v.isVoid()) return Value(int32_t{0});
  if (v.isString()) {
    Value n;
    if (parseNumber(v.string(), n)) return n;
  }
  fail("Number expected, found " + describe(v));
}

int32_t Interpreter::toInt(const Value& v, const char* what) const {
  if (v.isInteger()) return v.integer();
  Value n = v;
  if (v.isString() && !parseNumber(v.string(), n)) n = Value();
  int32_t out = 0;
  if (n.isInteger()) return n.integer();
  if (n.isFloat() && roundToInt32(n.real(), out)) return out;
  fail(std::string("Integer expected for ") + what + ", found " + describe(v));
}

std::string Interpreter::textOf(const Value& v) const {
  return lingo::plainText(v, limits_.maxTextBytes);
}

std::string Interpreter::literalOf(const Value& v) const {
  return lingo::literalText(v, limits_.maxTextBytes);
}

void Interpreter::checkText(size_t bytes) const {
  if (bytes > limits_.maxTextBytes) fail("Text too long");
}

void Interpreter::checkItems(size_t count) const {
  if (count > limits_.maxListItems) fail("List too long");
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
  if (errorOutput_) errorOutput_(std::to_string(e.line()) + ": " + e.message());
}

}  // namespace tessel::lingo
