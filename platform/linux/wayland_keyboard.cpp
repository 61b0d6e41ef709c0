#include "platform/linux/wayland_keyboard.h"

#include <sys/mman.h>
#include <time.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <climits>
#include <map>
#include <string>
#include <unordered_map>

#include "platform/linux/wayland_seat.h"
#include "virtual-keyboard-unstable-v1-client-protocol.h"

namespace tessel::platform::wayland {
namespace {

using namespace std::chrono_literals;

struct Stroke {
  xkb_keycode_t keycode = 0;  // 0: no key gives the keysym
  xkb_mod_mask_t mods = 0;    // the modifiers of the level that gives it
};

// The key and level modifiers that give `keysym` in the first layout. Among several keys the
// lowest keycode reached plainly or with Shift wins, then the lowest other level (as on X11:
// "(" is Shift+9, "<" Shift+comma). Levels reached only with Lock do not count.
Stroke findKey(xkb_keymap* keymap, xkb_keysym_t keysym) {
  Stroke best;
  xkb_level_index_t bestRank = UINT_MAX;
  const xkb_mod_index_t lock = xkb_keymap_mod_get_index(keymap, XKB_MOD_NAME_CAPS);
  const xkb_mod_mask_t lockMask = lock == XKB_MOD_INVALID ? 0 : (1u << lock);
  for (xkb_keycode_t kc = xkb_keymap_min_keycode(keymap); kc <= xkb_keymap_max_keycode(keymap); ++kc) {
    if (xkb_keymap_num_layouts_for_key(keymap, kc) == 0) continue;
    const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap, kc, 0);
    for (xkb_level_index_t level = 0; level < levels; ++level) {
      const xkb_level_index_t rank = level <= 1 ? 0 : level;
      if (rank >= bestRank) break;
      const xkb_keysym_t* syms = nullptr;
      if (xkb_keymap_key_get_syms_by_level(keymap, kc, 0, level, &syms) != 1 || syms[0] != keysym)
        continue;
      xkb_mod_mask_t masks[8];
      const size_t count = xkb_keymap_key_get_mods_for_level(keymap, kc, 0, level, masks, 8);
      bool reachable = false;
      xkb_mod_mask_t mods = 0;
      for (size_t i = 0; i < count; ++i) {
        if (masks[i] & lockMask) continue;
        // The plainest way to the level: Shift alone over Shift with another modifier.
        if (!reachable || __builtin_popcount(masks[i]) < __builtin_popcount(mods)) {
          mods = masks[i];
          reachable = true;
        }
      }
      if (!reachable) continue;
      best = {kc, mods};
      bestRank = rank;
      break;
    }
    if (bestRank == 0) break;
  }
  return best;
}

// A keysym bound to a key the layout leaves empty.
struct Binding {
  xkb_keycode_t keycode = 0;
  xkb_keysym_t keysym = 0;
  uint64_t lastBatch = 0;  // the batch that last typed with it
};

}  // namespace

struct VirtualKeyboard::State {
  WaylandConnection& connection;
  std::unique_ptr<Seat> seat;
  zwp_virtual_keyboard_v1* keyboard = nullptr;
  xkb_context* context = nullptr;
  xkb_keymap* base = nullptr;
  std::string baseText;
  std::vector<xkb_keycode_t> spares;  // keys with a name and no symbols in the base layout
  std::vector<Binding> bindings;
  xkb_keymap* keymap = nullptr;  // the one the compositor has: the base with the bindings
  xkb_state* mirror = nullptr;   // the modifier state our own keys make on it
  std::unordered_map<xkb_keysym_t, Stroke> strokes;  // found on `keymap`
  std::unordered_map<xkb_keysym_t, bool> onBase;     // whether the base layout has a key for it
  uint64_t batch = 0;

  explicit State(WaylandConnection& c) : connection(c) {}
  ~State() {
    if (keyboard != nullptr) zwp_virtual_keyboard_v1_destroy(keyboard);
    if (mirror != nullptr) xkb_state_unref(mirror);
    if (keymap != nullptr) xkb_keymap_unref(keymap);
    if (base != nullptr) xkb_keymap_unref(base);
    if (context != nullptr) xkb_context_unref(context);
  }

  Stroke stroke(xkb_keysym_t keysym) {
    auto found = strokes.find(keysym);
    if (found == strokes.end()) found = strokes.emplace(keysym, findKey(keymap, keysym)).first;
    return found->second;
  }

