-- The registered method table, as the message window shows it.
put interface(xtra "Tessel")
