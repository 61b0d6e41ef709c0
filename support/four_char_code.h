// Four-character codes (file types, creators, folder types, selectors): 32-bit numbers written as
// four bytes, highest first.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::support {

// A code from a literal, byte for byte: fourCharCode("TEXT").
constexpr uint32_t fourCharCode(const char (&code)[5]) {
  return static_cast<uint32_t>(static_cast<unsigned char>(code[0])) << 24 |
         static_cast<uint32_t>(static_cast<unsigned char>(code[1])) << 16 |
         static_cast<uint32_t>(static_cast<unsigned char>(code[2])) << 8 |
         static_cast<uint32_t>(static_cast<unsigned char>(code[3]));
}

// Reads a code from the first four bytes of `text`: byte 0 into the highest eight bits, then bytes
// 1, 2 and 3 each taken as a signed 8-bit number, sign-extended and OR-ed in at bits 16, 8 and 0.
// A byte of 0x80 or above in positions 1-3 therefore also sets every bit above it ("a©bc" reads
// as 0xFFA96263); existing callers depend on exactly this reading. A text shorter than four bytes
// reads as if padded with zero bytes.
constexpr uint32_t readFourCharCode(std::string_view text) {
  unsigned char b[4] = {0, 0, 0, 0};
  for (size_t i = 0; i < 4 && i < text.size(); ++i) b[i] = static_cast<unsigned char>(text[i]);
  auto sext = [](unsigned char c) { return static_cast<uint32_t>(static_cast<int32_t>(static_cast<int8_t>(c))); };
  return (static_cast<uint32_t>(b[0]) << 24) | (sext(b[1]) << 16) | (sext(b[2]) << 8) | sext(b[3]);
}

// The code's four bytes, highest first.
inline std::string writeFourCharCode(uint32_t code) {
  std::string out(4, '\0');
  out[0] = static_cast<char>(code >> 24);
  out[1] = static_cast<char>(code >> 16);
  out[2] = static_cast<char>(code >> 8);
  out[3] = static_cast<char>(code);
  return out;
}

}  // namespace tessel::support
