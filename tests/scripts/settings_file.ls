-- A kiosk's settings in an INI file: written with tsWriteIni, read back with tsReadIni and
-- taken apart with chunk expressions, with defaults for what is missing.
global gIni

on setting section, key, fallback
  global gIni
  return tsReadIni(section, key, fallback, gIni)
end

on readSettings
  s = [:]
  size = setting("Screen", "Size", "800x600")
  the itemDelimiter = "x"
  setaProp(s, #width, integer(item 1 of size))
  setaProp(s, #height, integer(item 2 of size))
  the itemDelimiter = ";"
  sites = setting("Browser", "Allowed", "")
  allowed = []
  repeat with i = 1 to the number of items in sites
    add(allowed, item i of sites)
  end repeat
  the itemDelimiter = ","
  setaProp(s, #allowed, allowed)
  setaProp(s, #idle, integer(setting("Kiosk", "IdleSeconds", "120")))
  setaProp(s, #fullScreen, setting("Kiosk", "FullScreen", "no") = "yes")
  setaProp(s, #title, setting("Kiosk", "Title", "Welcome"))
  return s
end

tsReturnUnixNames(1)
gIni = tsSysFolder("temp") & "tessel-settings-" & the milliseconds & ".ini"
put tsWriteIni("Screen", "Size", "1920x1080", gIni)
tsWriteIni("Browser", "Allowed", "example.org;museum.example;maps.example", gIni)
tsWriteIni("Kiosk", "FullScreen", "YES", gIni)
tsWriteIni("Kiosk", "Title", "Musée d'Orsay — entrée", gIni)
s = readSettings()
put s.width * s.height, s.height
put s.allowed
put count(s.allowed), getPos(s.allowed, "MUSEUM.example")
put s.idle, s.fullScreen
put s.title
put length(s.title), word 3 of s.title, the last char of s.title
put offset("—", s.title), char 4 of s.title
-- A value changed and read again; a missing file gives the defaults.
tsWriteIni("Kiosk", "IdleSeconds", "45", gIni)
put readSettings().idle
put tsDeleteFile(gIni)
s = readSettings()
put s.width, s.allowed, s.title
