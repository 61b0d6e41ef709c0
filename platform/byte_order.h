// Big-endian fields in byte buffers: the Finder information record and the resource-fork
// companion's header are written most significant byte first on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tessel::platform {

inline uint16_t readBigEndian16(const uint8_t* p) {
  return static_cast<uint16_t>(static_cast<uint16_t>(p[0]) << 8 | p[1]);
}

inline uint32_t readBigEndian32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | static_cast<uint32_t>(p[3]);
}

inline void writeBigEndian16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}

inline void writeBigEndian32(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v >> 24);
  p[1] = static_cast<uint8_t>(v >> 16);
  p[2] = static_cast<uint8_t>(v >> 8);
  p[3] = static_cast<uint8_t>(v);
}

inline void appendBigEndian32(std::string& out, uint32_t v) {
  uint8_t bytes[4];
  writeBigEndian32(bytes, v);
  out.append(reinterpret_cast<const char*>(bytes), sizeof bytes);
}

}  // namespace tessel::platform
