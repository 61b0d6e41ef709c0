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
  // Where it happened, filled in once by the interpreter: the script ("kiosk.ls", "-e 2") and
  // the handler (empty at top level).
  bool located() const { return located_; }
  const std::string& source() const { return source_; }
  const std::string& handler() const { return handler_; }
  void locate(std::string source, std::string handler) {
    source_ = std::move(source);
    handler_ = std::move(handler);
    located_ = true;
  }

 private:
  std::string message_;
  int line_;
  bool located_ = false;
  std::string source_;
  std::string handler_;
};

}  // namespace tessel::lingo
