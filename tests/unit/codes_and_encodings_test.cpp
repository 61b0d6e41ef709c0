#include <gtest/gtest.h>

#include "support/four_char_code.h"
#include "platform/text_encoding.h"

using namespace tessel;

TEST(FourCharCode, ReadsHighByteFirstAndSignExtendsTheOthers) {
  EXPECT_EQ(support::readFourCharCode("TEXT"), 0x54455854u);
  // A byte of 0x80 or above after the first sets every bit above it.
  EXPECT_EQ(support::readFourCharCode("a\xA9" "bc"), 0xFFA96263u);
  EXPECT_EQ(support::readFourCharCode("ab\xB5" "c"), 0xFFFFB563u);
  // The first byte is never sign-extended: 0xB5 "doc" stays as it is.
  EXPECT_EQ(support::readFourCharCode("\xB5" "doc"), 0xB5646F63u);
  EXPECT_EQ(support::writeFourCharCode(0xB5646F63u), "\xB5" "doc");
  // Shorter texts read as if padded with zero bytes; longer ones use only four bytes.
  EXPECT_EQ(support::readFourCharCode("ab"), 0x61620000u);
  EXPECT_EQ(support::readFourCharCode(""), 0u);
  EXPECT_EQ(support::readFourCharCode("TEXTmore"), 0x54455854u);
}

TEST(TextEncoding, MacRomanRoundTripsWhatItCanHold) {
  // é is 0x8E in Mac OS Roman, µ is 0xB5. (UTF-8 to Mac OS Roman, "?" for what it lacks
  // included, is a row of ConversionsAsRows and of CustomBox.AlignmentFontAndTheCancelButton.)
  EXPECT_EQ(platform::macRomanToUtf8("caf\x8E"), "caf\xC3\xA9");
  EXPECT_EQ(platform::macRomanToUtf8("\xB5"), "\xC2\xB5");
  // Characters Mac OS Roman lacks, and bytes that are not UTF-8, become '?'.
  EXPECT_EQ(platform::utf8ToMacRoman("a\xFFz"), "a?z");
}
