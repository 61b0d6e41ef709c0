#include "windows/key_language.h"

#include <X11/keysym.h>

#include <array>
#include <string>

namespace tessel::windows {
namespace {

constexpr uint16_t kNoKey = 65535;
constexpr uint16_t kControl = 59, kOption = 58, kCommand = 55, kShift = 56;
constexpr size_t kMaxModifiers = 10;
constexpr size_t kMaxNameLength = 12;

struct CharKey {
  uint16_t code = 0;
  bool shift = false;
  bool valid = false;
};

constexpr std::array<CharKey, 128> makeCharMap() {
  std::array<CharKey, 128> map{};
  constexpr uint16_t letters[26] = {0,  11, 8,  2,  14, 3,  5,  4,  34, 38, 40, 37, 46,
                                    45, 31, 35, 12, 15, 1,  17, 32, 9,  13, 7,  16, 6};
  for (int i = 0; i < 26; ++i) {
    map['a' + i] = {letters[i], false, true};
    map['A' + i] = {letters[i], true, true};
  }
  constexpr uint16_t digits[10] = {29, 18, 19, 20, 21, 23, 22, 26, 28, 25};
  for (int i = 0; i < 10; ++i) map['0' + i] = {digits[i], false, true};
  struct Entry {
    char c;
    uint16_t code;
    bool shift;
  };
  constexpr Entry punctuation[] = {
      {' ', 49, false}, {'\'', 39, false}, {',', 43, false}, {'-', 27, false}, {'.', 47, false},
      {'/', 44, false}, {';', 41, false},  {'=', 24, false}, {'[', 33, false}, {'\\', 42, false},
      {']', 30, false}, {'!', 18, true},   {'"', 39, true},  {'$', 21, true},  {'%', 23, true},
      {'&', 26, true},  {'(', 25, true},   {')', 29, true},  {'*', 28, true},  {'+', 24, true},
      {':', 41, true},  {'<', 43, true},   {'>', 47, true},  {'?', 44, true},  {'_', 27, true},
      {'{', 33, true},  {'|', 42, true},   {'}', 30, true},
      // The grave accent's key typed with Shift, so it gives that key's shifted character.
      {'`', 50, true}};
  for (const Entry& e : punctuation) map[static_cast<unsigned char>(e.c)] = {e.code, e.shift, true};
  return map;
}

constexpr std::array<CharKey, 128> kCharMap = makeCharMap();

struct NamedKey {
  std::string_view name;
  uint16_t code;
};

constexpr NamedKey kNamedKeys[] = {
    {"UP", 126},     {"DOWN", 125},  {"LEFT", 123},   {"RIGHT", 124}, {"TAB", 48},
    {"BKSP", 51},    {"PGDN", 121},  {"PGUP", 116},   {"DELETE", 117}, {"HOME", 115},
    {"END", 119},    {"ESCAPE", 53}, {"RETURN", 36},  {"ENTER", 76},  {"HELP", 114},
    {"F1", 122},     {"F2", 120},    {"F3", 99},      {"F4", 118},    {"F5", 96},
    {"F6", 97},      {"F7", 98},     {"F8", 100},     {"F9", 101},    {"F10", 109},
    {"F11", 103},    {"F12", 111}};

bool sameIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 32);
    if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 32);
    if (x != y) return false;
  }
  return true;
}

const NamedKey* findNamedKey(std::string_view name) {
  for (const NamedKey& key : kNamedKeys)
    if (sameIgnoringCase(key.name, name)) return &key;
  return nullptr;
}

uint16_t modifierCode(char c) {
  switch (c) {
    case '^': return kControl;
    case '@': return kOption;
    case '#': return kCommand;
    case '~': return kShift;
    default: return 0;
  }
}

// US keysyms by key code, without and with Shift.
struct UsKey {
  uint16_t code;
  uint32_t plain;
  uint32_t shifted;
};

