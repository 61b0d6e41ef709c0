// The message window's `help`: the method reference compiled into tessel, answered as text.
//   help               the groups of the method table and their methods
//   help "tsCopyFile"  that method's entry
//   help "copy"        the methods whose name or entry mention "copy"
// Wraps the externals that call the Xtras, so a movie's own handler named help still wins (the
// interpreter looks for handlers first).
#pragma once

#include <functional>
#include <string>

#include "host/lingo/interpreter.h"

namespace tessel::runner {

class HelpExternals : public lingo::Externals {
 public:
  // `print` receives the text, as lines without their line ends.
  HelpExternals(lingo::Externals& inner, std::function<void(const std::string&)> print);

  int lookup(const std::string& name) override;
  bool call(int id, const std::vector<host::Value>& args, host::Value& result, std::string& error) override;
  std::optional<std::string> interfaceText(const std::string& xtraName) override;

  // What `help` prints for a query ("" lists the groups).
  static std::string helpText(const std::string& query);

 private:
  lingo::Externals& inner_;
  std::function<void(const std::string&)> print_;
};

}  // namespace tessel::runner
