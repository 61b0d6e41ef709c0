// The built-in functions' table entry (shared by interpreter.cpp and builtins.cpp).
#pragma once

#include <cstddef>

#include "host/lingo/interpreter.h"

namespace tessel::lingo {

struct Interpreter::Builtin {
  const char* name;  // lower-case
  int minArgs;
  int maxArgs;  // -1: any number
  // `args` points into the interpreter's value stack; a built-in that runs script code (value)
  // must copy what it needs first, as running code may move the stack.
  Value (*fn)(Interpreter& in, Value* args, size_t count);
};

}  // namespace tessel::lingo
