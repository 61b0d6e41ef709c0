-- Lists are shared by reference; property lists look properties up ignoring case.
-- The loop variable of "repeat with ... in" is each item itself, so a list of lists changes.
nested = [[1, 2], [3, 4]]
repeat with row in nested
  append(row, 0)
end repeat
put nested
-- Lists are shared by reference; duplicate copies deeply.
a = [1, 2]
b = a
append(b, 3)
b[1] = 10
put a
c = duplicate(a)
append(c, 4)
put a, c
nested = [[1], [2]]
copy = duplicate(nested)
append(copy[1], 9)
put nested, copy
on addItem l, v
  append l, v
end
addItem(a, 99)
put a
repeat with i = 1 to 2
  fresh = []
  append(fresh, i)
  put fresh
end repeat

-- Linear list functions; add() and addProp() keep a sorted list sorted.
l = ["b", "a", "c"]
put count(l), getAt(l, 2), l[3], getLast(l), getLast([])
setAt(l, 2, "z")
add(l, "d")
addAt(l, 1, "first")
put l
deleteAt(l, 1)
put getPos(l, "Z"), getPos(l, "q"), getOne(l, "c")
deleteOne(l, "c")
sort(l)
put l
add(l, "c")
l[6] = 1
put l
put list(1, "two"), list(), objectP([]), objectP("x")
mixed = [3, "b", 1.5, #a, "A", VOID]
sort mixed
put mixed

-- Property lists.
p = [#name: "x", #size: 3]
put p[#name], p[#NAME], p[2], p.size, p.count, p[#missing]
put getProp(p, #size), getaProp(p, #nothing), getPropAt(p, 1), findPos(p, #size)
addProp(p, #tag, 1)
setaProp(p, #size, 4)
setaProp(p, #new, "n")
setProp(p, #tag, 2)
p[#more] = 5
p.name = "y"
put p
deleteProp(p, #new)
deleteAt(p, 1)
put p, count(p)
e = [:]
e["key"] = 1
setaProp(e, 7, 2)
put e, e["KEY"]
q = [#b: 2, #a: 1, #c: 3]
sort(q)
put q, getOne(q, 3), getPos(q, 2)
addProp(q, #ab, 0)
put q
put [#a: 1] + 1
