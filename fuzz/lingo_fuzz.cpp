// Feeds arbitrary text to the message window's interpreter: as a script (parsed, then run with a
// step limit), as an expression (what value() and the host's call-backs read), and as the
// multi-line input check. None of it may crash, hang or leak.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/lingo/interpreter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  tessel::lingo::Interpreter lingo;
  tessel::lingo::Limits limits;
  // Small enough that no input can build more than a few hundred megabytes in its steps.
  limits.maxSteps = 10000;
  limits.maxTextBytes = 1 << 14;
  limits.maxListItems = 1024;
  limits.maxCallDepth = 200;
  limits.maxStackBytes = 1 << 20;
  lingo.setLimits(limits);
  lingo.setOutput([](const std::string&) {});
  lingo.setErrorOutput([](const std::string&) {});

  (void)tessel::lingo::Interpreter::needsMoreInput(text);
  (void)lingo.run(text);
  // Handlers the input may have defined, called the way a benchmark or the host would.
  using tessel::host::Value;
  std::vector<Value> args = {Value(int32_t{1}), Value("a"), Value::list({Value(2.5)})};
  (void)lingo.callHandler("f", args);
  Value result;
  tessel::host::Movie& movie = lingo;
  (void)movie.callHandler("value", {Value(std::string(text))}, result);
  (void)lingo.evaluate(text);
  return 0;
}
