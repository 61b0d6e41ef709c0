#include "platform/linux/x11_input.h"

#include <X11/XKBlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>
#include <time.h>

#include <algorithm>
#include <climits>
#include <map>
#include <unordered_map>

#include "platform/linux/linux_processes.h"
#include "platform/linux/x11_connection.h"

namespace tessel::platform::x11 {
namespace {

using processes::monotonicMicroseconds;

struct Stroke {
  KeyCode keycode = 0;
  unsigned int mods = 0;  // the modifier mask of the level that gives the keysym
};

// The keycode and level modifiers that give `keysym` in `group`; keycode 0 when none. Among
// several keys the lowest keycode reached plainly or with Shift wins ("(" is Shift+9, not the
// extra parenthesis key of some keyboards; "<" is Shift+comma), then the lowest other level.
Stroke findKey(XkbDescPtr xkb, int group, uint32_t keysym) {
  Stroke best;
  int bestRank = INT_MAX;
  for (int kc = xkb->min_key_code; kc <= xkb->max_key_code; ++kc) {
    const int groups = XkbKeyNumGroups(xkb, kc);
    if (groups == 0) continue;
    const int g = group < groups ? group : 0;
    XkbKeyTypePtr type = XkbKeyKeyType(xkb, kc, g);
    const int levels = std::min<int>(type->num_levels, XkbKeyGroupsWidth(xkb, kc));
    for (int level = 0; level < levels; ++level) {
      const int rank = level <= 1 ? 0 : level;
      if (rank >= bestRank) break;
      if (XkbKeySymEntry(xkb, kc, level, g) != keysym) continue;
      unsigned int mods = 0;
      bool reachable = level == 0;
      for (int e = 0; e < type->map_count && level > 0; ++e) {
        const XkbKTMapEntryRec& entry = type->map[e];
        if (!entry.active || entry.level != level || (entry.mods.mask & LockMask)) continue;
        // The plainest way to the level: Shift alone over Shift with another modifier.
        if (!reachable || __builtin_popcount(entry.mods.mask) < __builtin_popcount(mods)) {
          mods = entry.mods.mask;
          reachable = true;
        }
      }
      if (!reachable) continue;
      best = {static_cast<KeyCode>(kc), mods};
      bestRank = rank;
      break;
    }
    if (bestRank == 0) break;
  }
  return best;
}

// One key for each modifier bit of `mask` (Shift_L for Shift), from the modifier map and the
// keyboard description already read, so that no round trip falls between the keys of a call.
std::vector<KeyCode> modifierKeys(const XModifierKeymap* map, XkbDescPtr xkb, int group,
                                  unsigned int mask) {
  std::vector<KeyCode> keys;
  if (mask == 0 || map == nullptr) return keys;
  for (int bit = 0; bit < 8; ++bit) {
    if (!(mask & (1u << bit))) continue;
    KeyCode chosen = 0;
    if (bit == ShiftMapIndex) {
      Stroke shift = findKey(xkb, group, XK_Shift_L);
      if (shift.mods == 0) chosen = shift.keycode;
    }
    for (int k = 0; k < map->max_keypermod && chosen == 0; ++k)
      chosen = map->modifiermap[bit * map->max_keypermod + k];
    if (chosen != 0) keys.push_back(chosen);
  }
  return keys;
}

// The core keyboard mapping as it is now (a layout switch may have replaced earlier bindings).
std::optional<KeymapSnapshot> readKeymap(Display* dpy) {
  int minKey = 0, maxKey = 0, perKey = 0;
  XDisplayKeycodes(dpy, &minKey, &maxKey);
  KeySym* map = XGetKeyboardMapping(dpy, static_cast<KeyCode>(minKey), maxKey - minKey + 1, &perKey);
  if (map == nullptr) return std::nullopt;
  KeymapSnapshot out;
  out.minKey = minKey;
  out.perKey = perKey;
  out.syms.assign(map, map + (maxKey - minKey + 1) * perKey);
  XFree(map);
  return out;
}

// Makes the planned map change: one XKB change over the keycodes from the first changed to the
// last. The keys between go back exactly as the server described them, so clients see a single
// mapping change and no real key is touched. Each spare gets one level holding its keysym.
bool applyBindings(Display* dpy, XkbDescPtr xkb, const BindingPlan& plan) {
  if (plan.changes.empty()) return false;
  if (plan.restMicros > 0) {
    XSync(dpy, False);
    timespec pause{0, static_cast<long>(plan.restMicros) * 1000L};
    nanosleep(&pause, nullptr);
  }
  KeyCode low = plan.changes.front().first, high = low;
  for (const auto& [keycode, keysym] : plan.changes) {
    low = std::min(low, keycode);
    high = std::max(high, keycode);
    KeySym* syms = XkbResizeKeySyms(xkb, keycode, 1);
    if (syms == nullptr) return false;
    XkbSymMapPtr symMap = &xkb->map->key_sym_map[keycode];
    symMap->kt_index[0] = XkbOneLevelIndex;
    symMap->group_info = static_cast<unsigned char>(XkbSetNumGroups(0, 1));
    symMap->width = 1;
    syms[0] = static_cast<KeySym>(keysym);
  }
  XkbMapChangesRec mapChanges{};
  mapChanges.changed = XkbKeySymsMask;
  mapChanges.first_key_sym = low;
  mapChanges.num_key_syms = static_cast<unsigned char>(high - low + 1);
  if (!XkbChangeMap(dpy, xkb, &mapChanges)) return false;
  XSync(dpy, False);
  return true;
}

// Every key a call pressed and has not released, released again on every way out.
struct HeldKeys {
  Display* dpy;
  std::map<KeyCode, int> keys;
  void down(KeyCode k) {
    XTestFakeKeyEvent(dpy, k, True, CurrentTime);
    ++keys[k];
  }
  void up(KeyCode k) {
    XTestFakeKeyEvent(dpy, k, False, CurrentTime);
    keys.erase(k);
  }
  ~HeldKeys() {
    for (const auto& entry : keys) XTestFakeKeyEvent(dpy, entry.first, False, CurrentTime);
    XFlush(dpy);
  }
};

// Posts events[start, end) on the layout `xkb` describes.
void postBatch(Display* dpy, XkbDescPtr xkb, int group, const std::vector<KeyEvent>& events,
               size_t start, size_t end, HeldKeys& held) {
  // Read before the first key of the batch: the events queue up until the one flush.
  XModifierKeymap* modifierMap = XGetModifierMapping(dpy);
  std::unordered_map<uint32_t, Stroke> strokes;
  std::unordered_map<unsigned int, std::vector<KeyCode>> modifiers;
  for (size_t i = start; i < end; ++i) {
    const KeyEvent& event = events[i];
    auto found = strokes.find(event.keysym);
    if (found == strokes.end()) found = strokes.emplace(event.keysym, findKey(xkb, group, event.keysym)).first;
    const Stroke& stroke = found->second;
    if (stroke.keycode == 0) continue;
    if (event.action == KeyAction::Down) {
      held.down(stroke.keycode);
    } else if (event.action == KeyAction::Up) {
      held.up(stroke.keycode);
    } else {
      auto mods = modifiers.find(stroke.mods);
      if (mods == modifiers.end())
        mods = modifiers.emplace(stroke.mods, modifierKeys(modifierMap, xkb, group, stroke.mods)).first;
      for (KeyCode m : mods->second) held.down(m);
      held.down(stroke.keycode);
      held.up(stroke.keycode);
      for (KeyCode m : mods->second) held.up(m);
    }
  }
  if (modifierMap != nullptr) XFreeModifiermap(modifierMap);
}

}  // namespace

X11Input::X11Input(Display* dpy) : dpy_(dpy) {
  int event = 0, error = 0, major = 0, minor = 0;
  hasXTest_ = XTestQueryExtension(dpy, &event, &error, &major, &minor);
}

bool X11Input::postKeys(const std::vector<KeyEvent>& events) {
  if (!hasXTest_) return false;
  HeldKeys held{dpy_, {}};
  // No error trap and no sync: the call returns once the events are flushed, and the server
  // delivers them after.
  const uint32_t callStart = monotonicMicroseconds();
  std::vector<uint32_t> keysyms;
  keysyms.reserve(events.size());
  for (const KeyEvent& event : events) keysyms.push_back(event.keysym);
  size_t start = 0;
  while (start < events.size()) {
    XkbDescPtr xkb = XkbGetMap(dpy_, XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
    if (xkb == nullptr) return false;
    XkbStateRec state{};
    XkbGetState(dpy_, XkbUseCoreKbd, &state);
    const int group = state.group;
    // Keysyms the layout lacks go to spare keycodes first, as many as fit in this batch.
    const std::span<const uint32_t> rest(keysyms.begin() + static_cast<long>(start), keysyms.end());
    const BindingPlan plan = planBindings(
        bindings_, rest, [&](uint32_t k) { return findKey(xkb, group, k).keycode != 0; },
        [&] { return readKeymap(dpy_); }, monotonicMicroseconds(), callStart);
    size_t batchEnd = start + plan.batchEnd;
    const bool rebound = applyBindings(dpy_, xkb, plan);
    // A keysym no keycode can be found for is passed over.
    if (batchEnd <= start) batchEnd = start + 1;
    if (rebound) {
      XkbFreeKeyboard(xkb, 0, True);
      xkb = XkbGetMap(dpy_, XkbKeyTypesMask | XkbKeySymsMask, XkbUseCoreKbd);
      if (xkb == nullptr) return false;
    }
    postBatch(dpy_, xkb, group, events, start, batchEnd, held);
    XkbFreeKeyboard(xkb, 0, True);
    start = batchEnd;
    if (start < events.size()) {
      // More keysyms than spare keycodes: let clients read this batch's keymap first.
      XSync(dpy_, False);
      timespec pause{0, 50 * 1000000L};
      nanosleep(&pause, nullptr);
    }
  }
  return true;
}

bool X11Input::anyKeyDown(const std::vector<uint32_t>& keysyms) {
  char keys[32] = {};
  XQueryKeymap(dpy_, keys);
  const std::optional<KeymapSnapshot> keymap = readKeymap(dpy_);
  if (!keymap) return false;
  for (int kc = keymap->minKey; kc <= keymap->maxKey(); ++kc) {
    if (!(keys[kc / 8] & (1 << (kc % 8)))) continue;
    for (int i = 0; i < keymap->perKey; ++i) {
      const uint32_t sym = keymap->syms[static_cast<size_t>((kc - keymap->minKey) * keymap->perKey + i)];
      if (std::find(keysyms.begin(), keysyms.end(), sym) != keysyms.end()) return true;
    }
  }
  return false;
}

bool X11Input::click(Window root, int button) {
  if (!hasXTest_ || button < 1 || button > 3) return false;
  X11ErrorTrap trap(dpy_);
  Window rootReturn = 0, child = 0;
  int rx = 0, ry = 0, wx = 0, wy = 0;
  unsigned int mask = 0;
  XQueryPointer(dpy_, root, &rootReturn, &child, &rx, &ry, &wx, &wy, &mask);
  // A right click releases the left button first, a middle click the left and right ones,
  // each only when it is down.
  const unsigned int buttonMasks[4] = {0, Button1Mask, Button2Mask, Button3Mask};
  std::vector<int> release;
  if (button == 3) release = {1};
  if (button == 2) release = {1, 3};
  for (int other : release)
    if (mask & buttonMasks[other])
      XTestFakeButtonEvent(dpy_, static_cast<unsigned>(other), False, CurrentTime);
  XTestFakeButtonEvent(dpy_, static_cast<unsigned>(button), True, CurrentTime);
  XTestFakeButtonEvent(dpy_, static_cast<unsigned>(button), False, CurrentTime);
  XFlush(dpy_);
  return trap.sync() == 0;
}

}  // namespace tessel::platform::x11
