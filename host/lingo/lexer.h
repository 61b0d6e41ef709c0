// Splits Lingo source into tokens, once, before parsing.
//
// Lingo is line-oriented: line ends are tokens. Keywords and names ignore case. A line that ends
// with the continuation character (U+00AC, or "\" as typed on keyboards without it) continues on
// the next line. "--" starts a comment that runs to the end of the line. Words that only mean
// something in one place ("down", "into", "after", "before", "of") stay names; the parser
// recognises them there.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::lingo {

enum class Tok : uint8_t {
  End,
  Newline,
  Ident,
  Integer,
  Float,
  String,
  Symbol,
  LParen,
  RParen,
  LBracket,
  RBracket,
  Comma,
  Colon,
  Dot,
  DotDot,
  Plus,
  Minus,
  Star,
  Slash,
  Amp,
  AmpAmp,
  Eq,
  Ne,
  Lt,
  Gt,
  Le,
  Ge,
  // Keywords.
  On,
  EndKw,
  If,
  Then,
  Else,
  Repeat,
  With,
  While,
  To,
  In,
  Exit,
  Next,
  Return,
  Global,
  Property,
  Put,
  Set,
  The,
  Not,
  And,
  Or,
  Mod,
  Contains,
  Starts,
  Case,
  Otherwise,
  // A character or literal the lexer could not read; `text` says why.
  Bad,
};

struct Token {
  Tok type = Tok::End;
  int line = 0;
  std::string text;  // as written (for strings: the contents; for symbols: the name)
  int32_t integer = 0;
  double real = 0;
};

// Always ends with one End token. Line numbers start at `firstLine`.
std::vector<Token> tokenize(std::string_view source, int firstLine = 1);

const char* tokenName(Tok t);

}  // namespace tessel::lingo
