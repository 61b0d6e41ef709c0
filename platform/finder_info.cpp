// The 32-byte Finder information record: big-endian fields at fixed offsets.
#include "platform/byte_order.h"
#include "platform/files.h"

namespace tessel::platform {

uint32_t FinderInfo::type() const { return readBigEndian32(bytes.data()); }
uint32_t FinderInfo::creator() const { return readBigEndian32(bytes.data() + 4); }
uint16_t FinderInfo::flags() const { return readBigEndian16(bytes.data() + 8); }
void FinderInfo::setType(uint32_t code) { writeBigEndian32(bytes.data(), code); }
void FinderInfo::setCreator(uint32_t code) { writeBigEndian32(bytes.data() + 4, code); }
void FinderInfo::setFlags(uint16_t value) { writeBigEndian16(bytes.data() + 8, value); }

}  // namespace tessel::platform
