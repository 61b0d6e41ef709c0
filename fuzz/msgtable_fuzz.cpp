// Fuzzes the method-table parser: any registered text must parse without a fault, and the
// methods it yields must be numbered 0, 1, 2, ... in order.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/msgtable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  tessel::host::MessageTable table = tessel::host::parseMessageTable(text);
  for (size_t i = 0; i < table.methods.size(); ++i) {
    const auto& m = table.methods[i];
    if (m.selector != static_cast<int>(i) || m.name.empty()) __builtin_trap();
    if (m.scope != '*' && m.scope != '+' && m.scope != ' ') __builtin_trap();
    if (tessel::host::declaredArgumentCount(m) > m.args.size()) __builtin_trap();
  }
  return 0;
}
