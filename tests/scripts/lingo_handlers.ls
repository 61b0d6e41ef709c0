-- Handlers may come after the code that calls them; top-level code runs in order.
put factorial(10)
put describe(0), describe(5), describe("x")

global hits
hits = 0
countUp 3
put hits

repeat with i = 1 to 10
  if i mod 2 = 0 then next repeat
  if i > 7 then exit repeat
  put i
end repeat

repeat with i = 3 down to 1
  put "down" && i
end repeat

n = 0
repeat while n < 100
  n = n + 37
end repeat
put n

put value("factorial(5) + 1")
put classify(2), classify(7), classify("a")

on factorial n
  if n <= 1 then return 1
  return n * factorial(n - 1)
end factorial

on describe v
  if integerP(v) then
    if v = 0 then
      return "zero"
    else
      return "number" && v
    end if
  else
    return "something else"
  end if
end

on countUp times
  global hits
  repeat with i = 1 to times
    hits = hits + 1
  end repeat
end

on classify v
  case v of
    1, 2: return "small"
    "a": return "letter"
    otherwise
      return "other"
  end case
end
