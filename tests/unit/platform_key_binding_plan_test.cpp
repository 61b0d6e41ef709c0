// Where postKeys binds the keysyms the layout lacks, without an X server: spares in order, a
// binding kept for its keysym, the least recently used one reused but never within a second of
// an earlier call's use, and a batch that ends where the spares run out.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/key_binding_plan.h"

namespace tessel::platform::x11 {
namespace {

constexpr uint32_t kOnLayout = 0x61;  // a keysym every layout here has ("a")
constexpr uint32_t A = 0x6c1, B = 0x6c2, C = 0x6c3;  // three it lacks (Cyrillic letters)
constexpr uint32_t kNow = 50'000'000;

// Keycodes 8 to 15, each holding kOnLayout at two levels except those listed.
KeymapSnapshot keymap(const std::vector<std::pair<int, uint32_t>>& firstSyms) {
  KeymapSnapshot map{8, 2, std::vector<uint32_t>(16, kOnLayout)};
  for (auto [keycode, sym] : firstSyms) {
    map.syms[static_cast<size_t>((keycode - 8) * 2)] = sym;
    map.syms[static_cast<size_t>((keycode - 8) * 2 + 1)] = 0;
  }
  return map;
}

struct Case {
  std::string name;
  std::vector<uint32_t> keysyms;
  std::vector<std::pair<int, uint32_t>> keymap;  // first keysyms that differ; 0: a spare
  std::vector<KeyBinding> before;
  uint32_t callStart;
  BindingPlan plan;
  std::vector<KeyBinding> after;
};

TEST(KeyBindingPlan, BindsSparesReusesBindingsAndEndsBatches) {
  const std::vector<Case> cases = {
      {"nothing missing: the bindings typed with are fresh again",
       {kOnLayout, A}, {{10, A}}, {{10, A, 5}, {11, B, 5}}, kNow,
       {{}, 2, 0}, {{10, A, kNow}, {11, B, 5}}},
      {"missing keysyms take the lowest spares, once each, in order of first use",
       {B, kOnLayout, A, B}, {{10, 0}, {12, 0}, {13, 0}}, {}, kNow,
       {{{10, B}, {12, A}}, 4, 0}, {{10, B, kNow}, {12, A, kNow}}},
      {"without spares the binding unused for longest goes to the new keysym",
       {C}, {{10, A}, {11, B}}, {{10, A, 300}, {11, B, 200}}, kNow,
       {{{11, C}}, 1, 0}, {{10, A, 300}, {11, C, kNow}}},
      {"an earlier call's binding is taken only a second after its use",
       {C}, {{11, B}}, {{11, B, kNow - 300'000}}, kNow,
       {{{11, C}}, 1, 700'000}, {{11, C, kNow}}},
      {"a binding this call typed with in an earlier batch is taken at once",
       {C}, {{11, B}}, {{11, B, kNow - 300'000}}, kNow - 400'000,
       {{{11, C}}, 1, 0}, {{11, C, kNow}}},
      {"a binding the batch types with is not taken: the batch ends before the keysym",
       {A, kOnLayout, C, A}, {{10, A}}, {{10, A, 5}}, kNow,
       {{}, 2, 0}, {{10, A, kNow}}},
      {"more missing keysyms than spares: the batch ends at the first that did not fit",
       {A, B, A, C}, {{9, 0}}, {}, kNow,
       {{{9, A}}, 1, 0}, {{9, A, kNow}}},
      {"a binding a layout switch replaced is forgotten; its emptied keycode is spare again",
       {C}, {{10, 0}, {11, kOnLayout}}, {{10, A, 5}, {11, B, 5}}, kNow,
       {{{10, C}}, 1, 0}, {{10, C, kNow}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const KeymapSnapshot map = keymap(c.keymap);
    std::vector<KeyBinding> bindings = c.before;
    bool keymapRead = false;
    // A keysym is on the layout when some keycode of the keymap gives it.
    auto onLayout = [&](uint32_t keysym) {
      for (int kc = map.minKey; kc <= map.maxKey(); ++kc)
        if (map.firstSym(kc) == keysym) return true;
      return false;
    };
    const BindingPlan plan = planBindings(bindings, c.keysyms, onLayout, [&] {
      keymapRead = true;
      return std::optional<KeymapSnapshot>(map);
    }, kNow, c.callStart);
    EXPECT_EQ(plan.changes, c.plan.changes);
    EXPECT_EQ(plan.batchEnd, c.plan.batchEnd);
    EXPECT_EQ(plan.restMicros, c.plan.restMicros);
    EXPECT_EQ(bindings, c.after);
    // The keymap costs a round trip: it is read only when a keysym is missing.
    const bool anyMissing = std::any_of(c.keysyms.begin(), c.keysyms.end(),
                                        [&](uint32_t k) { return !onLayout(k); });
    EXPECT_EQ(keymapRead, anyMissing);
  }
}

TEST(KeyBindingPlan, AnUnreadableKeymapBindsNothing) {
  std::vector<KeyBinding> bindings;
  const std::vector<uint32_t> keysyms = {A, kOnLayout};
  const BindingPlan plan = planBindings(
      bindings, keysyms, [](uint32_t k) { return k == kOnLayout; },
      [] { return std::optional<KeymapSnapshot>(); }, kNow, kNow);
  EXPECT_TRUE(plan.changes.empty());
  EXPECT_EQ(plan.batchEnd, keysyms.size());  // A is passed over, as a keysym no key gives
  EXPECT_TRUE(bindings.empty());
}

}  // namespace
}  // namespace tessel::platform::x11
