// A server process that outlives the host: what keeps the Wayland clipboard's text and the
// desktop picture's surfaces after the host has gone, since a Wayland client's offers and
// surfaces end with it.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace tessel::platform {

// Runs `serve` in a process of its own, forked twice (the intermediate process is reaped at once,
// so the server belongs to init and never becomes the host's zombie), in a session of its own,
// with stdio on /dev/null, SIGPIPE ignored and no descriptor of the host but the report pipe,
// descriptor 3. `serve` writes a short report there, closes it, and never returns. The answer is
// the report (at most 64 bytes), "" when the server reported nothing within `limit`.
std::string startDetachedServer(const std::function<void()>& serve,
                                std::chrono::milliseconds limit);

}  // namespace tessel::platform
