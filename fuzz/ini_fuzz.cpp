// Fuzzes the INI line reader, the lookup and the rewrite. The input is a section, a key and a
// value (each up to a newline) followed by the file's bytes. Any file must read and rewrite
// without a fault; the rewrite keeps no NUL or 0xFF of the file and ends every line with the
// file's own line end; and a plain name and value written are read back.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "formats/ini.h"
#include "support/text.h"

namespace {

// One argument line, cut at a NUL as the method's C strings are.
std::string_view takeLine(std::string_view& text) {
  size_t nl = text.find('\n');
  std::string_view line = text.substr(0, nl);
  text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
  return line.substr(0, std::min(line.find('\0'), line.size()));
}

bool plain(std::string_view s) {
  for (char c : s)
    if (!std::isalnum(static_cast<unsigned char>(c))) return false;
  return true;
}

size_t headerCount(std::string_view file, std::string_view section) {
  const std::string header = "[" + std::string(section) + "]";
  tessel::formats::IniLineReader reader = tessel::formats::memoryLineReader(file);
  std::string line;
  size_t count = 0;
  for (bool eof = false; !eof;) {
    eof = reader.next(line, tessel::formats::kIniRawLine);
    if (tessel::support::equalsIgnoringCase(line, header)) ++count;
  }
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tessel::formats;
  std::string_view input(reinterpret_cast<const char*>(data), size);
  std::string_view section = takeLine(input).substr(0, kIniWriterName);
  std::string_view key = takeLine(input).substr(0, kIniWriterName);
  std::string_view value = takeLine(input).substr(0, 1000);
  std::string_view file = input;

  IniLineReader reader = memoryLineReader(file);
  std::optional<std::string> found = findIniValue(reader, section, key);
  if (found && found->size() > kIniReaderLine) __builtin_trap();

  IniLineReader source = memoryLineReader(file);
  std::string rewritten = rewriteIni(source, section, key, value);
  // What the file held loses its NULs and everything from a 0xFF on, and every line ends with
  // the file's first line end; only the arguments can bring other bytes back.
  IniLineReader whole = memoryLineReader(file);
  std::string line;
  while (!whole.next(line, kIniRawLine)) {
  }
  const std::string lineEnd(whole.lineEnd());
  const bool cleanArguments = (std::string(section) + std::string(key) + std::string(value))
                                  .find_first_of("\xFF\r") == std::string::npos;
  std::string withoutEnds;
  for (size_t i = 0; i < rewritten.size(); ++i) {
    if (rewritten.compare(i, lineEnd.size(), lineEnd) == 0)
      i += lineEnd.size() - 1;
    else
      withoutEnds += rewritten[i];
  }
  for (size_t i = 0; i < withoutEnds.size() && cleanArguments; ++i) {
    unsigned char c = static_cast<unsigned char>(withoutEnds[i]);
    if (c == '\r' || c == '\n' || c == 0xFF || c == 0) __builtin_trap();
  }

  // A value replaced in a later occurrence of a repeated section is not seen by the reader,
  // which looks only in the first; the read-back holds for files with one occurrence.
  if (!key.empty() && plain(section) && plain(key) && plain(value) &&
      headerCount(file, section) <= 1) {
    IniLineReader again = memoryLineReader(rewritten);
    std::optional<std::string> back = findIniValue(again, section, key);
    if (!back || *back != value) __builtin_trap();
    // Writing the same value again changes nothing more.
    IniLineReader twice = memoryLineReader(rewritten);
    std::string second = rewriteIni(twice, section, key, value);
    IniLineReader third = memoryLineReader(second);
    if (rewriteIni(third, section, key, value) != second) __builtin_trap();
  }
  return 0;
}
