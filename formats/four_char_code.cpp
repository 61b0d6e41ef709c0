#include "formats/four_char_code.h"

namespace tessel::formats {

uint32_t readFourCharCode(const std::string& text) {
  unsigned char b[4] = {0, 0, 0, 0};
  for (size_t i = 0; i < 4 && i < text.size(); ++i) b[i] = static_cast<unsigned char>(text[i]);
  auto sext = [](unsigned char c) { return static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(c))); };
  return (static_cast<uint32_t>(b[0]) << 24) | (sext(b[1]) << 16) | (sext(b[2]) << 8) | sext(b[3]);
}

std::string writeFourCharCode(uint32_t code) {
  std::string out(4, '\0');
  out[0] = static_cast<char>(code >> 24);
  out[1] = static_cast<char>(code >> 16);
  out[2] = static_cast<char>(code >> 8);
  out[3] = static_cast<char>(code);
  return out;
}

}  // namespace tessel::formats
