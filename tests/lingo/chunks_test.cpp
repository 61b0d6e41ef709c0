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
  EXPECT_EQ(chunkOf("a,b", ChunkType::Item, 3, 3), "<none>");
  EXPECT_EQ(chunkOf("a,b", ChunkType::Item, 0, 1), "<none>");
  // A delimiter of several bytes is one character.
  EXPECT_EQ(chunkOf("x→y→z", ChunkType::Item, 2, 2, "→"), "y");
  // Words: runs of spaces, tabs and line ends; none in blank text.
  EXPECT_EQ(countChunks(" \t\r\n ", ChunkType::Word, ","), 0u);
  EXPECT_EQ(chunkOf("  a \t b\nc ", ChunkType::Word, 2, 3), "b\nc");
  // Lines: CR, LF and CR LF each end one line.
  EXPECT_EQ(countChunks("a\r\nb\rc\nd", ChunkType::Line, ","), 4u);
  EXPECT_EQ(chunkOf("a\r\nb\rc\nd", ChunkType::Line, 2, 3), "b\rc");
  // Chars are characters; a stray byte is one of its own and never splits its neighbours.
  std::string bad = "a\xC3\xA9\xFF\xE2\x82";  // a, é, a lone byte, a cut-off sequence
  EXPECT_EQ(countChars(bad), 5u);
  EXPECT_EQ(chunkOf(bad, ChunkType::Char, 2, 2), "\xC3\xA9");
  EXPECT_EQ(chunkOf(bad, ChunkType::Char, 3, 3), "\xFF");
  EXPECT_EQ(displayText(bad), "a\xC3\xA9\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(countChars("\xED\xA0\x80"), 3u);  // an encoded surrogate is no character
}

TEST(LingoChunks, WritesPadAndDeletesTakeOneSeparator) {
  EXPECT_EQ(putChunk("abc", ChunkType::Char, 10, 10, "X", PutMode::Into, ","), "abc      X");
  EXPECT_EQ(putChunk("", ChunkType::Item, 3, 3, "X", PutMode::Into, ","), ",,X");
  EXPECT_EQ(putChunk("a,b", ChunkType::Item, 4, 4, "X", PutMode::After, ","), "a,b,,X");
  EXPECT_EQ(putChunk("a\nb", ChunkType::Line, 4, 4, "X", PutMode::Into, ","), "a\nb\n\nX");
  EXPECT_EQ(putChunk("a", ChunkType::Line, 2, 2, "X", PutMode::Into, ","), "a\rX");
  EXPECT_EQ(putChunk("one two", ChunkType::Word, 5, 5, "X", PutMode::Into, ","), "one two X");
  EXPECT_EQ(putChunk("one two", ChunkType::Word, 2, 2, "X", PutMode::Before, ","), "one Xtwo");
  EXPECT_EQ(putChunk("héllo", ChunkType::Char, 2, 3, "E", PutMode::Into, ","), "hElo");
  // Padding is refused before it is made when the text would pass the limit.
  EXPECT_THROW(putChunk("a", ChunkType::Item, 2000000000, 2000000000, "x", PutMode::Into, "→", 1000),
               std::length_error);
  EXPECT_EQ(run("s = \"\"\nput \"x\" into char 2000000000 of s\n"), "error: 2: Text too long\n");
  EXPECT_EQ(deleteChunk("a,b,c", ChunkType::Item, 2, 2, ","), "a,c");
  EXPECT_EQ(deleteChunk("a,b,c", ChunkType::Item, 3, 3, ","), "a,b");
  EXPECT_EQ(deleteChunk("a,b,c", ChunkType::Item, 9, 9, ","), "a,b,c");
  EXPECT_EQ(deleteChunk("one  two three", ChunkType::Word, 1, 1, ","), "two three");
  EXPECT_EQ(deleteChunk("one two  ", ChunkType::Word, 2, 2, ","), "one ");
  EXPECT_EQ(deleteChunk("x\r\ny\r\nz", ChunkType::Line, 3, 3, ","), "x\r\ny");
  EXPECT_EQ(deleteChunk("only", ChunkType::Line, 1, 1, ","), "");
}

TEST(LingoChunks, NestedReadsAndWritesThroughTheInterpreter) {
  EXPECT_EQ(run("s = \"ab cd,ef gh\" & RETURN & \"x y,z\"\n"
                "put char 2 of word 2 of item 1 of line 1 of s\n"
                "put \"Q\" into char 1 of word 2 of item 2 of line 2 of s\n"
                "put s\n"
                "put \"!\" after the last word of line 1 of s\n"
                "delete word 1 of item 1 of line 2 of s\n"
                "put s\n"),
            "-- \"d\"\n-- \"ab cd,ef gh\nx y,z Q\"\n-- \"ab cd,ef gh!\ny,z Q\"\n");
  // A write past the end pads at every level; a delete there changes nothing.
  EXPECT_EQ(run("s = \"a\"\nput \"X\" into char 2 of item 3 of s\nput s\n"
                "delete char 1 of item 9 of s\nput s\n"),
            "-- \"a,, X\"\n-- \"a,, X\"\n");
  // Chunks of list items and of numbers, written back where they came from.
  EXPECT_EQ(run("l = [\"a b\", 12345]\nput \"Z\" into word 2 of l[1]\n"
                "put char 2 to 3 of l[2], l\n"),
            "-- \"23\" [\"a Z\", 12345]\n");
  // Positions are evaluated before the text is looked at, even when they call handlers that
  // change the variable.
  EXPECT_EQ(run("on grow\n  global s\n  put \"xyz\" after s\n  return 4\nend\n"
                "global s\ns = \"abc\"\nput char grow() of s, s\n"),
            "-- \"x\" \"abcxyz\"\n");
  EXPECT_EQ(run("put char \"x\" of \"abc\"\n"),
            "error: 1: Integer expected for a chunk position, found \"x\"\n");
}

TEST(LingoChunks, NamesThatAreChunkWordsStayVariables) {
  EXPECT_EQ(run("line = \"a\"\nword = 2\nput line & word, item\n"
                "repeat with char in [1, 2]\n  put char\nend repeat\n"),
            "-- \"a2\" <Void>\n-- 1\n-- 2\n");
}

}  // namespace
}  // namespace tessel::lingo
