#include "platform/text_encoding.h"

#include <glib.h>
#include <iconv.h>

#include <cerrno>

namespace tessel::platform {
namespace {

// One conversion through iconv. On an unconvertible or invalid input character `onBad` decides
// what is written and how many input bytes are consumed.
template <typename OnBad>
std::string convert(const char* to, const char* from, std::string_view in, OnBad onBad) {
  std::string out;
  if (in.empty()) return out;
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) return std::string(in);
  out.resize(in.size() * 4 + 16);
  char* src = const_cast<char*>(in.data());
  size_t srcLeft = in.size();
  char* dst = out.data();
  size_t dstLeft = out.size();
  while (srcLeft > 0) {
    size_t r = iconv(cd, &src, &srcLeft, &dst, &dstLeft);
    if (r != static_cast<size_t>(-1)) break;
    if (errno == E2BIG) {
      size_t used = out.size() - dstLeft;
      out.resize(out.size() * 2);
      dst = out.data() + used;
      dstLeft = out.size() - used;
      continue;
    }
    // EILSEQ or EINVAL: let the caller decide, then skip what it consumed.
    size_t skip = onBad(src, srcLeft, dst, dstLeft);
    src += skip;
    srcLeft -= skip;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
  }
  out.resize(out.size() - dstLeft);
  iconv_close(cd);
  return out;
}

size_t utf8SequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  if ((lead & 0xE0) == 0xC0) return 2;
  if ((lead & 0xF0) == 0xE0) return 3;
  if ((lead & 0xF8) == 0xF0) return 4;
  return 1;
}

}  // namespace

std::string macRomanToUtf8(std::string_view roman) {
  return convert("UTF-8", "MACINTOSH", roman, [](const char*, size_t, char*&, size_t&) {
    return static_cast<size_t>(1);  // cannot happen: every Roman byte maps
  });
}

std::string utf8ToMacRoman(std::string_view utf8) {
  return convert("MACINTOSH", "UTF-8", utf8,
                 [](const char* src, size_t srcLeft, char*& dst, size_t& dstLeft) -> size_t {
                   if (dstLeft > 0) {
                     *dst++ = '?';
                     --dstLeft;
                   }
                   size_t n = utf8SequenceLength(static_cast<unsigned char>(*src));
                   return n <= srcLeft ? n : srcLeft;
                 });
}

std::string validUtf8(std::string_view text) {
  if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr))
    return std::string(text);
  gchar* valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
  std::string result = valid;
  g_free(valid);
  return result;
}

std::string foldCase(std::string_view text) {
  if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) {
    std::string folded(text);
    for (char& c : folded) c = g_ascii_tolower(c);
    return folded;
  }
  gchar* folded = g_utf8_casefold(text.data(), static_cast<gssize>(text.size()));
  std::string result = folded;
  g_free(folded);
  return result;
}

}  // namespace tessel::platform
