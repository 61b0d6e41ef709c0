// Other applications as windows, named by 32-bit handles (0 = none).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::windows {

int32_t findWindow(std::string_view creator, std::string_view title);
std::string windowInfo(int32_t handle, std::string_view infoType);
int32_t activeWindow();
int32_t closeWindow(int32_t handle);
int32_t activateWindow(int32_t handle);
int32_t waitForWindow(int32_t handle, std::string_view state, int32_t timeoutTicks);
int32_t nextActiveWindow(int32_t timeoutTicks);
int32_t windowExists(int32_t handle);
std::vector<int32_t> windowList(std::string_view windowClass, std::string_view caption,
                                int32_t matchCaption);
int32_t winHandle();

}  // namespace tessel::windows
