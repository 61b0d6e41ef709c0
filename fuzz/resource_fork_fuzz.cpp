// The resource-fork reader on arbitrary bytes: it must never read outside the fork, and what it
// finds must lie inside it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "files/resource_fork.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view fork(reinterpret_cast<const char*>(data), size);
  // The first two bytes pick the id looked for, so the fuzzer can reach other references too.
  int16_t ids[] = {1, size >= 2 ? static_cast<int16_t>(data[0] << 8 | data[1]) : int16_t{0}};
  for (int16_t id : ids) {
    auto found = tessel::files::findResource(fork, tessel::files::kVersionResourceType, id);
    if (!found) continue;
    if (found->data() < fork.data() || found->data() + found->size() > fork.data() + fork.size())
      std::abort();
    if (auto text = tessel::files::versionString(*found); text && text->size() > found->size())
      std::abort();
  }
  return 0;
}
