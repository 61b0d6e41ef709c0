// Special folders by keyword ("prefs", "user fonts", "temp", a raw four-character type) and the
// Linux folders that stand for each folder type in each domain.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tessel::paths {

// The domains a folder type is looked up in.
enum FolderDomain : int32_t {
  kOnAppropriateDisk = -32767,
  kSystemDomain = -32766,
  kLocalDomain = -32765,
  kNetworkDomain = -32764,
  kUserDomain = -32763,
  kClassicDomain = -32762,
};

// The music folder's type: the byte 0xB5 (a micro sign) followed by "doc".
inline constexpr uint32_t kMusicFolderType = 0xB5646F63;

struct FolderKeyword {
  uint32_t type = 0;
  std::optional<int32_t> domain;  // from a "user "/"local "/"common "/"system " prefix
  bool boot = false;              // the word was "boot": only the volume is wanted
};

// Reads a keyword: an optional domain prefix, then a keyword of the table, a word beginning with
// "favou"/"favor", or any other four characters taken as the type itself. Nothing when the word
// names no folder type.
std::optional<FolderKeyword> parseFolderKeyword(std::string_view keyword);

// The Linux folder for a type in one domain: the first of its candidates that is an existing
// folder; "" when there is none.
std::string findFolderIn(uint32_t type, int32_t domain);

// The folder for a type searched in the order appropriate disk, user, local, network, system,
// classic — after `preferred` when one is given; "" when none of them has it.
std::string findFolder(uint32_t type, std::optional<int32_t> preferred = std::nullopt);

}  // namespace tessel::paths
