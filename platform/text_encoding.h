// Conversions between UTF-8 and the Mac OS Roman character set (through iconv).
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

}  // namespace tessel::platform
