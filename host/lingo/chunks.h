// Chunk expressions over UTF-8 text: the char, word, item and line ranges Lingo reads, their
// counts, and the writes (put into/after/before, delete) it makes on them.
//
// A char is one Unicode character; a byte that does not start a valid UTF-8 sequence is a char
// of its own, so no operation ever splits a character. Words are separated by runs of spaces,
// tabs and line ends. Items are separated by the item delimiter (one character). Lines end at
// RETURN, LF or CR LF. Positions are 1-based, as in Lingo.
//
//   findChunk("a,b,c", ChunkType::Item, 2, 2, ",")            // bytes 2..3: "b"
//   putChunk("a,b", ChunkType::Item, 4, 4, "x", PutMode::Into, ",")   // "a,b,,x"
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::lingo {

enum class ChunkType : uint8_t { Char, Word, Item, Line };
enum class PutMode : uint8_t { Into, After, Before };

// ---- UTF-8 ----------------------------------------------------------------------------------
// Bytes of the character at s[i]: its valid UTF-8 sequence, or 1 for a byte that starts none.
size_t charLength(std::string_view s, size_t i);
// The character at s[i] and its length; a byte that starts no valid sequence is its own value.
uint32_t decodeChar(std::string_view s, size_t i, size_t* length);
void appendUtf8(std::string& out, uint32_t codePoint);
size_t countChars(std::string_view s);
// The text with each byte that is not valid UTF-8 shown as U+FFFD (what the message window
// prints); the text itself when it is valid.
std::string displayText(std::string_view s);

// ---- Chunks ---------------------------------------------------------------------------------
struct Span {
  size_t begin = 0;
  size_t end = 0;
  bool found = false;
};

// How many chunks of that kind the text has: an empty text has none; items and lines count
// their separators plus one.
size_t countChunks(std::string_view s, ChunkType type, std::string_view itemDelimiter);
// The bytes of chunks `from` to `to` (a `to` below `from` means `from` alone; a `to` past the
// end stops at the last chunk). Not found when `from` is below 1 or past the last chunk.
Span findChunk(std::string_view s, ChunkType type, int64_t from, int64_t to,
               std::string_view itemDelimiter);
// The text after putting `value` into, after or before the chunk. A chunk past the end is made
// first: chars pad with spaces, items with delimiters, lines with line ends, a word follows a
// space. A position below 1 counts as 1. Throws std::length_error ("Text too long") when the
// result would pass `maxBytes`, before making it.
std::string putChunk(std::string_view s, ChunkType type, int64_t from, int64_t to,
                     std::string_view value, PutMode mode, std::string_view itemDelimiter,
                     size_t maxBytes = SIZE_MAX);
// The text without the chunk and one separator next to it (the one after it, or before it for
// the last chunk); the text unchanged when the chunk does not exist.
std::string deleteChunk(std::string_view s, ChunkType type, int64_t from, int64_t to,
                        std::string_view itemDelimiter);

}  // namespace tessel::lingo
