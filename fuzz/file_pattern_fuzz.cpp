// Fuzzes the two file-spec languages: any spec and name (split at the first NUL byte) classify
// and match without a fault, and the results keep the languages' rules.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "files/file_patterns.h"
#include "support/four_char_code.h"

using tessel::files::FileSpec;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  size_t split = input.find('\0');
  std::string_view spec = input.substr(0, split);
  std::string_view name = split == std::string_view::npos ? std::string_view() : input.substr(split + 1);
  uint32_t type = size >= 4 ? tessel::support::readFourCharCode(input.substr(size - 4)) : 0;

  FileSpec general = tessel::files::classifyFileSpec(spec);
  bool all = spec.empty() || (spec[0] != '.' && spec.size() <= 3);
  if ((general.mode == FileSpec::Mode::All) != all) __builtin_trap();
  bool matches = tessel::files::specMatches(general, name, &type);
  if (general.mode == FileSpec::Mode::Extension && matches && name.size() < spec.size())
    __builtin_trap();
  if (general.mode == FileSpec::Mode::TypeCode) {
    // A high byte after the first fills every byte above it.
    bool spreads = false;
    for (size_t i = 1; i < 4 && i < spec.size(); ++i) spreads |= (spec[i] & 0x80) != 0;
    uint32_t top = spreads ? 0xFF : static_cast<unsigned char>(spec[0]);
    if ((general.code >> 24) != top) __builtin_trap();
    if (tessel::files::specMatches(general, name, nullptr)) __builtin_trap();
  }

  FileSpec list = tessel::files::classifyListType(spec);
  bool listed = tessel::files::specMatches(list, name, &type);
  if (list.mode == FileSpec::Mode::Extension && listed && name.size() <= spec.size() - 1)
    __builtin_trap();
  if (list.mode == FileSpec::Mode::All && !listed) __builtin_trap();
  return 0;
}
