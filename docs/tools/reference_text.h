// The method reference as the message window's `help` shows it: generated at build time from
// docs/methods/ and xtra/methods.txt (reference_text.cpp in the build folder), in the table's order.
#pragma once

#include <cstddef>

namespace tessel::reference {

struct HelpMethod {
  const char* name;     // "tsCopyFile"
  const char* group;    // "File Functions"
  const char* summary;  // the entry's first sentence (the table's description without an entry)
  const char* text;     // the whole entry as text, lines of at most 78 columns
};

extern const HelpMethod kHelpMethods[];
extern const size_t kHelpMethodCount;

}  // namespace tessel::reference
