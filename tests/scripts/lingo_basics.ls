-- The message window's arithmetic, strings and put format, with no Xtra involved.
put 1 + 2 * 3
put (1 + 2) * 3, 7 / 2, 7.0 / 2, -7 mod 3
put 2147483647 + 1
put 3.14159265, 2.0, 1 / 3.0
put "Hello" & "," && "World"
put "abc" = "ABC", "apple" < "Banana", "Hello" contains "ELL", "Hello" starts "he"
put "3" + 4, "x" & 1 + 2
put #symbol, VOID, TRUE, FALSE, EMPTY
put [1, "a", #b, 2.5]
put [], [:], [#name: "x", #count: 2]
put string(42) & "!", integer("12") + 1, integer(2.5), float(3)
put length("hello"), chars("hello", 2, 4), offset("LL", "hello")
put numToChar(65) & charToNum("a")
put ilk(1), ilk(1.5), ilk("s"), ilk(#s), ilk([]), ilk([:]), ilk(VOID)
put abs(-4), min(3, 1, 2), max([4, 9, 2])
put value("6 * 7"), value("not a [valid")
put "line one" & RETURN & "line two"
put the platform
put the moviePath
put the applicationPath
put the milliseconds > 0
