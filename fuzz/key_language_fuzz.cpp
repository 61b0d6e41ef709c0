// Fuzzes the key language of tsSendKeys: any string parses without a fault; every modifier
// pressed is released before the next key, nothing stays down at the end; every step names a
// key of the US layout; the steps stay bounded by the input (at most ten modifiers per key).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "windows/key_language.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using tessel::windows::KeyStep;
  std::string_view keys(reinterpret_cast<const char*>(data), size);
  std::vector<KeyStep> steps = tessel::windows::parseKeys(keys);
  if (steps.size() > 21 * size) __builtin_trap();
  std::vector<uint16_t> held;
  size_t typed = 0;
  for (const KeyStep& step : steps) {
    if (tessel::windows::usKeysym(step.code, step.shift) == 0) __builtin_trap();
    switch (step.kind) {
      case KeyStep::ModifierDown:
        if (typed != 0 || held.size() >= 10) __builtin_trap();
        held.push_back(step.code);
        break;
      case KeyStep::Type:
        if (++typed > 1) __builtin_trap();
        break;
      case KeyStep::ModifierUp:
        if (held.empty() || held.front() != step.code) __builtin_trap();
        held.erase(held.begin());
        if (held.empty()) typed = 0;
        break;
    }
    if (step.kind == KeyStep::Type && held.empty()) typed = 0;
  }
  if (!held.empty()) __builtin_trap();
  if (tessel::windows::keyEvents(steps).size() != steps.size()) __builtin_trap();
  if (size >= 4) {
    int32_t number = 0;
    std::memcpy(&number, data, 4);
    uint16_t code = tessel::windows::keyCodeForKeyNumber(number);
    if (code != 65535 && code >= 128) __builtin_trap();
  }
  return 0;
}
