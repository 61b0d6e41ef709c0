#include "paths/volume_model.h"

#include <algorithm>
#include <unordered_set>

#include "paths/paths.h"
#include "platform/text_encoding.h"
#include "support/session.h"
#include "support/text.h"

namespace tessel::paths {
namespace {

// The session's reading of the mount table, valid for the call it was taken in.
struct Reading {
  bool valid = false;
  uint64_t call = 0;
  uint64_t serviceSerial = 0;
  std::vector<Volume> volumes;
  uint64_t calls = 0;  // Lingo calls so far (beginCall)
};

Reading& reading() { return support::session().part<Reading>(); }

using support::cutUtf8;

std::string cleanName(std::string name, const std::string& mountPoint) {
  name = platform::validUtf8(name);
  if (name.empty() && mountPoint != "/") name = mountPoint.substr(mountPoint.rfind('/') + 1);
  if (name.empty()) name = mountPoint == "/" ? std::string(kStartupVolumeName) : "Untitled";
  // Volume names are path components in both styles.
  std::replace(name.begin(), name.end(), ':', '-');
  std::replace(name.begin(), name.end(), '/', '-');
  return cutUtf8(std::move(name), kMaxVolumeName);
}

}  // namespace

void beginCall() { ++reading().calls; }

std::string foldCase(std::string_view text) { return platform::foldCase(text); }

std::vector<Volume> nameVolumes(std::vector<platform::MountedVolume> mounted) {
  // The start-up volume first, always present.
  auto root = std::find_if(mounted.begin(), mounted.end(),
                           [](const platform::MountedVolume& m) { return m.mountPoint == "/"; });
  if (root == mounted.end()) {
    platform::MountedVolume startup;
    startup.mountPoint = "/";
    mounted.insert(mounted.begin(), std::move(startup));
  } else if (root != mounted.begin()) {
    std::rotate(mounted.begin(), root, root + 1);
  }

  std::vector<Volume> result;
  result.reserve(mounted.size());
  std::unordered_set<std::string> taken;
  std::unordered_set<std::string> mountPoints;
  for (auto& m : mounted) {
    if (m.mountPoint.empty() || m.mountPoint[0] != '/') continue;
    if (m.mountPoint.size() > 1 && m.mountPoint.back() == '/') m.mountPoint.pop_back();
    if (!mountPoints.insert(m.mountPoint).second) continue;

    Volume v;
    std::string base = cleanName(std::move(m.name), m.mountPoint);
    v.name = base;
    v.foldedName = foldCase(v.name);
    for (int n = 2; taken.count(v.foldedName) != 0; ++n) {
      std::string suffix = " " + std::to_string(n);
      v.name = cutUtf8(base, kMaxVolumeName - suffix.size()) + suffix;
      v.foldedName = foldCase(v.name);
    }
    taken.insert(v.foldedName);
    v.mountPoint = std::move(m.mountPoint);
    v.device = std::move(m.device);
    v.fsType = std::move(m.fsType);
    v.ejectable = m.ejectable;
    v.network = m.network;
    result.push_back(std::move(v));
  }
  return result;
}

const std::vector<Volume>& volumes() {
  Reading& r = reading();
  uint64_t serial = platform::volumeServiceSerial();
  if (!r.valid || r.call != r.calls || r.serviceSerial != serial) {
    r.volumes = nameVolumes(platform::volumeService().mountedVolumes());
    r.valid = true;
    r.call = r.calls;
    r.serviceSerial = serial;
  }
  return r.volumes;
}

void forgetVolumes() { reading().valid = false; }

const Volume& startupVolume() { return volumes().front(); }

const Volume* volumeNamed(std::string_view name) {
  if (name.empty()) return nullptr;
  std::string folded = foldCase(name);
  for (const Volume& v : volumes())
    if (v.foldedName == folded) return &v;
  return nullptr;
}

const Volume& volumeContaining(std::string_view nativePath) {
  const std::vector<Volume>& all = volumes();
  const Volume* best = &all.front();
  for (const Volume& v : all) {
    if (v.isStartup() || v.mountPoint.size() <= best->mountPoint.size()) continue;
    std::string_view mp = v.mountPoint;
    if (nativePath.substr(0, mp.size()) == mp &&
        (nativePath.size() == mp.size() || nativePath[mp.size()] == '/'))
      best = &v;
  }
  return *best;
}

}  // namespace tessel::paths
