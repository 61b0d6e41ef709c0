// Which keysyms a call to postKeys must bind to spare keycodes before it can type them, and
// where: the planning half of key binding, with no X in it (the applier in x11_input.cpp reads
// the keymap, sleeps what the plan says and makes the one map change).
//
// The rules: a keysym the layout lacks goes to a spare keycode (one with no keysym at all); a
// binding made here stays after the call and is reused by the keysym it holds; when no spare is
// left, the binding unused for longest that this batch does not need is given to the new keysym,
// but never within a second of an earlier call's use of it (clients read the keymap lazily, and
// would still type the old keysym); when every binding holds a keysym of this batch, the batch
// ends before the first event that could not be bound, and the next batch binds it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace tessel::platform::x11 {

// A keysym bound here to a spare keycode.
struct KeyBinding {
  uint8_t keycode = 0;
  uint32_t keysym = 0;
  uint32_t lastUse = 0;  // microseconds of the monotonic clock
  bool operator==(const KeyBinding&) const = default;
};

// The core keyboard mapping as the server describes it: `perKey` keysyms for each keycode from
// `minKey` on, 0 for none.
struct KeymapSnapshot {
  int minKey = 0;
  int perKey = 0;
  std::vector<uint32_t> syms;

  int maxKey() const { return perKey > 0 ? minKey + static_cast<int>(syms.size()) / perKey - 1 : minKey - 1; }
  uint32_t firstSym(int keycode) const;
  bool empty(int keycode) const;
};

struct BindingPlan {
  std::vector<std::pair<uint8_t, uint32_t>> changes;  // keycode, keysym: the map change to make
  size_t batchEnd = 0;       // index into the keysyms planned for where this batch stops
  uint32_t restMicros = 0;   // how long to wait before the change, for a binding to rest
  bool operator==(const BindingPlan&) const = default;
};

// Plans the next batch of `keysyms` (the events' keysyms from the batch's first on): which ones
// `onLayout` says no key gives, and where each goes on the keymap `readKeymap` answers (asked only
// when a keysym is missing; nullopt: nothing is bound). Updates `bindings` to what they will be
// once the plan is applied: bindings the keymap no longer holds are dropped, those the batch types
// with are marked used at `now`, new ones are added. `callStart` is when the postKeys call began:
// uses before it are an earlier call's.
BindingPlan planBindings(std::vector<KeyBinding>& bindings, std::span<const uint32_t> keysyms,
                         const std::function<bool(uint32_t)>& onLayout,
                         const std::function<std::optional<KeymapSnapshot>()>& readKeymap,
                         uint32_t now, uint32_t callStart);

}  // namespace tessel::platform::x11
