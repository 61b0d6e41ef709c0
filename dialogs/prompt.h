// The prompt and log-in dialogs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel::dialogs {

std::string prompt(std::string_view caption, std::string_view instruction,
                   std::string_view defaultText, int32_t flags, int32_t x, int32_t y);

struct LogInResult {
  bool ok = false;
  std::string name, password;
};
struct LogInOptions {
  std::string caption, instruction, defaultName, defaultPassword;
  int32_t flags = 0;
  std::string nameCaption, passwordCaption;
  int32_t x = 0, y = 0;
};
LogInResult logIn(const LogInOptions& options);

}  // namespace tessel::dialogs
