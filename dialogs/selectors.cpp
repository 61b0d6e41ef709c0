#include "dialogs/selectors.h"

#include <algorithm>

#include "dialogs/dialog_support.h"
#include "files/listings.h"
#include "support/four_char_code.h"
#include "support/text.h"
#include "paths/paths.h"
#include "paths/volume_model.h"
#include "platform/files.h"
#include "platform/text_encoding.h"
#include "platform/ui.h"

namespace tessel::dialogs {
namespace {

bool isFolder(const std::string& path) {
  return !path.empty() && platform::fileService().isFolder(path);
}

// An item, a link only when what it points to exists.
bool exists(const std::string& path) {
  return !path.empty() && platform::fileService().kind(path).has_value();
}

// The Linux folder a start path names, or "" when it names none.
std::string startFolder(std::string_view startDir) {
  if (startDir.empty()) return "";
  std::string native = paths::nativePath(startDir);
  return isFolder(native) ? native : "";
}

// The bracket and the display check every selector shares; `cancelled` when none can be shown.
template <typename Show, typename Result>
Result showWith(Show show, Result cancelled) {
  platform::UiService& ui = platform::uiService();
  if (!ui.available()) return cancelled;
  platform::WindowBracket bracket;
  return show(ui);
}

}  // namespace

FileFilter parseFileFilter(std::string_view filter) {
  FileFilter parsed;
  if (!filter.empty() && filter.front() == '.') {
    size_t start = 0;
    while (start <= filter.size() && parsed.extensions.size() < 10) {
      size_t comma = filter.find(',', start);
      if (comma == std::string_view::npos) comma = filter.size();
      std::string_view item = filter.substr(start, comma - start);
      while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
      while (!item.empty() && item.back() == ' ') item.remove_suffix(1);
      if (!item.empty()) parsed.extensions.emplace_back(item.substr(0, 63));
      start = comma + 1;
    }
  } else if (filter.size() > 3) {
    // Each type is read as every four-character code given as text is.
    for (size_t i = 0; i + 4 <= filter.size() && parsed.types.size() < 12; i += 4)
      parsed.types.push_back(support::readFourCharCode(std::string(filter.substr(i, 4))));
  }
  return parsed;
}

bool FileFilter::matches(const std::string& path) const {
  if (!restricts()) return true;
  const std::string_view leaf = std::string_view(path).substr(path.rfind('/') + 1);
  for (const std::string& ext : extensions) {
    if (leaf.size() >= ext.size() &&
        support::equalsIgnoringCase(leaf.substr(leaf.size() - ext.size()), ext))
      return true;
  }
  if (!types.empty()) {
    if (auto info = platform::fileService().finderInfo(path)) {
      if (std::find(types.begin(), types.end(), info->type()) != types.end()) return true;
    }
  }
  return false;
}

std::vector<std::string> getFilename(const GetFilenameOptions& o, bool& several) {
  const int32_t flags = o.flags == -1 ? 0 : o.flags;
  several = (flags & 0x200) != 0;
  platform::FileChooserSpec spec;
  spec.mode = support::equalsIgnoringCase(o.operation, "save") ? platform::ChooserMode::Save
                                                             : platform::ChooserMode::Open;
  spec.title = spec.mode == platform::ChooserMode::Save ? "Save" : "Open";
  spec.instruction = o.instruction;
  spec.startFolder = startFolder(o.startDir);
  spec.multiple = several;
  if (spec.mode == platform::ChooserMode::Save) {
    spec.proposedName = o.filename;
  } else {
    if (!spec.startFolder.empty() && !o.filename.empty()) {
      std::string item = spec.startFolder;
      if (item.back() != '/') item += '/';
      item += o.filename;
      if (exists(item)) spec.selectPath = item;
    }
    FileFilter filter = parseFileFilter(o.filter);
    if (filter.restricts())
      spec.filter = [filter](const std::string& path) { return filter.matches(path); };
  }
  spec.place = placeSystemWindow(o.x, o.y);
  std::vector<std::string> chosen =
      showWith([&](platform::UiService& ui) { return ui.chooseFiles(spec); },
               std::vector<std::string>());
  for (std::string& path : chosen) path = paths::fromNative(path, false);
  return chosen;
}

std::string getFolder(std::string_view startDir, std::string_view instruction, int32_t,
                      std::string_view title, int32_t x, int32_t y) {
  platform::FileChooserSpec spec;
  spec.mode = platform::ChooserMode::Folder;
  spec.title = title.empty() ? std::string("Choose a Folder") : std::string(title);
  spec.instruction = std::string(instruction);
  spec.startFolder = startFolder(startDir);
  spec.place = placeSystemWindow(x, y);
  std::vector<std::string> chosen = showWith(
      [&](platform::UiService& ui) { return ui.chooseFiles(spec); }, std::vector<std::string>());
  if (chosen.empty()) return "";
  return paths::fromNative(chosen.front(), true);
}

std::string getDisk(std::string_view disk, std::string_view instruction, int32_t, int32_t x,
                    int32_t y) {
  const std::vector<paths::Volume>& volumes = paths::volumes();
  const std::vector<std::string> results = paths::diskList();
  platform::ListChooserSpec spec;
  spec.title = "Choose a Disk";
  spec.instruction = std::string(instruction);
  platform::UiService& ui = platform::uiService();
  if (!ui.available()) return "";
  for (const paths::Volume& v : volumes) {
    spec.rows.push_back(v.name);
    spec.icons.push_back(ui.volumeIcon(v.mountPoint));
  }
  spec.selected = 0;  // the start-up volume
  if (!disk.empty()) {
    std::string hfs = paths::toHfsPath(disk);
    if (const paths::Volume* named = paths::volumeNamed(std::string_view(hfs).substr(0, hfs.find(':')))) {
      for (size_t i = 0; i < volumes.size(); ++i)
        if (&volumes[i] == named) spec.selected = static_cast<int32_t>(i);
    }
  }
  spec.place = placeSystemWindow(x, y);
  const int32_t row =
      showWith([&](platform::UiService& u) { return u.chooseFromList(spec); }, int32_t{-1});
  if (row < 0 || static_cast<size_t>(row) >= results.size()) return "";
  return results[static_cast<size_t>(row)];
}

std::string getFiles(const GetFilesOptions& o) {
  std::vector<std::string> names = files::fileList(o.folder, o.fileSpec);
  std::sort(names.begin(), names.end());
  platform::ListChooserSpec spec;
  spec.title = o.title.empty() ? std::string("Choose a File") : o.title;
  spec.instruction = o.instruction;
  spec.rows = names;
  auto found = std::find(names.begin(), names.end(), o.selectedFile);
  spec.selected = found == names.end() ? -1 : static_cast<int32_t>(found - names.begin());
  spec.place = placeSystemWindow(o.x, o.y);
  const int32_t row =
      showWith([&](platform::UiService& ui) { return ui.chooseFromList(spec); }, int32_t{-1});
  if (row < 0 || static_cast<size_t>(row) >= names.size()) return "";
  std::string path = paths::nativePath(o.folder);
  if (path.empty()) return "";
  if (path.back() != '/') path += '/';
  // The listed name in the Linux form: the HFS style shows a ":" as "/", which no Linux name holds.
  std::string leaf = names[static_cast<size_t>(row)];
  std::replace(leaf.begin(), leaf.end(), '/', ':');
  return paths::fromNative(path + leaf, false);
}

}  // namespace tessel::dialogs
