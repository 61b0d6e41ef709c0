-- Objects made from a parent script (Playlist.ls beside this file): new, me, property.
lobby = new(script "Playlist", "Lobby")
put lobby, ilk(lobby), objectP(lobby)
addClip(lobby, "intro.mov")
lobby.addClip("loop.mov").addClip("outro.mov")
put describe(lobby)
played = []
repeat with i = 1 to 4
  add(played, nextClip(lobby))
end repeat
put played
-- Each object has its own properties; they read and write with the dot too.
hall = script("Playlist").new("Hall")
put hall.name, hall.position, lobby.position, count(hall.clips)
hall.name = "Main hall"
put describe(hall), nextClip(hall)
-- Objects go in lists like any value.
all = [lobby, hall]
repeat with p in all
  put p.name
end repeat
