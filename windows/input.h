// Synthetic keys and mouse clicks, and the keyboard state.
#pragma once

#include <cstdint>
#include <string_view>

namespace tessel::windows {

int32_t sendKeys(std::string_view keys);
int32_t keyIsDown(int32_t key);
int32_t mouseClick(std::string_view type);

}  // namespace tessel::windows
