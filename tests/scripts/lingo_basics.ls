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
put length("héllo"), chars("héllo", 2, 3), offset("LL", "héllo"), "héllo"[2]
put numToChar(233) & charToNum("a"), charToNum("€"), numToChar(8364) = "€", "ÉTÉ" = "été"
put ilk(1), ilk(1.5), ilk("s"), ilk(#s), ilk([]), ilk([:]), ilk(VOID)
put abs(-4), min(3, 1, 2), max([4, 9, 2])
put value("6 * 7"), value("not a [valid")
put "line one" & RETURN & "line two"
put the platform
put the last char of the moviePath, the moviePath contains "scripts"
put the last char of the applicationPath
put the maxInteger, the floatPrecision, the ticks > 0 and the milliseconds > 0
startTimer
put the timer < 60, the environment.platform = the platform, the environment.runMode
-- The date and time properties agree with one another and with the systemDate.
d = the systemDate
the itemDelimiter = "/"
put integer(item 1 of the date) = d.month and integer(item 2 of the date) = d.day and integer(item 3 of the date) = d.year
the itemDelimiter = ":"
put the number of items in the time, the number of items in the long time, "AM PM" contains the last word of the time
the itemDelimiter = ","
put the long date contains string(d.year), the number of words in the long date, word 1 of the abbr date = chars(the long date, 1, 3) & ","
on answer
  return 42
end
answer
put the result
