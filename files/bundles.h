// Application bundles: a folder holding Contents/Info.plist, whose executable lies in
// Contents/MacOS. Paths here are Linux file-system paths (see paths::nativePath).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tessel::files::bundles {

// True when `folder` is a bundle with an existing executable file.
bool isBundle(const std::string& folder);

// The path of the bundle's executable (Contents/MacOS/ + CFBundleExecutable, or the bundle's
// name without its extension when the key is missing); "" when there is none.
std::string bundleExecutable(const std::string& folder);

// The string value of `key` in the bundle's Info.plist (XML or binary); nothing when the folder
// has no readable Info.plist or the key is missing or no string.
std::optional<std::string> infoValue(const std::string& folder, std::string_view key);

}  // namespace tessel::files::bundles
