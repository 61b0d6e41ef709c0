// Parses Lingo source into the trees of ast.h.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/lingo/ast.h"

namespace tessel::lingo {

struct ParseResult {
  std::unique_ptr<Program> program;  // null on error
  int line = 0;                      // of the error
  std::string error;
  // The error is only that the text stopped inside an open handler, if, repeat or case: more
  // lines would complete it (the message window then asks for them).
  bool incomplete = false;
};

// A whole script: handlers anywhere, top-level statements in order.
ParseResult parseScript(std::string_view source, int firstLine = 1);

struct ExpressionParse {
  ExprPtr expr;  // null on error
  int line = 0;
  std::string error;
};

// One expression and nothing else (what value() reads). Names in it are globals.
ExpressionParse parseExpression(std::string_view source);

}  // namespace tessel::lingo
