#include "files/file_patterns.h"

namespace tessel::files {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool endsWithIgnoringAsciiCase(std::string_view name, std::string_view suffix) {
  return name.size() >= suffix.size() &&
         equalsIgnoringAsciiCase(name.substr(name.size() - suffix.size()), suffix);
}

}  // namespace

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (lower(a[i]) != lower(b[i])) return false;
  return true;
}

uint32_t specTypeCode(std::string_view spec) {
  auto byte = [&](size_t i) { return i < spec.size() ? spec[i] : '\0'; };
  auto spread = [](char c) {
    return static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
  };
  uint32_t code = static_cast<uint32_t>(static_cast<unsigned char>(byte(0))) << 24;
  code |= spread(byte(1)) << 16;
  code |= spread(byte(2)) << 8;
  code |= spread(byte(3));
  return code;
}

FileSpec classifyFileSpec(std::string_view spec) {
  FileSpec out;
  if (spec.empty()) return out;
  if (spec[0] == '.') {
    out.mode = FileSpec::Mode::Extension;
    out.suffix = spec;
  } else if (spec.size() > 3) {
    out.mode = FileSpec::Mode::TypeCode;
    out.code = specTypeCode(spec);
  }
  return out;
}

FileSpec classifyListType(std::string_view type) {
  FileSpec out;
  if (equalsIgnoringAsciiCase(type, "*.*") || type.size() <= 1) return out;
  if (type.starts_with("*.")) {
    out.mode = FileSpec::Mode::Extension;
    out.suffix = type.substr(1);
    out.strictlyLonger = true;
  } else if (type.size() >= 4) {
    out.mode = FileSpec::Mode::TypeCode;
    out.code = specTypeCode(type);
  }
  return out;
}

bool specMatches(const FileSpec& spec, std::string_view name, const uint32_t* type) {
  switch (spec.mode) {
    case FileSpec::Mode::All: return true;
    case FileSpec::Mode::Extension:
      if (spec.strictlyLonger && name.size() <= spec.suffix.size()) return false;
      return endsWithIgnoringAsciiCase(name, spec.suffix);
    case FileSpec::Mode::TypeCode: return type != nullptr && *type == spec.code;
  }
  return false;
}

}  // namespace tessel::files
