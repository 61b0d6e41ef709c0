-- Handlers may come after the code that calls them; top-level code runs in order.
-- Repeat forms.
repeat with i = 1 to 3
  put i
end repeat
repeat with i = 3 down to 1
  put i
end repeat
repeat with i = 5 to 1
  put "never"
end repeat
put i
n = 0
repeat while n < 3
  n = n + 1
end repeat
put n
repeat with x in ["a", #b]
  put x
end repeat
repeat with v in [#p: 1, #q: 2]
  put v
end repeat
repeat with i = 1 to 10
  if i mod 2 = 0 then next repeat
  if i > 6 then exit repeat
  put i
end repeat
repeat with i = 1 to 3
  repeat with j = 1 to 3
    if j = 2 then exit repeat
    put i * 10 + j
  end repeat
end repeat
repeat with i = 1 to 10
  i = i + 4
  put i
end repeat
l = [1, 2]
repeat with x in l
  if x < 3 then append(l, x + 2)
end repeat
put l

-- If forms.
x = 2
if x = 1 then put "one" else put "not one"
if x = 2 then put "two"
if x = 3 then put "three"
else put "else on the next line"
if x = 1 then
  put "a"
else if x = 2 then
  put "b"
  put "b2"
else
  put "c"
end if
if x > 0 then
  if x = 5 then put "five"
else
  put "outer else"
end if
if x < 0 then
  put "neg"
else put "inline else"
end if
if VOID then put "void is true"
if "1" then put "numeric strings count"

-- Case statements.
on kind v
  case v of
    1: return "one"
    2, 3:
      r = "two or three"
      return r
    "A": return "letter"
    otherwise
      return "other"
  end case
end
put kind(1), kind(3), kind("a"), kind(9)
case 5 of
  1: put "no"
end case
put "after"

-- Recursion.
put fib(15)
on fib n
  if n < 2 then return n
  return fib(n - 1) + fib(n - 2)
end fib

-- Globals and locals.
counter = 10
on bump
  global counter
  counter = counter + 1
  return counter
end
on shadow
  counter = 100
  return counter
end
put bump(), bump()
put shadow(), counter
on setG
  global fresh
  fresh = "set in a handler"
end
setG
put fresh

-- Arguments and results.
on args a, b, c
  return [a, b, c]
end
put args(1), args(1, 2, 3, 4)
on noReturn
  x = 1
end
put noReturn()
on early x
  if x then exit
  return "late"
end
put early(1), early(0)

-- Parentheses around the parameters.
on f(a, b)
  return a - b
end
put f(5, 2)

-- Command form, and a bare handler name read as a value.
on show a, b
  put a & "/" & b
end
show 1, 2
show (1 + 1), 3
on answer
  return 42
end
put answer
put answer + 1

-- Dot syntax, set and put into.
l = [3, 1, 2]
put l.count, "abc".length, l.ilk
l.sort()
l.append(4)
put l, l.getAt(2)
set x = 5
set y to x * 2
put x, y
put 1 into z
put "b" after z
put "a" before z
put z
put 9 into l[1]
put l
