#include "host/lingo/chunks.h"

#include <algorithm>
#include <stdexcept>

namespace tessel::lingo {

namespace {

bool isWordSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string_view delimiterOf(std::string_view d) {
  if (d.empty()) return ",";
  return d.substr(0, charLength(d, 0));
}

// Length of the line end at s[i] (CR LF counts as one), 0 when there is none.
size_t lineEndAt(std::string_view s, size_t i) {
  if (i >= s.size()) return 0;
  if (s[i] == '\r') return i + 1 < s.size() && s[i + 1] == '\n' ? 2 : 1;
  return s[i] == '\n' ? 1 : 0;
}

// Length of the line end that finishes just before s[i], 0 when there is none.
size_t lineEndBefore(std::string_view s, size_t i) {
  if (i == 0) return 0;
  if (s[i - 1] == '\n') return i >= 2 && s[i - 2] == '\r' ? 2 : 1;
  return s[i - 1] == '\r' ? 1 : 0;
}

// Calls fn(index, begin, end) for each chunk in order while fn returns true.
template <class F>
void forEachChunk(std::string_view s, ChunkType type, std::string_view delim, F&& fn) {
  size_t n = s.size();
  int64_t k = 1;
  switch (type) {
    case ChunkType::Char:
      for (size_t i = 0; i < n; ++k) {
        size_t len = charLength(s, i);
        if (!fn(k, i, i + len)) return;
        i += len;
      }
      return;
    case ChunkType::Word:
      for (size_t i = 0;; ++k) {
        while (i < n && isWordSpace(s[i])) ++i;
        if (i >= n) return;
        size_t b = i;
        while (i < n && !isWordSpace(s[i])) ++i;
        if (!fn(k, b, i)) return;
      }
    case ChunkType::Item:
      if (n == 0) return;
      for (size_t i = 0;; ++k) {
        size_t next = s.find(delim, i);
        size_t e = next == std::string_view::npos ? n : next;
        if (!fn(k, i, e) || next == std::string_view::npos) return;
        i = next + delim.size();
      }
    case ChunkType::Line:
      if (n == 0) return;
      for (size_t i = 0;; ++k) {
        size_t next = s.find_first_of("\r\n", i);
        size_t e = next == std::string_view::npos ? n : next;
        if (!fn(k, i, e) || next == std::string_view::npos) return;
        i = next + lineEndAt(s, next);
      }
  }
}

// The separator a write pads with: the line end the text already uses (LF when it has LF and
// no CR, else RETURN).
std::string_view lineEndFor(std::string_view s) {
  if (s.find('\n') != std::string_view::npos && s.find('\r') == std::string_view::npos) return "\n";
  return "\r";
}

}  // namespace

size_t charLength(std::string_view s, size_t i) {
  auto b0 = static_cast<unsigned char>(s[i]);
  if (b0 < 0x80) return 1;
  size_t len = 0;
  uint32_t min = 0;
  if (b0 >= 0xC2 && b0 <= 0xDF) {
    len = 2;
    min = 0x80;
  } else if ((b0 & 0xF0) == 0xE0) {
    len = 3;
    min = 0x800;
  } else if (b0 >= 0xF0 && b0 <= 0xF4) {
    len = 4;
    min = 0x10000;
  } else {
    return 1;
  }
  if (i + len > s.size()) return 1;
  uint32_t cp = b0 & (0x7F >> len);
  for (size_t k = 1; k < len; ++k) {
    auto b = static_cast<unsigned char>(s[i + k]);
    if ((b & 0xC0) != 0x80) return 1;
    cp = (cp << 6) | (b & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 1;
  return len;
}

uint32_t decodeChar(std::string_view s, size_t i, size_t* length) {
  size_t len = charLength(s, i);
  if (length) *length = len;
  auto b0 = static_cast<unsigned char>(s[i]);
  if (len == 1) return b0;
  uint32_t cp = b0 & (0x7F >> len);
  for (size_t k = 1; k < len; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
  return cp;
}

void appendUtf8(std::string& out, uint32_t u) {
  if (u < 0x80) {
    out += static_cast<char>(u);
  } else if (u < 0x800) {
    out += static_cast<char>(0xC0 | (u >> 6));
    out += static_cast<char>(0x80 | (u & 0x3F));
  } else if (u < 0x10000) {
    out += static_cast<char>(0xE0 | (u >> 12));
    out += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (u & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (u >> 18));
    out += static_cast<char>(0x80 | ((u >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (u & 0x3F));
  }
}

size_t countChars(std::string_view s) {
  size_t count = 0;
  for (size_t i = 0; i < s.size(); ++count) {
    // ASCII runs are the common case.
    if (static_cast<unsigned char>(s[i]) < 0x80) {
      ++i;
      continue;
    }
    i += charLength(s, i);
  }
  return count;
}

std::string displayText(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    auto b = static_cast<unsigned char>(s[i]);
    size_t len = b < 0x80 ? 1 : charLength(s, i);
    if (len == 1 && b >= 0x80) break;
    i += len;
  }
  if (i == s.size()) return std::string(s);
  std::string out(s.substr(0, i));
  while (i < s.size()) {
    size_t len = charLength(s, i);
    if (len == 1 && static_cast<unsigned char>(s[i]) >= 0x80) {
      out += "\xEF\xBF\xBD";
    } else {
      out.append(s.substr(i, len));
    }
    i += len;
  }
  return out;
}

size_t countChunks(std::string_view s, ChunkType type, std::string_view itemDelimiter) {
  if (type == ChunkType::Char) return countChars(s);
  std::string_view delim = delimiterOf(itemDelimiter);
  size_t count = 0;
  forEachChunk(s, type, delim, [&](int64_t, size_t, size_t) {
    ++count;
    return true;
  });
  return count;
}

Span findChunk(std::string_view s, ChunkType type, int64_t from, int64_t to,
               std::string_view itemDelimiter) {
  Span span;
  if (from < 1) return span;
  if (to < from) to = from;
  std::string_view delim = delimiterOf(itemDelimiter);
  forEachChunk(s, type, delim, [&](int64_t k, size_t b, size_t e) {
    if (k == from) {
      span.found = true;
      span.begin = b;
    }
    if (k >= from) span.end = e;
    return k < to;
  });
  return span;
}

std::string putChunk(std::string_view s, ChunkType type, int64_t from, int64_t to,
                     std::string_view value, PutMode mode, std::string_view itemDelimiter,
                     size_t maxBytes) {
  if (from < 1) from = 1;
  Span span = findChunk(s, type, from, to, itemDelimiter);
  std::string out;
  if (span.found) {
    size_t b = mode == PutMode::After ? span.end : span.begin;
    size_t e = mode == PutMode::Into ? span.end : b;
    if (s.size() - (e - b) + value.size() > maxBytes) throw std::length_error("Text too long");
    out.reserve(s.size() - (e - b) + value.size());
    out.append(s.substr(0, b)).append(value).append(s.substr(e));
    return out;
  }
  // The chunk does not exist yet: pad up to it, then write.
  auto count = static_cast<int64_t>(countChunks(s, type, itemDelimiter));
  std::string_view sep = " ";
  int64_t pads = 0;
  switch (type) {
    case ChunkType::Char: pads = from - 1 - count; break;
    case ChunkType::Word: pads = !s.empty() && !isWordSpace(s.back()) ? 1 : 0; break;
    case ChunkType::Item:
    case ChunkType::Line:
      sep = type == ChunkType::Item ? delimiterOf(itemDelimiter) : lineEndFor(s);
      pads = s.empty() ? from - 1 : from - count;
      break;
  }
  if (pads < 0) pads = 0;
  if (s.size() > maxBytes || value.size() > maxBytes - s.size() ||
      static_cast<uint64_t>(pads) > (maxBytes - s.size() - value.size()) / sep.size())
    throw std::length_error("Text too long");
  out.reserve(s.size() + static_cast<size_t>(pads) * sep.size() + value.size());
  out.assign(s);
  for (int64_t i = 0; i < pads; ++i) out.append(sep);
  out.append(value);
  return out;
}

std::string deleteChunk(std::string_view s, ChunkType type, int64_t from, int64_t to,
                        std::string_view itemDelimiter) {
  Span span = findChunk(s, type, from, to, itemDelimiter);
  if (!span.found) return std::string(s);
  size_t b = span.begin, e = span.end;
  switch (type) {
    case ChunkType::Char: break;
    case ChunkType::Word:
      if (e < s.size()) {
        while (e < s.size() && isWordSpace(s[e])) ++e;
      } else {
        while (b > 0 && isWordSpace(s[b - 1])) --b;
      }
      break;
    case ChunkType::Item: {
      std::string_view delim = delimiterOf(itemDelimiter);
      if (e < s.size()) {
        e += delim.size();
      } else if (b >= delim.size()) {
        b -= delim.size();
      }
      break;
    }
    case ChunkType::Line:
      if (e < s.size()) {
        e += lineEndAt(s, e);
      } else {
        b -= lineEndBefore(s, b);
      }
      break;
  }
  std::string out;
  out.reserve(s.size() - (e - b));
  out.append(s.substr(0, b)).append(s.substr(e));
  return out;
}

}  // namespace tessel::lingo
