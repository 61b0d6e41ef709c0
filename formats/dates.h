// Date and time formatting, and the dates of files. Two small format languages: the percent
// codes of tsSystemTime ("%d/%m/%Y", "%0H:%0M") and the letter runs of the file dates
// ("dd.mm.yyyy", "hh:nn:ss"). Names are English and fixed.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace tessel::formats {

// Local date and time fields.
struct DateFields {
  int year = 1904;
  int month = 1;      // 1..12
  int day = 1;        // 1..31
  int hour = 0;       // 0..23
  int minute = 0;
  int second = 0;
  int weekday = 1;    // 1..7, 1 = Sunday
  int yearDay = 1;    // 1..366, 1 = 1 January
};

// The local date and time of a Unix time, in the process's time zone.
DateFields localFields(time_t t);

// The languages on fixed fields, each result cut to `limit` characters.
std::string expandPercentFormat(std::string_view format, const DateFields& f, size_t limit = 256);
std::string expandDateTokens(std::string_view format, const DateFields& f, size_t limit = 300);
std::string expandTimeTokens(std::string_view format, const DateFields& f, size_t limit = 300);

// tsSystemTime on given fields: "date", "time" or the percent language.
std::string formatSystemTime(std::string_view format, const DateFields& f);

std::string systemTime(std::string_view format);
std::string fileDate(std::string_view file, std::string_view dateFormat,
                     std::string_view timeFormat);
std::string fileDateEx(std::string_view file, std::string_view dateType,
                       std::string_view dateFormat, std::string_view timeFormat);
// The file's modification time as local seconds since 1 January 1904, less 2,000,000,000
// (wrapping in 32 bits); 0 when the file can't be read.
int32_t fileAge(std::string_view file);

// A Unix time as local seconds since 1 January 1904 (the Unix time plus the local UTC offset of
// that moment plus 2,082,844,800), wrapped to 32 bits as file stamps are kept.
uint32_t localStamp1904(time_t t);

}  // namespace tessel::formats