constexpr UsKey kUsKeys[] = {
    {18, XK_1, XK_exclam},          {19, XK_2, XK_at},
    {20, XK_3, XK_numbersign},      {21, XK_4, XK_dollar},
    {23, XK_5, XK_percent},         {22, XK_6, XK_asciicircum},
    {26, XK_7, XK_ampersand},       {28, XK_8, XK_asterisk},
    {25, XK_9, XK_parenleft},       {29, XK_0, XK_parenright},
    {49, XK_space, XK_space},       {39, XK_apostrophe, XK_quotedbl},
    {43, XK_comma, XK_less},        {27, XK_minus, XK_underscore},
    {47, XK_period, XK_greater},    {44, XK_slash, XK_question},
    {41, XK_semicolon, XK_colon},   {24, XK_equal, XK_plus},
    {33, XK_bracketleft, XK_braceleft}, {42, XK_backslash, XK_bar},
    {30, XK_bracketright, XK_braceright}, {50, XK_grave, XK_asciitilde},
    {126, XK_Up, XK_Up},            {125, XK_Down, XK_Down},
    {123, XK_Left, XK_Left},        {124, XK_Right, XK_Right},
    {48, XK_Tab, XK_Tab},           {51, XK_BackSpace, XK_BackSpace},
    {121, XK_Next, XK_Next},        {116, XK_Prior, XK_Prior},
    {117, XK_Delete, XK_Delete},    {115, XK_Home, XK_Home},
    {119, XK_End, XK_End},          {53, XK_Escape, XK_Escape},
    {36, XK_Return, XK_Return},     {76, XK_KP_Enter, XK_KP_Enter},
    // The key in Help's place on PC keyboards.
    {114, XK_Insert, XK_Insert},
    {122, XK_F1, XK_F1},            {120, XK_F2, XK_F2},
    {99, XK_F3, XK_F3},             {118, XK_F4, XK_F4},
    {96, XK_F5, XK_F5},             {97, XK_F6, XK_F6},
    {98, XK_F7, XK_F7},             {100, XK_F8, XK_F8},
    {101, XK_F9, XK_F9},            {109, XK_F10, XK_F10},
    {103, XK_F11, XK_F11},          {111, XK_F12, XK_F12},
    {105, XK_F13, XK_F13},          {107, XK_F14, XK_F14},
    {113, XK_F15, XK_F15},
    {kCommand, XK_Super_L, XK_Super_L}, {kShift, XK_Shift_L, XK_Shift_L},
    {kOption, XK_Alt_L, XK_Alt_L},  {kControl, XK_Control_L, XK_Control_L},
    {57, XK_Caps_Lock, XK_Caps_Lock},
    {81, XK_KP_Equal, XK_KP_Equal}, {82, XK_KP_0, XK_KP_0},
    {83, XK_KP_1, XK_KP_1},         {84, XK_KP_2, XK_KP_2},
    {85, XK_KP_3, XK_KP_3},         {86, XK_KP_4, XK_KP_4},
    {87, XK_KP_5, XK_KP_5},         {88, XK_KP_6, XK_KP_6},
    {89, XK_KP_7, XK_KP_7},         {91, XK_KP_8, XK_KP_8},
    {92, XK_KP_9, XK_KP_9},         {67, XK_KP_Multiply, XK_KP_Multiply},
    {69, XK_KP_Add, XK_KP_Add},     {78, XK_KP_Subtract, XK_KP_Subtract},
    {65, XK_KP_Decimal, XK_KP_Decimal}, {75, XK_KP_Divide, XK_KP_Divide},
    {71, XK_Num_Lock, XK_Num_Lock}};

}  // namespace

std::vector<KeyStep> parseKeys(std::string_view keys) {
  std::vector<KeyStep> steps;
  std::vector<uint16_t> modifiers;
  uint16_t code = 0;
  bool shiftNeeded = false;
  bool keyValid = false;
  size_t i = 0;
  while (i < keys.size()) {
    const char c = keys[i];
    if (uint16_t modifier = modifierCode(c)) {
      if (modifiers.size() < kMaxModifiers) modifiers.push_back(modifier);
      ++i;
      continue;
    }
    shiftNeeded = false;
    for (uint16_t m : modifiers) steps.push_back({KeyStep::ModifierDown, m, false});
    if (c == '{') {
      // The name runs to a "}" that closes a known name; a "}" after an unknown one is
      // passed over (not part of the name) and counts as one of the 12 characters taken.
      std::string name;
      size_t taken = 0;
      size_t j = i + 1;
      const NamedKey* found = nullptr;
      while (taken < kMaxNameLength && j < keys.size()) {
        const char n = keys[j++];
        ++taken;
        if (n == '}') {
          if ((found = findNamedKey(name)) != nullptr) break;
        } else {
          name.push_back(n);
        }
      }
      if (found != nullptr) {
        code = found->code;
        i = j;
      } else {
        // The "{" and the 13 characters after it; the previous key is used again.
        i = std::min(keys.size(), i + 1 + kMaxNameLength + 1);
      }
    } else {
      const auto byte = static_cast<unsigned char>(c);
      CharKey key = byte < kCharMap.size() ? kCharMap[byte] : CharKey{};
      code = key.code;
      shiftNeeded = key.shift;
      keyValid = key.valid;
      ++i;
    }
    if (keyValid) steps.push_back({KeyStep::Type, code, shiftNeeded});
    for (uint16_t m : modifiers) steps.push_back({KeyStep::ModifierUp, m, false});
    modifiers.clear();
  }
  return steps;
}

