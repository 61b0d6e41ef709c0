// The percent language and the date and time token languages on fixed date fields.
#include <gtest/gtest.h>

#include "formats/dates.h"

namespace tessel::formats {
namespace {

// Thursday 5 March 2026, 14:07:09, the 64th day of the year.
DateFields march5(int hour = 14, int minute = 7, int second = 9) {
  DateFields f;
  f.year = 2026;
  f.month = 3;
  f.day = 5;
  f.hour = hour;
  f.minute = minute;
  f.second = second;
  f.weekday = 5;
  f.yearDay = 64;
  return f;
}

DateFields inYear(int year) {
  DateFields f = march5();
  f.year = year;
  return f;
}

// (The padded codes, the names of days and months, "%%" and an unknown code are
// Formats.SystemTimeAgreesWithTheClock's, against strftime, and tsSystemTime's example.)
TEST(PercentLanguage, CodesPaddingAndUnknowns) {
  const DateFields f = march5();
  EXPECT_EQ(expandPercentFormat("%d/%m/%Y", f), "5/3/2026");
  EXPECT_EQ(expandPercentFormat("%H:%M:%S", march5(9, 5, 3)), "9:5:3");
  EXPECT_EQ(expandPercentFormat("%j %0j %w %0w", f), "64 064 4 04");
  // The 12-hour clock: midnight is 12, afternoon hours count from 1.
  EXPECT_EQ(expandPercentFormat("%I", march5(0, 30)), "12");
  EXPECT_EQ(expandPercentFormat("%I", march5(13, 30)), "1");
  EXPECT_EQ(expandPercentFormat("%I %0I", march5(12)), "12 12");
  EXPECT_EQ(expandPercentFormat("%0I", march5(9)), "09");
  // Padded forms without one, a final "%" and "%0" give nothing.
  EXPECT_EQ(expandPercentFormat("x%0y%0Y%0B%0%y", f), "xy");
  EXPECT_EQ(expandPercentFormat("end%", f), "end");
  EXPECT_EQ(expandPercentFormat("end%0", f), "end");
  // Codes are case-sensitive.
  EXPECT_EQ(expandPercentFormat("%D%h", f), "");
}

TEST(PercentLanguage, TwoDigitYearsAndLimits) {
  EXPECT_EQ(expandPercentFormat("%y", inYear(2000)), "00");
  EXPECT_EQ(expandPercentFormat("%y", inYear(2099)), "99");
  EXPECT_EQ(expandPercentFormat("%y", inYear(1999)), "99");
  EXPECT_EQ(expandPercentFormat("%y", inYear(1905)), "05");
  EXPECT_EQ(expandPercentFormat("%y", inYear(2105)), "105");
  EXPECT_EQ(expandPercentFormat("%Y", inYear(987)), "0987");
  // The result stays within 256 characters, cutting inside an expansion.
  std::string many;
  for (int i = 0; i < 70; ++i) many += "%B";
  std::string out = expandPercentFormat(many, march5());
  ASSERT_EQ(out.size(), 256u);
  EXPECT_EQ(out.substr(250), "MarchM");
}

// ("date" and "TIME" are Formats.SystemTimeAgreesWithTheClock's, through the host.)
TEST(SystemTimeFormat, DateAndTimeWords) {
  EXPECT_EQ(formatSystemTime("dates", march5()), "dates");  // not the whole word: percent codes
  EXPECT_EQ(formatSystemTime("", march5()), "");
}

// ("dd.mm.yyyy", "dddd d mmmm yy", "hh:nn:ss" and "h:n:s" are Formats.FileDatesAndAges'.)
TEST(TokenLanguages, DateTokens) {
  const DateFields f = march5();
  EXPECT_EQ(expandDateTokens("DDDD, MMMM D", f), "Thursday, March 5");
  EXPECT_EQ(expandDateTokens("ddd mmm", f), "Thu Mar");
  // Every d and y is a token: of "Day: dd" only "a", ":" and " " are copied.
  EXPECT_EQ(expandDateTokens("Day: dd", f), "5a26: 05");
  // Longest token first: "yyy" is "yy" then "y"; "mmmmm" is "mmmm" then "m".
  EXPECT_EQ(expandDateTokens("yyy", f), "2626");
  EXPECT_EQ(expandDateTokens("mmmmm", f), "March3");
  // Time letters are ordinary characters here.
  EXPECT_EQ(expandDateTokens("h:n:s", f), "h:n:s");
  EXPECT_EQ(expandDateTokens("yy y", inYear(2005)), "05 5");
  EXPECT_EQ(expandDateTokens("yy y", inYear(2000)), "00 0");
  EXPECT_EQ(expandDateTokens("yy y", inYear(1999)), "99 99");
  EXPECT_EQ(expandDateTokens("yy y", inYear(2105)), "105 105");
}

TEST(TokenLanguages, TimeTokensAndLimits) {
  EXPECT_EQ(expandTimeTokens("HH:NN:SS", march5(4, 5, 6)), "04:05:06");
  // "hhh" is "hh" then "h"; date letters are copied.
  EXPECT_EQ(expandTimeTokens("hhh", march5(4)), "044");
  EXPECT_EQ(expandTimeTokens("hh:mm dd", march5()), "14:mm dd");
  EXPECT_EQ(expandDateTokens(std::string(400, 'x'), march5(), 300).size(), 300u);
}

// (Local fields and stamps in a time zone of their own are Formats.FileDatesAndAges', through the
// host.)
TEST(LocalTime, StampsBeyond2040WrapIn32Bits) {
  const char* saved = std::getenv("TZ");
  std::string previous = saved != nullptr ? saved : "";
  ::setenv("TZ", "XST-5:30", 1);  // 5 h 30 east of UTC, no daylight saving
  ::tzset();
  EXPECT_EQ(localStamp1904(static_cast<time_t>(4000000000LL)),
            static_cast<uint32_t>(4000000000LL + 19800 + 2082844800LL));
  if (saved != nullptr)
    ::setenv("TZ", previous.c_str(), 1);
  else
    ::unsetenv("TZ");
  ::tzset();
}

}  // namespace
}  // namespace tessel::formats
