#include "host/lingo/parser.h"

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "host/lingo/lexer.h"
#include "host/lingo/values.h"

namespace tessel::lingo {

namespace {

// Nesting limits: they keep the parser's recursion, and the interpreter's walk over the trees,
// within a small part of the stack whatever the input.
constexpr int kMaxNesting = 150;     // parser recursion: nested expressions and blocks
constexpr int kMaxExprHeight = 1000;  // height of one expression tree (long operator chains)

struct ParseError {
  int line;
  std::string message;
  bool atEnd;  // raised at the end of the text
};

// Names seen while parsing one handler, resolved when the handler is complete.
struct Scope {
  std::vector<std::string> params;
  std::unordered_set<std::string> globals;
  std::vector<std::string> assignedOrder;
  std::unordered_set<std::string> assigned;
  std::vector<Expr*> names;  // Name nodes to resolve
};

struct Constant {
  const char* name;
  Value value;
};

const std::vector<Constant>& constants() {
  static const std::vector<Constant> table = {
      {"true", Value(int32_t{1})},
      {"false", Value(int32_t{0})},
      {"void", Value()},
      {"empty", Value("")},
      {"quote", Value("\"")},
      {"tab", Value("\t")},
      {"space", Value(" ")},
      {"enter", Value("\x03")},
      {"backspace", Value("\x08")},
      {"pi", Value(3.14159265358979323846)},
  };
  return table;
}

class Parser {
 public:
  Parser(std::string_view source, int firstLine) : toks_(tokenize(source, firstLine)) {}

  ParseResult script() {
    ParseResult r;
    try {
      auto prog = std::make_unique<Program>();
      for (;;) {
        skipNewlines();
        if (peek().type == Tok::End) break;
        if (peek().type == Tok::On) {
          prog->handlers.push_back(handler());
          continue;
        }
        prog->statements.push_back(statement(false));
        endOfStatement();
      }
      r.program = std::move(prog);
    } catch (const ParseError& e) {
      r.line = e.line;
      r.error = e.message;
      r.incomplete = e.atEnd && open_ > 0;
    }
    return r;
  }

  ExpressionParse expressionOnly() {
    ExpressionParse r;
    try {
      skipNewlines();
      ExprPtr e = expr();
      skipNewlines();
      if (peek().type != Tok::End) fail("Unexpected " + describe(peek()));
      r.expr = std::move(e);
    } catch (const ParseError& e) {
      r.line = e.line;
      r.error = e.message;
    }
    return r;
  }

 private:
  // ---- Tokens ---------------------------------------------------------------------------------

  const Token& peek(size_t ahead = 0) const {
    size_t i = pos_ + ahead;
    return i < toks_.size() ? toks_[i] : toks_.back();
  }
  const Token& advance() {
    const Token& t = peek();
    if (pos_ + 1 < toks_.size()) ++pos_;
    return t;
  }
  // A word that is a keyword only in one place ("down to", "put ... into", "case ... of").
  bool isWord(const char* word) const {
    return peek().type == Tok::Ident && equalNoCase(peek().text, word);
  }
  bool acceptWord(const char* word) {
    if (!isWord(word)) return false;
    advance();
    return true;
  }
  bool accept(Tok t) {
    if (peek().type != t) return false;
    advance();
    return true;
  }
  const Token& expect(Tok t, const char* what) {
    if (peek().type != t) fail(std::string(what) + " expected, found " + describe(peek()));
    return advance();
  }

  static std::string describe(const Token& t) {
    switch (t.type) {
      case Tok::Ident: return "'" + t.text + "'";
      case Tok::Integer:
      case Tok::Float: return t.text;
      case Tok::String: return "\"" + t.text + "\"";
      case Tok::Symbol: return "#" + t.text;
      default: return tokenName(t.type);
    }
  }

  [[noreturn]] void fail(const std::string& message) const {
    const Token& t = peek();
    if (t.type == Tok::Bad) throw ParseError{t.line, t.text, false};
    throw ParseError{t.line, message, t.type == Tok::End};
  }

