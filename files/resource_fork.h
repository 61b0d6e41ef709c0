// Reading resources out of a resource fork: the classic layout of a 16-byte header, the
// resource data and the resource map with its type list and reference lists. Every offset and
// length read from the fork is checked against the fork's size, so a damaged or hostile fork
// gives "no resource", never a read outside it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tessel::files {

// The bytes of the resource of `type` and `id` (a view into `fork`); nothing when the fork holds
// no such resource or is not a well-formed resource fork.
std::optional<std::string_view> findResource(std::string_view fork, uint32_t type, int16_t id);

// The short version string of a 'vers' resource (the length-prefixed string at byte 6), as the
// Mac OS Roman bytes it holds; a string running past the resource is cut at its end. Nothing
// when the resource is too short to hold one.
std::optional<std::string> versionString(std::string_view vers);

constexpr uint32_t kVersionResourceType = 0x76657273;  // 'vers'

}  // namespace tessel::files
