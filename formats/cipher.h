// The text and file cipher.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::formats {

std::string encryptText(std::string_view text, std::string_view key);
std::string decryptText(std::string_view text, std::string_view key);
int32_t encryptFile(std::string_view file, std::string_view key);

}  // namespace tessel::formats
