// Number reading and value comparison rules the interpreter relies on.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/lingo/error.h"
#include "host/lingo/values.h"

namespace tessel::lingo {
namespace {

TEST(LingoValues, ParseNumberAcceptsOnlyPlainDecimals) {
  Value v;
  ASSERT_TRUE(parseNumber(" 42 ", v));
  EXPECT_TRUE(v.isInteger());
  EXPECT_EQ(v.integer(), 42);
  ASSERT_TRUE(parseNumber("-2147483648", v));
  EXPECT_EQ(v.integer(), std::numeric_limits<int32_t>::min());
  ASSERT_TRUE(parseNumber("2147483648", v));  // beyond 32 bits: a float
  EXPECT_TRUE(v.isFloat());
  EXPECT_EQ(v.real(), 2147483648.0);
  ASSERT_TRUE(parseNumber("1.5e3", v));
  EXPECT_EQ(v.real(), 1500.0);
  ASSERT_TRUE(parseNumber(".25", v));
  EXPECT_EQ(v.real(), 0.25);
  ASSERT_TRUE(parseNumber("1e999", v));
  EXPECT_TRUE(std::isinf(v.real()));
  for (const char* bad : {"", " ", "abc", "1x", "0x10", "inf", "nan", "1e", "+", "-.", "1 2"}) {
    EXPECT_FALSE(parseNumber(bad, v)) << bad;
  }
}

// (Plain floats and rounding as put, integer() and comparisons show them are
// tests/scripts/lingo_basics.ls; here the ends of the ranges.)
TEST(LingoValues, FloatsPrintWithFourDecimals) {
  EXPECT_EQ(formatFloat(-0.00004), "-0.0000");
  EXPECT_EQ(formatFloat(1e20), "100000000000000000000.0000");
  EXPECT_EQ(formatFloat(std::numeric_limits<double>::infinity()), "INF");
  EXPECT_EQ(formatFloat(-std::numeric_limits<double>::infinity()), "-INF");
  EXPECT_EQ(formatFloat(std::nan("")), "NAN");
  int32_t n = 0;
  EXPECT_TRUE(roundToInt32(-2147483648.4, n));
  EXPECT_EQ(n, std::numeric_limits<int32_t>::min());
  EXPECT_FALSE(roundToInt32(2147483647.5, n));
  EXPECT_FALSE(roundToInt32(std::nan(""), n));
}

TEST(LingoValues, ComparisonRules) {
  size_t budget = 1000;
  EXPECT_TRUE(lingoEquals(Value(" 2 "), Value(int32_t{2}), budget));
  EXPECT_FALSE(lingoEquals(Value(std::nan("")), Value(std::nan("")), budget));
  EXPECT_EQ(lingoCompare(Value(std::nan("")), Value(1.0)), 2);
  EXPECT_EQ(lingoCompare(Value(), Value(int32_t{-1})), 1);
  EXPECT_THROW(lingoCompare(Value::list(), Value(int32_t{1})), ScriptError);
  // Comparing big shared structures (2^40 items when walked) is bounded.
  auto shared = [] {
    Value v = Value::list({Value(int32_t{1}), Value(int32_t{2})});
    for (int i = 0; i < 40; ++i) v = Value::list({v, v});
    return v;
  };
  Value a = shared();
  Value b = shared();
  size_t small = 10000;
  EXPECT_THROW(lingoEquals(a, b, small), ScriptError);
  Value same = a;
  small = 10;
  EXPECT_TRUE(lingoEquals(a, same, small));  // the same list: no walk at all
  // sort order is total even with NaN (mixed kinds: tests/scripts/lingo_lists.ls).
  EXPECT_TRUE(sortsBefore(Value(1.0), Value(std::nan(""))));
  EXPECT_FALSE(sortsBefore(Value(std::nan("")), Value(std::nan(""))));
  EXPECT_FALSE(samePropName(Value::symbol("a"), Value("a")));
}

}  // namespace
}  // namespace tessel::lingo
