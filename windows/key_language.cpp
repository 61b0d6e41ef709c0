#include "windows/key_language.h"

#include <array>
#include <string>

#include "windows/keysyms.h"

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
    {18, ks::d1, ks::exclam},          {19, ks::d2, ks::at},
    {20, ks::d3, ks::numbersign},      {21, ks::d4, ks::dollar},
    {23, ks::d5, ks::percent},         {22, ks::d6, ks::asciicircum},
    {26, ks::d7, ks::ampersand},       {28, ks::d8, ks::asterisk},
    {25, ks::d9, ks::parenleft},       {29, ks::d0, ks::parenright},
    {49, ks::space, ks::space},       {39, ks::apostrophe, ks::quotedbl},
    {43, ks::comma, ks::less},        {27, ks::minus, ks::underscore},
    {47, ks::period, ks::greater},    {44, ks::slash, ks::question},
    {41, ks::semicolon, ks::colon},   {24, ks::equal, ks::plus},
    {33, ks::bracketleft, ks::braceleft}, {42, ks::backslash, ks::bar},
    {30, ks::bracketright, ks::braceright}, {50, ks::grave, ks::asciitilde},
    {126, ks::Up, ks::Up},            {125, ks::Down, ks::Down},
    {123, ks::Left, ks::Left},        {124, ks::Right, ks::Right},
    {48, ks::Tab, ks::Tab},           {51, ks::BackSpace, ks::BackSpace},
    {121, ks::Next, ks::Next},        {116, ks::Prior, ks::Prior},
    {117, ks::Delete, ks::Delete},    {115, ks::Home, ks::Home},
    {119, ks::End, ks::End},          {53, ks::Escape, ks::Escape},
    {36, ks::Return, ks::Return},     {76, ks::KP_Enter, ks::KP_Enter},
    // The key in Help's place on PC keyboards.
    {114, ks::Insert, ks::Insert},
    {122, ks::F1, ks::F1},            {120, ks::F2, ks::F2},
    {99, ks::F3, ks::F3},             {118, ks::F4, ks::F4},
    {96, ks::F5, ks::F5},             {97, ks::F6, ks::F6},
    {98, ks::F7, ks::F7},             {100, ks::F8, ks::F8},
    {101, ks::F9, ks::F9},            {109, ks::F10, ks::F10},
    {103, ks::F11, ks::F11},          {111, ks::F12, ks::F12},
    {105, ks::F13, ks::F13},          {107, ks::F14, ks::F14},
    {113, ks::F15, ks::F15},
    {kCommand, ks::Super_L, ks::Super_L}, {kShift, ks::Shift_L, ks::Shift_L},
    {kOption, ks::Alt_L, ks::Alt_L},  {kControl, ks::Control_L, ks::Control_L},
    {57, ks::Caps_Lock, ks::Caps_Lock},
    {81, ks::KP_Equal, ks::KP_Equal}, {82, ks::KP_0, ks::KP_0},
    {83, ks::KP_1, ks::KP_1},         {84, ks::KP_2, ks::KP_2},
    {85, ks::KP_3, ks::KP_3},         {86, ks::KP_4, ks::KP_4},
    {87, ks::KP_5, ks::KP_5},         {88, ks::KP_6, ks::KP_6},
    {89, ks::KP_7, ks::KP_7},         {91, ks::KP_8, ks::KP_8},
    {92, ks::KP_9, ks::KP_9},         {67, ks::KP_Multiply, ks::KP_Multiply},
    {69, ks::KP_Add, ks::KP_Add},     {78, ks::KP_Subtract, ks::KP_Subtract},
    {65, ks::KP_Decimal, ks::KP_Decimal}, {75, ks::KP_Divide, ks::KP_Divide},
    {71, ks::Num_Lock, ks::Num_Lock}};

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
    case 31: return shift ? ks::O : ks::o;
    case 32: return shift ? ks::U : ks::u;
    case 34: return shift ? ks::I : ks::i;
    case 35: return shift ? ks::P : ks::p;
    case 37: return shift ? ks::L : ks::l;
    case 38: return shift ? ks::J : ks::j;
    case 40: return shift ? ks::K : ks::k;
    case 45: return shift ? ks::N : ks::n;
    case 46: return shift ? ks::M : ks::m;
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
    case kShift: return {ks::Shift_L, ks::Shift_R};
    case kControl: return {ks::Control_L, ks::Control_R};
    case kOption: return {ks::Alt_L, ks::Alt_R};
    case kCommand: return {ks::Super_L, ks::Super_R};
    case 105: return {ks::F13, ks::Print};
    case 107: return {ks::F14, ks::Scroll_Lock};
    case 113: return {ks::F15, ks::Pause};
    case 114: return {ks::Insert, ks::Help};
    default: break;
  }
  if (uint32_t keysym = usKeysym(code, false)) return {keysym};
  return {};
}

}  // namespace tessel::windows
