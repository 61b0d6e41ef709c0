-- The message window's arithmetic, strings and put format, with no Xtra involved.
put length("héllo"), chars("héllo", 2, 3), offset("LL", "héllo"), "héllo"[2]
put numToChar(233) & charToNum("a"), charToNum("€"), numToChar(8364) = "€", "ÉTÉ" = "été"
put value("6 * 7"), value("not a [valid")
put the platform
put the last char of the moviePath, the moviePath contains "scripts"
put the last char of the applicationPath
put the maxInteger, the floatPrecision
-- The clocks: the ticks run at 60 a second beside the milliseconds; startTimer sets the timer to 0.
startTimer
m0 = the milliseconds
t0 = the ticks
repeat while the milliseconds - m0 < 300
  n = m0
end repeat
put the ticks - t0 >= 15 and the ticks - t0 < 180, the timer >= 15
startTimer
put the timer < 15, the environment.platform = the platform, the environment.runMode
-- The date and the systemDate read the same clock (the formats: tests/lingo, on a fixed clock).
d = the systemDate
the itemDelimiter = "/"
put integer(item 1 of the date) = d.month and integer(item 2 of the date) = d.day and integer(item 3 of the date) = d.year
the itemDelimiter = ","

-- Operators: precedence and associativity.
put 1 + 2 * 3
put (1 + 2) * 3
put 2 - 3 - 4
put 100 / 10 / 5
put -2 * 3, - (2 + 3)
put 2 + 3 mod 2
put "x" & 1 + 2
put 1 + 1 = 2 and 2 < 1 or 3 > 2
put not 0 and 1, not 1 = 0
put 1 < 2 = 1

-- Integer and float arithmetic; 32-bit integers wrap.
put 7 / 2, -7 / 2, 7.0 / 2, 7 / 2.0
put 7 mod 3, -7 mod 3, 7.6 mod 3
put 2147483647 + 1, -2147483647 - 2
put 65536 * 65536
put 0.1 + 0.2, 1.0, -0.5 * 3
put 1 + 1.5, 3000000000
put "3" + 4, "2.5" * 2, VOID + 1
put [1, 2] * 2, [1, 2, 3] + [10, 20]

-- Division binds tighter than the minus of a negative literal.
put -2147483647 - 1 / -1
put (-2147483647 - 1) / -1

-- Comparison ignores case; concatenation converts.
put "abc" = "ABC", "abc" <> "ABC", "a" < "B", "b" > "A"
put "abc" < "abcd", "Zeta" >= "alpha"
put "3" = 3, "3.0" = 3, "10" > 9, "x" = 3
put #abc = #ABC, #abc = "Abc", VOID = 0, VOID = VOID
put [1, "a"] = [1, "A"], [1, 2] = [2, 1], [#a: 1] = [#A: 1]
put "Hello World" contains "WORLD", "Hello" contains ""
put "Hello" starts "hE", "Hello" starts "lo"
put "a" & "b", "a" && "b", 1 & 2, 1.5 & "", #sym & "", VOID & "v"
put "list: " & [1, "two", #three]

-- What put shows for every kind.
put -12, 3.14159265, 2.0, "text", EMPTY, #sym, VOID, TRUE, FALSE
put [1, "a", #b, 1.5, [2.25]], [], [#name: "x", 3: [:]], [:]
put QUOTE & "q" & QUOTE
put "a" & RETURN & "b"
put TAB & SPACE

-- Conversions and type tests.
put string(12), string(1.5), string(#abc), string(VOID), string("s")
put integer("12"), integer(2.5), integer(-2.5), integer(" 7 "), integer("x")
put integer(1.0e12), float(3), float("2.5"), float("x")
put symbol("Name"), symbol(#a), symbol("")
put ilk(1), ilk(1.0), ilk(""), ilk(#a), ilk([]), ilk([:]), ilk(VOID)
put ilk([:], #list), ilk(1, #number), ilk(1, #string)
put voidP(VOID), voidP(0), listP([:]), listP("[]"), stringP(""), integerP(1.0)
put floatP(1.0), symbolP(#s)
put abs(-3), abs(-2.5), min(3, 1, 2), max([4, 9, 2]), min([]), max("b", "A")

-- Text functions.
put length("hello"), length(""), length(123)
put chars("hello", 2, 4), chars("hello", 0, 2), chars("hello", 4, 99)
put chars("hello", 3, 2)
put offset("LL", "hello"), offset("z", "hello"), offset("", "hello")
put numToChar(65), charToNum("A"), charToNum(""), numToChar(0)
