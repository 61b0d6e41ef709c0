// Big-endian fields in byte buffers (Finder information, AppleDouble headers): read and written
// one byte at a time, so the host's byte order and the buffer's alignment never matter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tessel::support {

// `p` points at (at least) the field's bytes.
constexpr uint16_t readBigEndian16(const unsigned char* p) {
  return static_cast<uint16_t>(static_cast<uint16_t>(p[0]) << 8 | p[1]);
}
constexpr uint32_t readBigEndian32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | static_cast<uint32_t>(p[3]);
}

constexpr void writeBigEndian16(unsigned char* p, uint16_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}
constexpr void writeBigEndian32(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 24);
  p[1] = static_cast<unsigned char>(v >> 16);
  p[2] = static_cast<unsigned char>(v >> 8);
  p[3] = static_cast<unsigned char>(v);
}

// Appends the four bytes of `v`, highest first.
inline void appendBigEndian32(std::string& out, uint32_t v) {
  unsigned char b[4];
  writeBigEndian32(b, v);
  out.append(reinterpret_cast<const char*>(b), 4);
}

}  // namespace tessel::support
