// The volumes as the Xtra presents them: the start-up volume ("/") and the user-visible mounted
// filesystems, each with a unique name that HFS paths and "/Volumes/NAME" begin with.
//
// The mount table is read at most once per Lingo call (see paths::beginCall); every path
// operation of the call works on that one reading.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/volumes.h"

namespace tessel::paths {

// The start-up volume's name when its filesystem has no label.
inline constexpr std::string_view kStartupVolumeName = "Startup";
// Names are cut to this many bytes (at a character boundary) before they are made unique.
inline constexpr size_t kMaxVolumeName = 63;

struct Volume {
  std::string name;        // unique ignoring case; never contains ":" or "/"
  std::string foldedName;  // `name` case-folded, for comparisons
  std::string mountPoint;  // "/" for the start-up volume, else without a trailing "/"
  std::string device;
  std::string fsType;
  bool ejectable = false;
  bool network = false;

  bool isStartup() const { return mountPoint == "/"; }
};

// Names the volumes the service reported: the start-up volume (first) takes its label or
// kStartupVolumeName; ":" and "/" in a name become "-"; names are cut to kMaxVolumeName bytes; a
// name that an earlier volume already has (ignoring case) gets " 2", " 3"... as a file manager
// numbers them.
std::vector<Volume> nameVolumes(std::vector<platform::MountedVolume> mounted);

// This call's reading of the volumes (read now when the call has none yet). Never empty: the
// start-up volume is always there.
const std::vector<Volume>& volumes();

// Forgets this call's reading, so that the next question reads the mount table again (after an
// eject has changed it).
void forgetVolumes();

const Volume& startupVolume();
// The volume of that name, compared ignoring case; nullptr when none is mounted.
const Volume* volumeNamed(std::string_view name);
// The volume whose mount point is the longest leading part (whole components) of the absolute
// Linux path: the start-up volume for anything no other volume holds.
const Volume& volumeContaining(std::string_view nativePath);

// Case-folded text for name comparisons (invalid UTF-8 is folded as ASCII).
std::string foldCase(std::string_view text);

}  // namespace tessel::paths
