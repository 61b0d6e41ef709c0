// The expression half of the parser: operators by precedence, postfix forms, literals, "the"
// properties and chunk expressions.
#include <algorithm>
#include <utility>

#include "host/lingo/parser_internal.h"

namespace tessel::lingo::parse_detail {

// ---- Expressions ----------------------------------------------------------------------------
ExprPtr Parser::expr() {
  Nest nest(*this);
  ExprPtr l = comparison();
  for (;;) {
    Tok t = peek().type;
    if (t != Tok::And && t != Tok::Or) return l;
    int line = advance().line;
    l = binary(t == Tok::And ? Op::And : Op::Or, std::move(l), comparison(), line);
  }
}

ExprPtr Parser::comparison() {
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

ExprPtr Parser::concat() {
  ExprPtr l = additive();
  for (;;) {
    Tok t = peek().type;
    if (t != Tok::Amp && t != Tok::AmpAmp) return l;
    int line = advance().line;
    l = binary(t == Tok::Amp ? Op::Concat : Op::ConcatSpace, std::move(l), additive(), line);
  }
}

ExprPtr Parser::additive() {
  ExprPtr l = multiplicative();
  for (;;) {
    Tok t = peek().type;
    if (t != Tok::Plus && t != Tok::Minus) return l;
    int line = advance().line;
    l = binary(t == Tok::Plus ? Op::Add : Op::Sub, std::move(l), multiplicative(), line);
  }
}

ExprPtr Parser::multiplicative() {
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

ExprPtr Parser::unary() {
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

ExprPtr Parser::postfix() {
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
      std::optional<ChunkType> type = chunkType(n.text, false);
      if (!type) type = chunkType(n.text, true);
      if (type && (peek().type == Tok::LBracket ||
                   (peek().type == Tok::Dot && peek(1).type == Tok::Ident &&
                    equalNoCase(peek(1).text, "count")))) {
        e = dotChunk(std::move(e), *type, line);
      } else if (accept(Tok::LParen)) {
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
void Parser::arguments(Expr& call) {
  if (!accept(Tok::RParen)) {
    call.kids.push_back(expr());
    while (accept(Tok::Comma)) call.kids.push_back(expr());
    expect(Tok::RParen, "')'");
  }
}

// A primary expression: one case per token that can begin one, in one switch as the grammar
// lists them (literals, names and calls, parenthesised expressions and lists, the chunk and
// the-expressions, unary operators).
ExprPtr Parser::primary() {
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
    case Tok::The: return theExpression();
    case Tok::Ident: {
      if (atChunkWord()) {
        if (ExprPtr chunk = chunkExpression()) return chunk;
      }
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
      if ((lower == "xtra" || lower == "script") && (next == Tok::String || next == Tok::LParen)) {
        advance();
        auto e = node(lower == "xtra" ? ExprKind::XtraRef : ExprKind::ScriptRef, line);
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

ExprPtr Parser::listLiteral() {
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

// ---- Chunk expressions and "the" ------------------------------------------------------------

std::optional<ChunkType> chunkType(std::string_view word, bool plural) {
  static constexpr std::pair<const char*, ChunkType> kWords[] = {
      {"char", ChunkType::Char}, {"word", ChunkType::Word},
      {"item", ChunkType::Item}, {"line", ChunkType::Line}};
  for (const auto& [name, type] : kWords) {
    std::string_view n(name);
    if (plural ? (word.size() == n.size() + 1 && (word.back() == 's' || word.back() == 'S') &&
                  equalNoCase(word.substr(0, n.size()), n))
               : equalNoCase(word, n))
      return type;
  }
  return std::nullopt;
}

bool Parser::atChunkWord(size_t ahead) const {
  return peek(ahead).type == Tok::Ident && chunkType(peek(ahead).text, false).has_value();
}

// "char 2 of s", "word 2 to 3 of s", nested through the source. Null (and nothing read) when
// the words do not make a chunk expression: the chunk word is then a name.
ExprPtr Parser::chunkExpression() {
  Mark m = mark();
  const Token& kw = advance();
  auto e = node(ExprKind::Chunk, kw.line);
  e->chunk = *chunkType(kw.text, false);
  try {
    ExprPtr source;
    ExprPtr from = additive();
    ExprPtr to;
    if (accept(Tok::To)) to = additive();
    if (!acceptWord("of")) throw ParseError{kw.line, "'of' expected", false};
    source = postfix();
    e->kids.push_back(std::move(source));
    e->kids.push_back(std::move(from));
    if (to) e->kids.push_back(std::move(to));
  } catch (const ParseError&) {
    reset(m);
    return nullptr;
  }
  return finish(std::move(e));
}

// After "the number of": "chars in s".
ExprPtr Parser::chunkCount(int line) {
  std::optional<ChunkType> type;
  if (peek().type == Tok::Ident) type = chunkType(peek().text, true);
  if (!type) fail("'chars', 'words', 'items' or 'lines' expected after 'the number of'");
  advance();
  if (!accept(Tok::In) && !acceptWord("of")) fail("'in' expected, found " + describe(peek()));
  auto e = node(ExprKind::ChunkCount, line);
  e->chunk = *type;
  e->kids.push_back(postfix());
  return finish(std::move(e));
}

// After "s.": "char[2]", "word[1..2]", "item.count".
ExprPtr Parser::dotChunk(ExprPtr base, ChunkType type, int line) {
  if (accept(Tok::Dot)) {
    advance();  // count
    auto e = node(ExprKind::ChunkCount, line);
    e->chunk = type;
    e->kids.push_back(std::move(base));
    return finish(std::move(e));
  }
  expect(Tok::LBracket, "'['");
  auto e = node(ExprKind::Chunk, line);
  e->chunk = type;
  e->kids.push_back(std::move(base));
  e->kids.push_back(expr());
  if (accept(Tok::DotDot)) e->kids.push_back(expr());
  expect(Tok::RBracket, "']'");
  return finish(std::move(e));
}

// "the itemDelimiter", "the long date", "the last word of s", "the number of lines in s".
ExprPtr Parser::theExpression() {
  int line = advance().line;  // the
  if (isWord("number") && peek(1).type == Tok::Ident && equalNoCase(peek(1).text, "of")) {
    advance();
    advance();
    return chunkCount(line);
  }
  if (isWord("last") && atChunkWord(1)) {
    advance();
    auto e = node(ExprKind::Chunk, line);
    e->chunk = *chunkType(advance().text, false);
    e->last = true;
    if (!acceptWord("of") && !accept(Tok::In)) fail("'of' expected, found " + describe(peek()));
    e->kids.push_back(postfix());
    return finish(std::move(e));
  }
  const Token& n = expect(Tok::Ident, "Property name after 'the'");
  auto e = node(ExprKind::The, line);
  e->name = lowerCase(n.text);
  e->spelling = n.text;
  // Two-word properties: the long date, the abbr date, the short time...
  static constexpr const char* kQualifiers[] = {"long", "short", "abbr", "abbrev", "abbreviated"};
  for (const char* q : kQualifiers) {
    if (e->name == q && (isWord("date") || isWord("time"))) {
      const Token& w = advance();
      e->name = std::string(q) + " " + lowerCase(w.text);
      e->spelling += " " + w.text;
      break;
    }
  }
  return e;
}

}  // namespace tessel::lingo::parse_detail
