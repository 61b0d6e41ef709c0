// Fuzzes the armour removal and the text cipher: any cipher text decodes without a fault to a
// text without zero bytes, and any plain text comes back from its own cipher text. The input is
// a key up to the first newline, then the text.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "formats/cipher.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tessel::formats;
  std::string_view input(reinterpret_cast<const char*>(data), size);
  size_t nl = input.find('\n');
  std::string_view key = input.substr(0, nl);
  std::string_view text = nl == std::string_view::npos ? std::string_view() : input.substr(nl + 1);

  std::string decoded = decryptText(text, key);
  if (decoded.find('\0') != std::string::npos) __builtin_trap();
  std::string_view cipher = text.substr(0, std::min(text.find('\0'), text.size()));
  if (decoded.size() > (std::min(cipher.size(), kCipherTextLen) / 4 + 1) * 3) __builtin_trap();

  std::string_view plainText = text.substr(0, std::min(text.find('\0'), text.size()));
  plainText = plainText.substr(0, std::min(plainText.size(), kPlainTextLen));
  std::string encrypted = encryptText(plainText, key);
  if (encrypted.size() != 4 * (plainText.size() / 3 + 1)) __builtin_trap();
  for (char c : encrypted)
    if (c < '!' || c > '`') __builtin_trap();
  if (decryptText(encrypted, key) != plainText) __builtin_trap();
  return 0;
}
