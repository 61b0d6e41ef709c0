// The 32-byte Finder information record: big-endian fields at fixed offsets.
#include "platform/files.h"

namespace tessel::platform {
namespace {

uint32_t read32(const std::array<uint8_t, 32>& b, size_t at) {
  return static_cast<uint32_t>(b[at]) << 24 | static_cast<uint32_t>(b[at + 1]) << 16 |
         static_cast<uint32_t>(b[at + 2]) << 8 | static_cast<uint32_t>(b[at + 3]);
}

void write32(std::array<uint8_t, 32>& b, size_t at, uint32_t v) {
  b[at] = static_cast<uint8_t>(v >> 24);
  b[at + 1] = static_cast<uint8_t>(v >> 16);
  b[at + 2] = static_cast<uint8_t>(v >> 8);
  b[at + 3] = static_cast<uint8_t>(v);
}

}  // namespace

uint32_t FinderInfo::type() const { return read32(bytes, 0); }
uint32_t FinderInfo::creator() const { return read32(bytes, 4); }
uint16_t FinderInfo::flags() const {
  return static_cast<uint16_t>(bytes[8] << 8 | bytes[9]);
}
void FinderInfo::setType(uint32_t code) { write32(bytes, 0, code); }
void FinderInfo::setCreator(uint32_t code) { write32(bytes, 4, code); }
void FinderInfo::setFlags(uint16_t value) {
  bytes[8] = static_cast<uint8_t>(value >> 8);
  bytes[9] = static_cast<uint8_t>(value);
}

}  // namespace tessel::platform
