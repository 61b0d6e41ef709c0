#include "host/lingo/lexer.h"

#include <array>
#include <charconv>
#include <utility>

#include "host/lingo/values.h"

namespace tessel::lingo {

namespace {

struct Keyword {
  const char* word;
  Tok tok;
};

constexpr std::array<Keyword, 26> kKeywords{{
    {"on", Tok::On},           {"end", Tok::EndKw},       {"if", Tok::If},
    {"then", Tok::Then},       {"else", Tok::Else},       {"repeat", Tok::Repeat},
    {"with", Tok::With},       {"while", Tok::While},     {"to", Tok::To},
    {"in", Tok::In},           {"exit", Tok::Exit},       {"next", Tok::Next},
    {"return", Tok::Return},   {"global", Tok::Global},   {"property", Tok::Property},
    {"put", Tok::Put},         {"set", Tok::Set},         {"the", Tok::The},
    {"not", Tok::Not},         {"and", Tok::And},         {"or", Tok::Or},
    {"mod", Tok::Mod},         {"contains", Tok::Contains}, {"starts", Tok::Starts},
    {"case", Tok::Case},       {"otherwise", Tok::Otherwise},
}};

bool isIdentStart(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c >= 0x80;
}
bool isIdentChar(unsigned char c) { return isIdentStart(c) || (c >= '0' && c <= '9'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The continuation character U+00AC in UTF-8.
bool isContinuation(std::string_view s, size_t i) {
  return i + 1 < s.size() && static_cast<unsigned char>(s[i]) == 0xC2 &&
         static_cast<unsigned char>(s[i + 1]) == 0xAC;
}

class Lexer {
 public:
  Lexer(std::string_view src, int firstLine) : s_(src), line_(firstLine) {
    if (s_.substr(0, 3) == "\xEF\xBB\xBF") i_ = 3;  // a UTF-8 byte order mark
  }

  std::vector<Token> run() {
    while (i_ < s_.size()) step();
    // The end belongs to the last line of the text, not to the empty one after its line end.
    if (!out_.empty() && out_.back().type == Tok::Newline) line_ = out_.back().line;
    push(Tok::End, {});
    return std::move(out_);
  }

 private:
  void push(Tok t, std::string text) {
    Token tok;
    tok.type = t;
    tok.line = line_;
    tok.text = std::move(text);
    out_.push_back(std::move(tok));
  }

  bool lastEndsValue() const {
    if (out_.empty()) return false;
    switch (out_.back().type) {
      case Tok::Ident:
      case Tok::Integer:
      case Tok::Float:
      case Tok::String:
      case Tok::Symbol:
      case Tok::RParen:
      case Tok::RBracket:
        return true;
      default:
        return false;
    }
  }

  void newline() {
    if (!out_.empty() && out_.back().type != Tok::Newline) push(Tok::Newline, {});
    ++line_;
  }

  // Skips blanks and a comment up to the line end; true when only those remain on the line.
  bool restOfLineEmpty(size_t j) const {
    while (j < s_.size() && (s_[j] == ' ' || s_[j] == '\t')) ++j;
    if (j + 1 < s_.size() && s_[j] == '-' && s_[j + 1] == '-') return true;
    return j >= s_.size() || s_[j] == '\n' || s_[j] == '\r';
  }

  void skipLineEnd() {
    // Moves past the rest of the line (blanks or a comment) and its line end.
    while (i_ < s_.size() && s_[i_] != '\n' && s_[i_] != '\r') ++i_;
    if (i_ < s_.size()) {
      if (s_[i_] == '\r' && i_ + 1 < s_.size() && s_[i_ + 1] == '\n') ++i_;
      ++i_;
      ++line_;
    }
  }

  // One token from the current character. Long on purpose: the branches are tried in this order
  // (blanks, line ends, comments, continuations, strings, numbers, symbols, names, operators) and
  // the order is the lexer's meaning, so it reads top to bottom in one place.
  void step() {
    char c = s_[i_];
    if (c == ' ' || c == '\t' || c == '\f' || c == '\v') {
      ++i_;
      return;
    }
    if (c == '\n' || c == '\r') {
      if (c == '\r' && i_ + 1 < s_.size() && s_[i_ + 1] == '\n') ++i_;
      ++i_;
      newline();
      return;
    }
    if (c == '-' && i_ + 1 < s_.size() && s_[i_ + 1] == '-') {
      while (i_ < s_.size() && s_[i_] != '\n' && s_[i_] != '\r') ++i_;
      return;
    }
    if (isContinuation(s_, i_) || (c == '\\' && restOfLineEmpty(i_ + 1))) {
      i_ += (c == '\\') ? 1 : 2;
      skipLineEnd();
      return;
    }
    if (c == '"') {
      size_t start = ++i_;
      while (i_ < s_.size() && s_[i_] != '"' && s_[i_] != '\n' && s_[i_] != '\r') ++i_;
      if (i_ >= s_.size() || s_[i_] != '"') {
        push(Tok::Bad, "Unterminated string");
        return;
      }
      push(Tok::String, std::string(s_.substr(start, i_ - start)));
      ++i_;
      return;
    }
    if (isDigit(c) || (c == '.' && i_ + 1 < s_.size() && isDigit(s_[i_ + 1]) && !lastEndsValue())) {
      number();
      return;
    }
    if (c == '#') {
      size_t start = ++i_;
      if (i_ >= s_.size() || !isIdentStart(static_cast<unsigned char>(s_[i_]))) {
        push(Tok::Bad, "Symbol name expected after #");
        return;
      }
      while (i_ < s_.size() && isIdentChar(static_cast<unsigned char>(s_[i_])) &&
             !isContinuation(s_, i_))
        ++i_;
      push(Tok::Symbol, std::string(s_.substr(start, i_ - start)));
      return;
    }
    if (isIdentStart(static_cast<unsigned char>(c))) {
      size_t start = i_;
      while (i_ < s_.size() && isIdentChar(static_cast<unsigned char>(s_[i_])) &&
             !isContinuation(s_, i_))
        ++i_;
      std::string word(s_.substr(start, i_ - start));
      Tok t = Tok::Ident;
      if (word.size() <= 9) {
        for (const Keyword& k : kKeywords) {
          if (equalNoCase(word, k.word)) {
            t = k.tok;
            break;
          }
        }
      }
      push(t, std::move(word));
      return;
    }
    ++i_;
    char n = i_ < s_.size() ? s_[i_] : '\0';
    switch (c) {
      case '(': push(Tok::LParen, "("); return;
      case ')': push(Tok::RParen, ")"); return;
      case '[': push(Tok::LBracket, "["); return;
      case ']': push(Tok::RBracket, "]"); return;
      case ',': push(Tok::Comma, ","); return;
      case ':': push(Tok::Colon, ":"); return;
      case '.':
        if (n == '.') {  // a range in a dot form: s.char[2..4]
          ++i_;
          push(Tok::DotDot, "..");
          return;
        }
        push(Tok::Dot, ".");
        return;
      case '+': push(Tok::Plus, "+"); return;
      case '-': push(Tok::Minus, "-"); return;
      case '*': push(Tok::Star, "*"); return;
      case '/': push(Tok::Slash, "/"); return;
      case '=': push(Tok::Eq, "="); return;
      case '&':
        if (n == '&') {
          ++i_;
          push(Tok::AmpAmp, "&&");
        } else {
          push(Tok::Amp, "&");
        }
        return;
      case '<':
        if (n == '>') {
          ++i_;
          push(Tok::Ne, "<>");
        } else if (n == '=') {
          ++i_;
          push(Tok::Le, "<=");
        } else {
          push(Tok::Lt, "<");
        }
        return;
      case '>':
        if (n == '=') {
          ++i_;
          push(Tok::Ge, ">=");
        } else {
          push(Tok::Gt, ">");
        }
        return;
      default:
        break;
    }
    std::string what = (static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7F)
                           ? std::string("'") + c + "'"
                           : "character " + std::to_string(static_cast<unsigned char>(c));
    push(Tok::Bad, "Unexpected " + what);
  }

  void number() {
    size_t start = i_;
    bool isFloat = false;
    while (i_ < s_.size() && isDigit(s_[i_])) ++i_;
    if (i_ < s_.size() && s_[i_] == '.' && !(i_ + 1 < s_.size() && s_[i_ + 1] == '.') &&
        !(i_ + 1 < s_.size() && isIdentStart(static_cast<unsigned char>(s_[i_ + 1])) &&
          s_[i_ + 1] != 'e' && s_[i_ + 1] != 'E')) {
      isFloat = true;
      ++i_;
      while (i_ < s_.size() && isDigit(s_[i_])) ++i_;
    }
    if (i_ < s_.size() && (s_[i_] == 'e' || s_[i_] == 'E')) {
      size_t j = i_ + 1;
      if (j < s_.size() && (s_[j] == '+' || s_[j] == '-')) ++j;
      if (j < s_.size() && isDigit(s_[j])) {
        isFloat = true;
        i_ = j;
        while (i_ < s_.size() && isDigit(s_[i_])) ++i_;
      }
    }
    std::string text(s_.substr(start, i_ - start));
    Value v;
    if (!parseNumber(text, v)) {
      push(Tok::Bad, "Bad number " + text);
      return;
    }
    if (!isFloat && v.isInteger()) {
      push(Tok::Integer, text);
      out_.back().integer = v.integer();
    } else {
      // Integers too big for 32 bits become floats.
      push(Tok::Float, text);
      out_.back().real = v.isInteger() ? v.integer() : v.real();
    }
  }

  std::string_view s_;
  size_t i_ = 0;
  int line_;
  std::vector<Token> out_;
};

}  // namespace

std::vector<Token> tokenize(std::string_view source, int firstLine) {
  return Lexer(source, firstLine).run();
}

const char* tokenName(Tok t) {
  switch (t) {
    case Tok::End: return "end of script";
    case Tok::Newline: return "end of line";
    case Tok::Ident: return "name";
    case Tok::Integer: return "integer";
    case Tok::Float: return "float";
    case Tok::String: return "string";
    case Tok::Symbol: return "symbol";
    case Tok::LParen: return "'('";
    case Tok::RParen: return "')'";
    case Tok::LBracket: return "'['";
    case Tok::RBracket: return "']'";
    case Tok::DotDot: return "'..'";
    case Tok::Comma: return "','";
    case Tok::Colon: return "':'";
    case Tok::Dot: return "'.'";
    case Tok::Plus: return "'+'";
    case Tok::Minus: return "'-'";
    case Tok::Star: return "'*'";
    case Tok::Slash: return "'/'";
    case Tok::Amp: return "'&'";
    case Tok::AmpAmp: return "'&&'";
    case Tok::Eq: return "'='";
    case Tok::Ne: return "'<>'";
    case Tok::Lt: return "'<'";
    case Tok::Gt: return "'>'";
    case Tok::Le: return "'<='";
    case Tok::Ge: return "'>='";
    case Tok::On: return "'on'";
    case Tok::EndKw: return "'end'";
    case Tok::If: return "'if'";
    case Tok::Then: return "'then'";
    case Tok::Else: return "'else'";
    case Tok::Repeat: return "'repeat'";
    case Tok::With: return "'with'";
    case Tok::While: return "'while'";
    case Tok::To: return "'to'";
    case Tok::In: return "'in'";
    case Tok::Exit: return "'exit'";
    case Tok::Next: return "'next'";
    case Tok::Return: return "'return'";
    case Tok::Global: return "'global'";
    case Tok::Property: return "'property'";
    case Tok::Put: return "'put'";
    case Tok::Set: return "'set'";
    case Tok::The: return "'the'";
    case Tok::Not: return "'not'";
    case Tok::And: return "'and'";
    case Tok::Or: return "'or'";
    case Tok::Mod: return "'mod'";
    case Tok::Contains: return "'contains'";
    case Tok::Starts: return "'starts'";
    case Tok::Case: return "'case'";
    case Tok::Otherwise: return "'otherwise'";
    case Tok::Bad: return "bad character";
  }
  return "token";
}

}  // namespace tessel::lingo
