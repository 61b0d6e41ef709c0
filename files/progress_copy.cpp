#include "files/progress_copy.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "files/copy_engine.h"
#include "files/file_queries.h"
#include "files/listings.h"
#include "files/progress_run.h"
#include "paths/paths.h"
#include "support/text.h"

namespace tessel::files {

std::string shortProgressName(std::string_view name) {
  if (name.size() <= 31) return std::string(name);
  size_t head = support::utf8CutLength(name, 14);
  size_t tail = name.size() - 4;
  while (tail < name.size() && support::isUtf8Continuation(name[tail])) ++tail;
  return std::string(name.substr(0, head)) + "..." + std::string(name.substr(tail));
}

ProgressRun::ProgressRun(std::string_view title, std::string_view buttonText, int32_t flags,
                         double total)
    : title_(title), buttonText_(buttonText), flags_(flags), total_(total) {}

ProgressRun::~ProgressRun() {
  window_.reset();
  bracket_.reset();
}

void ProgressRun::openWindow() {
  if (window_ || (flags_ & kProgressNoWindow)) return;
  platform::UiService& ui = platform::uiService();
  if (!ui.available()) return;
  bracket_.emplace();
  window_ = ui.openProgress({title_, buttonText_, flags_ & (kProgressLayout1 | kProgressLayout2)});
  if (!window_) bracket_.reset();
}

void ProgressRun::finish(bool pauseAtEnd) {
  if (window_ && !cancelled_) {
    window_->setPercent(100);
    window_->poll();
    if (pauseAtEnd) platform::uiService().pause(25 * 1000 / 60);
  }
  window_.reset();
  bracket_.reset();
}

int32_t ProgressRun::percent() const {
  if (total_ <= 0) return 0;
  return static_cast<int32_t>(std::min(100.0, std::floor(done_ * 100.0 / total_)));
}

int32_t ProgressRun::value() const {
  if (flags_ & kProgressKilobytes)
    return static_cast<int32_t>(std::floor(std::min(done_, total_) / 1000.0));
  return percent();
}

void ProgressRun::callHandler(int32_t v) {
  if (!(flags_ & kProgressCallLingo) || cancelled_) return;
  if (platform::hostHooks().progressUpdate(v, fileName_) ==
      platform::HostHooks::HandlerAnswer::Cancel)
    cancelled_ = true;
}

// After a block the handler hears only values that are not 0 and differ from the last one it
// heard there.
void ProgressRun::report() {
  const int32_t v = value();
  if (v == 0 || v == lastReported_) return;
  lastReported_ = v;
  callHandler(v);
}

bool ProgressRun::beginFile(std::string_view leafName, uint64_t) {
  openWindow();
  fileName_ = std::string(leafName.substr(0, 255));
  if (window_) {
    window_->setName(shortProgressName(fileName_));
    if (window_->poll()) cancelled_ = true;
  }
  // Every file is announced, with the value reached so far, whatever the handler heard before.
  callHandler(value());
  return !cancelled_;
}

bool ProgressRun::block(uint64_t bytes) {
  done_ += static_cast<double>(bytes);
  if (window_) {
    // The bar moves only when the percentage does: setting it relays out the window, which
    // would cost more than the block itself.
    // Events are handled when the bar moves and otherwise every 10 ms, which keeps the button
    // and Escape immediate without paying an event round per 63 KB block.
    int32_t now = percent();
    auto clock = std::chrono::steady_clock::now();
    bool moved = now != shownPercent_;
    if (moved) {
      shownPercent_ = now;
      window_->setPercent(now);
    }
    if (moved || clock - lastPoll_ >= std::chrono::milliseconds(10)) {
      lastPoll_ = clock;
      if (window_->poll()) cancelled_ = true;
    }
  }
  report();
  return !cancelled_;
}

int32_t copyFileProgress(std::string_view source, std::string_view dest,
                         std::string_view overwrite, std::string_view title,
                         std::string_view buttonText, int32_t flags) {
  // The window opens with the first file, after the copy's own checks have passed.
  ProgressRun run(title, buttonText, flags, std::max(0.0, fileSizeEx(source)));
  int32_t code = copyOneFile(source, dest, overwrite, &run);
  if (run.cancelled()) code = kCancelled;
  run.finish(true);
  return code;
}

int32_t copyXFilesProgress(std::string_view sourceFolder, std::string_view destFolder,
                           std::string_view fileSpec, std::string_view overwrite,
                           std::string_view title, std::string_view buttonText, int32_t flags) {
  if (countMatchingFiles(sourceFolder, fileSpec) == 0) return kNothingMatched;
  ProgressRun run(title, buttonText, flags,
                  static_cast<double>(matchingFilesSize(sourceFolder, fileSpec, false)));
  run.openWindow();
  int32_t code = copyFolderFiles(sourceFolder, destFolder, fileSpec, overwrite, &run);
  if (run.cancelled()) code = kCancelled;
  run.finish(false);
  return code;
}

int32_t xCopyProgress(std::string_view sourceFolder, std::string_view destFolder,
                      std::string_view fileSpec, std::string_view overwrite, int32_t makeDirs,
                      std::string_view title, std::string_view buttonText, int32_t flags) {
  std::string source(sourceFolder);
  paths::stripTrailingSeparator(source);
  const std::vector<std::string> tree = buildFolderTree(source, true);
  if (tree.empty()) return kNoSource;
  const uint64_t total = matchingFilesSize(source, fileSpec, true);
  if (total == 0) return kNothingMatched;

  const size_t rootLength = tree.front().size();
  std::string destRoot(destFolder);
  paths::addTrailingSeparator(destRoot);
  const bool sourceUnix = paths::isUnixPath(tree.front());
  const bool destUnix = paths::isUnixPath(destRoot);

  ProgressRun run(title, buttonText, flags, static_cast<double>(total));
  run.openWindow();
  int32_t result = kCopied;
  for (const std::string& folder : tree) {
    // The folder's place below the source root, in the destination's separators.
    std::string relative = folder.substr(std::min(rootLength, folder.size()));
    if (sourceUnix != destUnix)
      std::replace(relative.begin(), relative.end(), sourceUnix ? '/' : ':', destUnix ? '/' : ':');
    const std::string dest = destRoot + relative;
    if (makeDirs != 0) createFolderPath(dest);
    copyFolderAttributes(folder, dest);
    const int32_t code = copyFolderFiles(folder, dest, fileSpec, overwrite, &run);
    if (run.cancelled()) {
      result = kCancelled;
      break;
    }
    if (code != kCopied && code != kNothingMatched) result = code;
  }
  run.finish(false);
  return result;
}

}  // namespace tessel::files
