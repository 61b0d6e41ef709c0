// Small text helpers shared by every layer: comparisons that ignore ASCII case only, whatever the
// process's locale, and cutting UTF-8 text to a byte limit without splitting a character.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tessel::support {

constexpr char asciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// `s` with A-Z lowered; every other byte (UTF-8 included) as it is.
inline std::string asciiLowered(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = asciiLower(c);
  return out;
}

constexpr bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  return true;
}

constexpr bool startsWithIgnoringCase(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && equalsIgnoringCase(s.substr(0, prefix.size()), prefix);
}

constexpr bool endsWithIgnoringCase(std::string_view s, std::string_view suffix) {
  return s.size() >= suffix.size() && equalsIgnoringCase(s.substr(s.size() - suffix.size()), suffix);
}

// Whether byte `c` continues a UTF-8 character (10xxxxxx) rather than starting one.
constexpr bool isUtf8Continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// The length of the longest prefix of `text` of at most `limit` bytes that does not end inside a
// UTF-8 character: the cut moves back to the start of the character the limit falls in.
constexpr size_t utf8CutLength(std::string_view text, size_t limit) {
  if (text.size() <= limit) return text.size();
  size_t end = limit;
  while (end > 0 && isUtf8Continuation(text[end])) --end;
  return end;
}

// That prefix, as the bounded copy a buffer of `limit` bytes takes.
inline std::string cutUtf8(std::string_view text, size_t limit) {
  return std::string(text.substr(0, utf8CutLength(text, limit)));
}

}  // namespace tessel::support
