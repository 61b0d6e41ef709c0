// The interpreter's expressions: evaluation, calls, variables, operators, list indexing, and
// the conversions that fail with a script error.
#include <algorithm>
#include <limits>

#include "host/lingo/builtins.h"
#include "host/lingo/chunks.h"
#include "host/lingo/interpreter.h"
#include "host/lingo/parser.h"
#include "host/lingo/values.h"

namespace tessel::lingo {

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
    case ExprKind::Property: return property(e);
    case ExprKind::ScriptRef:
      fail("A script reference can only be given to new(), as in new(script \"Name\")");
    case ExprKind::Chunk: return evalChunk(e);
    case ExprKind::ChunkCount: return evalChunkCount(e);
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
  if (arg.kind == ExprKind::ScriptRef && call.name == "new") return eval(*arg.kids[0]);
  return eval(arg);
}

Value Interpreter::evalCall(Expr& e) {
  if (e.cache.generation != generation_) resolveCall(e);
  size_t base = stack_.size();
  if (!scripts_.empty() && !e.kids.empty() && e.cache.kind != kBuiltin) {
    // An object given first answers with its own handler of that name, if it has one.
    Value first = evalArg(e, *e.kids[0]);
    stack_.push_back(std::move(first));
    if (const Handler* method = methodOf(stack_[base], e.name)) {
      for (size_t i = 1; i < e.kids.size(); ++i) {
        Value v = evalArg(e, *e.kids[i]);
        stack_.push_back(std::move(v));
      }
      return invokeHandler(*method, base, e.kids.size());
    }
    return callResolved(e, base, 1);
  }
  return callResolved(e, base, 0);
}

// Evaluates the arguments after the first `evaluated` (which are on the stack from `base`) and
// calls what the name resolved to.
Value Interpreter::callResolved(Expr& e, size_t base, size_t evaluated) {
  switch (e.cache.kind) {
    case kHandler:
    case kBuiltin: {
      for (size_t i = evaluated; i < e.kids.size(); ++i) {
        Value v = evalArg(e, *e.kids[i]);
        stack_.push_back(std::move(v));
      }
      if (e.cache.kind == kHandler)
        return invokeHandler(*static_cast<const Handler*>(e.cache.target), base, e.kids.size());
      return invokeBuiltin(*static_cast<const Builtin*>(e.cache.target), base, e.kids.size());
    }
    case kExternal: {
      std::vector<Value> args;
      args.reserve(e.kids.size());
      for (size_t i = base; i < base + evaluated; ++i) args.push_back(std::move(stack_[i]));
      stack_.resize(base);
      for (size_t i = evaluated; i < e.kids.size(); ++i) args.push_back(evalArg(e, *e.kids[i]));
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
    case ExprKind::The: setProperty(target, v); return;
    case ExprKind::Property: property(target) = std::move(v); return;
    case ExprKind::Chunk: writeChunk(target, v, PutMode::Into); return;
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

// A date plus or minus days is a date; a date minus a date is the days between them.
Value Interpreter::dateArith(Op op, const Value& a, const Value& b) {
  auto isList = [](const Value& v) { return v.isList() || (v.isPropList() && !isDate(v)); };
  Value r;
  if (op == Op::Sub && isDate(a) && isDate(b)) {
    int64_t d = daysOf(a) - daysOf(b);
    return Value(static_cast<int32_t>(std::clamp<int64_t>(d, INT32_MIN, INT32_MAX)));
  }
  if ((op == Op::Add || op == Op::Sub) && isDate(a) && !isList(b) && !isDate(b)) {
    int64_t n = toInt(b, "date arithmetic");
    r = makeDate(daysOf(a) + (op == Op::Add ? n : -n));
  } else if (op == Op::Add && isDate(b) && !isList(a)) {
    r = makeDate(daysOf(b) + toInt(a, "date arithmetic"));
  } else {
    fail("Only days can be added to or taken from a date");
  }
  trackResult(r);
  return r;
}

// Arithmetic with lists works item by item and makes a new list.
Value Interpreter::listArith(Op op, const Value& a, const Value& b) {
  bool la = a.isList() || a.isPropList();
  bool lb = b.isList() || b.isPropList();
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

Value Interpreter::arith(Op op, const Value& a, const Value& b) {
  if (isDate(a) || isDate(b)) return dateArith(op, a, b);
  if (a.isList() || a.isPropList() || b.isList() || b.isPropList()) return listArith(op, a, b);
  Value x = toNumber(a);
  Value y = toNumber(b);
  if (op == Op::Mod || (x.isInteger() && y.isInteger())) {
    int32_t ix = 0, iy = 0;
    if (x.isInteger()) ix = x.integer();
    else if (!roundToInt32(x.real(), ix)) fail("Integer expected for mod, found " + describeValue(x));
    if (y.isInteger()) iy = y.integer();
    else if (!roundToInt32(y.real(), iy)) fail("Integer expected for mod, found " + describeValue(y));
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
    Span span = findChunk(s, ChunkType::Char, i, i, itemDelimiter_);
    if (!span.found)
      fail("Index out of range: " + std::to_string(i) + " (the string has " +
           std::to_string(countChars(s)) + " characters)");
    return Value(s.substr(span.begin, span.end - span.begin));
  }
  fail("List expected, found " + describeValue(base));
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
    base.listPtr()->sorted = false;
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
  fail("List expected, found " + describeValue(base));
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
  fail("Integer expected, found " + describeValue(v));
}

Value Interpreter::toNumber(const Value& v) const {
  if (v.isInteger() || v.isFloat()) return v;
  if (v.isVoid()) return Value(int32_t{0});
  if (v.isString()) {
    Value n;
    if (parseNumber(v.string(), n)) return n;
  }
  fail("Number expected, found " + describeValue(v));
}

int32_t Interpreter::toInt(const Value& v, const char* what) const {
  if (v.isInteger()) return v.integer();
  Value n = v;
  if (v.isString() && !parseNumber(v.string(), n)) n = Value();
  int32_t out = 0;
  if (n.isInteger()) return n.integer();
  if (n.isFloat() && roundToInt32(n.real(), out)) return out;
  fail(std::string("Integer expected for ") + what + ", found " + describeValue(v));
}

std::string Interpreter::textOf(const Value& v) const {
  return lingo::plainText(v, limits_.maxTextBytes, floatPrecision_);
}

std::string Interpreter::literalOf(const Value& v) const {
  return lingo::literalText(v, limits_.maxTextBytes, floatPrecision_);
}

void Interpreter::checkText(size_t bytes) const {
  if (bytes > limits_.maxTextBytes) fail("Text too long");
}

void Interpreter::checkItems(size_t count) const {
  if (count > limits_.maxListItems) fail("List too long");
}

}  // namespace tessel::lingo
