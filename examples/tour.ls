-- A short tour of Tessel, run by the message window:  build/tessel examples/tour.ls
-- Every line that calls a ts... function goes through the MOA host into the Xtra, exactly as a
-- movie's script would.

on showPath label, value
  put label && "=" && QUOTE & value & QUOTE
end

put "Tessel's method table begins:"
put chars(interface(xtra "Tessel"), 1, 63)

-- The two path styles. Paths come back in HFS style until tsReturnUnixNames(1).
showPath("this movie (HFS)", tsHFSName(the moviePath))
showPath("start-up volume", tsSysFolder("boot"))
showPath("preferences", tsSysFolder("prefs"))
tsReturnUnixNames(1)
showPath("this movie (Unix)", tsUnixName("@"))
showPath("media beside the movie", tsUnixName("@:media:clip.mov"))
showPath("temporary items", tsSysFolder("temp"))
showPath("user fonts", tsSysFolder("user fonts"))

-- Files and folders.
put "tour.ls exists:" && tsFileExists("@/tour.ls")
put "the examples folder exists:" && tsFolderExists("@")

-- The mounted volumes, with their kind and size in thousands of bytes.
repeat with disk in tsDiskList()
  put disk && tsDiskInfo(disk, "type") && tsDiskInfo(disk, "size")
end repeat
tsReturnUnixNames(0)
