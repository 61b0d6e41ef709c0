// Conversions between UTF-8 and the Mac OS Roman character set (through iconv), and the UTF-8
// repairs and case folding names need (through GLib).
//
// Short file names and the texts the Xtra hands back through its Roman re-encoding step travel
// as Mac OS Roman bytes; everything else in the Xtra is UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace tessel::platform {

// Every byte of Mac OS Roman has a Unicode counterpart, so this never fails.
std::string macRomanToUtf8(std::string_view roman);

// Characters that Mac OS Roman lacks, and bytes that are not UTF-8, become '?'.
std::string utf8ToMacRoman(std::string_view utf8);

// The text with every byte sequence that is not UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view text);

// The text folded for case-insensitive comparison (Unicode case folding); text that is not UTF-8
// has its ASCII letters lowered only.
std::string foldCase(std::string_view text);

}  // namespace tessel::platform
