// The environment and program texts the module reads or writes: kernel releases, locale names,
// component version numbers, and the single-quoting of folder names for /bin/sh, which must give
// back exactly the text it quoted when a shell splits it.
#include <glib.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "system/programs.h"
#include "system/version_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  tessel::system::parseKernelRelease(text);
  tessel::system::languageOfLocale(text);
  uint32_t response = 0;
  std::memcpy(&response, text.data(), std::min<size_t>(size, sizeof response));
  std::string version = tessel::system::componentVersionText(response);
  if (version.empty() || version.size() > 4 * 3 + 3) std::abort();

  // A shell splits the quoted text into exactly one word: the text itself (the C strings of a
  // shell cannot hold a zero byte, so the text is taken up to its first one).
  std::string word = text.substr(0, text.find('\0'));
  std::string quoted = tessel::system::shellQuote(word);
  gchar** argv = nullptr;
  gint argc = 0;
  if (!g_shell_parse_argv(quoted.c_str(), &argc, &argv, nullptr)) std::abort();
  bool same = argc == 1 && word == argv[0];
  g_strfreev(argv);
  if (!same) std::abort();
  return 0;
}
