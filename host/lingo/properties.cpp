// The "the" properties a script without a stage uses: dates and times, clocks, the movie's
// place, the item delimiter, the result.
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>

#include "host/lingo/chunks.h"
#include "host/lingo/interpreter.h"
#include "host/lingo/values.h"

namespace tessel::lingo {

namespace {

constexpr const char* kMonths[] = {"January", "February", "March",     "April",   "May",      "June",
                                   "July",    "August",   "September", "October", "November", "December"};
constexpr const char* kDays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                 "Thursday", "Friday", "Saturday"};

// Dates and times in the US English forms, whatever the locale, so that scripts can take them
// apart: "11/23/2026", "Mon, Nov 23, 2026", "Monday, November 23, 2026", "3:04 PM",
// "3:04:05 PM".
std::string dateText(const std::tm& t, char form) {
  char buf[64];
  const char* month = kMonths[t.tm_mon];
  const char* day = kDays[t.tm_wday];
  int year = t.tm_year + 1900;
  if (form == 's') {
    std::snprintf(buf, sizeof buf, "%d/%d/%d", t.tm_mon + 1, t.tm_mday, year);
  } else if (form == 'a') {
    std::snprintf(buf, sizeof buf, "%.3s, %.3s %d, %d", day, month, t.tm_mday, year);
  } else {
    std::snprintf(buf, sizeof buf, "%s, %s %d, %d", day, month, t.tm_mday, year);
  }
  return buf;
}

std::string timeText(const std::tm& t, bool seconds) {
  char buf[32];
  int h = t.tm_hour % 12 == 0 ? 12 : t.tm_hour % 12;
  const char* half = t.tm_hour < 12 ? "AM" : "PM";
  if (seconds) {
    std::snprintf(buf, sizeof buf, "%d:%02d:%02d %s", h, t.tm_min, t.tm_sec, half);
  } else {
    std::snprintf(buf, sizeof buf, "%d:%02d %s", h, t.tm_min, half);
  }
  return buf;
}

int32_t elapsed(std::chrono::steady_clock::duration d, int perSecond) {
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(d).count();
  uint64_t t = static_cast<uint64_t>(ms) * static_cast<uint64_t>(perSecond) / 1000;
  return static_cast<int32_t>(static_cast<uint32_t>(t));
}

}  // namespace

Value Interpreter::theProperty(const Expr& e) {
  const std::string& n = e.name;
  if (n == "itemdelimiter") return Value(itemDelimiter_);
  if (n == "result") return result_;
  if (n == "moviepath") return Value(env_.moviePath);
  if (n == "applicationpath") return Value(env_.applicationPath);
  if (n == "platform") return Value(env_.platform);
  if (n == "runmode") return Value(env_.runMode);
  if (n == "environment") return environmentList();
  // The clocks: since the computer started (the milliseconds, the ticks), since the session
  // started or the last startTimer (the timer, in ticks).
  auto now = std::chrono::steady_clock::now();
  if (n == "milliseconds") return Value(elapsed(now.time_since_epoch(), 1000));
  if (n == "ticks") return Value(elapsed(now.time_since_epoch(), 60));
  if (n == "timer") return Value(elapsed(now - timerStart_, 60));
  if (n == "maxinteger") return Value(std::numeric_limits<int32_t>::max());
  if (n == "floatprecision") return Value(int32_t{floatPrecision_});
  bool isDate = n == "date" || n.ends_with(" date");
  bool isTime = n == "time" || n.ends_with(" time");
  if (isDate || isTime || n == "systemdate") {
    time_t t = std::chrono::system_clock::to_time_t(env_.clock());
    std::tm local{};
    localtime_r(&t, &local);
    if (n == "systemdate") {
      Value date = makeDate(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
      trackResult(date);
      return date;
    }
    if (n == "date" || n == "short date") return Value(dateText(local, 's'));
    if (n == "abbr date" || n == "abbrev date" || n == "abbreviated date")
      return Value(dateText(local, 'a'));
    if (n == "long date") return Value(dateText(local, 'l'));
    if (n == "long time") return Value(timeText(local, true));
    if (isTime) return Value(timeText(local, false));
  }
  fail("Unknown property: the " + e.spelling);
}

void Interpreter::setProperty(const Expr& e, const Value& v) {
  if (e.name == "itemdelimiter") {
    std::string d = textOf(v);
    // One character, as Lingo's item delimiter is; EMPTY keeps the comma.
    itemDelimiter_ = d.empty() ? "," : d.substr(0, charLength(d, 0));
    return;
  }
  if (e.name == "floatprecision") {
    // Floats show with 0 to 15 decimals; Lingo's other settings (negative, above 15) are kept
    // within that range.
    floatPrecision_ = std::clamp(toInt(v, "the floatPrecision"), 0, 15);
    return;
  }
  if (e.name == "result") {
    result_ = v;
    return;
  }
  fail("Can't set the " + e.spelling);
}

Value Interpreter::environmentList() {
  return newPropList({{Value::symbol("shockMachine"), Value(int32_t{0})},
                      {Value::symbol("platform"), Value(env_.platform)},
                      {Value::symbol("runMode"), Value(env_.runMode)},
                      {Value::symbol("osVersion"), Value(env_.osVersion)},
                      {Value::symbol("colorDepth"), Value(int32_t{32})},
                      {Value::symbol("uiLanguage"), Value("English")},
                      {Value::symbol("osLanguage"), Value("English")}});
}

}  // namespace tessel::lingo