  void skipNewlines() {
    while (peek().type == Tok::Newline) advance();
  }
  bool atStatementEnd() const {
    Tok t = peek().type;
    return t == Tok::Newline || t == Tok::End || t == Tok::Else;
  }
  bool atLineEnd() const { return peek().type == Tok::Newline || peek().type == Tok::End; }
  void endOfStatement() {
    if (peek().type == Tok::End) return;
    if (peek().type != Tok::Newline) fail("Unexpected " + describe(peek()));
    advance();
  }
  // After "then", "else" or a repeat header: the line must end here.
  void endOfHeader() {
    if (peek().type == Tok::End) fail("Unexpected end of script");
    endOfStatement();
  }

  // ---- Backtracking ---------------------------------------------------------------------------

  struct Mark {
    size_t pos;
    size_t names;
    int depth;
  };
  Mark mark() const { return {pos_, scope_ ? scope_->names.size() : 0, depth_}; }
  void reset(const Mark& m) {
    pos_ = m.pos;
    if (scope_) scope_->names.resize(m.names);
    depth_ = m.depth;
  }

  struct Nest {
    explicit Nest(Parser& p) : p_(p) {
      if (p_.depth_ >= kMaxNesting) p_.fail("Script nested too deeply");
      ++p_.depth_;
    }
    ~Nest() { --p_.depth_; }
    Nest(const Nest&) = delete;
    Nest& operator=(const Nest&) = delete;
    Parser& p_;
  };

  // ---- Nodes ----------------------------------------------------------------------------------

  static ExprPtr node(ExprKind k, int line) {
    auto e = std::make_unique<Expr>();
    e->kind = k;
    e->line = line;
    return e;
  }
  ExprPtr finish(ExprPtr e) const {
    int h = 0;
    for (const auto& k : e->kids) h = std::max(h, k->height);
    e->height = h + 1;
    if (e->height > kMaxExprHeight) fail("Expression too complex");
    return e;
  }
  ExprPtr binary(Op op, ExprPtr l, ExprPtr r, int line) const {
    auto e = node(ExprKind::Binary, line);
    e->op = op;
    e->kids.push_back(std::move(l));
    e->kids.push_back(std::move(r));
    return finish(std::move(e));
  }
  ExprPtr nameNode(const Token& t) {
    auto e = node(ExprKind::Name, t.line);
    e->name = lowerCase(t.text);
    e->spelling = t.text;
    if (scope_) {
      scope_->names.push_back(e.get());
    } else {
      e->kind = ExprKind::Global;
      e->callIfUnset = true;
    }
    return e;
  }
  static StmtPtr stmt(StmtKind k, int line) {
    auto s = std::make_unique<Stmt>();
    s->kind = k;
    s->line = line;
    return s;
  }

  void assignedName(const Expr& target) {
    if (!scope_ || target.kind != ExprKind::Name) return;
    if (scope_->assigned.insert(target.name).second) scope_->assignedOrder.push_back(target.name);
  }
  // Only names, list items and properties can be assigned to.
  void checkTarget(const Expr& e) const {
    if (e.kind == ExprKind::Name || e.kind == ExprKind::Global || e.kind == ExprKind::Index ||
        e.kind == ExprKind::Dot)
      return;
    throw ParseError{e.line, "Can't assign to this expression", false};
  }

  // ---- Handlers -------------------------------------------------------------------------------

  std::unique_ptr<Handler> handler() {
    int line = advance().line;  // on
    const Token& nameTok = expect(Tok::Ident, "Handler name");
    auto h = std::make_unique<Handler>();
    h->name = lowerCase(nameTok.text);
    h->spelling = nameTok.text;
    h->line = line;
    Scope scope;
    bool parens = accept(Tok::LParen);
    if (!(parens && peek().type == Tok::RParen) && !atLineEnd()) {
      for (;;) {
        const Token& p = expect(Tok::Ident, "Parameter name");
        std::string pn = lowerCase(p.text);
        if (std::find(scope.params.begin(), scope.params.end(), pn) != scope.params.end())
          fail("Parameter " + p.text + " given twice");
        scope.params.push_back(pn);
        if (!accept(Tok::Comma)) break;
      }
    }
    if (parens) expect(Tok::RParen, "')'");
    endOfHeader();

    scope_ = &scope;
    ++open_;
    h->body = block(false, false, "end");
    expect(Tok::EndKw, "'end'");
    Tok after = peek().type;
    if (after == Tok::If || after == Tok::Repeat || after == Tok::Case)
      fail("'end " + peek().text + "' without a matching '" + peek().text + "'");
    if (after == Tok::Ident) {
      if (!equalNoCase(peek().text, h->name)) fail("'end " + h->spelling + "' expected");
      advance();
    }
    endOfStatement();
    --open_;
    scope_ = nullptr;
    resolve(scope, *h);
    return h;
  }

