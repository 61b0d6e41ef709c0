// The desktop clipboard (the X CLIPBOARD selection) as text.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tessel::platform {

class ClipboardService {
 public:
  virtual ~ClipboardService() = default;

  // Makes `text` (UTF-8, any length, possibly empty) the clipboard's content; true once it is
  // owned, and it stays available after the caller has gone.
  virtual bool copyText(std::string_view text) = 0;

  // The clipboard's text in UTF-8, at most `limit` bytes; nothing when there is no text, no
  // owner, it does not answer in time, or the text is longer than `limit`.
  virtual std::optional<std::string> pasteText(size_t limit) = 0;
};

ClipboardService& clipboardService();
std::unique_ptr<ClipboardService> setClipboardService(std::unique_ptr<ClipboardService> service);
std::unique_ptr<ClipboardService> makeLinuxClipboardService();

}  // namespace tessel::platform
