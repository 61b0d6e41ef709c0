// Linux path text, computed on the string alone (nothing is asked of the file system).
#pragma once

#include <string>
#include <string_view>

namespace tessel::support {

// The folder holding `native`: trailing slashes are ignored, then everything from the last slash
// on is dropped; "/" for an item at the root and for a path without a slash.
inline std::string parentOfNative(std::string_view native) {
  while (native.size() > 1 && native.back() == '/') native.remove_suffix(1);
  size_t slash = native.find_last_of('/');
  if (slash == std::string_view::npos || slash == 0) return "/";
  return std::string(native.substr(0, slash));
}

// `native` without its trailing slashes; "/" stays "/".
inline std::string withoutTrailingSlash(std::string native) {
  while (native.size() > 1 && native.back() == '/') native.pop_back();
  return native;
}

}  // namespace tessel::support