  static void resolve(Scope& scope, Handler& h) {
    std::unordered_map<std::string, int> slots;
    for (const auto& p : scope.params) {
      slots.emplace(p, static_cast<int>(h.localNames.size()));
      h.localNames.push_back(p);
    }
    h.params = static_cast<int>(scope.params.size());
    for (const auto& n : scope.assignedOrder) {
      if (slots.count(n) || scope.globals.count(n)) continue;
      slots.emplace(n, static_cast<int>(h.localNames.size()));
      h.localNames.push_back(n);
    }
    h.locals = static_cast<int>(h.localNames.size());
    for (Expr* e : scope.names) {
      auto it = slots.find(e->name);
      if (it != slots.end()) {
        e->kind = ExprKind::Local;
        e->slot = it->second;
      } else if (scope.globals.count(e->name)) {
        e->kind = ExprKind::Global;
      }
    }
  }

  // ---- Statements -----------------------------------------------------------------------------

  // Statements up to a line that starts with "end" (or "else", when `elseEnds`).
  Block block(bool elseEnds, bool inIfBlock, const char* closing) {
    Nest nest(*this);
    Block b;
    for (;;) {
      skipNewlines();
      Tok t = peek().type;
      if (t == Tok::End) fail(std::string("'") + closing + "' expected");
      if (t == Tok::EndKw) return b;
      if (t == Tok::Else && elseEnds) return b;
      b.push_back(statement(inIfBlock));
      endOfStatement();
    }
  }

  StmtPtr statement(bool inIfBlock) {
    switch (peek().type) {
      case Tok::If: return ifStatement(inIfBlock);
      case Tok::Repeat: return repeatStatement();
      case Tok::Case: return caseStatement();
      default: return simpleStatement();
    }
  }

  StmtPtr simpleStatement() {
    const Token& t = peek();
    int line = t.line;
    switch (t.type) {
      case Tok::Exit: {
        advance();
        if (accept(Tok::Repeat)) {
          if (loops_ == 0) throw ParseError{line, "'exit repeat' outside a repeat", false};
          return stmt(StmtKind::ExitRepeat, line);
        }
        return stmt(StmtKind::Exit, line);
      }
      case Tok::Next: {
        advance();
        expect(Tok::Repeat, "'repeat'");
        if (loops_ == 0) throw ParseError{line, "'next repeat' outside a repeat", false};
        return stmt(StmtKind::NextRepeat, line);
      }
      case Tok::Return: {
        advance();
        auto s = stmt(StmtKind::Return, line);
        if (!atStatementEnd()) s->exprs.push_back(expr());
        return s;
      }
      case Tok::Global: {
        advance();
        auto s = stmt(StmtKind::Global, line);
        for (;;) {
          const Token& n = expect(Tok::Ident, "Global name");
          std::string name = lowerCase(n.text);
          if (scope_) scope_->globals.insert(name);
          s->names.push_back(name);
          if (!accept(Tok::Comma)) break;
        }
        return s;
      }
      case Tok::Put: return putStatement();
      case Tok::Set: {
        advance();
        auto s = stmt(StmtKind::Assign, line);
        s->target = target();
        if (!accept(Tok::Eq) && !accept(Tok::To)) fail("'=' or 'to' expected");
        s->exprs.push_back(expr());
        return s;
      }
      case Tok::Ident: return identStatement();
      case Tok::On:
        fail(scope_ ? "Handler definitions can't be nested" : "'on' must start a line of its own");
      case Tok::Property: fail("Property declarations are not supported");
      case Tok::EndKw: fail("'end' without a matching 'on', 'if', 'repeat' or 'case'");
      case Tok::Else: fail("'else' without 'if'");
      case Tok::If:
      case Tok::Repeat:
      case Tok::Case: fail(describe(t) + " must start a line of its own");
      default: fail("Statement expected, found " + describe(t));
    }
  }

