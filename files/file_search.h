// The disk search: one search at a time, kept open between calls.
#pragma once

#include <string>
#include <string_view>

namespace tessel::files {

std::string findFirstFile(std::string_view disk, std::string_view fileName);
std::string findNextFile();
void findClose();

}  // namespace tessel::files
