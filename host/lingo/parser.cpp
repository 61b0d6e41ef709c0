// Parses Lingo source into the trees of ast.h: scripts, handlers (and their names' scopes) and
// statements. Expressions are read in parser_expressions.cpp.
#include <algorithm>
#include <unordered_map>
#include <utility>

#include "host/lingo/parser_internal.h"

namespace tessel::lingo {

namespace parse_detail {

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

// ---- Handlers -------------------------------------------------------------------------------
std::unique_ptr<Handler> Parser::handler() {
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

void Parser::resolve(Scope& scope, Handler& h) const {
  std::unordered_map<std::string, int> slots;
  for (const auto& p : scope.params) {
    slots.emplace(p, static_cast<int>(h.localNames.size()));
    h.localNames.push_back(p);
  }
  h.params = static_cast<int>(scope.params.size());
  for (const auto& n : scope.assignedOrder) {
    if (slots.count(n) || scope.globals.count(n) || properties_.count(n)) continue;
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
    } else if (properties_.count(e->name)) {
      e->kind = ExprKind::Property;
    }
  }
}

// ---- Statements -----------------------------------------------------------------------------
// Statements up to a line that starts with "end" (or "else", when `elseEnds`).
Block Parser::block(bool elseEnds, bool inIfBlock, const char* closing) {
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

StmtPtr Parser::statement(bool inIfBlock) {
  switch (peek().type) {
    case Tok::If: return ifStatement(inIfBlock);
    case Tok::Repeat: return repeatStatement();
    case Tok::Case: return caseStatement();
    default: return simpleStatement();
  }
}

StmtPtr Parser::simpleStatement() {
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
    case Tok::Ident:
      if (isWord("delete") &&
          (atChunkWord(1) || (peek(1).type == Tok::The && peek(2).type == Tok::Ident &&
                              equalNoCase(peek(2).text, "last"))))
        return deleteStatement();
      return identStatement();
    case Tok::The: {  // the itemDelimiter = ";"
      auto s = stmt(StmtKind::Assign, line);
      s->target = target();
      expect(Tok::Eq, "'='");
      s->exprs.push_back(expr());
      return s;
    }
    case Tok::On:
      fail(scope_ ? "Handler definitions can't be nested" : "'on' must start a line of its own");
    case Tok::Property: fail("'property' belongs at the top of a parent script, outside handlers");
    case Tok::EndKw: fail("'end' without a matching 'on', 'if', 'repeat' or 'case'");
    case Tok::Else: fail("'else' without 'if'");
    case Tok::If:
    case Tok::Repeat:
    case Tok::Case: fail(describe(t) + " must start a line of its own");
    default: fail("Statement expected, found " + describe(t));
  }
}

ExprPtr Parser::target() {
  ExprPtr e = postfix();
  checkTarget(*e);
  assignedName(*e);
  return e;
}

StmtPtr Parser::deleteStatement() {
  int line = advance().line;  // delete
  auto s = stmt(StmtKind::Delete, line);
  s->target = target();
  if (s->target->kind != ExprKind::Chunk) fail("Chunk expected after 'delete'");
  return s;
}

StmtPtr Parser::putStatement() {
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
StmtPtr Parser::identStatement() {
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

StmtPtr Parser::ifStatement(bool inIfBlock) {
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

StmtPtr Parser::repeatStatement() {
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
std::optional<std::vector<ExprPtr>> Parser::caseLabels() {
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

StmtPtr Parser::caseStatement() {
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

}  // namespace parse_detail

ParseResult parseScript(std::string_view source, int firstLine) {
  return parse_detail::Parser(source, firstLine).script();
}

ExpressionParse parseExpression(std::string_view source) {
  return parse_detail::Parser(source, 1).expressionOnly();
}

}  // namespace tessel::lingo
