// A test seam for the writers' crash safety. A writer names the moments a kill would hurt most
// (a temporary half written, a complete one not yet renamed into place) with pausePoint(); when
// the environment variable TESSEL_PAUSE_AT holds that name, the process stops itself there
// (SIGSTOP), so that a test can kill it with SIGKILL at that very moment. Otherwise a point
// costs one getenv.
#pragma once

#include <string_view>

namespace tessel::platform {

// The points: "copy.data" after each block a file copy moved; "copy.companion" when a copy's
// resource-fork companion has been created, still empty; "copy.replace" before a finished copy
// is renamed over its destination; "cipher.block" after each block the file cipher wrote;
// "cipher.replace" before the enciphered file is renamed over the original; "rewrite.replace"
// before a rewritten ".hidden" list or companion is renamed over the old one.
void pausePoint(std::string_view point);

}  // namespace tessel::platform
