-- The cipher and the format languages from a movie's script.
put tsEncryptText("", "key")
put length(tsEncryptText("abc", "key")) & "," & length(tsEncryptText("abcdef", "key"))
put tsDecryptText(tsEncryptText("Meet me at the usual place", "k3y"), "k3y")
put tsDecryptText(tsEncryptText("Meet me at the usual place", "k3y"), "other") = "Meet me at the usual place"
put length(tsSystemTime("date")) & "," & length(tsSystemTime("TIME"))
put tsSystemTime("100%% sure%q%")
put length(tsSystemTime("%Y")) & "," & length(tsSystemTime("%0j"))
put tsFileDate("@:no such file", "yyyy", "hh")
put tsFileAge("@:no such file")
put tsReadIni("Main", "Key", "fallback", "@:no such file.ini")