  ExprPtr target() {
    ExprPtr e = postfix();
    checkTarget(*e);
    assignedName(*e);
    return e;
  }

  StmtPtr putStatement() {
    int line = advance().line;  // put
    if (atStatementEnd()) fail("Value expected after 'put'");
    ExprPtr first = expr();
    int mode = isWord("into") ? 0 : isWord("after") ? 1 : isWord("before") ? 2 : -1;
    if (mode >= 0) {
      advance();
      auto s = stmt(StmtKind::PutInto, line);
      s->mode = mode;
      s->exprs.push_back(std::move(first));
      s->target = target();
      return s;
    }
    auto s = stmt(StmtKind::Put, line);
    s->exprs.push_back(std::move(first));
    while (accept(Tok::Comma)) s->exprs.push_back(expr());
    return s;
  }

  // A line that starts with a name: an assignment, a call, or a command with arguments.
  StmtPtr identStatement() {
    int line = peek().line;
    Mark m = mark();
    ExprPtr e;
    try {
      e = postfix();
    } catch (const ParseError&) {
      // Not an assignment or a call: read it again as a command.
    }
    if (e && peek().type == Tok::Eq) {
      checkTarget(*e);
      assignedName(*e);
      advance();
      auto s = stmt(StmtKind::Assign, line);
      s->target = std::move(e);
      s->exprs.push_back(expr());
      return s;
    }
    if (e && atStatementEnd() && e->kind != ExprKind::Name && e->kind != ExprKind::Global) {
      auto s = stmt(StmtKind::Expr, line);
      s->exprs.push_back(std::move(e));
      return s;
    }
    e.reset();
    reset(m);
    const Token& nameTok = advance();
    auto call = node(ExprKind::Call, line);
    call->name = lowerCase(nameTok.text);
    call->spelling = nameTok.text;
    if (!atStatementEnd()) {
      call->kids.push_back(expr());
      while (accept(Tok::Comma)) call->kids.push_back(expr());
    }
    auto s = stmt(StmtKind::Expr, line);
    s->exprs.push_back(finish(std::move(call)));
    return s;
  }

  StmtPtr ifStatement(bool inIfBlock) {
    Nest nest(*this);
    int line = advance().line;  // if
    auto s = stmt(StmtKind::If, line);
    s->exprs.push_back(expr());
    expect(Tok::Then, "'then'");
    if (atLineEnd()) {
      ++open_;
      endOfHeader();
      s->blocks.push_back(block(true, true, "end if"));
      for (;;) {
        if (accept(Tok::EndKw)) {
          expect(Tok::If, "'end if'");
          break;
        }
        advance();  // else (block() stops only at end or else)
        bool elseIf = accept(Tok::If);
        if (elseIf) {
          s->exprs.push_back(expr());
          expect(Tok::Then, "'then'");
        }
        Block b;
        if (!atLineEnd()) b.push_back(simpleStatement());
        endOfHeader();
        Block rest = block(elseIf, true, "end if");
        for (auto& st : rest) b.push_back(std::move(st));
        s->blocks.push_back(std::move(b));
        if (!elseIf) {
          expect(Tok::EndKw, "'end if'");
          expect(Tok::If, "'end if'");
          break;
        }
      }
      --open_;
      return s;
    }
    // One-line form: "if c then statement [else statement]"; the else may also start the next
    // line, unless this if sits in the branch of a block if (which then owns that else).
    Block thenBlock;
    thenBlock.push_back(peek().type == Tok::If ? ifStatement(true) : simpleStatement());
    s->blocks.push_back(std::move(thenBlock));
    bool hasElse = accept(Tok::Else);
    if (!hasElse && !inIfBlock && peek().type == Tok::Newline && peek(1).type == Tok::Else) {
      advance();
      advance();
      hasElse = true;
      if (atLineEnd()) {
        ++open_;
        endOfHeader();
        s->blocks.push_back(block(false, false, "end if"));
        expect(Tok::EndKw, "'end if'");
        expect(Tok::If, "'end if'");
        --open_;
        return s;
      }
    }
    if (hasElse) {
      Block elseBlock;
      elseBlock.push_back(peek().type == Tok::If ? ifStatement(inIfBlock) : simpleStatement());
      s->blocks.push_back(std::move(elseBlock));
    }
    return s;
  }

