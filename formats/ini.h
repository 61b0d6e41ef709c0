// INI files: one value read or written in a sectioned file of key=value lines.
//
// The format is bytes without an encoding. A line ends at CR, LF or CR LF (a rewrite keeps the
// file's first line end; a file without one gets LF); a NUL cuts the rest of its line; a byte
// 0xFF ends the file. A section header is exactly "[" + name + "]"; a key line begins with the
// key immediately followed by "=". Names compare ignoring ASCII case; nothing is trimmed; there
// is no comment syntax.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::formats {

// Line and buffer sizes.
inline constexpr size_t kIniRawLine = 32100;       // characters the line reader stores
inline constexpr size_t kIniReaderLine = 32000;    // of which the reader keeps
inline constexpr size_t kIniValueLen = 32001;      // default and result of tsReadIni
inline constexpr size_t kIniReaderSection = 256;
inline constexpr size_t kIniWriterName = 500;      // section and key of tsWriteIni
inline constexpr size_t kIniPathLen = 256;         // a bare name in the preferences folder
inline constexpr size_t kIniGivenPathLen = 259;    // a path given in full
inline constexpr size_t kIniNewNameLen = 64;       // name part of a new file

// Reads lines from a source of bytes through a buffer.
class IniLineReader {
 public:
  // Fills `buffer` with up to `size` bytes; 0 at the end, negative on an error.
  using Source = std::function<int64_t(char* buffer, size_t size)>;
  explicit IniLineReader(Source source);

  // The next line, up to its first NUL and at most `limit` characters. True when the file
  // ended with this line (which is still to be looked at).
  bool next(std::string& line, size_t limit);

  // The first line end read so far ("\r", "\n" or "\r\n"); "\n" while there was none.
  std::string_view lineEnd() const {
    return lineEnd_.empty() ? std::string_view("\n") : std::string_view(lineEnd_);
  }

 private:
  bool fill();
  Source source_;
  std::vector<char> buffer_;
  size_t at_ = 0, end_ = 0;
  bool ended_ = false;
  std::string raw_;
  std::string lineEnd_;
};

// The value of `key` in `section`; nothing when the file has no such line.
std::optional<std::string> findIniValue(IniLineReader& reader, std::string_view section,
                                        std::string_view key);

// The file's new contents with `key` set to `value` in `section` (section and key already cut to
// their sizes).
std::string rewriteIni(IniLineReader& reader, std::string_view section, std::string_view key,
                       std::string_view value);

// A reader over bytes in memory.
IniLineReader memoryLineReader(std::string_view bytes);

std::string readIni(std::string_view section, std::string_view key, std::string_view defaultValue,
                    std::string_view iniFile);
int32_t writeIni(std::string_view section, std::string_view key, std::string_view newValue,
                 std::string_view iniFile);

// The Linux path an IniFile argument names: a bare name (no folder part) in the preferences
// folder, any other path as given. "" when it names nothing.
std::string iniFilePath(std::string_view iniFile);

}  // namespace tessel::formats