  // The base layout's text with one line per binding in its symbols section.
  std::string keymapText() const {
    std::string text = baseText;
    const size_t section = text.find("xkb_symbols");
    const size_t open = section == std::string::npos ? section : text.find('\n', section);
    if (open == std::string::npos) return text;
    std::string lines;
    char name[64];
    for (const Binding& b : bindings) {
      const char* key = xkb_keymap_key_get_name(base, b.keycode);
      if (key == nullptr || xkb_keysym_get_name(b.keysym, name, sizeof name) <= 0) continue;
      lines += std::string("\tkey <") + key + "> { [ " + name + " ] };\n";
    }
    text.insert(open + 1, lines);
    return text;
  }

  // Compiles the keymap with the current bindings and sends it to the compositor.
  bool sendKeymap() {
    const std::string text = keymapText();
    xkb_keymap* compiled = xkb_keymap_new_from_string(context, text.c_str(), XKB_KEYMAP_FORMAT_TEXT_V1,
                                                      XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (compiled == nullptr) return false;
    const int fd = memfd_create("tessel-keymap", MFD_CLOEXEC);
    if (fd < 0) {
      xkb_keymap_unref(compiled);
      return false;
    }
    bool written = true;
    for (size_t done = 0; done < text.size() + 1 && written;) {
      const ssize_t n = ::write(fd, text.c_str() + done, text.size() + 1 - done);
      written = n > 0;
      if (written) done += static_cast<size_t>(n);
    }
    if (written) {
      zwp_virtual_keyboard_v1_keymap(keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd,
                                     static_cast<uint32_t>(text.size() + 1));
    }
    ::close(fd);  // the request holds a copy
    if (!written) {
      xkb_keymap_unref(compiled);
      return false;
    }
    if (keymap != nullptr) xkb_keymap_unref(keymap);
    keymap = compiled;
    if (mirror != nullptr) xkb_state_unref(mirror);
    mirror = xkb_state_new(keymap);
    strokes.clear();
    return mirror != nullptr;
  }

  // Binds the keysyms of events[start, end) the layout lacks; answers where the batch must end
  // (before the first keysym no key is left for) and whether the bindings changed.
  size_t plan(const std::vector<KeyEvent>& events, size_t start, bool& changed) {
    ++batch;
    changed = false;
    for (size_t i = start; i < events.size(); ++i) {
      const xkb_keysym_t keysym = events[i].keysym;
      auto known = onBase.find(keysym);
      if (known == onBase.end()) known = onBase.emplace(keysym, findKey(base, keysym).keycode != 0).first;
      if (known->second) continue;
      auto bound = std::find_if(bindings.begin(), bindings.end(),
                                [&](const Binding& b) { return b.keysym == keysym; });
      if (bound != bindings.end()) {
        bound->lastBatch = batch;
        continue;
      }
      // A keysym no key can give at all (not a keysym) is passed over when typed.
      char name[64];
      if (keysym == 0 || xkb_keysym_get_name(keysym, name, sizeof name) <= 0) continue;
      if (bindings.size() < spares.size()) {
        bindings.push_back({spares[bindings.size()], keysym, batch});
      } else {
        // The binding unused for longest that this batch does not type with.
        auto oldest = std::min_element(bindings.begin(), bindings.end(), [](const Binding& a, const Binding& b) {
          return a.lastBatch < b.lastBatch;
        });
        if (oldest == bindings.end() || oldest->lastBatch == batch) return i;
        *oldest = {oldest->keycode, keysym, batch};
      }
      changed = true;
    }
    return events.size();
  }

  // A key pressed or released. The compositor does not work out the modifiers a virtual
  // keyboard's keys make: when a key changes them (Shift, Control, Caps Lock) they follow it.
  void key(xkb_keycode_t keycode, bool down) {
    zwp_virtual_keyboard_v1_key(keyboard, eventTimeMs(), keycode - 8,
                                down ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
    if (xkb_state_update_key(mirror, keycode, down ? XKB_KEY_DOWN : XKB_KEY_UP) != 0) modifiers(0);
  }

  // Tells the compositor the modifiers our keys make, with `extra` held on top.
  void modifiers(xkb_mod_mask_t extra) {
    zwp_virtual_keyboard_v1_modifiers(keyboard, xkb_state_serialize_mods(mirror, XKB_STATE_MODS_DEPRESSED) | extra,
                                      xkb_state_serialize_mods(mirror, XKB_STATE_MODS_LATCHED),
                                      xkb_state_serialize_mods(mirror, XKB_STATE_MODS_LOCKED),
                                      xkb_state_serialize_layout(mirror, XKB_STATE_LAYOUT_EFFECTIVE));
  }
};

VirtualKeyboard::VirtualKeyboard(std::unique_ptr<State> state) : state_(std::move(state)) {}

VirtualKeyboard::~VirtualKeyboard() {
  WaylandConnection& connection = state_->connection;
  state_.reset();
  connection.flush(200ms);
}

std::unique_ptr<VirtualKeyboard> VirtualKeyboard::create(WaylandConnection& connection) {
  auto state = std::make_unique<State>(connection);
  auto* manager = connection.bind<zwp_virtual_keyboard_manager_v1>(
      zwp_virtual_keyboard_manager_v1_interface, 1, 1);
  if (manager == nullptr) return nullptr;
  state->seat = Seat::bind(connection);
  if (state->seat != nullptr)
    state->keyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(manager, state->seat->proxy());
  zwp_virtual_keyboard_manager_v1_destroy(manager);
  if (state->keyboard == nullptr) return nullptr;
  const bool hadKeyboard = state->seat->capabilities() & WL_SEAT_CAPABILITY_KEYBOARD;

  state->context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
  if (state->context == nullptr) return nullptr;
  state->base = xkb_keymap_new_from_names(state->context, nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS);
  if (state->base == nullptr) return nullptr;
  char* text = xkb_keymap_get_as_string(state->base, XKB_KEYMAP_FORMAT_TEXT_V1);
  if (text == nullptr) return nullptr;
  state->baseText = text;
  free(text);
  // Spare keys below 256, where every client can read them.
  for (xkb_keycode_t kc = std::max<xkb_keycode_t>(xkb_keymap_min_keycode(state->base), 9);
       kc <= std::min<xkb_keycode_t>(xkb_keymap_max_keycode(state->base), 255); ++kc) {
    if (xkb_keymap_num_layouts_for_key(state->base, kc) == 0 && xkb_keymap_key_get_name(state->base, kc) != nullptr)
      state->spares.push_back(kc);
  }
  if (!state->sendKeymap() || !connection.roundtrip(1s)) return nullptr;
  if (!state->seat->settleNewDevice(WL_SEAT_CAPABILITY_KEYBOARD, hadKeyboard)) return nullptr;
  return std::unique_ptr<VirtualKeyboard>(new VirtualKeyboard(std::move(state)));
}

bool VirtualKeyboard::post(const std::vector<KeyEvent>& events) {
  State& s = *state_;
  bool sent = true;
  {
    // Every key this call holds, released on every way out, and the modifiers put back.
    std::map<xkb_keycode_t, int> held;
    struct Release {
      State& s;
      std::map<xkb_keycode_t, int>& held;
      ~Release() {
        for (const auto& entry : held) s.key(entry.first, false);
        s.modifiers(0);
      }
    } release{s, held};
    sent = postEvents(s, events, held);
  }
  // Handled before the call returns (and before any disconnect, which would drop queued keys).
  return s.connection.roundtrip(2s) && sent;
}

bool VirtualKeyboard::postEvents(State& s, const std::vector<KeyEvent>& events,
                                 std::map<uint32_t, int>& held) {
  size_t start = 0;
  size_t sinceFlush = 0;
  while (start < events.size()) {
    bool changed = false;
    size_t end = s.plan(events, start, changed);
    if (end <= start) end = start + 1;
    if (changed) {
      if (!s.sendKeymap()) return false;
      // The compositor keeps held keys down across a keymap change; so does the mirror.
      for (const auto& entry : held) xkb_state_update_key(s.mirror, entry.first, XKB_KEY_DOWN);
    }
    for (size_t i = start; i < end; ++i) {
      const Stroke stroke = s.stroke(events[i].keysym);
      if (stroke.keycode == 0) continue;
      switch (events[i].action) {
        case KeyAction::Down:
          s.key(stroke.keycode, true);
          ++held[stroke.keycode];
          break;
        case KeyAction::Up:
          s.key(stroke.keycode, false);
          held.erase(stroke.keycode);
          break;
        case KeyAction::Tap: {
          const xkb_mod_mask_t extra =
              stroke.mods & ~xkb_state_serialize_mods(s.mirror, XKB_STATE_MODS_DEPRESSED);
          if (extra != 0) s.modifiers(extra);
          s.key(stroke.keycode, true);
          s.key(stroke.keycode, false);
          if (extra != 0) s.modifiers(0);
          break;
        }
      }
      // Sent in pieces the socket takes, waiting while the compositor reads.
      if (++sinceFlush >= 64) {
        sinceFlush = 0;
        if (!s.connection.flush(1s)) return false;
      }
    }
    start = end;
  }
  return true;
}

}  // namespace tessel::platform::wayland
