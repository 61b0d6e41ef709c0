// The language itself: operators, conversions, lists, control flow, handlers and put's format.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <chrono>

#include "tests/lingo/lingo_test_util.h"

namespace tessel::lingo {
namespace {

using testing::run;
using testing::runIn;

TEST(LingoOperators, PrecedenceAndAssociativity) {
  EXPECT_EQ(run("put 1 + 2 * 3\n"
                "put (1 + 2) * 3\n"
                "put 2 - 3 - 4\n"
                "put 100 / 10 / 5\n"
                "put -2 * 3, - (2 + 3)\n"
                "put 2 + 3 mod 2\n"
                "put \"x\" & 1 + 2\n"
                "put 1 + 1 = 2 and 2 < 1 or 3 > 2\n"
                "put not 0 and 1, not 1 = 0\n"
                "put 1 < 2 = 1\n"),
            "-- 7\n-- 9\n-- -5\n-- 2\n-- -6 -5\n-- 3\n-- \"x3\"\n-- 1\n-- 1 1\n-- 1\n");
}

TEST(LingoOperators, IntegerAndFloatArithmetic) {
  EXPECT_EQ(run("put 7 / 2, -7 / 2, 7.0 / 2, 7 / 2.0\n"
                "put 7 mod 3, -7 mod 3, 7.6 mod 3\n"
                "put 2147483647 + 1, -2147483647 - 2\n"
                "put 65536 * 65536\n"
                "put 0.1 + 0.2, 1.0, -0.5 * 3\n"
                "put 1 + 1.5, 3000000000\n"
                "put \"3\" + 4, \"2.5\" * 2, VOID + 1\n"
                "put [1, 2] * 2, [1, 2, 3] + [10, 20]\n"),
            "-- 3 -3 3.5000 3.5000\n"
            "-- 1 -1 2\n"
            "-- -2147483648 2147483647\n"
            "-- 0\n"
            "-- 0.3000 1.0000 -1.5000\n"
            "-- 2.5000 3000000000.0000\n"
            "-- 7 5.0000 1\n"
            "-- [2, 4] [11, 22]\n");
  EXPECT_EQ(run("put 1 / 0"), "error: 1: Division by zero\n");
  EXPECT_EQ(run("put 1.5 / 0"), "error: 1: Division by zero\n");
  EXPECT_EQ(run("put 5 mod 0"), "error: 1: Division by zero\n");
  EXPECT_EQ(run("put -2147483647 - 1 / -1\nput (-2147483647 - 1) / -1\n"),
            "-- -2147483646\n-- -2147483648\n");
  EXPECT_EQ(run("put \"abc\" + 1"), "error: 1: Number expected, found \"abc\"\n");
  EXPECT_EQ(run("put #a + 1"), "error: 1: Number expected, found #a\n");
}

TEST(LingoOperators, StringsCompareIgnoringCase) {
  EXPECT_EQ(run("put \"abc\" = \"ABC\", \"abc\" <> \"ABC\", \"a\" < \"B\", \"b\" > \"A\"\n"
                "put \"abc\" < \"abcd\", \"Zeta\" >= \"alpha\"\n"
                "put \"3\" = 3, \"3.0\" = 3, \"10\" > 9, \"x\" = 3\n"
                "put #abc = #ABC, #abc = \"Abc\", VOID = 0, VOID = VOID\n"
                "put [1, \"a\"] = [1, \"A\"], [1, 2] = [2, 1], [#a: 1] = [#A: 1]\n"
                "put \"Hello World\" contains \"WORLD\", \"Hello\" contains \"\"\n"
                "put \"Hello\" starts \"hE\", \"Hello\" starts \"lo\"\n"
                "put \"a\" & \"b\", \"a\" && \"b\", 1 & 2, 1.5 & \"\", #sym & \"\", VOID & \"v\"\n"
                "put \"list: \" & [1, \"two\", #three]\n"),
            "-- 1 0 1 1\n"
            "-- 1 1\n"
            "-- 1 1 1 0\n"
            "-- 1 1 0 1\n"
            "-- 1 0 1\n"
            "-- 1 1\n"
            "-- 1 0\n"
            "-- \"ab\" \"a b\" \"12\" \"1.5000\" \"sym\" \"v\"\n"
            "-- \"list: [1, \"two\", #three]\"\n");
  EXPECT_EQ(run("put [1] < [2]"), "error: 1: Can't compare list with list\n");
}

TEST(LingoFormat, PutShowsEveryKind) {
  EXPECT_EQ(run("put 5\nput -12\nput 3.14159265\nput 2.0\nput \"text\"\nput EMPTY\n"
                "put #sym\nput [1, \"a\", #b, 1.5, [2.25]]\nput []\nput [#name: \"x\", 3: [:]]\n"
                "put [:]\nput VOID\nput TRUE, FALSE\nput QUOTE & \"q\" & QUOTE\n"
                "put \"a\" & RETURN & \"b\"\nput TAB & SPACE\nput PI\n"),
            "-- 5\n-- -12\n-- 3.1416\n-- 2.0000\n-- \"text\"\n-- \"\"\n"
            "-- #sym\n-- [1, \"a\", #b, 1.5000, [2.2500]]\n-- []\n-- [#name: \"x\", 3: [:]]\n"
            "-- [:]\n-- <Void>\n-- 1 0\n-- \"\"q\"\"\n"
            "-- \"a\nb\"\n-- \"\t \"\n-- 3.1416\n");
  // A list that holds itself prints to a fixed depth instead of forever.
  std::string out = run("x = [1]\nappend(x, x)\nput x\n");
  EXPECT_EQ(out.rfind("-- [1, [1, [1, ", 0), 0u);
  EXPECT_NE(out.find("[...]"), std::string::npos);
}

TEST(LingoConversions, BuiltInFunctions) {
  EXPECT_EQ(run("put string(12), string(1.5), string(#abc), string(VOID), string(\"s\")\n"
                "put integer(\"12\"), integer(2.5), integer(-2.5), integer(\" 7 \"), integer(\"x\")\n"
                "put integer(1.0e12), float(3), float(\"2.5\"), float(\"x\")\n"
                "put symbol(\"Name\"), symbol(#a), symbol(\"\")\n"
                "put ilk(1), ilk(1.0), ilk(\"\"), ilk(#a), ilk([]), ilk([:]), ilk(VOID)\n"
                "put ilk([:], #list), ilk(1, #number), ilk(1, #string)\n"
                "put voidP(VOID), voidP(0), listP([:]), listP(\"[]\"), stringP(\"\"), integerP(1.0)\n"
                "put floatP(1.0), symbolP(#s)\n"
                "put abs(-3), abs(-2.5), min(3, 1, 2), max([4, 9, 2]), min([]), max(\"b\", \"A\")\n"),
            "-- \"12\" \"1.5000\" \"abc\" \"\" \"s\"\n"
            "-- 12 3 -3 7 <Void>\n"
            "-- <Void> 3.0000 2.5000 <Void>\n"
            "-- #Name #a <Void>\n"
            "-- #integer #float #string #symbol #list #propList #void\n"
            "-- 1 1 0\n"
            "-- 1 0 1 0 1 0\n"
            "-- 1 1\n"
            "-- 3 2.5000 1 9 <Void> \"b\"\n");
  EXPECT_EQ(run("put length(\"hello\"), length(\"\"), length(123)\n"
                "put chars(\"hello\", 2, 4), chars(\"hello\", 0, 2), chars(\"hello\", 4, 99)\n"
                "put chars(\"hello\", 3, 2)\n"
                "put offset(\"LL\", \"hello\"), offset(\"z\", \"hello\"), offset(\"\", \"hello\")\n"
                "put numToChar(65), charToNum(\"A\"), charToNum(\"\"), numToChar(0)\n"
                "put charToNum(numToChar(233)), length(numToChar(233)), charToNum(numToChar(8364))\n"
                "put \"abc\"[2]\n"),
            "-- 5 0 3\n"
            "-- \"ell\" \"he\" \"lo\"\n"
            "-- \"\"\n"
            "-- 3 0 0\n"
            "-- \"A\" 65 0 \"\"\n"
            "-- 233 1 8364\n"
            "-- \"b\"\n");
  EXPECT_EQ(run("put length([1])"), "error: 1: length: string expected, found [1]\n");
  EXPECT_EQ(run("put count(\"abc\")"), "error: 1: count: list expected, found \"abc\"\n");
  EXPECT_EQ(run("put chars(\"a\", 1)"), "error: 1: Wrong number of arguments for chars\n");
}

TEST(LingoLists, SharedByReference) {
  EXPECT_EQ(run("a = [1, 2]\n"
                "b = a\n"
                "append(b, 3)\n"
                "b[1] = 10\n"
                "put a\n"
                "c = duplicate(a)\n"
                "append(c, 4)\n"
                "put a, c\n"
                "nested = [[1], [2]]\n"
                "copy = duplicate(nested)\n"
                "append(copy[1], 9)\n"
                "put nested, copy\n"
                "on addItem l, v\n"
                "  append l, v\n"
                "end\n"
                "addItem(a, 99)\n"
                "put a\n"
                "repeat with i = 1 to 2\n"
                "  fresh = []\n"
                "  append(fresh, i)\n"
                "  put fresh\n"
                "end repeat\n"),
            "-- [10, 2, 3]\n"
            "-- [10, 2, 3] [10, 2, 3, 4]\n"
            "-- [[1], [2]] [[1, 9], [2]]\n"
            "-- [10, 2, 3, 99]\n"
            "-- [1]\n-- [2]\n");
}

TEST(LingoLists, LinearListFunctions) {
  EXPECT_EQ(run("l = [\"b\", \"a\", \"c\"]\n"
                "put count(l), getAt(l, 2), l[3], getLast(l), getLast([])\n"
                "setAt(l, 2, \"z\")\n"
                "add(l, \"d\")\n"
                "addAt(l, 1, \"first\")\n"
                "put l\n"
                "deleteAt(l, 1)\n"
                "put getPos(l, \"Z\"), getPos(l, \"q\"), getOne(l, \"c\")\n"
                "deleteOne(l, \"c\")\n"
                "sort(l)\n"
                "put l\n"
                "l[6] = 1\n"
                "put l\n"
                "put list(1, \"two\"), list()\n"
                "mixed = [3, \"b\", 1.5, #a, \"A\", VOID]\n"
                "sort mixed\n"
                "put mixed\n"),
            "-- 3 \"a\" \"c\" \"c\" <Void>\n"
            "-- [\"first\", \"b\", \"z\", \"c\", \"d\"]\n"
            "-- 2 0 3\n"
            "-- [\"b\", \"d\", \"z\"]\n"
            "-- [\"b\", \"d\", \"z\", 0, 0, 1]\n"
            "-- [1, \"two\"] []\n"
            "-- [<Void>, 1.5000, 3, \"A\", \"b\", #a]\n");
  EXPECT_EQ(run("l = [1, 2]\nput l[3]\n"), "error: 2: Index out of range: 3 (the list has 2 items)\n");
  EXPECT_EQ(run("l = [1, 2]\nput l[0]\n"), "error: 2: Index out of range: 0 (the list has 2 items)\n");
  EXPECT_EQ(run("l = [1]\ndeleteAt(l, 2)\n"),
            "error: 2: deleteAt: index out of range: 2 (the list has 1 items)\n");
  EXPECT_EQ(run("append(5, 1)"), "error: 1: append: list expected, found 5\n");
  EXPECT_EQ(run("x = 5\nx[1] = 2\n"), "error: 2: List expected, found 5\n");
}

TEST(LingoLists, PropertyLists) {
  EXPECT_EQ(run("p = [#name: \"x\", #size: 3]\n"
                "put p[#name], p[#NAME], p[2], p.size, p.count, p[#missing]\n"
                "put getProp(p, #size), getaProp(p, #nothing), getPropAt(p, 1), findPos(p, #size)\n"
                "addProp(p, #tag, 1)\n"
                "setaProp(p, #size, 4)\n"
                "setaProp(p, #new, \"n\")\n"
                "setProp(p, #tag, 2)\n"
                "p[#more] = 5\n"
                "p.name = \"y\"\n"
                "put p\n"
                "deleteProp(p, #new)\n"
                "deleteAt(p, 1)\n"
                "put p, count(p)\n"
                "e = [:]\n"
                "e[\"key\"] = 1\n"
                "setaProp(e, 7, 2)\n"
                "put e, e[\"KEY\"]\n"
                "q = [#b: 2, #a: 1, #c: 3]\n"
                "sort(q)\n"
                "put q, getOne(q, 3), getPos(q, 2)\n"
                "put [#a: 1] + 1\n"),
            "-- \"x\" \"x\" 3 3 2 <Void>\n"
            "-- 3 <Void> #name 2\n"
            "-- [#name: \"y\", #size: 4, #tag: 2, #new: \"n\", #more: 5]\n"
            "-- [#size: 4, #tag: 2, #more: 5] 3\n"
            "-- [\"key\": 1, 7: 2] <Void>\n"
            "-- [#a: 1, #b: 2, #c: 3] #c 2\n"
            "-- [#a: 2]\n");
  EXPECT_EQ(run("p = [#a: 1]\nput getProp(p, #b)\n"), "error: 2: getProp: property not found: #b\n");
  EXPECT_EQ(run("p = [#a: 1]\nsetProp(p, #b, 1)\n"), "error: 2: setProp: property not found: #b\n");
  EXPECT_EQ(run("addProp([1], #a, 1)"), "error: 1: addProp: property list expected, found [1]\n");
}

TEST(LingoControl, RepeatForms) {
  EXPECT_EQ(run("repeat with i = 1 to 3\n  put i\nend repeat\n"
                "repeat with i = 3 down to 1\n  put i\nend repeat\n"
                "repeat with i = 5 to 1\n  put \"never\"\nend repeat\n"
                "put i\n"
                "n = 0\n"
                "repeat while n < 3\n  n = n + 1\nend repeat\n"
                "put n\n"
                "repeat with x in [\"a\", #b]\n  put x\nend repeat\n"
                "repeat with v in [#p: 1, #q: 2]\n  put v\nend repeat\n"
                "repeat with i = 1 to 10\n"
                "  if i mod 2 = 0 then next repeat\n"
                "  if i > 6 then exit repeat\n"
                "  put i\n"
                "end repeat\n"
                "repeat with i = 1 to 3\n"
                "  repeat with j = 1 to 3\n"
                "    if j = 2 then exit repeat\n"
                "    put i * 10 + j\n"
                "  end repeat\n"
                "end repeat\n"
                "repeat with i = 1 to 10\n  i = i + 4\n  put i\nend repeat\n"
                "l = [1, 2]\n"
                "repeat with x in l\n  if x < 3 then append(l, x + 2)\nend repeat\n"
                "put l\n"),
            "-- 1\n-- 2\n-- 3\n-- 3\n-- 2\n-- 1\n-- 5\n-- 3\n-- \"a\"\n-- #b\n-- 1\n-- 2\n"
            "-- 1\n-- 3\n-- 5\n-- 11\n-- 21\n-- 31\n-- 5\n-- 10\n-- [1, 2, 3, 4]\n");
  EXPECT_EQ(run("repeat with x in 5\nend repeat\n"),
            "error: 1: List expected in 'repeat with ... in', found 5\n");
}

TEST(LingoControl, IfForms) {
  EXPECT_EQ(run("x = 2\n"
                "if x = 1 then put \"one\" else put \"not one\"\n"
                "if x = 2 then put \"two\"\n"
                "if x = 3 then put \"three\"\n"
                "else put \"else on the next line\"\n"
                "if x = 1 then\n"
                "  put \"a\"\n"
                "else if x = 2 then\n"
                "  put \"b\"\n"
                "  put \"b2\"\n"
                "else\n"
                "  put \"c\"\n"
                "end if\n"
                "if x > 0 then\n"
                "  if x = 5 then put \"five\"\n"
                "else\n"
                "  put \"outer else\"\n"
                "end if\n"
                "if x < 0 then\n  put \"neg\"\nelse put \"inline else\"\nend if\n"
                "if VOID then put \"void is true\"\n"
                "if \"1\" then put \"numeric strings count\"\n"),
            "-- \"not one\"\n-- \"two\"\n-- \"else on the next line\"\n-- \"b\"\n-- \"b2\"\n"
            "-- \"inline else\"\n-- \"numeric strings count\"\n");
  EXPECT_EQ(run("if \"abc\" then put 1\n"), "error: 1: Integer expected, found \"abc\"\n");
}

TEST(LingoControl, CaseStatement) {
  EXPECT_EQ(run("on kind v\n"
                "  case v of\n"
                "    1: return \"one\"\n"
                "    2, 3:\n"
                "      r = \"two or three\"\n"
                "      return r\n"
                "    \"A\": return \"letter\"\n"
                "    otherwise\n"
                "      return \"other\"\n"
                "  end case\n"
                "end\n"
                "put kind(1), kind(3), kind(\"a\"), kind(9)\n"
                "case 5 of\n  1: put \"no\"\nend case\n"
                "put \"after\"\n"),
            "-- \"one\" \"two or three\" \"letter\" \"other\"\n-- \"after\"\n");
}

TEST(LingoHandlers, RecursionLocalsAndGlobals) {
  EXPECT_EQ(run("put fib(15)\n"
                "on fib n\n"
                "  if n < 2 then return n\n"
                "  return fib(n - 1) + fib(n - 2)\n"
                "end fib\n"),
            "-- 610\n");
  EXPECT_EQ(run("counter = 10\n"
                "on bump\n"
                "  global counter\n"
                "  counter = counter + 1\n"
                "  return counter\n"
                "end\n"
                "on shadow\n"
                "  counter = 100\n"
                "  return counter\n"
                "end\n"
                "put bump(), bump()\n"
                "put shadow(), counter\n"
                "on setG\n  global fresh\n  fresh = \"set in a handler\"\nend\n"
                "setG\n"
                "put fresh\n"),
            "-- 11 12\n-- 100 12\n-- \"set in a handler\"\n");
  EXPECT_EQ(run("on args a, b, c\n  return [a, b, c]\nend\n"
                "put args(1), args(1, 2, 3, 4)\n"
                "on noReturn\n  x = 1\nend\n"
                "put noReturn()\n"
                "on early x\n  if x then exit\n  return \"late\"\nend\n"
                "put early(1), early(0)\n"),
            "-- [1, <Void>, <Void>] [1, 2, 3]\n-- <Void>\n-- <Void> \"late\"\n");
  EXPECT_EQ(run("on f(a, b)\n  return a - b\nend\nput f(5, 2)\non 3\n"),
            "error: 5: Handler name expected, found 3\n");
  EXPECT_EQ(run("on f(a, b)\n  return a - b\nend\nput f(5, 2)\n"), "-- 3\n");
  // Command form, and a bare handler name read as a value.
  EXPECT_EQ(run("on show a, b\n  put a & \"/\" & b\nend\n"
                "show 1, 2\n"
                "show (1 + 1), 3\n"
                "on answer\n  return 42\nend\n"
                "put answer\n"
                "put answer + 1\n"),
            "-- \"1/2\"\n-- \"2/3\"\n-- 42\n-- 43\n");
}

TEST(LingoHandlers, DotSyntaxAndSet) {
  EXPECT_EQ(run("l = [3, 1, 2]\n"
                "put l.count, \"abc\".length, l.ilk\n"
                "l.sort()\n"
                "l.append(4)\n"
                "put l, l.getAt(2)\n"
                "set x = 5\n"
                "set y to x * 2\n"
                "put x, y\n"
                "put 1 into z\n"
                "put \"b\" after z\n"
                "put \"a\" before z\n"
                "put z\n"
                "put 9 into l[1]\n"
                "put l\n"),
            "-- 3 3 #list\n-- [1, 2, 3, 4] 2\n-- 5 10\n-- \"a1b\"\n-- [9, 2, 3, 4]\n");
}

TEST(LingoErrors, ReportedWithTheirLine) {
  // Parse errors: nothing runs, the line of the error is given.
  EXPECT_EQ(run("put 1\nput (2\n"), "error: 2: ')' expected, found end of line\n");
  EXPECT_EQ(run("put 1\n\nx = = 2\n"), "error: 3: Value expected, found '='\n");
  EXPECT_EQ(run("put \"open\n"), "error: 1: Unterminated string\n");
  EXPECT_EQ(run("put 1 ? 2\n"), "error: 1: Unexpected '?'\n");
  EXPECT_EQ(run("on f\n  put 1\n"), "error: 2: 'end' expected\n");
  EXPECT_EQ(run("put 1 +\n\n"), "error: 1: Value expected, found end of line\n");
  EXPECT_EQ(run("if 1 then\n  put 1\n"), "error: 2: 'end if' expected\n");
  EXPECT_EQ(run("exit repeat\n"), "error: 1: 'exit repeat' outside a repeat\n");
  EXPECT_EQ(run("end if\n"),
            "error: 1: 'end' without a matching 'on', 'if', 'repeat' or 'case'\n");
  EXPECT_EQ(run("on f\n  on g\n  end\nend\n"), "error: 2: Handler definitions can't be nested\n");
  EXPECT_EQ(run("on f\nend g\n"), "error: 2: 'end f' expected\n");
  EXPECT_EQ(run("1 + 2\n"), "error: 1: Statement expected, found 1\n");
  EXPECT_EQ(run("count([1]) = 2\n"), "error: 1: Can't assign to this expression\n");
  // Run-time errors stop the run at the statement that failed, inside handlers too.
  EXPECT_EQ(run("put 1\n"
                "put broken(2)\n"
                "put 3\n"
                "on broken n\n"
                "  x = n * 2\n"
                "  return x + undefinedThing\n"
                "end\n"),
            "-- 1\nerror: 6 in handler broken: Variable used before assigned a value: undefinedThing\n");
  EXPECT_EQ(run("put 1\nnoSuchHandler(1)\n"), "-- 1\nerror: 2: Handler not defined: noSuchHandler\n");
  EXPECT_EQ(run("on f\n  return 1\nend\nput f() + \"x\"\n"),
            "error: 4: Number expected, found \"x\"\n");
  EXPECT_EQ(run("put the colorDepth\n"), "error: 1: Unknown property: the colorDepth\n");
  EXPECT_EQ(run("put xtra \"Tessel\"\n"),
            "error: 1: An Xtra reference can only be given to interface(), as in interface(xtra "
            "\"Name\")\n");
}

TEST(LingoErrors, NameTheScriptAndHandlerAndHandlersSurvive) {
  Interpreter in;
  in.setOutput([](const std::string&) {});
  Outcome o = in.run("on readSettings\n  return 1 / 0\nend\nput readSettings()\n", 10, "kiosk.ls");
  EXPECT_EQ(o.errorText(), "kiosk.ls:11 in handler readSettings: Division by zero");
  // A handler keeps the name of the script that defined it, wherever it is called from.
  o = in.run("put 1\nreadSettings()\n", 1, "-e 2");
  EXPECT_EQ(o.errorText(), "kiosk.ls:11 in handler readSettings: Division by zero");
  EXPECT_EQ(in.run("put 1\nput 1 / 0\n", 1, "-e 3").errorText(), "-e 3:2: Division by zero");
  EXPECT_EQ(in.run("put (1\n", 1, "-e 4").errorText(), "-e 4:1: ')' expected, found end of line");
  EXPECT_TRUE(in.hasHandler("readSettings"));
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
