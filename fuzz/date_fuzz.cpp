// Fuzzes the two date languages and the percent language on arbitrary date fields (also out of
// range ones): no fault, and every result within its limit. The first 32 bytes are the fields,
// the rest the format.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "formats/dates.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tessel::formats;
  int32_t raw[8] = {};
  size_t head = std::min(size, sizeof raw);
  std::memcpy(raw, data, head);
  DateFields f;
  f.year = raw[0];
  f.month = raw[1];
  f.day = raw[2];
  f.hour = raw[3];
  f.minute = raw[4];
  f.second = raw[5];
  f.weekday = raw[6];
  f.yearDay = raw[7];
  std::string_view format(reinterpret_cast<const char*>(data) + head, size - head);

  if (expandPercentFormat(format, f).size() > 256) __builtin_trap();
  if (formatSystemTime(format, f).size() > 256) __builtin_trap();
  std::string date = expandDateTokens(format, f, 300);
  if (date.size() > 300) __builtin_trap();
  if (expandTimeTokens(format, f, 300 - date.size()).size() > 300 - date.size()) __builtin_trap();
  // Fields of a real moment: the local time of the fields' first word as a Unix time.
  DateFields real = localFields(static_cast<time_t>(raw[0]));
  if (real.month < 1 || real.month > 12 || real.weekday < 1 || real.weekday > 7) __builtin_trap();
  return 0;
}
