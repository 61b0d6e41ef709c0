// Parent scripts: a script file of its own (NAME.ls, found through Environment::readScript)
// whose "property" lines and handlers make objects. new(script "NAME", args) makes an instance
// with every property VOID and runs the script's "new" handler on it; a call whose first
// argument is an instance runs the instance's handler of that name; inside a script's
// handlers the declared properties are those of the handler's first argument ("me").
#include "host/lingo/builtins.h"
#include "host/lingo/interpreter.h"
#include "host/lingo/parser.h"
#include "host/lingo/values.h"

namespace tessel::lingo {

const Interpreter::ParentScript& Interpreter::parentScript(const std::string& name) {
  std::string lower = lowerCase(name);
  if (auto it = scripts_.find(lower); it != scripts_.end()) return it->second;
  std::optional<std::string> text;
  if (env_.readScript && !name.empty() && name.find('/') == std::string::npos)
    text = env_.readScript(name);
  if (!text) fail("Script not found: " + name + " (a parent script is the file " + name +
                  ".ls in the movie's folder)");
  ParseResult parsed = parseScript(*text, 1);
  std::string source = name + ".ls";
  if (!parsed.program) {
    ScriptError err(parsed.error, parsed.line);
    err.locate(source, "");
    throw err;
  }
  ParentScript ps;
  ps.name = name;
  ps.program = std::move(parsed.program);
  ps.program->source = source;
  for (auto& h : ps.program->handlers) {
    h->source = source;
    ps.handlers[h->name] = h.get();
  }
  // Call sites that resolved before any object existed look again.
  ++generation_;
  return scripts_.emplace(lower, std::move(ps)).first->second;
}

Value Interpreter::newObject(std::vector<Value> args) {
  if (!args[0].isString()) fail("new: a script expected, as in new(script \"Name\")");
  const ParentScript& ps = parentScript(args[0].string());
  std::vector<std::pair<Value, Value>> props;
  for (const auto& p : ps.program->properties) props.emplace_back(Value::symbol(p), Value());
  Value object = newPropList(std::move(props));
  object.propListPtr()->scriptName = ps.name;
  auto it = ps.handlers.find("new");
  if (it == ps.handlers.end()) return object;
  size_t base = stack_.size();
  stack_.push_back(object);
  for (size_t i = 1; i < args.size(); ++i) stack_.push_back(std::move(args[i]));
  Value result = invokeHandler(*it->second, base, args.size());
  // "on new me ... return me": a new handler that returns nothing still gives the object.
  return result.isVoid() ? object : result;
}

const Handler* Interpreter::methodOf(const Value& object, const std::string& lowerName) const {
  if (!object.isPropList()) return nullptr;
  const std::string& script = object.propListPtr()->scriptName;
  if (script.empty()) return nullptr;
  auto it = scripts_.find(lowerCase(script));
  if (it == scripts_.end()) return nullptr;
  auto h = it->second.handlers.find(lowerName);
  return h == it->second.handlers.end() ? nullptr : h->second;
}

Value& Interpreter::property(const Expr& e) {
  if (handler_ == nullptr || handler_->params == 0)
    fail("Property " + e.spelling + " used outside a handler of its object");
  const Value& self = stack_[fp_];
  if (!self.isPropList() || self.propListPtr()->scriptName.empty())
    fail("Property " + e.spelling + ": the handler's first argument is not an object, found " +
         describeValue(self));
  auto& items = self.propListPtr()->items;
  for (auto& kv : items) {
    if (kv.first.isSymbol() && equalNoCase(kv.first.sym().name, e.name)) return kv.second;
  }
  checkItems(items.size() + 1);
  items.emplace_back(Value::symbol(e.spelling), Value());
  return items.back().second;
}

}  // namespace tessel::lingo