  StmtPtr repeatStatement() {
    Nest nest(*this);
    int line = advance().line;  // repeat
    StmtPtr s;
    if (accept(Tok::While)) {
      s = stmt(StmtKind::RepeatWhile, line);
      s->exprs.push_back(expr());
    } else if (accept(Tok::With)) {
      const Token& v = expect(Tok::Ident, "Loop variable");
      ExprPtr var = nameNode(v);
      assignedName(*var);
      if (accept(Tok::Eq)) {
        s = stmt(StmtKind::RepeatTo, line);
        s->exprs.push_back(expr());
        if (acceptWord("down")) s->mode = 1;
        expect(Tok::To, "'to'");
        s->exprs.push_back(expr());
      } else if (accept(Tok::In)) {
        s = stmt(StmtKind::RepeatIn, line);
        s->exprs.push_back(expr());
      } else {
        fail("'=' or 'in' expected");
      }
      s->target = std::move(var);
    } else {
      fail("'while' or 'with' expected after 'repeat'");
    }
    ++open_;
    ++loops_;
    endOfHeader();
    s->blocks.push_back(block(false, false, "end repeat"));
    expect(Tok::EndKw, "'end repeat'");
    expect(Tok::Repeat, "'end repeat'");
    --loops_;
    --open_;
    return s;
  }

  // "value, value:" at the start of a line of a case statement.
  std::optional<std::vector<ExprPtr>> caseLabels() {
    Mark m = mark();
    try {
      std::vector<ExprPtr> labels;
      labels.push_back(expr());
      while (accept(Tok::Comma)) labels.push_back(expr());
      if (accept(Tok::Colon)) return labels;
    } catch (const ParseError&) {
    }
    reset(m);
    return std::nullopt;
  }

  StmtPtr caseStatement() {
    Nest nest(*this);
    int line = advance().line;  // case
    auto s = stmt(StmtKind::Case, line);
    s->exprs.push_back(expr());
    if (!acceptWord("of")) fail("'of' expected, found " + describe(peek()));
    ++open_;
    endOfHeader();
    bool otherwise = false;
    for (;;) {
      skipNewlines();
      if (peek().type == Tok::End) fail("'end case' expected");
      if (accept(Tok::EndKw)) {
        expect(Tok::Case, "'end case'");
        break;
      }
      if (otherwise) fail("'end case' expected after 'otherwise'");
      std::optional<std::vector<ExprPtr>> labels;
      if (accept(Tok::Otherwise)) {
        accept(Tok::Colon);
        otherwise = true;
      } else {
        labels = caseLabels();
        if (!labels) fail("Case label expected");
      }
      Block b;
      if (!atLineEnd()) b.push_back(statement(false));
      endOfStatement();
      for (;;) {
        skipNewlines();
        Tok t = peek().type;
        if (t == Tok::End || t == Tok::EndKw || t == Tok::Otherwise) break;
        if (!otherwise) {
          Mark m = mark();
          bool isLabel = caseLabels().has_value();
          reset(m);
          if (isLabel) break;
        }
        b.push_back(statement(false));
        endOfStatement();
      }
      if (labels) s->labels.push_back(std::move(*labels));
      s->blocks.push_back(std::move(b));
    }
    s->mode = otherwise ? 1 : 0;
    --open_;
    return s;
  }

  // ---- Expressions ----------------------------------------------------------------------------

  ExprPtr expr() {
    Nest nest(*this);
    ExprPtr l = comparison();
    for (;;) {
      Tok t = peek().type;
      if (t != Tok::And && t != Tok::Or) return l;
      int line = advance().line;
      l = binary(t == Tok::And ? Op::And : Op::Or, std::move(l), comparison(), line);
    }
  }

