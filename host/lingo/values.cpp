#include "host/lingo/values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "host/lingo/error.h"

namespace tessel::lingo {

namespace {

// Lists nested deeper than this print as "..." (a list can hold itself).
constexpr int kMaxPrintDepth = 64;

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view trim(std::string_view s) {
  while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
  return s;
}

class TextBuilder {
 public:
  TextBuilder(size_t maxBytes, int precision) : max_(maxBytes), precision_(precision) {}

  void add(std::string_view s) {
    if (out_.size() + s.size() > max_) throw ScriptError("Text too long");
    out_.append(s);
  }

  void literal(const Value& v, int depth) {
    const auto& st = v.storage();
    switch (st.index()) {
      case 0:
        add("<Void>");
        break;
      case 1:
        add(std::to_string(v.integer()));
        break;
      case 2:
        add(formatFloat(v.real(), precision_));
        break;
      case 3:
        add("\"");
        add(v.string());
        add("\"");
        break;
      case 4:
        add("#");
        add(v.sym().name);
        break;
      case 5: {
        const List& l = *v.listPtr();
        if (depth >= kMaxPrintDepth) {
          add("[...]");
          break;
        }
        add("[");
        for (size_t i = 0; i < l.items.size(); ++i) {
          if (i) add(", ");
          literal(l.items[i], depth + 1);
        }
        add("]");
        break;
      }
      case 6: {
        const PropList& p = *v.propListPtr();
        if (p.date) {
          int64_t days = daysOf(v);
          Value norm = makeDate(days);
          const auto& items = norm.propListPtr()->items;
          add("date( " + std::to_string(items[0].second.integer()) + ", " +
              std::to_string(items[1].second.integer()) + ", " +
              std::to_string(items[2].second.integer()) + " )");
          break;
        }
        if (!p.scriptName.empty()) {
          add("<offspring \"");
          add(p.scriptName);
          add("\">");
          break;
        }
        if (p.items.empty()) {
          add("[:]");
          break;
        }
        if (depth >= kMaxPrintDepth) {
          add("[...]");
          break;
        }
        add("[");
        for (size_t i = 0; i < p.items.size(); ++i) {
          if (i) add(", ");
          literal(p.items[i].first, depth + 1);
          add(": ");
          literal(p.items[i].second, depth + 1);
        }
        add("]");
        break;
      }
    }
  }

  std::string take() { return std::move(out_); }

 private:
  std::string out_;
  size_t max_;
  int precision_;
};

bool isNumber(const Value& v) { return v.isInteger() || v.isFloat(); }
double asDouble(const Value& v) { return v.isInteger() ? v.integer() : v.real(); }

int compareDoubles(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) return 2;
  return a < b ? -1 : (a > b ? 1 : 0);
}

int compareNumbers(const Value& a, const Value& b) {
  if (a.isInteger() && b.isInteger()) {
    return a.integer() < b.integer() ? -1 : (a.integer() > b.integer() ? 1 : 0);
  }
  return compareDoubles(asDouble(a), asDouble(b));
}

// A number against a string: as numbers when the string is one, otherwise as texts.
int compareNumberText(const Value& num, const std::string& text) {
  Value parsed;
  if (parseNumber(text, parsed)) return compareNumbers(num, parsed);
  std::string numText = plainText(num, 64);
  int c = compareNoCase(numText, text);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

int sign(int c) { return c < 0 ? -1 : (c > 0 ? 1 : 0); }

int sortRank(const Value& v) {
  switch (v.storage().index()) {
    case 0: return 0;
    case 1:
    case 2: return 1;
    case 3: return 2;
    case 4: return 3;
    case 5: return 4;
    default: return 5;
  }
}

}  // namespace

namespace {

// Lower case of the two-byte letters that have one of the same length: Latin-1, Latin
// Extended-A, Greek and Cyrillic capitals.
uint32_t foldLetter(uint32_t c) {
  if ((c >= 0xC0 && c <= 0xDE && c != 0xD7) || (c >= 0x391 && c <= 0x3AB && c != 0x3A2) ||
      (c >= 0x410 && c <= 0x42F))
    return c + 32;
  if (c >= 0x400 && c <= 0x40F) return c + 80;
  if (c == 0x178) return 0xFF;
  if ((c >= 0x100 && c <= 0x137) || (c >= 0x14A && c <= 0x177)) return c | 1;
  if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) return (c & 1) ? c + 1 : c;
  return c;
}

bool isAscii(std::string_view s) {
  for (char c : s) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

}  // namespace

std::string lowerCase(std::string_view s) {
  std::string out(s);
  for (size_t i = 0; i < out.size(); ++i) {
    auto b = static_cast<unsigned char>(out[i]);
    if (b < 0x80) {
      out[i] = support::asciiLower(out[i]);
    } else if (b >= 0xC3 && b <= 0xD0 && i + 1 < out.size() &&
               (static_cast<unsigned char>(out[i + 1]) & 0xC0) == 0x80) {
      uint32_t c = ((b & 0x1Fu) << 6) | (static_cast<unsigned char>(out[i + 1]) & 0x3Fu);
      uint32_t f = foldLetter(c);
      out[i] = static_cast<char>(0xC0 | (f >> 6));
      out[i + 1] = static_cast<char>(0x80 | (f & 0x3F));
      ++i;
    }
  }
  return out;
}

bool equalNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (static_cast<unsigned char>(a[i]) >= 0x80 || static_cast<unsigned char>(b[i]) >= 0x80)
      return lowerCase(a) == lowerCase(b);
    if (support::asciiLower(a[i]) != support::asciiLower(b[i])) return false;
  }
  return true;
}

