// The clipboard service on a wlroots compositor, through wlr-data-control.
//
// As on X11 the compositor keeps no clipboard contents: the client that set the selection answers
// every paste by writing into a pipe. tsCopyText therefore starts a small server process
// (detached_server.h: forked twice, in its own session, with its own connection and no inherited
// descriptors) that sets the selection and writes the text to each reader, several at once and
// without blocking, until another client sets the selection. Pasting receives the offer's text
// through a pipe and never waits beyond a deadline.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clipboard.h"
#include "platform/linux/backend_choice.h"
#include "platform/linux/detached_server.h"
#include "platform/linux/wayland_connection.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

namespace tessel::platform {
namespace {

using wayland::WaylandConnection;
using Clock = std::chrono::steady_clock;

constexpr auto kDeadline = std::chrono::milliseconds(2000);

// The text types served, and asked for in this order when pasting.
constexpr const char* kTextTypes[] = {"text/plain;charset=utf-8", "UTF8_STRING", "text/plain",
                                      "TEXT"};

bool isTextType(std::string_view type) {
  return std::find(std::begin(kTextTypes), std::end(kTextTypes), type) != std::end(kTextTypes);
}

// The seat's data-control device on a connection of its own.
struct Device {
  std::unique_ptr<WaylandConnection> link;
  wl_seat* seat = nullptr;
  zwlr_data_control_manager_v1* manager = nullptr;
  zwlr_data_control_device_v1* device = nullptr;

  static std::unique_ptr<Device> open(std::chrono::milliseconds limit) {
    auto d = std::make_unique<Device>();
    d->link = WaylandConnection::open(limit);
    if (!d->link) return nullptr;
    d->manager =
        d->link->bind<zwlr_data_control_manager_v1>(zwlr_data_control_manager_v1_interface, 1, 1);
    d->seat = d->link->bind<wl_seat>(wl_seat_interface, 1, 1);
    if (d->manager == nullptr || d->seat == nullptr) return nullptr;
    d->device = zwlr_data_control_manager_v1_get_data_device(d->manager, d->seat);
    return d;
  }
  Device() = default;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  ~Device() {
    if (device != nullptr) zwlr_data_control_device_v1_destroy(device);
    if (manager != nullptr) zwlr_data_control_manager_v1_destroy(manager);
    if (seat != nullptr) wl_seat_destroy(seat);
  }
};

// ---- the selection server (runs in the forked process) ----

struct Transfer {
  int fd;
  size_t offset = 0;
};

struct Server {
  std::string text;
  bool cancelled = false;
  std::vector<Transfer> transfers;
};

const zwlr_data_control_source_v1_listener kSourceListener{
    [](void* data, zwlr_data_control_source_v1*, const char* type, int32_t fd) {
      auto* server = static_cast<Server*>(data);
      if (!isTextType(type)) {
        close(fd);
        return;
      }
      fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
      server->transfers.push_back(Transfer{fd});
    },
    [](void* data, zwlr_data_control_source_v1*) { static_cast<Server*>(data)->cancelled = true; }};

// Writes what the reader takes now; true when the transfer is over (whole, or the reader gone).
bool writeSome(const std::string& text, Transfer& t) {
  while (t.offset < text.size()) {
    ssize_t n = write(t.fd, text.data() + t.offset, text.size() - t.offset);
    if (n > 0) {
      t.offset += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      return n < 0 && errno != EAGAIN;
    }
  }
  return true;
}

// Serves the selection until another client takes it or the compositor goes away. Readers still
// reading when it is taken get their text first, as long as they keep reading.
void serve(WaylandConnection& link, Server& server) {
  wl_display* d = link.display();
  auto idleSince = Clock::now();
  while (true) {
    std::erase_if(server.transfers, [&](Transfer& t) {
      bool over = writeSome(server.text, t);
      if (over) close(t.fd);
      return over;
    });
    if (server.cancelled && server.transfers.empty()) return;
    if (server.cancelled && Clock::now() - idleSince > kDeadline) return;
    while (wl_display_prepare_read(d) != 0)
      if (wl_display_dispatch_pending(d) < 0) return;
    wl_display_flush(d);
    std::vector<pollfd> fds{{wl_display_get_fd(d), POLLIN, 0}};
    for (const Transfer& t : server.transfers) fds.push_back({t.fd, POLLOUT, 0});
    int n = poll(fds.data(), fds.size(), server.cancelled ? 200 : -1);
    if (n < 0 && errno != EINTR) {
      wl_display_cancel_read(d);
      return;
    }
    if (n > 0 && (fds[0].revents & POLLIN) != 0) {
      if (wl_display_read_events(d) < 0) return;
    } else {
      wl_display_cancel_read(d);
    }
    if (n > 0 && std::any_of(fds.begin() + 1, fds.end(), [](auto& p) { return p.revents != 0; }))
      idleSince = Clock::now();
    if ((fds[0].revents & (POLLHUP | POLLERR)) != 0) return;
    if (wl_display_dispatch_pending(d) < 0) return;
  }
}

// In the server process: sets the selection, reports "1" once the compositor has it (else "0"),
// and serves it.
void runServer(std::string_view text) {
  char answer = '0';
  if (auto device = Device::open(kDeadline)) {
    Server server{std::string(text)};
    zwlr_data_control_source_v1* source =
        zwlr_data_control_manager_v1_create_data_source(device->manager);
    zwlr_data_control_source_v1_add_listener(source, &kSourceListener, &server);
    for (const char* type : kTextTypes) zwlr_data_control_source_v1_offer(source, type);
    zwlr_data_control_device_v1_set_selection(device->device, source);
    if (device->link->roundtrip(kDeadline) && !server.cancelled) {
      answer = '1';
      (void)!write(3, &answer, 1);
      close(3);
      serve(*device->link, server);
      return;
    }
  }
  (void)!write(3, &answer, 1);
}

// ---- reading the selection ----

struct Offer {
  zwlr_data_control_offer_v1* offer = nullptr;
  std::vector<std::string> types;
};

struct Reader {
  std::vector<std::unique_ptr<Offer>> offers;
  Offer* selection = nullptr;
  bool received = false;
};

const zwlr_data_control_offer_v1_listener kOfferListener{
    [](void* data, zwlr_data_control_offer_v1*, const char* type) {
      static_cast<Offer*>(data)->types.emplace_back(type);
    }};

const zwlr_data_control_device_v1_listener kDeviceListener{
    [](void* data, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer) {
      auto* reader = static_cast<Reader*>(data);
      auto o = std::make_unique<Offer>();
      o->offer = offer;
      zwlr_data_control_offer_v1_add_listener(offer, &kOfferListener, o.get());
      reader->offers.push_back(std::move(o));
    },
    [](void* data, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1* offer) {
      auto* reader = static_cast<Reader*>(data);
      reader->selection = nullptr;
      for (auto& o : reader->offers)
        if (o->offer == offer) reader->selection = o.get();
      reader->received = true;
    },
    [](void*, zwlr_data_control_device_v1*) {},
    [](void*, zwlr_data_control_device_v1*, zwlr_data_control_offer_v1*) {}};

// Reads the pipe to its end; nothing past `limit` bytes or the deadline.
std::optional<std::string> readAll(int fd, size_t limit, Clock::time_point deadline) {
  std::string out;
  char buffer[65536];
  while (true) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return std::nullopt;
    pollfd pfd{fd, POLLIN, 0};
    int n = poll(&pfd, 1, static_cast<int>(std::min<int64_t>(left.count(), INT_MAX)));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::nullopt;
    ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) return out;
    out.append(buffer, static_cast<size_t>(got));
    if (out.size() > limit) return std::nullopt;
  }
}

