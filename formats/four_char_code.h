// Four-character codes (file types, creators, selectors) given as text.
#pragma once

#include <cstdint>
#include <string>

namespace tessel::formats {

// Reads a code from the first four bytes of `text`: byte 0 into the highest eight bits, then bytes
// 1, 2 and 3 each taken as a signed 8-bit number, sign-extended and OR-ed in at bits 16, 8 and 0.
// A byte of 0x80 or above in positions 1-3 therefore also sets every bit above it ("a©bc" reads
// as 0xFFA96263); existing callers depend on exactly this reading. A text shorter than four bytes
// reads as if padded with zero bytes.
uint32_t readFourCharCode(const std::string& text);

// The code's four bytes, highest first.
std::string writeFourCharCode(uint32_t code);

}  // namespace tessel::formats
