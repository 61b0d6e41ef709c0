#include "files/resource_fork.h"

namespace tessel::files {
namespace {

// A bounds-checked big-endian reader over the fork.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}

  bool has(uint64_t offset, uint64_t length) const {
    return offset <= bytes_.size() && length <= bytes_.size() - offset;
  }
  std::optional<uint32_t> u32(uint64_t at) const { return number(at, 4); }
  std::optional<uint32_t> u24(uint64_t at) const { return number(at, 3); }
  std::optional<uint32_t> u16(uint64_t at) const { return number(at, 2); }
  std::string_view slice(uint64_t at, uint64_t length) const {
    return bytes_.substr(static_cast<size_t>(at), static_cast<size_t>(length));
  }

 private:
  std::optional<uint32_t> number(uint64_t at, int width) const {
    if (!has(at, static_cast<uint64_t>(width))) return std::nullopt;
    uint32_t v = 0;
    for (int i = 0; i < width; ++i)
      v = v << 8 | static_cast<unsigned char>(bytes_[static_cast<size_t>(at) + i]);
    return v;
  }

  std::string_view bytes_;
};

constexpr uint64_t kHeaderSize = 16;
constexpr uint64_t kMapHeaderSize = 28;  // header copy, next-map handle, file ref, attributes,
                                         // type-list and name-list offsets
constexpr uint64_t kTypeEntrySize = 8;
constexpr uint64_t kReferenceSize = 12;

}  // namespace

std::optional<std::string_view> findResource(std::string_view fork, uint32_t type, int16_t id) {
  Reader r(fork);
  auto dataOffset = r.u32(0), mapOffset = r.u32(4), dataLength = r.u32(8), mapLength = r.u32(12);
  if (!dataOffset || !mapOffset || !dataLength || !mapLength) return std::nullopt;
  if (!r.has(*dataOffset, *dataLength) || !r.has(*mapOffset, *mapLength) ||
      *mapLength < kMapHeaderSize || *dataOffset < kHeaderSize)
    return std::nullopt;
  const uint64_t map = *mapOffset;
  const uint64_t mapEnd = map + *mapLength;
  auto typeListOffset = r.u16(map + 24);
  if (!typeListOffset) return std::nullopt;
  const uint64_t typeList = map + *typeListOffset;
  auto typeCountMinusOne = r.u16(typeList);
  if (!typeCountMinusOne || typeList + 2 > mapEnd) return std::nullopt;
  // An empty type list is stored as 0xFFFF (count - 1 of zero types).
  uint32_t typeCount = (*typeCountMinusOne + 1) & 0xFFFF;
  for (uint32_t t = 0; t < typeCount; ++t) {
    uint64_t entry = typeList + 2 + t * kTypeEntrySize;
    if (entry + kTypeEntrySize > mapEnd) return std::nullopt;
    auto entryType = r.u32(entry), countMinusOne = r.u16(entry + 4), refOffset = r.u16(entry + 6);
    if (!entryType || !countMinusOne || !refOffset) return std::nullopt;
    if (*entryType != type) continue;
    uint64_t refs = typeList + *refOffset;
    uint64_t count = static_cast<uint64_t>(*countMinusOne) + 1;
    for (uint64_t i = 0; i < count; ++i) {
      uint64_t ref = refs + i * kReferenceSize;
      if (ref + kReferenceSize > mapEnd) return std::nullopt;
      auto refId = r.u16(ref), offset = r.u24(ref + 5);
      if (!refId || !offset) return std::nullopt;
      if (static_cast<int16_t>(*refId) != id) continue;
      if (*dataLength < 4 || *offset > *dataLength - 4) return std::nullopt;
      uint64_t at = static_cast<uint64_t>(*dataOffset) + *offset;
      auto length = r.u32(at);
      if (!length || *length > *dataLength - *offset - 4) return std::nullopt;
      return r.slice(at + 4, *length);
    }
  }
  return std::nullopt;
}

std::optional<std::string> versionString(std::string_view vers) {
  if (vers.size() < 7) return std::nullopt;
  size_t length = static_cast<unsigned char>(vers[6]);
  return std::string(vers.substr(7, length));
}

}  // namespace tessel::files
