#include "host/tessel/host_externals.h"

#include <exception>

#include "host/lingo/values.h"

namespace tessel::runner {

int HostExternals::lookup(const std::string& name) {
  const host::MethodInfo* m = host_.findMethod(name);
  if (!m) return -1;
  auto [it, inserted] = ids_.try_emplace(m, static_cast<int>(methods_.size()));
  if (inserted) methods_.push_back(m);
  return it->second;
}

bool HostExternals::call(int id, const std::vector<host::Value>& args, host::Value& result,
                         std::string& error) {
  if (id < 0 || static_cast<size_t>(id) >= methods_.size()) {
    error = "Unknown Xtra method";
    return false;
  }
  const host::MethodInfo& m = *methods_[static_cast<size_t>(id)];
  try {
    moa::MoaError err = host_.callMethod(m, args, result);
    if (err != moa::kMoaErr_NoErr) {
      error = m.name + ": ";
      if (auto k = host_.refusedArgument()) {
        // "tsReadIni: argument 2 (Keyname): string expected, got VOID"
        error += "argument " + std::to_string(*k + 1);
        if (*k < m.args.size() && !m.args[*k].name.empty()) error += " (" + m.args[*k].name + ")";
        error += ": " + host::describeError(err) + ", got ";
        error += *k < args.size() && !args[*k].isVoid() ? lingo::describeValue(args[*k]) : "VOID";
      } else {
        error += host::describeError(err);
      }
      return false;
    }
    return true;
  } catch (const std::exception& e) {
    error = m.name + ": " + e.what();
  } catch (...) {
    error = m.name + ": the call failed";
  }
  return false;
}

std::optional<std::string> HostExternals::interfaceText(const std::string& xtraName) {
  return host_.messageTable(xtraName);
}

}  // namespace tessel::runner
