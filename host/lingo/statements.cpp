// The interpreter's statements: blocks, assignments, put, if, repeat, case, and handler calls.
#include <algorithm>
#include <limits>

#include "host/lingo/builtins.h"
#include "host/lingo/chunks.h"
#include "host/lingo/interpreter.h"
#include "host/lingo/values.h"

namespace tessel::lingo {

// ---- Execution ------------------------------------------------------------------------------

void Interpreter::fail(const std::string& message) const { throw ScriptError(message, line_); }

void Interpreter::tick() {
  ++steps_;
  if (limits_.maxSteps != 0 && steps_ > limits_.maxSteps) fail("Step limit reached");
  if (interrupt_ != nullptr && *interrupt_ != 0) fail("Interrupted");
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

// Runs one statement: one case per statement kind, kept in one switch so that every kind and
// the flow it answers are seen together; the larger statements call their own functions.
Interpreter::Flow Interpreter::exec(Stmt& s) {
  line_ = s.line;
  tick();
  switch (s.kind) {
    case StmtKind::Expr: {
      Value v = eval(*s.exprs[0]);
      // A handler or method used as a command leaves its answer in "the result".
      ExprKind k = s.exprs[0]->kind;
      if (k == ExprKind::Call || k == ExprKind::Name || k == ExprKind::Global) result_ = std::move(v);
      return Flow::Normal;
    }
    case StmtKind::Assign: {
      Value v = eval(*s.exprs[0]);
      assign(*s.target, std::move(v));
      return Flow::Normal;
    }
    case StmtKind::Delete: deleteChunk(*s.target); return Flow::Normal;
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
      // Bytes that are not UTF-8 (from a method's result) show as U+FFFD.
      print(displayText(out));
      return Flow::Normal;
    }
    case StmtKind::PutInto: {
      Value v = eval(*s.exprs[0]);
      if (s.target->kind == ExprKind::Chunk) {
        writeChunk(*s.target, v, static_cast<PutMode>(s.mode));
        return Flow::Normal;
      }
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
    fail("List expected in 'repeat with ... in', found " + describeValue(list));
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
  const Handler* savedHandler = handler_;
  const std::string* savedSource = source_;
  handler_ = &h;
  source_ = &h.source;
  fp_ = base;
  ++depth_;
  Flow f = execBlock(const_cast<Block&>(h.body));
  --depth_;
  Value result;
  if (f == Flow::Return) result = std::move(retval_);
  retval_ = Value();
  fp_ = savedFp;
  line_ = savedLine;
  handler_ = savedHandler;
  source_ = savedSource;
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

}  // namespace tessel::lingo
