-- Run without an X display (DISPLAY is empty): every window, key and click method answers its
-- failure value at once; only the host's own handle is known.
put tsWinHandle() > 0
put tsFindWindow("", "tessel")
put tsWindowList("", "", 0)
put tsWindowInfo(tsWinHandle(), "title")
put tsWindowExists(tsWinHandle())
put tsActiveWindow()
put tsActivateWindow(tsWinHandle())
put tsCloseWindow(tsWinHandle())
put tsWaitForWindow(tsWinHandle(), "closed", 1)
put tsWaitForWindow(tsWinHandle(), "active", 0)
put tsNextActiveWindow(0)
put tsSendKeys("abc")
put tsKeyIsDown(65)
put tsMouseClick("left")
