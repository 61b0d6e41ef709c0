// Fakes of the volume and folder services for the path tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "paths/paths.h"
#include "platform/folders.h"
#include "platform/volumes.h"
#include "tests/unit/scratch_folder.h"

namespace tessel::testing {

// "/a/b" as ":a:b", the HFS tail of a start-up volume path (scratch paths have no colons).
inline std::string replaceSlashes(std::string path) {
  std::replace(path.begin(), path.end(), '/', ':');
  return path;
}

class FakeVolumes final : public platform::VolumeService {
 public:
  std::vector<platform::MountedVolume> mounts;
  std::map<std::string, platform::VolumeSpace> spaces;  // by mount point; missing = unreadable
  std::vector<std::string> ejected;                     // mount points asked to eject
  bool ejectWorks = true;
  int reads = 0;

  std::vector<platform::MountedVolume> mountedVolumes() override {
    ++reads;
    return mounts;
  }
  std::optional<platform::VolumeSpace> space(const std::string& mountPoint) override {
    auto it = spaces.find(mountPoint);
    if (it == spaces.end()) return std::nullopt;
    return it->second;
  }
  void eject(const platform::MountedVolume& volume) override {
    ejected.push_back(volume.mountPoint);
    if (!ejectWorks) return;
    std::erase_if(mounts, [&](const auto& m) { return m.mountPoint == volume.mountPoint; });
  }

  platform::MountedVolume& add(std::string mountPoint, std::string name, bool ejectable = false,
                               bool network = false) {
    platform::MountedVolume m;
    m.mountPoint = std::move(mountPoint);
    m.name = std::move(name);
    m.ejectable = ejectable;
    m.network = network;
    mounts.push_back(m);
    return mounts.back();
  }
};

// Every folder under one scratch folder; user directories that are set but not created.
class FakeFolders final : public platform::FolderService {
 public:
  explicit FakeFolders(std::string root) : root_(std::move(root)) {}
  std::string homeDir() override { return root_ + "/home"; }
  std::string userConfigDir() override { return root_ + "/home/.config"; }
  std::string userDataDir() override { return root_ + "/home/.local/share"; }
  std::string userCacheDir() override { return root_ + "/home/.cache"; }
  std::string userStateDir() override { return root_ + "/home/.local/state"; }
  std::string userDir(platform::UserDir which) override {
    switch (which) {
      case platform::UserDir::Desktop: return root_ + "/home/Desktop";
      case platform::UserDir::Documents: return root_ + "/home/Documents";
      case platform::UserDir::Music: return root_ + "/home/Music";
      default: return "";  // not configured
    }
  }
  std::string tmpDir() override { return root_ + "/tmp"; }
  std::vector<std::string> systemConfigDirs() override {
    return {root_ + "/etc/xdg-missing", root_ + "/etc/xdg"};
  }
  std::string kernelRelease() override { return "0.0-test"; }

 private:
  std::string root_;
};

// Installs fakes for the duration of a test and puts the previous services back afterwards.
class PathsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto volumes = std::make_unique<FakeVolumes>();
    fake = volumes.get();
    previousVolumes_ = platform::setVolumeService(std::move(volumes));
    auto folders = std::make_unique<FakeFolders>(scratch.path());
    previousFolders_ = platform::setFolderService(std::move(folders));
    fake->add("/", "");
    paths::setReturnUnixNames(false);
    paths::beginCall();
  }
  void TearDown() override {
    platform::setVolumeService(std::move(previousVolumes_));
    platform::setFolderService(std::move(previousFolders_));
    paths::setReturnUnixNames(false);
    paths::beginCall();
  }

  ScratchFolder scratch;
  FakeVolumes* fake = nullptr;

 private:
  std::unique_ptr<platform::VolumeService> previousVolumes_;
  std::unique_ptr<platform::FolderService> previousFolders_;
};

}  // namespace tessel::testing
