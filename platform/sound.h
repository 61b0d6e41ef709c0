// The default audio output's volume and mute switch.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace tessel::platform {

// Volume levels as the sound server counts them: kNormalVolume is 100 %, more amplifies.
inline constexpr uint32_t kNormalVolume = 0x10000;
inline constexpr uint32_t kMaxVolume = 0x7fffffff / 2;

struct OutputState {
  std::vector<uint32_t> channels;  // one level per channel, in the device's channel order
  bool muted = false;
};

class SoundService {
 public:
  virtual ~SoundService() = default;

  // The default output's levels and mute switch; nothing without a sound server or an output.
  virtual std::optional<OutputState> output() = 0;
  // Sets every channel of the default output to `level`; false without one.
  virtual bool setLevel(uint32_t level) = 0;
  virtual bool setMuted(bool muted) = 0;
};

SoundService& soundService();
std::unique_ptr<SoundService> setSoundService(std::unique_ptr<SoundService> service);
std::unique_ptr<SoundService> makeLinuxSoundService();

}  // namespace tessel::platform
