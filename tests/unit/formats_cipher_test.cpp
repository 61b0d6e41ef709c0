// The text cipher's XOR, armour and limits, and the file cipher on real files.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "formats/cipher.h"
#include "paths_test_support.h"

namespace tessel::formats {
namespace {

std::string randomText(std::mt19937& rng, size_t n) {
  std::uniform_int_distribution<int> byte(1, 255);  // no zero bytes, as Lingo strings have none
  std::string s(n, ' ');
  for (char& c : s) c = static_cast<char>(byte(rng));
  return s;
}

// (The armour's length and alphabet, and the round trip of any text under any key, are
// armour_fuzz's checks; an empty text's "````" is tsEncryptText's example.)
TEST(TextCipher, ArmourEndAndLimits) {
  // A length that is a multiple of 3 ends in a whole "````".
  EXPECT_EQ(encryptText("abcdef", "k").substr(8), "````");
  // Plain text beyond 24001 characters is cut.
  EXPECT_EQ(encryptText(std::string(30000, 'x'), "k").size(), 4u * (24001 / 3 + 1));
  // A long key works beyond the mask's 21 bytes and up to 500.
  std::mt19937 rng(7);
  std::string text = randomText(rng, 3000);
  std::string key = randomText(rng, 700);
  EXPECT_EQ(decryptText(encryptText(text, key), key), text);
  // A wrong key gives other characters of the same length.
  EXPECT_EQ(decryptText(encryptText(text, key), key + "x").size(), text.size());
}

TEST(TextCipher, EffectiveKeyAndUnchangedBytes) {
  const auto& mask = cipherMask();
  // A key byte equal to the mask byte at its position ends the effective key there.
  std::string key = "abc";
  key += static_cast<char>(mask[3]);
  key += "def";
  EXPECT_EQ(effectiveKey(key, 500), effectiveKey("abc", 500));
  EXPECT_EQ(encryptText("some text", key), encryptText("some text", "abc"));
  // A first byte equal to the first mask byte: no key, the text is only armoured.
  std::string none(1, static_cast<char>(mask[0]));
  EXPECT_EQ(effectiveKey(none + "zzz", 500), "");
  EXPECT_EQ(encryptText("plain", none + "zzz"), encryptText("plain", ""));
  // A text byte equal to its key byte stays as it is: the effective key enciphers to itself.
  std::string effective = effectiveKey("Key!", 500);
  ASSERT_EQ(effective.size(), 4u);
  EXPECT_EQ(encryptText(effective, "Key!"), encryptText(effective, ""));
  EXPECT_EQ(decryptText(encryptText(effective, "Key!"), "Key!"), effective);
  // Keys are cut: 500 bytes for the text methods, 255 for the file method.
  std::string longKey(600, 'q');
  EXPECT_EQ(effectiveKey(longKey, kTextKeyLen).size(), 500u);
  EXPECT_EQ(effectiveKey(longKey, kFileKeyLen).size(), 255u);
}

TEST(TextCipher, MalformedCipherTextDecodesByTheSameArithmetic) {
  // "````" decodes to zero bytes: the plain text ends there.
  EXPECT_EQ(decryptText("````abcd", ""), "");
  // (Any characters decode without a zero byte: armour_fuzz's check.)
  EXPECT_EQ(decryptText("!!!!", ""), std::string("\x04\x10\x41", 3) + "\x82\x08\x20");
  // (The group after the end reads zero characters, which decode to 0x82 0x08 0x20, not to
  // zero bytes; a real cipher text ends in a zero byte before it.)
  // Over-long cipher text is cut at 32101 characters.
  std::string big = encryptText(std::string(24001, 'a'), "k");
  EXPECT_EQ(decryptText(big + std::string(1000, '!'), "k"), std::string(24001, 'a'));
}

TEST(FileCipher, KeyPhaseRestartsEvery2000BytesAndTwiceRestores) {
  testing::ScratchFolder dir;
  std::mt19937 rng(3);
  std::string data(3 * 1024000 + 4567, '\0');  // several I/O blocks and a partial one
  for (char& c : data) c = static_cast<char>(rng());
  std::string path = dir.file("big.bin", data);
  const std::string key = "abcdefg";  // 7 does not divide 2000: the phase restart is visible
  const std::string k = effectiveKey(key, kFileKeyLen);

  ASSERT_EQ(encryptFile(path, key), 1);
  std::ifstream in(path, std::ios::binary);
  std::string once(std::istreambuf_iterator<char>(in), {});
  ASSERT_EQ(once.size(), data.size());
  for (size_t p : {size_t{0}, size_t{1999}, size_t{2000}, size_t{2001}, size_t{1023999},
                   size_t{1024000}, size_t{2048003}, data.size() - 1}) {
    char expected = static_cast<char>(data[p] ^ k[(p % 2000) % k.size()]);
    EXPECT_EQ(once[p], expected) << p;
  }
  ASSERT_EQ(encryptFile(path, key), 1);
  std::ifstream again(path, std::ios::binary);
  EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(again), {}) == data);
}

}  // namespace
}  // namespace tessel::formats