class WaylandClipboardService : public ClipboardService {
 public:
  bool copyText(std::string_view text) override {
    return startDetachedServer([text] { runServer(text); }, kDeadline) == "1";
  }

  std::optional<std::string> pasteText(size_t limit) override {
    const auto deadline = Clock::now() + kDeadline;
    auto left = [&] {
      return std::max(
          std::chrono::milliseconds(0),
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
    };
    auto device = Device::open(left());
    if (!device) return std::nullopt;
    Reader reader;
    zwlr_data_control_device_v1_add_listener(device->device, &kDeviceListener, &reader);
    // The device announces the current selection as soon as it exists.
    bool ok = device->link->dispatchUntil([&] { return reader.received; }, left());
    std::optional<std::string> text;
    if (ok && reader.selection != nullptr) {
      const std::vector<std::string>& offered = reader.selection->types;
      for (const char* type : kTextTypes) {
        if (std::find(offered.begin(), offered.end(), type) == offered.end()) continue;
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0) break;
        zwlr_data_control_offer_v1_receive(reader.selection->offer, type, fds[1]);
        wl_display_flush(device->link->display());
        close(fds[1]);
        text = readAll(fds[0], limit, deadline);
        close(fds[0]);
        break;
      }
    }
    for (auto& o : reader.offers) zwlr_data_control_offer_v1_destroy(o->offer);
    return text;
  }
};

}  // namespace

std::unique_ptr<ClipboardService> backends::makeWaylandClipboardService() {
  return std::make_unique<WaylandClipboardService>();
}

}  // namespace tessel::platform
