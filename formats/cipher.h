// The text and file cipher: a repeating-key XOR. The text form adds a printable 6-bit armour
// (four characters "!".."_" or "`" for every three bytes); the file form scrambles the bytes in
// place. An obfuscation for movie data, not a protection.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::formats {

// Sizes of the cipher's buffers.
inline constexpr size_t kPlainTextLen = 24001;
inline constexpr size_t kCipherTextLen = 32101;
inline constexpr size_t kTextKeyLen = 500;
inline constexpr size_t kFileKeyLen = 255;
// The key phase of the file cipher restarts every this many bytes.
inline constexpr size_t kFileKeyPhase = 2000;

// The 21 non-zero bytes every key is XORed with before use.
const std::array<uint8_t, 21>& cipherMask();

// The key as the cipher uses it: cut to `limit` bytes, each XORed with the mask byte at its
// position, and ending before the first byte that became 0.
std::string effectiveKey(std::string_view key, size_t limit);

std::string encryptText(std::string_view text, std::string_view key);
std::string decryptText(std::string_view text, std::string_view key);
// 1 when the file was opened and processed (a later read or write error included), 0 when it
// does not exist or cannot be opened for reading and writing. Running it twice restores the file.
int32_t encryptFile(std::string_view file, std::string_view key);

}  // namespace tessel::formats
