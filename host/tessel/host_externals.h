// The message window's external functions: the global methods of the Xtras that the MOA host
// loaded, called with Lingo values.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/host.h"
#include "host/lingo/interpreter.h"

namespace tessel::runner {

class HostExternals : public lingo::Externals {
 public:
  explicit HostExternals(host::Host& host) : host_(host) {}

  int lookup(const std::string& name) override;
  bool call(int id, const std::vector<host::Value>& args, host::Value& result,
            std::string& error) override;
  std::optional<std::string> interfaceText(const std::string& xtraName) override;

 private:
  host::Host& host_;
  std::vector<const host::MethodInfo*> methods_;  // by id
  std::unordered_map<const host::MethodInfo*, int> ids_;
};

}  // namespace tessel::runner
