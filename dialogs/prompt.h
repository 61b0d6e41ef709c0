// The prompt and log-in dialogs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/ui.h"

namespace tessel::dialogs {

// The prompt's flags (the low byte of Flags).
inline constexpr int32_t kPromptNumbersOnly = 1;
inline constexpr int32_t kPromptPassword = 2;
inline constexpr int32_t kPromptNoSpaces = 4;
inline constexpr int32_t kPromptRequireInput = 8;

// What a key does in a prompt field, decided before the field sees it: Return and Enter, then
// the clipboard keys (never filtered), Escape, the space rule and the numbers-only rule.
platform::EntryKeyAction promptKeyAction(int32_t flags, const platform::PromptKey& key,
                                    bool fieldEmpty);

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