  ExprPtr comparison() {
    ExprPtr l = concat();
    for (;;) {
      Op op;
      switch (peek().type) {
        case Tok::Eq: op = Op::Eq; break;
        case Tok::Ne: op = Op::Ne; break;
        case Tok::Lt: op = Op::Lt; break;
        case Tok::Gt: op = Op::Gt; break;
        case Tok::Le: op = Op::Le; break;
        case Tok::Ge: op = Op::Ge; break;
        case Tok::Contains: op = Op::Contains; break;
        case Tok::Starts: op = Op::Starts; break;
        default: return l;
      }
      int line = advance().line;
      l = binary(op, std::move(l), concat(), line);
    }
  }

  ExprPtr concat() {
    ExprPtr l = additive();
    for (;;) {
      Tok t = peek().type;
      if (t != Tok::Amp && t != Tok::AmpAmp) return l;
      int line = advance().line;
      l = binary(t == Tok::Amp ? Op::Concat : Op::ConcatSpace, std::move(l), additive(), line);
    }
  }

  ExprPtr additive() {
    ExprPtr l = multiplicative();
    for (;;) {
      Tok t = peek().type;
      if (t != Tok::Plus && t != Tok::Minus) return l;
      int line = advance().line;
      l = binary(t == Tok::Plus ? Op::Add : Op::Sub, std::move(l), multiplicative(), line);
    }
  }

  ExprPtr multiplicative() {
    ExprPtr l = unary();
    for (;;) {
      Op op;
      switch (peek().type) {
        case Tok::Star: op = Op::Mul; break;
        case Tok::Slash: op = Op::Div; break;
        case Tok::Mod: op = Op::Mod; break;
        default: return l;
      }
      int line = advance().line;
      l = binary(op, std::move(l), unary(), line);
    }
  }

  ExprPtr unary() {
    Nest nest(*this);
    Tok t = peek().type;
    if (t == Tok::Minus || t == Tok::Not) {
      int line = advance().line;
      ExprPtr operand = unary();
      // Fold negative number literals, so that -5 is a constant.
      if (t == Tok::Minus && operand->kind == ExprKind::Literal) {
        if (operand->value.isInteger() && operand->value.integer() != INT32_MIN) {
          operand->value = Value(static_cast<int32_t>(-operand->value.integer()));
          return operand;
        }
        if (operand->value.isFloat()) {
          operand->value = Value(-operand->value.real());
          return operand;
        }
      }
      auto e = node(ExprKind::Unary, line);
      e->op = t == Tok::Minus ? Op::Neg : Op::Not;
      e->kids.push_back(std::move(operand));
      return finish(std::move(e));
    }
    if (t == Tok::Plus) {
      advance();
      return unary();
    }
    return postfix();
  }

  ExprPtr postfix() {
    ExprPtr e = primary();
    for (;;) {
      if (peek().type == Tok::LBracket) {
        int line = advance().line;
        auto ix = node(ExprKind::Index, line);
        ix->kids.push_back(std::move(e));
        ix->kids.push_back(expr());
        expect(Tok::RBracket, "']'");
        e = finish(std::move(ix));
      } else if (peek().type == Tok::Dot) {
        int line = advance().line;
        const Token& n = expect(Tok::Ident, "Property or handler name after '.'");
        if (accept(Tok::LParen)) {
          auto call = node(ExprKind::Call, line);
          call->name = lowerCase(n.text);
          call->spelling = n.text;
          call->kids.push_back(std::move(e));
          arguments(*call);
          e = finish(std::move(call));
        } else {
          auto dot = node(ExprKind::Dot, line);
          dot->name = lowerCase(n.text);
          dot->spelling = n.text;
          dot->kids.push_back(std::move(e));
          e = finish(std::move(dot));
        }
      } else {
        return e;
      }
    }
  }

  // After "(": arguments up to ")".
  void arguments(Expr& call) {
    if (!accept(Tok::RParen)) {
      call.kids.push_back(expr());
      while (accept(Tok::Comma)) call.kids.push_back(expr());
      expect(Tok::RParen, "')'");
    }
  }

