#include "formats/dates.h"

#include <algorithm>
#include <climits>
#include <cstdio>

#include "support/text.h"
#include "paths/paths.h"
#include "platform/files.h"

namespace tessel::formats {
namespace {

// Seconds from 1 January 1904 to 1 January 1970.
constexpr int64_t kEpochOffset1904 = 2082844800;

constexpr const char* kMonths[12] = {"January", "February", "March",     "April",
                                     "May",     "June",     "July",      "August",
                                     "September", "October", "November", "December"};
constexpr const char* kShortMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr const char* kWeekdays[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                      "Thursday", "Friday", "Saturday"};
constexpr const char* kShortWeekdays[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

const char* monthName(const DateFields& f, bool full) {
  int i = f.month >= 1 && f.month <= 12 ? f.month - 1 : 0;
  return full ? kMonths[i] : kShortMonths[i];
}
const char* weekdayName(const DateFields& f, bool full) {
  int i = f.weekday >= 1 && f.weekday <= 7 ? f.weekday - 1 : 0;
  return full ? kWeekdays[i] : kShortWeekdays[i];
}

// Output cut at a fixed number of characters.
class Output {
 public:
  explicit Output(size_t limit) : limit_(limit) {}
  void add(std::string_view s) { text_.append(s.substr(0, limit_ - std::min(limit_, text_.size()))); }
  void add(char c) { add(std::string_view(&c, 1)); }
  void number(const char* format, long long value) {
    char buffer[32];
    int n = std::snprintf(buffer, sizeof buffer, format, value);
    if (n > 0) add(std::string_view(buffer, std::min<size_t>(static_cast<size_t>(n), sizeof buffer - 1)));
  }
  std::string take() { return std::move(text_); }

 private:
  size_t limit_;
  std::string text_;
};

// The percent language's two-digit year: years from 2000 give 00.., 2100 and later three digits.
long long percentShortYear(long long year) {
  long long y = year - 1900;
  return y > 99 ? y - 100 : y;
}
// The token language's two-digit year.
long long tokenShortYear(long long year) { return year - 1900 > 99 ? year - 2000 : year - 1900; }

long long twelveHour(long long hour) {
  if (hour == 0) return 12;
  return hour > 12 ? hour - 12 : hour;
}

// Whether `format` at `at` starts with `token`, ignoring case.
bool tokenAt(std::string_view format, size_t at, std::string_view token) {
  return support::startsWithIgnoringCase(format.substr(at), token);
}

}  // namespace

DateFields localFields(time_t t) {
  struct tm local {};
  DateFields f;
  if (localtime_r(&t, &local) == nullptr) return f;
  f.year = static_cast<int>(std::min<long long>(local.tm_year + 1900LL, INT_MAX));
  f.month = local.tm_mon + 1;
  f.day = local.tm_mday;
  f.hour = local.tm_hour;
  f.minute = local.tm_min;
  f.second = std::min(local.tm_sec, 59);  // a leap second reads as :59
  f.weekday = local.tm_wday + 1;
  f.yearDay = local.tm_yday + 1;
  return f;
}

std::string expandPercentFormat(std::string_view format, const DateFields& f, size_t limit) {
  Output out(limit);
  size_t i = 0;
  while (i < format.size()) {
    char c = format[i];
    if (c != '%') {
      out.add(c);
      ++i;
      continue;
    }
    if (i + 1 >= format.size()) break;  // a final "%" gives nothing
    char code = format[i + 1];
    if (code == '0') {
      char padded = i + 2 < format.size() ? format[i + 2] : '\0';
      switch (padded) {
        case 'm': out.number("%02lld", f.month); break;
        case 'd': out.number("%02lld", f.day); break;
        case 'H': out.number("%02lld", f.hour); break;
        case 'M': out.number("%02lld", f.minute); break;
        case 'S': out.number("%02lld", f.second); break;
        case 'I': out.number("%02lld", twelveHour(f.hour)); break;
        case 'j': out.number("%03lld", f.yearDay); break;
        case 'w': out.number("%02lld", f.weekday - 1LL); break;
        default: break;
      }
      i += 3;
      continue;
    }
    switch (code) {
      case 'm': out.number("%lld", f.month); break;
      case 'd': out.number("%lld", f.day); break;
      case 'y': out.number("%02lld", percentShortYear(f.year)); break;
      case 'Y': out.number("%04lld", f.year); break;
      case 'H': out.number("%lld", f.hour); break;
      case 'I': out.number("%lld", twelveHour(f.hour)); break;
      case 'M': out.number("%lld", f.minute); break;
      case 'S': out.number("%lld", f.second); break;
      case 'B': out.add(monthName(f, true)); break;
      case 'b': out.add(monthName(f, false)); break;
      case 'A': out.add(weekdayName(f, true)); break;
      case 'a': out.add(weekdayName(f, false)); break;
      case 'j': out.number("%lld", f.yearDay); break;
      case 'w': out.number("%lld", f.weekday - 1LL); break;
      case '%': out.add('%'); break;
      default: break;  // an unknown code gives nothing
    }
    i += 2;
  }
  return out.take();
}

std::string expandDateTokens(std::string_view format, const DateFields& f, size_t limit) {
  Output out(limit);
  size_t i = 0;
  while (i < format.size()) {
    if (tokenAt(format, i, "yyyy")) {
      out.number("%lld", f.year);
      i += 4;
    } else if (tokenAt(format, i, "yy")) {
      out.number("%02lld", tokenShortYear(f.year));
      i += 2;
    } else if (tokenAt(format, i, "y")) {
      out.number("%lld", tokenShortYear(f.year));
      i += 1;
    } else if (tokenAt(format, i, "mmmm")) {
      out.add(monthName(f, true));
      i += 4;
    } else if (tokenAt(format, i, "mmm")) {
      out.add(monthName(f, false));
      i += 3;
    } else if (tokenAt(format, i, "mm")) {
      out.number("%02lld", f.month);
      i += 2;
    } else if (tokenAt(format, i, "m")) {
      out.number("%lld", f.month);
      i += 1;
    } else if (tokenAt(format, i, "dddd")) {
      out.add(weekdayName(f, true));
      i += 4;
    } else if (tokenAt(format, i, "ddd")) {
      out.add(weekdayName(f, false));
      i += 3;
    } else if (tokenAt(format, i, "dd")) {
      out.number("%02lld", f.day);
      i += 2;
    } else if (tokenAt(format, i, "d")) {
      out.number("%lld", f.day);
      i += 1;
    } else {
      out.add(format[i]);
      i += 1;
    }
  }
  return out.take();
}

std::string expandTimeTokens(std::string_view format, const DateFields& f, size_t limit) {
  Output out(limit);
  size_t i = 0;
  while (i < format.size()) {
    struct Token {
      char letter;
      int value;
    };
    const Token tokens[] = {{'h', f.hour}, {'n', f.minute}, {'s', f.second}};
    bool matched = false;
    for (const Token& t : tokens) {
      if (support::asciiLower(format[i]) != t.letter) continue;
      bool pair = i + 1 < format.size() && support::asciiLower(format[i + 1]) == t.letter;
      out.number(pair ? "%02lld" : "%lld", t.value);
      i += pair ? 2 : 1;
      matched = true;
      break;
    }
    if (!matched) {
      out.add(format[i]);
      i += 1;
    }
  }
  return out.take();
}

std::string formatSystemTime(std::string_view format, const DateFields& f) {
  constexpr size_t kLimit = 256;
  Output out(kLimit);
  if (support::equalsIgnoringCase(format, "date")) {
    out.number("%02lld", f.year);
    out.number("%02lld", f.month);
    out.number("%02lld", f.day);
    return out.take();
  }
  if (support::equalsIgnoringCase(format, "time")) {
    out.number("%02lld", f.hour);
    out.number("%02lld", f.minute);
    out.number("%02lld", f.second);
    return out.take();
  }
  return expandPercentFormat(format, f, kLimit);
}

std::string systemTime(std::string_view format) {
  return formatSystemTime(format, localFields(::time(nullptr)));
}

std::string fileDateEx(std::string_view file, std::string_view dateType,
                       std::string_view dateFormat, std::string_view timeFormat) {
  constexpr size_t kLimit = 300;
  std::string native = paths::nativePath(file);
  if (native.empty()) return "";
  std::optional<platform::FileInfo> info = platform::fileService().info(native);
  if (!info) return "";
  // Where the filesystem records no birth time the modification time stands for it.
  bool creation = !dateType.empty() && (dateType[0] == 'c' || dateType[0] == 'C');
  int64_t stamp = creation && info->createdSeconds ? *info->createdSeconds : info->modifiedSeconds;
  DateFields fields = localFields(static_cast<time_t>(stamp));
  std::string out = expandDateTokens(dateFormat, fields, kLimit);
  out += expandTimeTokens(timeFormat, fields, kLimit - out.size());
  return out;
}

std::string fileDate(std::string_view file, std::string_view dateFormat,
                     std::string_view timeFormat) {
  return fileDateEx(file, "m", dateFormat, timeFormat);
}

uint32_t localStamp1904(time_t t) {
  struct tm local {};
  long offset = localtime_r(&t, &local) != nullptr ? local.tm_gmtoff : 0;
  return static_cast<uint32_t>(static_cast<int64_t>(t) + offset + kEpochOffset1904);
}

int32_t fileAge(std::string_view file) {
  std::string native = paths::nativePath(file);
  if (native.empty()) return 0;
  std::optional<platform::FileInfo> info = platform::fileService().info(native);
  // The age is asked of a file's own information, which a folder has not.
  if (!info || info->kind == platform::FileKind::Folder) return 0;
  uint32_t stamp = localStamp1904(static_cast<time_t>(info->modifiedSeconds));
  return static_cast<int32_t>(stamp - 2000000000u);
}

}  // namespace tessel::formats
