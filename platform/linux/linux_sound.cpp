// The sound service on PulseAudio (or PipeWire's PulseAudio server): the default sink's volume
// and mute switch, through libpulse's single-threaded main loop, never starting a server and
// never waiting more than about two seconds in all.
#include <pulse/pulseaudio.h>

#include <chrono>
#include <string>

#include "platform/sound.h"

namespace tessel::platform {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kDeadline = std::chrono::milliseconds(2000);

// One short-lived connection to the server, used for a single request.
class PulseSession {
 public:
  PulseSession() : deadline_(Clock::now() + kDeadline) {
    loop_ = pa_mainloop_new();
    if (loop_ == nullptr) return;
    pa_proplist* props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "Tessel");
    context_ = pa_context_new_with_proplist(pa_mainloop_get_api(loop_), "Tessel", props);
    pa_proplist_free(props);
    if (context_ == nullptr) return;
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return;
    while (true) {
      pa_context_state_t state = pa_context_get_state(context_);
      if (state == PA_CONTEXT_READY) {
        ready_ = true;
        return;
      }
      if (!PA_CONTEXT_IS_GOOD(state) || !iterate()) return;
    }
  }
  ~PulseSession() {
    if (context_ != nullptr) {
      pa_context_disconnect(context_);
      pa_context_unref(context_);
    }
    if (loop_ != nullptr) pa_mainloop_free(loop_);
  }
  PulseSession(const PulseSession&) = delete;
  PulseSession& operator=(const PulseSession&) = delete;

  bool ready() const { return ready_; }
  pa_context* context() { return context_; }

  // Runs the loop until `op` is done; false on a time-out or a broken connection.
  bool wait(pa_operation* op) {
    if (op == nullptr) return false;
    bool ok = true;
    while (pa_operation_get_state(op) == PA_OPERATION_RUNNING) {
      if (!iterate() || !PA_CONTEXT_IS_GOOD(pa_context_get_state(context_))) {
        pa_operation_cancel(op);
        ok = false;
        break;
      }
    }
    pa_operation_unref(op);
    return ok;
  }

  // The default sink's name; "" when the server has none.
  std::string defaultSink() {
    std::string name;
    auto onInfo = [](pa_context*, const pa_server_info* info, void* data) {
      if (info != nullptr && info->default_sink_name != nullptr)
        *static_cast<std::string*>(data) = info->default_sink_name;
    };
    if (!wait(pa_context_get_server_info(context_, onInfo, &name))) return "";
    return name;
  }

 private:
  // One main-loop step, bounded by what is left of the deadline.
  bool iterate() {
    auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline_ - Clock::now());
    if (left.count() <= 0) return false;
    if (pa_mainloop_prepare(loop_, static_cast<int>(left.count())) < 0) return false;
    if (pa_mainloop_poll(loop_) < 0) return false;
    return pa_mainloop_dispatch(loop_) >= 0;
  }

  Clock::time_point deadline_;
  pa_mainloop* loop_ = nullptr;
  pa_context* context_ = nullptr;
  bool ready_ = false;
};

struct SinkReading {
  bool found = false;
  OutputState state;
  pa_channel_map map{};
};

bool readSink(PulseSession& session, const std::string& name, SinkReading& out) {
  auto onSink = [](pa_context*, const pa_sink_info* info, int eol, void* data) {
    auto* reading = static_cast<SinkReading*>(data);
    if (eol != 0 || info == nullptr) return;
    reading->found = true;
    reading->state.channels.assign(info->volume.values, info->volume.values + info->volume.channels);
    reading->state.muted = info->mute != 0;
    reading->map = info->channel_map;
  };
  return session.wait(pa_context_get_sink_info_by_name(session.context(), name.c_str(), onSink,
                                                       &out)) &&
         out.found;
}

void onDone(pa_context*, int ok, void* data) { *static_cast<int*>(data) = ok; }

class LinuxSoundService : public SoundService {
 public:
  std::optional<OutputState> output() override {
    PulseSession session;
    if (!session.ready()) return std::nullopt;
    std::string sink = session.defaultSink();
    SinkReading reading;
    if (sink.empty() || !readSink(session, sink, reading)) return std::nullopt;
    return reading.state;
  }

  bool setLevel(uint32_t level) override {
    PulseSession session;
    if (!session.ready()) return false;
    std::string sink = session.defaultSink();
    SinkReading reading;
    if (sink.empty() || !readSink(session, sink, reading)) return false;
    pa_cvolume volume;
    pa_cvolume_set(&volume, reading.map.channels, static_cast<pa_volume_t>(level));
    int success = 0;
    return session.wait(pa_context_set_sink_volume_by_name(session.context(), sink.c_str(),
                                                           &volume, onDone, &success)) &&
           success != 0;
  }

  bool setMuted(bool muted) override {
    PulseSession session;
    if (!session.ready()) return false;
    std::string sink = session.defaultSink();
    if (sink.empty()) return false;
    int success = 0;
    return session.wait(pa_context_set_sink_mute_by_name(session.context(), sink.c_str(),
                                                         muted ? 1 : 0, onDone, &success)) &&
           success != 0;
  }
};

}  // namespace

std::unique_ptr<SoundService> makeLinuxSoundService() {
  return std::make_unique<LinuxSoundService>();
}

}  // namespace tessel::platform
