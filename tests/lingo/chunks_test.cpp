// The chunk rules on their own (host/lingo/chunks.h) and as the interpreter applies them:
// boundaries, padding, deleting with a separator, nesting, and text that is not valid UTF-8.
#include <gtest/gtest.h>

#include <stdexcept>

#include "host/lingo/chunks.h"
#include "lingo_test_util.h"

namespace tessel::lingo {
namespace {

using testing::run;

std::string chunkOf(std::string_view s, ChunkType t, int64_t from, int64_t to,
                    std::string_view delim = ",") {
  Span span = findChunk(s, t, from, to, delim);
  return span.found ? std::string(s.substr(span.begin, span.end - span.begin)) : "<none>";
}

TEST(LingoChunks, BoundariesOfEachKind) {
  // Items: empty items count, a trailing delimiter makes an empty last item, no text no items.
  EXPECT_EQ(countChunks("", ChunkType::Item, ","), 0u);
  EXPECT_EQ(countChunks("a,,b,", ChunkType::Item, ","), 4u);
  EXPECT_EQ(chunkOf("a,,b,", ChunkType::Item, 2, 2), "");
  EXPECT_EQ(chunkOf("a,,b,", ChunkType::Item, 3, 9), "b,");
  EXPECT_EQ(chunkOf("a,b", ChunkType::Item, 0, 1), "<none>");
  // A delimiter of several bytes is one character.
  EXPECT_EQ(chunkOf("x→y→z", ChunkType::Item, 2, 2, "→"), "y");
  // Words: none in blank text (runs of blanks between them: tests/scripts/text_processing.ls).
  EXPECT_EQ(countChunks(" \t\r\n ", ChunkType::Word, ","), 0u);
  // Lines: CR, LF and CR LF each end one line.
  EXPECT_EQ(countChunks("a\r\nb\rc\nd", ChunkType::Line, ","), 4u);
  EXPECT_EQ(chunkOf("a\r\nb\rc\nd", ChunkType::Line, 2, 3), "b\rc");
  // A stray byte is a character of its own (its neighbours kept whole: the boundary's
  // MessageWindow.TextThatIsNotUtf8IsShownNotSplit).
  std::string bad = "a\xC3\xA9\xFF\xE2\x82";  // a, é, a lone byte, a cut-off sequence
  EXPECT_EQ(countChars(bad), 5u);
  EXPECT_EQ(chunkOf(bad, ChunkType::Char, 3, 3), "\xFF");
  EXPECT_EQ(displayText(bad), "a\xC3\xA9\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(countChars("\xED\xA0\x80"), 3u);  // an encoded surrogate is no character
}

TEST(LingoChunks, WritesPadAndDeletesTakeOneSeparator) {
  // (Chars, items and lines padded from their end, reads and deletes past the end:
  // tests/scripts/text_processing.ls.)
  EXPECT_EQ(putChunk("a,b", ChunkType::Item, 4, 4, "X", PutMode::After, ","), "a,b,,X");
  EXPECT_EQ(putChunk("one two", ChunkType::Word, 5, 5, "X", PutMode::Into, ","), "one two X");
  EXPECT_EQ(putChunk("one two", ChunkType::Word, 2, 2, "X", PutMode::Before, ","), "one Xtwo");
  EXPECT_EQ(putChunk("héllo", ChunkType::Char, 2, 3, "E", PutMode::Into, ","), "hElo");
  // Padding is refused before it is made when the text would pass the limit.
  EXPECT_THROW(putChunk("a", ChunkType::Item, 2000000000, 2000000000, "x", PutMode::Into, "→", 1000),
               std::length_error);
  EXPECT_EQ(run("s = \"\"\nput \"x\" into char 2000000000 of s\n"), "error: 2: Text too long\n");
  EXPECT_EQ(deleteChunk("a,b,c", ChunkType::Item, 2, 2, ","), "a,c");
  EXPECT_EQ(deleteChunk("a,b,c", ChunkType::Item, 3, 3, ","), "a,b");
  EXPECT_EQ(deleteChunk("one  two three", ChunkType::Word, 1, 1, ","), "two three");
  EXPECT_EQ(deleteChunk("one two  ", ChunkType::Word, 2, 2, ","), "one ");
  EXPECT_EQ(deleteChunk("x\r\ny\r\nz", ChunkType::Line, 3, 3, ","), "x\r\ny");
  EXPECT_EQ(deleteChunk("only", ChunkType::Line, 1, 1, ","), "");
}

// (The interpreter's use of these rules, nested reads and writes included, is in
// tests/scripts/text_processing.ls; what fails is here.)
TEST(LingoChunks, APositionMustBeAnInteger) {
  EXPECT_EQ(run("put char \"x\" of \"abc\"\n"),
            "error: 1: Integer expected for a chunk position, found \"x\"\n");
}

}  // namespace
}  // namespace tessel::lingo
