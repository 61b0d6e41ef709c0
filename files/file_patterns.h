// The two file-spec languages: the general one of the delete, size and copy methods, and the one
// of tsFileList. A spec is classified once, then each file is tested against the classification.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::files {

struct FileSpec {
  enum class Mode { All, Extension, TypeCode };
  Mode mode = Mode::All;
  std::string suffix;  // Extension: the ending a name must have, compared ignoring ASCII case
  uint32_t code = 0;   // TypeCode: the Finder file type a file must have
  // Extension: true when the name must be strictly longer than the suffix (tsFileList's rule).
  bool strictlyLonger = false;
};

// The general language: "" all; ".ext" extension; more than three characters a type code;
// anything else (1-3 characters, "*.*" and "*" among them) all.
FileSpec classifyFileSpec(std::string_view spec);

// tsFileList's language: "*.*", "" or one character all; "*.ext" extension (strictly longer);
// four or more characters a type code; two or three characters all.
FileSpec classifyListType(std::string_view type);

// The name part of the test. A type-code spec needs the file's type: `type` is nullptr when the
// file has no readable Finder information, and such a file never matches.
bool specMatches(const FileSpec& spec, std::string_view name, const uint32_t* type);

}  // namespace tessel::files
