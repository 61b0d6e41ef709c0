#include "formats/cipher.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "paths/paths.h"
#include "platform/files.h"
#include "platform/pause_points.h"
#include "support/path_text.h"

namespace tessel::formats {
namespace {

// A C string's view of a text: up to its first NUL and at most `limit` bytes.
std::string_view cString(std::string_view text, size_t limit) {
  text = text.substr(0, std::min(limit, text.size()));
  return text.substr(0, std::min(text.find('\0'), text.size()));
}

// XOR with the key, leaving a byte that equals its key byte as it is, so that no zero byte
// appears and the operation is its own inverse.
void xorText(std::string& text, size_t count, const std::string& key) {
  if (key.empty()) return;
  const size_t k = key.size();
  for (size_t i = 0; i < count; ++i) {
    char m = key[i % k];
    if (text[i] != m) text[i] = static_cast<char>(text[i] ^ m);
  }
}

char armourChar(unsigned v) { return v == 0 ? '`' : static_cast<char>(v + 32); }

std::string armour(const std::string& bytes) {
  const size_t n = bytes.size();
  const size_t groups = n / 3 + 1;
  std::string out;
  out.reserve(groups * 4);
  auto at = [&](size_t i) -> unsigned {
    return i < n ? static_cast<unsigned char>(bytes[i]) : 0u;
  };
  for (size_t g = 0; g < groups; ++g) {
    unsigned b0 = at(3 * g), b1 = at(3 * g + 1), b2 = at(3 * g + 2);
    out += armourChar(b0 >> 2);
    out += armourChar(((b0 << 4) & 0x30) + (b1 >> 4));
    out += armourChar(((b1 << 2) & 0x3C) + (b2 >> 6));
    out += armourChar(b2 & 0x3F);
  }
  return out;
}

// Every character goes through the same arithmetic, valid or not; the result ends at the first
// zero byte decoded.
std::string removeArmour(std::string_view text) {
  const size_t n = text.size();
  const size_t groups = n / 4 + 1;
  std::string out;
  out.reserve(groups * 3);
  auto at = [&](size_t i) -> unsigned {
    return i < n ? static_cast<unsigned char>(text[i]) : 0u;
  };
  for (size_t g = 0; g < groups; ++g) {
    unsigned c0 = at(4 * g), c1 = at(4 * g + 1), c2 = at(4 * g + 2), c3 = at(4 * g + 3);
    const unsigned bytes[3] = {
        (((c0 - 32) << 2) + (((c1 - 32) >> 4) & 3)) & 0xFF,
        (((c1 << 4) & 0xF0) + (((c2 - 32) >> 2) & 0x0F)) & 0xFF,
        (((c2 << 6) & 0xC0) + ((c3 - 32) & 0x3F)) & 0xFF,
    };
    for (unsigned b : bytes) {
      if (b == 0) return out;
      out += static_cast<char>(b);
    }
  }
  return out;
}

// Block size of the file cipher's reads and writes: a whole number of key phases.
constexpr size_t kFileBlock = kFileKeyPhase * 512;

// data[i] ^= pad[i], sixteen bytes at a time.
void xorBlock(uint8_t* data, const uint8_t* pad, size_t count) {
  using Lane = uint8_t __attribute__((vector_size(16)));
  size_t i = 0;
  for (; i + 4 * sizeof(Lane) <= count; i += 4 * sizeof(Lane)) {
    Lane d[4], k[4];
    std::memcpy(d, data + i, sizeof d);
    std::memcpy(k, pad + i, sizeof k);
    for (int j = 0; j < 4; ++j) d[j] ^= k[j];
    std::memcpy(data + i, d, sizeof d);
  }
  for (; i < count; ++i) data[i] ^= pad[i];
}

// XORs the open file with the key stream `pad`, block by block, in place: false at the first read
// or write error (what is done stays done).
bool encipher(platform::OpenFile& file, const std::vector<uint8_t>& pad) {
  std::vector<uint8_t> block(kFileBlock);
  uint64_t offset = 0;
  for (;;) {
    int64_t n = file.readAt(block.data(), block.size(), offset);
    if (n == 0) return true;
    if (n < 0) return false;
    const size_t count = static_cast<size_t>(n);
    xorBlock(block.data(), pad.data() + offset % kFileKeyPhase, count);
    if (!file.writeAt(block.data(), count, offset)) return false;
    offset += count;
    platform::pausePoint("cipher.block");
  }
}

// The file at the end of a chain of links (at most 16), so that a replacement takes the place of
// the file, not of a link to it.
std::string linkTarget(std::string path) {
  platform::FileService& files = platform::fileService();
  for (int depth = 0; depth < 16; ++depth) {
    std::optional<platform::FileInfo> info = files.info(path, false);
    if (!info || info->kind != platform::FileKind::Link) return path;
    std::optional<std::string> target = files.readLink(path);
    if (!target || target->empty()) return path;
    path = (*target)[0] == '/' ? *target : support::parentOfNative(path) + "/" + *target;
  }
  return path;
}

// Enciphers a copy of the file beside it (under its partial name, with its permission bits,
// owner, extended attributes, Finder information and resource fork) and renames the copy over
// it: a reader, and a kill, only ever find the whole plain file or the whole enciphered one.
// False, with the file untouched and no copy left, where that cannot be: the file has other hard
// links (they would keep the plain data), its owner or group cannot be kept, its folder takes no
// new file (locked, not writable, no room for a second copy), or a read or write fails.
bool encipherReplacing(const std::string& native, const std::vector<uint8_t>& pad) {
  platform::FileService& files = platform::fileService();
  const std::string path = linkTarget(native);
  std::optional<platform::FileInfo> info = files.info(path, false);
  if (!info || info->kind != platform::FileKind::File || info->links != 1) return false;
  const std::string folder = support::parentOfNative(path);
  const std::string temporary =
      (folder == "/" ? "" : folder) + "/" + support::partialNameFor(path.substr(path.rfind('/') + 1));
  if (auto left = files.info(temporary, false); left && left->kind != platform::FileKind::Folder)
    files.removeFile(temporary);  // what a kill left
  if (platform::FileStatus copied = files.copyFile(path, temporary); !copied) {
    if (copied.error() != EEXIST) files.removeFile(temporary);
    return false;
  }
  auto discard = [&] {
    files.removeFile(temporary);
    files.syncFolder(folder);
    return false;
  };
  std::optional<platform::FileInfo> copy = files.info(temporary, false);
  if (!copy) return discard();
  if ((copy->uid != info->uid || copy->gid != info->gid) &&
      !files.setOwner(temporary, info->uid, info->gid))
    return discard();
  if (!files.setMode(temporary, info->mode)) return discard();  // a new owner drops set-id bits
  {
    std::unique_ptr<platform::OpenFile> out =
        files.open(temporary, platform::OpenMode::ReadWrite);
    if (!out || !encipher(*out, pad) || !out->sync()) return discard();
  }
  // A name listed in ".hidden" without the Finder flag (no extended attributes here) stays listed.
  const bool hidden = files.isHidden(path);
  platform::pausePoint("cipher.replace");
  if (!files.rename(temporary, path)) return discard();
  if (hidden && !files.isHidden(path)) files.setHidden(path, true);
  files.syncFolder(folder);
  return true;
}

}  // namespace

const std::array<uint8_t, 21>& cipherMask() {
  // Built on first use from a small generator rather than stored as text.
  static const std::array<uint8_t, 21> mask = [] {
    std::array<uint8_t, 21> m{};
    uint32_t state = 0x7A3C1D5Bu;
    for (uint8_t& byte : m) {
      state = state * 1103515245u + 12345u;
      byte = static_cast<uint8_t>((state >> 16) % 255u + 1u);
    }
    return m;
  }();
  return mask;
}

std::string effectiveKey(std::string_view key, size_t limit) {
  key = cString(key, limit);
  const auto& mask = cipherMask();
  std::string out;
  out.reserve(key.size());
  for (size_t i = 0; i < key.size(); ++i) {
    char c = static_cast<char>(static_cast<uint8_t>(key[i]) ^ mask[i % mask.size()]);
    if (c == '\0') break;
    out += c;
  }
  return out;
}

std::string encryptText(std::string_view text, std::string_view key) {
  std::string k = effectiveKey(key, kTextKeyLen);
  std::string bytes(cString(text, kPlainTextLen));
  xorText(bytes, bytes.size(), k);
  return armour(bytes);
}

std::string decryptText(std::string_view text, std::string_view key) {
  std::string k = effectiveKey(key, kTextKeyLen);
  std::string bytes = removeArmour(cString(text, kCipherTextLen));
  xorText(bytes, std::min(bytes.size(), kPlainTextLen), k);
  return bytes;
}

int32_t encryptFile(std::string_view file, std::string_view key) {
  const std::string k = effectiveKey(key, kFileKeyLen);
  std::string native = paths::nativePath(file);
  platform::FileService& files = platform::fileService();
  if (native.empty() || !files.info(native)) return 0;
  std::unique_ptr<platform::OpenFile> open = files.open(native, platform::OpenMode::ReadWrite);
  if (!open) return 0;
  if (k.empty()) return 1;  // an empty key leaves the data as it is

  // The key stream of one phase, repeated over a block and one more phase, so that a block
  // starting anywhere in a phase XORs with one straight run of it.
  std::vector<uint8_t> pad(kFileBlock + kFileKeyPhase);
  for (size_t i = 0; i < pad.size(); ++i)
    pad[i] = static_cast<uint8_t>(k[(i % kFileKeyPhase) % k.size()]);
  // Where the file cannot be replaced whole, it is rewritten in place, as it was opened.
  if (!encipherReplacing(native, pad)) encipher(*open, pad);
  return 1;
}

}  // namespace tessel::formats
