// Disk information, the disk list and ejection, on the volume model.
#include "support/text.h"
#include "paths/paths.h"
#include "paths/volume_model.h"
#include "platform/files.h"

namespace tessel::paths {
using support::equalsIgnoringCase;
namespace {

// The mounted volume a Drive or Disk argument names: its HFS form, as a folder, must be an existing
// folder; the volume is the one its first component names.
const Volume* volumeOfArgument(std::string_view drive) {
  std::string hfs = toHfsPath(drive);
  addTrailingSeparator(hfs);
  std::string native = nativePath(hfs);
  if (native.empty() || !platform::fileService().isFolder(native)) return nullptr;
  return volumeNamed(std::string_view(hfs).substr(0, hfs.find(':')));
}

// Thousands of bytes, as the 32-bit integer Lingo receives.
int32_t thousands(uint64_t bytes) {
  return static_cast<int32_t>(static_cast<uint32_t>(bytes / 1000));
}

platform::MountedVolume toMounted(const Volume& v) {
  platform::MountedVolume m;
  m.mountPoint = v.mountPoint;
  m.name = v.name;
  m.device = v.device;
  m.fsType = v.fsType;
  m.ejectable = v.ejectable;
  m.network = v.network;
  return m;
}

}  // namespace

std::variant<int32_t, std::string> diskInfo(std::string_view drive, std::string_view infoType) {
  const Volume* volume = volumeOfArgument(drive);
  if (volume == nullptr) return std::string("Invalid");
  platform::VolumeService& service = platform::volumeService();

  if (equalsIgnoringCase(infoType, "type")) {
    if (volume->network) return std::string("Network");
    if (!volume->ejectable) return std::string("Hard");
    // Ejectable media that can't be written to (no free space) are taken for optical discs.
    std::optional<platform::VolumeSpace> space = service.space(volume->mountPoint);
    return std::string(space && space->freeBytes == 0 ? "CD-ROM" : "Removable");
  }
  bool size = equalsIgnoringCase(infoType, "size");
  if (size || equalsIgnoringCase(infoType, "free")) {
    std::optional<platform::VolumeSpace> space = service.space(volume->mountPoint);
    if (!space) return 0;
    return thousands(size ? space->totalBytes : space->freeBytes);
  }
  return 0;
}

std::vector<std::string> diskList() {
  std::vector<std::string> list;
  for (const Volume& v : volumes()) {
    if (returnUnixNames())
      list.push_back(v.isStartup() ? "/" : v.mountPoint + "/");
    else
      list.push_back(v.name + ":");
  }
  return list;
}

int32_t ejectDisk(std::string_view disk) {
  // Only the volume name of the path counts here.
  std::string hfs = toHfsPath(disk);
  addTrailingSeparator(hfs);
  const Volume* found = volumeNamed(std::string_view(hfs).substr(0, hfs.find(':')));
  if (found == nullptr || found->isStartup()) return 0;
  platform::MountedVolume target = toMounted(*found);
  platform::volumeService().eject(target);

  // Success is the volume being gone from a fresh reading of the mount table.
  forgetVolumes();
  for (const Volume& v : volumes())
    if (v.mountPoint == target.mountPoint) return 0;
  return 1;
}

}  // namespace tessel::paths
