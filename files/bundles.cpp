#include "files/bundles.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

#include "platform/files.h"

namespace tessel::files::bundles {
namespace {

// Info.plist files are small; anything larger is not one.
constexpr uint64_t kMaxInfoSize = 4u << 20;

struct PlistDeleter {
  void operator()(plist_t p) const { plist_free(p); }
};
using Plist = std::unique_ptr<void, PlistDeleter>;

std::string trimmed(const std::string& folder) {
  std::string f = folder;
  while (f.size() > 1 && f.back() == '/') f.pop_back();
  return f;
}

Plist readInfo(const std::string& folder) {
  platform::FileService& files = platform::fileService();
  std::string path = trimmed(folder) + "/Contents/Info.plist";
  auto info = files.info(path);
  if (!info || info->kind != platform::FileKind::File || info->size == 0 ||
      info->size > kMaxInfoSize)
    return nullptr;
  auto file = files.open(path, platform::OpenMode::Read);
  if (!file) return nullptr;
  std::string data(static_cast<size_t>(info->size), '\0');
  size_t got = 0;
  while (got < data.size()) {
    int64_t n = file->readAt(data.data() + got, data.size() - got, got);
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  data.resize(got);
  plist_t root = nullptr;
  plist_from_memory(data.data(), static_cast<uint32_t>(data.size()), &root);
  Plist owned(root);
  if (!owned || plist_get_node_type(root) != PLIST_DICT) return nullptr;
  return owned;
}

std::optional<std::string> stringValue(plist_t dict, std::string_view key) {
  plist_t item = plist_dict_get_item(dict, std::string(key).c_str());
  if (item == nullptr || plist_get_node_type(item) != PLIST_STRING) return std::nullopt;
  char* value = nullptr;
  plist_get_string_val(item, &value);
  if (value == nullptr) return std::nullopt;
  std::string out = value;
  std::free(value);
  return out;
}

}  // namespace

std::optional<std::string> infoValue(const std::string& folder, std::string_view key) {
  Plist info = readInfo(folder);
  if (!info) return std::nullopt;
  return stringValue(info.get(), key);
}

std::string bundleExecutable(const std::string& folder) {
  Plist info = readInfo(folder);
  if (!info) return "";
  std::string bundle = trimmed(folder);
  std::string name;
  if (auto value = stringValue(info.get(), "CFBundleExecutable")) {
    name = *value;
  } else {
    name = bundle.substr(bundle.find_last_of('/') + 1);
    size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
  }
  // The executable is a file directly in Contents/MacOS, never somewhere else.
  if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos)
    return "";
  std::string path = bundle + "/Contents/MacOS/" + name;
  auto item = platform::fileService().info(path);
  return item && item->kind == platform::FileKind::File ? path : "";
}

bool isBundle(const std::string& folder) { return !bundleExecutable(folder).empty(); }

}  // namespace tessel::files::bundles
