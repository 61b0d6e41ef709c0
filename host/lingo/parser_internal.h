// The parser's class, shared by parser.cpp (scripts, handlers, statements) and
// parser_expressions.cpp (expressions and chunk expressions). Internal to the parser.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "host/lingo/ast.h"
#include "host/lingo/lexer.h"
#include "host/lingo/parser.h"
#include "host/lingo/values.h"

namespace tessel::lingo::parse_detail {

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

// The named constants (TRUE, EMPTY, RETURN is a keyword...), by lower-case name.
const std::vector<Constant>& constants();

// The chunk a word names ("char", or "chars" when `plural`), if it names one.
std::optional<ChunkType> chunkType(std::string_view word, bool plural);

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
        if (accept(Tok::Property)) {  // a parent script's properties
          for (;;) {
            const Token& name = expect(Tok::Ident, "Property name");
            properties_.insert(lowerCase(name.text));
            prog->properties.push_back(name.text);
            if (!accept(Tok::Comma)) break;
          }
          endOfStatement();
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

  // A chunk is written through the variable (or list item) that holds its text.
  static const Expr& chunkBase(const Expr& e) {
    const Expr* p = &e;
    while (p->kind == ExprKind::Chunk) p = p->kids[0].get();
    return *p;
  }
  void assignedName(const Expr& written) {
    const Expr& target = chunkBase(written);
    if (!scope_ || target.kind != ExprKind::Name) return;
    if (scope_->assigned.insert(target.name).second) scope_->assignedOrder.push_back(target.name);
  }
  // Only names, list items, properties, chunks of these and settable "the" properties can be
  // assigned to.
  void checkTarget(const Expr& written) const {
    const Expr& e = chunkBase(written);
    if (e.kind == ExprKind::Name || e.kind == ExprKind::Global || e.kind == ExprKind::Index ||
        e.kind == ExprKind::Dot || (e.kind == ExprKind::The && &e == &written))
      return;
    throw ParseError{e.line, "Can't assign to this expression", false};
  }

  // ---- Handlers -------------------------------------------------------------------------------
  std::unique_ptr<Handler> handler();
  void resolve(Scope& scope, Handler& h) const;
  // ---- Statements -----------------------------------------------------------------------------
  // Statements up to a line that starts with "end" (or "else", when `elseEnds`).
  Block block(bool elseEnds, bool inIfBlock, const char* closing);
  StmtPtr statement(bool inIfBlock);
  StmtPtr simpleStatement();
  ExprPtr target();
  StmtPtr putStatement();
  // A line that starts with a name: an assignment, a call, or a command with arguments.
  StmtPtr identStatement();
  StmtPtr ifStatement(bool inIfBlock);
  StmtPtr repeatStatement();
  // "value, value:" at the start of a line of a case statement.
  std::optional<std::vector<ExprPtr>> caseLabels();
  StmtPtr caseStatement();
  StmtPtr deleteStatement();  // "delete word 2 of s"

  // ---- Expressions ----------------------------------------------------------------------------
  ExprPtr expr();
  ExprPtr comparison();
  ExprPtr concat();
  ExprPtr additive();
  ExprPtr multiplicative();
  ExprPtr unary();
  ExprPtr postfix();
  // After "(": arguments up to ")".
  void arguments(Expr& call);
  ExprPtr primary();
  ExprPtr listLiteral();
  // Chunk expressions: "char 2 to 4 of s", "the number of words in s", "s.item[2]".
  bool atChunkWord(size_t ahead = 0) const;
  ExprPtr chunkExpression();
  ExprPtr chunkCount(int line);
  ExprPtr dotChunk(ExprPtr base, ChunkType type, int line);
  ExprPtr theExpression();

  std::vector<Token> toks_;
  size_t pos_ = 0;
  int depth_ = 0;
  int open_ = 0;   // open handlers and blocks
  int loops_ = 0;  // open repeat blocks
  Scope* scope_ = nullptr;
  std::unordered_set<std::string> properties_;  // declared so far in this script
};

}  // namespace tessel::lingo::parse_detail