uint32_t usKeysym(uint16_t code, bool shift) {
  static constexpr char kLetters[] = "asdfhgzxcv\0bqweryt";  // codes 0-17 (10 has none)
  if (code <= 17 && code != 10) {
    uint32_t lower = static_cast<unsigned char>(kLetters[code]);
    return shift ? lower - 32 : lower;
  }
  switch (code) {  // the other letters
    case 31: return shift ? XK_O : XK_o;
    case 32: return shift ? XK_U : XK_u;
    case 34: return shift ? XK_I : XK_i;
    case 35: return shift ? XK_P : XK_p;
    case 37: return shift ? XK_L : XK_l;
    case 38: return shift ? XK_J : XK_j;
    case 40: return shift ? XK_K : XK_k;
    case 45: return shift ? XK_N : XK_n;
    case 46: return shift ? XK_M : XK_m;
    default: break;
  }
  for (const UsKey& key : kUsKeys)
    if (key.code == code) return shift ? key.shifted : key.plain;
  return 0;
}

std::vector<platform::KeyEvent> keyEvents(const std::vector<KeyStep>& steps) {
  std::vector<platform::KeyEvent> events;
  events.reserve(steps.size());
  for (const KeyStep& step : steps) {
    uint32_t keysym = usKeysym(step.code, step.shift);
    if (keysym == 0) continue;
    platform::KeyAction action = step.kind == KeyStep::ModifierDown ? platform::KeyAction::Down
                                 : step.kind == KeyStep::ModifierUp ? platform::KeyAction::Up
                                                                    : platform::KeyAction::Tap;
    events.push_back({keysym, action});
  }
  return events;
}

uint16_t keyCodeForKeyNumber(int32_t key) {
  if (key >= 'A' && key <= 'Z') return kCharMap[static_cast<size_t>(key)].code;
  if (key >= '0' && key <= '9') return kCharMap[static_cast<size_t>(key)].code;
  if (key >= 96 && key <= 105) {
    constexpr uint16_t keypad[10] = {82, 83, 84, 85, 86, 87, 88, 89, 91, 92};
    return keypad[key - 96];
  }
  if (key >= 112 && key <= 126) {
    constexpr uint16_t functionKeys[15] = {122, 120, 99,  118, 96,  97,  98, 100,
                                           101, 109, 103, 111, 105, 107, 113};
    return functionKeys[key - 112];
  }
  switch (key) {
    case 8: return 51;
    case 9: return 48;
    case 13: return 36;
    case 15: return kCommand;
    case 16: return kShift;
    case 17: return kControl;
    case 18: return kOption;
    case 19: return 113;
    case 20: return 57;
    case 27: return 53;
    case 32: return 49;
    case 33: return 116;
    case 34: return 121;
    case 35: return 119;
    case 36: return 115;
    case 37: return 123;
    case 38: return 126;
    case 39: return 124;
    case 40: return 125;
    case 44: return 105;
    case 45: return 114;
    case 46: return 117;
    case 95: return 81;
    case 106: return 67;
    case 107: return 69;
    case 109: return 78;
    case 110: return 65;
    case 111: return 75;
    case 144: return 71;
    case 145: return 107;
    case 186: return 41;
    case 187: return 24;
    case 188: return 43;
    case 189: return 27;
    case 190: return 47;
    case 191: return 44;
    case 219: return 33;
    case 220: return 42;
    case 221: return 30;
    case 222: return 39;
    default: return kNoKey;
  }
}

std::vector<uint32_t> keysymsForKeyDown(uint16_t code) {
  switch (code) {
    case kShift: return {XK_Shift_L, XK_Shift_R};
    case kControl: return {XK_Control_L, XK_Control_R};
    case kOption: return {XK_Alt_L, XK_Alt_R};
    case kCommand: return {XK_Super_L, XK_Super_R};
    case 105: return {XK_F13, XK_Print};
    case 107: return {XK_F14, XK_Scroll_Lock};
    case 113: return {XK_F15, XK_Pause};
    case 114: return {XK_Insert, XK_Help};
    default: break;
  }
  if (uint32_t keysym = usKeysym(code, false)) return {keysym};
  return {};
}

}  // namespace tessel::windows
