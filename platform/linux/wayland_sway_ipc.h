// The views sway reports through its IPC socket ($SWAYSOCK), for the process behind each window:
// foreign-toplevel handles say nothing of their client, sway's tree says each view's pid.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::platform::wayland {

struct SwayView {
  int64_t id = 0;  // sway's container id: grows with each view mapped
  int32_t pid = 0;
  std::string appId;
  std::string title;
};

// The views of sway's tree (tiled and floating, every workspace and output), in tree order;
// nothing when $SWAYSOCK is unset or sway does not answer within a second.
std::optional<std::vector<SwayView>> swayViews();

// The views in a GET_TREE reply's JSON (exposed for tests); nothing when it is not JSON.
std::optional<std::vector<SwayView>> parseSwayTree(std::string_view json);

}  // namespace tessel::platform::wayland
