#include "system/sound.h"

#include <algorithm>

#include "platform/sound.h"
#include "system/kiosk.h"
#include "support/text.h"

namespace tessel::system {

using support::equalsIgnoringCase;

uint32_t levelForVolume(int32_t volume) {
  if (volume <= 0) return 0;
  uint64_t level = (static_cast<uint64_t>(volume) * platform::kNormalVolume + 50) / 100;
  return static_cast<uint32_t>(std::min<uint64_t>(level, platform::kMaxVolume));
}

namespace {

int64_t percent(uint32_t level) {
  return (static_cast<int64_t>(level) * 100 + platform::kNormalVolume / 2) / platform::kNormalVolume;
}

}  // namespace

int32_t volumeFromLevels(const std::vector<uint32_t>& channels) {
  if (channels.empty()) return 0;
  int64_t left = percent(channels[0]);
  int64_t right = channels.size() > 1 ? percent(channels[1]) : left;
  return static_cast<int32_t>((left + right) / 2);
}

int32_t setVolume(std::string_view type, int32_t volume) {
  platform::SoundService& sound = platform::soundService();
  if (equalsIgnoringCase(type, "mute")) return sound.setMuted(volume != 0) ? 1 : 0;
  return sound.setLevel(levelForVolume(volume)) ? 1 : 0;
}

int32_t getVolume(std::string_view type) {
  std::optional<platform::OutputState> output = platform::soundService().output();
  if (!output) return -1;
  if (equalsIgnoringCase(type, "mute")) return output->muted ? 1 : 0;
  return volumeFromLevels(output->channels);
}

}  // namespace tessel::system
