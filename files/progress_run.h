// One progress copy's state: the window, the bar and handler arithmetic, and the cancel. The copy
// engine drives it through the CopyObserver calls.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "files/copy_engine.h"
#include "platform/ui.h"

namespace tessel::files {

// Flags of the progress copies.
inline constexpr int32_t kProgressLayout1 = 1;
inline constexpr int32_t kProgressLayout2 = 2;
inline constexpr int32_t kProgressNoWindow = 8;
inline constexpr int32_t kProgressCallLingo = 16;
inline constexpr int32_t kProgressKilobytes = 64;

// A name as the window shows it: over 31 bytes, its first 14 bytes, "..." and its last 4 (cut at
// character boundaries).
std::string shortProgressName(std::string_view name);

class ProgressRun final : public CopyObserver {
 public:
  ProgressRun(std::string_view title, std::string_view buttonText, int32_t flags, double total);
  ~ProgressRun() override;

  // Shows the window unless Flags bit 8 says not to or there is no display.
  void openWindow();
  // The end of the copy: the bar at 100 when not cancelled (then a short pause for a single
  // file), and the window gone.
  void finish(bool pauseAtEnd);

  bool beginFile(std::string_view leafName, uint64_t size) override;
  bool block(uint64_t bytes) override;
  // Blocks matter only to someone watching: without a window and a handler the data goes in
  // one piece, as a plain copy does.
  size_t blockSize() const override {
    return window_ || (flags_ & kProgressCallLingo) ? CopyObserver::blockSize() : 0;
  }

  bool cancelled() const { return cancelled_; }
  int32_t percent() const;
  // What the handler is given: the percentage, or the kilobytes copied with Flags bit 64.
  int32_t value() const;

 private:
  // The handler, with Flags bit 16 and unless the copy is cancelled; its cancel is kept.
  void callHandler(int32_t value);
  void report();

  std::string title_, buttonText_, fileName_;
  int32_t flags_;
  double total_, done_ = 0;
  int32_t lastReported_ = 0;
  int32_t shownPercent_ = -1;
  std::chrono::steady_clock::time_point lastPoll_{};
  bool cancelled_ = false;
  std::optional<platform::WindowBracket> bracket_;
  std::unique_ptr<platform::ProgressWindow> window_;
};

}  // namespace tessel::files
