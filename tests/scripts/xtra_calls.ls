-- Calls into the Xtra from the message window, as a movie's script makes them.
put tsFileExists("@:xtra_calls.ls")
-- With HFS names "@" gives an HFS base, so a slash after it is no separator.
put tsFileExists("@/xtra_calls.ls")
put tsFolderExists("@")
put tsFileExists("@:no such file")
put tsReturnUnixNames(1)
put tsFileExists("@/xtra_calls.ls")
put tsUnixName("@") starts "/"
put tsUnixName("@:media:clip.mov") contains "/scripts/media/clip.mov"
put tsHFSName("/Volumes/Disk/a")
put tsUnixName("Nowhere:a:b")
put tsSysFolder("boot")
put count(tsDiskList()) > 0
put tsWindowList("", "no such program", 1)
put tsWindowInfo(0, "name")
put tsFileSizeEx("@:missing")
put ilk(tsDiskList())
put chars(interface(xtra "Tessel"), 1, 11)
tsReturnUnixNames(0)
boot = tsSysFolder("boot")
put chars(boot, length(boot), length(boot))
put tsHFSName("@") = chars(tsHFSName("@:x"), 1, length(tsHFSName("@:x")) - 2)
