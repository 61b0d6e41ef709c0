// Volume scaling between Lingo's 0..100 and the sound server's levels.
#pragma once

#include <cstdint>
#include <vector>

namespace tessel::system {

// The level for a Lingo volume: Volume / 100 of the normal level, rounded; above 100 amplifies,
// below 0 is silence.
uint32_t levelForVolume(int32_t volume);

// The Lingo volume of an output: the mean of its first two channels' percentages (each rounded
// as the sound server's own tools show it), truncated. A mono output counts its channel twice;
// no channels read as 0.
int32_t volumeFromLevels(const std::vector<uint32_t>& channels);

}  // namespace tessel::system
