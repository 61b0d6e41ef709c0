// Date and time formatting, and the dates of files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::formats {

std::string systemTime(std::string_view format);
std::string fileDate(std::string_view file, std::string_view dateFormat,
                     std::string_view timeFormat);
std::string fileDateEx(std::string_view file, std::string_view dateType,
                       std::string_view dateFormat, std::string_view timeFormat);
// The file's modification time as local seconds since 1 January 1904, less 2,000,000,000
// (wrapping in 32 bits); 0 when the file can't be read.
int32_t fileAge(std::string_view file);

}  // namespace tessel::formats
