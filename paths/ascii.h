// Keyword and prefix comparisons that ignore ASCII case only, whatever the process's locale.
#pragma once

#include <string_view>

namespace tessel::paths {

constexpr char asciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
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

}  // namespace tessel::paths
