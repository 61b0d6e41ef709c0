-- Walking a folder tree with tsFolderList and tsFileList, building paths with chunk
-- expressions, as a kiosk script collects its media.

on walk folder, prefix, found
  files = tsFileList(folder, "")
  repeat with f in files
    add(found, prefix & f)
  end repeat
  subs = tsFolderList(folder)
  repeat with d in subs
    walk(folder & d & "/", prefix & d & "/", found)
  end repeat
  return found
end

on extensionOf name
  the itemDelimiter = "."
  if the number of items in name < 2 then
    ext = ""
  else
    ext = the last item of name
  end if
  the itemDelimiter = ","
  return ext
end

on fileName path
  the itemDelimiter = "/"
  n = the last item of path
  the itemDelimiter = ","
  return n
end

tsReturnUnixNames(1)
root = tsSysFolder("temp") & "tessel-walk-" & the milliseconds & "/"
put tsCreateFolder(root)
tsCreateFolder(root & "media")
tsCreateFolder(root & "media/clips")
tsCreateFolder(root & "empty")
-- An INI write makes a file.
tsWriteIni("a", "b", "c", root & "readme.txt")
tsWriteIni("a", "b", "c", root & "media/poster.png")
tsWriteIni("a", "b", "c", root & "media/clips/intro.mov")
tsWriteIni("a", "b", "c", root & "media/clips/Loop.MOV")
found = walk(root, "", [])
sort(found)
put found
put count(found)
movies = []
repeat with p in found
  if extensionOf(p) = "mov" then add(movies, fileName(p))
end repeat
put movies
byType = [:]
repeat with p in found
  ext = extensionOf(p)
  -- Symbols ignore case, so "mov" and "MOV" count together.
  setaProp(byType, symbol(ext), getaProp(byType, symbol(ext)) + 1)
end repeat
put byType
-- The deepest path, and its folders one by one.
deepest = ""
repeat with p in found
  the itemDelimiter = "/"
  if the number of items in p > the number of items in deepest then deepest = p
  the itemDelimiter = ","
end repeat
put deepest
the itemDelimiter = "/"
repeat with i = 1 to the number of items in deepest - 1
  put item 1 to i of deepest
end repeat
the itemDelimiter = ","
put tsXDelete(root, "*"), tsFolderExists(root & "media")
tsDeleteFolder(root)
put tsFolderExists(root)
