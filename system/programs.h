// Programs, documents and URLs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::system {

int32_t runProgram(std::string_view program, std::string_view state, int32_t wait);
int32_t openFile(std::string_view file, std::string_view state);
int32_t printFile(std::string_view file);
int32_t openURL(std::string_view url, std::string_view state);
int32_t shell(std::string_view operation, std::string_view file, std::string_view args,
              std::string_view workDir, std::string_view state);
int32_t makeShortcut(std::string_view file, std::string_view folder, std::string_view title);
void refreshFiles();

// `text` in single quotes for /bin/sh, every "'" inside written as '\''.
std::string shellQuote(std::string_view text);

}  // namespace tessel::system
