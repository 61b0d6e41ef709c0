// The one error type of the message window's interpreter: a script error with the line it
// happened on. It is thrown inside the interpreter only; every public entry point catches it and
// hands it back as data.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace tessel::lingo {

class ScriptError : public std::exception {
 public:
  // Line 0 means "the statement being executed"; the interpreter fills it in.
  explicit ScriptError(std::string message, int line = 0)
      : message_(std::move(message)), line_(line) {}

  const char* what() const noexcept override { return message_.c_str(); }
  const std::string& message() const { return message_; }
  int line() const { return line_; }
  void setLine(int line) { line_ = line; }

 private:
  std::string message_;
  int line_;
};

}  // namespace tessel::lingo
