-- Calls into the Xtra from the message window, as a movie's script makes them: "@" is the
-- folder of the script being run. (What each method answers is its reference entry's examples.)
put tsFileExists("@:xtra_calls.ls")
put tsUnixName("@:media:clip.mov") contains "/scripts/media/clip.mov"
