// Helpers for the interpreter's tests: run Lingo, get back what `put` printed, with an error line
// appended when the run failed.
#pragma once

#include <string>

#include "host/lingo/interpreter.h"

namespace tessel::lingo::testing {

inline std::string runIn(Interpreter& in, const std::string& source) {
  Interpreter::Captured c = in.runCaptured(source);
  if (!c.outcome.ok) c.output += "error: " + c.outcome.errorText() + "\n";
  return c.output;
}

inline std::string run(const std::string& source) {
  Interpreter in;
  return runIn(in, source);
}

}  // namespace tessel::lingo::testing
