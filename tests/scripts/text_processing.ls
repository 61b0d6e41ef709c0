-- Text handling as kiosk scripts do it: splitting, counting, rewriting and joining text with
-- chunk expressions.

on trim s
  repeat while char 1 of s = " "
    delete char 1 of s
  end repeat
  repeat while the last char of s = " "
    delete the last char of s
  end repeat
  return s
end

on replaceAll s, old, new
  out = ""
  repeat while offset(old, s) > 0
    at = offset(old, s)
    put chars(s, 1, at - 1) & new after out
    delete char 1 to at + length(old) - 1 of s
  end repeat
  return out & s
end

on capitalize s
  repeat with i = 1 to the number of words in s
    w = word i of s
    put numToChar(charToNum(char 1 of w) - 32) into char 1 of w
    put w into word i of s
  end repeat
  return s
end

on reverseWords s
  out = ""
  repeat with i = the number of words in s down to 1
    if out <> "" then put " " after out
    put word i of s after out
  end repeat
  return out
end

-- A report of visitors, one per line: name, room, minutes.
report = "Ada,Hall A,12" & RETURN & "Brian,Hall B,5" & RETURN & "Chen,Hall A,30"
put the number of lines in report
put line 2 of report
put item 1 of line 3 of report, item 2 of line 1 of report
total = 0
repeat with i = 1 to the number of lines in report
  total = total + integer(item 3 of line i of report)
end repeat
put total
put the last item of the last line of report

-- Words: runs of spaces, tabs and line ends separate them.
s = "  the quick" & TAB & "brown   fox  "
put the number of words in s, word 2 of s, word 3 of s
put word 2 to 3 of s
put trim(s)
put reverseWords("one two three")
put capitalize("hello kiosk world")
put replaceAll("a-b-c-d", "-", " / ")

-- Writing into chunks.
t = "red,green,blue"
put "yellow" into item 2 of t
put t
put "dark " before item 3 of t
put t
put "!" after t
put t
delete item 1 of t
put t
-- Past the end: items pad with delimiters, chars with spaces, lines with line ends.
u = "a"
put "e" into item 5 of u
put u
v = "ab"
put "x" into char 5 of v
put v
w = "first"
put "third" into line 3 of w
put the number of lines in w, line 2 of w = EMPTY, line 3 of w

-- Out of range reads are EMPTY.
put char 9 of "abc" = EMPTY, word 4 of "a b" = EMPTY, item 3 of "x,y" = EMPTY

-- Another item delimiter, for paths.
path = "/home/kiosk/media/clip.mov"
the itemDelimiter = "/"
put the number of items in path, the last item of path, item 2 to 3 of path
delete the last item of path
put path
the itemDelimiter = ","
put the itemDelimiter

-- Line ends from a Linux file: LF and CR LF end lines too.
lf = "one" & numToChar(10) & "two" & numToChar(13) & numToChar(10) & "three"
put the number of lines in lf, line 2 of lf, line 3 of lf

-- Dot forms.
put "Hello world".word[2], "abcdef".char[2..4], "a,b,c".item.count, "abc".length

-- Chunks nest, for reading and for writing.
s = "ab cd,ef gh" & RETURN & "x y,z"
put char 2 of word 2 of item 1 of line 1 of s
put "Q" into char 1 of word 2 of item 2 of line 2 of s
put s
put "!" after the last word of line 1 of s
delete word 1 of item 1 of line 2 of s
put s

-- A write past the end pads at every level; a delete there changes nothing.
s = "a"
put "X" into char 2 of item 3 of s
put s
delete char 1 of item 9 of s
put s

-- Chunks of list items and of numbers, written back where they came from.
l = ["a b", 12345]
put "Z" into word 2 of l[1]
put char 2 to 3 of l[2], l

-- Positions are evaluated before the text is looked at, even when they call handlers that change
-- the variable.
on grow
  global s
  put "xyz" after s
  return 4
end
global s
s = "abc"
put char grow() of s, s

-- Names that are chunk words stay variables.
line = "a"
word = 2
put line & word, item
repeat with char in [1, 2]
  put char
end repeat
