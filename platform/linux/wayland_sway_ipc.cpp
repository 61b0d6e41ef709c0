#include "platform/linux/wayland_sway_ipc.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

namespace tessel::platform::wayland {
namespace {

using Clock = std::chrono::steady_clock;

// A JSON reader that keeps only what the views need: every object holding a "pid" number is a
// view, with its "id", "app_id" and "name" when they are there.
class TreeReader {
 public:
  explicit TreeReader(std::string_view text) : s_(text) {}

  bool read(std::vector<SwayView>& views) {
    views_ = &views;
    if (!value(0)) return false;
    space();
    return at_ == s_.size();
  }

 private:
  void space() {
    while (at_ < s_.size() && (s_[at_] == ' ' || s_[at_] == '\n' || s_[at_] == '\r' || s_[at_] == '\t')) ++at_;
  }
  bool take(char c) {
    space();
    if (at_ < s_.size() && s_[at_] == c) {
      ++at_;
      return true;
    }
    return false;
  }

  static void appendUtf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }

  bool hex4(uint32_t& out) {
    if (at_ + 4 > s_.size()) return false;
    out = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = s_[at_++];
      out <<= 4;
      if (c >= '0' && c <= '9') out |= static_cast<uint32_t>(c - '0');
      else if (c >= 'a' && c <= 'f') out |= static_cast<uint32_t>(c - 'a' + 10);
      else if (c >= 'A' && c <= 'F') out |= static_cast<uint32_t>(c - 'A' + 10);
      else return false;
    }
    return true;
  }

  bool string(std::string& out) {
    if (!take('"')) return false;
    while (at_ < s_.size()) {
      const char c = s_[at_++];
      if (c == '"') return true;
      if (c != '\\') {
        out += c;
        continue;
      }
      if (at_ >= s_.size()) return false;
      const char e = s_[at_++];
      switch (e) {
        case 'n': out += '\n'; break;
        case 't': out += '\t'; break;
        case 'r': out += '\r'; break;
        case 'b': out += '\b'; break;
        case 'f': out += '\f'; break;
        case 'u': {
          uint32_t cp = 0;
          if (!hex4(cp)) return false;
          // A surrogate pair; an unpaired half becomes U+FFFD.
          if (cp >= 0xD800 && cp < 0xDC00 && at_ + 6 <= s_.size() && s_[at_] == '\\' && s_[at_ + 1] == 'u') {
            at_ += 2;
            uint32_t low = 0;
            if (!hex4(low)) return false;
            cp = low >= 0xDC00 && low < 0xE000 ? 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00) : 0xFFFD;
          } else if (cp >= 0xD800 && cp < 0xE000) {
            cp = 0xFFFD;
          }
          appendUtf8(out, cp);
          break;
        }
        default: out += e; break;  // \" \\ \/
      }
    }
    return false;
  }

  bool number(double& out) {
    space();
    const size_t start = at_;
    while (at_ < s_.size() && std::strchr("+-0123456789.eE", s_[at_]) != nullptr) ++at_;
    if (at_ == start) return false;
    const std::string digits(s_.substr(start, at_ - start));
    char* end = nullptr;
    out = std::strtod(digits.c_str(), &end);
    return end == digits.c_str() + digits.size();
  }

  bool word(std::string_view w) {
    space();
    if (s_.substr(at_, w.size()) != w) return false;
    at_ += w.size();
    return true;
  }

  // Any value; `depth` bounds the nesting a hostile reply could use against the stack.
  bool value(int depth) {
    if (depth > 200) return false;
    space();
    if (at_ >= s_.size()) return false;
    const char c = s_[at_];
    if (c == '{') return object(depth);
    if (c == '[') {
      ++at_;
      if (take(']')) return true;
      do {
        if (!value(depth + 1)) return false;
      } while (take(','));
      return take(']');
    }
    if (c == '"') {
      std::string ignored;
      return string(ignored);
    }
    if (c == 't') return word("true");
    if (c == 'f') return word("false");
    if (c == 'n') return word("null");
    double ignored = 0;
    return number(ignored);
  }

  bool object(int depth) {
    ++at_;
    SwayView view;
    bool hasPid = false;
    if (!take('}')) {
      do {
        std::string key;
        if (!string(key) || !take(':')) return false;
        space();
        const bool isString = at_ < s_.size() && s_[at_] == '"';
        const bool isNumber = at_ < s_.size() && (s_[at_] == '-' || (s_[at_] >= '0' && s_[at_] <= '9'));
        if ((key == "app_id" || key == "name") && isString) {
          if (!string(key == "app_id" ? view.appId : view.title)) return false;
        } else if ((key == "pid" || key == "id") && isNumber) {
          double n = 0;
          if (!number(n)) return false;
          if (key == "pid") {
            hasPid = n > 0 && n < 2147483647.0;
            view.pid = hasPid ? static_cast<int32_t>(n) : 0;
          } else {
            view.id = static_cast<int64_t>(n);
          }
        } else if (!value(depth + 1)) {
          return false;
        }
      } while (take(','));
      if (!take('}')) return false;
    }
    if (hasPid) views_->push_back(std::move(view));
    return true;
  }

  std::string_view s_;
  size_t at_ = 0;
  std::vector<SwayView>* views_ = nullptr;
};

// Reads exactly `size` bytes before `deadline`.
bool readAll(int fd, char* out, size_t size, Clock::time_point deadline) {
  size_t done = 0;
  while (done < size) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd p{fd, POLLIN, 0};
    if (left <= 0 || ::poll(&p, 1, static_cast<int>(left)) <= 0) return false;
    const ssize_t n = ::recv(fd, out + done, size - done, 0);
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

std::optional<std::vector<SwayView>> parseSwayTree(std::string_view json) {
  std::vector<SwayView> views;
  TreeReader reader(json);
  if (!reader.read(views)) return std::nullopt;
  return views;
}

std::optional<std::vector<SwayView>> swayViews() {
  const char* path = std::getenv("SWAYSOCK");
  if (path == nullptr || *path == '\0' || std::strlen(path) >= sizeof(sockaddr_un::sun_path)) return std::nullopt;
  const auto deadline = Clock::now() + std::chrono::seconds(1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return std::nullopt;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path);
  std::optional<std::vector<SwayView>> views;
  // "i3-ipc", the payload's length (0) and the message type (4, GET_TREE), in host byte order.
  char request[14] = {'i', '3', '-', 'i', 'p', 'c'};
  const uint32_t length = 0, type = 4;
  std::memcpy(request + 6, &length, 4);
  std::memcpy(request + 10, &type, 4);
  char header[14];
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      ::send(fd, request, sizeof request, MSG_NOSIGNAL) == static_cast<ssize_t>(sizeof request) &&
      readAll(fd, header, sizeof header, deadline) && std::memcmp(header, "i3-ipc", 6) == 0) {
    uint32_t size = 0;
    std::memcpy(&size, header + 6, 4);
    // A tree of thousands of windows stays far below this.
    if (size <= 64u << 20) {
      std::string payload(size, '\0');
      if (readAll(fd, payload.data(), size, deadline)) views = parseSwayTree(payload);
    }
  }
  ::close(fd);
  return views;
}

}  // namespace tessel::platform::wayland
