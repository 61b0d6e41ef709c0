// Linux path text, computed on the string alone (nothing is asked of the file system).
#pragma once

#include <cstdint>
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

// The name a rewrite of the item `leaf` is written under, in the item's own folder, before it is
// renamed over the item: ".tessel-partial-" and 16 hex digits of a hash of the leaf. One name per
// item, so a write that a kill cut short left at most this one file, which the next write of the
// same item removes first; a "." name, so listings and file managers do not show it.
inline constexpr std::string_view kPartialPrefix = ".tessel-partial-";

inline std::string partialNameFor(std::string_view leaf) {
  uint64_t hash = 0xcbf29ce484222325u;  // FNV-1a
  for (char c : leaf) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
  std::string name(kPartialPrefix);
  for (int shift = 60; shift >= 0; shift -= 4) name += "0123456789abcdef"[(hash >> shift) & 15];
  return name;
}

inline bool isPartialName(std::string_view leaf) {
  return leaf.size() == kPartialPrefix.size() + 16 && leaf.starts_with(kPartialPrefix);
}

}  // namespace tessel::support
