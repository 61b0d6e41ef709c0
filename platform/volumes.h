// The mounted volumes as the operating system reports them.
//
// The service lists what a file manager would show (the start-up volume first), reads a volume's
// size and free space, and unmounts (ejects) one. Naming, de-duplication and the mapping of paths
// onto volumes are done above it (paths/volume_model.h), so a fake service only has to describe
// mounts.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tessel::platform {

struct MountedVolume {
  // Absolute, without a trailing "/" (except the start-up volume's "/").
  std::string mountPoint;
  // The display name the system suggests; for the start-up volume its filesystem label, or ""
  // when it has none.
  std::string name;
  std::string device;      // e.g. "/dev/sdb1", "server:/export"; may be empty
  std::string fsType;      // e.g. "ext4", "nfs4"
  bool ejectable = false;  // removable media, optical drives, disk images (loop devices)
  bool network = false;    // a network filesystem
};

struct VolumeSpace {
  uint64_t totalBytes = 0;
  uint64_t freeBytes = 0;  // the space available to the calling user
};

class VolumeService {
 public:
  virtual ~VolumeService() = default;

  // The start-up volume ("/") first, then the user-visible mounts in mount-table order. Each
  // call reads the system's mount table afresh.
  virtual std::vector<MountedVolume> mountedVolumes() = 0;

  // Size and free space of the filesystem mounted at `mountPoint`; nothing when it can't be read.
  virtual std::optional<VolumeSpace> space(const std::string& mountPoint) = 0;

  // Unmounts the volume and, where the device allows, ejects or powers it off. The caller judges
  // success by listing the volumes again.
  virtual void eject(const MountedVolume& volume) = 0;
};

// The service in use: the Linux backend unless a test installed another.
VolumeService& volumeService();

// Installs `service` (nullptr restores the Linux backend) and returns the one it replaces.
std::unique_ptr<VolumeService> setVolumeService(std::unique_ptr<VolumeService> service);

// Counts installations, so that callers holding a reading of the old service can tell it is stale.
uint64_t volumeServiceSerial();

// The Linux backend itself (GIO's unix-mount API, statvfs, umount2 or UDisks2).
std::unique_ptr<VolumeService> makeLinuxVolumeService();

}  // namespace tessel::platform