int compareNoCase(std::string_view a, std::string_view b) {
  if (!isAscii(a) || !isAscii(b)) {
    // UTF-8 bytes order as their characters do.
    int c = lowerCase(a).compare(lowerCase(b));
    return c < 0 ? -1 : c > 0 ? 1 : 0;
  }
  size_t n = a.size() < b.size() ? a.size() : b.size();
  for (size_t i = 0; i < n; ++i) {
    auto ca = static_cast<unsigned char>(support::asciiLower(a[i]));
    auto cb = static_cast<unsigned char>(support::asciiLower(b[i]));
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

size_t findNoCase(std::string_view hay, std::string_view needle) {
  if (needle.empty()) return 0;
  if (needle.size() > hay.size()) return std::string_view::npos;
  std::string h = lowerCase(hay);
  std::string n = lowerCase(needle);
  // glibc's memmem is linear in the length of both texts.
  const void* hit = memmem(h.data(), h.size(), n.data(), n.size());
  if (!hit) return std::string_view::npos;
  return static_cast<size_t>(static_cast<const char*>(hit) - h.data());
}

std::string formatFloat(double d, int precision) {
  if (std::isnan(d)) return "NAN";
  if (std::isinf(d)) return d < 0 ? "-INF" : "INF";
  char buf[400];  // the largest double has 309 digits before the point, at most 15 after it
  auto res = std::to_chars(buf, buf + sizeof buf, d, std::chars_format::fixed,
                           std::clamp(precision, 0, 15));
  if (res.ec != std::errc()) return "NAN";
  return std::string(buf, res.ptr);
}

bool parseNumber(std::string_view text, Value& out) {
  std::string_view s = trim(text);
  if (s.empty()) return false;
  // Only the plain decimal forms: [+-]digits[.digits][e[+-]digits].
  size_t i = 0;
  bool negative = false;
  if (s[i] == '+' || s[i] == '-') negative = s[i++] == '-';
  size_t intStart = i;
  while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i;
  size_t intDigits = i - intStart;
  size_t fracDigits = 0;
  bool isFloat = false;
  if (i < s.size() && s[i] == '.') {
    isFloat = true;
    ++i;
    size_t fracStart = i;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i;
    fracDigits = i - fracStart;
  }
  if (intDigits + fracDigits == 0) return false;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    isFloat = true;
    ++i;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    size_t expStart = i;
    while (i < s.size() && s[i] >= '0' && s[i] <= '9') ++i;
    if (i == expStart) return false;
  }
  if (i != s.size()) return false;
  std::string_view digits = s.substr(negative || s[0] == '+' ? 1 : 0);
  if (!isFloat) {
    int64_t n = 0;
    bool fits = intDigits <= 10;
    if (fits) {
      for (char c : digits) n = n * 10 + (c - '0');
      if (negative) n = -n;
      fits = n >= std::numeric_limits<int32_t>::min() && n <= std::numeric_limits<int32_t>::max();
    }
    if (fits) {
      out = Value(static_cast<int32_t>(n));
      return true;
    }
  }
  double d = 0;
  auto res = std::from_chars(digits.data(), digits.data() + digits.size(), d);
  if (res.ec == std::errc::result_out_of_range) {
    // Overflow to infinity, underflow to zero, as the float arithmetic would.
    bool big = false;
    for (char c : digits) {
      if (c == 'e' || c == 'E') break;
      if (c >= '1' && c <= '9') big = true;
    }
    size_t e = digits.find_first_of("eE");
    bool negExp = e != std::string_view::npos && e + 1 < digits.size() && digits[e + 1] == '-';
    d = (big && !negExp) ? std::numeric_limits<double>::infinity() : 0.0;
  } else if (res.ec != std::errc()) {
    return false;
  }
  out = Value(negative ? -d : d);
  return true;
}

bool roundToInt32(double d, int32_t& out) {
  if (std::isnan(d)) return false;
  double r = std::round(d);
  if (r < -2147483648.0 || r > 2147483647.0) return false;
  out = static_cast<int32_t>(r);
  return true;
}

std::string literalText(const Value& v, size_t maxBytes, int precision) {
  TextBuilder b(maxBytes, precision);
  b.literal(v, 0);
  return b.take();
}

std::string plainText(const Value& v, size_t maxBytes, int precision) {
  if (v.isVoid()) return {};
  if (v.isString()) {
    if (v.string().size() > maxBytes) throw ScriptError("Text too long");
    return v.string();
  }
  if (v.isSymbol()) return v.sym().name;
  return literalText(v, maxBytes, precision);
}

bool lingoEquals(const Value& a, const Value& b, size_t& budget) {
  if (budget == 0) throw ScriptError("Lists too large to compare");
  --budget;
  if (isNumber(a) && isNumber(b)) return compareNumbers(a, b) == 0;
  if (isNumber(a) && b.isString()) return compareNumberText(a, b.string()) == 0;
  if (a.isString() && isNumber(b)) return compareNumberText(b, a.string()) == 0;
  if (a.isString() && b.isString()) return equalNoCase(a.string(), b.string());
  if (a.isSymbol() && b.isSymbol()) return equalNoCase(a.sym().name, b.sym().name);
  if (a.isSymbol() && b.isString()) return equalNoCase(a.sym().name, b.string());
  if (a.isString() && b.isSymbol()) return equalNoCase(a.string(), b.sym().name);
  if (a.isVoid() || b.isVoid()) return a.isVoid() && b.isVoid();
  if (a.isList() && b.isList()) {
    const auto& x = a.listPtr()->items;
    const auto& y = b.listPtr()->items;
    if (a.listPtr() == b.listPtr()) return true;
    if (x.size() != y.size()) return false;
    for (size_t i = 0; i < x.size(); ++i) {
      if (!lingoEquals(x[i], y[i], budget)) return false;
    }
    return true;
  }
  if (a.isPropList() && b.isPropList()) {
    const auto& x = a.propListPtr()->items;
    const auto& y = b.propListPtr()->items;
    if (a.propListPtr() == b.propListPtr()) return true;
    if (x.size() != y.size()) return false;
    for (size_t i = 0; i < x.size(); ++i) {
      if (!samePropName(x[i].first, y[i].first)) return false;
      if (!lingoEquals(x[i].second, y[i].second, budget)) return false;
    }
    return true;
  }
  return false;
}

int lingoCompare(const Value& a, const Value& b) {
  // VOID orders as 0 against numbers and as "" against texts.
  static const Value zero(int32_t{0});
  static const Value emptyText(std::string{});
  const Value& x = a.isVoid() ? (b.isString() || b.isSymbol() ? emptyText : zero) : a;
  const Value& y = b.isVoid() ? (a.isString() || a.isSymbol() ? emptyText : zero) : b;
  if (isNumber(x) && isNumber(y)) return compareNumbers(x, y);
  if (isNumber(x) && y.isString()) return compareNumberText(x, y.string());
  if (x.isString() && isNumber(y)) {
    int c = compareNumberText(y, x.string());
    return c == 2 ? 2 : -c;
  }
  auto textOf = [](const Value& v) -> const std::string* {
    if (v.isString()) return &v.string();
    if (v.isSymbol()) return &v.sym().name;
    return nullptr;
  };
  const std::string* tx = textOf(x);
  const std::string* ty = textOf(y);
  if (tx && ty) return sign(compareNoCase(*tx, *ty));
  if (isDate(x) && isDate(y)) {
    int64_t dx = daysOf(x), dy = daysOf(y);
    return dx < dy ? -1 : dx > dy ? 1 : 0;
  }
  throw ScriptError(std::string("Can't compare ") + ilkName(a) + " with " + ilkName(b));
}

bool sortsBefore(const Value& a, const Value& b) {
  int ra = sortRank(a), rb = sortRank(b);
  if (ra != rb) return ra < rb;
  switch (ra) {
    case 1: {
      double x = asDouble(a), y = asDouble(b);
      if (std::isnan(x) || std::isnan(y)) return !std::isnan(x) && std::isnan(y);
      if (x != y) return x < y;
      // Equal values: integers first, so that the order stays strict and total.
      return a.isInteger() && b.isFloat();
    }
    case 2: return compareNoCase(a.string(), b.string()) < 0;
    case 3: return compareNoCase(a.sym().name, b.sym().name) < 0;
    case 4: return a.listPtr().get() < b.listPtr().get();
    case 5: return a.propListPtr().get() < b.propListPtr().get();
    default: return false;
  }
}

bool samePropName(const Value& a, const Value& b) {
  if (a.isSymbol() && b.isSymbol()) return equalNoCase(a.sym().name, b.sym().name);
  if (a.isString() && b.isString()) return a.string() == b.string();
  if (isNumber(a) && isNumber(b)) return compareNumbers(a, b) == 0;
  if (a.isVoid() && b.isVoid()) return true;
  if (a.isList() && b.isList()) return a.listPtr() == b.listPtr();
  if (a.isPropList() && b.isPropList()) return a.propListPtr() == b.propListPtr();
  return false;
}

const char* ilkName(const Value& v) {
  switch (v.storage().index()) {
    case 0: return "void";
    case 1: return "integer";
    case 2: return "float";
    case 3: return "string";
    case 4: return "symbol";
    case 5: return "list";
    default:
      if (v.propListPtr()->date) return "date";
      return v.propListPtr()->scriptName.empty() ? "propList" : "instance";
  }
}

std::string describeValue(const Value& v) {
  try {
    return literalText(v, 80);
  } catch (const ScriptError&) {
    return std::string("a ") + ilkName(v);
  }
}

// ---- Dates ----------------------------------------------------------------------------------
// Days from and to the proleptic Gregorian calendar (H. Hinnant's civil-day algorithms).

namespace {

int64_t daysFromCivil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  int64_t era = (y >= 0 ? y : y - 399) / 400;
  int64_t yoe = y - era * 400;
  int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

int64_t intProp(const PropList& p, const char* name) {
  for (const auto& kv : p.items) {
    if (kv.first.isSymbol() && equalNoCase(kv.first.sym().name, name)) {
      if (kv.second.isInteger()) return kv.second.integer();
      if (kv.second.isFloat() && std::isfinite(kv.second.real()))
        return static_cast<int64_t>(std::clamp(kv.second.real(), -1e7, 1e7));
    }
  }
  return 1;
}

}  // namespace

bool isDate(const Value& v) { return v.isPropList() && v.propListPtr()->date; }

int64_t daysOf(const Value& date) {
  const PropList& p = *date.propListPtr();
  // Months beyond 1-12 carry into years, days beyond the month into the next ones.
  int64_t y = std::clamp<int64_t>(intProp(p, "year"), -1000000, 1000000);
  int64_t m = std::clamp<int64_t>(intProp(p, "month"), -12000000, 12000000) - 1;
  int64_t d = std::clamp<int64_t>(intProp(p, "day"), -400000000, 400000000);
  y += m >= 0 ? m / 12 : (m - 11) / 12;
  m = ((m % 12) + 12) % 12 + 1;
  return daysFromCivil(y, m, 1) + d - 1;
}

Value makeDate(int64_t days) {
  days = std::clamp<int64_t>(days, -365000000, 365000000);
  int64_t z = days + 719468;
  int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  int64_t doe = z - era * 146097;
  int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  int64_t mp = (5 * doy + 2) / 153;
  int64_t d = doy - (153 * mp + 2) / 5 + 1;
  int64_t m = mp < 10 ? mp + 3 : mp - 9;
  int64_t y = yoe + era * 400 + (m <= 2);
  return makeDate(static_cast<int32_t>(y), static_cast<int32_t>(m), static_cast<int32_t>(d));
}

Value makeDate(int32_t year, int32_t month, int32_t day) {
  Value v = Value::propList({{Value::symbol("year"), Value(year)},
                             {Value::symbol("month"), Value(month)},
                             {Value::symbol("day"), Value(day)}});
  v.propListPtr()->date = true;
  return v;
}

}  // namespace tessel::lingo
