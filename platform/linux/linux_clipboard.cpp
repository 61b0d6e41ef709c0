// The clipboard service on the X CLIPBOARD selection.
//
// X keeps no clipboard contents: the owner of the selection answers every request. tsCopyText
// therefore starts a small server process (forked twice, in its own session, with its own
// connection and no inherited descriptors) that owns CLIPBOARD and serves the text as
// UTF8_STRING, STRING (Latin-1), TEXT and TARGETS, in INCR steps when a reply is large, until
// another client takes the selection. Pasting asks the owner for TARGETS first and never waits
// beyond a deadline.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/clipboard.h"
#include "platform/linux/backend_choice.h"
#include "platform/linux/detached_server.h"
#include "platform/linux/x11_connection.h"

namespace tessel::platform {
namespace {

using Clock = std::chrono::steady_clock;
using x11::X11Connection;
using x11::X11ErrorTrap;

constexpr auto kDeadline = std::chrono::milliseconds(2000);

struct Atoms {
  explicit Atoms(Display* d)
      : clipboard(XInternAtom(d, "CLIPBOARD", False)),
        targets(XInternAtom(d, "TARGETS", False)),
        utf8(XInternAtom(d, "UTF8_STRING", False)),
        text(XInternAtom(d, "TEXT", False)),
        incr(XInternAtom(d, "INCR", False)),
        timestamp(XInternAtom(d, "TIMESTAMP", False)),
        property(XInternAtom(d, "TESSEL_SELECTION", False)) {}
  Atom clipboard, targets, utf8, text, incr, timestamp, property;
};

// Waits for the next event on the connection until `deadline`; false on a time-out or a
// broken connection.
bool nextEvent(X11Connection& conn, Clock::time_point deadline, XEvent& event) {
  Display* d = conn.display();
  while (XPending(d) == 0) {
    if (!conn.alive()) return false;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    pollfd pfd{ConnectionNumber(d), POLLIN, 0};
    int n = poll(&pfd, 1, static_cast<int>(std::min<int64_t>(left.count(), INT_MAX)));
    if (n < 0 && errno != EINTR) return false;
  }
  XNextEvent(d, &event);
  return conn.alive();
}

// UTF-8 to Latin-1: characters beyond U+00FF and malformed bytes become "?".
std::string toLatin1(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size();) {
    auto c = static_cast<unsigned char>(utf8[i]);
    if (c < 0x80) {
      out += static_cast<char>(c);
      ++i;
      continue;
    }
    size_t len = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 ? 2 : 1;
    uint32_t cp = len == 2 ? (c & 0x1F) : len == 3 ? (c & 0x0F) : (c & 0x07);
    bool ok = len > 1 && c < 0xF5 && i + len <= utf8.size();
    for (size_t k = 1; ok && k < len; ++k) {
      auto cc = static_cast<unsigned char>(utf8[i + k]);
      ok = (cc & 0xC0) == 0x80;
      cp = (cp << 6) | (cc & 0x3F);
    }
    if (!ok) {
      out += '?';
      ++i;
      continue;
    }
    out += cp <= 0xFF ? static_cast<char>(cp) : '?';
    i += len;
  }
  return out;
}

std::string fromLatin1(std::string_view latin1) {
  std::string out;
  out.reserve(latin1.size());
  for (char ch : latin1) {
    auto c = static_cast<unsigned char>(ch);
    if (c < 0x80) {
      out += ch;
    } else {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

// ---- the selection server (runs in the forked process) ----

class SelectionServer {
 public:
  SelectionServer(X11Connection& conn, std::string text)
      : conn_(conn), d_(conn.display()), atoms_(d_), utf8_(std::move(text)) {
    long maxRequest = XExtendedMaxRequestSize(d_);
    if (maxRequest == 0) maxRequest = XMaxRequestSize(d_);
    // Replies above this go in INCR steps of the same size.
    chunk_ = std::min<size_t>(static_cast<size_t>(maxRequest) * 4 - 256, 256 * 1024);
  }

  // Takes the selection; true when it is ours.
  bool own() {
    window_ = XCreateSimpleWindow(d_, DefaultRootWindow(d_), 0, 0, 1, 1, 0, 0, 0);
    XSelectInput(d_, window_, PropertyChangeMask);
    // A real timestamp for the ownership: the time of a property change on our own window.
    XChangeProperty(d_, window_, atoms_.property, XA_STRING, 8, PropModeAppend, nullptr, 0);
    XEvent event;
    auto deadline = Clock::now() + kDeadline;
    time_ = CurrentTime;
    while (nextEvent(conn_, deadline, event)) {
      if (event.type == PropertyNotify && event.xproperty.window == window_) {
        time_ = event.xproperty.time;
        break;
      }
    }
    XSetSelectionOwner(d_, atoms_.clipboard, window_, time_);
    return XGetSelectionOwner(d_, atoms_.clipboard) == window_;
  }

  // Answers requests until another client owns the selection or the server goes away. Transfers
  // under way when the selection is lost are finished first (their readers would hang), as long
  // as their readers keep asking.
  void serve() {
    XEvent event;
    bool lost = false;
    while (conn_.alive()) {
      if (lost && transfers_.empty()) return;
      if (lost) {
        if (!nextEvent(conn_, Clock::now() + kDeadline, event)) return;
      } else {
        XNextEvent(d_, &event);
      }
      if (!conn_.alive()) return;
      switch (event.type) {
        case SelectionClear:
          if (event.xselectionclear.selection == atoms_.clipboard) lost = true;
          break;
        case SelectionRequest:
          answer(event.xselectionrequest);
          break;
        case PropertyNotify:
          if (event.xproperty.state == PropertyDelete) continueTransfer(event.xproperty);
          break;
        default:
          break;
      }
    }
  }

 private:
  struct Transfer {
    Atom type;
    std::shared_ptr<const std::string> data;
    size_t offset = 0;
  };

  void answer(const XSelectionRequestEvent& request) {
    X11ErrorTrap trap(d_);
    XSelectionEvent reply{};
    reply.type = SelectionNotify;
    reply.display = d_;
    reply.requestor = request.requestor;
    reply.selection = request.selection;
    reply.target = request.target;
    reply.time = request.time;
    // Clients older than ICCCM 2 name no property: the target's name is used instead.
    Atom property = request.property != None ? request.property : request.target;
    reply.property = property;
    bool inTime = request.time == CurrentTime || time_ == CurrentTime || request.time >= time_;
    if (request.selection != atoms_.clipboard || request.owner != window_ || !inTime) {
      reply.property = None;
    } else if (request.target == atoms_.targets) {
      Atom list[] = {atoms_.targets, atoms_.timestamp, atoms_.utf8, XA_STRING, atoms_.text};
      XChangeProperty(d_, request.requestor, property, XA_ATOM, 32, PropModeReplace,
                      reinterpret_cast<unsigned char*>(list), 5);
    } else if (request.target == atoms_.timestamp) {
      long when = static_cast<long>(time_);
      XChangeProperty(d_, request.requestor, property, XA_INTEGER, 32, PropModeReplace,
                      reinterpret_cast<unsigned char*>(&when), 1);
    } else if (request.target == atoms_.utf8 || request.target == atoms_.text) {
      if (!utf8Shared_) utf8Shared_ = std::make_shared<const std::string>(utf8_);
      send(request.requestor, property, atoms_.utf8, utf8Shared_);
    } else if (request.target == XA_STRING) {
      if (!latin1_) latin1_ = std::make_shared<const std::string>(toLatin1(utf8_));
      send(request.requestor, property, XA_STRING, latin1_);
    } else {
      reply.property = None;
    }
    XSendEvent(d_, request.requestor, False, NoEventMask, reinterpret_cast<XEvent*>(&reply));
    trap.sync();
  }

  void send(Window requestor, Atom property, Atom type,
            const std::shared_ptr<const std::string>& data) {
    if (data->size() <= chunk_) {
      XChangeProperty(d_, requestor, property, type, 8, PropModeReplace,
                      reinterpret_cast<const unsigned char*>(data->data()),
                      static_cast<int>(data->size()));
      return;
    }
    // INCR: announce the size; the requestor deletes the property for each next piece.
    XSelectInput(d_, requestor, PropertyChangeMask);
    long size = static_cast<long>(data->size());
    XChangeProperty(d_, requestor, property, atoms_.incr, 32, PropModeReplace,
                    reinterpret_cast<unsigned char*>(&size), 1);
    transfers_[{requestor, property}] = Transfer{type, data, 0};
  }

  void continueTransfer(const XPropertyEvent& event) {
    auto it = transfers_.find({event.window, event.atom});
    if (it == transfers_.end()) return;
    X11ErrorTrap trap(d_);
    Transfer& t = it->second;
    size_t n = std::min(chunk_, t.data->size() - t.offset);
    XChangeProperty(d_, event.window, event.atom, t.type, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(t.data->data() + t.offset),
                    static_cast<int>(n));
    t.offset += n;
    // The empty piece written last ends the transfer.
    if (n == 0) transfers_.erase(it);
    if (trap.sync() != 0) transfers_.erase({event.window, event.atom});
  }

  X11Connection& conn_;
  Display* d_;
  Atoms atoms_;
  std::string utf8_;
  std::shared_ptr<const std::string> utf8Shared_, latin1_;
  Window window_ = None;
  Time time_ = CurrentTime;
  size_t chunk_ = 0;
  std::map<std::pair<Window, Atom>, Transfer> transfers_;
};

// In the server process (descriptor 3 the report pipe): owns the selection and serves it until
// another client takes it.
[[noreturn]] void serveSelection(const std::string& text) {
  char answer = '0';
  auto conn = X11Connection::open();
  if (conn) {
    SelectionServer server(*conn, text);
    if (server.own()) {
      answer = '1';
      (void)!write(3, &answer, 1);
      close(3);
      server.serve();
      conn.reset();
      _exit(0);
    }
  }
  (void)!write(3, &answer, 1);
  _exit(1);
}

// ---- reading the selection ----

class SelectionReader {
 public:
  explicit SelectionReader(X11Connection& conn)
      : conn_(conn), d_(conn.display()), atoms_(d_), deadline_(Clock::now() + kDeadline) {
    window_ = XCreateSimpleWindow(d_, DefaultRootWindow(d_), 0, 0, 1, 1, 0, 0, 0);
    XSelectInput(d_, window_, PropertyChangeMask);
  }
  ~SelectionReader() { XDestroyWindow(d_, window_); }

  std::optional<std::string> text(size_t limit) {
    if (XGetSelectionOwner(d_, atoms_.clipboard) == None) return std::nullopt;
    std::optional<std::string> targets = convert(atoms_.targets, SIZE_MAX);
    Atom wanted = None;
    if (targets) {
      const Atom* list = reinterpret_cast<const Atom*>(targets->data());
      size_t count = targets->size() / sizeof(Atom);
      auto offers = [&](Atom a) { return std::find(list, list + count, a) != list + count; };
      if (offers(atoms_.utf8)) wanted = atoms_.utf8;
      else if (offers(XA_STRING)) wanted = XA_STRING;
      else if (offers(atoms_.text)) wanted = atoms_.text;
      else return std::nullopt;  // a picture, a file list...: no text
    } else {
      wanted = atoms_.utf8;  // an owner that does not list its targets
    }
    std::optional<std::string> data = convert(wanted, limit);
    if (!data) return std::nullopt;
    if (type_ == XA_STRING) {
      std::string utf8 = fromLatin1(*data);
      if (utf8.size() > limit) return std::nullopt;
      return utf8;
    }
    return data;
  }

 private:
  // Asks the owner for `target` and reads the answer (INCR included). Formats of 32 bits come
  // back as arrays of long, as Xlib stores them.
  std::optional<std::string> convert(Atom target, size_t limit) {
    XDeleteProperty(d_, window_, atoms_.property);
    XConvertSelection(d_, atoms_.clipboard, target, atoms_.property, window_, CurrentTime);
    XEvent event;
    while (true) {
      if (!nextEvent(conn_, deadline_, event)) return std::nullopt;
      if (event.type == SelectionNotify && event.xselection.requestor == window_) break;
    }
    if (event.xselection.property == None) return std::nullopt;
    std::string data;
    if (!readProperty(data)) return std::nullopt;
    if (type_ != atoms_.incr) {
      if (data.size() > limit) return std::nullopt;
      return data;
    }
    // Incremental: every deletion asks for the next piece; an empty piece ends it.
    std::string whole;
    while (true) {
      do {
        if (!nextEvent(conn_, deadline_, event)) return std::nullopt;
      } while (!(event.type == PropertyNotify && event.xproperty.window == window_ &&
                 event.xproperty.atom == atoms_.property &&
                 event.xproperty.state == PropertyNewValue));
      if (!readProperty(data)) return std::nullopt;
      if (data.empty()) break;
      whole += data;
      if (whole.size() > limit) {
        XDeleteProperty(d_, window_, atoms_.property);
        XFlush(d_);
        return std::nullopt;
      }
    }
    return whole;
  }

  // Reads and deletes the property, recording its type.
  bool readProperty(std::string& out) {
    out.clear();
    Atom type = None;
    int format = 0;
    unsigned long items = 0, after = 0;
    unsigned char* bytes = nullptr;
    X11ErrorTrap trap(d_);
    int status = XGetWindowProperty(d_, window_, atoms_.property, 0, LONG_MAX / 4, True,
                                    AnyPropertyType, &type, &format, &items, &after, &bytes);
    if (status != Success || trap.sync() != 0) {
      if (bytes != nullptr) XFree(bytes);
      return false;
    }
    size_t unit = format == 32 ? sizeof(long) : format == 16 ? sizeof(short) : 1;
    if (bytes != nullptr) {
      out.assign(reinterpret_cast<const char*>(bytes), items * unit);
      XFree(bytes);
    }
    type_ = type;
    return true;
  }

  X11Connection& conn_;
  Display* d_;
  Atoms atoms_;
  Clock::time_point deadline_;
  Window window_ = None;
  Atom type_ = None;
};

class LinuxClipboardService : public ClipboardService {
 public:
  bool copyText(std::string_view text) override {
    if (!x11::displayConfigured()) return false;
    const std::string copied(text);
    return startDetachedServer([&] { serveSelection(copied); }, kDeadline) == "1";
  }

  std::optional<std::string> pasteText(size_t limit) override {
    auto conn = X11Connection::open();
    if (!conn) return std::nullopt;
    SelectionReader reader(*conn);
    return reader.text(limit);
  }
};

}  // namespace

std::unique_ptr<ClipboardService> backends::makeX11ClipboardService() {
  return std::make_unique<LinuxClipboardService>();
}

}  // namespace tessel::platform
