// The language where a script file cannot show it: errors and where they are reported, limits,
// the session's properties against a fixed clock, and the source text's own forms.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>

#include "tests/lingo/lingo_test_util.h"

namespace tessel::lingo {
namespace {

using testing::run;
using testing::runIn;

TEST(LingoFormat, AListThatHoldsItselfPrintsToAFixedDepth) {
  std::string out = run("x = [1]\nappend(x, x)\nput x\n");
  EXPECT_EQ(out.rfind("-- [1, [1, [1, ", 0), 0u);
  EXPECT_NE(out.find("[...]"), std::string::npos);
}

// Each row: a script and what it prints. Parse errors run nothing and name the line of the
// error; run-time errors stop the run at the statement that failed, inside handlers too. (What
// runs without error is in the Lingo scripts of tests/scripts.)
TEST(LingoErrors, ReportedWithTheirLine) {
  const std::pair<std::string, std::string> rows[] = {
      {"put 1.5 / 0", "error: 1: Division by zero\n"},
      {"put 5 mod 0", "error: 1: Division by zero\n"},
      {"put \"abc\" + 1", "error: 1: Number expected, found \"abc\"\n"},
      {"put #a + 1", "error: 1: Number expected, found #a\n"},
      {"put [1] < [2]", "error: 1: Can't compare list with list\n"},
      {"put length([1])", "error: 1: length: string expected, found [1]\n"},
      {"put count(\"abc\")", "error: 1: count: list expected, found \"abc\"\n"},
      {"put chars(\"a\", 1)", "error: 1: Wrong number of arguments for chars\n"},
      {"l = [1, 2]\nput l[3]\n", "error: 2: Index out of range: 3 (the list has 2 items)\n"},
      {"l = [1, 2]\nput l[0]\n", "error: 2: Index out of range: 0 (the list has 2 items)\n"},
      {"l = [1]\ndeleteAt(l, 2)\n",
       "error: 2: deleteAt: index out of range: 2 (the list has 1 items)\n"},
      {"append(5, 1)", "error: 1: append: list expected, found 5\n"},
      {"x = 5\nx[1] = 2\n", "error: 2: List expected, found 5\n"},
      {"p = [#a: 1]\nput getProp(p, #b)\n", "error: 2: getProp: property not found: #b\n"},
      {"p = [#a: 1]\nsetProp(p, #b, 1)\n", "error: 2: setProp: property not found: #b\n"},
      {"addProp([1], #a, 1)", "error: 1: addProp: property list expected, found [1]\n"},
      {"repeat with x in 5\nend repeat\n",
       "error: 1: List expected in 'repeat with ... in', found 5\n"},
      {"if \"abc\" then put 1\n", "error: 1: Integer expected, found \"abc\"\n"},
      {"on f(a, b)\n  return a - b\nend\nput f(5, 2)\non 3\n",
       "error: 5: Handler name expected, found 3\n"},
      {"put 1\nput (2\n", "error: 2: ')' expected, found end of line\n"},
      {"put 1\n\nx = = 2\n", "error: 3: Value expected, found '='\n"},
      {"put \"open\n", "error: 1: Unterminated string\n"},
      {"put 1 ? 2\n", "error: 1: Unexpected '?'\n"},
      {"on f\n  put 1\n", "error: 2: 'end' expected\n"},
      {"put 1 +\n\n", "error: 1: Value expected, found end of line\n"},
      {"if 1 then\n  put 1\n", "error: 2: 'end if' expected\n"},
      {"exit repeat\n", "error: 1: 'exit repeat' outside a repeat\n"},
      {"end if\n", "error: 1: 'end' without a matching 'on', 'if', 'repeat' or 'case'\n"},
      {"on f\n  on g\n  end\nend\n", "error: 2: Handler definitions can't be nested\n"},
      {"on f\nend g\n", "error: 2: 'end f' expected\n"},
      {"1 + 2\n", "error: 1: Statement expected, found 1\n"},
      {"count([1]) = 2\n", "error: 1: Can't assign to this expression\n"},
      {"put 1\nput broken(2)\nput 3\non broken n\n  x = n * 2\n  return x + undefinedThing\nend\n",
       "-- 1\nerror: 6 in handler broken: Variable used before assigned a value: undefinedThing\n"},
      {"put 1\nnoSuchHandler(1)\n", "-- 1\nerror: 2: Handler not defined: noSuchHandler\n"},
      {"on f\n  return 1\nend\nput f() + \"x\"\n", "error: 4: Number expected, found \"x\"\n"},
      {"put the colorDepth\n", "error: 1: Unknown property: the colorDepth\n"},
      {"put xtra \"Tessel\"\n",
       "error: 1: An Xtra reference can only be given to interface(), as in interface(xtra "
       "\"Name\")\n"},
  };
  for (const auto& [script, printed] : rows) EXPECT_EQ(run(script), printed) << script;
}

TEST(LingoProperties, DatesTimesAndSessionState) {
  const char* oldTz = getenv("TZ");
  std::string saved = oldTz ? oldTz : "";
  setenv("TZ", "UTC", 1);
  tzset();
  Interpreter in;
  // Tuesday 14 November 2023, 22:13:20 UTC.
  in.environment().clock = [] { return std::chrono::system_clock::from_time_t(1700000000); };
  EXPECT_EQ(runIn(in, "put the date, the short date, the abbr date\nput the long date\n"
                      "put the time, the long time, the systemDate\n"),
            "-- \"11/14/2023\" \"11/14/2023\" \"Tue, Nov 14, 2023\"\n"
            "-- \"Tuesday, November 14, 2023\"\n"
            "-- \"10:13 PM\" \"10:13:20 PM\" date( 2023, 11, 14 )\n");
  // Dates count in days: across month, year and leap-day boundaries, and between two dates.
  EXPECT_EQ(runIn(in, "d = the systemDate + 47\nput d, d.year, ilk(d), d - the systemDate\n"
                      "put date(2024, 2, 28) + 1, date(20240301) - 1, date(2024, 13, 1)\n"
                      "put date(2024, 3, 1) > date(2024, 2, 29), date(2024, 3, 1) = date(20240301)\n"
                      "put d + [1]\n"),
            "-- date( 2023, 12, 31 ) 2023 #date 47\n"
            "-- date( 2024, 2, 29 ) date( 2024, 2, 29 ) date( 2025, 1, 1 )\n-- 1 1\n"
            "error: 5: Only days can be added to or taken from a date\n");
  if (oldTz) {
    setenv("TZ", saved.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
  // The item delimiter is one character and lasts for the session; EMPTY brings back ",".
  EXPECT_EQ(runIn(in, "set the itemDelimiter to \";;\"\nput the itemDelimiter\n"), "-- \";\"\n");
  EXPECT_EQ(runIn(in, "put item 2 of \"a;b,c\"\nthe itemDelimiter = EMPTY\nput item 2 of \"a;b,c\"\n"),
            "-- \"b,c\"\n-- \"c\"\n");
  // The floatPrecision sets the decimals of put and string(), within 0 to 15.
  EXPECT_EQ(runIn(in, "set the floatPrecision to 2\nput pi, string(1.0) & \"\", [0.126]\n"
                      "the floatPrecision = 99\nput the floatPrecision\nthe floatPrecision = 4\n"),
            "-- 3.14 \"1.00\" [0.13]\n-- 15\n");
  // The result holds what the last command returned.
  EXPECT_EQ(runIn(in, "on seven\n  return 7\nend\nseven\nx = 1\nput the result\n"), "-- 7\n");
  EXPECT_EQ(runIn(in, "the date = 1\n"), "error: 1: Can't set the date\n");
}

TEST(LingoErrors, LimitsStopRunawayScripts) {
  Interpreter in;
  Limits limits;
  limits.maxSteps = 10000;
  limits.maxTextBytes = 1 << 16;
  limits.maxListItems = 1000;
  in.setLimits(limits);
  EXPECT_EQ(runIn(in, "repeat while 1\nend repeat\n"), "error: 1: Step limit reached\n");
  EXPECT_EQ(runIn(in, "s = \"x\"\nrepeat while 1\n  s = s & s\nend repeat\n"),
            "error: 3: Text too long\n");
  EXPECT_EQ(runIn(in, "l = []\nl[5000] = 1\n"), "error: 2: List too long\n");
  // Each entry starts counting steps afresh.
  EXPECT_EQ(runIn(in, "repeat with i = 1 to 100\nend repeat\nput i\n"), "-- 101\n");

  // Unbounded recursion is a script error, not a crash.
  Interpreter deep;
  EXPECT_EQ(runIn(deep, "on down n\n  return down(n + 1)\nend\nput down(1)\n"),
            "error: 2 in handler down: Stack overflow\n");
  Limits small;
  small.maxStackBytes = 64 << 10;
  small.maxCallDepth = 100000;
  deep.setLimits(small);
  EXPECT_EQ(runIn(deep, "put down(1)\n"), "error: 2 in handler down: Stack overflow\n");
  EXPECT_EQ(runIn(deep, "put 1 + 1\n"), "-- 2\n");

  // Nesting that would need deep recursion to parse is refused.
  std::string parens(400, '(');
  EXPECT_EQ(run("put " + parens + "1"), "error: 1: Script nested too deeply\n");
  std::string chain = "put 1";
  for (int i = 0; i < 2000; ++i) chain += " + 1";
  EXPECT_EQ(run(chain), "error: 1: Expression too complex\n");
}

TEST(LingoSyntax, CommentsContinuationsAndCase) {
  EXPECT_EQ(run("-- a comment line\n"
                "PUT 1 -- trailing comment\n"
                "X = 2\n"
                "put x + \\\n"
                "  3\n"
                "put x + \xC2\xAC\n"
                "  4\n"
                "ON Twice N\n  RETURN n * 2\nEND twice\n"
                "put TWICE(x)\n"
                "put #Sym = #sym, \"--not a comment\"\n"
                "put .5, 1.5e2, 2E-1\n"
                "x = 1\r\nput x\rput x + 1\n"
                "put \"\xEF\xBB\xBF\"\n"),
            "-- 1\n-- 5\n-- 6\n-- 4\n-- 1 \"--not a comment\"\n-- 0.5000 150.0000 0.2000\n"
            "-- 1\n-- 2\n-- \"\xEF\xBB\xBF\"\n");
  // A byte order mark at the start of a file is not part of the script.
  EXPECT_EQ(run("\xEF\xBB\xBFput 1\n"), "-- 1\n");
  // Left-deep operator chains of realistic length evaluate without trouble.
  std::string sum = "put 0";
  for (int i = 0; i < 900; ++i) sum += " + 1";
  EXPECT_EQ(run(sum), "-- 900\n");
}

}  // namespace
}  // namespace tessel::lingo
