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

TEST(PercentLanguage, CodesPaddingAndUnknowns) {
  const DateFields f = march5();
  EXPECT_EQ(expandPercentFormat("%d/%m/%Y", f), "5/3/2026");
  EXPECT_EQ(expandPercentFormat("%0d/%0m/%y", f), "05/03/26");
  EXPECT_EQ(expandPercentFormat("%H:%M:%S %0H:%0M:%0S", march5(9, 5, 3)), "9:5:3 09:05:03");
  EXPECT_EQ(expandPercentFormat("%A %a %B %b", f), "Thursday Thu March Mar");
  EXPECT_EQ(expandPercentFormat("%j %0j %w %0w", f), "64 064 4 04");
  // The 12-hour clock: midnight is 12, afternoon hours count from 1.
  EXPECT_EQ(expandPercentFormat("%I", march5(0, 30)), "12");
  EXPECT_EQ(expandPercentFormat("%I", march5(13, 30)), "1");
  EXPECT_EQ(expandPercentFormat("%I %0I", march5(12)), "12 12");
  EXPECT_EQ(expandPercentFormat("%0I", march5(9)), "09");
  EXPECT_EQ(expandPercentFormat("%0I", march5(0)), "12");
  // Unknown codes, padded forms without one, a final "%" and "%0" give nothing.
  EXPECT_EQ(expandPercentFormat("a%qb", f), "ab");
  EXPECT_EQ(expandPercentFormat("100%%", f), "100%");
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
  for (int i = 0; i < 40; ++i) many += "%B";
  std::string out = expandPercentFormat(many, march5());
  EXPECT_EQ(out.size(), 200u);  // "March" × 40
  for (int i = 0; i < 30; ++i) many += "%B";
  out = expandPercentFormat(many, march5());
  ASSERT_EQ(out.size(), 256u);
  EXPECT_EQ(out.substr(250), "MarchM");
}

TEST(SystemTimeFormat, DateAndTimeWords) {
  const DateFields f = march5(9, 30, 5);
  EXPECT_EQ(formatSystemTime("date", f), "20260305");
  EXPECT_EQ(formatSystemTime("DATE", f), "20260305");
  EXPECT_EQ(formatSystemTime("Time", f), "093005");
  EXPECT_EQ(formatSystemTime("dates", f), "dates");  // not the whole word: the percent language
  EXPECT_EQ(formatSystemTime("", f), "");
}

TEST(TokenLanguages, DateTokens) {
  const DateFields f = march5();
  EXPECT_EQ(expandDateTokens("dd.mm.yyyy ", f), "05.03.2026 ");
  EXPECT_EQ(expandDateTokens("d/m/yy", f), "5/3/26");
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
  EXPECT_EQ(expandTimeTokens("hh:nn:ss", march5()), "14:07:09");
  EXPECT_EQ(expandTimeTokens("h:n:s", march5(4, 5, 6)), "4:5:6");
  EXPECT_EQ(expandTimeTokens("HH:NN:SS", march5(4, 5, 6)), "04:05:06");
  // "hhh" is "hh" then "h"; date letters are copied.
  EXPECT_EQ(expandTimeTokens("hhh", march5(4)), "044");
  EXPECT_EQ(expandTimeTokens("hh:mm dd", march5()), "14:mm dd");
  EXPECT_EQ(expandDateTokens(std::string(400, 'x'), march5(), 300).size(), 300u);
}

TEST(LocalTime, FieldsAndStampsFollowTheTimeZone) {
  const char* saved = std::getenv("TZ");
  std::string previous = saved != nullptr ? saved : "";
  ::setenv("TZ", "XST-5:30", 1);  // 5 h 30 east of UTC, no daylight saving
  ::tzset();
  const time_t t = 1772719629;  // 2026-03-05 14:07:09 UTC
  DateFields f = localFields(t);
  EXPECT_EQ(expandDateTokens("yyyy-mm-dd ", f) + expandTimeTokens("hh:nn:ss", f),
            "2026-03-05 19:37:09");
  EXPECT_EQ(f.weekday, 5);
  EXPECT_EQ(f.yearDay, 64);
  EXPECT_EQ(localStamp1904(t), static_cast<uint32_t>(t + 19800 + 2082844800LL));
  // Stamps beyond 2040 wrap in 32 bits.
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
