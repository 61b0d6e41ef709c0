#include "platform/linux/key_binding_plan.h"

#include <algorithm>
#include <set>

namespace tessel::platform::x11 {

uint32_t KeymapSnapshot::firstSym(int keycode) const {
  if (keycode < minKey || keycode > maxKey()) return 0;
  return syms[static_cast<size_t>((keycode - minKey) * perKey)];
}

bool KeymapSnapshot::empty(int keycode) const {
  if (keycode < minKey || keycode > maxKey()) return false;
  const auto first = syms.begin() + (keycode - minKey) * perKey;
  return std::all_of(first, first + perKey, [](uint32_t sym) { return sym == 0; });
}

namespace {

// The keysyms no key gives, each once, in order of first use.
std::vector<uint32_t> missingKeysyms(std::span<const uint32_t> keysyms,
                                     const std::function<bool(uint32_t)>& onLayout) {
  std::vector<uint32_t> missing;
  for (uint32_t keysym : keysyms)
    if (std::find(missing.begin(), missing.end(), keysym) == missing.end() && !onLayout(keysym))
      missing.push_back(keysym);
  return missing;
}

bool contains(std::span<const uint32_t> keysyms, uint32_t keysym) {
  return std::find(keysyms.begin(), keysyms.end(), keysym) != keysyms.end();
}

}  // namespace

BindingPlan planBindings(std::vector<KeyBinding>& bindings, std::span<const uint32_t> keysyms,
                         const std::function<bool(uint32_t)>& onLayout,
                         const std::function<std::optional<KeymapSnapshot>()>& readKeymap,
                         uint32_t now, uint32_t callStart) {
  BindingPlan plan;
  plan.batchEnd = keysyms.size();
  const std::vector<uint32_t> missing = missingKeysyms(keysyms, onLayout);
  std::optional<KeymapSnapshot> keymap;
  if (!missing.empty()) keymap = readKeymap();
  // A layout switch may have replaced earlier bindings.
  if (keymap)
    std::erase_if(bindings, [&](const KeyBinding& b) { return keymap->firstSym(b.keycode) != b.keysym; });
  // Bindings typed with are fresh again, and not given to another keysym of this batch.
  std::set<uint8_t> usedNow;
  for (KeyBinding& b : bindings)
    if (contains(keysyms, b.keysym)) {
      usedNow.insert(b.keycode);
      b.lastUse = now;
    }
  if (!keymap) return plan;
  std::vector<uint8_t> spares;
  for (int kc = keymap->minKey; kc <= keymap->maxKey() && kc <= 255; ++kc)
    if (keymap->empty(kc)) spares.push_back(static_cast<uint8_t>(kc));

  size_t nextSpare = 0;
  for (uint32_t keysym : missing) {
    uint8_t keycode = 0;
    if (nextSpare < spares.size()) {
      keycode = spares[nextSpare++];
      bindings.push_back({keycode, keysym, now});
    } else {
      // The binding unused for longest among those this batch does not type with.
      KeyBinding* reuse = nullptr;
      for (KeyBinding& b : bindings)
        if (!usedNow.count(b.keycode) && (reuse == nullptr || b.lastUse < reuse->lastUse)) reuse = &b;
      if (reuse == nullptr) break;  // every binding holds a keysym of this batch
      // A binding an earlier call typed with is never taken within a second of that use.
      const uint32_t rested = now - reuse->lastUse;
      if (reuse->lastUse < callStart && rested < 1000000)
        plan.restMicros = std::max(plan.restMicros, 1000000 - rested);
      keycode = reuse->keycode;
      *reuse = {keycode, keysym, now};
    }
    usedNow.insert(keycode);
    plan.changes.push_back({keycode, keysym});
  }
  // The batch ends before the first event whose keysym is still unbound.
  for (size_t i = 0; i < keysyms.size(); ++i) {
    const uint32_t keysym = keysyms[i];
    const bool waiting = std::find(missing.begin(), missing.end(), keysym) != missing.end() &&
                         std::none_of(plan.changes.begin(), plan.changes.end(),
                                      [&](const auto& c) { return c.second == keysym; });
    if (waiting) {
      plan.batchEnd = i;
      break;
    }
  }
  return plan;
}

}  // namespace tessel::platform::x11