  ExprPtr primary() {
    Nest nest(*this);
    const Token& t = peek();
    int line = t.line;
    switch (t.type) {
      case Tok::Integer: {
        auto e = node(ExprKind::Literal, line);
        e->value = Value(advance().integer);
        return e;
      }
      case Tok::Float: {
        auto e = node(ExprKind::Literal, line);
        e->value = Value(advance().real);
        return e;
      }
      case Tok::String: {
        auto e = node(ExprKind::Literal, line);
        e->value = Value(advance().text);
        return e;
      }
      case Tok::Symbol: {
        auto e = node(ExprKind::Literal, line);
        e->value = Value::symbol(advance().text);
        return e;
      }
      case Tok::Return: {  // the RETURN constant
        advance();
        auto e = node(ExprKind::Literal, line);
        e->value = Value("\r");
        return e;
      }
      case Tok::LParen: {
        advance();
        ExprPtr e = expr();
        expect(Tok::RParen, "')'");
        return e;
      }
      case Tok::LBracket: return listLiteral();
      case Tok::The: {
        advance();
        const Token& n = expect(Tok::Ident, "Property name after 'the'");
        auto e = node(ExprKind::The, line);
        e->name = lowerCase(n.text);
        e->spelling = n.text;
        return e;
      }
      case Tok::Ident: {
        std::string lower = lowerCase(t.text);
        Tok next = peek(1).type;
        if (next != Tok::LParen) {
          for (const auto& c : constants()) {
            if (lower == c.name) {
              advance();
              auto e = node(ExprKind::Literal, line);
              e->value = c.value;
              return e;
            }
          }
        }
        if (lower == "xtra" && (next == Tok::String || next == Tok::LParen)) {
          advance();
          auto e = node(ExprKind::XtraRef, line);
          if (accept(Tok::LParen)) {
            e->kids.push_back(expr());
            expect(Tok::RParen, "')'");
          } else {
            auto name = node(ExprKind::Literal, line);
            name->value = Value(advance().text);
            e->kids.push_back(std::move(name));
          }
          return finish(std::move(e));
        }
        if (next == Tok::LParen) {
          const Token& nameTok = advance();
          advance();  // (
          auto call = node(ExprKind::Call, line);
          call->name = std::move(lower);
          call->spelling = nameTok.text;
          arguments(*call);
          return finish(std::move(call));
        }
        return nameNode(advance());
      }
      case Tok::End: fail("Unexpected end of script");
      default: fail("Value expected, found " + describe(t));
    }
  }

  ExprPtr listLiteral() {
    int line = advance().line;  // [
    if (peek().type == Tok::Colon && peek(1).type == Tok::RBracket) {
      advance();
      advance();
      return node(ExprKind::PropList, line);
    }
    if (accept(Tok::RBracket)) return node(ExprKind::List, line);
    ExprPtr first = expr();
    if (accept(Tok::Colon)) {
      auto e = node(ExprKind::PropList, line);
      e->kids.push_back(std::move(first));
      e->kids.push_back(expr());
      while (accept(Tok::Comma)) {
        e->kids.push_back(expr());
        expect(Tok::Colon, "':'");
        e->kids.push_back(expr());
      }
      expect(Tok::RBracket, "']'");
      return finish(std::move(e));
    }
    auto e = node(ExprKind::List, line);
    e->kids.push_back(std::move(first));
    while (accept(Tok::Comma)) e->kids.push_back(expr());
    expect(Tok::RBracket, "']'");
    return finish(std::move(e));
  }

  std::vector<Token> toks_;
  size_t pos_ = 0;
  int depth_ = 0;
  int open_ = 0;   // open handlers and blocks
  int loops_ = 0;  // open repeat blocks
  Scope* scope_ = nullptr;
};

}  // namespace

ParseResult parseScript(std::string_view source, int firstLine) {
  return Parser(source, firstLine).script();
}

ExpressionParse parseExpression(std::string_view source) {
  return Parser(source, 1).expressionOnly();
}

}  // namespace tessel::lingo
