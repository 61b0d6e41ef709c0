#include "files/file_patterns.h"

#include "support/four_char_code.h"
#include "support/text.h"

namespace tessel::files {

// A type-code spec is read as every four-character code given as text is (support::
// readFourCharCode): a byte of 0x80 or more after the first spreads over the bytes above it, so a
// spec written with such a byte keeps meaning the code it always has.

FileSpec classifyFileSpec(std::string_view spec) {
  FileSpec out;
  if (spec.empty()) return out;
  if (spec[0] == '.') {
    out.mode = FileSpec::Mode::Extension;
    out.suffix = spec;
  } else if (spec.size() > 3) {
    out.mode = FileSpec::Mode::TypeCode;
    out.code = support::readFourCharCode(spec);
  }
  return out;
}

FileSpec classifyListType(std::string_view type) {
  FileSpec out;
  if (support::equalsIgnoringCase(type, "*.*") || type.size() <= 1) return out;
  if (type.starts_with("*.")) {
    out.mode = FileSpec::Mode::Extension;
    out.suffix = type.substr(1);
    out.strictlyLonger = true;
  } else if (type.size() >= 4) {
    out.mode = FileSpec::Mode::TypeCode;
    out.code = support::readFourCharCode(type);
  }
  return out;
}

bool specMatches(const FileSpec& spec, std::string_view name, const uint32_t* type) {
  switch (spec.mode) {
    case FileSpec::Mode::All: return true;
    case FileSpec::Mode::Extension:
      if (spec.strictlyLonger && name.size() <= spec.suffix.size()) return false;
      return support::endsWithIgnoringCase(name, spec.suffix);
    case FileSpec::Mode::TypeCode: return type != nullptr && *type == spec.code;
  }
  return false;
}

}  // namespace tessel::files
