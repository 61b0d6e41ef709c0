-- Lists are shared by reference; property lists look properties up ignoring case.
a = [3, 1, 2]
b = a
append(b, 0)
put a
sort(a)
put b
c = duplicate(a)
c[1] = 99
put a, c
a[6] = "end"
put a
deleteAt(a, 5)
put count(a), getAt(a, 2), a[5], getPos(a, 3)

p = [#name: "Tessel", #size: 3]
put p[#NAME], p.size, getaProp(p, #missing)
setaProp(p, #size, 4)
addProp(p, #kind, #xtra)
p[#extra] = [1, 2]
put p
deleteProp(p, #extra)
put p, count(p), getPropAt(p, 3)

total = 0
repeat with x in [10, 20, 30]
  total = total + x
end repeat
put total

nested = [[1, 2], [3, 4]]
repeat with row in nested
  append(row, 0)
end repeat
put nested
put [1, 2] + [10, 20], [1, 2] * 3
