-- Lists and property lists as movie scripts keep playlists, scores and settings in them.

on listFromItems s
  l = []
  repeat with i = 1 to the number of items in s
    add(l, item i of s)
  end repeat
  return l
end

on joinList l, sep
  out = ""
  repeat with x in l
    if out <> "" then put sep after out
    put string(x) after out
  end repeat
  return out
end

-- A playlist from a tsFileList-style answer.
clips = listFromItems("intro.mov,loop.mov,outro.mov")
put clips, count(clips), clips.count
append(clips, "credits.mov")
addAt(clips, 2, "title.mov")
put clips
put getPos(clips, "LOOP.MOV"), getOne(clips, "outro.mov"), getPos(clips, "none")
deleteOne(clips, "title.mov")
deleteAt(clips, 1)
put clips, getLast(clips), getAt(clips, 2)
put joinList(clips, " | ")

-- A sorted list keeps its order when add() puts more in.
scores = [40, 10, 30]
sort(scores)
add(scores, 20)
add(scores, 50)
put scores, max(scores), min(scores), min(7, 3, 9)
copy = duplicate(scores)
setAt(copy, 1, 99)
put scores[1], copy[1]

-- Property lists.
settings = [#title: "Kiosk", #volume: 5]
addProp(settings, #idle, 300)
setaProp(settings, #volume, 7)
setaProp(settings, #language, "fr")
put settings
put getaProp(settings, #volume), getaProp(settings, #missing), settings.title, settings[#idle]
put getPropAt(settings, 2), findPos(settings, #idle), getOne(settings, 300), getPos(settings, "fr")
deleteProp(settings, #title)
put count(settings), getPropAt(settings, 1)
sort(settings)
put settings
addProp(settings, #delay, 2)
put getPropAt(settings, 1)

-- Types.
put ilk(scores), ilk(settings), listP(settings), objectP(scores), objectP("x"), voidP(getaProp(settings, #x))
put string([#a: 1]), symbol("done"), integer("42") + 1, float("2.5")
